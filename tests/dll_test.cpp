// The shipped DLL as a client sees it: its exports, the interface rules, a
// read of the machine's Guid.db, in this process and from the command line,
// its updates with the reports they deliver, and its installed-copy lookup.
#include <algorithm>
#include <vector>

#include "common/md5.h"
#include "kyguidlib/cadapterfetcher.h"
#include "kyguidlib/cdiskfetcher.h"
#include "kyguidlib/td/hddfetcher.h"
#include "kyguidlib/td/macfetcher.h"
#include "kyguidlib/td/seqidgenerator.h"
#include "kyguidlib/cguiddllreader.h"
#include "kyguidlib/singletonex.h"

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
  // An unknown IID is E_NOINTERFACE even without a place to store a pointer.
  EXPECT_EQ(0x80004002u,
            static_cast<uint32_t>(reader->QueryInterface(KyGuid::IID_IGuidUpdater, nullptr)));
  EXPECT_EQ(0x80004002u,
            static_cast<uint32_t>(updater->QueryInterface(KyGuid::IID_IGuidReader, nullptr)));
  EXPECT_EQ(E_POINTER, reader->QueryInterface(KyGuid::IID_IGuidReader, nullptr));

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

namespace {

using KyGuidTest::IniRead;

// What the DLL should build on this machine, from the same fetchers.
struct ExpectedBuild {
  std::string diskKey;
  std::string adapterKey;
  int score = 0;
  int disks = 0;
  int adapters = 0;
};

ExpectedBuild ExpectedFromThisMachine() {
  ExpectedBuild expected;
  KyGuid::CDiskFetcher disks;
  expected.disks = disks.Fetch();
  KyGuid::CAdapterFetcher adapters;
  expected.adapters = adapters.Fetch();
  int diskScore = 0;
  int adapterScore = 0;
  for (const KyGuid::DiskInfo& disk : disks.Disks()) {
    if (disk.Has(KyGuid::DiskInfo::kBestDisk)) {
      expected.diskKey = KyGuid::DiskKey(disk);
      diskScore = std::min(disk.Score, 100);
    }
  }
  for (const KyGuid::AdapterInfo& adapter : adapters.Adapters()) {
    if (adapter.Has(KyGuid::AdapterInfo::kBestAdapter)) {
      expected.adapterKey = KyGuid::AdapterKey(adapter);
      adapterScore = std::min(adapter.Score, 100);
    }
  }
  expected.score = (diskScore + adapterScore) / 2;
  return expected;
}

TEST_F(DllTest, FirstUpdateBuildsFromThisMachineAndTheSecondKeepsIt) {
  ASSERT_EQ(1u, Updater()->UpdateNow());
  const ExpectedBuild expected = ExpectedFromThisMachine();
  const std::string path = GuidDbPath();
  const std::string guid = IniRead(path, "ActiveGuid", "Guid");
  EXPECT_EQ(KyGuidUtils::Md5Hex(expected.diskKey + expected.adapterKey), guid);
  EXPECT_EQ(expected.diskKey, IniRead(path, "ActiveGuid", "DiskKey"));
  EXPECT_EQ(expected.adapterKey, IniRead(path, "ActiveGuid", "AdapterKey"));
  EXPECT_EQ("0", IniRead(path, "ActiveGuid", "CreateIndex"));
  EXPECT_EQ("2", IniRead(path, "ActiveGuid", "Version"));
  EXPECT_EQ("0", IniRead(path, "ActiveGuid", "Reason"));
  EXPECT_EQ(std::to_string(expected.score), IniRead(path, "ActiveGuid", "Score"));
  EXPECT_EQ(guid, IniRead(path, "Build0", "Guid"));
  EXPECT_EQ(std::to_string(expected.disks), IniRead(path, "Build0", "DiskCount"));
  EXPECT_EQ(std::to_string(expected.adapters), IniRead(path, "Build0", "AdapterCount"));
  EXPECT_EQ(1, CountLog("first create guid: " + guid));

  ASSERT_EQ(1u, Updater()->UpdateNow());
  EXPECT_EQ(guid, IniRead(path, "ActiveGuid", "Guid"));
  EXPECT_EQ(1, CountLog("guid no change: " + guid));

  KyGuidTest::ProcessResult read = RunProcess("kyguid.exe read");
  EXPECT_EQ(guid + "\r\n", read.output);

  char built[33] = {};
  ASSERT_TRUE(Updater()->BuildGuidNow(built, sizeof(built)));
  EXPECT_EQ(guid, built);
}

// A UI thread of a host lives in a single-threaded apartment. An update on it
// that asks WMI about a vanished adapter must leave that apartment in place.
struct ApartmentCall {
  KyGuid::IGuidUpdater* updater;
  bool build;         // BuildGuidNow rather than UpdateNow
  HRESULT enter = E_FAIL;
  HRESULT after = E_FAIL;  // a second CoInitializeEx after the call
};

DWORD WINAPI CallInSingleThreadedApartment(void* context) {
  auto* call = static_cast<ApartmentCall*>(context);
  call->enter = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  char guid[33] = {};
  if (call->build) {
    call->updater->BuildGuidNow(guid, sizeof(guid));
  } else {
    call->updater->UpdateNow();
  }
  call->after = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  CoUninitialize();
  CoUninitialize();
  return 0;
}

class StoredAdapterGoneTest : public DllTest {
 protected:
  static constexpr char kConnectionKey[] =
      "System\\CurrentControlSet\\Control\\Network\\{4D36E972-E325-11CE-BFC1-08002BE10318}\\"
      "{0A0B0C0D-1111-2222-3333-444455556666}";
  void SetUp() override {
    DllTest::SetUp();
    // The adapter the stored GUID was built from is gone, but the registry
    // still names its Plug and Play id: matching asks WMI about it.
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExA(HKEY_LOCAL_MACHINE,
                                             (std::string(kConnectionKey) + "\\Connection").c_str(),
                                             0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr));
    const char id[] = "PCI\\VEN_FFFF&DEV_0001\\0";
    RegSetValueExA(key, "PnpInstanceID", 0, REG_SZ, reinterpret_cast<const BYTE*>(id), sizeof(id));
    RegCloseKey(key);
  }
  void TearDown() override {
    RegDeleteTreeA(HKEY_LOCAL_MACHINE, kConnectionKey);
    DllTest::TearDown();
  }
  // Guid.db as this machine's first update wrote it, bound to the gone adapter.
  void StoreGuidOfTheGoneAdapter() {
    KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "AdapterKey", "Mac:{0000000000fe}");
    KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "AdapterDetail",
                         "Guid:{0A0B0C0D-1111-2222-3333-444455556666}Desc:{gone}Mac:{0000000000fe}"
                         "Proto:{6}Type:{110}Score:{100}");
  }
  HRESULT ApartmentAfter(bool build) {
    ApartmentCall call{Updater(), build};
    HANDLE thread = CreateThread(nullptr, 0, &CallInSingleThreadedApartment, &call, 0, nullptr);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    EXPECT_EQ(S_OK, call.enter);
    return call.after;
  }
};

TEST_F(StoredAdapterGoneTest, UpdateAndBuildOnAUiThreadLeaveItsApartmentInPlace) {
  ASSERT_EQ(1u, Updater()->UpdateNow());
  StoreGuidOfTheGoneAdapter();
  EXPECT_EQ(S_FALSE, ApartmentAfter(false));
  // The disk under Wine is not good enough alone, so WMI had the last word.
  EXPECT_EQ(1, CountLog("Bad Disk match, adapter not found, rebuild guid"));

  StoreGuidOfTheGoneAdapter();
  EXPECT_EQ(S_FALSE, ApartmentAfter(true));
  EXPECT_EQ(2, CountLog("Bad Disk match, adapter not found, rebuild guid"));
}

TEST_F(DllTest, AnotherProcessCannotUpdateDuringTheBackgroundHoldUntilItIsStopped) {
  ASSERT_TRUE(Updater()->StartUpdate());
  for (int waited = 0; waited < 20000 && CountLog("wait for 60 seconds") == 0; waited += 20) Sleep(20);
  ASSERT_EQ(1, CountLog("wait for 60 seconds to reduce update freq!"));

  KyGuidTest::ProcessResult busy = RunProcess("kyguid.exe update");
  EXPECT_NE(std::string::npos, busy.output.find("result: 0 (another process is still updating)"))
      << busy.output;
  EXPECT_EQ(1, CountLog("Other process is doing update, we can't wait it finish!"));

  const DWORD start = GetTickCount();
  EXPECT_TRUE(Updater()->StopUpdate());
  EXPECT_LT(GetTickCount() - start, 1000u);

  KyGuidTest::ProcessResult free = RunProcess("kyguid.exe update");
  EXPECT_NE(std::string::npos, free.output.find("result: 1 (updated)")) << free.output;
  EXPECT_FALSE(Updater()->StartUpdate());  // at most one per 12 hours in a process
  EXPECT_EQ(1, CountLog("CheckUpdateFreq denied"));
}

// The earlier scheme's cache, as older components of the suite read it.
TEST_F(DllTest, UpdateLeavesTheLegacyCacheCarryingTheCurrentGuid) {
  KyGuidTest::MakeDirs(KyGuidTest::UserProfileDir());
  ASSERT_EQ(1u, Updater()->UpdateNow());
  const std::string guid = IniRead(GuidDbPath(), "ActiveGuid", "Guid");
  ASSERT_EQ(32u, guid.size());

  // What the earlier scheme reads on this machine, from the same fetchers.
  KyMacID::MACAddress mac;
  std::vector<KyMacID::MACAddress> macs;
  ASSERT_TRUE(KyMacID::CMacFetcher().GetMAC(mac, macs));
  std::string serial, model, revision;
  std::vector<KyMacID::DriveRecord> drives;
  ASSERT_TRUE(KyMacID::CHddFetcher().GetPhysicsDriveIdentify(serial, model, revision, drives));
  std::string brand;
  ASSERT_TRUE(KyMacID::GetCPUBrand(brand));

  const std::string path = KyGuidTest::MachineProfileDir() + "\\GlobalMgr.db";
  const std::string text = KyGuidTest::ReadWholeFile(path);
  EXPECT_EQ(0u, text.find("[Profile]\r\n")) << text;
  for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
    EXPECT_EQ('\r', text[at - 1]) << "bare line feed at " << at << " of:\n" << text;
  }
  EXPECT_EQ("\r\n", text.substr(text.size() - 2));
  EXPECT_EQ(guid, IniRead(path, "Profile", "config1"));
  EXPECT_EQ(KyGuidUtils::Md5Hex(mac.ToString()), IniRead(path, "Profile", "config2"));
  EXPECT_EQ(KyGuidUtils::Md5Hex(serial + model + revision), IniRead(path, "Profile", "config3"));
  EXPECT_EQ(KyGuidUtils::Md5Hex(brand), IniRead(path, "Profile", "config4"));
  EXPECT_EQ("1", IniRead(path, "Profile", "config5"));
  EXPECT_EQ(text, KyGuidTest::ReadWholeFile(KyGuidTest::UserProfileDir() + "\\GlobalMgr.db"));
}

TEST_F(DllTest, MachineThatLostGuidDbGetsTheSameGuidBackAsTheAncientOne) {
  ASSERT_EQ(1u, Updater()->UpdateNow());
  const std::string guid = IniRead(GuidDbPath(), "ActiveGuid", "Guid");
  ASSERT_EQ(32u, guid.size());
  ASSERT_TRUE(DeleteFileA(GuidDbPath().c_str()));

  KyGuidTest::ProcessResult update = RunProcess("kyguid.exe update");
  EXPECT_NE(std::string::npos, update.output.find("result: 1 (updated)")) << update.output;
  EXPECT_EQ(guid, IniRead(GuidDbPath(), "ActiveGuid", "Guid"));
  EXPECT_EQ(1, CountLog("first init by ancient guid: " + guid));
  EXPECT_EQ(guid, IniRead(GuidDbPath(), "Build-1", "OldGuid"));
}

}  // namespace

namespace {

TEST_F(DllTest, AncientGuidWhoseMacValueMatchesAPresentAdapterIsAdopted) {
  KyGuid::CAdapterFetcher adapters;
  ASSERT_GT(adapters.Fetch(), 0) << "this test needs a network adapter";
  const std::string macValue = KyGuidUtils::Md5Hex(adapters.Adapters().back().MacAddress);
  const std::string ancient = "0badc0de0badc0de0badc0de0badc0de";
  KyGuidTest::MakeDirs(KyGuidTest::MachineProfileDir());
  const std::string globalMgr = KyGuidTest::MachineProfileDir() + "\\GlobalMgr.db";
  KyGuidTest::IniWrite(globalMgr, "Profile", "config1", ancient.c_str());
  KyGuidTest::IniWrite(globalMgr, "Profile", "config2", macValue.c_str());

  ASSERT_EQ(1u, Updater()->UpdateNow());
  EXPECT_EQ(ancient, IniRead(GuidDbPath(), "ActiveGuid", "Guid"));
  EXPECT_EQ(KyGuid::AdapterKey(adapters.Adapters().back()),
            IniRead(GuidDbPath(), "ActiveGuid", "AdapterKey"));
  EXPECT_EQ(1, CountLog("first init by ancient guid: " + ancient));
}

}  // namespace

namespace {

using KyGuidTest::IniRead;

// The library's own statically linked installed-copy reader, in a process
// that has loaded the shipped DLL under its installed name.
TEST_F(DllTest, InstalledCopyReaderForwardsToTheLoadedLibrary) {
  KyGuidTest::MakeDirs(KyGuidTest::MachineProfileDir());
  KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "Guid", kGuid);
  EXPECT_EQ(m_library, KyGuid::GetLoadedCopy().m_module);
  EXPECT_EQ(Reader(), KyGuid::GetLoadedCopy().m_reader);
  EXPECT_EQ(Updater(), KyGuid::GetLoadedCopy().m_updater);

  char installed[33];
  memset(installed, 'x', sizeof(installed));
  ASSERT_TRUE(KyGuid::GetInstalledGuid(installed));
  EXPECT_STREQ(kGuid, installed);

  KyGuid::CGuidDllReader* reader = KyGuidUtils::CSingletonEx<KyGuid::CGuidDllReader>::Instance();
  EXPECT_TRUE(reader->WaitForGuid(0));
  uint8_t bytes[16] = {};
  ASSERT_TRUE(reader->GetGuidBytes(bytes, sizeof(bytes)));
  EXPECT_EQ(0x00, bytes[0]);
  EXPECT_EQ(0xFF, bytes[15]);
  wchar_t wide[34] = {};
  ASSERT_TRUE(reader->GetGuidStringW(wide, 34));
  EXPECT_EQ(std::wstring(kGuid, kGuid + 32), wide);
}

TEST_F(DllTest, SynchronousUpdateCachesItsReportAndTheNextBackgroundRunDeliversItWithItsOwn) {
  ASSERT_EQ(1u, Updater()->UpdateNow());
  const std::string guid = IniRead(GuidDbPath(), "ActiveGuid", "Guid");
  const std::string cache = KyGuidTest::MachineProfileDir() + "\\GuidReport.dat";
  EXPECT_EQ("1", IniRead(cache, "Desc", "Count"));
  EXPECT_EQ("1", IniRead(cache, "Report0", "update_result"));
  EXPECT_EQ(guid, IniRead(cache, "Report0", "active_guid"));
  EXPECT_EQ("", IniRead(cache, "Report1", "update_result"));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(m_reportPath.c_str()));  // nothing sent

  ASSERT_TRUE(Updater()->StartUpdate());
  for (int waited = 0; waited < 20000 && CountLog("wait for 60 seconds") == 0; waited += 20) Sleep(20);
  EXPECT_TRUE(Updater()->StopUpdate());

  const std::vector<std::string> lines = KyGuidTest::ReadLines(m_reportPath);
  ASSERT_EQ(2u, lines.size());
  const std::string head = R"({"business":"KyGuid","fields":{"update_result":")";
  const std::string tail =
      R"(,"installed_guid":")" + guid + R"(","process_name":"kyguid_dll_tests"}})";
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(0u, lines[i].find(head + (i == 0 ? "1" : "0") + R"(","system_disk":")")) << lines[i];
    EXPECT_NE(std::string::npos, lines[i].find(R"("active_guid":")" + guid + "\"")) << lines[i];
    ASSERT_GE(lines[i].size(), tail.size());
    EXPECT_EQ(tail, lines[i].substr(lines[i].size() - tail.size()));
  }
  EXPECT_NE(std::string::npos, lines[0].find(R"("reporter":"kyguid_dll_tests.exe")"));
  EXPECT_EQ(1, CountLog("Report Cache, update_result=1"));
  EXPECT_EQ(1, CountLog("Report now, update_result=0"));
}

}  // namespace
