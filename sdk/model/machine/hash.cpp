#include "model/machine/hash.h"

#include <zlib.h>

#include <algorithm>
#include <array>

#include "model/machine/limbs.h"
#include "model/packet/checksum.h"

namespace jxmodel {
namespace {

constexpr std::array<uint16_t, 256> crc16Table() {
  constexpr uint16_t kReflected = 0xA001;  // 0x8005
  std::array<uint16_t, 256> table{};
  for (uint32_t byte = 0; byte < table.size(); ++byte) {
    uint32_t value = byte;
    for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ ((value & 1) != 0 ? kReflected : 0U);
    table[byte] = static_cast<uint16_t>(value);
  }
  return table;
}
constexpr std::array<uint16_t, 256> kCrc16 = crc16Table();

}  // namespace

uint16_t crc16Of(const uint8_t* data, size_t size) {
  uint32_t crc = 0;
  for (size_t i = 0; i < size; ++i) crc = crc >> 8 ^ kCrc16[(crc ^ data[i]) & 0xFF];
  return static_cast<uint16_t>(crc);
}

uint16_t xor16Of(const uint8_t* data, size_t size) {
  uint32_t value = 0;
  for (size_t i = 0; i < size; ++i) value ^= static_cast<uint32_t>(data[i]) << (i % 2 == 0 ? 8 : 0);
  return static_cast<uint16_t>(value);
}

uint64_t hashOf(HashAlgorithm algorithm, const uint8_t* data, size_t size) {
  switch (algorithm) {
    case HashAlgorithm::kCsum16:
      return checksumOf(data, size);
    case HashAlgorithm::kXor16:
      return xor16Of(data, size);
    case HashAlgorithm::kCrc16:
      return crc16Of(data, size);
    case HashAlgorithm::kCrc32:
      return crc32_z(0, data, size);
    case HashAlgorithm::kIdentity:
      return size == 0 ? 0 : loadBig(data, static_cast<uint32_t>(std::min<size_t>(size, 8)));
    case HashAlgorithm::kRandom:
      break;
  }
  return 0;
}

}  // namespace jxmodel
