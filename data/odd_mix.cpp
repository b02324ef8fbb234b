// The capture of what is rare: tags, extension headers, fragments, other protocols, and frames that
// are cut, truncated or contradict themselves.
#include "captures.h"
#include "stations.h"

namespace jexdata {
namespace {

class OddMix {
 public:
  OddMix(Recording* recording, Random* random) : recording_(recording), random_(random) {
    for (uint32_t i = 1; i <= 12; ++i) {
      stations_.push_back({macOf(0x70, i), 0xC0000200 + i, ipv6Of(kDocumentation, i), {}});
    }
  }

  void make() {
    // Each turn another station speaks: all but the last few are silent for seconds in between.
    for (int turn = 0; turn < 6; ++turn) {
      tagged();
      ipv4Oddities();
      ipv6Oddities();
      otherTypes();
      cut();
      truncated();
      contradicting();
      pause();
    }
  }

 private:
  /// Up to a quarter of a second after the last frame. Draws nothing, so that it may stand beside
  /// other arguments that do.
  int64_t next() {
    step_ = step_ * 73 % 250'007;
    return time_ += step_ * kMicrosecond + step_ % 997;
  }
  void pause() { time_ += random_->between(1'500'000, 5'000'000) * kMicrosecond; }
  const Station& from() { return stations_[speaker_++ % stations_.size()]; }
  const Station& to() const { return stations_[(speaker_ + 3) % stations_.size()]; }

  void tagged() {
    for (const Tags& tags : {Tags{0x0064}, Tags{0xE064}, Tags{0x3FFF, 0xD001}, Tags{0x0000}}) {
      Station sender = from();
      sender.tags = tags;
      wire_.arpRequest(next(), sender, to().ipv4);
      wire_.ping(next(), IpVersion::k4, sender, to(), 1);
      wire_.udp(next(), IpVersion::k4, sender, to(), 4000, 4001, wire_.noise(33));
      wire_.udp(next(), IpVersion::k6, sender, to(), 4000, 4001, wire_.noise(34));
      wire_.tcp(next(), IpVersion::k6, sender, to(), 4000, 4001, 1, 0, kSyn, {});
    }
  }

  void ipv4With(Ipv4 header, const Bytes& payload) {
    const Station& sender = from();
    header.src = sender.ipv4;
    header.dst = to().ipv4;
    wire_.ipv4(next(), sender, to(), header, sumUp(header, payload));
  }

  void ipv4Oddities() {
    const Bytes datagram = udpDatagram(4000, 4001, wire_.noise(40));
    ipv4With({0, 0, kUdp, 64, 1, 0, {1, 1, 1, 0}}, datagram);                  // no-operations
    ipv4With({0, 0, kUdp, 64, 2, 0, {7, 7, 4, 0, 0, 0, 0, 0}}, datagram);      // record route
    ipv4With({0, 0, kUdp, 64, 3, 0, {131, 7, 8, 192, 0, 2, 1, 0}}, datagram);  // route used up
    ipv4With({0, 0, kUdp, 1, 4, 0, {}}, datagram);
    ipv4With({0, 0, kUdp, 0, 5, 0, {}}, datagram);
    ipv4With({0, 0, kUdp, 255, 6, 0x8000, {}}, datagram);  // reserved flag
    ipv4With({0, 0, kIcmp, 64, 7, 0, {}}, icmpMessage(11, 0, wire_.noise(32)));
    ipv4With({0, 0, kTcp, 2, 8, 0x4000, {}}, tcpSegment(1, 65535, 1, 1, kAck, wire_.noise(7)));
    wire_.groupReport(next(), from(), 0xE0000116);
    const Station& sender = from();
    wire_.udpInFragments(next(), sender, to(), 4000, 4001, wire_.noise(900), 304);
    const Ipv4 bare{sender.ipv4, to().ipv4, kUdp, 64, 9, 0, {}};
    wire_.ipv4(next(), sender, to(), bare, datagram);  // without a checksum
    Bytes wrong = sumUp(bare, datagram);
    wrong[6] ^= 0x55;
    wire_.ipv4(next(), sender, to(), bare, wrong);
    Ipv4 tunnel = bare;
    tunnel.protocol = kGre;
    wire_.ipv4(next(), sender, to(), tunnel, {0, 0, 8, 0, 1, 2, 3, 4});
  }

  void ipv6With(uint8_t first, const Bytes& extensions, uint8_t last, const Bytes& payload,
                uint8_t hop_limit, const std::string& kind) {
    const Station& sender = from();
    Bytes packet = extensions;
    append(&packet, sumUp(Ipv6{sender.ipv6, to().ipv6, last, hop_limit}, payload));
    const Ipv6 header{sender.ipv6, to().ipv6, first, hop_limit};
    recording_->add(next(),
                    frameOf(to().mac, sender.mac, {}, kIpv6Type, ipv6Packet(header, packet)), kind);
  }

  void ipv6Oddities() {
    const Bytes datagram = udpDatagram(4000, 4001, wire_.noise(40));
    const Bytes segment = tcpSegment(4000, 4001, 1, 1, kAck, wire_.noise(5));
    ipv6With(kHopByHop, {kUdp, 0, 1, 4, 0, 0, 0, 0}, kUdp, datagram, 64, "ipv6 udp");
    ipv6With(kDestinationOptions, {kTcp, 0, 1, 4, 0, 0, 0, 0}, kTcp, segment, 64, "ipv6 tcp");
    Bytes authenticated{kTcp, 4, 0, 0};
    append(&authenticated, wire_.noise(20));
    ipv6With(kAuthentication, authenticated, kTcp, segment, 64, "ipv6 tcp");
    Bytes chain{kDestinationOptions, 0, 1, 4, 0, 0, 0, 0, kIcmpv6, 0, 1, 4, 0, 0, 0, 0};
    ipv6With(kHopByHop, chain, kIcmpv6, icmpMessage(128, 0, wire_.noise(12)), 64, "ipv6 icmpv6");
    ipv6With(kUdp, {}, kUdp, datagram, 1, "ipv6 udp");
    ipv6With(kUdp, {}, kUdp, datagram, 0, "ipv6 udp");
    // A datagram in two pieces.
    const Station& sender = from();
    const Bytes whole = sumUp(Ipv6{sender.ipv6, to().ipv6, kUdp, 64}, datagram);
    for (size_t begin : {size_t{0}, size_t{24}}) {
      const bool first = begin == 0;
      Bytes packet{kUdp, 0};
      put16(&packet, static_cast<uint32_t>(first ? 1 : begin));  // offset, and whether more follow
      put32(&packet, 99);
      const auto middle = whole.begin() + 24;
      packet.insert(packet.end(), first ? whole.begin() : middle, first ? middle : whole.end());
      const Ipv6 header{sender.ipv6, to().ipv6, kFragment, 64};
      recording_->add(next(),
                      frameOf(to().mac, sender.mac, {}, kIpv6Type, ipv6Packet(header, packet)),
                      first ? "ipv6 udp" : "ipv6");
    }
    ipv6With(kNoNext, {}, kNoNext, Bytes(8), 64, "ipv6");
  }

  void other(const Mac& dst, const Mac& src, uint16_t type, const Bytes& payload) {
    recording_->add(next(), frameOf(dst, src, {}, type, payload), "other");
  }

  void otherTypes() {
    const Station& sender = from();
    // Behind a label of a path there is an IP packet, which a switch of these programs does not
    // see.
    Bytes labelled{0, 0x01, 0x01, 64};
    append(&labelled, ipv4Packet({sender.ipv4, to().ipv4, kUdp, 64, 1, 0, {}},
                                 udpDatagram(1, 2, wire_.noise(10))));
    other(to().mac, sender.mac, 0x8847, labelled);
    // A length in the place of the type: a bridge's message to the bridges.
    Bytes bridge{0x42, 0x42, 0x03};
    append(&bridge, Bytes(35));
    other({0x01, 0x80, 0xc2, 0, 0, 0}, sender.mac, 38, bridge);
    wire_.lldp(next(), sender, "odd");
    other(kBroadcast, sender.mac, 0x88B5, wire_.noise(50));
    // From an address that nobody can have.
    other(kBroadcast, multicastMac(0xE0000001), 0x88B5, wire_.noise(46));
    // For another kind of network address.
    Bytes arp = arpPacket(1, sender.mac, sender.ipv4, {}, to().ipv4);
    arp[3] = 0x06;
    other(kBroadcast, sender.mac, kArpType, arp);
  }

  Bytes udpFrame() {
    const Station& sender = from();
    const Ipv4 header{sender.ipv4, to().ipv4, kUdp, 64, 10, 0, {}};
    return frameOf(to().mac, sender.mac, {}, kIpv4Type,
                   ipv4Packet(header, sumUp(header, udpDatagram(5, 6, wire_.noise(100)))));
  }

  void cut() {
    for (const size_t kept : {size_t{64}, size_t{20}, size_t{1}}) {
      const Bytes frame = udpFrame();
      recording_->addCut(next(), frame, kept);
    }
  }

  /// A frame whose `payload` is not padded, as a faulty card sends it.
  void refuse(uint16_t type, const Bytes& payload, const char* reason) {
    const Station& sender = from();
    recording_->addRefused(next(), bareFrame(to().mac, sender.mac, {}, type, payload), reason);
  }

  Bytes ipv4Of(uint8_t protocol, const Bytes& payload) const {
    return ipv4Packet({0xC0000201, 0xC0000202, protocol, 64, 11, 0, {}}, payload);
  }

  Bytes ipv6Of6(uint8_t next_header, const Bytes& payload) const {
    return ipv6Packet({stations_[0].ipv6, stations_[1].ipv6, next_header, 64}, payload);
  }

  void truncated() {
    Bytes runt(kBroadcast.begin(), kBroadcast.end());
    append(&runt, {2, 0x70, 0, 0});
    recording_->addRefused(next(), runt, "Ethernet header is truncated");
    refuse(kVlanType, {0}, "VLAN tag is truncated");
    refuse(kArpType, {0, 1, 8, 0, 6, 4, 0, 1, 2, 0x70, 0, 0}, "ARP packet is truncated");
    refuse(kIpv4Type, {0x45, 0, 0, 20, 0, 0, 0, 0, 64, 17}, "IPv4 header is truncated");
    refuse(kIpv6Type, {0x60, 0, 0, 0, 0, 8, 17, 64}, "IPv6 header is truncated");
    refuse(kIpv6Type, ipv6Of6(kHopByHop, {kUdp, 3, 1, 4, 0, 0, 0, 0}),
           "IPv6 extension header is truncated");
    refuse(kIpv4Type, ipv4Of(kTcp, Bytes(12)), "TCP header is truncated");
    refuse(kIpv6Type, ipv6Of6(kUdp, Bytes(5)), "UDP header is truncated");
    refuse(kIpv4Type, ipv4Of(kIcmp, Bytes(4)), "ICMP header is truncated");
    refuse(kIpv6Type, ipv6Of6(kIcmpv6, Bytes(3)), "ICMPv6 header is truncated");
  }

  void contradicting() {
    const Bytes datagram = udpDatagram(5, 6, wire_.noise(30));
    Bytes packet = ipv4Of(kUdp, datagram);
    packet[0] = 0x55;
    refuse(kIpv4Type, packet, "IPv4 version is not 4");
    packet[0] = 0x44;
    refuse(kIpv4Type, packet, "IPv4 header length is below 20 bytes");
    packet[0] = 0x45;
    set16(&packet, 2, 19);
    refuse(kIpv4Type, packet, "IPv4 total length does not fit the frame");
    set16(&packet, 2, 59);
    refuse(kIpv4Type, packet, "IPv4 total length does not fit the frame");

    Bytes packet6 = ipv6Of6(kUdp, datagram);
    packet6[0] = 0x40;
    refuse(kIpv6Type, packet6, "IPv6 version is not 6");
    packet6[0] = 0x60;
    set16(&packet6, 4, 39);
    refuse(kIpv6Type, packet6, "IPv6 payload length exceeds the frame");
    Bytes chain;
    for (int i = 0; i < 9; ++i) append(&chain, {kDestinationOptions, 0, 1, 4, 0, 0, 0, 0});
    refuse(kIpv6Type, ipv6Of6(kDestinationOptions, chain),
           "IPv6 packet has too many extension headers");

    Bytes segment = tcpSegment(1, 2, 3, 4, kAck, Bytes(10));
    segment[12] = 0x40;
    refuse(kIpv4Type, ipv4Of(kTcp, segment), "TCP header length is below 20 bytes");
    for (const uint16_t length : {uint16_t{7}, uint16_t{39}}) {
      Bytes wrong = datagram;
      set16(&wrong, 4, length);
      refuse(kIpv4Type, ipv4Of(kUdp, wrong), "UDP length does not fit the datagram");
    }
  }

  Recording* const recording_;
  Random* const random_;
  Wire wire_{recording_, random_};
  std::vector<Station> stations_;
  size_t speaker_ = 0;
  int64_t time_ = 0;
  int64_t step_ = 1;
};

}  // namespace

Recording oddMix(uint64_t seed) {
  Recording recording;
  Random random(seed, "pcap/odd-mix");
  OddMix(&recording, &random).make();
  recording.sort();
  return recording;
}

}  // namespace jexdata
