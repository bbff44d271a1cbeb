// The updater: its 12-hour gate, the machine-wide update right, the worker
// thread with its hold, the synchronous update and the line that tells what
// an update did. The right is a named kernel object of the whole machine, so
// these tests run one at a time.
#include <thread>

#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/cguidupdater.h"
#include "kyguidlib/guidpaths.h"
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

// Folder lookups throw, as an allocation failure deep inside an update would.
class FaultingFolders final : public KyGuid::IFolders {
 public:
  bool GetFolder(int, std::wstring&) override { throw std::bad_alloc(); }
};

class UpdaterTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    m_machine.AddDrive(0).descriptor =
        SimulatedMachine::Descriptor("", "ST1000DM010", "CC43", "Z9A1B2C3", 11, false);
    m_machine.AddAdapter("{NIC}", "Ethernet", {0, 0x11, 0x22, 0xAA, 0xBB, 0xCC}).pnpId = "PCI\\1";
  }
  std::string StoredGuid() { return KyGuidTest::IniRead(GuidDbPath(), "ActiveGuid", "Guid"); }
};

TEST_F(UpdaterTest, GateAllowsOneUpdatePerTwelveHoursUnlessGuidDbIsGone) {
  TestUpdater updater;
  EXPECT_TRUE(updater.CheckUpdateFreq());
  KyGuidTest::MakeDirs(ProfileDir());
  KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "Guid", "x");
  m_ticks.now += CGuidUpdater::kMinUpdateInterval;
  EXPECT_FALSE(updater.CheckUpdateFreq());
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

TEST_F(UpdaterTest, SynchronousUpdateLogsItsResultWhereItRanAndGivesTheRightBack) {
  TestUpdater updater;
  ASSERT_EQ(1, updater.SafeUpdateNow());
  const std::string first = StoredGuid();
  EXPECT_EQ(first, KyGuidTest::IniRead(ProfileDir() + "\\GlobalMgr.db", "Profile", "config1"));
  // A new disk and no adapter: a new GUID, the old one named first.
  m_machine = SimulatedMachine();
  m_machine.AddDrive(0).descriptor =
      SimulatedMachine::Descriptor("", "WDC WD10", "01.0", "WX11", 11, false);
  ASSERT_EQ(1, updater.SafeUpdateNow());
  for (const std::string& text :
       {"first create guid: " + first, "guid change: " + first + " ==> " + StoredGuid()}) {
    EXPECT_NE(std::string::npos,
              LogLineWith(text).find(
                  "INFO [kyguid_updater_tests.exe] KyGuid::CGuidUpdater::SafeUpdateNow "
                  "(ftcommon\\kyguid\\kyguidlib\\cguidupdater:"))
        << text;
  }
  TestUpdater other;
  EXPECT_EQ(1, other.LockUpdateRight());
  EXPECT_EQ(0, updater.LockUpdateRight());
}

TEST_F(UpdaterTest, EachResultHasALineOfItsOwn) {
  const KyGuid::CGuidBuilder builder;  // never run: both GUIDs empty
  std::string messages;
  for (int result : {-1, 0, 1, 2, 3, 4, 7}) {  // 7: one no update gives
    CGuidUpdater::LogUpdateResult({L"tests", 1, L"UpdateProc"}, result, builder);
    const std::string line = LogLines().back();
    messages += line.substr(line.find(") err=0: ") + 9) + "\n";
  }
  EXPECT_EQ(
      "guid update error, use special guid:  ==> \nguid no change: \nfirst create guid: \n"
      "first init by ancient guid: \nguid change:  ==> \n"
      "version change[0==>0] guid change:  ==> \nupdate result=7, guid:  ==> \n",
      messages);
}

TEST_F(UpdaterTest, RightThatCannotBeCreatedIsAWarningWithItsErrorCode) {
  // Another kind of object under the right's name makes creating the event fail.
  KyGuidUtils::UniqueHandle squatter(CreateMutexW(nullptr, FALSE, CGuidUpdater::kUpdateRightName));
  EXPECT_EQ(-1, TestUpdater().SafeUpdateNow());
  const std::string line = LogLines().back();  // err=6: ERROR_INVALID_HANDLE
  EXPECT_TRUE(line.find("WARN [") != std::string::npos &&
              line.find(") err=6: Lock update right failed, maybe need administrator rights!") !=
                  std::string::npos)
      << line;
}

TEST_F(UpdaterTest, AFaultInsideAnUpdateLeavesTheRightFreeForTheNextProcess) {
  FaultingFolders faulting;
  KyGuid::ScopedPlatform platform({&faulting, nullptr, nullptr, nullptr});
  TestUpdater updater;
  ASSERT_TRUE(updater.StartUpdate() && updater.StopUpdate());
  EXPECT_EQ(0, CountLog("guid update thread end!"));  // it ended by the fault
  TestUpdater next;
  EXPECT_EQ(1, next.LockUpdateRight());
  next.UnlockUpdateRight();
  EXPECT_EQ(0xFFFFFFFFu, updater.UpdateNow());
  EXPECT_EQ(1, next.LockUpdateRight());
}

TEST_F(UpdaterTest, WhileAnotherProcessHoldsTheRightNothingIsUpdated) {
  KyGuidUtils::UniqueHandle foreign(
      CreateEventW(nullptr, TRUE, FALSE, CGuidUpdater::kUpdateRightName));
  TestUpdater updater;
  ASSERT_TRUE(updater.StartUpdate() && updater.StopUpdate());  // the thread gives up at once
  EXPECT_TRUE(CountLog("thread begin!") == 1 && CountLog("thread end!") == 0 &&
              GetFileAttributesA(GuidDbPath().c_str()) == INVALID_FILE_ATTRIBUTES);
  const DWORD start = GetTickCount();
  EXPECT_EQ(0, updater.SafeUpdateNow());  // ten tries, 10 ms apart
  EXPECT_GE(GetTickCount() - start, 90u);
  EXPECT_EQ(1, CountLog("Other process is doing update, we can't wait it finish!"));

  std::thread releaser([&foreign] {
    Sleep(30);
    foreign.reset();
  });
  EXPECT_EQ(2, updater.SafeUpdateNow());
  releaser.join();
  EXPECT_EQ(1, CountLog("Other process is do update ok!"));
}

TEST_F(UpdaterTest, BackgroundUpdateHoldsTheRightUntilStopped) {
  TestUpdater updater;
  ASSERT_TRUE(updater.StartUpdate());
  for (int waited = 0; waited < 20000 && CountLog("wait for 60 seconds") == 0; waited += 20)
    Sleep(20);
  EXPECT_EQ(32u, StoredGuid().size());
  TestUpdater other;
  EXPECT_EQ(0, other.SafeUpdateNow());
  m_ticks.now += CGuidUpdater::kMinUpdateInterval + 1;
  EXPECT_FALSE(updater.StartUpdate());  // the gate allows, the running thread does not
  const DWORD start = GetTickCount();
  EXPECT_TRUE(updater.StopUpdate());
  EXPECT_LT(GetTickCount() - start, 1000u);
  EXPECT_EQ(1, CountLog("guid update thread end!"));
  EXPECT_EQ(1, other.LockUpdateRight());
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
  ASSERT_EQ(1, TestUpdater().SafeUpdateNow());
  const std::wstring common =
      KyGuid::AnsiToWide(folders.CommonAppData()) + L"\\Corvane\\Greibraske\\";
  const std::wstring user = KyGuid::AnsiToWide(folders.UserAppData()) + L"\\Corvane\\Greibraske\\";
  for (const std::wstring& path :
       {common + L"Guid.db", common + L"GlobalMgr.db", common + L"GuidInfo.db",
        common + L"GuidList.db", user + L"GlobalMgr.db"}) {
    EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(path.c_str()))
        << KyGuid::WideToAnsi(path);
  }
}

TEST_F(UpdaterTest, WithoutItsFoldersAnUpdateWritesNothingElsewhere) {
  // A profile call on a relative name works in the Windows folder.
  char windows[MAX_PATH] = {};
  GetWindowsDirectoryA(windows, MAX_PATH);
  m_folders->Fail();
  TestUpdater().SafeUpdateNow();
  for (const char* name : {"Guid.db", "GuidInfo.db", "GuidList.db", "GlobalMgr.db", "HDD.db"}) {
    const std::string stray = std::string(windows) + "\\" + name;
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(stray.c_str())) << stray;
    DeleteFileA(stray.c_str());
  }
}

TEST_F(UpdaterTest, ProcessExitWaitsForTheUpdateThreadToFinish) {
  // The probe starts a slow background update and returns from main at once;
  // the exit list must let the update finish rather than cut it off.
  const KyGuidTest::ProcessResult probe =
      KyGuidTest::RunProcess("updateprobe.exe \"" + m_temp->Path() + "\"");
  EXPECT_EQ(0u, probe.exitCode) << probe.output;
  EXPECT_EQ(32u, StoredGuid().size());
  EXPECT_EQ(1, CountLog("guid update thread end!"));
  EXPECT_EQ(1, CountLog("probe: main returned"));
}

}  // namespace
