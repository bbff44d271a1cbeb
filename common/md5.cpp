#include "common/md5.h"

#include <cstdint>
#include <cstring>

#include "common/strutil.h"

namespace KyGuidUtils {
namespace {

// floor(2^32 * |sin(i + 1)|)
constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

// Left-rotation amounts, four per round.
constexpr int kShift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

uint32_t RotateLeft(uint32_t value, int bits) { return value << bits | value >> (32 - bits); }

uint32_t LoadLe32(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

void StoreLe32(uint32_t value, uint8_t* bytes) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

class Md5 {
 public:
  Md5();
  void Update(const void* bytes, size_t length);
  // Ends the message; the object must not be updated afterwards.
  void Finish(uint8_t digest[16]);

 private:
  void Transform(const uint8_t block[64]);

  uint32_t m_state[4];
  uint64_t m_length = 0;  // message bytes so far
  uint8_t m_buffer[64];
};

Md5::Md5() : m_state{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, m_buffer{} {}

void Md5::Transform(const uint8_t block[64]) {
  uint32_t x[16];
  for (int i = 0; i < 16; ++i) x[i] = LoadLe32(block + 4 * i);

  uint32_t a = m_state[0], b = m_state[1], c = m_state[2], d = m_state[3];
  for (int i = 0; i < 64; ++i) {
    int round = i / 16;
    uint32_t f;
    int k;
    switch (round) {
      case 0:
        f = (b & c) | (~b & d);
        k = i;
        break;
      case 1:
        f = (b & d) | (c & ~d);
        k = (5 * i + 1) % 16;
        break;
      case 2:
        f = b ^ c ^ d;
        k = (3 * i + 5) % 16;
        break;
      default:
        f = c ^ (b | ~d);
        k = (7 * i) % 16;
        break;
    }
    uint32_t next = b + RotateLeft(a + f + x[k] + kSine[i], kShift[round][i % 4]);
    a = d;
    d = c;
    c = b;
    b = next;
  }
  m_state[0] += a;
  m_state[1] += b;
  m_state[2] += c;
  m_state[3] += d;
}

void Md5::Update(const void* bytes, size_t length) {
  if (length == 0) return;  // `bytes` may then be null
  const uint8_t* input = static_cast<const uint8_t*>(bytes);
  size_t used = static_cast<size_t>(m_length % 64);
  m_length += length;
  if (used > 0) {
    size_t take = 64 - used < length ? 64 - used : length;
    memcpy(m_buffer + used, input, take);
    input += take;
    length -= take;
    if (used + take < 64) return;
    Transform(m_buffer);
  }
  for (; length >= 64; input += 64, length -= 64) Transform(input);
  if (length > 0) memcpy(m_buffer, input, length);
}

void Md5::Finish(uint8_t digest[16]) {
  uint64_t bitLength = m_length * 8;
  // A 0x80 marker, zeros up to 56 mod 64, then the 64-bit bit count.
  static const uint8_t kPadding[64] = {0x80};
  size_t used = static_cast<size_t>(m_length % 64);
  Update(kPadding, used < 56 ? 56 - used : 120 - used);
  uint8_t lengthBytes[8];
  StoreLe32(static_cast<uint32_t>(bitLength), lengthBytes);
  StoreLe32(static_cast<uint32_t>(bitLength >> 32), lengthBytes + 4);
  Update(lengthBytes, 8);
  for (int i = 0; i < 4; ++i) StoreLe32(m_state[i], digest + 4 * i);
}

}  // namespace

std::string Md5Hex(const void* bytes, size_t length) {
  Md5 md5;
  md5.Update(bytes, length);
  uint8_t digest[16];
  md5.Finish(digest);
  return BytesToHex(digest, sizeof(digest));
}

std::string Md5Hex(const std::string& bytes) { return Md5Hex(bytes.data(), bytes.size()); }

}  // namespace KyGuidUtils
