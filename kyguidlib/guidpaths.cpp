#include "kyguidlib/guidpaths.h"

#include <windows.h>
#include <shlobj.h>

#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kSuiteSubFolder[] = L"\\Corvane\\Greibraske";
constexpr wchar_t kGlobalMgrName[] = L"GlobalMgr.db";

// False when the shell gives no folder for `csidl`; `folder` is empty then,
// and also when it would not fit in MAX_PATH.
bool FindSuiteFolder(int csidl, std::wstring& folder) {
  folder.clear();
  std::wstring base;
  if (!CurrentPlatform().folders->GetFolder(csidl, base)) return false;
  folder = base + kSuiteSubFolder;
  if (folder.size() >= MAX_PATH) folder.clear();
  return true;
}

std::wstring SuiteFolder(int csidl) {
  std::wstring folder;
  FindSuiteFolder(csidl, folder);
  return folder;
}

std::string GlobalMgrFileA(int csidl) {
  std::wstring path;
  GetGlobalMgrPath(csidl, path);
  return WideToAnsi(path);
}

std::string FileInProfileDir(const char* name) {
  std::string dir = GetProfileDirA();
  if (dir.empty()) return std::string();
  return dir + "\\" + name;
}

}  // namespace

uint64_t FileLastWriteTime(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (path.empty() || !GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data)) {
    return 0;
  }
  return static_cast<uint64_t>(data.ftLastWriteTime.dwHighDateTime) << 32 |
         data.ftLastWriteTime.dwLowDateTime;
}

std::wstring GetProfileDir() { return SuiteFolder(CSIDL_COMMON_APPDATA); }
std::string GetProfileDirA() { return WideToAnsi(GetProfileDir()); }
std::string GetGuidFilePath() { return FileInProfileDir("Guid.db"); }
std::string GetReportFilePath() { return FileInProfileDir("GuidReport.dat"); }

bool GetGlobalMgrPath(int csidl, std::wstring& path) {
  const bool found = FindSuiteFolder(csidl, path);
  if (!path.empty()) path += std::wstring(L"\\") + kGlobalMgrName;
  return found;
}

std::string GetGlobalMgrFilePath() { return GlobalMgrFileA(CSIDL_COMMON_APPDATA); }
std::string GetUserGlobalMgrFilePath() { return GlobalMgrFileA(CSIDL_APPDATA); }

std::wstring GetCommitListPath() {
  const std::wstring dir = GetProfileDir();
  return dir.empty() ? std::wstring() : dir + L"\\GuidStore.commit";
}

std::wstring GetGlobalDbPath(bool user) {
  std::wstring folder;
  if (!CurrentPlatform().folders->GetFolder(user ? CSIDL_APPDATA : CSIDL_COMMON_APPDATA, folder)) {
    return std::wstring();
  }
  const std::wstring path =
      folder + (user ? kSuiteSubFolder : L"\\Corvane\\Desktop") + std::wstring(L"\\Global.db");
  return path.size() < MAX_PATH ? path : std::wstring();
}

std::vector<std::wstring> GetStoreFiles() {
  std::vector<std::wstring> files;
  const std::wstring dir = GetProfileDir();
  if (!dir.empty()) {
    for (const wchar_t* name : {L"Guid.db", L"GuidReport.dat", kGlobalMgrName, L"GlobalMgrBack.db",
                                L"HDD.db", L"GuidInfo.db", L"GuidList.db"}) {
      files.push_back(dir + L"\\" + name);
    }
  }
  const std::wstring userDir = SuiteFolder(CSIDL_APPDATA);
  if (!userDir.empty()) files.push_back(userDir + L"\\" + kGlobalMgrName);
  for (bool user : {true, false}) {
    const std::wstring path = GetGlobalDbPath(user);
    if (!path.empty()) files.push_back(path);
  }
  return files;
}

std::string GetProcessName() {
  char path[MAX_PATH] = {};
  DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::string name(path, length < MAX_PATH ? length : 0);
  size_t slash = name.find_last_of('\\');
  if (slash != std::string::npos) name.erase(0, slash + 1);
  size_t dot = name.find_last_of('.');
  if (dot != std::string::npos) name.erase(dot);
  return name;
}

}  // namespace KyGuid
