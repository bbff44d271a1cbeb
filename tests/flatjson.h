// Reads the command line's JSON back for the tests: checks the syntax
// strictly and flattens the document into "path" -> value, with paths such
// as "match.row" and "disks[0].key". A container's path maps to "#n", its
// number of members. Strings are unescaped; other values keep their text.
#pragma once

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace KyGuidTest {

class FlatJson {
 public:
  explicit FlatJson(const std::string& text) : m_text(text) {
    m_valid = Value("") && (SkipBlanks(), m_at == m_text.size());
  }

  bool Valid() const { return m_valid; }
  bool Has(const std::string& path) const { return m_values.count(path) != 0; }
  // "(missing)" for a path the document does not have.
  std::string operator[](const std::string& path) const {
    auto found = m_values.find(path);
    return found == m_values.end() ? "(missing)" : found->second;
  }

 private:
  void SkipBlanks() {
    while (m_at < m_text.size() && strchr(" \t\r\n", m_text[m_at])) ++m_at;
  }
  bool Take(char c) {
    SkipBlanks();
    if (m_at >= m_text.size() || m_text[m_at] != c) return false;
    ++m_at;
    return true;
  }

  bool Value(const std::string& path) {
    SkipBlanks();
    if (m_at >= m_text.size()) return false;
    const char c = m_text[m_at];
    if (c == '{') return Container(path, '}', true);
    if (c == '[') return Container(path, ']', false);
    if (c == '"') {
      std::string text;
      if (!String(text)) return false;
      m_values[path] = text;
      return true;
    }
    return Literal(path);
  }

  bool Container(const std::string& path, char close, bool object) {
    ++m_at;
    int count = 0;
    if (!Take(close)) {
      do {
        std::string member = path + "[" + std::to_string(count) + "]";
        if (object) {
          std::string key;
          SkipBlanks();
          if (!String(key) || !Take(':')) return false;
          member = path.empty() ? key : path + "." + key;
        }
        if (!Value(member)) return false;
        ++count;
      } while (Take(','));
      if (!Take(close)) return false;
    }
    m_values[path] = "#" + std::to_string(count);
    return true;
  }

  bool String(std::string& out) {
    if (m_at >= m_text.size() || m_text[m_at] != '"') return false;
    for (++m_at; m_at < m_text.size(); ++m_at) {
      const char c = m_text[m_at];
      if (c == '"') {
        ++m_at;
        return true;
      }
      if (static_cast<unsigned char>(c) < 0x20) return false;
      if (c != '\\') {
        out += c;
        continue;
      }
      if (++m_at >= m_text.size()) return false;
      const char escaped = m_text[m_at];
      if (escaped == 'u') {
        if (m_at + 4 >= m_text.size()) return false;
        const long unit = strtol(m_text.substr(m_at + 1, 4).c_str(), nullptr, 16);
        if (unit >= 0x80) return false;  // the tool escapes control characters only
        out += static_cast<char>(unit);
        m_at += 4;
      } else if (escaped == '"' || escaped == '\\') {
        out += escaped;
      } else {
        return false;  // the tool escapes nothing else
      }
    }
    return false;
  }

  bool Literal(const std::string& path) {
    const size_t start = m_at;
    while (m_at < m_text.size() &&
           (isalnum(static_cast<unsigned char>(m_text[m_at])) || strchr("-+.", m_text[m_at]))) {
      ++m_at;
    }
    const std::string text = m_text.substr(start, m_at - start);
    char* end = nullptr;
    const bool number = !text.empty() && (strtod(text.c_str(), &end), *end == '\0');
    if (!number && text != "true" && text != "false" && text != "null") return false;
    m_values[path] = text;
    return true;
  }

  std::string m_text;
  size_t m_at = 0;
  bool m_valid = false;
  std::map<std::string, std::string> m_values;
};

}  // namespace KyGuidTest
