// Decoders for the bytes that storage drivers hand back: the storage device
// descriptor and the 512-byte ATA IDENTIFY block. The bytes are untrusted, so
// nothing here reads outside the buffer it is given, whatever the offsets in
// it say. The older decoders reproduce the exact strings the earlier
// identifier scheme hashed, quirks included, because stored disk GUIDs
// depend on them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace KyGuid {

// The disk fetcher reads the descriptor into a buffer of this size; string
// offsets outside it are ignored.
constexpr size_t kStorageDescriptorBufferSize = 4096;
constexpr size_t kIdentifyDataSize = 512;

// What the disk fetcher takes from a STORAGE_DEVICE_DESCRIPTOR. Strings are
// raw: SanitizeDiskStrings still has to run on them.
struct StorageDescriptorFields {
  std::string VendorId;
  std::string ProductId;
  std::string Revision;
  std::string SerialNumber;
  uint32_t BusType = 0;
  bool RemovableMedia = false;
};

StorageDescriptorFields ParseStorageDescriptor(const uint8_t* buffer, size_t size);

// `words` 16-bit words from `byteOffset` of the IDENTIFY block, the bytes of
// each word swapped back into reading order. Every byte is kept, padding
// blanks and zeros included.
std::string IdentifySwappedString(const uint8_t* identify512, size_t byteOffset, size_t words);

// Words `firstWord`..`lastWord` (inclusive) in reading order, trailing
// blanks removed; leading blanks stay, as the earlier scheme hashed them.
std::string GetIdentifyString(const uint8_t* identify512, int firstWord, int lastWord);

// A descriptor string that a driver may have given as hex text; `swap`
// undoes word-swapped byte order. Offset 0 means no string.
std::string DecodeDescriptorString(const uint8_t* buffer, size_t size, uint32_t offset, bool swap);

}  // namespace KyGuid

namespace KyMacID {

// Words `firstWord`..`lastWord` of the IDENTIFY block, high byte first,
// blanks trimmed at both ends.
std::string ConvertToString(const uint8_t* identify512, int firstWord, int lastWord);

// The legacy scheme's reading of a descriptor string: like
// KyGuid::DecodeDescriptorString, but with its own notion of blank, no
// printable check on plain text and a flip that keeps an odd last character.
std::string flipAndCodeBytes(const uint8_t* buffer, size_t size, int offset, bool flip);

}  // namespace KyMacID
