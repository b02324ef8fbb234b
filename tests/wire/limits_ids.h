// Ids of what programs/limits.json has, as raw counterparts write them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jextest {

inline constexpr uint32_t kExactDirect = 0x30001;  // does not age
inline constexpr uint32_t kViaGroups = 0x30006;    // does not age
inline constexpr uint32_t kAllKinds = 0x30007;     // ages
inline constexpr uint32_t kPairs = 0x3000A;        // 16 counters
inline constexpr uint32_t kNoPairs = 0x3000B;      // none
inline constexpr size_t kPairCount = 16;

inline constexpr uint32_t kAddresses = 0x38001;  // fields of 1, 9, 128 and 128 bits
inline constexpr uint32_t kAddressesBits = 1 + 9 + 128 + 128;
inline constexpr uint32_t kAddressesBytes = 1 + 2 + 16 + 16;

}  // namespace jextest
