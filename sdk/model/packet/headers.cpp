#include "model/packet/headers.h"

#include <algorithm>

#include "model/packet/bytes.h"

namespace jxmodel {
namespace {

constexpr uint32_t kEthernetBytes = 14;
constexpr uint32_t kVlanBytes = 4;
constexpr uint32_t kArpBytes = 28;
constexpr uint32_t kIpv4Bytes = 20;
constexpr uint32_t kIpv6Bytes = 40;
constexpr uint32_t kTcpBytes = 20;
constexpr uint32_t kUdpBytes = 8;
constexpr uint32_t kIcmpBytes = 8;
constexpr uint32_t kIcmpv6Bytes = 4;  // a message may consist of type, code and checksum alone

enum EtherType : uint16_t {
  kTypeIpv4 = 0x0800,
  kTypeArp = 0x0806,
  kTypeVlan = 0x8100,
  kTypeIpv6 = 0x86DD,
  kTypeServiceVlan = 0x88A8,
};

enum Protocol : uint8_t {
  kProtocolHopByHop = 0,
  kProtocolIcmp = 1,
  kProtocolTcp = 6,
  kProtocolUdp = 17,
  kProtocolRouting = 43,
  kProtocolFragment = 44,
  kProtocolAuthentication = 51,
  kProtocolIcmpv6 = 58,
  kProtocolDestination = 60,
};

// True if an option of the IPv4 header names stops at which the packet has not been yet.
bool hasSourceRoute(const uint8_t* options, const uint8_t* end) {
  constexpr uint8_t kEndOfList = 0, kNoOperation = 1, kLoose = 131, kStrict = 137;
  while (options < end && *options != kEndOfList) {
    if (*options == kNoOperation) {
      ++options;
      continue;
    }
    // Kind, length, and the pointer to the next stop.
    if (end - options < 2 || options[1] < 2 || options[1] > end - options) return false;
    if (*options == kLoose || *options == kStrict) return options[1] > 2 && options[2] < options[1];
    options += options[1];
  }
  return false;
}

// Walks along one frame. `end_` narrows to the end of the datagram once an IP header told it.
class Parser {
 public:
  Parser(const uint8_t* data, uint32_t size, Headers* out) : data_(data), out_(out) {
    *out_ = Headers{};
    out_->valid = 1U << static_cast<unsigned>(Header::kMeta);
    out_->end = size;
  }

  ParseStatus ethernet() {
    if (left() < kEthernetBytes) return ParseStatus::kTruncatedEthernet;
    found(Header::kEthernet);
    uint16_t type = read16(data_ + 12);
    take(kEthernetBytes);
    for (const Header tag : {Header::kVlan, Header::kVlan1}) {
      if (type != kTypeVlan && type != kTypeServiceVlan) break;
      if (left() < kVlanBytes) return ParseStatus::kTruncatedVlan;
      found(tag);
      type = read16(here() + 2);
      take(kVlanBytes);
    }
    switch (type) {
      case kTypeIpv4:
        return ipv4();
      case kTypeIpv6:
        return ipv6();
      case kTypeArp:
        return arp();
      default:
        return ParseStatus::kOk;
    }
  }

 private:
  uint32_t left() const { return out_->end - out_->payload; }
  const uint8_t* here() const { return data_ + out_->payload; }
  void take(uint32_t bytes) { out_->payload += bytes; }
  void found(Header header) {
    out_->valid |= 1U << static_cast<unsigned>(header);
    out_->offset[static_cast<size_t>(header)] = static_cast<uint16_t>(out_->payload);
  }

  ParseStatus arp() {
    // Hardware Ethernet, protocol IPv4, addresses of 6 and 4 bytes. Others may be shorter.
    constexpr uint8_t kIpv4OnEthernet[] = {0, 1, 8, 0, 6, 4};
    if (left() < sizeof kIpv4OnEthernet) return ParseStatus::kTruncatedArp;
    if (!std::equal(std::begin(kIpv4OnEthernet), std::end(kIpv4OnEthernet), here())) {
      return ParseStatus::kOk;
    }
    if (left() < kArpBytes) return ParseStatus::kTruncatedArp;
    found(Header::kArp);
    take(kArpBytes);
    return ParseStatus::kOk;
  }

  ParseStatus ipv4() {
    if (left() < kIpv4Bytes) return ParseStatus::kTruncatedIpv4;
    const uint8_t* ip = here();
    if (ip[0] >> 4 != 4) return ParseStatus::kIpv4Version;
    const uint32_t header_bytes = (ip[0] & 0x0FU) * 4;
    if (header_bytes < kIpv4Bytes) return ParseStatus::kIpv4HeaderLength;
    if (header_bytes > left()) return ParseStatus::kTruncatedIpv4;
    const uint32_t total = read16(ip + 2);
    if (total < header_bytes || total > left()) return ParseStatus::kIpv4TotalLength;

    found(Header::kIpv4);
    out_->end = out_->payload + total;
    take(header_bytes);
    if (header_bytes > kIpv4Bytes) {
      out_->source_routed = hasSourceRoute(ip + kIpv4Bytes, ip + header_bytes);
    }
    const uint16_t fragment = read16(ip + 6);
    const bool first = (fragment & 0x1FFF) == 0;
    out_->fragment = (fragment & 0x3FFF) != 0;  // an offset, or more fragments to come
    if (!first) return ParseStatus::kOk;
    return ip[9] == kProtocolIcmp ? icmp() : transport(ip[9]);
  }

  ParseStatus ipv6() {
    if (left() < kIpv6Bytes) return ParseStatus::kTruncatedIpv6;
    const uint8_t* ip = here();
    if (ip[0] >> 4 != 6) return ParseStatus::kIpv6Version;
    const uint32_t length = read16(ip + 4);
    if (length > left() - kIpv6Bytes) return ParseStatus::kIpv6PayloadLength;

    found(Header::kIpv6);
    take(kIpv6Bytes);
    out_->end = out_->payload + length;
    return ipv6Extensions(ip[6]);
  }

  ParseStatus ipv6Extensions(uint8_t next) {
    for (unsigned walked = 0; isExtension(next); ++walked) {
      if (walked == kMaxIpv6Extensions) return ParseStatus::kIpv6TooManyExtensions;
      if (left() < 8) return ParseStatus::kTruncatedIpv6Extension;
      const uint8_t* extension = here();
      const uint32_t bytes = extensionBytes(next, extension);
      if (left() < bytes) return ParseStatus::kTruncatedIpv6Extension;
      take(bytes);
      if (next == kProtocolRouting && extension[3] > 0) out_->source_routed = true;
      if (next == kProtocolFragment) {
        const uint16_t fragment = read16(extension + 2);
        if ((fragment & 0xFFF9) != 0) out_->fragment = true;  // an offset, or more to come
        if ((fragment & 0xFFF8) != 0) return ParseStatus::kOk;
      }
      next = extension[0];
    }
    return next == kProtocolIcmpv6 ? icmpv6() : transport(next);
  }

  static bool isExtension(uint8_t next) {
    return next == kProtocolHopByHop || next == kProtocolRouting || next == kProtocolFragment ||
           next == kProtocolAuthentication || next == kProtocolDestination;
  }

  static uint32_t extensionBytes(uint8_t kind, const uint8_t* extension) {
    if (kind == kProtocolFragment) return 8;
    // The authentication header counts in 4 bytes, and leaves out two of them; the others in 8.
    if (kind == kProtocolAuthentication) return (extension[1] + 2U) * 4;
    return (extension[1] + 1U) * 8;
  }

  ParseStatus transport(uint8_t protocol) {
    if (protocol == kProtocolTcp) return tcp();
    if (protocol == kProtocolUdp) return udp();
    return ParseStatus::kOk;
  }

  ParseStatus tcp() {
    if (left() < kTcpBytes) return ParseStatus::kTruncatedTcp;
    const uint32_t header_bytes = (here()[12] >> 4) * 4U;
    if (header_bytes < kTcpBytes) return ParseStatus::kTcpHeaderLength;
    if (header_bytes > left()) return ParseStatus::kTruncatedTcp;
    found(Header::kTcp);
    found(Header::kL4);
    take(header_bytes);
    return ParseStatus::kOk;
  }

  ParseStatus udp() {
    if (left() < kUdpBytes) return ParseStatus::kTruncatedUdp;
    const uint32_t length = read16(here() + 4);
    // The length in a first fragment is that of the datagram put together.
    if (length < kUdpBytes || (length > left() && !out_->fragment)) return ParseStatus::kUdpLength;
    found(Header::kUdp);
    found(Header::kL4);
    take(kUdpBytes);
    return ParseStatus::kOk;
  }

  ParseStatus icmp() {
    if (left() < kIcmpBytes) return ParseStatus::kTruncatedIcmp;
    found(Header::kIcmp);
    take(kIcmpBytes);
    return ParseStatus::kOk;
  }

  ParseStatus icmpv6() {
    if (left() < kIcmpv6Bytes) return ParseStatus::kTruncatedIcmpv6;
    found(Header::kIcmpv6);
    take(kIcmpv6Bytes);
    return ParseStatus::kOk;
  }

  const uint8_t* data_;
  Headers* out_;
};

constexpr const char* kHeaderNames[] = {"ethernet", "vlan", "vlan1", "arp",    "ipv4", "ipv6",
                                        "tcp",      "udp",  "icmp",  "icmpv6", "l4",   "meta"};
static_assert(std::size(kHeaderNames) == kHeaderCount);

constexpr const char* kReasons[] = {
    "no error",
    "frame was cut by the capture",
    "Ethernet header is truncated",
    "VLAN tag is truncated",
    "ARP packet is truncated",
    "IPv4 header is truncated",
    "IPv6 header is truncated",
    "IPv6 extension header is truncated",
    "TCP header is truncated",
    "UDP header is truncated",
    "ICMP header is truncated",
    "ICMPv6 header is truncated",
    "IPv4 version is not 4",
    "IPv4 header length is below 20 bytes",
    "IPv4 total length does not fit the frame",
    "IPv6 version is not 6",
    "IPv6 payload length exceeds the frame",
    "IPv6 packet has too many extension headers",
    "TCP header length is below 20 bytes",
    "UDP length does not fit the datagram",
};
static_assert(std::size(kReasons) == kParseStatusCount);

}  // namespace

std::optional<Header> findHeader(std::string_view name) {
  const auto* found = std::find(std::begin(kHeaderNames), std::end(kHeaderNames), name);
  if (found == std::end(kHeaderNames)) return std::nullopt;
  return static_cast<Header>(found - std::begin(kHeaderNames));
}

const char* nameOf(Header header) { return kHeaderNames[static_cast<size_t>(header)]; }

const char* reasonOf(ParseStatus status) { return kReasons[static_cast<size_t>(status)]; }

bool isTruncated(ParseStatus status) {
  return status >= ParseStatus::kCutByCapture && status <= ParseStatus::kTruncatedIcmpv6;
}

ParseStatus parse(const uint8_t* data, size_t size, Headers* out) {
  return Parser(data, static_cast<uint32_t>(size), out).ethernet();
}

ParseStatus parse(const uint8_t* data, size_t size, size_t wire_size, Headers* out) {
  if (wire_size <= size) return parse(data, size, out);
  *out = Headers{};
  return ParseStatus::kCutByCapture;
}

}  // namespace jxmodel
