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

// Character classes of the C locale, which the library never leaves. Taking
// the byte as unsigned keeps ANSI text above 0x7F out of every class and
// avoids handing a negative char to <cctype>.
bool IsAsciiAlpha(unsigned char c);
bool IsAsciiAlnum(unsigned char c);
bool IsAsciiSpace(unsigned char c);  // blank, \t \n \v \f \r
bool IsAsciiPrint(unsigned char c);  // 0x20..0x7E

// Blank means the space character only, unlike IsAsciiSpace.
void TrimLeadingBlanks(std::string& text);
void TrimTrailingBlanks(std::string& text);

// True when `word` occurs in `text` with no letter directly before or after
// it. An occurrence that fails resumes the search behind its full length.
// Neither argument is case-folded here.
bool ContainsWholeWord(const std::string& text, const std::string& word);

// Case-insensitive (ASCII) comparison of the start of `text` with `prefix`.
bool StartsWithNoCase(const std::string& text, const std::string& prefix);

}  // namespace KyGuidUtils
