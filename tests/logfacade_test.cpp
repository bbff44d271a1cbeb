// The log facade in processes of its own (see logprobe.cpp), and its fault
// gate in-process with a chosen clock.
#include <ctime>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "common/registrylocation.h"
#include "common/faultgate.h"
#include "common/logfacade.h"
#include "common/win32raii.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::ReadWholeFile;
using KyGuidTest::TempDir;
using KyGuidTest::WriteWholeFile;
using KyGuidUtils::UniqueFile;
using KyGuidUtils::UniqueHandle;
using KyLog::FaultGate;

constexpr DWORD kAccessViolation = 0xC0000005;
constexpr int64_t kTwelveHours = 43200;

std::wstring Widen(const std::string& text) { return std::wstring(text.begin(), text.end()); }

std::string TestsDir() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::string dir = path;
  return dir.substr(0, dir.rfind('\\'));
}

int64_t ReadStoredTime(const std::string& path) {
  std::string content = ReadWholeFile(path);
  int64_t value = -1;
  if (content.size() >= sizeof(value)) memcpy(&value, content.data(), sizeof(value));
  return value;
}

void WriteStoredTime(const std::string& path, int64_t value) {
  WriteWholeFile(path, std::string(reinterpret_cast<const char*>(&value), sizeof(value)));
}

// The inherited environment without the log module's settings, plus `set`.
std::wstring ChildEnvironment(const std::vector<std::wstring>& set) {
  std::wstring block;
  wchar_t* inherited = GetEnvironmentStringsW();
  for (const wchar_t* entry = inherited; *entry; entry += wcslen(entry) + 1) {
    if (_wcsnicmp(entry, L"KYLOGEX_", 8) == 0) continue;
    block.append(entry).push_back(L'\0');
  }
  FreeEnvironmentStringsW(inherited);
  for (const std::wstring& entry : set) block.append(entry).push_back(L'\0');
  block.push_back(L'\0');
  return block;
}

struct ProbeRun {
  DWORD exitCode = 0;
  std::string output;
};

// A folder holding a copy of the probe, and the log module when asked:
// the facade looks for the module, and keeps LastException.dat, beside the
// executable.
class ProbeFolder {
 public:
  explicit ProbeFolder(bool withModule) {
    CopyFileA((TestsDir() + "\\logprobe.exe").c_str(), Path("logprobe.exe").c_str(), FALSE);
    if (withModule) {
      CopyFileA((TestsDir() + "\\KyLogEx64.dll").c_str(), Path("KyLogEx64.dll").c_str(), FALSE);
    }
  }

  std::string Path(const char* name) const { return m_temp.Path() + "\\" + name; }
  std::string GatePath() const { return Path("LastException.dat"); }

  ProbeRun Run(const char* mode, const char* level = "6", const char* fault = "") const {
    ProbeRun run;
    std::wstring environment = ChildEnvironment({
        L"KYLOGEX_FILE=" + Widen(Path("log.txt")),
        L"KYLOGEX_LEVEL=" + Widen(level),
        L"KYLOGEX_FAULT=" + Widen(fault),
    });
    SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
    UniqueFile output(CreateFileA(Path("output.txt").c_str(), GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_TRUE(output.valid());
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.get();
    startup.hStdError = output.get();
    std::wstring command = L"\"" + Widen(Path("logprobe.exe")) + L"\" " + Widen(mode);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, &command[0], nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT,
                        &environment[0], m_temp.WidePath().c_str(), &startup, &process)) {
      ADD_FAILURE() << "cannot start the probe: " << GetLastError();
      return run;
    }
    UniqueHandle processHandle(process.hProcess);
    UniqueHandle threadHandle(process.hThread);
    output.reset();
    if (WaitForSingleObject(process.hProcess, 60000) != WAIT_OBJECT_0) {
      TerminateProcess(process.hProcess, 1);
      ADD_FAILURE() << "the probe hung in mode " << mode;
    }
    GetExitCodeProcess(process.hProcess, &run.exitCode);
    run.output = ReadWholeFile(Path("output.txt"));
    // The probe prints one line in text mode.
    while (!run.output.empty() && (run.output.back() == '\n' || run.output.back() == '\r')) {
      run.output.pop_back();
    }
    return run;
  }

  // The module's lines without their timestamps.
  std::vector<std::string> LogLines() const {
    std::vector<std::string> lines;
    std::string content = ReadWholeFile(Path("log.txt"));
    size_t start = 0;
    for (size_t end; (end = content.find("\r\n", start)) != std::string::npos; start = end + 2) {
      constexpr size_t kStamp = sizeof("2026-01-01 00:00:00.000 ") - 1;
      lines.push_back(content.substr(start + kStamp, end - start - kStamp));
    }
    return lines;
  }

 private:
  TempDir m_temp;
};

std::vector<std::string> LevelsOf(const std::vector<std::string>& lines) {
  std::vector<std::string> levels;
  for (const std::string& line : lines) levels.push_back(line.substr(0, line.find(' ')));
  return levels;
}

// --- The facade in a host process ----------------------------------------

TEST(LogFacadeTest, WithoutTheModuleNothingIsEnabledAndNothingIsWritten) {
  ProbeFolder folder(false);
  ProbeRun run = folder.Run("enabled");
  EXPECT_EQ(0u, run.exitCode);
  EXPECT_EQ("enabled=0000000 narrow=0 wide=0 faulted=0", run.output);
  run = folder.Run("lines");
  EXPECT_EQ(0u, run.exitCode);
  EXPECT_EQ("", run.output);
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(folder.Path("log.txt").c_str()));
}

TEST(LogFacadeTest, RecordsReachTheModuleFieldForField) {
  ProbeFolder folder(true);
  ProbeRun run = folder.Run("lines");
  EXPECT_EQ(0u, run.exitCode) << run.output;
  const std::string site = "ftcommon\\kyguid\\tests\\logprobe:";
  std::vector<std::string> expected = {
      "INFO [logprobe.exe] KyProbe::CProbe::Narrow (" + site + "10) err=0: narrow text 42",
      "WARN [logprobe.exe] KyProbe::CProbe::Wide (" + site + "20) err=0: wide text 7",
      "ERROR [logprobe.exe] KyProbe::CProbe::Error (" + site + "30) err=5: open x.db failed",
      // Code-page-936 bytes, in the format and in an argument, untouched.
      "FATAL [logprobe.exe] KyProbe::CProbe::Bytes (" + site + "40) err=0: bytes \xA3\xBA\xA3\xBA|",
      "DEBUG [logprobe.exe] KyProbe::CProbe::Debug (" + site + "50) err=0: debug 6",
      "TRACE [logprobe.exe] KyProbe::Trace (" + site + "60) err=0: trace narrow",
      "TRACE [logprobe.exe] KyProbe::TraceWide (" + site + "61) err=0: trace wide",
  };
  EXPECT_EQ(expected, folder.LogLines());
}

TEST(LogFacadeTest, ModuleThresholdDecidesWhatCallSitesWrite) {
  ProbeFolder folder(true);
  EXPECT_EQ("enabled=0111000 narrow=1 wide=1 faulted=0", folder.Run("enabled", "3").output);
  // The two direct writes bypass the question, as the facade leaves the
  // asking to its callers.
  EXPECT_EQ((std::vector<std::string>{"FATAL", "FATAL"}), LevelsOf(folder.LogLines()));

  DeleteFileA(folder.Path("log.txt").c_str());
  EXPECT_EQ(0u, folder.Run("lines", "3").exitCode);
  EXPECT_EQ((std::vector<std::string>{"WARN", "ERROR", "FATAL"}), LevelsOf(folder.LogLines()));
}

TEST(LogFacadeTest, CallersLastErrorSurvivesCreationAndLaterCalls) {
  // Loading fails without the module and the module opens files with it:
  // both leave their own error values behind.
  for (bool withModule : {false, true}) {
    ProbeFolder folder(withModule);
    ProbeRun run = folder.Run("lasterror");
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("first=1234 later=4321 enabled=555", run.output) << "module: " << withModule;
  }
}

// --- Faults inside the module, one test per faulting call -----------------

class LogFacadeFaultTest : public ::testing::TestWithParam<const char*> {
 protected:
  ProbeRun RunFault() const { return m_folder.Run("fault", "6", GetParam()); }
  void ExpectContained(const ProbeRun& run) const {
    EXPECT_EQ(0u, run.exitCode);
    EXPECT_EQ("enabled=0000000 narrow=0 wide=0 faulted=1", run.output);
    EXPECT_TRUE(m_folder.LogLines().empty());
  }
  void ExpectPassedOnAndRecorded() const {
    int64_t before = _time64(nullptr);
    ProbeRun run = RunFault();
    int64_t after = _time64(nullptr);
    EXPECT_EQ(kAccessViolation, run.exitCode) << run.output;
    int64_t stored = ReadStoredTime(m_folder.GatePath());
    EXPECT_LE(before, stored);
    EXPECT_GE(after, stored);
  }

  ProbeFolder m_folder{true};
};

TEST_P(LogFacadeFaultTest, FirstFaultIsPassedOnAndTheNextWithinTwelveHoursContained) {
  ExpectPassedOnAndRecorded();
  int64_t stored = ReadStoredTime(m_folder.GatePath());
  ExpectContained(RunFault());
  EXPECT_EQ(stored, ReadStoredTime(m_folder.GatePath()));
}

TEST_P(LogFacadeFaultTest, RecordedFaultOlderThanTwelveHoursLetsOneThroughAgain) {
  int64_t now = _time64(nullptr);
  WriteStoredTime(m_folder.GatePath(), now - kTwelveHours + 600);
  ExpectContained(RunFault());
  WriteStoredTime(m_folder.GatePath(), now - kTwelveHours - 600);
  ExpectPassedOnAndRecorded();
}

INSTANTIATE_TEST_SUITE_P(EachCall, LogFacadeFaultTest, ::testing::Values("init", "enabled", "write"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return std::string(info.param);
                         });

// --- The gate itself ------------------------------------------------------

class FaultGateTest : public ::testing::Test {
 protected:
  std::wstring Dir() const { return m_temp.WidePath(); }
  std::string GatePath() const { return m_temp.Path() + "\\LastException.dat"; }
  TempDir m_temp;
};

constexpr int64_t kNow = 1790000000;

TEST_F(FaultGateTest, AllowsOncePerTwelveHoursAndRecordsWhenItAllows) {
  EXPECT_TRUE(FaultGate::Allow(Dir().c_str(), kNow));
  EXPECT_EQ(8u, ReadWholeFile(GatePath()).size());
  EXPECT_EQ(kNow, ReadStoredTime(GatePath()));

  std::wstring withSlash = Dir() + L"\\";
  EXPECT_FALSE(FaultGate::Allow(withSlash.c_str(), kNow + kTwelveHours - 1));
  EXPECT_EQ(kNow, ReadStoredTime(GatePath()));
  EXPECT_TRUE(FaultGate::Allow(withSlash.c_str(), kNow + kTwelveHours));
  EXPECT_EQ(kNow + kTwelveHours, ReadStoredTime(GatePath()));
}

TEST_F(FaultGateTest, ShortFileCountsAsNoFaultYet) {
  WriteWholeFile(GatePath(), "\x01\x02\x03\x04");
  EXPECT_TRUE(FaultGate::Allow(Dir().c_str(), kNow));
  EXPECT_EQ(kNow, ReadStoredTime(GatePath()));
}

TEST_F(FaultGateTest, RefusesWhenTheFileCannotBeUsed) {
  EXPECT_FALSE(FaultGate::Allow((Dir() + L"\\missing").c_str(), kNow));

  // Another process deciding on a fault at the same moment holds it open.
  UniqueFile held(CreateFileA(GatePath().c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                              nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(held.valid());
  EXPECT_FALSE(FaultGate::Allow(Dir().c_str(), kNow));
}

TEST_F(FaultGateTest, GivesUpWhenThePathWouldNotFit) {
  // 241 characters leave room for "\LastException.dat" and the terminator.
  for (size_t length : {241u, 242u}) {
    std::string dir = m_temp.Path() + "\\";
    dir.append(length - dir.size(), 'd');
    ASSERT_TRUE(CreateDirectoryA(dir.c_str(), nullptr)) << GetLastError();
    EXPECT_EQ(length == 241, FaultGate::Allow(Widen(dir).c_str(), kNow)) << length;
  }
}

TEST_F(FaultGateTest, WithoutADirectoryTheFileIsBesideTheExecutable) {
  wchar_t path[MAX_PATH];
  ASSERT_TRUE(FaultGate::FilePath(L"", path));
  EXPECT_EQ(Widen(TestsDir() + "\\LastException.dat"), path);
}

TEST(DebuggerFaultCounterTest, FirstSixFaultsGoToTheDebugger) {
  KyLog::DebuggerFaultCounter counter;
  for (int fault = 1; fault <= 6; ++fault) EXPECT_FALSE(counter.Handle()) << fault;
  EXPECT_TRUE(counter.Handle());
  EXPECT_TRUE(counter.Handle());
}

}  // namespace

namespace {

// The install-directory lookup splits "ROOT\key\value" itself. It is tried
// on a machine key of this process only: other tests' processes look up the
// suite's own key, which this test leaves alone.
TEST(RegistryLocationTest, SplitsRootKeyAndValueAndReadsTheDirectory) {
  const std::string key = "SOFTWARE\\KyGuidTests\\" + std::to_string(GetCurrentProcessId());
  const wchar_t dir[] = L"C:\\Program Files\\Suite";
  for (HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
    HKEY created = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExA(root, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                                             nullptr, &created, nullptr));
    RegSetValueExW(created, L"InstallDir", 0, REG_SZ, reinterpret_cast<const BYTE*>(dir),
                   sizeof(dir));
    RegCloseKey(created);
  }

  const std::wstring wideKey(key.begin(), key.end());
  wchar_t out[MAX_PATH] = {};
  EXPECT_TRUE(KyGuidUtils::ReadRegistryLocation(
      (L"HKEY_LOCAL_MACHINE\\" + wideKey + L"\\InstallDir").c_str(), out));
  EXPECT_STREQ(dir, out);
  EXPECT_FALSE(KyGuidUtils::ReadRegistryLocation(
      (L"HKEY_LOCAL_MACHINE\\" + wideKey + L"\\Missing").c_str(), out));
  EXPECT_FALSE(KyGuidUtils::ReadRegistryLocation(
      (L"HKEY_USERS\\" + wideKey + L"\\InstallDir").c_str(), out));
  // A current-user location keeps the backslash after the root name in its
  // key path, which the registry refuses.
  EXPECT_FALSE(KyGuidUtils::ReadRegistryLocation(
      (L"HKEY_CURRENT_USER\\" + wideKey + L"\\InstallDir").c_str(), out));
  RegDeleteKeyA(HKEY_LOCAL_MACHINE, key.c_str());
  RegDeleteKeyA(HKEY_CURRENT_USER, key.c_str());
}

}  // namespace
