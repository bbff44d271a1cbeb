// How the library's files change. Every crash point of an update, story by
// story: the update ends after its k-th change of a file, the way a crash
// ends it, tearing that change and losing every later one. Each file must
// then hold bytes a commit gave it, and once the next update has finished
// what the crash left, the files must be a whole number of steps. Guid.db is
// deleted as well, and that update must put the same identity back. Then a
// reader of another process that holds a file open.
#include <climits>
#include <cstdio>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <thread>

#include "common/filestore.h"
#include "common/filestore_testing.h"
#include "common/md5.h"
#include "common/strutil.h"
#include "common/win32raii.h"
#include "kyguidlib/cguidupdater.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/td/hddfetcher.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CGuidUpdater;
using KyGuidSim::SimulatedMachine;
using KyGuidUtils::IFileChangeGate;
using Caller = CGuidUpdater::UpdateCaller;

using Files = std::map<std::string, std::string>;  // path below the test folder -> bytes

// Lets `allowed` changes through, tears the next one and loses the rest.
// `before` is told of every change ahead of it.
class CrashGate final : public IFileChangeGate {
 public:
  explicit CrashGate(int allowed, std::function<void(const std::wstring&)> before = nullptr)
      : m_allowed(allowed), m_before(std::move(before)) {}
  Fate Next(const std::wstring& path) override {
    if (m_before) m_before(path);
    ++m_seen;
    if (m_seen <= m_allowed) return Fate::kWhole;
    return m_seen == m_allowed + 1 ? Fate::kTorn : Fate::kLost;
  }
  int Seen() const { return m_seen; }

 private:
  int m_allowed;
  std::function<void(const std::wstring&)> m_before;
  int m_seen = 0;
};

// The machine's random GUID is new in every run that makes it.
std::string Masked(std::string bytes) {
  static const std::regex random("(rand_guid=|virt_guid=|\\[RandGuid\\]\r\nGuid=)[0-9a-f]{32}");
  return std::regex_replace(bytes, random, "$1<random>");
}

// The record in force of Guid.db, which a crash must leave whole.
std::string RecordInForce(const Files& files) {
  const auto guidDb = files.find("common\\Corvane\\Greibraske\\Guid.db");
  const std::string bytes = guidDb == files.end() ? "" : guidDb->second;
  const size_t active = bytes.find("[ActiveGuid]");
  return active == std::string::npos ? ""
                                     : bytes.substr(active, bytes.find("\n[", active) - active);
}

bool IsWorkingFile(const std::string& path) {
  return path.size() > 4 && (path.compare(path.size() - 4, 4, ".tmp") == 0 ||
                             path.find("GuidStore.commit") != std::string::npos);
}

class StoreTest;

struct CrashStory {
  const char* name;
  Caller caller;
  // Leaves the folders and the machine as they are before the update.
  void (*prepare)(StoreTest& test);
};

void PrintTo(const CrashStory& story, std::ostream* out) { *out << story.name; }

class StoreTest : public KyGuidTest::IsolatedTest,
                  public ::testing::WithParamInterface<CrashStory> {
 public:
  int Update(Caller caller = Caller::kSynchronous) {
    KyMacID::CHddFetcher::RestartRandom();
    return CGuidUpdater::RunUpdate(caller, {L"test", 0, L"test"});
  }
  // A desktop with the given disk serial, last byte of the MAC and processor.
  void UseMachine(const char* serial, uint8_t nic, char cpu) {
    m_machine = SimulatedMachine();
    m_machine.AddDrive(0).descriptor =
        SimulatedMachine::Descriptor("", "ST1000DM010", "CC43", serial, 11, false);
    m_machine.AddVolume(L'C').extents = SimulatedMachine::Extents({{0, 1 << 30}});
    m_machine.AddAdapter("{NIC}", "Ethernet", {0, 0x11, 0x22, 0xAA, 0xBB, nic}).pnpId = "PCI\\8086";
    m_machine.processorBrand.assign(48, cpu);
  }
  // The legacy scheme's GUID bound by its MAC, on a machine whose drive
  // answers no legacy read: its identity is made up in HDD.db.
  void UseAncientMachine() {
    m_machine = SimulatedMachine();
    m_machine.AddDrive(0).descriptor = SimulatedMachine::Descriptor("", "", "", "", 1, false);
    m_machine.AddAdapter("{NIC}", "Ethernet", {0, 0x11, 0x22, 0xAA, 0xBB, 0xCC}).pnpId =
        "PCI\\8086";
    KyGuidTest::MakeDirs(ProfileDir());
    KyGuidTest::IniWrite(Cache("GlobalMgr.db"), "Profile", "config1",
                         "0123456789abcdef0123456789abcdef");
    KyGuidTest::IniWrite(Cache("GlobalMgr.db"), "Profile", "config2",
                         KyGuidUtils::Md5Hex("001122aabbcc").c_str());
  }
  // The first update of a desktop, then the one given.
  void AfterAFirstBuild(const char* serial, uint8_t nic, char cpu) {
    UseMachine("Z9A1B2C3", 0xCC, 'A');
    Update();
    UseMachine(serial, nic, cpu);
  }
  std::string ActiveGuid() { return KyGuidTest::IniRead(GuidDbPath(), "ActiveGuid", "Guid"); }
  std::string Cache(const char* name) { return ProfileDir() + "\\" + name; }

  // Every file of both application-data folders, by its path below them.
  Files Snapshot() {
    Files files;
    for (const std::string folder : {"common", "user"}) {
      for (auto& file : KyGuidTest::ReadTree(Full(folder)))
        files[folder + "\\" + file.first] = file.second;
    }
    return files;
  }
  // The files proper, as a reader sees them.
  Files View() {
    Files view;
    for (const auto& file : Snapshot()) {
      if (!IsWorkingFile(file.first)) view[file.first] = Masked(file.second);
    }
    return view;
  }
  void Restore(const Files& files) {
    for (const auto& file : Snapshot()) DeleteFileA(Full(file.first).c_str());
    for (const auto& file : files) KyGuidTest::WriteWholeFile(Full(file.first), file.second);
  }

 private:
  std::string Full(const std::string& relative) { return m_temp->Path() + "\\" + relative; }
};

const CrashStory kStories[] = {
    {"FirstBuild", Caller::kSynchronous, [](StoreTest& t) { t.UseMachine("Z9A1B2C3", 0xCC, 'A'); }},
    {"UnchangedMachine", Caller::kBackground,
     [](StoreTest& t) { t.AfterAFirstBuild("Z9A1B2C3", 0xCC, 'A'); }},
    {"AncientGuidAdopted", Caller::kSynchronous, [](StoreTest& t) { t.UseAncientMachine(); }},
    {"RebuildAfterAHardwareChange", Caller::kSynchronous,
     [](StoreTest& t) { t.AfterAFirstBuild("WD-WCC6Y0000001", 0x5E, 'A'); }},
    // A new processor: a new legacy id, while the GUID stays.
    {"LegacyRefreshAfterAHardwareChange", Caller::kSynchronous,
     [](StoreTest& t) { t.AfterAFirstBuild("Z9A1B2C3", 0xCC, 'B'); }},
    {"ReportCache", Caller::kSynchronous,
     [](StoreTest& t) {
       t.AfterAFirstBuild("WD-WCC6Y0000001", 0x5E, 'A');
       KyGuidTest::IniWrite(t.Cache("GuidReport.dat"), "Desc", "Count", "7");   // a full ring
       KyGuidTest::IniWrite(t.Cache("Guid.db"), "RandGuid", nullptr, nullptr);  // made anew
     }},
};

TEST_P(StoreTest, EveryCrashPointLeavesWholeFilesAndTheIdentity) {
  const CrashStory& story = GetParam();
  SetEnvironmentVariableA("KYLOGEX_LEVEL", "0");
  story.prepare(*this);
  const Files before = Snapshot();
  // The update without a crash, change by change: the files before each.
  std::vector<Files> views;
  std::vector<bool> replaces;  // the change touches a file itself, not its working copy
  CrashGate count(INT_MAX, [&](const std::wstring& path) {
    views.push_back(View());
    replaces.push_back(!IsWorkingFile(KyGuid::WideToAnsi(path)));
  });
  {
    KyGuidUtils::ScopedFileChangeGate gate(count);
    Update(story.caller);
  }
  views.push_back(View());
  const Files after = Snapshot();
  const std::string identity = ActiveGuid();
  ASSERT_TRUE(KyGuidUtils::IsGuidText(identity));
  // A file changes only when a step commits, and a commit replaces its files
  // one after the other: between two such replacements the files are half a
  // step, elsewhere a whole number of steps.
  std::map<std::string, std::set<std::string>> committed;
  std::set<Files> wholeSteps;
  for (size_t i = 0; i < views.size(); ++i) {
    for (const auto& file : views[i]) committed[file.first].insert(file.second);
    if (i == 0 || i == replaces.size() || !replaces[i - 1] || !replaces[i]) {
      wholeSteps.insert(views[i]);
    }
  }

  for (int allowed = 0; allowed < count.Seen(); ++allowed) {
    SCOPED_TRACE("crash after " + std::to_string(allowed) + " of " + std::to_string(count.Seen()) +
                 " changes");
    Restore(before);
    CrashGate crash(allowed);
    {
      KyGuidUtils::ScopedFileChangeGate gate(crash);
      Update(story.caller);
    }
    for (const auto& file : View()) {
      EXPECT_EQ(1u, committed[file.first].count(file.second))
          << file.first << " holds bytes no commit gave it:\n"
          << file.second;
    }
    const std::string record = RecordInForce(Snapshot());
    EXPECT_TRUE(record == RecordInForce(before) || record == RecordInForce(after)) << record;
    // What the next update finds once it has finished what the crash left.
    ASSERT_TRUE(KyGuidUtils::RecoverStore(KyGuid::GetCommitListPath(), KyGuid::GetStoreFiles()));
    EXPECT_EQ(1u, wholeSteps.count(View())) << "half a step is left";
    for (const auto& file : Snapshot()) EXPECT_FALSE(IsWorkingFile(file.first)) << file.first;
    DeleteFileA(GuidDbPath().c_str());
    Update();
    EXPECT_EQ(identity, ActiveGuid());
    if (HasFailure()) break;
  }
  printf("%s: %d crash points\n", story.name, count.Seen());
}

// A reader that holds Guid.db open for a moment delays its replacement; one
// that holds it for good keeps the old file in place, which is said in the log,
// and the next update replaces it once the reader has let go.
TEST_F(StoreTest, AFileHeldOpenIsReplacedOnceItsReaderLetsGo) {
  AfterAFirstBuild("WD-WCC6Y0000001", 0x5E, 'A');
  auto hold = [&] {
    return KyGuidUtils::UniqueFile(CreateFileA(GuidDbPath().c_str(), GENERIC_READ,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                               OPEN_EXISTING, 0, nullptr));
  };
  KyGuidUtils::UniqueFile reader = hold();
  std::thread letGo([&] { Sleep(100), reader.reset(); });
  Update();
  letGo.join();
  const std::string second = ActiveGuid();
  EXPECT_EQ(KyGuidTest::IniRead(Cache("GlobalMgr.db"), "Profile", "config1"), second);

  reader = hold();
  const std::string before = KyGuidTest::ReadWholeFile(GuidDbPath());
  UseMachine("Z9A1B2C3", 0xCC, 'A');
  Update();
  EXPECT_EQ(before, KyGuidTest::ReadWholeFile(GuidDbPath()));
  EXPECT_EQ(1, CountLog("ReplaceFile failed: 32, " + GuidDbPath()));
  EXPECT_EQ("", KyGuidTest::ReadWholeFile(Cache("Guid.db.tmp")));
  reader.reset();
  Update();
  EXPECT_NE(second, ActiveGuid());
}

INSTANTIATE_TEST_SUITE_P(Story, StoreTest, ::testing::ValuesIn(kStories),
                         ::testing::PrintToStringParamName());

}  // namespace
