#include "tests/dlltestsupport.h"

#include <shlobj.h>

#include "common/win32raii.h"
#include "tests/testsupport.h"

namespace KyGuidTest {
namespace {

std::string ShellFolder(int csidl) {
  char base[MAX_PATH] = {};
  SHGetFolderPathA(nullptr, csidl, nullptr, 0, base);
  return base;
}

}  // namespace

std::string TempPath(const std::string& name) {
  char temp[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, temp);
  return temp + name;
}

std::string ExecutableDir() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  return std::string(path, strrchr(path, '\\'));
}

std::string MachineProfileDir() {
  return ShellFolder(CSIDL_COMMON_APPDATA) + "\\Corvane\\Greibraske";
}
std::string UserProfileDir() { return ShellFolder(CSIDL_APPDATA) + "\\Corvane\\Greibraske"; }

// Whether a level of `path` is a link: a test that planted one must never
// have its cleaning follow it.
bool ThroughALink(std::string path) {
  for (; path.size() > 3; path.erase(path.rfind('\\'))) {
    if (IsLink(path)) return true;
  }
  return false;
}

// The files directly in each place the library writes; subfolders and the
// folders themselves stay.
void WipeMachineProfile() {
  // C:\ProgramData\Corvane\Desktop holds the legacy Global.db.
  const std::string legacyIdDir = ShellFolder(CSIDL_COMMON_APPDATA) + "\\Corvane\\Desktop";
  for (const std::string& dir : {MachineProfileDir(), UserProfileDir(), legacyIdDir}) {
    if (ThroughALink(dir)) continue;
    ForEachIn(dir, [&](const std::string& name, DWORD attributes) {
      if (attributes & FILE_ATTRIBUTE_DIRECTORY) return;
      SetFileAttributesA((dir + "\\" + name).c_str(), FILE_ATTRIBUTE_NORMAL);
      DeleteFileA((dir + "\\" + name).c_str());
    });
  }
}

ProcessResult RunProcess(const std::string& commandLine, DWORD timeoutMs) {
  ProcessResult result;
  // Output goes to a file, not a pipe, so that a child that hangs can be
  // ended after the timeout instead of blocking a read.
  static int counter = 0;
  const std::string outputPath = TempPath("kyguid-child-" + std::to_string(GetCurrentProcessId()) +
                                          "-" + std::to_string(counter++) + ".txt");
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  KyGuidUtils::UniqueFile output(CreateFileA(outputPath.c_str(), GENERIC_WRITE,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                                             CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY, nullptr));
  if (!output) return result;
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = startup.hStdError = output.get();
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  const size_t space = commandLine.find(' ');
  const std::string program = commandLine.substr(0, space);
  std::string line = "\"" + (program.find(':') == std::string::npos ? ExecutableDir() + "\\" : "") +
                     program + "\"" + (space == std::string::npos ? "" : commandLine.substr(space));
  PROCESS_INFORMATION info{};
  if (!CreateProcessA(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &info)) {
    return result;
  }
  KyGuidUtils::UniqueHandle process(info.hProcess);
  KyGuidUtils::UniqueHandle thread(info.hThread);
  output.reset();
  if (WaitForSingleObject(process.get(), timeoutMs) == WAIT_OBJECT_0) {
    GetExitCodeProcess(process.get(), &result.exitCode);
  } else {
    TerminateProcess(process.get(), 0xDEAD);
    WaitForSingleObject(process.get(), 5000);
    result.output = "(the child did not end within the timeout)\n";
  }
  result.output += ReadWholeFile(outputPath);
  DeleteFileA(outputPath.c_str());
  return result;
}

void DllTest::SetUp() {
  WipeMachineProfile();
  const std::string base = TempPath("kyguid-dlltest-" + std::to_string(GetCurrentProcessId()));
  m_logPath = base + ".log";
  m_reportPath = base + ".jsonl";
  DeleteFileA(m_logPath.c_str());
  DeleteFileA(m_reportPath.c_str());
  SetEnvironmentVariableA("KYLOGEX_FILE", m_logPath.c_str());
  SetEnvironmentVariableA("KYLOGEX_LEVEL", "6");
  SetEnvironmentVariableA("KYREPORT_FILE", m_reportPath.c_str());
  m_library = LoadLibraryA((ExecutableDir() + "\\KyGuid64.dll").c_str());
  m_getReader = KyGuidUtils::GetProcAs<GetGuidReaderFn>(m_library, "GetGuidReader");
  m_getUpdater = KyGuidUtils::GetProcAs<GetGuidUpdaterFn>(m_library, "GetGuidUpdater");
  ASSERT_TRUE(m_library && m_getReader && m_getUpdater);
}

void DllTest::TearDown() {
  WipeMachineProfile();
  DeleteFileA(m_logPath.c_str());
  DeleteFileA(m_reportPath.c_str());
}

int DllTest::CountLog(const std::string& text) const {
  const std::string content = ReadWholeFile(m_logPath);
  int count = 0;
  for (size_t at = content.find(text); at != std::string::npos; at = content.find(text, at + 1)) {
    ++count;
  }
  return count;
}

}  // namespace KyGuidTest
