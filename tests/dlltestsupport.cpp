#include "tests/dlltestsupport.h"

#include <shlobj.h>

#include "common/win32raii.h"

namespace KyGuidTest {

std::string ExecutableDir() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::string dir = path;
  return dir.substr(0, dir.find_last_of('\\'));
}

std::string MachineProfileDir() {
  char base[MAX_PATH] = {};
  SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, base);
  return std::string(base) + "\\Corvane\\Greibraske";
}

void WipeMachineProfile() {
  const std::string dir = MachineProfileDir();
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

ProcessResult RunProcess(const std::string& commandLine, DWORD timeoutMs) {
  ProcessResult result;
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return result;
  KyGuidUtils::UniqueHandle reader(readEnd);
  KyGuidUtils::UniqueHandle writer(writeEnd);
  SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);

  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = writeEnd;
  startup.hStdError = writeEnd;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  PROCESS_INFORMATION info{};
  std::string line = "\"" + ExecutableDir() + "\\" + commandLine.substr(0, commandLine.find(' ')) +
                     "\"" + (commandLine.find(' ') == std::string::npos
                                 ? ""
                                 : commandLine.substr(commandLine.find(' ')));
  if (!CreateProcessA(nullptr, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &info)) {
    return result;
  }
  KyGuidUtils::UniqueHandle process(info.hProcess);
  KyGuidUtils::UniqueHandle thread(info.hThread);
  writer.reset();

  char buffer[4096];
  DWORD read = 0;
  while (ReadFile(reader.get(), buffer, sizeof(buffer), &read, nullptr) && read > 0) {
    result.output.append(buffer, read);
  }
  if (WaitForSingleObject(process.get(), timeoutMs) == WAIT_OBJECT_0) {
    GetExitCodeProcess(process.get(), &result.exitCode);
  }
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
