#include "tests/dlltestsupport.h"

#include <shlobj.h>

#include "common/win32raii.h"
#include "tests/testsupport.h"

namespace KyGuidTest {

std::string ExecutableDir() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::string dir = path;
  return dir.substr(0, dir.find_last_of('\\'));
}

namespace {

std::string ShellFolder(int csidl) {
  char base[MAX_PATH] = {};
  SHGetFolderPathA(nullptr, csidl, nullptr, 0, base);
  return base;
}

// The files directly in `dir`; subfolders and the folder itself stay.
void WipeFiles(const std::string& dir) {
  WIN32_FIND_DATAA data;
  HANDLE find = FindFirstFileA((dir + "\\*").c_str(), &data);
  if (find == INVALID_HANDLE_VALUE) return;
  do {
    std::string child = dir + "\\" + data.cFileName;
    if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
      SetFileAttributesA(child.c_str(), FILE_ATTRIBUTE_NORMAL);
      DeleteFileA(child.c_str());
    }
  } while (FindNextFileA(find, &data));
  FindClose(find);
}

}  // namespace

std::string MachineProfileDir() { return ShellFolder(CSIDL_COMMON_APPDATA) + "\\Corvane\\Greibraske"; }
std::string UserProfileDir() { return ShellFolder(CSIDL_APPDATA) + "\\Corvane\\Greibraske"; }
std::string CommonIdDir() { return ShellFolder(CSIDL_COMMON_APPDATA) + "\\Corvane\\Desktop"; }

void WipeMachineProfile() {
  // Every place the library writes, the legacy id and caches included.
  WipeFiles(MachineProfileDir());
  WipeFiles(UserProfileDir());
  WipeFiles(CommonIdDir());
}

ProcessResult RunProcess(const std::string& commandLine, DWORD timeoutMs) {
  ProcessResult result;
  // Output goes to a file, not a pipe, so that a child that hangs can be
  // ended after the timeout instead of blocking a read.
  char temp[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, temp);
  static int counter = 0;
  const std::string outputPath = std::string(temp) + "kyguid-child-" +
                                 std::to_string(GetCurrentProcessId()) + "-" +
                                 std::to_string(counter++) + ".txt";
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  KyGuidUtils::UniqueFile output(CreateFileA(outputPath.c_str(), GENERIC_WRITE,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                                             CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY, nullptr));
  if (!output) return result;

  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output.get();
  startup.hStdError = output.get();
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  PROCESS_INFORMATION info{};
  const size_t space = commandLine.find(' ');
  std::string line = "\"" + ExecutableDir() + "\\" + commandLine.substr(0, space) + "\"" +
                     (space == std::string::npos ? "" : commandLine.substr(space));
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
  char temp[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, temp);
  m_logPath = std::string(temp) + "kyguid-dlltest-" + std::to_string(GetCurrentProcessId()) + ".log";
  DeleteFileA(m_logPath.c_str());
  SetEnvironmentVariableA("KYLOGEX_FILE", m_logPath.c_str());
  SetEnvironmentVariableA("KYLOGEX_LEVEL", "6");
  m_reportPath = std::string(temp) + "kyguid-dlltest-" + std::to_string(GetCurrentProcessId()) +
                 ".jsonl";
  DeleteFileA(m_reportPath.c_str());
  SetEnvironmentVariableA("KYREPORT_FILE", m_reportPath.c_str());
  m_library = LoadLibraryA((ExecutableDir() + "\\KyGuid64.dll").c_str());
  ASSERT_NE(nullptr, m_library);
  m_getReader = KyGuidUtils::GetProcAs<GetGuidReaderFn>(m_library, "GetGuidReader");
  m_getUpdater = KyGuidUtils::GetProcAs<GetGuidUpdaterFn>(m_library, "GetGuidUpdater");
  ASSERT_NE(nullptr, m_getReader);
  ASSERT_NE(nullptr, m_getUpdater);
}

void DllTest::TearDown() {
  WipeMachineProfile();
  DeleteFileA(m_logPath.c_str());
  DeleteFileA(m_reportPath.c_str());
}

int DllTest::CountLog(const std::string& text) const {
  HANDLE file = CreateFileA(m_logPath.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 0;
  std::string content;
  char buffer[65536];
  DWORD read = 0;
  while (ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0) content.append(buffer, read);
  CloseHandle(file);
  int count = 0;
  for (size_t at = content.find(text); at != std::string::npos; at = content.find(text, at + 1)) {
    ++count;
  }
  return count;
}

}  // namespace KyGuidTest
