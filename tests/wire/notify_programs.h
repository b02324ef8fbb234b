// Programs that no device of the product carries: written into the run directory.
#pragma once

#include <cstdint>
#include <string>

namespace jextest {

/// File of program "bits" (id 40): digests whose fields are no whole bytes.
std::string bitsProgram();
inline constexpr uint32_t kThreeBits = 40 << 16 | 0x8001;    // three_bits: 1, 1 and 1 bits
inline constexpr uint32_t kTwoAndThree = 40 << 16 | 0x8002;  // two_and_three: 13 and 19 bits

/// File of program "many" (id 41): digests d1, d2, ... of one field of 64 bits, and tables t1, t2,
/// ... that age.
std::string manyProgram(uint32_t digests, uint32_t tables);
inline constexpr uint32_t manyDigest(uint32_t n) { return 41u << 16 | 0x8000 | n; }
inline constexpr uint32_t manyTable(uint32_t n) { return 41u << 16 | n; }

}  // namespace jextest
