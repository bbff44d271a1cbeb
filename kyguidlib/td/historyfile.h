// What the two history-file classes share: where their files live and the
// time they record.
#pragma once

#include <string>

namespace KyMacID {
namespace HistoryFile {

// The narrow form is in the ANSI code page, the one the narrow profile
// functions read paths in. The older components converted to UTF-8, which
// sends a per-user folder whose name has a letter beyond ASCII (an accented
// user name) to a folder of another name.
struct Location {
  std::wstring wide;
  std::string ansi;
};

// `fileName` in the folder of `path` (the folder part of a file path);
// empty for an empty path.
Location Sibling(const wchar_t* path, const wchar_t* fileName);

// The current time in seconds since 1970, in decimal.
std::string NowText();

}  // namespace HistoryFile
}  // namespace KyMacID
