#include "model/placement/placement.h"

#include <zlib.h>

#include <cstring>

namespace jxmodel {
namespace {

constexpr uint16_t kMagic = 0x504A;
constexpr uint8_t kVersion = 1;
constexpr size_t kHeaderBytes = sizeof(PlacementHeader);
constexpr size_t kChecksumOffset = offsetof(PlacementHeader, checksum);

bool keyFitsKind(const PlacementHeader& header) {
  return header.key_bytes == 0 || header.kind == PlacementKind::kMatch;
}

bool soundHeader(const PlacementHeader& header) {
  const auto kind = static_cast<uint8_t>(header.kind);
  return header.magic == kMagic && header.version == kVersion && kind >= 1 &&
         kind <= kLastPlacementKind && header.total_bytes <= kMaxPlacementBytes &&
         header.total_bytes == kHeaderBytes + header.key_bytes + header.param_bytes &&
         keyFitsKind(header);
}

uint32_t checksumOf(const uint8_t* packed, uint32_t total_bytes) {
  // The checksum ends the header, so that what it covers is two plain runs of bytes.
  static_assert(kChecksumOffset + 4 == kHeaderBytes);
  uLong sum = crc32(0, packed, kChecksumOffset);
  if (total_bytes > kHeaderBytes) {
    sum = crc32(sum, packed + kHeaderBytes, static_cast<uInt>(total_bytes - kHeaderBytes));
  }
  return static_cast<uint32_t>(sum);
}

Placement viewOf(const PlacementHeader& header, const uint8_t* bytes) {
  return {header, bytes + kHeaderBytes, bytes + kHeaderBytes + header.key_bytes};
}

}  // namespace

const void* PlacementBuffer::write(PlacementHeader header, const uint8_t* key, uint32_t key_bytes,
                                   const uint8_t* params, uint32_t param_bytes) {
  header.magic = kMagic;
  header.version = kVersion;
  header.total_bytes = static_cast<uint32_t>(kHeaderBytes) + key_bytes + param_bytes;
  header.key_bytes = static_cast<uint16_t>(key_bytes);
  header.param_bytes = static_cast<uint16_t>(param_bytes);
  header.checksum = 0;
  std::memcpy(bytes_, &header, kHeaderBytes);
  if (key_bytes != 0) std::memcpy(bytes_ + kHeaderBytes, key, key_bytes);
  if (param_bytes != 0) std::memcpy(bytes_ + kHeaderBytes + key_bytes, params, param_bytes);
  return bytes_;
}

bool readPlacement(const void* data, Placement* placement) {
  if (data == nullptr) return false;
  PlacementHeader header;
  std::memcpy(&header, data, kHeaderBytes);
  if (!soundHeader(header)) return false;
  *placement = viewOf(header, static_cast<const uint8_t*>(data));
  return true;
}

void packPlacement(const Placement& placement, uint8_t* packed) {
  const uint8_t* const bytes = placement.key - kHeaderBytes;
  std::memcpy(packed, bytes, placement.header.total_bytes);
  const uint32_t checksum = checksumOf(packed, placement.header.total_bytes);
  std::memcpy(packed + kChecksumOffset, &checksum, sizeof checksum);
}

uint32_t packedBytes(const uint8_t* packed) {
  PlacementHeader header;
  std::memcpy(&header, packed, kHeaderBytes);
  return soundHeader(header) ? header.total_bytes : 0;
}

bool decodePlacement(const uint8_t* packed, size_t available, Placement* placement) {
  if (available < kHeaderBytes) return false;
  PlacementHeader header;
  std::memcpy(&header, packed, kHeaderBytes);
  if (!soundHeader(header) || header.total_bytes > available) return false;
  if (checksumOf(packed, header.total_bytes) != header.checksum) return false;
  *placement = viewOf(header, packed);
  return true;
}

}  // namespace jxmodel
