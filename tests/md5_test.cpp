#include "common/md5.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using KyGuidUtils::Md5Hex;

std::string Letters(size_t length) {
  std::string text;
  for (size_t i = 0; i < length; ++i) text.push_back(static_cast<char>('a' + i % 26));
  return text;
}

// The RFC 1321 test suite, then lengths around the padding boundaries (55
// still fits the length into its block, 56..63 spill it into another, 64
// fills a block), then every byte value; digests of the latter from md5sum.
TEST(Md5Test, KnownDigests) {
  std::string allBytes;
  for (int i = 0; i < 256; ++i) allBytes.push_back(static_cast<char>(i));
  const struct {
    std::string input;
    const char* digest;
  } cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      {Letters(55), "0d7ae056b2f015cd7dc67494efd658f1"},
      {Letters(56), "31fcfb5165169eb55898e7e4cf34d19a"},
      {Letters(57), "fd62afaf3aa1e2a52882cb464f5ccc4d"},
      {Letters(63), "1b30c0670c15e7da3c2ba7bce77ebe99"},
      {Letters(64), "a2eaf6295c32adc403865fd96a2f182b"},
      {Letters(65), "eba2cce0ca8df47e62414a736b3105a2"},
      {Letters(119), "b05187e08da41fa3ef16bd56afaafd99"},
      {Letters(120), "62af9b597a9f55e16ab2b897387fc052"},
      {Letters(128), "3e8c1ccbd71838ef3df4b72e57fb9bf6"},
      {allBytes, "e2c865db4162bed963bfaa9ef6ac18f0"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Md5Hex(c.input), c.digest) << "length " << c.input.size();
  }
  EXPECT_EQ(Md5Hex(nullptr, 0), "d41d8cd98f00b204e9800998ecf8427e");
}

}  // namespace
