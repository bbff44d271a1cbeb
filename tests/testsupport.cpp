#include "tests/testsupport.h"

#include <shlobj.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>

#include "common/win32raii.h"
#include "kyguidlib/guidpaths.h"

namespace KyGuidTest {

bool IsLink(const std::string& path) {
  const DWORD attributes = GetFileAttributesA(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

namespace {

// Runs `ln` or `rm` of the host on the host's paths of `paths` under Wine,
// whose CreateSymbolicLinkW makes no link, and waits until `done`: Wine
// gives no handle to wait on for a program of the host. False without Wine.
bool OnTheHost(const std::string& command, const std::vector<std::string>& paths,
               const std::function<bool()>& done) {
  using ToUnix = char*(CDECL*)(LPCWSTR);
  auto toUnix = reinterpret_cast<ToUnix>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name")));
  if (!toUnix) return false;
  std::string line = "Z:\\bin\\" + command;
  for (const std::string& path : paths) {
    char* host = toUnix(std::wstring(path.begin(), path.end()).c_str());
    line += " " + std::string(host ? host : "");
    HeapFree(GetProcessHeap(), 0, host);
  }
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION info{};
  if (!CreateProcessA(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &info)) {
    return false;
  }
  for (HANDLE handle : {info.hProcess, info.hThread}) {
    if (handle) CloseHandle(handle);
  }
  for (int attempt = 0; attempt < 500 && !done(); ++attempt) Sleep(10);
  return done();
}

}  // namespace

bool MakeLink(const std::string& link, const std::string& target) {
  const bool folder = GetFileAttributesA(target.c_str()) & FILE_ATTRIBUTE_DIRECTORY;
  if (CreateSymbolicLinkA(link.c_str(), target.c_str(),
                          folder ? SYMBOLIC_LINK_FLAG_DIRECTORY : 0) &&
      IsLink(link)) {
    return true;
  }
  return OnTheHost("ln -sfn", {target, link},
                   [&] { return GetFileAttributesA(link.c_str()) != INVALID_FILE_ATTRIBUTES; });
}

void RemoveLink(const std::string& link) {
  const DWORD attributes = GetFileAttributesA(link.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return;
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) && !IsLink(link)) return;  // a folder of its own
  auto gone = [&] { return GetFileAttributesA(link.c_str()) == INVALID_FILE_ATTRIBUTES; };
  if (!OnTheHost("rm -f", {link}, gone) && !RemoveDirectoryA(link.c_str())) {
    DeleteFileA(link.c_str());
  }
}

void ForEachIn(const std::string& folder,
               const std::function<void(const std::string&, DWORD)>& visit) {
  WIN32_FIND_DATAA data;
  HANDLE find = FindFirstFileA((folder + "\\*").c_str(), &data);
  for (bool more = find != INVALID_HANDLE_VALUE; more; more = FindNextFileA(find, &data)) {
    const std::string name = data.cFileName;
    if (name != "." && name != "..") visit(name, data.dwFileAttributes);
  }
  if (find != INVALID_HANDLE_VALUE) FindClose(find);
}

void RemoveTree(const std::string& path) {
  // A link is removed itself: what it points to is none of the test's.
  if (IsLink(path)) return RemoveLink(path);
  ForEachIn(path, [&](const std::string& name, DWORD attributes) {
    const std::string child = path + "\\" + name;
    SetFileAttributesA(child.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) {
      return RemoveTree(child);
    }
    DeleteFileA(child.c_str());
  });
  RemoveDirectoryA(path.c_str());
}

TempDir::TempDir() {
  static std::atomic<int> counter{0};
  char base[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, base);
  char name[MAX_PATH];
  snprintf(name, sizeof(name), "%skyguid-test-%lu-%d-%lu", base, GetCurrentProcessId(), counter++,
           GetTickCount());
  m_path = name;
  MakeDirs(m_path);
}

TempDir::~TempDir() { RemoveTree(m_path); }

bool TestFolders::GetFolder(int csidl, std::wstring& path) {
  csidl &= ~CSIDL_FLAG_CREATE;
  if (m_fail || (csidl != CSIDL_COMMON_APPDATA && csidl != CSIDL_APPDATA)) return false;
  const std::string folder = csidl == CSIDL_APPDATA ? UserAppData() : CommonAppData();
  MakeDirs(folder);
  path = KyGuid::AnsiToWide(folder);
  return true;
}

void IsolatedTest::SetUp() {
  m_temp = std::make_unique<TempDir>();
  m_folders = std::make_unique<TestFolders>(m_temp->Path());
  m_platform = std::make_unique<KyGuid::ScopedPlatform>(
      KyGuid::Platform{m_folders.get(), &m_ticks, &m_machine, &m_clock});
  SetEnvironmentVariableA("KYLOGEX_FILE", LogPath().c_str());
  SetEnvironmentVariableA("KYLOGEX_LEVEL", "6");
  SetEnvironmentVariableA("KYREPORT_FILE", ReportPath().c_str());
}

void IsolatedTest::TearDown() {
  SetEnvironmentVariableA("KYLOGEX_FILE", nullptr);
  SetEnvironmentVariableA("KYREPORT_FILE", nullptr);
  m_platform.reset();
  m_folders.reset();
  m_temp.reset();
}

std::string IsolatedTest::ProfileDir() const {
  return m_folders->CommonAppData() + "\\Corvane\\Greibraske";
}

std::vector<std::string> IsolatedTest::LogLines() const { return ReadLines(LogPath()); }

std::vector<std::string> ReadLines(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream in(ReadWholeFile(path));
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

int IsolatedTest::CountLog(const std::string& text) const {
  const std::vector<std::string> lines = LogLines();
  return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.find(text) != std::string::npos;
  }));
}

std::string IsolatedTest::LogLineWith(const std::string& text) const {
  for (const std::string& line : LogLines()) {
    if (line.find(text) != std::string::npos) return line;
  }
  return std::string();
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

std::map<std::string, std::string> ReadTree(const std::string& folder) {
  std::map<std::string, std::string> files;
  ForEachIn(folder, [&](const std::string& name, DWORD attributes) {
    const std::string path = folder + "\\" + name;
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) return void(files[name] = ReadWholeFile(path));
    for (const auto& file : ReadTree(path)) files[name + "\\" + file.first] = file.second;
  });
  return files;
}

void WriteWholeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

void MakeDirs(const std::string& path) {
  SHCreateDirectoryExW(nullptr, KyGuid::AnsiToWide(path).c_str(), nullptr);
}

std::string IniRead(const std::string& path, const char* section, const char* key) {
  char value[4096] = {};
  GetPrivateProfileStringA(section, key, "", value, sizeof(value), path.c_str());
  return value;
}

void IniWrite(const std::string& path, const char* section, const char* key, const char* value) {
  WritePrivateProfileStringA(section, key, value, path.c_str());
}

void TouchForward(const std::string& path, int seconds) {
  KyGuidUtils::UniqueFile file(CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                           OPEN_EXISTING, 0, nullptr));
  FILETIME written;
  if (!file || !GetFileTime(file.get(), nullptr, nullptr, &written)) return;
  const uint64_t ticks = (uint64_t{written.dwHighDateTime} << 32 | written.dwLowDateTime) +
                         static_cast<uint64_t>(seconds) * 10000000u;
  written = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  SetFileTime(file.get(), nullptr, nullptr, &written);
}

}  // namespace KyGuidTest
