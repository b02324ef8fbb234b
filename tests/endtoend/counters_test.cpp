// Captured traffic through both programs: what a partner reads from the shared segment after a
// barrier is, entry by entry, what a count of the capture's own frames gives.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "endtoend/captures.h"
#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/wait_until.h"

namespace {

using jextest::answerOf;
using jextest::Bytes;
using jextest::CaptureFrame;
using jextest::Child;
using jextest::Frame;
using jextest::framesOf;
using jextest::portOf;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using nlohmann::json;

struct Count {
  uint64_t packets = 0;
  uint64_t bytes = 0;

  void add(const Frame& frame) {
    ++packets;
    bytes += frame.length;
  }
  bool operator==(const Count& other) const {
    return packets == other.packets && bytes == other.bytes;
  }
};

std::ostream& operator<<(std::ostream& out, const Count& count) {
  return out << count.packets << " packets, " << count.bytes << " bytes";
}

using Counts = std::vector<Count>;

// ---- an account of a frame that knows nothing of the switch

uint32_t read16(const Bytes& bytes, size_t at) { return bytes.at(at) << 8 | bytes.at(at + 1); }

/// What the router's tables look at.
struct Datagram {
  int version = 0;  // 4, 6; 0 for anything else
  uint32_t ttl = 0;
  uint32_t protocol = 0;
  Bytes destination;
};

Datagram datagramOf(const Bytes& frame) {
  size_t type_at = 12;
  while (read16(frame, type_at) == 0x8100 || read16(frame, type_at) == 0x88a8) type_at += 4;
  const size_t ip = type_at + 2;
  Datagram datagram;
  const auto copy = [&](size_t from, size_t size) {
    const auto begin = frame.begin() + static_cast<std::ptrdiff_t>(from);
    datagram.destination.assign(begin, begin + static_cast<std::ptrdiff_t>(size));
  };
  if (read16(frame, type_at) == 0x0800) {
    datagram.version = 4;
    datagram.ttl = frame.at(ip + 8);
    datagram.protocol = frame.at(ip + 9);
    copy(ip + 16, 4);
  } else if (read16(frame, type_at) == 0x86dd) {
    datagram.version = 6;
    datagram.ttl = frame.at(ip + 7);
    copy(ip + 24, 16);
  }
  return datagram;
}

/// Captures, a switch, and the partner that fills and counts.
class CountersTest : public jextest::OverCaptures {
 protected:
  void start(const std::string& input, const std::string& program, const Words& counter_tables) {
    partner_.reset();
    agent_.reset();
    input_ = input;
    // Without updates of its own accord: what is read is what the barrier asked for.
    // Nothing is plugged into the ports that packets leave at: counting does not need it.
    agent_ = startSwitch(program, {"--clock", "capture", "--counter-update-ms", "0"});
    partner_ = std::make_unique<ShellProcess>(program);
    for (const std::string& table : counter_tables) partner_->ask("counters-start " + table);
    frames_ = framesOf(input);
    ASSERT_FALSE(frames_.empty());
  }

  /// Lets the capture in at a port, and waits until all of it has been through the tables.
  void passAt(int port) {
    const std::string number = std::to_string(port);
    EXPECT_TRUE(switchctl({"port-add", number + "=pcap:" + input_}).endedWith(0));
    EXPECT_TRUE(waitUntil([&] { return portOf(port).at("input") == "exhausted"; }));
  }

  Counts readAll(const std::string& table) {
    Counts counts;
    for (const json& line : partner_->list("counters-read " + table)) {
      EXPECT_EQ(line.at("index"), counts.size());
      counts.push_back({line.at("packets"), line.at("bytes")});
    }
    return counts;
  }

  Counts syncAndReadAll(const std::string& table) {
    partner_->ask("barrier " + table + " timeout=240000");
    return readAll(table);
  }

  static void expectSame(const Counts& found, const Counts& expected) {
    ASSERT_EQ(found.size(), expected.size());
    for (size_t i = 0; i < found.size(); ++i) {
      EXPECT_EQ(found[i], expected[i]) << "entry " << i;
    }
  }

  /// Frames that came in whole and that the switch refused.
  static uint64_t refused() {
    const json packets = answerOf({"ports"}).at("packets");
    uint64_t count = 0;
    for (const auto& [reason, frames] : packets.at("drop_reasons").items()) {
      const bool of_program =
          reason == "dropped by the program" || reason.find("time to live") == 0;
      if (reason != "frame was cut by the capture" && !of_program) {
        count += frames.get<uint64_t>();
      }
    }
    return count;
  }

  std::unique_ptr<Child> agent_;
  std::unique_ptr<ShellProcess> partner_;
  /// Whole frames of the capture that a switch must refuse.
  uint64_t refusedInCapture() const {
    return static_cast<uint64_t>(
        std::count_if(frames_.begin(), frames_.end(),
                      [](const CaptureFrame& frame) { return !frame.taken && !frame.isCut(); }));
  }
  void countPorts(const std::string& input);
  void countRoutesAndRules(const std::string& input);

  std::string input_;
  std::vector<CaptureFrame> frames_;
};

void CountersTest::countPorts(const std::string& input) {
  constexpr size_t kPorts = 512;
  start(input, "l2_switch", {"port_counters"});
  Counts expected(kPorts);
  expectSame(syncAndReadAll("port_counters"), expected);
  for (const int port : {0, 7, 511}) {
    passAt(port);
    for (const CaptureFrame& frame : frames_) {
      if (frame.taken) expected[static_cast<size_t>(port)].add(frame);
    }
    EXPECT_NE(readAll("port_counters"), expected) << "nothing has been synced";
    expectSame(syncAndReadAll("port_counters"), expected);
  }
  EXPECT_EQ(refused(), 3 * refusedInCapture()) << answerOf({"ports"});
}

TEST_P(CountersTest, OfPortsAreWhatCameInAtThem) {
  forEachFile([this](const std::string& input) { countPorts(input); });
}

// ---- the router

constexpr size_t kRoutes = 65536, kRules = 32768;
constexpr size_t kPrivate = 1, kUpperHalf = 300, kOtherIpv4 = 65535, kGlobalIpv6 = 7,
                 kOtherIpv6 = 8;
constexpr size_t kUnnamed = 0, kMulticast = 5, kTcp = 6, kUdp = 32767;

std::string nexthop(int member, size_t counter) {
  const std::string number = std::to_string(member);
  return "member-add nexthops member=" + number +
         " -> set_nexthop port=" + (member % 2 ? "2" : "3") + " dmac=02:00:00:00:00:0" + number +
         " smac=02:00:00:00:01:0" + number + " counter=" + std::to_string(counter);
}

Words routerCommands() {
  return {nexthop(1, kPrivate),
          nexthop(2, kUpperHalf),
          nexthop(3, kOtherIpv4),
          nexthop(4, kGlobalIpv6),
          nexthop(5, kOtherIpv6),
          "add ipv4_lpm ipv4.dst=192.168.0.0/16 -> member=1",
          "add ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=1",
          "add ipv4_lpm ipv4.dst=128.0.0.0/1 -> member=2",
          "add ipv4_lpm ipv4.dst=0.0.0.0/0 -> member=3",
          "add ipv6_lpm ipv6.dst=2000::/3 -> member=4",
          "add ipv6_lpm ipv6.dst=::/0 -> member=5",
          "add acl ipv4.dst=224.0.0.0&&&240.0.0.0 priority=9 -> deny counter=" +
              std::to_string(kMulticast),
          "add acl ipv4.protocol=6 priority=1 -> permit counter=" + std::to_string(kTcp),
          "add acl ipv4.protocol=17 priority=1 -> permit counter=" + std::to_string(kUdp)};
}

size_t routeOf(const Datagram& datagram) {
  const Bytes& to = datagram.destination;
  if (datagram.version == 6) return to.at(0) >> 5 == 1 ? kGlobalIpv6 : kOtherIpv6;
  if (to.at(0) == 10 || (to.at(0) == 192 && to.at(1) == 168)) return kPrivate;
  return to.at(0) >= 128 ? kUpperHalf : kOtherIpv4;
}

size_t ruleOf(const Datagram& datagram) {
  if (datagram.destination.at(0) >> 4 == 14) return kMulticast;
  if (datagram.protocol == 6) return kTcp;
  return datagram.protocol == 17 ? kUdp : kUnnamed;
}

void CountersTest::countRoutesAndRules(const std::string& input) {
  start(input, "router", {"route_counters", "acl_counters"});
  partner_->make(routerCommands(), {"nexthops", "ipv4_lpm", "ipv6_lpm", "acl"});
  Counts routes(kRoutes), rules(kRules);
  for (const CaptureFrame& frame : frames_) {
    if (!frame.taken) continue;
    const Datagram datagram = datagramOf(frame.bytes);
    if (datagram.version == 0) continue;
    if (datagram.version == 4) {
      const size_t rule = ruleOf(datagram);
      rules[rule].add(frame);
      if (rule == kMulticast) continue;
    }
    if (datagram.ttl > 1) routes[routeOf(datagram)].add(frame);
  }
  passAt(1);
  expectSame(syncAndReadAll("route_counters"), routes);
  expectSame(syncAndReadAll("acl_counters"), rules);
  EXPECT_EQ(refused(), refusedInCapture()) << answerOf({"ports"});
}

TEST_P(CountersTest, OfRoutesAndRulesAreWhatTheyMatched) {
  forEachFile([this](const std::string& input) { countRoutesAndRules(input); });
}

INSTANTIATE_TEST_SUITE_P(Recorded, CountersTest, testing::ValuesIn(jextest::captures()),
                         jextest::inWords);

}  // namespace
