#include "common/profilefile.h"

#include <windows.h>

#include <vector>

namespace KyGuidUtils {

std::string ReadIniString(const std::string& path, const char* section, const char* key,
                          uint32_t bufferSize) {
  if (path.empty()) return std::string();
  std::vector<char> buffer(bufferSize, '\0');
  const DWORD length =
      GetPrivateProfileStringA(section, key, "", buffer.data(), bufferSize, path.c_str());
  return std::string(buffer.data(), length < bufferSize ? length : 0);
}

int ReadIniInt(const std::string& path, const char* section, const char* key, int defaultValue) {
  if (path.empty()) return defaultValue;
  return static_cast<int>(GetPrivateProfileIntA(section, key, defaultValue, path.c_str()));
}

bool WriteIniString(const std::string& path, const char* section, const char* key,
                    const std::string& value) {
  if (path.empty()) return false;
  return WritePrivateProfileStringA(section, key, value.c_str(), path.c_str()) != FALSE;
}

}  // namespace KyGuidUtils
