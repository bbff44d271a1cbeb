#include "common/profilefile.h"

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "common/ansipath.h"
#include "common/filestore.h"

namespace KyGuidUtils {
namespace {

std::string ReadPath(const std::string& path) {
  return WideToAnsi(StorePathForRead(AnsiToWide(path)));
}

}  // namespace

std::string ReadIniString(const std::string& path, const char* section, const char* key,
                          uint32_t bufferSize) {
  if (path.empty()) return std::string();
  std::vector<char> buffer(bufferSize, '\0');
  const DWORD length =
      GetPrivateProfileStringA(section, key, "", buffer.data(), bufferSize, ReadPath(path).c_str());
  return std::string(buffer.data(), length < bufferSize ? length : 0);
}

int ReadIniInt(const std::string& path, const char* section, const char* key, int defaultValue) {
  if (path.empty()) return defaultValue;
  return static_cast<int>(
      GetPrivateProfileIntA(section, key, defaultValue, ReadPath(path).c_str()));
}

std::vector<std::pair<std::string, std::string>> ReadIniSection(const std::string& path,
                                                                const char* section,
                                                                size_t maxBytes) {
  std::vector<std::pair<std::string, std::string>> entries;
  if (path.empty()) return entries;
  const std::string file = ReadPath(path);
  std::vector<char> buffer(32768);
  DWORD length = 0;
  for (;;) {
    length = GetPrivateProfileSectionA(section, buffer.data(), static_cast<DWORD>(buffer.size()),
                                       file.c_str());
    // A full buffer is reported as its size minus two.
    if (length + 2 < buffer.size() || buffer.size() >= maxBytes) break;
    buffer.resize(buffer.size() * 2);
  }
  const char* end = buffer.data() + std::min<size_t>(length, buffer.size());
  for (const char* entry = buffer.data(); entry < end && *entry; entry += strlen(entry) + 1) {
    const char* equals = strchr(entry, '=');
    if (equals) entries.emplace_back(std::string(entry, equals), equals + 1);
  }
  return entries;
}

bool WriteIniString(const std::string& path, const char* section, const char* key,
                    const std::string& value) {
  if (path.empty()) return false;
  return WriteStoreFileWith(AnsiToWide(path), [&](const std::wstring& working) {
    return WritePrivateProfileStringA(section, key, value.c_str(), WideToAnsi(working).c_str()) !=
           FALSE;
  });
}

}  // namespace KyGuidUtils
