#include "kyguidlib/td/historyfile.h"

#include <windows.h>
#include <shlwapi.h>

#include <ctime>
#include <vector>

#include "kyguidlib/guidpaths.h"

namespace KyMacID {
namespace HistoryFile {

Location Sibling(const wchar_t* path, const wchar_t* fileName) {
  wchar_t buffer[MAX_PATH] = {};
  wcsncpy_s(buffer, MAX_PATH, path ? path : L"", _TRUNCATE);
  PathRemoveFileSpecW(buffer);
  PathAppendW(buffer, fileName);
  Location location;
  location.wide = buffer;
  location.ansi = KyGuid::WideToAnsi(buffer);
  return location;
}

std::string ReadString(const std::string& file, const char* section, const char* key,
                       unsigned bufferSize) {
  std::vector<char> buffer(bufferSize, '\0');
  DWORD length =
      GetPrivateProfileStringA(section, key, "", buffer.data(), bufferSize, file.c_str());
  return std::string(buffer.data(), length);
}

int ReadInt(const std::string& file, const char* section, const char* key, int defaultValue) {
  return static_cast<int>(GetPrivateProfileIntA(section, key, defaultValue, file.c_str()));
}

void WriteString(const std::string& file, const char* section, const char* key,
                 const std::string& value) {
  WritePrivateProfileStringA(section, key, value.c_str(), file.c_str());
}

std::string NowText() { return std::to_string(static_cast<long long>(_time64(nullptr))); }

}  // namespace HistoryFile
}  // namespace KyMacID
