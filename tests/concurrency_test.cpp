// Several processes at once on the machine's one Guid.db: readers through the
// DLL while updaters switch between two simulated machines, and an updater
// killed at random moments. The run lengths come from the environment
// (tools/stress.sh sets them long); the defaults keep the test pass short.
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <vector>

#include "common/strutil.h"
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

std::string TempPath(const std::string& name) {
  char temp[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, temp);
  return std::string(temp) + "kyguid-" + std::to_string(GetCurrentProcessId()) + "-" + name;
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
      m_process = info.hProcess;
    }
  }
  ~Child() {
    if (m_process) CloseHandle(m_process);
  }
  bool Started() const { return m_process != nullptr; }
  DWORD Id() const { return GetProcessId(m_process); }
  DWORD Wait(DWORD timeoutMs) {
    if (WaitForSingleObject(m_process, timeoutMs) != WAIT_OBJECT_0) {
      Kill();
      return 0xDEAD;
    }
    DWORD code = 0;
    GetExitCodeProcess(m_process, &code);
    return code;
  }
  void Kill() {
    TerminateProcess(m_process, 0xDEAD);
    WaitForSingleObject(m_process, 10000);
  }

 private:
  HANDLE m_process = nullptr;
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
  EXPECT_EQ(1u, allowed.count(active)) << active;
  const int index = atoi(IniRead(path, "ActiveGuid", "CreateIndex").c_str());
  ASSERT_GE(index, 0);
  const std::string section = "Build" + std::to_string(index % 5);
  EXPECT_EQ(active, IniRead(path, section.c_str(), "Guid"));
  EXPECT_EQ(std::to_string(index), IniRead(path, section.c_str(), "CreateIndex"));
  for (int n = 0; n < 5; ++n) {
    const std::string ring = "Build" + std::to_string(n);
    const std::string guid = IniRead(path, ring.c_str(), "Guid");
    if (guid.empty()) continue;
    EXPECT_EQ(1u, allowed.count(guid)) << ring << ": " << guid;
    EXPECT_EQ(n, atoi(IniRead(path, ring.c_str(), "CreateIndex").c_str()) % 5) << ring;
  }
}

TEST_F(DllTest, ReadersSeeOnlyWrittenGuidsWhileProcessesUpdateOneAtATime) {
  const int seconds = FromEnvironment("KYGUID_STRESS_SECONDS", 4);
  const int readers = 3;
  const int updaters = 3;
  const std::map<char, std::string> expected = ExpectedGuids();
  ASSERT_EQ(2u, expected.size());
  const std::set<std::string> written = {expected.at('a'), expected.at('b')};
  const std::string journal = TempPath("journal.txt");
  DeleteFileA(journal.c_str());

  std::vector<std::unique_ptr<Child>> children;
  std::vector<std::string> readerOutputs;
  const std::string ms = std::to_string(seconds * 1000);
  for (int i = 0; i < readers; ++i) {
    readerOutputs.push_back(TempPath("reader" + std::to_string(i) + ".txt"));
    children.push_back(std::make_unique<Child>("read " + ms + " " + readerOutputs.back()));
  }
  for (int i = 0; i < updaters; ++i) {
    // Half start on the other identity, so consecutive updates disagree.
    children.push_back(std::make_unique<Child>("update " + ms + " " + journal + (i % 2 ? " ba" : " ab")));
  }
  for (auto& child : children) {
    ASSERT_TRUE(child->Started());
    EXPECT_EQ(0u, child->Wait(seconds * 1000 + 120000));
  }

  long reads = 0;
  long invalid = 0;
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
  std::string current;
  std::string word, pid, update;
  while (lines >> word >> pid >> update) {
    const std::string id = pid + "/" + update;
    if (id == current) continue;
    EXPECT_EQ(0u, finished.count(id)) << "update " << id << " overlapped another";
    if (!current.empty()) finished.insert(current);
    current = id;
  }
  if (!current.empty()) finished.insert(current);
  EXPECT_GT(finished.size(), 1u);

  ExpectValidRecordAndRing(GuidDbPath(), written);
  printf("concurrency: %d s, %d readers, %d updaters: %ld reads, %ld invalid, %zu updates\n",
         seconds, readers, updaters, reads, invalid, finished.size());
}

TEST_F(DllTest, UpdaterKilledAtRandomMomentsNeverCostsTheGuid) {
  const int kills = FromEnvironment("KYGUID_KILLS", 4);
  const std::map<char, std::string> expected = ExpectedGuids();
  ASSERT_EQ(2u, expected.size());
  // The victim switches identities, so that nearly every update writes; the
  // machine that follows each kill is identity "a".
  const std::string guid = expected.at('a');
  const std::string journal = TempPath("kill-journal.txt");
  std::mt19937 random(FromEnvironment("KYGUID_KILL_SEED", 20261122));
  // Process start-up under Wine takes a few hundred milliseconds, so the
  // kills land anywhere from before the first update to deep in the loop.
  std::uniform_int_distribution<int> delay(200, 1500);
  int lost = 0;
  int survived = 0;
  int insideLoop = 0;
  {
    Child first("update 1 " + journal + " a");
    ASSERT_EQ(0u, first.Wait(120000));
  }
  for (int kill = 0; kill < kills; ++kill) {
    SCOPED_TRACE("kill " + std::to_string(kill));
    Child victim("update 600000 " + journal + " ab");
    ASSERT_TRUE(victim.Started());
    Sleep(delay(random));
    victim.Kill();
    // Whether the kill came after the victim's first update had begun.
    const std::string mark = "in " + std::to_string(victim.Id()) + " ";
    if (KyGuidTest::ReadWholeFile(journal).find(mark) != std::string::npos) ++insideLoop;

    KyGuidTest::ProcessResult read = RunProcess("kyguid.exe read");
    const std::string text = read.output.substr(0, read.output.find_first_of("\r\n"));
    if (read.exitCode == 0) {
      EXPECT_TRUE(text == expected.at('a') || text == expected.at('b')) << text;
    } else {
      EXPECT_EQ(1u, read.exitCode) << read.output;
    }

    Child restore("update 1 " + journal + " a");
    ASSERT_EQ(0u, restore.Wait(120000));
    const std::string after = IniRead(GuidDbPath(), "ActiveGuid", "Guid");
    if (after == guid) {
      ++survived;
    } else {
      ++lost;
      ADD_FAILURE() << "after kill " << kill << " the update wrote " << after;
    }
  }
  DeleteFileA(journal.c_str());
  printf("kills: %d survived (%d inside the update loop), %d GUIDs lost\n", survived, insideLoop,
         lost);
}

}  // namespace
