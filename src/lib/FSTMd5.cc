#include "FSTMd5.h"

#include <algorithm>
#include <cstring>

namespace {

uint32_t rotate(uint32_t x, int n) { return x << n | x >> (32 - n); }

// The shift of each step, and the sine table of RFC 1321.
int const shifts[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                        5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                        4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                        6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};
uint32_t const sines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

}  // namespace

FSTMd5::FSTMd5() : _state{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476} {}

void FSTMd5::_block(unsigned char const* block) {
  uint32_t m[16];
  for (int i = 0; i < 16; ++i)
    m[i] = uint32_t(block[4 * i]) | uint32_t(block[4 * i + 1]) << 8 |
           uint32_t(block[4 * i + 2]) << 16 | uint32_t(block[4 * i + 3]) << 24;
  uint32_t a = _state[0], b = _state[1], c = _state[2], d = _state[3];
  for (int i = 0; i < 64; ++i) {
    uint32_t f;
    int g;
    if (i < 16) f = (b & c) | (~b & d), g = i;
    else if (i < 32) f = (d & b) | (~d & c), g = (5 * i + 1) % 16;
    else if (i < 48) f = b ^ c ^ d, g = (3 * i + 5) % 16;
    else f = c ^ (b | ~d), g = (7 * i) % 16;
    uint32_t next = b + rotate(a + f + sines[i] + m[g], shifts[i]);
    a = d, d = c, c = b, b = next;
  }
  _state[0] += a, _state[1] += b, _state[2] += c, _state[3] += d;
}

void FSTMd5::update(void const* data, size_t size) {
  unsigned char const* bytes = static_cast<unsigned char const*>(data);
  size_t used = size_t(_bytes % 64);
  _bytes += size;
  if (used) {
    size_t take = std::min(size, 64 - used);
    std::memcpy(_buffer + used, bytes, take);
    bytes += take, size -= take;
    if (used + take < 64) return;
    _block(_buffer);
  }
  for (; size >= 64; bytes += 64, size -= 64) _block(bytes);
  std::memcpy(_buffer, bytes, size);
}

std::string FSTMd5::hex() {
  uint64_t const bits = _bytes * 8;
  unsigned char padding[72] = {0x80};
  size_t pad = (_bytes % 64 < 56 ? 56 : 120) - size_t(_bytes % 64);
  update(padding, pad);
  unsigned char length[8];
  for (int i = 0; i < 8; ++i) length[i] = (unsigned char)(bits >> (8 * i));
  update(length, 8);
  static char const digits[] = "0123456789abcdef";
  std::string out;
  for (uint32_t word : _state)
    for (int i = 0; i < 4; ++i) {
      unsigned byte = (word >> (8 * i)) & 0xff;
      out += digits[byte >> 4];
      out += digits[byte & 15];
    }
  return out;
}

std::string FSTMd5Hex(std::string const& bytes) {
  FSTMd5 md5;
  md5.update(bytes.data(), bytes.size());
  return md5.hex();
}
