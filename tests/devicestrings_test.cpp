#include "kyguidlib/devicestrings.h"
#include "kyguidlib/td/legacystrings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using KyGuid::ParseStorageDescriptor;
using KyGuid::StorageDescriptorFields;

// Buffers below are exactly as large as the callers' so that the sanitizers
// catch any read past them.

void PutLe32(std::vector<uint8_t>& buffer, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) buffer[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

// With a terminator when one fits.
void PutString(std::vector<uint8_t>& buffer, size_t at, const std::string& text) {
  std::copy(text.begin(), text.end(), buffer.begin() + at);
  if (at + text.size() < buffer.size()) buffer[at + text.size()] = 0;
}

std::vector<uint8_t> Descriptor(uint32_t vendorAt, uint32_t productAt, uint32_t revisionAt,
                                uint32_t serialAt) {
  std::vector<uint8_t> buffer(KyGuid::kDescriptorBufferSize);
  PutLe32(buffer, 12, vendorAt);
  PutLe32(buffer, 16, productAt);
  PutLe32(buffer, 20, revisionAt);
  PutLe32(buffer, 24, serialAt);
  return buffer;
}

TEST(ParseStorageDescriptorTest, ReadsRawStringsBusAndRemovableFlag) {
  std::vector<uint8_t> buffer = Descriptor(100, 120, 160, 180);
  buffer[10] = 1;
  PutLe32(buffer, 28, 17);
  PutString(buffer, 100, "ATA     ");
  PutString(buffer, 120, "ST1000DM010-2EP102");
  PutString(buffer, 160, "CC43");
  PutString(buffer, 180, "  Z9A1B2C3");
  StorageDescriptorFields fields = ParseStorageDescriptor(buffer.data(), buffer.size());
  EXPECT_EQ(fields.VendorId, "ATA     ");
  EXPECT_EQ(fields.ProductId, "ST1000DM010-2EP102");
  EXPECT_EQ(fields.Revision, "CC43");
  EXPECT_EQ(fields.SerialNumber, "  Z9A1B2C3");
  EXPECT_EQ(fields.BusType, 17u);
  EXPECT_TRUE(fields.RemovableMedia);
}

TEST(ParseStorageDescriptorTest, StaysInsideDescriptorAndBuffer) {
  std::vector<uint8_t> buffer = Descriptor(0, 4096, 0xFFFFFFFF, 4095);
  PutString(buffer, 0, "XXXXXXXX");  // what offset 0 would point at
  buffer[4095] = 'Q';                // no terminator behind it
  StorageDescriptorFields fields = ParseStorageDescriptor(buffer.data(), buffer.size());
  EXPECT_EQ(fields.VendorId + fields.ProductId + fields.Revision, "");
  EXPECT_EQ(fields.SerialNumber, "Q");

  // Bytes behind the 4096 the driver fills are never descriptor text.
  buffer.resize(4100, 'Y');
  EXPECT_EQ(ParseStorageDescriptor(buffer.data(), buffer.size()).ProductId, "");

  // A short buffer: strings end at its end, fields it lacks read as zero.
  buffer = Descriptor(0, 40, 60, 50);
  PutLe32(buffer, 28, 11);
  PutString(buffer, 40, "MODEL");
  PutString(buffer, 50, "SERIALXXXX");
  buffer.resize(56);
  fields = ParseStorageDescriptor(buffer.data(), buffer.size());
  EXPECT_EQ(fields.ProductId, "MODEL");
  EXPECT_EQ(fields.SerialNumber, "SERIAL");
  EXPECT_EQ(fields.Revision, "");
  EXPECT_EQ(fields.BusType, 11u);
  buffer.resize(30);
  EXPECT_EQ(ParseStorageDescriptor(buffer.data(), buffer.size()).BusType, 0u);
}

// ATA order: two characters a word, the first in the word's high byte.
void PutAtaString(std::vector<uint8_t>& identify, int firstWord, const std::string& text) {
  for (size_t i = 0; i < text.size(); ++i)
    identify[firstWord * 2 + (i ^ 1)] = static_cast<uint8_t>(text[i]);
}

TEST(IdentifyStringTest, ByteOrderAndTrimmingPerReader) {
  std::vector<uint8_t> identify(KyGuid::kIdentifyDataSize);
  const std::string zeroPadded = std::string("ABC") + std::string(17, '\0');
  PutAtaString(identify, 10, zeroPadded);
  PutAtaString(identify, 23, "CC43    ");
  PutAtaString(identify, 27, "  ST1000DM010-2EP102" + std::string(20, ' '));
  const uint8_t* data = identify.data();

  EXPECT_EQ(KyGuid::IdentifySwappedString(data, 20, 10), zeroPadded);
  EXPECT_EQ(KyGuid::IdentifySwappedString(data, 46, 4), "CC43    ");
  EXPECT_EQ(KyGuid::GetIdentifyString(data, 27, 46), "  ST1000DM010-2EP102");
  EXPECT_EQ(KyGuid::GetIdentifyString(data, 10, 19), zeroPadded);  // zeros are not blanks
  EXPECT_EQ(KyMacID::ConvertToString(data, 27, 46), "ST1000DM010-2EP102");
  EXPECT_EQ(KyMacID::ConvertToString(data, 23, 26), "CC43");

  // Word ranges reaching outside the block are cut to it.
  EXPECT_EQ(KyGuid::IdentifySwappedString(data, 508, 10).size(), 4u);
  EXPECT_EQ(KyGuid::GetIdentifyString(data, -1, 0).size(), 2u);
  EXPECT_EQ(KyGuid::GetIdentifyString(data, 5, 4), "");
  EXPECT_EQ(KyMacID::ConvertToString(data, 250, 1000).size(), 12u);
}

struct DecodeCase {
  std::string text;
  bool swap;
  std::string descriptorString;  // DecodeDescriptorString
  std::string flipped;           // flipAndCodeBytes
};

// The two decoders agree on the common cases and differ on purpose in the
// others, so each row shows both.
TEST(DescriptorStringDecodersTest, HexPlainSwapAndTrim) {
  const DecodeCase cases[] = {
      {"ST1000DM010", false, "ST1000DM010", "ST1000DM010"},
      {"  ST1000  ", false, "ST1000", "ST1000"},
      {"5A394131", false, "Z9A1", "Z9A1"},
      {"5a394131", true, "9Z1A", "9Z1A"},
      {"5a394131423243", true, "9Z1A2B", "9Z1A2BC"},  // odd length: lost vs kept
      {"ABCDEFG", true, "BADCFE", "BADCFEG"},
      {"2 41", false, "A", "A"},        // the blank stands for 0
      {"2\t41", false, "A", "2\t41"},   // other white space only in one
      {"1234", false, "1234", "1234"},  // 0x12 is not printable
      {"41004243", false, "A", "A"},    // decoded text ends at a zero byte
      {"414", false, "A", "A"},         // an odd last digit forms no byte
      {"2020", false, "  ", ""},        // white space only: kept vs trimmed
      {"AB\x01", false, "", "AB\x01"},  // plain text must be printable in one
      {"\tST1000\t", false, "", "\tST1000\t"},
      {"", true, "", ""},
  };
  for (const DecodeCase& c : cases) {
    std::vector<uint8_t> buffer(2048);
    PutString(buffer, 64, c.text);
    EXPECT_EQ(KyGuid::DecodeDescriptorString(buffer.data(), buffer.size(), 64, c.swap),
              c.descriptorString)
        << '"' << c.text << "\" swap " << c.swap;
    EXPECT_EQ(KyMacID::flipAndCodeBytes(buffer.data(), buffer.size(), 64, c.swap), c.flipped)
        << '"' << c.text << "\" flip " << c.swap;
  }
}

TEST(DescriptorStringDecodersTest, OffsetsAndUnterminatedText) {
  std::vector<uint8_t> buffer(32, 'A');
  buffer[4] = 0;
  const uint8_t* data = buffer.data();
  EXPECT_EQ(KyGuid::DecodeDescriptorString(data, buffer.size(), 0, false), "");
  EXPECT_EQ(KyGuid::DecodeDescriptorString(data, buffer.size(), 32, false), "");
  EXPECT_EQ(KyGuid::DecodeDescriptorString(data, buffer.size(), 28, false), "AAAA");
  EXPECT_EQ(KyMacID::flipAndCodeBytes(data, buffer.size(), 0, false), "");
  EXPECT_EQ(KyMacID::flipAndCodeBytes(data, buffer.size(), -5, false), "");
  EXPECT_EQ(KyMacID::flipAndCodeBytes(data, buffer.size(), 32, false), "");
  EXPECT_EQ(KyMacID::flipAndCodeBytes(data, buffer.size(), 28, false), "AAAA");
}

}  // namespace
