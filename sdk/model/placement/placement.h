// Placement data: what an update places. One flat block, a header and behind it the packed key and
// the packed action parameters; it refers to nothing outside itself. Packed, it is the same
// bytes with the checksum filled in.
//
// Bytes are in the host's order: placement data never leaves the machine.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jxsdk/types.h"

namespace jxmodel {

enum class PlacementKind : uint8_t {
  kMatch = 1,         // an entry: key, and action with parameters or a reference
  kMatchDefault = 2,  // the default entry: no key
  kMember = 3,        // a member of an action-data table
  kGroupMember = 4,   // a member as it joins a group
  kFallback = 5,      // a member as it becomes the fallback
};
inline constexpr uint8_t kLastPlacementKind = 5;

struct PlacementHeader {
  uint16_t magic;
  uint8_t version;
  PlacementKind kind;
  uint32_t total_bytes;   // header, key and parameters
  uint32_t table_handle;  // the table written
  uint32_t action_id;     // 0 where the entry refers to a member or group
  uint16_t key_bytes;
  uint16_t param_bytes;
  uint32_t ttl_ms;
  uint32_t target_id;  // the writer's number of the member (or group) that is placed or meant
  uint32_t checksum;   // CRC-32 of all bytes but these four
};
static_assert(sizeof(PlacementHeader) == 32);
static_assert(offsetof(PlacementHeader, total_bytes) == 4);
static_assert(offsetof(PlacementHeader, key_bytes) == 16);
static_assert(offsetof(PlacementHeader, checksum) == 28);

/// Bytes that placement data may have at most.
inline constexpr uint32_t kMaxPlacementBytes = 8192;

/// A view of placement data that has been checked.
struct Placement {
  PlacementHeader header;
  const uint8_t* key;
  const uint8_t* params;
};

/// One block of placement data that is being written.
class PlacementBuffer {
 public:
  /// Writes the block: magic, version and lengths of `header` are filled in. There has to be room:
  /// devices refuse tables that kMaxPlacementBytes cannot hold.
  const void* write(PlacementHeader header, const uint8_t* key, uint32_t key_bytes,
                    const uint8_t* params, uint32_t param_bytes);

 private:
  alignas(8) uint8_t bytes_[kMaxPlacementBytes];
};

/// Reads unpacked data, which its maker owns and so is as long as it says. False, and nothing
/// written, if it is no placement data.
bool readPlacement(const void* data, Placement* placement);

/// Packs checked data: header.total_bytes bytes.
void packPlacement(const Placement& placement, uint8_t* packed);

/// Decodes packed bytes of which `available` may be read. False, and nothing written, if they are
/// not one block with a right checksum at their beginning.
bool decodePlacement(const uint8_t* packed, size_t available, Placement* placement);

/// The length that packed bytes say they have, 0 if their header is no placement header. Reads the
/// header alone.
uint32_t packedBytes(const uint8_t* packed);

}  // namespace jxmodel
