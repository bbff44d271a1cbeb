// Pretty-printed JSON for the command line's --json output. Strings arrive
// in the ANSI code page, as the library keeps them, and leave as UTF-8, so a
// script never sees bytes that are not JSON.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace KyGuidCli {

// Each call takes the member's key; inside an array pass null.
class JsonWriter {
 public:
  JsonWriter& BeginObject(const char* key = nullptr);
  JsonWriter& EndObject();
  JsonWriter& BeginArray(const char* key = nullptr);
  JsonWriter& EndArray();
  JsonWriter& String(const char* key, const std::string& value);
  JsonWriter& Int(const char* key, int64_t value);
  JsonWriter& Bool(const char* key, bool value);
  JsonWriter& Null(const char* key);

  const std::string& Text() const { return m_text; }

 private:
  // The separator, line break, indent and key before a value.
  void Member(const char* key);
  JsonWriter& Close(char bracket);
  void AppendString(const std::string& utf8);

  std::string m_text;
  std::vector<bool> m_open;  // per open container: has it any members yet
};

}  // namespace KyGuidCli
