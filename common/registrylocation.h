// A registry value named by one "ROOT\key\value" string, as the suite names
// its settings. Only HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER roots are
// understood; a 32-bit process on a 64-bit system reads the 64-bit view.
#pragma once

#include <windows.h>

namespace KyGuidUtils {

// Where the suite records its install folder, which holds its shared
// modules and its installed copy of this library.
inline constexpr wchar_t kInstallDirLocation[] =
    L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\LumarMgr\\InstallDir";

// The string value into `out` (at most MAX_PATH characters, always
// terminated). An HKEY_CURRENT_USER location keeps the backslash after the
// root in its key path, as the suite's own reader does, and so never opens.
bool ReadRegistryLocation(const wchar_t* location, wchar_t (&out)[MAX_PATH]);

}  // namespace KyGuidUtils
