// The updater: its 12-hour gate, the machine-wide update right, the worker
// thread with its hold, and the synchronous update. The right is a named
// kernel object of the whole machine, so these tests run one at a time.
#include <atomic>
#include <chrono>

#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/cguidupdater.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/singletonex.h"
#include "tests/dlltestsupport.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CGuidUpdater;
using KyGuidSim::SimulatedMachine;

class TestUpdater final : public CGuidUpdater {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

// Holds the update right the way another process would.
class ForeignRight {
 public:
  ForeignRight() : m_event(CreateEventW(nullptr, TRUE, FALSE, CGuidUpdater::kUpdateRightName)) {}
  void Release() { m_event.reset(); }
  KyGuidUtils::UniqueHandle m_event;
};

int64_t MillisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start)
      .count();
}

class UpdaterTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    m_drive = &m_machine.AddDrive(0);
    m_drive->descriptor =
        SimulatedMachine::Descriptor("", "ST1000DM010", "CC43", "Z9A1B2C3", 11, false);
    m_nic = &m_machine.AddAdapter("{NIC}", "Ethernet", {0, 0x11, 0x22, 0xAA, 0xBB, 0xCC});
    m_nic->pnpId = "PCI\\1";
  }
  bool WaitForLog(const std::string& text, int timeoutMs = 20000) {
    for (int waited = 0; waited < timeoutMs; waited += 20) {
      if (CountLog(text) > 0) return true;
      Sleep(20);
    }
    return false;
  }
  std::string StoredGuid() { return KyGuidTest::IniRead(GuidDbPath(), "ActiveGuid", "Guid"); }
  std::string LegacyGuid() {
    return KyGuidTest::IniRead(ProfileDir() + "\\GlobalMgr.db", "Profile", "config1");
  }
  // The line holding `text`, if it was logged by `function` of the updater.
  bool LoggedBy(const std::string& text, const std::string& function) {
    const std::string line = LogLineWith(text);
    return line.find("KyGuid::CGuidUpdater::" + function +
                     " (ftcommon\\kyguid\\kyguidlib\\cguidupdater:") != std::string::npos;
  }
  KyGuidSim::SimDrive* m_drive = nullptr;
  KyGuidSim::SimAdapter* m_nic = nullptr;
};

// The machine of the test, but every device open throws, as an allocation
// failure deep inside an update would.
class FaultingHardware final : public KyGuid::IHardware {
 public:
  explicit FaultingHardware(KyGuid::IHardware& machine) : m_machine(machine) {}
  std::unique_ptr<KyGuid::IDevice> OpenDevice(const std::wstring&, uint32_t, uint32_t, uint32_t,
                                              uint32_t*) override {
    throw std::bad_alloc();
  }
  std::unique_ptr<KyGuid::IAdapterQuery> LoadAdapterQuery() override {
    return m_machine.LoadAdapterQuery();
  }
  bool ReadNetworkString(const std::string& key, const char* name, uint32_t maxBytes,
                         std::string& value) override {
    return m_machine.ReadNetworkString(key, name, maxBytes, value);
  }
  bool ReadNetworkDword(const std::string& key, const char* name, uint32_t& value) override {
    return m_machine.ReadNetworkDword(key, name, value);
  }
  bool FindWmiAdapter(const std::string& pnpId) override { return m_machine.FindWmiAdapter(pnpId); }
  uint8_t Netbios(void* ncb) override { return m_machine.Netbios(ncb); }

 private:
  KyGuid::IHardware& m_machine;
};

TEST_F(UpdaterTest, GateAllowsOneUpdatePerTwelveHoursUnlessGuidDbIsGone) {
  TestUpdater updater;
  EXPECT_TRUE(updater.CheckUpdateFreq());
  EXPECT_EQ(1, CountLog("CheckUpdateFreq allow"));
  KyGuidTest::MakeDirs(ProfileDir());
  KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "Guid", "x");

  m_ticks.now += CGuidUpdater::kMinUpdateInterval;
  EXPECT_FALSE(updater.CheckUpdateFreq());
  EXPECT_EQ(1, CountLog("CheckUpdateFreq denied"));
  m_ticks.now += 1;  // 43200001 ms after the allowed one
  EXPECT_TRUE(updater.CheckUpdateFreq());

  m_ticks.now = 0xFFFFF000u;  // an allowed update just before the tick count wraps
  EXPECT_TRUE(updater.CheckUpdateFreq());
  m_ticks.now = 0x1000u;
  EXPECT_FALSE(updater.CheckUpdateFreq());

  ASSERT_TRUE(DeleteFileA(GuidDbPath().c_str()));
  EXPECT_TRUE(updater.CheckUpdateFreq());
  EXPECT_EQ(1, CountLog("Guid file not exist, maybe deleted, recreate it"));
}

TEST_F(UpdaterTest, RightIsTakenOncePerHolderAndFreedWhenClosed) {
  TestUpdater first;
  TestUpdater second;
  EXPECT_EQ(1, first.LockUpdateRight());
  EXPECT_EQ(-1, first.LockUpdateRight());  // already held by this updater
  EXPECT_EQ(0, second.LockUpdateRight());
  EXPECT_EQ(1, CountLog("can't lock update right, maybe other update thread is working"));
  first.UnlockUpdateRight();
  EXPECT_EQ(1, second.LockUpdateRight());
  second.UnlockUpdateRight();
  EXPECT_EQ(2, CountLog("UnlockUpdateRight"));
}

TEST_F(UpdaterTest, SynchronousUpdateWritesTheGuidAndReleasesTheRight) {
  TestUpdater updater;
  EXPECT_EQ(1, updater.SafeUpdateNow());
  EXPECT_EQ(32u, StoredGuid().size());
  EXPECT_EQ(1, CountLog("first create guid: " + StoredGuid()));
  EXPECT_EQ(StoredGuid(), LegacyGuid());
  EXPECT_EQ(1, updater.SafeUpdateNow());
  EXPECT_EQ(1, CountLog("guid no change: " + StoredGuid()));
  TestUpdater other;
  EXPECT_EQ(1, other.LockUpdateRight());
}

TEST_F(UpdaterTest, EachResultIsLoggedByTheMethodThatRanTheUpdate) {
  TestUpdater updater;
  ASSERT_EQ(1, updater.SafeUpdateNow());
  const std::string first = StoredGuid();
  EXPECT_TRUE(LoggedBy("first create guid: " + first, "SafeUpdateNow"));

  // A new disk and a new adapter: a new GUID of the same version.
  m_drive->descriptor = SimulatedMachine::Descriptor("", "WDC WD10", "01.0", "WX11", 11, false);
  m_nic->present = false;
  KyGuidSim::SimAdapter& nic2 = m_machine.AddAdapter("{NIC2}", "Ethernet", {0, 0x11, 0x22, 0, 0, 2});
  nic2.pnpId = "PCI\\2";
  ASSERT_EQ(1, updater.SafeUpdateNow());
  EXPECT_TRUE(LoggedBy("guid change: " + first + " ==> " + StoredGuid(), "SafeUpdateNow"));

  // Nothing to build from and nothing kept: the special GUID.
  m_drive->openError = KyGuidSim::kErrorFileNotFound;
  nic2.present = false;
  for (const std::string& path :
       {ProfileDir() + "\\Guid.db", ProfileDir() + "\\GlobalMgr.db",
        m_folders->UserAppData() + "\\Corvane\\Greibraske\\GlobalMgr.db"}) {
    DeleteFileA(path.c_str());
  }
  ASSERT_EQ(1, updater.SafeUpdateNow());
  EXPECT_TRUE(LoggedBy("guid update error, use special guid:  ==> 00000000000000000000000000000001",
                       "SafeUpdateNow"));

  // A result no update gives still gets a line of its own.
  KyGuid::CGuidBuilder builder(false);
  const KyLog::Site site{L"ftcommon\\kyguid\\kyguidlib\\cguidupdater", 1,
                         L"KyGuid::CGuidUpdater::UpdateProc"};
  CGuidUpdater::LogUpdateResult(site, 7, builder);
  EXPECT_TRUE(LoggedBy("update result=7, guid:  ==> ", "UpdateProc"));
}

TEST_F(UpdaterTest, EveryFileLandsInAFolderNamedBeyondAscii) {
  char letter[4] = {};
  BOOL lossy = FALSE;
  if (WideCharToMultiByte(CP_ACP, 0, L"\u00f6", 1, letter, sizeof(letter), nullptr, &lossy) != 1 ||
      lossy || static_cast<unsigned char>(letter[0]) < 0x80) {
    GTEST_SKIP() << "the ANSI code page has no single byte for the letter";
  }
  // A per-user folder such as C:\Users\J<o-umlaut>rg\AppData, and the same
  // letter in the common folder.
  KyGuidTest::TestFolders folders(m_temp->Path() + "\\J" + letter + "rg");
  KyGuid::ScopedPlatform platform({&folders, nullptr, nullptr, nullptr});
  KyGuidTest::MakeDirs(folders.UserAppData() + "\\Corvane\\Greibraske");
  TestUpdater updater;
  ASSERT_EQ(1, updater.SafeUpdateNow());

  const std::wstring common = KyGuid::AnsiToWide(folders.CommonAppData()) + L"\\Corvane\\Greibraske\\";
  const std::wstring user = KyGuid::AnsiToWide(folders.UserAppData()) + L"\\Corvane\\Greibraske\\";
  for (const std::wstring& path : {common + L"Guid.db", common + L"GlobalMgr.db",
                                   common + L"GuidInfo.db", common + L"GuidList.db",
                                   user + L"GlobalMgr.db"}) {
    EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(path.c_str()))
        << KyGuid::WideToAnsi(path);
  }
}

TEST_F(UpdaterTest, RightThatCannotBeCreatedIsAWarningWithItsErrorCode) {
  // Another kind of object under the right's name makes creating the event fail.
  KyGuidUtils::UniqueHandle squatter(CreateMutexW(nullptr, FALSE, CGuidUpdater::kUpdateRightName));
  ASSERT_TRUE(squatter.valid());
  TestUpdater updater;
  EXPECT_EQ(-1, updater.SafeUpdateNow());
  const std::string line = LogLineWith("Lock update right failed, maybe need administrator rights!");
  EXPECT_NE(std::string::npos, line.find("WARN [")) << line;
  EXPECT_NE(std::string::npos, line.find(") err=6: ")) << line;  // ERROR_INVALID_HANDLE
}

TEST_F(UpdaterTest, AFaultInsideAnUpdateLeavesTheRightFreeForTheNextProcess) {
  FaultingHardware faulting(m_machine);
  KyGuid::ScopedPlatform platform({nullptr, nullptr, &faulting, nullptr});
  TestUpdater updater;
  ASSERT_TRUE(updater.StartUpdate());
  EXPECT_TRUE(updater.StopUpdate());
  EXPECT_EQ(0, CountLog("guid update thread end!"));  // it ended by the fault
  TestUpdater next;
  EXPECT_EQ(1, next.LockUpdateRight());
  next.UnlockUpdateRight();

  EXPECT_EQ(0xFFFFFFFFu, updater.UpdateNow());
  EXPECT_EQ(1, next.LockUpdateRight());
}

TEST_F(UpdaterTest, SynchronousUpdateGivesUpAfterAboutAHundredMillisecondsOfRetries) {
  ForeignRight foreign;
  TestUpdater updater;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(0, updater.SafeUpdateNow());
  EXPECT_GE(MillisecondsSince(start), 90);
  EXPECT_EQ(1, CountLog("Other process is doing update, we can't wait it finish!"));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(GuidDbPath().c_str()));
}

DWORD WINAPI ReleaseSoon(void* right) {
  Sleep(30);
  static_cast<ForeignRight*>(right)->Release();
  return 0;
}

TEST_F(UpdaterTest, SynchronousUpdateReportsAnotherProcessThatFinishedMeanwhile) {
  ForeignRight foreign;
  HANDLE releaser = CreateThread(nullptr, 0, &ReleaseSoon, &foreign, 0, nullptr);
  TestUpdater updater;
  EXPECT_EQ(2, updater.SafeUpdateNow());
  WaitForSingleObject(releaser, INFINITE);
  CloseHandle(releaser);
  EXPECT_EQ(1, CountLog("Other process is do update ok!"));
}

TEST_F(UpdaterTest, BackgroundUpdateHoldsTheRightUntilStopped) {
  TestUpdater updater;
  ASSERT_TRUE(updater.StartUpdate());
  ASSERT_TRUE(WaitForLog("wait for 60 seconds to reduce update freq!"));
  EXPECT_EQ(32u, StoredGuid().size());
  EXPECT_EQ(StoredGuid(), LegacyGuid());

  TestUpdater other;
  EXPECT_EQ(0, other.LockUpdateRight());
  EXPECT_EQ(0, other.SafeUpdateNow());

  m_ticks.now += CGuidUpdater::kMinUpdateInterval + 1;
  EXPECT_FALSE(updater.StartUpdate());  // the gate allows, the running thread does not

  auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(updater.StopUpdate());
  EXPECT_LT(MillisecondsSince(start), 1000);
  EXPECT_EQ(1, CountLog("guid update thread end!"));
  EXPECT_EQ(1, other.LockUpdateRight());
  other.UnlockUpdateRight();
  EXPECT_TRUE(updater.StopUpdate());  // no thread: at once
}

TEST_F(UpdaterTest, BackgroundUpdateWithoutTheRightEndsAtOnce) {
  ForeignRight foreign;
  TestUpdater updater;
  ASSERT_TRUE(updater.StartUpdate());
  EXPECT_TRUE(updater.StopUpdate());
  EXPECT_EQ(1, CountLog("guid update thread begin!"));
  EXPECT_EQ(0, CountLog("guid update thread end!"));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(GuidDbPath().c_str()));
}

TEST_F(UpdaterTest, BuildGuidNowCopiesTheGuidAndWritesNothing) {
  TestUpdater updater;
  char guid[33] = {};
  ASSERT_TRUE(updater.BuildGuidNow(guid, sizeof(guid)));
  EXPECT_EQ(32u, strlen(guid));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(GuidDbPath().c_str()));
  // Nor does it refresh the legacy files.
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA((ProfileDir() + "\\GlobalMgr.db").c_str()));
  EXPECT_EQ(0, CountLog("KyMacID::CSeqIDGenerator::GetSequenceID"));
  char shortBuffer[32];
  EXPECT_FALSE(updater.BuildGuidNow(shortBuffer, sizeof(shortBuffer)));
  EXPECT_FALSE(updater.BuildGuidNow(nullptr, 64));
}

TEST_F(UpdaterTest, ProcessExitWaitsForTheUpdateThreadToFinish) {
  // The probe starts a slow background update and returns from main at once;
  // the exit list must let the update finish rather than cut it off.
  KyGuidTest::ProcessResult probe =
      KyGuidTest::RunProcess("updateprobe.exe \"" + m_temp->Path() + "\"");
  EXPECT_EQ(0u, probe.exitCode) << probe.output;
  EXPECT_EQ(32u, StoredGuid().size());
  EXPECT_EQ(1, CountLog("guid update thread end!"));
  EXPECT_EQ(1, CountLog("probe: main returned"));
}

}  // namespace
