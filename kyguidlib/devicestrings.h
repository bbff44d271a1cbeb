// Decoders for the bytes that storage drivers hand back: the storage device
// descriptor and the 512-byte ATA IDENTIFY block. The bytes are untrusted, so
// nothing here reads outside the buffer it is given, whatever the offsets in
// it say. The ancient disk reads' decoders reproduce the exact strings the
// legacy scheme hashed, quirks included, because stored disk
// GUIDs depend on them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "kyguidlib/devicerequests.h"

namespace KyGuid {

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
// blanks removed; leading blanks stay, as the legacy scheme hashed them.
std::string GetIdentifyString(const uint8_t* identify512, int firstWord, int lastWord);

// The zero-terminated string at `offset` of a descriptor; one that runs to
// the end of the buffer without a terminator ends there.
std::string DescriptorStringAt(const uint8_t* buffer, size_t size, size_t offset);

// Reads `text` as hex digit pairs, treating characters for which
// `countsAsZero` holds as the digit '0'. Fails at any other non-hex
// character and at a byte that is neither zero nor printable. The result
// ends at its first zero byte, since the legacy scheme decoded into a C
// string; an odd last digit forms no byte.
bool DecodeHexText(const std::string& text, bool (*countsAsZero)(unsigned char),
                   std::string& decoded);

// Words `firstWord`..`lastWord` (inclusive, clamped to the block) in reading
// order, every byte kept.
std::string IdentifyWordRange(const uint8_t* identify512, int firstWord, int lastWord);

// A descriptor string that a driver may have given as hex text; `swap`
// undoes word-swapped byte order. Offset 0 means no string.
std::string DecodeDescriptorString(const uint8_t* buffer, size_t size, uint32_t offset, bool swap);

}  // namespace KyGuid
