// The shipped DLL as a client sees it: its exports, the interface rules and
// a read of the machine's Guid.db, in this process and from the command line.
#include <vector>

#include "tests/dlltestsupport.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::DllTest;
using KyGuidTest::RunProcess;

constexpr char kGuid[] = "00112233445566778899aabbccddeeff";

TEST_F(DllTest, ExportsHandOutOneObjectPerInterfaceThatAnswersOnlyItsOwnIid) {
  KyGuid::IGuidReader* reader = Reader();
  KyGuid::IGuidUpdater* updater = Updater();
  ASSERT_NE(nullptr, reader);
  ASSERT_NE(nullptr, updater);
  EXPECT_EQ(reader, Reader());
  EXPECT_EQ(updater, Updater());

  void* out = nullptr;
  EXPECT_EQ(S_OK, reader->QueryInterface(KyGuid::IID_IGuidReader, &out));
  EXPECT_EQ(reader, out);
  EXPECT_EQ(S_OK, updater->QueryInterface(IID_IUnknown, &out));
  EXPECT_EQ(updater, out);

  void* untouched = reinterpret_cast<void*>(0x5555);
  EXPECT_EQ(0x80004002u, static_cast<uint32_t>(
                             reader->QueryInterface(KyGuid::IID_IGuidUpdater, &untouched)));
  EXPECT_EQ(0x80004002u, static_cast<uint32_t>(
                             updater->QueryInterface(KyGuid::IID_IGuidReader, &untouched)));
  EXPECT_EQ(reinterpret_cast<void*>(0x5555), untouched);

  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(1u, reader->Release());
    EXPECT_EQ(1u, updater->AddRef());
  }
  EXPECT_TRUE(reader->WaitForGuid(1000));
}

DWORD WINAPI GrabReader(void* context) {
  auto* slot = static_cast<std::pair<GetGuidReaderFn, KyGuid::IGuidReader*>*>(context);
  slot->second = slot->first();
  return 0;
}

TEST_F(DllTest, ThreadsRacingForTheReaderGetTheSameObject) {
  std::vector<std::pair<GetGuidReaderFn, KyGuid::IGuidReader*>> slots(8, {m_getReader, nullptr});
  std::vector<HANDLE> threads;
  for (auto& slot : slots) threads.push_back(CreateThread(nullptr, 0, &GrabReader, &slot, 0, nullptr));
  WaitForMultipleObjects(static_cast<DWORD>(threads.size()), threads.data(), TRUE, INFINITE);
  for (HANDLE thread : threads) CloseHandle(thread);
  for (auto& slot : slots) EXPECT_EQ(slots[0].second, slot.second);
  EXPECT_NE(nullptr, slots[0].second);
}

TEST_F(DllTest, ReaderServesTheMachineGuidFile) {
  KyGuidTest::MakeDirs(KyGuidTest::MachineProfileDir());
  KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "Guid", kGuid);
  char text[33] = {};
  ASSERT_TRUE(Reader()->GetGuidStringA(text, sizeof(text)));
  EXPECT_STREQ(kGuid, text);
}

TEST_F(DllTest, CommandLineReadPrintsTheGuidOrSaysThereIsNone) {
  KyGuidTest::ProcessResult none = RunProcess("kyguid.exe read");
  EXPECT_EQ(1u, none.exitCode);
  EXPECT_NE(std::string::npos, none.output.find("there is no machine GUID yet")) << none.output;

  KyGuidTest::MakeDirs(KyGuidTest::MachineProfileDir());
  KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "Guid", kGuid);
  KyGuidTest::ProcessResult read = RunProcess("kyguid.exe read");
  EXPECT_EQ(0u, read.exitCode);
  EXPECT_EQ(std::string(kGuid) + "\r\n", read.output);

  KyGuidTest::ProcessResult bad = RunProcess("kyguid.exe read --bogus");
  EXPECT_EQ(2u, bad.exitCode);
  EXPECT_NE(std::string::npos, bad.output.find("unknown option '--bogus'")) << bad.output;
}

}  // namespace
