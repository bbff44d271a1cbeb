#include "kyguidlib/devicestrings.h"

#include <utility>

#include "common/kylog.h"
#include "common/strutil.h"

namespace {

using KyGuidUtils::IsAsciiSpace;

// Little-endian STORAGE_DEVICE_DESCRIPTOR fields.
constexpr size_t kRemovableMediaAt = 10;
constexpr size_t kVendorIdOffsetAt = 12;
constexpr size_t kProductIdOffsetAt = 16;
constexpr size_t kRevisionOffsetAt = 20;
constexpr size_t kSerialNumberOffsetAt = 24;
constexpr size_t kBusTypeAt = 28;

constexpr int kIdentifyWords = static_cast<int>(KyGuid::kIdentifyDataSize / 2);

// Fields a short buffer does not hold read as zero.
uint32_t ReadLe32(const uint8_t* buffer, size_t size, size_t at) {
  if (size < 4 || at > size - 4) return 0;
  return static_cast<uint32_t>(buffer[at]) | static_cast<uint32_t>(buffer[at + 1]) << 8 |
         static_cast<uint32_t>(buffer[at + 2]) << 16 | static_cast<uint32_t>(buffer[at + 3]) << 24;
}

// The zero-terminated string at `offset`; one that runs to the end of the
// buffer without a terminator ends there.
std::string StringAt(const uint8_t* buffer, size_t size, size_t offset) {
  std::string text;
  for (size_t i = offset; i < size && buffer[i] != 0; ++i) {
    text.push_back(static_cast<char>(buffer[i]));
  }
  return text;
}

bool IsBlank(unsigned char c) { return c == ' '; }

// Reads `text` as hex digit pairs, treating characters for which
// `countsAsZero` holds as the digit '0'. Fails at any other non-hex
// character and at a byte that is neither zero nor printable. The result
// ends at its first zero byte, since the earlier scheme decoded into a C
// string; an odd last digit forms no byte.
bool DecodeHexText(const std::string& text, bool (*countsAsZero)(unsigned char),
                   std::string& decoded) {
  std::string bytes;
  int high = -1;
  for (char c : text) {
    int digit = countsAsZero(static_cast<unsigned char>(c)) ? 0 : KyGuidUtils::HexValue(c);
    if (digit < 0) return false;
    if (high < 0) {
      high = digit;
      continue;
    }
    unsigned char byte = static_cast<unsigned char>(high << 4 | digit);
    high = -1;
    if (byte != 0 && !KyGuidUtils::IsAsciiPrint(byte)) return false;
    bytes.push_back(static_cast<char>(byte));
  }
  decoded = bytes.substr(0, bytes.find('\0'));
  return true;
}

void SwapAdjacentPairs(std::string& text) {
  for (size_t i = 0; i + 1 < text.size(); i += 2) std::swap(text[i], text[i + 1]);
}

std::string ClampedIdentifyWords(const uint8_t* identify512, int firstWord, int lastWord) {
  if (firstWord < 0) firstWord = 0;
  if (lastWord >= kIdentifyWords) lastWord = kIdentifyWords - 1;
  if (firstWord > lastWord) return std::string();
  return KyGuid::IdentifySwappedString(identify512, static_cast<size_t>(firstWord) * 2,
                                       static_cast<size_t>(lastWord - firstWord + 1));
}

}  // namespace

namespace KyGuid {

StorageDescriptorFields ParseStorageDescriptor(const uint8_t* buffer, size_t size) {
  auto stringAtOffsetField = [buffer, size](size_t fieldAt) {
    uint32_t offset = ReadLe32(buffer, size, fieldAt);
    if (offset < 1 || offset >= kStorageDescriptorBufferSize) return std::string();
    return StringAt(buffer, size, offset);
  };
  StorageDescriptorFields fields;
  fields.ProductId = stringAtOffsetField(kProductIdOffsetAt);
  fields.Revision = stringAtOffsetField(kRevisionOffsetAt);
  fields.SerialNumber = stringAtOffsetField(kSerialNumberOffsetAt);
  fields.VendorId = stringAtOffsetField(kVendorIdOffsetAt);
  fields.BusType = ReadLe32(buffer, size, kBusTypeAt);
  fields.RemovableMedia = size > kRemovableMediaAt && buffer[kRemovableMediaAt] != 0;
  return fields;
}

std::string IdentifySwappedString(const uint8_t* identify512, size_t byteOffset, size_t words) {
  std::string text;
  for (size_t w = 0; w < words; ++w) {
    size_t at = byteOffset + 2 * w;
    if (at + 1 >= kIdentifyDataSize) break;
    text.push_back(static_cast<char>(identify512[at + 1]));
    text.push_back(static_cast<char>(identify512[at]));
  }
  return text;
}

std::string GetIdentifyString(const uint8_t* identify512, int firstWord, int lastWord) {
  std::string text = ClampedIdentifyWords(identify512, firstWord, lastWord);
  KyGuidUtils::TrimTrailingBlanks(text);
  return text;
}

std::string DecodeDescriptorString(const uint8_t* buffer, size_t size, uint32_t offset, bool swap) {
  if (offset == 0) return std::string();
  std::string text = StringAt(buffer, size, offset);
  std::string result;
  if (!DecodeHexText(text, IsAsciiSpace, result)) {
    result = text;
    for (char c : result) {
      if (!KyGuidUtils::IsAsciiPrint(static_cast<unsigned char>(c))) {
        result.clear();
        break;
      }
    }
  }
  if (swap && !result.empty()) {
    // The earlier code swapped (length - 1) / 2 + 1 pairs, so with an odd
    // length the last character traded places with the terminator and was
    // lost. Disk GUIDs were hashed from that shortened serial.
    if (result.size() % 2 != 0) result.pop_back();
    SwapAdjacentPairs(result);
  }
  size_t first = 0;
  while (first < result.size() && IsAsciiSpace(static_cast<unsigned char>(result[first]))) ++first;
  if (first == result.size()) return result;  // white space only: kept as it is
  size_t end = result.size();
  while (IsAsciiSpace(static_cast<unsigned char>(result[end - 1]))) --end;
  return result.substr(first, end - first);
}

}  // namespace KyGuid

namespace KyMacID {
namespace {

// The legacy disk reads mark every function's entry with its full name.
constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\td\\hddfetcher";

void LogEntry(const wchar_t* function) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(function), "enter");
}

}  // namespace

std::string ConvertToString(const uint8_t* identify512, int firstWord, int lastWord) {
  LogEntry(L"KyMacID::ConvertToString");
  std::string text = ClampedIdentifyWords(identify512, firstWord, lastWord);
  KyGuidUtils::TrimLeadingBlanks(text);
  KyGuidUtils::TrimTrailingBlanks(text);
  return text;
}

std::string flipAndCodeBytes(const uint8_t* buffer, size_t size, int offset, bool flip) {
  LogEntry(L"KyMacID::flipAndCodeBytes");
  if (offset < 1) return std::string();
  std::string text = StringAt(buffer, size, static_cast<size_t>(offset));
  std::string result;
  // Unlike DecodeDescriptorString: only the blank stands for '0', and text
  // that is not hex is taken as it is, printable or not.
  if (!DecodeHexText(text, IsBlank, result)) result = text;
  // An odd last character has no partner and stays where it is.
  if (flip) SwapAdjacentPairs(result);
  KyGuidUtils::TrimLeadingBlanks(result);
  KyGuidUtils::TrimTrailingBlanks(result);
  return result;
}

}  // namespace KyMacID
