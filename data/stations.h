// Stations on a wire, and what they say to each other. Each call adds frames to a recording.
#pragma once

#include <cstdint>
#include <string>

#include "frames.h"
#include "random.h"
#include "recording.h"

namespace jexdata {

struct Station {
  Mac mac{};
  uint32_t ipv4 = 0;
  Ipv6Address ipv6{};
  Tags tags;
};

/// A group that is spoken to like a station.
Station groupOf(uint32_t ipv4);
Station groupOf(const Ipv6Address& ipv6);
/// All of the network that `network` has as its broadcast address.
Station broadcastOf(uint32_t network);

inline constexpr int64_t kMicrosecond = 1000;
inline constexpr int64_t kMillisecond = 1'000'000;
inline constexpr int64_t kSecond = 1'000'000'000;

enum class IpVersion : uint8_t { k4 = 4, k6 = 6 };

/// A wire on which stations are at work. Times are nanoseconds since the capture's begin.
class Wire {
 public:
  Wire(Recording* recording, Random* random) : recording_(recording), random_(random) {}

  /// `size` bytes without a meaning. The first is zero: few protocols begin like that, so that
  /// others who read the capture do not guess one.
  Bytes noise(uint32_t size);

  // IP packets of any kind; the kind of the recording follows from the header.
  void ipv4(int64_t time, const Station& from, const Station& to, Ipv4 header,
            const Bytes& payload);
  void ipv6(int64_t time, const Station& from, const Station& to, Ipv6 header,
            const Bytes& payload);

  void udp(int64_t time, IpVersion version, const Station& from, const Station& to, uint16_t sport,
           uint16_t dport, const Bytes& payload, uint8_t ttl = 64);
  void tcp(int64_t time, IpVersion version, const Station& from, const Station& to, uint16_t sport,
           uint16_t dport, uint32_t seq, uint32_t ack, uint8_t flags, const Bytes& payload);
  /// A UDP datagram over IPv4 in pieces of at most `piece` bytes, a multiple of eight.
  void udpInFragments(int64_t time, const Station& from, const Station& to, uint16_t sport,
                      uint16_t dport, const Bytes& payload, size_t piece);

  void arpRequest(int64_t time, const Station& from, uint32_t wanted);
  void arpReply(int64_t time, const Station& from, const Station& to);
  /// Discover, offer, request and acknowledgement, within a second.
  void dhcp(int64_t time, const Station& client, const Station& server);
  /// Echo request and reply.
  void ping(int64_t time, IpVersion version, const Station& from, const Station& to,
            uint16_t sequence);
  /// Destination unreachable, with the begin of a datagram that is said to have come from `to`.
  void unreachable(int64_t time, const Station& from, const Station& to, uint16_t sport,
                   uint16_t dport);
  /// Neighbour solicitation and advertisement.
  void neighbour(int64_t time, const Station& from, const Station& to);
  void routerSolicitation(int64_t time, const Station& from);
  void groupReport(int64_t time, const Station& from, uint32_t group);
  void mdns(int64_t time, IpVersion version, const Station& from, const std::string& name);
  void lldp(int64_t time, const Station& from, const std::string& name);

  /// A whole TCP connection: opened, `rounds` requests with answers of up to `answer` bytes,
  /// closed. The next frame follows after `gap` at most. Returns when it ends.
  int64_t connection(int64_t time, IpVersion version, const Station& client, const Station& server,
                     uint16_t dport, int rounds, uint32_t answer, int64_t gap);

 private:
  uint16_t port() { return static_cast<uint16_t>(random_->between(32768, 60999)); }
  int64_t upTo(int64_t time);
  void icmpv6(int64_t time, const Station& from, const Station& to, uint8_t type, uint8_t code,
              const Bytes& rest, uint8_t hop_limit);
  void dhcpMessage(int64_t time, const Station& from, const Station& client, uint8_t type);

  Recording* const recording_;
  Random* const random_;
};

}  // namespace jexdata
