// Where the library keeps its files: the common application-data folder plus
// "\Corvane\Greibraske". Each helper returns an empty string when the folder
// cannot be had.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/ansipath.h"

namespace KyGuid {

std::wstring GetProfileDir();
std::string GetProfileDirA();
std::string GetGuidFilePath();
std::string GetReportFilePath();
// GlobalMgr.db, the legacy scheme's cache, in the suite folder under the
// shell folder `csidl` (CSIDL_COMMON_APPDATA or CSIDL_APPDATA). False when
// the shell gives no such folder; `path` is empty then, and also when the
// suite folder's own path would not fit in MAX_PATH.
bool GetGlobalMgrPath(int csidl, std::wstring& path);
// Global.db, the legacy scheme's random id of a machine without a MAC: in the
// common "\Corvane\Desktop" or the per-user "\Corvane\Greibraske"; empty
// when the folder is unknown or the path too long.
std::wstring GetGlobalDbPath(bool user);
// GlobalMgr.db in the profile folder, narrow.
std::string GetGlobalMgrFilePath();
// GlobalMgr.db in the per-user counterpart of the profile folder, narrow.
std::string GetUserGlobalMgrFilePath();
// The file a commit of several files lists them in, in the data folder.
std::wstring GetCommitListPath();
// Every file the library writes.
std::vector<std::wstring> GetStoreFiles();

// The host executable's file name without directory and last extension.
std::string GetProcessName();

// The file's last-write time as a 64-bit FILETIME value; 0 when the file
// cannot be queried, so a vanished file reads as a change.
uint64_t FileLastWriteTime(const std::string& path);

using KyGuidUtils::AnsiToWide;
using KyGuidUtils::WideToAnsi;

}  // namespace KyGuid
