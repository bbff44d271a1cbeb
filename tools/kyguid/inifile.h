// Read-only access to the library's INI-format files, for the commands that
// show them as they are.
#pragma once

#include <string>

namespace KyGuidCli {

class IniFile {
 public:
  explicit IniFile(const std::string& path) : m_path(path) {}

  const std::string& Path() const { return m_path; }
  bool Exists() const;
  // Empty when the key is missing.
  std::string String(const std::string& section, const std::string& key) const;
  // `defaultValue` when the key is missing or not a number.
  int Int(const std::string& section, const std::string& key, int defaultValue) const;
  long long Int64(const std::string& section, const std::string& key) const;

 private:
  std::string m_path;
};

}  // namespace KyGuidCli
