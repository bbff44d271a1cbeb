// How the legacy scheme's drive identity reads the strings of an IDENTIFY
// block and of a storage device descriptor. Its sequence ids were hashed
// from exactly these strings, so they keep that scheme's own rules.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace KyMacID {

// Words `firstWord`..`lastWord` of the IDENTIFY block, high byte first,
// blanks trimmed at both ends.
std::string ConvertToString(const uint8_t* identify512, int firstWord, int lastWord);

// A descriptor string that a driver may have given as hex text: like the
// current decoder, but with its own notion of blank, no printable check on
// plain text and a flip that keeps an odd last character.
std::string flipAndCodeBytes(const uint8_t* buffer, size_t size, int offset, bool flip);

}  // namespace KyMacID
