// The algorithms of calculations, over bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "model/program/machine.h"

namespace jxmodel {

/// CRC-16 with the polynomial 0x8005, bits reflected, start 0: 0xBB3D of "123456789".
uint16_t crc16Of(const uint8_t* data, size_t size);
/// Exclusive or of the 16-bit words; a last odd byte is the high half of a word.
uint16_t xor16Of(const uint8_t* data, size_t size);

/// The value of any algorithm but kRandom.
uint64_t hashOf(HashAlgorithm algorithm, const uint8_t* data, size_t size);

}  // namespace jxmodel
