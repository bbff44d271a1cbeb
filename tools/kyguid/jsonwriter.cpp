#include "tools/kyguid/jsonwriter.h"

#include <windows.h>

#include <cstdio>

namespace KyGuidCli {
namespace {

std::string AnsiToUtf8(const std::string& text) {
  bool ascii = true;
  for (char c : text) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
  if (ascii) return text;
  const int units =
      MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring wide(units > 0 ? units : 0, L'\0');
  MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), &wide[0], units);
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
  std::string utf8(bytes > 0 ? bytes : 0, '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, &utf8[0], bytes, nullptr, nullptr);
  return utf8;
}

}  // namespace

void JsonWriter::Member(const char* key) {
  if (!m_open.empty()) {
    if (m_open.back()) m_text += ',';
    m_open.back() = true;
    m_text += '\n';
    m_text.append(m_open.size() * 2, ' ');
  }
  if (key) {
    AppendString(key);
    m_text += ": ";
  }
}

JsonWriter& JsonWriter::BeginObject(const char* key) {
  Member(key);
  m_text += '{';
  m_open.push_back(false);
  return *this;
}

JsonWriter& JsonWriter::BeginArray(const char* key) {
  Member(key);
  m_text += '[';
  m_open.push_back(false);
  return *this;
}

JsonWriter& JsonWriter::Close(char bracket) {
  const bool hadMembers = m_open.back();
  m_open.pop_back();
  if (hadMembers) {
    m_text += '\n';
    m_text.append(m_open.size() * 2, ' ');
  }
  m_text += bracket;
  return *this;
}

JsonWriter& JsonWriter::EndObject() { return Close('}'); }
JsonWriter& JsonWriter::EndArray() { return Close(']'); }

JsonWriter& JsonWriter::String(const char* key, const std::string& value) {
  Member(key);
  AppendString(AnsiToUtf8(value));
  return *this;
}

JsonWriter& JsonWriter::Int(const char* key, int64_t value) {
  Member(key);
  m_text += std::to_string(value);
  return *this;
}

JsonWriter& JsonWriter::Bool(const char* key, bool value) {
  Member(key);
  m_text += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::Null(const char* key) {
  Member(key);
  m_text += "null";
  return *this;
}

void JsonWriter::AppendString(const std::string& utf8) {
  m_text += '"';
  for (char c : utf8) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      m_text += '\\';
      m_text += c;
    } else if (byte < 0x20) {
      char escaped[8];
      snprintf(escaped, sizeof(escaped), "\\u%04x", byte);
      m_text += escaped;
    } else {
      m_text += c;
    }
  }
  m_text += '"';
}

}  // namespace KyGuidCli
