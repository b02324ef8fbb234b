// Frames made by hand, from the inside out: ethernet(kIpv4Type, ipv4(kTcp, tcp({1, 2, 3}))).
// Lengths are right, checksums are computed here, word by word, without the code under test.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace jxmodel::frames {

using Bytes = std::vector<uint8_t>;

inline constexpr uint16_t kIpv4Type = 0x0800, kArpType = 0x0806, kVlanType = 0x8100,
                          kIpv6Type = 0x86DD, kServiceVlanType = 0x88A8;
inline constexpr uint8_t kIcmp = 1, kTcp = 6, kUdp = 17, kIcmpv6 = 58;
inline constexpr uint8_t kHopByHop = 0, kRouting = 43, kFragment = 44, kEncryption = 50,
                         kAuthentication = 51, kNoNext = 59, kDestination = 60;

Bytes join(std::initializer_list<Bytes> parts);

/// From 0a:0b:0c:0d:0e:0f to 02:03:04:05:06:07.
Bytes ethernet(uint16_t type, const Bytes& inside);
/// A tag's priority, drop and id bits with what it contains.
Bytes tag(uint16_t bits, uint16_t type, const Bytes& inside);
/// A request from 192.0.2.1 for 192.0.2.2.
Bytes arp();
/// From 192.0.2.1 to 198.51.100.2, TTL 64. `options` of a multiple of 4 bytes; `fragment` = flags
/// and offset.
Bytes ipv4(uint8_t protocol, const Bytes& inside, const Bytes& options = {}, uint16_t fragment = 0);
/// From 2001:db8::1 to 2001:db8::2, traffic class 0xAB, flow label 0xCDEF1, hop limit 63.
Bytes ipv6(uint8_t next, const Bytes& inside);
/// An extension header of 8 + `more` bytes (a multiple of 8), but for the authentication header.
Bytes extension(uint8_t next, uint32_t more, const Bytes& inside);
Bytes authentication(uint8_t next, const Bytes& inside);
/// A routing header of 24 bytes with one stop.
Bytes routing(uint8_t next, uint8_t segments_left, const Bytes& inside);
/// `bits` = offset and "more fragments".
Bytes fragmentHeader(uint8_t next, uint16_t bits, const Bytes& inside);

/// Ports 4660 and 443, flags 0x12.
Bytes tcp(const Bytes& payload, const Bytes& options = {});
/// Ports 22136 and 53.
Bytes udp(const Bytes& payload);
/// Echo requests.
Bytes icmp(const Bytes& payload);
Bytes icmpv6(const Bytes& payload);

/// The checksum over `bytes` that makes the sum of all words 0xFFFF, one word after the other.
uint16_t plainChecksum(const Bytes& bytes);
/// That of an IPv4 header beginning at `ip`, whatever is written there.
uint16_t plainIpv4Checksum(const Bytes& frame, size_t ip);
/// That of the segment of `protocol` from `l4` to `end`, with the addresses of the IP header at
/// `ip`, whatever is written there.
uint16_t plainL4Checksum(const Bytes& frame, size_t ip, uint8_t protocol, size_t l4, size_t end);
/// Where the checksum lies in a segment of `protocol`.
size_t checksumPlace(uint8_t protocol);

uint16_t word(const Bytes& frame, size_t at);
void setWord(Bytes* frame, size_t at, uint16_t value);

/// A right frame of each kind that the parser knows, checksums filled in.
struct Sample {
  std::string name;
  Bytes frame;
  size_t ip = 0;  // offset; 0 if none
  uint8_t protocol = 0;
  size_t l4 = 0;  // offset; 0 if none
};
std::vector<Sample> samples(const Bytes& payload);

}  // namespace jxmodel::frames
