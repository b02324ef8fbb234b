#include "stations.h"

#include <algorithm>

namespace jexdata {
namespace {

constexpr size_t kMostSegment = 1400;  // bytes of an answer that one frame carries

std::string kindOf(const Ipv4& header) {
  if ((header.fragment & 0x1FFF) != 0) return "ipv4";
  if (header.protocol == kTcp) return "ipv4 tcp";
  if (header.protocol == kUdp) return "ipv4 udp";
  return header.protocol == kIcmp ? "ipv4 icmp" : "ipv4";
}

std::string kindOf(const Ipv6& header) {
  if (header.next == kTcp) return "ipv6 tcp";
  if (header.next == kUdp) return "ipv6 udp";
  return header.next == kIcmpv6 ? "ipv6 icmpv6" : "ipv6";
}

/// The group in which a neighbour with this address listens for solicitations.
Ipv6Address solicitedNode(const Ipv6Address& address) {
  Ipv6Address group = ipv6Of(0xff02000000000000, 0);
  group[11] = 1;
  group[12] = 0xff;
  std::copy(address.begin() + 13, address.end(), group.begin() + 13);
  return group;
}

/// Options of a neighbour discovery message: the sender's link-layer address.
Bytes linkLayerOption(uint8_t kind, const Mac& mac) {
  Bytes option{kind, 1};
  option.insert(option.end(), mac.begin(), mac.end());
  return option;
}

}  // namespace

Station groupOf(uint32_t ipv4) { return {multicastMac(ipv4), ipv4, {}, {}}; }
Station groupOf(const Ipv6Address& ipv6) { return {multicastMac(ipv6), 0, ipv6, {}}; }
Station broadcastOf(uint32_t network) { return {kBroadcast, network, {}, {}}; }

Bytes Wire::noise(uint32_t size) {
  Bytes bytes(size);
  uint64_t bits = 0;
  for (uint32_t i = 0; i < size; ++i) {
    if (i % 8 == 0) bits = random_->bits();
    bytes[i] = static_cast<uint8_t>(bits >> (i % 8 * 8));
  }
  if (size > 0) bytes[0] = 0;
  return bytes;
}

int64_t Wire::upTo(int64_t time) {
  const auto microseconds = static_cast<uint32_t>(time / kMicrosecond);
  return random_->between(1, microseconds) * kMicrosecond;
}

void Wire::ipv4(int64_t time, const Station& from, const Station& to, Ipv4 header,
                const Bytes& payload) {
  header.src = from.ipv4;
  header.dst = to.ipv4;
  recording_->add(time,
                  frameOf(to.mac, from.mac, from.tags, kIpv4Type, ipv4Packet(header, payload)),
                  kindOf(header));
}

void Wire::ipv6(int64_t time, const Station& from, const Station& to, Ipv6 header,
                const Bytes& payload) {
  header.src = from.ipv6;
  header.dst = to.ipv6;
  recording_->add(time,
                  frameOf(to.mac, from.mac, from.tags, kIpv6Type, ipv6Packet(header, payload)),
                  kindOf(header));
}

void Wire::udp(int64_t time, IpVersion version, const Station& from, const Station& to,
               uint16_t sport, uint16_t dport, const Bytes& payload, uint8_t ttl) {
  const Bytes datagram = udpDatagram(sport, dport, payload);
  if (version == IpVersion::k4) {
    const auto id = static_cast<uint16_t>(random_->below(65536));
    const Ipv4 header{from.ipv4, to.ipv4, kUdp, ttl, id, 0, {}};
    ipv4(time, from, to, header, sumUp(header, datagram));
  } else {
    const Ipv6 header{from.ipv6, to.ipv6, kUdp, ttl};
    ipv6(time, from, to, header, sumUp(header, datagram));
  }
}

void Wire::tcp(int64_t time, IpVersion version, const Station& from, const Station& to,
               uint16_t sport, uint16_t dport, uint32_t seq, uint32_t ack, uint8_t flags,
               const Bytes& payload) {
  const Bytes segment = tcpSegment(sport, dport, seq, ack, flags, payload);
  if (version == IpVersion::k4) {
    const auto id = static_cast<uint16_t>(random_->below(65536));
    const Ipv4 header{from.ipv4, to.ipv4, kTcp, 64, id, 0x4000, {}};
    ipv4(time, from, to, header, sumUp(header, segment));
  } else {
    const Ipv6 header{from.ipv6, to.ipv6, kTcp, 64};
    ipv6(time, from, to, header, sumUp(header, segment));
  }
}

void Wire::udpInFragments(int64_t time, const Station& from, const Station& to, uint16_t sport,
                          uint16_t dport, const Bytes& payload, size_t piece) {
  Ipv4 header{from.ipv4, to.ipv4, kUdp, 64, 0, 0, {}};
  header.id = static_cast<uint16_t>(random_->below(65536));
  const Bytes whole = sumUp(header, udpDatagram(sport, dport, payload));
  for (size_t begin = 0; begin < whole.size(); begin += piece) {
    const size_t end = std::min(begin + piece, whole.size());
    const bool last = end == whole.size();
    header.fragment = static_cast<uint16_t>(begin / 8 | (last ? 0 : 0x2000));
    ipv4(time, from, to, header,
         Bytes(whole.begin() + static_cast<std::ptrdiff_t>(begin),
               whole.begin() + static_cast<std::ptrdiff_t>(end)));
    time += 20 * kMicrosecond;
  }
}

void Wire::arpRequest(int64_t time, const Station& from, uint32_t wanted) {
  recording_->add(time,
                  frameOf(kBroadcast, from.mac, from.tags, kArpType,
                          arpPacket(1, from.mac, from.ipv4, {}, wanted)),
                  "arp");
}

void Wire::arpReply(int64_t time, const Station& from, const Station& to) {
  recording_->add(time,
                  frameOf(to.mac, from.mac, from.tags, kArpType,
                          arpPacket(2, from.mac, from.ipv4, to.mac, to.ipv4)),
                  "arp");
}

void Wire::dhcpMessage(int64_t time, const Station& from, const Station& client, uint8_t type) {
  const bool reply = type == 2 || type == 5;
  Bytes message{static_cast<uint8_t>(reply ? 2 : 1), 1, 6, 0};
  put32(&message, client.ipv4 * 2654435761U);  // the transaction
  put32(&message, 0);
  put32(&message, 0);
  put32(&message, reply ? client.ipv4 : 0);
  put32(&message, reply ? from.ipv4 : 0);
  put32(&message, 0);
  message.insert(message.end(), client.mac.begin(), client.mac.end());
  message.resize(236);
  put32(&message, 0x63825363);
  append(&message, {53, 1, type, 255});
  message.resize(300);
  Station sender = from;
  if (!reply) sender.ipv4 = 0;
  udp(time, IpVersion::k4, sender, broadcastOf(0xFFFFFFFF), reply ? 67 : 68, reply ? 68 : 67,
      message);
}

void Wire::dhcp(int64_t time, const Station& client, const Station& server) {
  constexpr uint8_t kDiscover = 1, kOffer = 2, kRequest = 3, kAcknowledge = 5;
  dhcpMessage(time, client, client, kDiscover);
  dhcpMessage(time + 3 * kMillisecond, server, client, kOffer);
  dhcpMessage(time + 5 * kMillisecond, client, client, kRequest);
  dhcpMessage(time + 9 * kMillisecond, server, client, kAcknowledge);
}

void Wire::ping(int64_t time, IpVersion version, const Station& from, const Station& to,
                uint16_t sequence) {
  Bytes rest{0x12, 0x34};
  put16(&rest, sequence);
  append(&rest, noise(48));
  const int64_t later = time + upTo(2 * kMillisecond);
  if (version == IpVersion::k6) {
    icmpv6(time, from, to, 128, 0, rest, 64);
    icmpv6(later, to, from, 129, 0, rest, 64);
    return;
  }
  const Ipv4 header{0, 0, kIcmp, 64, sequence, 0, {}};
  ipv4(time, from, to, header, sumUp(header, icmpMessage(8, 0, rest)));
  ipv4(later, to, from, header, sumUp(header, icmpMessage(0, 0, rest)));
}

void Wire::unreachable(int64_t time, const Station& from, const Station& to, uint16_t sport,
                       uint16_t dport) {
  const Ipv4 lost{to.ipv4, from.ipv4, kUdp, 50, 77, 0, {}};
  Bytes rest(4);
  append(&rest, ipv4Packet(lost, udpDatagram(sport, dport, {})));
  const Ipv4 header{0, 0, kIcmp, 60, 0, 0, {}};
  ipv4(time, from, to, header, sumUp(header, icmpMessage(3, 3, rest)));
}

void Wire::icmpv6(int64_t time, const Station& from, const Station& to, uint8_t type, uint8_t code,
                  const Bytes& rest, uint8_t hop_limit) {
  const Ipv6 header{from.ipv6, to.ipv6, kIcmpv6, hop_limit};
  ipv6(time, from, to, header, sumUp(header, icmpMessage(type, code, rest)));
}

void Wire::neighbour(int64_t time, const Station& from, const Station& to) {
  Bytes solicitation(4), advertisement{0x60, 0, 0, 0};  // solicited, overrides what was known
  solicitation.insert(solicitation.end(), to.ipv6.begin(), to.ipv6.end());
  append(&solicitation, linkLayerOption(1, from.mac));
  icmpv6(time, from, groupOf(solicitedNode(to.ipv6)), 135, 0, solicitation, 255);
  advertisement.insert(advertisement.end(), to.ipv6.begin(), to.ipv6.end());
  append(&advertisement, linkLayerOption(2, to.mac));
  icmpv6(time + upTo(kMillisecond), to, from, 136, 0, advertisement, 255);
}

void Wire::routerSolicitation(int64_t time, const Station& from) {
  Bytes rest(4);
  append(&rest, linkLayerOption(1, from.mac));
  icmpv6(time, from, groupOf(ipv6Of(0xff02000000000000, 2)), 133, 0, rest, 255);
}

void Wire::groupReport(int64_t time, const Station& from, uint32_t group) {
  Bytes rest;
  put32(&rest, group);
  const Ipv4 header{0, 0, kIgmp, 1, 0, 0, {148, 4, 0, 0}};  // with the router alert option
  ipv4(time, from, groupOf(group), header, sumUp(header, icmpMessage(0x16, 0, rest)));
}

void Wire::mdns(int64_t time, IpVersion version, const Station& from, const std::string& name) {
  Bytes query{0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0};
  for (const std::string& label : {name, std::string("local")}) {
    query.push_back(static_cast<uint8_t>(label.size()));
    query.insert(query.end(), label.begin(), label.end());
  }
  append(&query, {0, 0, 255, 0, 1});
  const Station group =
      version == IpVersion::k4 ? groupOf(0xE00000FB) : groupOf(ipv6Of(0xff02000000000000, 0xfb));
  udp(time, version, from, group, 5353, 5353, query, 255);
}

void Wire::lldp(int64_t time, const Station& from, const std::string& name) {
  constexpr Mac kNearestBridge = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e};
  Bytes message{0x02, 7, 4};  // chassis, by its address
  message.insert(message.end(), from.mac.begin(), from.mac.end());
  append(&message, {0x04, 3, 7, 'p', '1', 0x06, 2, 0, 120, 0x0a});
  message.push_back(static_cast<uint8_t>(name.size()));
  message.insert(message.end(), name.begin(), name.end());
  append(&message, {0, 0});
  recording_->add(time, frameOf(kNearestBridge, from.mac, from.tags, 0x88CC, message), "other");
}

int64_t Wire::connection(int64_t time, IpVersion version, const Station& client,
                         const Station& server, uint16_t dport, int rounds, uint32_t answer,
                         int64_t gap) {
  const uint16_t sport = port();
  uint32_t seq = random_->bits32();
  uint32_t ack = random_->bits32();
  const auto ask = [&](uint8_t flags, const Bytes& payload) {
    tcp(time, version, client, server, sport, dport, seq, (flags & kAck) != 0 ? ack : 0, flags,
        payload);
    seq += static_cast<uint32_t>(payload.size()) + ((flags & (kSyn | kFin)) != 0 ? 1 : 0);
    time += upTo(gap);
  };
  const auto reply = [&](uint8_t flags, const Bytes& payload) {
    tcp(time, version, server, client, dport, sport, ack, seq, flags, payload);
    ack += static_cast<uint32_t>(payload.size()) + ((flags & (kSyn | kFin)) != 0 ? 1 : 0);
    time += upTo(gap);
  };
  ask(kSyn, {});
  reply(kSyn | kAck, {});
  ask(kAck, {});
  for (int round = 0; round < rounds; ++round) {
    ask(kPsh | kAck, noise(random_->between(40, 600)));
    uint32_t left = random_->between(1, answer);
    while (left > 0) {
      const uint32_t size = std::min<uint32_t>(left, kMostSegment);
      left -= size;
      reply(left == 0 ? kPsh | kAck : kAck, noise(size));
      if (random_->chance(500)) ask(kAck, {});
    }
  }
  ask(kFin | kAck, {});
  reply(kFin | kAck, {});
  ask(kAck, {});
  return time;
}

}  // namespace jexdata
