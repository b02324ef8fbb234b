// Ethernet frames, built from the outside of a station: addresses, protocols, right checksums.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace jexdata {

using Bytes = std::vector<uint8_t>;
using Mac = std::array<uint8_t, 6>;
using Ipv6Address = std::array<uint8_t, 16>;

/// Big-endian numbers at the end of `bytes`.
void put16(Bytes* bytes, uint32_t value);
void put32(Bytes* bytes, uint32_t value);
void append(Bytes* bytes, const Bytes& more);
/// A big-endian number in the middle.
void set16(Bytes* bytes, size_t at, uint32_t value);

inline constexpr Mac kBroadcast = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
Mac macOf(uint8_t network, uint32_t number);
Mac multicastMac(uint32_t ipv4);
Mac multicastMac(const Ipv6Address& ipv6);
/// `network` is the first eight bytes, `number` the last four.
Ipv6Address ipv6Of(uint64_t network, uint32_t number);

inline constexpr uint64_t kLinkLocal = 0xfe80000000000000;
inline constexpr uint64_t kDocumentation = 0x20010db800000000;  // 2001:db8::/32

enum EtherType : uint16_t {
  kIpv4Type = 0x0800,
  kArpType = 0x0806,
  kVlanType = 0x8100,
  kIpv6Type = 0x86DD,
  kServiceVlanType = 0x88A8,
};

enum Protocol : uint8_t {
  kHopByHop = 0,
  kIcmp = 1,
  kIgmp = 2,
  kTcp = 6,
  kUdp = 17,
  kRouting = 43,
  kFragment = 44,
  kGre = 47,
  kAuthentication = 51,
  kIcmpv6 = 58,
  kNoNext = 59,
  kDestinationOptions = 60,
};

/// 802.1Q tags, the outer one first; the outer of two is an 802.1ad tag.
using Tags = std::vector<uint16_t>;

/// A frame without padding.
Bytes bareFrame(const Mac& dst, const Mac& src, const Tags& tags, uint16_t type,
                const Bytes& payload);
/// Padded with zeros to the 60 bytes that Ethernet carries at least.
Bytes frameOf(const Mac& dst, const Mac& src, const Tags& tags, uint16_t type,
              const Bytes& payload);

struct Ipv4 {
  uint32_t src = 0, dst = 0;
  uint8_t protocol = 0;
  uint8_t ttl = 64;
  uint16_t id = 0;
  uint16_t fragment = 0;  // flags and offset, as they stand in the header
  Bytes options;          // a multiple of four bytes
};
/// The packet, with the header's checksum. Leaves `payload` as it is.
Bytes ipv4Packet(const Ipv4& header, const Bytes& payload);

struct Ipv6 {
  Ipv6Address src{}, dst{};
  uint8_t next = 0;
  uint8_t hop_limit = 64;
};
Bytes ipv6Packet(const Ipv6& header, const Bytes& payload);

// What IP carries. The checksum is zero: sumUp() fills it in.
Bytes udpDatagram(uint16_t sport, uint16_t dport, const Bytes& payload);
enum TcpFlag : uint8_t { kFin = 1, kSyn = 2, kRst = 4, kPsh = 8, kAck = 16 };
Bytes tcpSegment(uint16_t sport, uint16_t dport, uint32_t seq, uint32_t ack, uint8_t flags,
                 const Bytes& payload);
/// Of ICMP and ICMPv6: type, code and what follows the checksum.
Bytes icmpMessage(uint8_t type, uint8_t code, const Bytes& rest);

/// Fills in the checksum of a whole TCP segment, UDP datagram or ICMP message.
Bytes sumUp(const Ipv4& header, Bytes payload);
Bytes sumUp(const Ipv6& header, Bytes payload);

/// An ARP packet for IPv4 on Ethernet; `operation` is 1 for a request and 2 for a reply.
Bytes arpPacket(uint16_t operation, const Mac& sender, uint32_t sender_ip, const Mac& target,
                uint32_t target_ip);

}  // namespace jexdata
