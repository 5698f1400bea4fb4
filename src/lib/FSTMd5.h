// The MD5 message digest (RFC 1321), for the digests the packed n-gram writer prints. Linear in
// the bytes; 88 bytes of state.
#ifndef T2SFST_FSTMD5_H
#define T2SFST_FSTMD5_H

#include <cstddef>
#include <cstdint>
#include <string>

class FSTMd5 {
 public:
  FSTMd5();
  void update(void const* data, size_t size);
  // The digest as 32 lowercase hexadecimal digits; the object is spent afterwards.
  std::string hex();

 private:
  void _block(unsigned char const* block);

  uint32_t _state[4];
  uint64_t _bytes = 0;
  unsigned char _buffer[64];
};

// The digest of a string, in hexadecimal.
std::string FSTMd5Hex(std::string const& bytes);

#endif
