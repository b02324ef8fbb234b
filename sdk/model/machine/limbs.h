// Values of fields as 64-bit words, the least significant first, and their bits in packets.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "model/base/words.h"

namespace jxmodel {

constexpr uint32_t limbsOf(uint32_t bits) { return (bits + 63) / 64; }

/// The lowest `bits` bits.
constexpr uint64_t maskOf(uint32_t bits) {
  return bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
}

/// Clears what the highest word has beyond the width.
inline void cutTop(uint64_t* limbs, uint32_t width) {
  if (width % 64 != 0) limbs[width / 64] &= maskOf(width % 64);
}

/// Numbers in network byte order, without a call for a copy of a length that is not known.
inline uint64_t loadBig64(const uint8_t* at) {
  uint64_t value = 0;
  std::memcpy(&value, at, sizeof value);
  return __builtin_bswap64(value);
}
inline uint32_t loadBig32(const uint8_t* at) {
  uint32_t value = 0;
  std::memcpy(&value, at, sizeof value);
  return __builtin_bswap32(value);
}
inline uint16_t loadBig16(const uint8_t* at) {
  uint16_t value = 0;
  std::memcpy(&value, at, sizeof value);
  return __builtin_bswap16(value);
}
inline void storeBig64(uint64_t value, uint8_t* at) {
  value = __builtin_bswap64(value);
  std::memcpy(at, &value, sizeof value);
}
inline void storeBig32(uint32_t value, uint8_t* at) {
  value = __builtin_bswap32(value);
  std::memcpy(at, &value, sizeof value);
}
inline void storeBig16(uint16_t value, uint8_t* at) {
  value = __builtin_bswap16(value);
  std::memcpy(at, &value, sizeof value);
}

/// Writes the low `bytes` bytes of the value, 1 to 8, in network byte order. The first and the last
/// of them are written together; what lies in both is written twice.
inline void storeBig(uint64_t value, uint8_t* at, uint32_t bytes) {
  if (bytes == 8) return storeBig64(value, at);
  if (bytes >= 4) {
    storeBig32(static_cast<uint32_t>(value >> 8 * (bytes - 4)), at);
    return storeBig32(static_cast<uint32_t>(value), at + bytes - 4);
  }
  if (bytes >= 2) storeBig16(static_cast<uint16_t>(value >> 8 * (bytes - 2)), at);
  at[bytes - 1] = static_cast<uint8_t>(value);
}
/// Reads 1 to 8 bytes in network byte order; likewise.
inline uint64_t loadBig(const uint8_t* at, uint32_t bytes) {
  if (bytes == 8) return loadBig64(at);
  if (bytes >= 4) {
    return uint64_t{loadBig32(at)} << 8 * (bytes - 4) | loadBig32(at + bytes - 4);
  }
  if (bytes == 1) return *at;
  return uint64_t{loadBig16(at)} << 8 * (bytes - 2) | loadBig16(at + bytes - 2);
}

/// Reads 1 to 64 bits; bit 0 is the top bit of the first byte.
inline uint64_t loadBits64(const uint8_t* data, uint64_t bit, uint32_t bits) {
  const uint8_t* at = data + bit / 8;
  const auto skipped = static_cast<uint32_t>(bit % 8);
  const uint32_t bytes = (skipped + bits + 7) / 8;
  if (bytes <= 8) return loadBig(at, bytes) >> (8 * bytes - skipped - bits) & maskOf(bits);
  const uint32_t rest = skipped + bits - 64;  // bits in the ninth byte
  return (loadBig64(at) << rest | at[8] >> (8 - rest)) & maskOf(bits);
}
/// Reads a value of `width` bits into limbsOf(width) words.
inline void loadBits(const uint8_t* data, uint64_t bit, uint32_t width, uint64_t* limbs) {
  for (uint64_t end = bit + width; width != 0;) {
    const uint32_t bits = std::min<uint32_t>(width, 64);
    end -= bits;
    *limbs++ = loadBits64(data, end, bits);
    width -= bits;
  }
}

/// Writes 1 to 64 bits and leaves those around them.
inline void storeBits64(uint64_t value, uint8_t* data, uint64_t bit, uint32_t bits) {
  uint64_t end = bit + bits;
  while (bits != 0) {
    const auto shift = static_cast<uint32_t>(-end % 8);  // bits of the last byte behind the value
    const uint32_t count = std::min(bits, 8 - shift);
    uint8_t& byte = data[(end - 1) / 8];
    const auto mask = static_cast<uint8_t>(maskOf(count) << shift);
    byte = static_cast<uint8_t>((byte & ~mask) | (static_cast<uint8_t>(value << shift) & mask));
    value >>= count;
    end -= count;
    bits -= count;
  }
}
/// Writes a value of `width` bits.
inline void storeBits(const uint64_t* limbs, uint32_t width, uint8_t* data, uint64_t bit) {
  for (uint64_t end = bit + width; width != 0;) {
    const uint32_t bits = std::min<uint32_t>(width, 64);
    end -= bits;
    storeBits64(*limbs++, data, end, bits);
    width -= bits;
  }
}

/// Writes the low `bytes` bytes of `count` words in network byte order.
inline void limbsToBytes(const uint64_t* limbs, uint32_t count, uint8_t* out, uint32_t bytes) {
  for (uint32_t i = 0; i < count && bytes != 0; ++i) {
    const uint32_t some = std::min<uint32_t>(bytes, 8);
    bytes -= some;
    storeBig(limbs[i], out + bytes, some);
  }
  std::memset(out, 0, bytes);
}
/// Reads bytes in network byte order into `count` words: cut, or filled with zeros.
inline void bytesToLimbs(const uint8_t* in, uint32_t bytes, uint64_t* limbs, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t some = std::min<uint32_t>(bytes, 8);
    bytes -= some;
    limbs[i] = some == 0 ? 0 : loadBig(in + bytes, some);
  }
}

}  // namespace jxmodel
