// Small byte-string helpers shared by the library; no Windows headers, so
// they build natively for sanitizers and fuzzers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace KyGuidUtils {

bool IsHexDigit(char c);
// 0-15 for a hexadecimal digit, -1 otherwise.
int HexValue(char c);

// Exactly 32 hexadecimal digits, either case, nothing after them.
bool IsGuidText(const std::string& text);

// `text` is at least 32 characters; false at the first non-hex character.
bool ParseGuidBytes(const char* text, uint8_t bytes[16]);

// Lower-case hexadecimal, two digits a byte.
std::string BytesToHex(const uint8_t* bytes, size_t length);

std::string ToLowerAscii(std::string text);

// Removes the run of blanks directly after the first `marker` in `text`.
void RemoveBlanksAfterMarker(std::string& text, const std::string& marker);

}  // namespace KyGuidUtils
