// What headers a frame has and where they lie. Pure functions on bytes: no device, no thread, no
// memory of its own. The parser reads nothing behind the size that it is given.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace jxmodel {

/// A header that a program can ask for. kL4 stands for the ports of TCP or UDP, and is there when
/// one of the two is. kMeta is what the switch knows of a packet, and is always there.
enum class Header : uint8_t {
  kEthernet,
  kVlan,   // the outer tag, or the only one
  kVlan1,  // the inner tag of two
  kArp,    // for IPv4 on Ethernet; any other is payload
  kIpv4,
  kIpv6,
  kTcp,
  kUdp,
  kIcmp,
  kIcmpv6,
  kL4,
  kMeta,
};
inline constexpr size_t kHeaderCount = static_cast<size_t>(Header::kMeta) + 1;

/// "ethernet", "vlan", "vlan1", "arp", ... as programs name them; empty if there is none like it.
std::optional<Header> findHeader(std::string_view name);
const char* nameOf(Header header);

/// Offsets are bytes from the begin of the frame.
struct Headers {
  uint32_t valid = 0;  // bit i: Header i is there
  /// Of each header that is there. A tag begins with its priority and id, behind the 0x8100.
  std::array<uint16_t, kHeaderCount> offset{};
  uint32_t payload = 0;  // what follows the last known header
  /// End of what the IP header says to be the datagram; of the frame where there is none. What
  /// stands between here and the end of the frame is padding.
  uint32_t end = 0;
  bool fragment = false;  // of an IP datagram, the first one or a later one
  /// The address in ipv4.dst or ipv6.dst is not that of the last receiver (source routing). The
  /// checksum of TCP, UDP and ICMPv6 is made with another then.
  bool source_routed = false;

  bool has(Header header) const { return (valid >> static_cast<unsigned>(header) & 1) != 0; }
  uint16_t at(Header header) const { return offset[static_cast<size_t>(header)]; }
};

/// Why a frame cannot be forwarded.
enum class ParseStatus : uint8_t {
  kOk,
  // The frame ends before a header that it announces does.
  kCutByCapture,  // the capture kept less of the frame than was on the wire
  kTruncatedEthernet,
  kTruncatedVlan,
  kTruncatedArp,
  kTruncatedIpv4,
  kTruncatedIpv6,
  kTruncatedIpv6Extension,
  kTruncatedTcp,
  kTruncatedUdp,
  kTruncatedIcmp,
  kTruncatedIcmpv6,
  // A header contradicts itself or the frame.
  kIpv4Version,
  kIpv4HeaderLength,
  kIpv4TotalLength,
  kIpv6Version,
  kIpv6PayloadLength,
  kIpv6TooManyExtensions,
  kTcpHeaderLength,
  kUdpLength,
};
inline constexpr size_t kParseStatusCount = static_cast<size_t>(ParseStatus::kUdpLength) + 1;

/// One line for people: "TCP header is truncated".
const char* reasonOf(ParseStatus status);
/// True for the reasons that say that bytes are missing, false for contradictions and for kOk.
bool isTruncated(ParseStatus status);

/// Extension headers of one IPv6 packet that the parser walks along.
inline constexpr unsigned kMaxIpv6Extensions = 8;

/// Finds the headers of the `size` bytes at `data`: Ethernet, up to two 802.1Q or 802.1ad tags,
/// ARP, IPv4 with options, IPv6 with its extension headers, TCP, UDP, ICMP, ICMPv6. Anything else,
/// and what follows the first bytes of a fragmented datagram, is payload. *out is filled in any
/// case; unless kOk is returned it holds the headers in front of the wrong one.
ParseStatus parse(const uint8_t* data, size_t size, Headers* out);

/// The same for a frame from a capture that may have kept only the first `size` of `wire_size`
/// bytes. Such a frame is kCutByCapture, and nothing of it is parsed.
ParseStatus parse(const uint8_t* data, size_t size, size_t wire_size, Headers* out);

}  // namespace jxmodel
