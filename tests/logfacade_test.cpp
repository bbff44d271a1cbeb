// The log facade in processes of its own (see logprobe.cpp), its fault gate
// in-process with a chosen clock.
#include <ctime>

#include "common/faultgate.h"
#include "tests/dlltestsupport.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::ProcessResult;
using KyLog::FaultGate;

constexpr DWORD kAccessViolation = 0xC0000005;
constexpr int64_t kTwelveHours = 43200;
constexpr int64_t kNow = 1790000000;

int64_t StoredTime(const std::string& path) {
  const std::string content = KyGuidTest::ReadWholeFile(path);
  int64_t value = -1;
  if (content.size() == sizeof(value)) memcpy(&value, content.data(), sizeof(value));
  return value;
}

// A copy of the probe in a folder of its own, with the log module beside it
// when asked: the facade looks for the module, and keeps LastException.dat,
// beside the executable.
class Probe {
 public:
  explicit Probe(bool withModule) {
    for (const char* name : {"logprobe.exe", withModule ? "KyLogEx64.dll" : nullptr}) {
      if (name)
        CopyFileA((KyGuidTest::ExecutableDir() + "\\" + name).c_str(), Path(name).c_str(), FALSE);
    }
  }
  std::string Path(const char* name) const { return m_temp.Path() + "\\" + name; }
  ProcessResult Run(const char* mode, const char* level = "6", const char* fault = "") const {
    SetEnvironmentVariableA("KYLOGEX_FILE", Path("log.txt").c_str());
    SetEnvironmentVariableA("KYLOGEX_LEVEL", level);
    SetEnvironmentVariableA("KYLOGEX_FAULT", fault);
    ProcessResult result = KyGuidTest::RunProcess(Path("logprobe.exe") + " " + mode);
    SetEnvironmentVariableA("KYLOGEX_FAULT", nullptr);
    return result;
  }
  // The module's lines without their time stamps.
  std::vector<std::string> LogLines() const {
    std::vector<std::string> lines = KyGuidTest::ReadLines(Path("log.txt"));
    for (std::string& line : lines) line.erase(0, sizeof("2026-01-01 00:00:00.000 ") - 1);
    return lines;
  }

 private:
  KyGuidTest::TempDir m_temp;
};

// The module reads each field of the 80-byte record at its pinned offset.
// Loading fails without the module and the module opens files with it: both
// leave error values behind, which the caller must not see.
TEST(LogFacadeTest, RecordsReachTheModuleFieldForFieldAndTheLastErrorSurvives) {
  Probe none(false);
  EXPECT_EQ("enabled=0000000 narrow=0 wide=0 faulted=0\r\n", none.Run("enabled").output);
  EXPECT_EQ("first=1234 later=4321 enabled=555\r\n", none.Run("lasterror").output);
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(none.Path("log.txt").c_str()));
  Probe probe(true);
  EXPECT_EQ(0u, probe.Run("lines").exitCode);
  const std::string site = "ftcommon\\kyguid\\tests\\logprobe:";
  const std::vector<std::string> expected = {
      "INFO [logprobe.exe] KyProbe::CProbe::Narrow (" + site + "10) err=0: narrow text 42",
      "WARN [logprobe.exe] KyProbe::CProbe::Wide (" + site + "20) err=0: wide text 7",
      "ERROR [logprobe.exe] KyProbe::CProbe::Error (" + site + "30) err=5: open x.db failed",
      // Code-page-936 bytes, in the format and in an argument, untouched.
      "FATAL [logprobe.exe] KyProbe::CProbe::Bytes (" + site + "40) err=0: bytes \xA3\xBA\xA3\xBA|",
      "DEBUG [logprobe.exe] KyProbe::CProbe::Debug (" + site + "50) err=0: debug 6",
      "TRACE [logprobe.exe] KyProbe::Trace (" + site + "60) err=0: trace narrow",
      "TRACE [logprobe.exe] KyProbe::TraceWide (" + site + "61) err=0: trace wide",
  };
  EXPECT_EQ(expected, probe.LogLines());
  EXPECT_EQ("first=1234 later=4321 enabled=555\r\n", probe.Run("lasterror").output);
}

class LogFacadeFaultTest : public ::testing::TestWithParam<const char*> {};

TEST_P(LogFacadeFaultTest, OneFaultPerTwelveHoursIsPassedOnAndRecordedTheRestContained) {
  Probe probe(true);
  const std::string gate = probe.Path("LastException.dat");
  const int64_t before = _time64(nullptr);
  ProcessResult run = probe.Run("fault", "6", GetParam());
  EXPECT_EQ(kAccessViolation, run.exitCode) << run.output;
  const int64_t stored = StoredTime(gate);
  EXPECT_TRUE(before <= stored && stored <= _time64(nullptr)) << stored;

  run = probe.Run("fault", "6", GetParam());
  EXPECT_EQ(0u, run.exitCode);
  EXPECT_EQ("enabled=0000000 narrow=0 wide=0 faulted=1\r\n", run.output);
  EXPECT_EQ(stored, StoredTime(gate));
  EXPECT_TRUE(probe.LogLines().empty());  // twelve hours later: FaultGateTest
}

INSTANTIATE_TEST_SUITE_P(EachCall, LogFacadeFaultTest,
                         ::testing::Values("init", "enabled", "write"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return std::string(info.param);
                         });

TEST(FaultGateTest, AllowsOncePerTwelveHoursAndRecordsWhenItAllows) {
  KyGuidTest::TempDir dir;
  const std::string gate = dir.Path() + "\\LastException.dat";
  // No file to keep the time in, or one that another writer holds: refused.
  EXPECT_FALSE(FaultGate::Allow((dir.WidePath() + L"\\missing").c_str(), kNow));
  HANDLE held = CreateFileA(gate.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  EXPECT_FALSE(FaultGate::Allow(dir.WidePath().c_str(), kNow));
  CloseHandle(held);
  KyGuidTest::WriteWholeFile(gate, std::string(7, '\x7F'));  // too short: no fault yet
  EXPECT_TRUE(FaultGate::Allow(dir.WidePath().c_str(), kNow));
  EXPECT_EQ(kNow, StoredTime(gate));
  const std::wstring withSlash = dir.WidePath() + L"\\";
  EXPECT_FALSE(FaultGate::Allow(withSlash.c_str(), kNow + kTwelveHours - 1));
  EXPECT_EQ(kNow, StoredTime(gate));
  EXPECT_TRUE(FaultGate::Allow(withSlash.c_str(), kNow + kTwelveHours));
  EXPECT_EQ(kNow + kTwelveHours, StoredTime(gate));
  KyLog::DebuggerFaultCounter counter;  // with a debugger: the first six go to it
  for (int fault = 1; fault <= 8; ++fault) EXPECT_EQ(fault > 6, counter.Handle()) << fault;
}

}  // namespace
