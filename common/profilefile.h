// The INI files of the library and of the legacy scheme are read and
// written through the narrow profile functions only, on paths in the ANSI
// code page; these are the only calls to them. The bytes are the profile
// functions' own, but a write never reaches the file in place: it goes into
// the file's working copy, which replaces the file when its step commits
// (filestore.h). An empty path, which a folder the shell could not give
// leaves behind, reads as absent and is never written: the profile functions
// would take it as a file in the Windows folder.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace KyGuidUtils {

// The value of `key` (empty when absent), read into a buffer of
// `bufferSize` characters as GetPrivateProfileStringA does: a longer value
// comes back cut to bufferSize - 1 characters.
std::string ReadIniString(const std::string& path, const char* section, const char* key,
                          uint32_t bufferSize);
// GetPrivateProfileIntA: `defaultValue` when the key is absent, the leading
// digits otherwise.
int ReadIniInt(const std::string& path, const char* section, const char* key, int defaultValue);
// The "key=value" entries of a section in file order (GetPrivateProfileSectionA),
// at most `maxBytes` of them.
std::vector<std::pair<std::string, std::string>> ReadIniSection(const std::string& path,
                                                                const char* section,
                                                                size_t maxBytes);
// False with the profile function's error, or the error that keeps the file
// from being written, as the last error.
bool WriteIniString(const std::string& path, const char* section, const char* key,
                    const std::string& value);

}  // namespace KyGuidUtils
