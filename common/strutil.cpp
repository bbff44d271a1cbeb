#include "common/strutil.h"

namespace KyGuidUtils {

bool IsHexDigit(char c) { return HexValue(c) >= 0; }

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsGuidText(const std::string& text) {
  if (text.size() != 32) return false;
  for (char c : text) {
    if (!IsHexDigit(c)) return false;
  }
  return true;
}

bool ParseGuidBytes(const char* text, uint8_t bytes[16]) {
  for (int i = 0; i < 16; ++i) {
    int high = HexValue(text[2 * i]);
    if (high < 0) return false;
    int low = HexValue(text[2 * i + 1]);
    if (low < 0) return false;
    bytes[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return true;
}

std::string BytesToHex(const uint8_t* bytes, size_t length) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(length * 2);
  for (size_t i = 0; i < length; ++i) {
    text.push_back(kDigits[bytes[i] >> 4]);
    text.push_back(kDigits[bytes[i] & 0x0F]);
  }
  return text;
}

std::string ToLowerAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

void RemoveBlanksAfterMarker(std::string& text, const std::string& marker) {
  size_t at = text.find(marker);
  if (at == std::string::npos) return;
  size_t start = at + marker.size();
  size_t end = start;
  while (end < text.size() && text[end] == ' ') ++end;
  text.erase(start, end - start);
}

bool IsAsciiAlpha(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool IsAsciiAlnum(unsigned char c) { return IsAsciiAlpha(c) || (c >= '0' && c <= '9'); }

bool IsAsciiSpace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool IsAsciiPrint(unsigned char c) { return c >= 0x20 && c <= 0x7E; }

void TrimLeadingBlanks(std::string& text) {
  size_t first = text.find_first_not_of(' ');
  text.erase(0, first == std::string::npos ? text.size() : first);
}

void TrimTrailingBlanks(std::string& text) {
  size_t last = text.find_last_not_of(' ');
  text.erase(last == std::string::npos ? 0 : last + 1);
}

bool ContainsWholeWord(const std::string& text, const std::string& word) {
  if (word.empty()) return false;
  size_t at = text.find(word);
  while (at != std::string::npos) {
    size_t end = at + word.size();
    bool letterBefore = at > 0 && IsAsciiAlpha(static_cast<unsigned char>(text[at - 1]));
    bool letterAfter = end < text.size() && IsAsciiAlpha(static_cast<unsigned char>(text[end]));
    if (!letterBefore && !letterAfter) return true;
    at = text.find(word, end);
  }
  return false;
}

bool StartsWithNoCase(const std::string& text, const std::string& prefix) {
  return text.size() >= prefix.size() &&
         ToLowerAscii(text.substr(0, prefix.size())) == ToLowerAscii(prefix);
}

}  // namespace KyGuidUtils
