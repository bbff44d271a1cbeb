// The updater: its 12-hour gate, the machine-wide update right, the worker
// thread with its hold, and the synchronous update. The right is a named
// kernel object of the whole machine, so these tests run one at a time.
#include <atomic>
#include <chrono>

#include "kyguidlib/cguidupdater.h"
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
    m_machine.AddDrive(0).descriptor =
        SimulatedMachine::Descriptor("", "ST1000DM010", "CC43", "Z9A1B2C3", 11, false);
    m_machine.AddAdapter("{NIC}", "Ethernet", {0, 0x11, 0x22, 0xAA, 0xBB, 0xCC}).pnpId = "PCI\\1";
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
