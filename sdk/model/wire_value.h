// Numbers as bytes in network byte order and back.
#pragma once

#include <cstdint>
#include <cstring>

namespace jxmodel {

/// Writes the low `bytes` bytes of `value`; more than 8 are filled with zeroes from the left.
inline void writeNumber(uint64_t value, uint8_t* out, uint32_t bytes) {
  for (uint32_t i = bytes; i-- > 0; value >>= 8) out[i] = static_cast<uint8_t>(value);
}

/// Reads up to 8 bytes.
inline uint64_t readNumber(const uint8_t* in, uint32_t bytes) {
  uint64_t value = 0;
  for (uint32_t i = 0; i < bytes; ++i) value = value << 8 | in[i];
  return value;
}

/// Whether a number can be the value of a field of `width` bits, set or read as one.
inline bool numberFits(uint64_t value, uint32_t width) {
  return width == 64 || (width < 64 && value >> width == 0);
}

}  // namespace jxmodel
