// Frames with right checksums, made by hand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace jxpipelinetest {

using Bytes = std::vector<uint8_t>;

struct Flow {
  uint32_t src = 0;
  uint32_t dst = 0;
  uint8_t protocol = 17;  // 6, 17, or one without ports
  uint16_t sport = 0;
  uint16_t dport = 0;
};

/// An IPv4 frame, with a TCP or UDP header where the protocol is one of these.
Bytes ipv4Frame(const Flow& flow, uint8_t ttl = 64);
/// The same behind one 802.1Q tag.
Bytes taggedFrame(const Flow& flow, uint16_t vid);
/// A frame of a type that nobody parses.
Bytes otherFrame();

uint64_t numberAt(const Bytes& frame, size_t offset, size_t bytes);

// Places in an untagged IPv4 frame.
inline constexpr size_t kEthernetDst = 0, kEthernetSrc = 6, kFragment = 20, kTtl = 22,
                        kIpv4Src = 26, kIpv4Dst = 30;

}  // namespace jxpipelinetest
