// The INI files of the library and of the earlier scheme are read and
// written through the narrow profile functions only, on paths in the ANSI
// code page; these are the only calls to them. An empty path, which a folder
// the shell could not give leaves behind, reads as absent and is never
// written: the profile functions would take it as a file in the Windows
// folder.
#pragma once

#include <cstdint>
#include <string>

namespace KyGuidUtils {

// The value of `key` (empty when absent), read into a buffer of
// `bufferSize` characters as GetPrivateProfileStringA does: a longer value
// comes back cut to bufferSize - 1 characters.
std::string ReadIniString(const std::string& path, const char* section, const char* key,
                              uint32_t bufferSize);
// GetPrivateProfileIntA: `defaultValue` when the key is absent, the leading
// digits otherwise.
int ReadIniInt(const std::string& path, const char* section, const char* key,
                   int defaultValue);
bool WriteIniString(const std::string& path, const char* section, const char* key,
                        const std::string& value);

}  // namespace KyGuidUtils
