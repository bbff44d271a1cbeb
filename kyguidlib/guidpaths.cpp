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

std::string WideToAnsi(const std::wstring& text) {
  if (text.empty()) return std::string();
  std::string out(text.size() * 3, '\0');
  int written = WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                    &out[0], static_cast<int>(out.size()), nullptr, nullptr);
  out.resize(written > 0 ? written : 0);
  return out;
}

std::wstring AnsiToWide(const std::string& text) {
  if (text.empty()) return std::wstring();
  std::wstring out(text.size(), L'\0');
  int written = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                    &out[0], static_cast<int>(out.size()));
  out.resize(written > 0 ? written : 0);
  return out;
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
