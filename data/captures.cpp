#include "captures.h"

#include <algorithm>
#include <map>
#include <utility>

#include "stations.h"

namespace jexdata {
namespace {

/// Stations of one network: MAC addresses 02:NETWORK:..., addresses one after the other.
std::vector<Station> stationsOf(uint8_t network, uint32_t first_ipv4, uint32_t count) {
  std::vector<Station> stations;
  for (uint32_t i = 1; i <= count; ++i) {
    stations.push_back(
        {macOf(network, i), first_ipv4 + i, ipv6Of(kDocumentation | network, i), {}});
  }
  return stations;
}

/// Stations elsewhere, all behind the MAC address of a router.
std::vector<Station> farStations(Random* random, const Station& router, uint32_t count) {
  std::vector<Station> stations;
  while (stations.size() < count) {
    const uint32_t first = random->between(64, 191);
    const uint32_t rest = random->below(1U << 24);
    const uint32_t number = random->bits32();
    if (first == 127) continue;
    const uint64_t network = 0x2600000000000000 | uint64_t{number} << 16;
    stations.push_back({router.mac, first << 24 | rest, ipv6Of(network, number), router.tags});
  }
  return stations;
}

int64_t microseconds(Random* random, uint32_t low, uint32_t high) {
  return random->between(low, high) * kMicrosecond;
}

int64_t milliseconds(Random* random, uint32_t low, uint32_t high) {
  const int64_t whole = random->between(low, high) * kMillisecond;
  return whole + microseconds(random, 0, 999);
}

// ---- a building's controllers over 20 hours

/// What a device does while it is switched on.
class BuildingDevice {
 public:
  BuildingDevice(Recording* recording, Random* random, Station self, Station controller,
                 Station router)
      : recording_(recording),
        random_(random),
        wire_(recording, random),
        self_(std::move(self)),
        controller_(std::move(controller)),
        router_(std::move(router)) {}

  void work(int64_t end) {
    int64_t time = milliseconds(random_, 100, 600'000);
    while (time < end) {
      wakeUp(time);
      const int64_t until = std::min(end, time + milliseconds(random_, 120'000, 4'000'000));
      for (time += kSecond; time < until; time += milliseconds(random_, 5'000, 60'000)) say(time);
      time += milliseconds(random_, 60'000, 9'000'000);
    }
  }

 private:
  static constexpr uint16_t kService = 47808;

  void wakeUp(int64_t time) {
    wire_.dhcp(time, self_, router_);
    wire_.arpRequest(time + 20 * kMillisecond, self_, self_.ipv4);
    wire_.arpRequest(time + 40 * kMillisecond, self_, controller_.ipv4);
    wire_.arpReply(time + 41 * kMillisecond, controller_, self_);
    wire_.routerSolicitation(time + 60 * kMillisecond, self_);
    wire_.neighbour(time + 70 * kMillisecond, self_, controller_);
  }

  void say(int64_t time) {
    const uint32_t what = random_->below(100);
    if (what < 5) {
      wire_.udp(time, IpVersion::k4, self_, broadcastOf(0xC0A807FF), kService, kService,
                {0x81, 0x0b, 0x00, 0x0c, 0x01, 0x20, 0xff, 0xff, 0x00, 0xff, 0x10, 0x08});
    } else if (what < 8) {
      wire_.ping(time, what < 7 ? IpVersion::k4 : IpVersion::k6, self_, router_,
                 static_cast<uint16_t>(what));
    } else if (what < 9) {
      wire_.connection(time, IpVersion::k4, self_, controller_, 443, 1, 3000, 5 * kMillisecond);
    } else if (what < 10) {
      wire_.arpRequest(time, self_, router_.ipv4);
      wire_.arpReply(time + kMillisecond, router_, self_);
    } else {
      measure(time, what < 80 ? IpVersion::k4 : IpVersion::k6);
    }
  }

  void measure(int64_t time, IpVersion version) {
    const Bytes values = wire_.noise(random_->between(17, 60));
    if (random_->chance(2)) {  // the cable is at fault
      Bytes frame = frameOf(controller_.mac, self_.mac, {}, kIpv4Type, values);
      recording_->addRefused(time, frame, "IPv4 version is not 4");
      set16(&frame, 14, 0x4500);
      set16(&frame, 16, 1500);
      recording_->addRefused(time + kSecond, std::move(frame),
                             "IPv4 total length does not fit the frame");
      return;
    }
    wire_.udp(time, version, self_, controller_, 40000, 40001, values);
    if (random_->chance(600)) {
      time += microseconds(random_, 200, 9000);
      wire_.udp(time, version, controller_, self_, 40001, 40000, wire_.noise(20));
    }
  }

  Recording* const recording_;
  Random* const random_;
  Wire wire_;
  const Station self_, controller_, router_;
};

// ---- an office with virtual networks

class Office {
 public:
  Office(Recording* recording, Random* random)
      : random_(random), wire_(recording, random), desks_(stationsOf(0x30, 0x0A1E0000, 36)) {
    for (size_t i = 0; i < desks_.size(); ++i) {
      if (i % 3 != 0) desks_[i].tags = {static_cast<uint16_t>(i % 3 == 1 ? 100 : 0x6000 | 200)};
    }
    far_ = farStations(random, desks_[0], 40);
  }

  void work() {
    for (size_t i = 1; i < desks_.size(); ++i) {
      Station desk = desks_[i];
      int64_t time = milliseconds(random_, 1, 5000);
      if (i % 7 == 0) wire_.dhcp(time, desk, sameTag(desks_[0], desk));
      // Some fall silent before the others do.
      const int64_t end = (i % 5 == 0 ? 20 : 60) * kSecond;
      while (time < end) {
        say(time, desk, i);
        time += milliseconds(random_, 200, 4800);
      }
    }
  }

 private:
  /// A station that is in all of the virtual networks, as `other` sees it.
  static Station sameTag(Station station, const Station& other) {
    station.tags = other.tags;
    return station;
  }

  void say(int64_t time, const Station& desk, size_t number) {
    const Station router = sameTag(desks_[0], desk);
    const std::string name = "desk-" + std::to_string(number);
    switch (random_->below(12)) {
      case 0:
        return wire_.mdns(time, IpVersion::k4, desk, name);
      case 1:
        return wire_.mdns(time, IpVersion::k6, desk, name);
      case 2: {
        const Station group = groupOf(0xEFFFFFFA);
        return wire_.udp(time, IpVersion::k4, desk, group, 50001, 1900, wire_.noise(120), 4);
      }
      case 3:
        return wire_.udp(time, IpVersion::k4, desk, broadcastOf(0x0A1EFFFF), 40100, 40100,
                         wire_.noise(50));
      case 4:
        wire_.arpRequest(time, desk, router.ipv4);
        return wire_.arpReply(time + kMillisecond, router, desk);
      case 5:
        return wire_.neighbour(time, desk, router);
      case 6:
        return wire_.groupReport(time, desk, 0xEFFFFFFA);
      case 7:
        return wire_.ping(time, IpVersion::k6, desk, router, static_cast<uint16_t>(number));
      case 8:
        return wire_.ping(time, IpVersion::k4, desk, router, static_cast<uint16_t>(number));
      default: {
        const Station server = sameTag(far_[random_->below(40)], desk);
        const IpVersion version = random_->chance(300) ? IpVersion::k6 : IpVersion::k4;
        wire_.connection(time, version, desk, server, 443, 1, 4000, 8 * kMillisecond);
      }
    }
  }

  Random* const random_;
  Wire wire_;
  std::vector<Station> desks_;  // the first is the router
  std::vector<Station> far_;
};

}  // namespace

Recording buildingDay(uint64_t seed) {
  Recording recording;
  Random random(seed, "pcap/building-day");
  const std::vector<Station> stations = stationsOf(0x10, 0xC0A80700, 18);
  for (size_t i = 2; i < stations.size(); ++i) {
    BuildingDevice(&recording, &random, stations[i], stations[0], stations[1])
        .work(75'000 * kSecond);
  }
  recording.sort();
  return recording;
}

Recording plantFloor(uint64_t seed) {
  constexpr int64_t kEnd = 21 * kSecond;
  Recording recording;
  Random random(seed, "pcap/plant-floor");
  Wire wire(&recording, &random);
  const std::vector<Station> stations = stationsOf(0x20, 0x0A000100, 52);
  const Station& master = stations[0];
  // Each of 32 devices is polled over a connection that stands.
  for (size_t i = 1; i <= 32; ++i) {
    const auto sport = static_cast<uint16_t>(50000 + i);
    uint32_t seq = random.bits32();
    uint32_t ack = random.bits32();
    wire.arpRequest(i * kMillisecond, master, stations[i].ipv4);
    wire.arpReply(i * kMillisecond + 300 * kMicrosecond, stations[i], master);
    uint32_t number = 0;
    int64_t time = milliseconds(&random, 40, 140);
    while (time < kEnd) {
      Bytes request;  // transaction, protocol 0, six bytes: unit 1 reads ten registers from 100 on
      put16(&request, number);
      append(&request, {0, 0, 0, 6, 1, 3, 0, 100, 0, 10});
      wire.tcp(time, IpVersion::k4, master, stations[i], sport, 502, seq, ack, kPsh | kAck,
               request);
      seq += static_cast<uint32_t>(request.size());
      time += microseconds(&random, 300, 4000);
      Bytes answer;
      put16(&answer, number++);
      append(&answer, {0, 0, 0, 23, 1, 3, 20});
      append(&answer, wire.noise(20));
      wire.tcp(time, IpVersion::k4, stations[i], master, 502, sport, ack, seq, kPsh | kAck, answer);
      ack += static_cast<uint32_t>(answer.size());
      time += microseconds(&random, 300, 2000);
      wire.tcp(time, IpVersion::k4, master, stations[i], sport, 502, seq, ack, kAck, {});
      time += milliseconds(&random, 60, 240);
    }
  }
  // Bridges announce themselves; drives send process data that no table knows.
  for (size_t i = 33; i <= 36; ++i) {
    for (int64_t time = milliseconds(&random, 1, 5000); time < kEnd; time += 5 * kSecond) {
      wire.lldp(time, stations[i], "bridge-" + std::to_string(i));
    }
  }
  for (size_t i = 37; i <= 40; ++i) {
    for (int64_t time = milliseconds(&random, 1, 500); time < kEnd;
         time += milliseconds(&random, 300, 700)) {
      Bytes data{0x80, 0x20};
      append(&data, wire.noise(40));
      const Mac group = {0x01, 0x0e, 0xcf, 0, 0, static_cast<uint8_t>(i)};
      recording.add(
          time, frameOf(i % 2 == 0 ? kBroadcast : group, stations[i].mac, {0xC000}, 0x8892, data),
          "other");
    }
  }
  // The others are heard once.
  for (size_t i = 41; i < stations.size(); ++i) {
    const int64_t time = milliseconds(&random, 10, 15'000);
    if (i % 2 == 0) {
      wire.arpRequest(time, stations[i], master.ipv4);
    } else {
      wire.udp(time, IpVersion::k4, stations[i], broadcastOf(0x0A0001FF), 34964, 34964,
               wire.noise(80));
    }
  }
  recording.sort();
  return recording;
}

Recording office(uint64_t seed) {
  Recording recording;
  Random random(seed, "pcap/office");
  Office(&recording, &random).work();
  recording.sort();
  // Microseconds are what the stations draw; the card that captures is finer.
  for (Recording::Packet& packet : recording.packets()) packet.time_ns += random.below(1000);
  recording.sort();
  return recording;
}

Recording peers(uint64_t seed) {
  constexpr int64_t kEnd = 600 * kSecond;
  Recording recording;
  Random random(seed, "pcap/peers");
  Wire wire(&recording, &random);
  const std::vector<Station> stations = stationsOf(0x40, 0x0A000000, 3);
  const Station& self = stations[0];
  const Station& router = stations[1];
  const std::vector<Station> others = farStations(&random, router, 510);
  uint32_t next = 0;
  int64_t time = kMillisecond;
  while (time < kEnd) {
    const Station& peer = others[next++ % others.size()];
    const auto dport = static_cast<uint16_t>(random.between(1024, 65535));
    switch (random.below(16)) {
      case 0:
        wire.connection(time, IpVersion::k4, self, peer, dport, 2, 20'000, 200 * kMillisecond);
        break;
      case 1:
        wire.tcp(time, IpVersion::k4, self, peer, dport, 6346, random.bits32(), 0, kSyn, {});
        break;
      case 2:
        wire.udp(time, IpVersion::k4, self, peer, 6346, dport, wire.noise(60));
        wire.unreachable(time + milliseconds(&random, 20, 90), peer, self, 6346, dport);
        break;
      case 3:
        wire.mdns(time, random.chance(500) ? IpVersion::k4 : IpVersion::k6, stations[2], "printer");
        break;
      case 4:
        wire.neighbour(time, stations[2], self);
        break;
      case 5:
        wire.arpRequest(time, self, router.ipv4);
        wire.arpReply(time + kMillisecond, router, self);
        break;
      case 6:
        wire.udpInFragments(time, self, peer, 6346, dport, wire.noise(3000), 1480);
        break;
      default:
        wire.udp(time, IpVersion::k4, self, peer, 6346, dport, wire.noise(random.between(20, 400)));
        if (random.chance(250)) {
          const int64_t answered = time + milliseconds(&random, 10, 400);
          wire.udp(answered, IpVersion::k4, peer, self, dport, 6346,
                   wire.noise(random.between(20, 400)));
        }
    }
    // Some minutes nothing happens.
    time +=
        random.chance(4) ? milliseconds(&random, 11'000, 30'000) : milliseconds(&random, 1, 1000);
  }
  // The capture has kept only four bytes of a frame, and half of another.
  const Bytes frame = frameOf(self.mac, router.mac, {}, kIpv4Type, wire.noise(200));
  recording.addCut(100 * kSecond, frame, 4);
  recording.addCut(200 * kSecond, frame, 100);
  recording.sort();
  return recording;
}

Recording web(uint64_t seed) {
  Recording recording;
  Random random(seed, "pcap/web");
  Wire wire(&recording, &random);
  const std::vector<Station> stations = stationsOf(0x50, 0x0A010100, 2);
  const std::vector<Station> servers = farStations(&random, stations[1], 167);
  constexpr size_t kIpv4Servers = 111;
  int64_t begin = 0;
  for (size_t i = 0; i < servers.size(); ++i) {
    // Pages are opened in ten bursts, with seconds of reading between them.
    if (i % 17 == 0) begin += milliseconds(&random, 11'000, 16'000);
    const IpVersion version =
        i % 3 != 2 || i >= 3 * (servers.size() - kIpv4Servers) ? IpVersion::k4 : IpVersion::k6;
    wire.connection(begin + milliseconds(&random, 0, 2000), version, stations[0], servers[i], 443,
                    version == IpVersion::k6 ? 4 : 2, 20'000, 30 * kMillisecond);
  }
  recording.sort();
  // Two clocks: four packets are stamped a little before the one in front of them.
  auto& packets = recording.packets();
  for (size_t i = 1; i <= 4; ++i) {
    const size_t at = packets.size() * i / 5;
    packets[at].time_ns = packets[at - 1].time_ns - 7 * kMicrosecond;
  }
  return recording;
}

Recording backscatterDay(uint64_t seed) {
  constexpr int64_t kEnd = 86'360 * kSecond;
  Recording recording;
  Random random(seed, "pcap/backscatter-day");
  Wire wire(&recording, &random);
  const std::vector<Station> routers = stationsOf(0x60, 0xC6120000, 3);
  const std::vector<Station> inside = stationsOf(0x61, 0xC6120000, 2);
  std::vector<Station> sources;
  for (const Station& router : routers) {
    for (const Station& source : farStations(&random, router, 68)) sources.push_back(source);
  }
  int64_t time = milliseconds(&random, 1, 1000);
  while (time < kEnd) {
    const Station& from = sources[random.below(static_cast<uint32_t>(sources.size()))];
    Station to = inside[random.below(2)];
    to.ipv4 = 0xC6120000 + random.below(512);
    const auto dport = static_cast<uint16_t>(random.between(1024, 65535));
    constexpr uint16_t kServices[] = {22, 23, 80, 443, 445, 3389};
    const uint16_t service = kServices[random.below(std::size(kServices))];
    const uint32_t what = random.below(1000);
    const uint32_t seq = random.bits32();
    const uint32_t ack = random.bits32();
    if (what < 6) {
      wire.unreachable(time, from, to, dport, service);
    } else if (what < 8) {
      wire.udp(time, IpVersion::k4, from, to, service, dport, wire.noise(18));
    } else if (what < 300) {
      wire.tcp(time, IpVersion::k4, from, to, dport, service, seq, 0, kSyn, {});
    } else if (what < 600) {
      wire.tcp(time, IpVersion::k4, from, to, service, dport, seq, ack, kRst | kAck, {});
    } else {
      wire.tcp(time, IpVersion::k4, from, to, service, dport, seq, ack, kSyn | kAck, {});
    }
    time += random.chance(10) ? milliseconds(&random, 200'000, 900'000)
                              : milliseconds(&random, 1, 25'000);
  }
  recording.sort();
  return recording;
}

std::vector<Capture> allCaptures(uint64_t seed) {
  return {
      {"backscatter-day.pcap", Format::kPcapMicroseconds, backscatterDay(seed)},
      {"building-day.pcap", Format::kPcapMicroseconds, buildingDay(seed)},
      {"odd-mix.pcap", Format::kPcapNanoseconds, oddMix(seed)},
      {"office.pcapng", Format::kPcapng, office(seed)},
      {"peers.pcap", Format::kPcapMicroseconds, peers(seed)},
      {"plant-floor.pcap", Format::kPcapMicroseconds, plantFloor(seed)},
      {"web.pcap", Format::kPcapMicroseconds, web(seed)},
  };
}

std::string kindTable(const std::vector<Capture>& captures) {
  std::string table = "file,kind,packets\n";
  for (const Capture& capture : captures) {
    std::map<std::string, uint32_t> kinds;
    for (const Recording::Packet& packet : capture.recording.packets()) ++kinds[packet.kind];
    for (const auto& [kind, count] : kinds) {
      table += capture.file + ',' + kind + ',' + std::to_string(count) + '\n';
    }
  }
  return table;
}

std::string refusedTable(const std::vector<Capture>& captures) {
  std::string table = "file,number,reason\n";
  for (const Capture& capture : captures) {
    uint32_t number = 0;
    for (const Recording::Packet& packet : capture.recording.packets()) {
      ++number;
      if (!packet.refused || packet.kind == kCut) continue;
      table += capture.file + ',' + std::to_string(number) + ',' + packet.kind + '\n';
    }
  }
  return table;
}

}  // namespace jexdata
