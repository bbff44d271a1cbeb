// Several processes at once on the machine's one Guid.db: readers through the
// DLL while updaters switch between two simulated machines, and an updater
// killed at random moments. The run lengths come from the environment
// (tools/stress.sh sets them long); the defaults keep the test pass short.
#include <windows.h>
#include <iphlpapi.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <vector>

#include "common/md5.h"
#include "common/strutil.h"
#include "common/win32raii.h"
#include "tests/dlltestsupport.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::DllTest;
using KyGuidTest::ExecutableDir;
using KyGuidTest::IniRead;
using KyGuidTest::RunProcess;

int FromEnvironment(const char* name, int fallback) {
  const char* value = getenv(name);
  return value && atoi(value) > 0 ? atoi(value) : fallback;
}

// A child started beside this executable that the test waits for or kills.
class Child {
 public:
  explicit Child(const std::string& arguments) {
    STARTUPINFOA startup{};
    startup.cb = sizeof(startup);
    std::string line = "\"" + ExecutableDir() + "\\stressprobe.exe\" " + arguments;
    PROCESS_INFORMATION info{};
    if (CreateProcessA(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                       &info)) {
      CloseHandle(info.hThread);
      m_process.reset(info.hProcess);
    }
  }
  bool Started() const { return m_process.valid(); }
  DWORD Wait(DWORD timeoutMs) {
    DWORD code = 0xDEAD;
    if (WaitForSingleObject(m_process.get(), timeoutMs) != WAIT_OBJECT_0) Kill();
    GetExitCodeProcess(m_process.get(), &code);
    return code;
  }
  void Kill() {
    TerminateProcess(m_process.get(), 0xDEAD);
    WaitForSingleObject(m_process.get(), 10000);
  }

 private:
  KyGuidUtils::UniqueHandle m_process;
};

std::map<char, std::string> ExpectedGuids() {
  KyGuidTest::ProcessResult expect = RunProcess("stressprobe.exe expect");
  std::map<char, std::string> guids;
  std::istringstream lines(expect.output);
  char identity;
  std::string guid;
  while (lines >> identity >> guid) guids[identity] = guid;
  return guids;
}

// The history section of the active build holds that build, and every
// section of the ring holds a build of its own number.
void ExpectValidRecordAndRing(const std::string& path, const std::set<std::string>& allowed) {
  const std::string active = IniRead(path, "ActiveGuid", "Guid");
  const int index = atoi(IniRead(path, "ActiveGuid", "CreateIndex").c_str());
  EXPECT_TRUE(allowed.count(active) && index >= 0) << active << " " << index;
  for (int n = 0; n < 5; ++n) {
    const std::string ring = "Build" + std::to_string(n);
    const std::string guid = IniRead(path, ring.c_str(), "Guid");
    const int created = atoi(IniRead(path, ring.c_str(), "CreateIndex").c_str());
    if (n == index % 5) {
      EXPECT_TRUE(guid == active && created == index) << ring;
    }
    if (!guid.empty()) {
      EXPECT_TRUE(allowed.count(guid) && created % 5 == n) << ring << ": " << guid;
    }
  }
}

TEST_F(DllTest, ReadersSeeOnlyWrittenGuidsWhileProcessesUpdateOneAtATime) {
  const int seconds = FromEnvironment("KYGUID_STRESS_SECONDS", 4);
  const int readers = 3, updaters = 3;
  const std::map<char, std::string> expected = ExpectedGuids();
  ASSERT_EQ(2u, expected.size());
  const std::set<std::string> written = {expected.at('a'), expected.at('b')};
  const std::string journal = KyGuidTest::TempPath("kyguid-journal.txt");
  DeleteFileA(journal.c_str());

  std::vector<std::unique_ptr<Child>> children;
  std::vector<std::string> readerOutputs;
  const std::string ms = std::to_string(seconds * 1000);
  for (int i = 0; i < readers; ++i) {
    readerOutputs.push_back(KyGuidTest::TempPath("kyguid-reader" + std::to_string(i) + ".txt"));
    children.push_back(std::make_unique<Child>("read " + ms + " " + readerOutputs.back()));
  }
  for (int i = 0; i < updaters; ++i) {
    // Half start on the other identity, so consecutive updates disagree.
    children.push_back(
        std::make_unique<Child>("update " + ms + " " + journal + (i % 2 ? " ba" : " ab")));
  }
  for (auto& child : children) {
    ASSERT_TRUE(child->Started());
    EXPECT_EQ(0u, child->Wait(seconds * 1000 + 120000));
  }

  long reads = 0, invalid = 0;
  for (const std::string& output : readerOutputs) {
    std::istringstream lines(KyGuidTest::ReadWholeFile(output));
    std::string word, value;
    while (lines >> word >> value) {
      if (word == "reads") reads += atol(value.c_str());
      if (word == "invalid") invalid += atol(value.c_str());
      if (word == "guid") {
        EXPECT_EQ(1u, written.count(value)) << "a reader saw " << value;
      }
    }
    DeleteFileA(output.c_str());
  }
  EXPECT_GT(reads, 0);
  EXPECT_EQ(0, invalid);

  // The device opens of one update form one run in the journal; an update
  // that ran beside another would interleave with it.
  std::istringstream lines(KyGuidTest::ReadWholeFile(journal));
  DeleteFileA(journal.c_str());
  std::set<std::string> finished;
  std::string current, word, pid, update;
  while (lines >> word >> pid >> update) {
    const std::string id = pid + "/" + update;
    if (id == current) continue;
    EXPECT_EQ(0u, finished.count(id)) << "update " << id << " overlapped another";
    finished.insert(std::exchange(current, id));
  }
  finished.insert(current);
  finished.erase("");
  EXPECT_GT(finished.size(), 1u);

  ExpectValidRecordAndRing(GuidDbPath(), written);
  printf("concurrency: %d s, %d readers, %d updaters: %ld reads, %ld invalid, %zu updates\n",
         seconds, readers, updaters, reads, invalid, finished.size());
}

// The machine's first adapter with an address, as its MAC text.
std::string FirstMacText() {
  std::vector<char> buffer(64 * 1024);
  ULONG size = static_cast<ULONG>(buffer.size());
  auto* adapter = reinterpret_cast<IP_ADAPTER_INFO*>(buffer.data());
  if (GetAdaptersInfo(adapter, &size) != ERROR_SUCCESS) return std::string();
  while (adapter && !adapter->AddressLength) adapter = adapter->Next;
  return adapter ? KyGuidUtils::BytesToHex(adapter->Address, adapter->AddressLength) : "";
}

// Whether a whole record carrying `identity` is on disk, or no file at all:
// the record in force ends with its Version, the legacy cache with config5.
bool WholeOrAbsent(const std::string& path, const char* section, const char* key, const char* last,
                   const std::string& identity) {
  if (GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES) return true;
  return IniRead(path, section, key) == identity && !IniRead(path, section, last).empty();
}

// The parameter: whether the GUID in force came from the legacy scheme.
class KillTest : public DllTest, public ::testing::WithParamInterface<bool> {};

// An update through the DLL in a process of its own, killed at a random
// moment of its run; a third of them after Guid.db was deleted.
TEST_P(KillTest, UpdateKilledInsideItsRunNeverLosesTheIdentity) {
  const int kills = FromEnvironment("KYGUID_KILLS", 200);
  std::mt19937 random(FromEnvironment("KYGUID_KILL_SEED", 20261124));
  const std::string legacy = KyGuidTest::MachineProfileDir() + "\\GlobalMgr.db";
  if (GetParam()) {
    KyGuidTest::MakeDirs(KyGuidTest::MachineProfileDir());
    KyGuidTest::IniWrite(legacy, "Profile", "config1", "0123456789abcdef0123456789abcdef");
    KyGuidTest::IniWrite(legacy, "Profile", "config2", KyGuidUtils::Md5Hex(FirstMacText()).c_str());
  }
  ASSERT_EQ(1u, Updater()->UpdateNow());
  const std::string identity = IniRead(GuidDbPath(), "ActiveGuid", "Guid");
  EXPECT_TRUE(!GetParam() || identity == "0123456789abcdef0123456789abcdef") << identity;

  const std::string name = "kyguid-kill-" + std::to_string(GetCurrentProcessId());
  KyGuidUtils::UniqueHandle ready(CreateEventA(nullptr, FALSE, FALSE, (name + "-ready").c_str()));
  KyGuidUtils::UniqueHandle go(CreateEventA(nullptr, TRUE, FALSE, (name + "-go").c_str()));
  KyGuidUtils::UniqueHandle done(CreateEventA(nullptr, TRUE, FALSE, (name + "-done").c_str()));
  LARGE_INTEGER started, now;
  // Wine now and then leaves a new process stuck before its first line when
  // others were killed just before; such a child is no kill of an update.
  int stalled = 0;
  // Runs one victim and kills it `delay` ticks after its update began
  // (never, for a negative delay); whether it was still updating then.
  auto victim = [&](int64_t delay, int64_t* took) {
    ResetEvent(go.get());
    ResetEvent(done.get());
    Child child("dllupdate " + name);
    if (WaitForSingleObject(ready.get(), 60000) != WAIT_OBJECT_0) {
      child.Kill();
      ++stalled;
      return false;
    }
    QueryPerformanceCounter(&started);
    SetEvent(go.get());
    if (delay < 0) {
      EXPECT_EQ(0u, child.Wait(60000));
    } else {
      do QueryPerformanceCounter(&now);
      while (now.QuadPart - started.QuadPart < delay);
      child.Kill();
    }
    if (took) QueryPerformanceCounter(&now), *took = now.QuadPart - started.QuadPart;
    return WaitForSingleObject(done.get(), 0) != WAIT_OBJECT_0;
  };
  // The length of an update's run, from uncut ones, with Guid.db [1] and
  // without it [0].
  std::uniform_int_distribution<int64_t> moment[2];
  for (int kept = 0; kept < 2; ++kept) {
    std::vector<int64_t> runs(3);
    for (int64_t& run : runs) {
      if (!kept) DeleteFileA(GuidDbPath().c_str());
      victim(-1, &run);
    }
    std::sort(runs.begin(), runs.end());
    moment[kept] = std::uniform_int_distribution<int64_t>(0, runs[1]);
  }

  int landed = 0, afterDeletion = 0, tooLate = 0, invalid = 0, lost = 0, recoveries = 0;
  while (landed < kills) {
    const bool deleted = landed % 3 == 0;
    if (deleted) DeleteFileA(GuidDbPath().c_str());
    if (!victim(moment[deleted ? 0 : 1](random), nullptr)) {
      ++tooLate;  // the update had ended: not a kill inside its run
      continue;
    }
    ++landed;
    afterDeletion += deleted ? 1 : 0;
    invalid += !WholeOrAbsent(GuidDbPath(), "ActiveGuid", "Guid", "Version", identity) ||
               !WholeOrAbsent(legacy, "Profile", "config1", "config5", identity);
    if (landed % 10 != 0 && landed != kills) continue;
    ++recoveries;
    Updater()->UpdateNow();
    lost += IniRead(GuidDbPath(), "ActiveGuid", "Guid") != identity;
  }
  EXPECT_EQ(0, invalid);
  EXPECT_EQ(0, lost);
  EXPECT_LE(stalled, 3);  // a library that hangs its host at start would stall them all
  printf(
      "kills (%s): %d inside the update's run (%d after Guid.db was deleted), %d too late "
      "or never started (%d) and not counted, %d recovery updates, %d identities lost, "
      "%d invalid values\n",
      GetParam() ? "AdoptedGuid" : "HardwareGuid", landed, afterDeletion, tooLate, stalled,
      recoveries, lost, invalid);
}

INSTANTIATE_TEST_SUITE_P(Identity, KillTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                           return std::string(info.param ? "AdoptedGuid" : "HardwareGuid");
                         });

}  // namespace
