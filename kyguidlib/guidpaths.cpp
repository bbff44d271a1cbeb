#include "kyguidlib/guidpaths.h"

#include <windows.h>
#include <shlobj.h>

#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kSuiteSubFolder[] = L"\\Corvane\\Greibraske";

std::wstring SuiteFolder(int csidl) {
  std::wstring base;
  if (!CurrentPlatform().folders->GetFolder(csidl, base)) return std::wstring();
  std::wstring folder = base + kSuiteSubFolder;
  if (folder.size() >= MAX_PATH) return std::wstring();
  return folder;
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
std::string GetUserProfileDirA() { return WideToAnsi(SuiteFolder(CSIDL_APPDATA)); }
std::string GetGuidFilePath() { return FileInProfileDir("Guid.db"); }
std::string GetReportFilePath() { return FileInProfileDir("GuidReport.dat"); }
std::string GetGlobalMgrFilePath() { return FileInProfileDir("GlobalMgr.db"); }
std::string GetUserGlobalMgrFilePath() {
  const std::string dir = GetUserProfileDirA();
  return dir.empty() ? std::string() : dir + "\\GlobalMgr.db";
}

std::wstring GetCommitListPath() {
  const std::wstring dir = GetProfileDir();
  return dir.empty() ? std::wstring() : dir + L"\\GuidStore.commit";
}

std::vector<std::wstring> GetStoreFiles() {
  std::vector<std::wstring> files;
  const std::wstring dir = GetProfileDir();
  if (!dir.empty()) {
    for (const wchar_t* name : {L"Guid.db", L"GuidReport.dat", L"GlobalMgr.db", L"GlobalMgrBack.db",
                                L"HDD.db", L"GuidInfo.db", L"GuidList.db"}) {
      files.push_back(dir + L"\\" + name);
    }
  }
  const std::wstring userDir = SuiteFolder(CSIDL_APPDATA);
  if (!userDir.empty()) {
    files.push_back(userDir + L"\\GlobalMgr.db");
    files.push_back(userDir + L"\\Global.db");
  }
  std::wstring common;
  if (CurrentPlatform().folders->GetFolder(CSIDL_COMMON_APPDATA, common)) {
    files.push_back(common + L"\\Corvane\\Desktop\\Global.db");
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
