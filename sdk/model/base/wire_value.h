// Numbers as bytes in network byte order and back.
#pragma once

#include <cstdint>
#include <cstring>

namespace jxmodel {

/// Writes the low `bytes` bytes of `value`; more than 8 are filled with zeroes from the left.
inline void writeNumber(uint64_t value, uint8_t* out, uint32_t bytes) {
  if (bytes == 4) {  // most numbers; one instruction
    for (uint32_t i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
    return;
  }
  for (uint32_t i = bytes; i-- > 0; value >>= 8) out[i] = static_cast<uint8_t>(value);
}

/// Reads up to 8 bytes.
inline uint64_t readNumber(const uint8_t* in, uint32_t bytes) {
  if (bytes == 4)
    return uint32_t{in[0]} << 24 | uint32_t{in[1]} << 16 | uint32_t{in[2]} << 8 | in[3];
  uint64_t value = 0;
  for (uint32_t i = 0; i < bytes; ++i) value = value << 8 | in[i];
  return value;
}

/// Whether a number can be the value of a field of `width` bits, set or read as one.
inline bool numberFits(uint64_t value, uint32_t width) {
  return width == 64 || (width < 64 && value >> width == 0);
}

}  // namespace jxmodel
