#include "kyguidlib/devicestrings.h"

#include <utility>

#include "common/strutil.h"

namespace {

using KyGuidUtils::IsAsciiSpace;

constexpr int kIdentifyWords = static_cast<int>(KyGuid::kIdentifyDataSize / 2);

// Fields a short buffer does not hold read as zero.
uint32_t FieldAt(const uint8_t* buffer, size_t size, size_t at) {
  if (size < 4 || at > size - 4) return 0;
  return KyGuid::ReadLe32(buffer, at);
}

void SwapAdjacentPairs(std::string& text) {
  for (size_t i = 0; i + 1 < text.size(); i += 2) std::swap(text[i], text[i + 1]);
}

}  // namespace

namespace KyGuid {

std::string DescriptorStringAt(const uint8_t* buffer, size_t size, size_t offset) {
  std::string text;
  for (size_t i = offset; i < size && buffer[i] != 0; ++i) {
    text.push_back(static_cast<char>(buffer[i]));
  }
  return text;
}

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

std::string IdentifyWordRange(const uint8_t* identify512, int firstWord, int lastWord) {
  if (firstWord < 0) firstWord = 0;
  if (lastWord >= kIdentifyWords) lastWord = kIdentifyWords - 1;
  if (firstWord > lastWord) return std::string();
  return IdentifySwappedString(identify512, static_cast<size_t>(firstWord) * 2,
                               static_cast<size_t>(lastWord - firstWord + 1));
}

StorageDescriptorFields ParseStorageDescriptor(const uint8_t* buffer, size_t size) {
  auto stringAtOffsetField = [buffer, size](size_t fieldAt) {
    uint32_t offset = FieldAt(buffer, size, fieldAt);
    if (offset < 1 || offset >= kDescriptorBufferSize) return std::string();
    return DescriptorStringAt(buffer, size, offset);
  };
  StorageDescriptorFields fields;
  fields.ProductId = stringAtOffsetField(kProductIdOffsetAt);
  fields.Revision = stringAtOffsetField(kRevisionOffsetAt);
  fields.SerialNumber = stringAtOffsetField(kSerialNumberOffsetAt);
  fields.VendorId = stringAtOffsetField(kVendorIdOffsetAt);
  fields.BusType = FieldAt(buffer, size, kBusTypeAt);
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
  std::string text = IdentifyWordRange(identify512, firstWord, lastWord);
  KyGuidUtils::TrimTrailingBlanks(text);
  return text;
}

std::string DecodeDescriptorString(const uint8_t* buffer, size_t size, uint32_t offset, bool swap) {
  if (offset == 0) return std::string();
  std::string text = DescriptorStringAt(buffer, size, offset);
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
    // The legacy scheme swapped (length - 1) / 2 + 1 pairs, so with an odd
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
