// Numbers in network byte order at any address.
#pragma once

#include <cstdint>

namespace jxmodel {

constexpr uint16_t read16(const uint8_t* at) { return static_cast<uint16_t>(at[0] << 8 | at[1]); }

constexpr uint32_t read32(const uint8_t* at) {
  return static_cast<uint32_t>(at[0]) << 24 | static_cast<uint32_t>(at[1]) << 16 |
         static_cast<uint32_t>(at[2]) << 8 | at[3];
}

constexpr void write16(uint8_t* at, uint16_t value) {
  at[0] = static_cast<uint8_t>(value >> 8);
  at[1] = static_cast<uint8_t>(value);
}

}  // namespace jxmodel
