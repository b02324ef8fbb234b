// The Internet checksum: over bytes, of whole headers, and corrected after a change of some bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "model/packet/headers.h"

namespace jxmodel {

/// Sum of the 16-bit words of `size` bytes, added to `sum`. A last odd byte counts as the high half
/// of a word. Sums of parts may be added if every part but the last has an even size.
uint64_t addWords(const uint8_t* data, size_t size, uint64_t sum = 0);

/// A sum of words in 16 bits, carries added in. 0 only where `sum` is 0.
uint16_t foldSum(uint64_t sum);

/// The checksum of `size` bytes.
inline uint16_t checksumOf(const uint8_t* data, size_t size) {
  return static_cast<uint16_t>(~foldSum(addWords(data, size)));
}

/// The checksum after words that summed up to `before` were replaced by words that sum up to
/// `after` (RFC 1624, equation 3). Wrong before means wrong after, by the same difference.
inline uint16_t adjustChecksum(uint16_t checksum, uint64_t before, uint64_t after) {
  const uint16_t old = static_cast<uint16_t>(~checksum);
  return static_cast<uint16_t>(
      ~foldSum(uint64_t{old} + static_cast<uint16_t>(~foldSum(before)) + foldSum(after)));
}

/// What the checksum of the IPv4 header has to be, whatever is written there. Empty without one.
std::optional<uint16_t> ipv4ChecksumOf(const uint8_t* data, const Headers& headers);

/// Offset of the checksum of TCP, UDP, ICMP or ICMPv6 in the frame. Empty without such a header.
std::optional<uint32_t> l4ChecksumOffset(const Headers& headers);

/// What the checksum of TCP, UDP, ICMP or ICMPv6 has to be, whatever is written there. Empty
/// without such a header, and where the frame does not have all that it covers: fragments, source
/// routing.
std::optional<uint16_t> l4ChecksumOf(const uint8_t* data, const Headers& headers);

}  // namespace jxmodel
