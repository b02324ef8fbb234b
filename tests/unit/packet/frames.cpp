#include "frames.h"

namespace jxmodel::frames {
namespace {

Bytes bytesOf16(uint16_t value) {
  return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

Bytes address6(uint8_t last) {
  return {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
}

Bytes part(const Bytes& bytes, size_t begin, size_t end) {
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
               bytes.begin() + static_cast<std::ptrdiff_t>(end));
}

}  // namespace

Bytes join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& bytes : parts) all.insert(all.end(), bytes.begin(), bytes.end());
  return all;
}

uint16_t word(const Bytes& frame, size_t at) {
  return static_cast<uint16_t>(frame.at(at) << 8 | frame.at(at + 1));
}

void setWord(Bytes* frame, size_t at, uint16_t value) {
  frame->at(at) = static_cast<uint8_t>(value >> 8);
  frame->at(at + 1) = static_cast<uint8_t>(value);
}

Bytes ethernet(uint16_t type, const Bytes& inside) {
  return join({{2, 3, 4, 5, 6, 7}, {10, 11, 12, 13, 14, 15}, bytesOf16(type), inside});
}

Bytes tag(uint16_t bits, uint16_t type, const Bytes& inside) {
  return join({bytesOf16(bits), bytesOf16(type), inside});
}

Bytes arp() {
  return {0,   1, 8, 0, 6,    4,    0,    1,    10,   11,   12,  13, 14, 15,
          192, 0, 2, 1, 0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 192, 0,  2,  2};
}

Bytes ipv4(uint8_t protocol, const Bytes& inside, const Bytes& options, uint16_t fragment) {
  const size_t header = 20 + options.size();
  Bytes ip = join({{static_cast<uint8_t>(0x40 | header / 4), 0xBA},
                   bytesOf16(static_cast<uint16_t>(header + inside.size())),
                   {0x12, 0x34},
                   bytesOf16(fragment),
                   {64, protocol, 0, 0, 192, 0, 2, 1, 198, 51, 100, 2},
                   options,
                   inside});
  setWord(&ip, 10, plainIpv4Checksum(ip, 0));
  return ip;
}

Bytes ipv6(uint8_t next, const Bytes& inside) {
  return join({{0x6A, 0xBC, 0xDE, 0xF1},
               bytesOf16(static_cast<uint16_t>(inside.size())),
               {next, 63},
               address6(1),
               address6(2),
               inside});
}

Bytes extension(uint8_t next, uint32_t more, const Bytes& inside) {
  // Filled with PadN, which every kind of option list allows.
  const auto pad = static_cast<uint8_t>(4 + more);
  return join({{next, static_cast<uint8_t>(more / 8), 1, pad}, Bytes(pad, 0), inside});
}

Bytes authentication(uint8_t next, const Bytes& inside) {
  return join({{next, 4, 0, 0}, Bytes(20, 0x5A), inside});
}

Bytes routing(uint8_t next, uint8_t segments_left, const Bytes& inside) {
  return join({{next, 2, 0, segments_left, 0, 0, 0, 0}, address6(9), inside});
}

Bytes fragmentHeader(uint8_t next, uint16_t bits, const Bytes& inside) {
  return join({{next, 0}, bytesOf16(bits), {0, 0, 0, 7}, inside});
}

Bytes tcp(const Bytes& payload, const Bytes& options) {
  const auto offset = static_cast<uint8_t>((20 + options.size()) / 4 << 4);
  return join({{0x12, 0x34, 0x01, 0xBB, 1, 2, 3, 4, 5, 6, 7, 8, offset, 0x12, 0x20, 0, 0, 0, 0, 0},
               options,
               payload});
}

Bytes udp(const Bytes& payload) {
  const auto length = static_cast<uint16_t>(8 + payload.size());
  return join({{0x56, 0x78, 0, 53}, bytesOf16(length), {0, 0}, payload});
}

Bytes icmp(const Bytes& payload) { return join({{8, 0, 0, 0, 0, 1, 0, 2}, payload}); }

Bytes icmpv6(const Bytes& payload) { return join({{128, 0, 0, 0, 0, 1, 0, 2}, payload}); }

uint16_t plainChecksum(const Bytes& bytes) {
  uint32_t sum = 0;
  for (size_t i = 0; i < bytes.size(); i += 2) {
    sum += static_cast<uint32_t>(bytes[i] << 8) + (i + 1 < bytes.size() ? bytes[i + 1] : 0U);
    if (sum > 0xFFFF) sum -= 0xFFFF;
  }
  return static_cast<uint16_t>(0xFFFF - sum);
}

uint16_t plainIpv4Checksum(const Bytes& frame, size_t ip) {
  Bytes header = part(frame, ip, ip + (frame.at(ip) & 0x0FU) * 4);
  setWord(&header, 10, 0);
  return plainChecksum(header);
}

size_t checksumPlace(uint8_t protocol) {
  if (protocol == kTcp) return 16;
  return protocol == kUdp ? 6 : 2;
}

uint16_t plainL4Checksum(const Bytes& frame, size_t ip, uint8_t protocol, size_t l4, size_t end) {
  Bytes segment = part(frame, l4, end);
  setWord(&segment, checksumPlace(protocol), 0);
  if (protocol == kIcmp) return plainChecksum(segment);
  const bool version4 = frame.at(ip) >> 4 == 4;
  const Bytes addresses = version4 ? part(frame, ip + 12, ip + 20) : part(frame, ip + 8, ip + 40);
  const auto length = static_cast<uint16_t>(end - l4);
  const uint16_t sum =
      plainChecksum(join({addresses, bytesOf16(length), bytesOf16(protocol), segment}));
  return protocol == kUdp && sum == 0 ? 0xFFFF : sum;
}

std::vector<Sample> samples(const Bytes& payload) {
  const Bytes no_operations = {1, 1, 1, 0};
  const Bytes tcp_options = {2, 4, 5, 0xB4, 1, 1, 1, 0};
  const auto tagged = [](const Bytes& inside, uint16_t type) {
    return ethernet(kVlanType, tag(0xA064, type, inside));
  };
  std::vector<Sample> all = {
      {"arp", ethernet(kArpType, arp())},
      {"tagged arp", tagged(arp(), kArpType)},
      {"ipv4 of another protocol", ethernet(kIpv4Type, ipv4(89, payload)), 14},
      {"ipv4 tcp", ethernet(kIpv4Type, ipv4(kTcp, tcp(payload))), 14, kTcp, 34},
      {"ipv4 tcp, options in both",
       ethernet(kIpv4Type, ipv4(kTcp, tcp(payload, tcp_options), no_operations)), 14, kTcp, 38},
      {"ipv4 udp", ethernet(kIpv4Type, ipv4(kUdp, udp(payload))), 14, kUdp, 34},
      {"tagged ipv4 udp", tagged(ipv4(kUdp, udp(payload)), kIpv4Type), 18, kUdp, 38},
      {"twice tagged ipv4 icmp",
       ethernet(kServiceVlanType,
                tag(0x3FFF, kVlanType, tag(0xD001, kIpv4Type, ipv4(kIcmp, icmp(payload))))),
       22, kIcmp, 42},
      {"ipv6 tcp", ethernet(kIpv6Type, ipv6(kTcp, tcp(payload))), 14, kTcp, 54},
      {"ipv6 udp", ethernet(kIpv6Type, ipv6(kUdp, udp(payload))), 14, kUdp, 54},
      {"tagged ipv6 icmpv6", tagged(ipv6(kIcmpv6, icmpv6(payload)), kIpv6Type), 18, kIcmpv6, 58},
      {"ipv6 with extensions",
       ethernet(
           kIpv6Type,
           ipv6(kHopByHop, extension(kDestination, 8,
                                     extension(kAuthentication, 0,
                                               authentication(kTcp, tcp(payload, tcp_options)))))),
       14, kTcp, 102},
  };
  for (Sample& sample : all) {
    if (sample.l4 == 0) continue;
    setWord(
        &sample.frame, sample.l4 + checksumPlace(sample.protocol),
        plainL4Checksum(sample.frame, sample.ip, sample.protocol, sample.l4, sample.frame.size()));
  }
  return all;
}

}  // namespace jxmodel::frames
