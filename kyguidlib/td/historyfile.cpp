#include "kyguidlib/td/historyfile.h"

#include <windows.h>
#include <shlwapi.h>

#include "common/clock.h"
#include "kyguidlib/guidpaths.h"

namespace KyMacID {
namespace HistoryFile {

Location Sibling(const wchar_t* path, const wchar_t* fileName) {
  // Without a folder there is no sibling: a bare file name would land in the
  // Windows folder.
  if (!path || !*path) return Location();
  wchar_t buffer[MAX_PATH] = {};
  wcsncpy_s(buffer, MAX_PATH, path, _TRUNCATE);
  PathRemoveFileSpecW(buffer);
  PathAppendW(buffer, fileName);
  Location location;
  location.wide = buffer;
  location.ansi = KyGuid::WideToAnsi(buffer);
  return location;
}

std::string NowText() { return std::to_string(static_cast<long long>(KyGuidUtils::CurrentTime())); }

}  // namespace HistoryFile
}  // namespace KyMacID
