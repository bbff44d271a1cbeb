#include "tools/kyguid/inifile.h"

#include <windows.h>

#include <cstdlib>

#include "common/profilefile.h"

namespace KyGuidCli {
namespace {

constexpr DWORD kValueSize = 4096;  // as large as the library reads

}  // namespace

bool IniFile::Exists() const {
  const DWORD attributes = GetFileAttributesA(m_path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::string IniFile::String(const std::string& section, const std::string& key) const {
  return KyGuidUtils::ReadIniString(m_path, section.c_str(), key.c_str(), kValueSize);
}

// Parsed here rather than by the profile functions, which may turn a
// negative value such as the ancient build number -1 into 0.
int IniFile::Int(const std::string& section, const std::string& key, int defaultValue) const {
  const std::string text = String(section, key);
  char* end = nullptr;
  const long value = strtol(text.c_str(), &end, 10);
  return end == text.c_str() ? defaultValue : static_cast<int>(value);
}

long long IniFile::Int64(const std::string& section, const std::string& key) const {
  return strtoll(String(section, key).c_str(), nullptr, 10);
}

}  // namespace KyGuidCli
