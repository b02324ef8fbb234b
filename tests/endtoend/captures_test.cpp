// Traffic from capture files through both programs: what leaves is what came in, as far as
// another reader of packets can tell.
#include "endtoend/captures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/wait_until.h"

namespace {

using jextest::answerOf;
using jextest::Bytes;
using jextest::CaptureFrame;
using jextest::Child;
using jextest::finish;
using jextest::Finished;
using jextest::Frame;
using jextest::framesOf;
using jextest::pathOf;
using jextest::portOf;
using jextest::readCapture;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using nlohmann::json;

/// What tshark says about each packet of a capture: time and lengths, the state of its checksums
/// and whether it is malformed. Nothing depends on other packets, some of which a router drops.
Words verdictsOn(const std::string& capture) {
  const Finished run = finish(Child("/usr/bin/env", {"tshark", "-n",
                                                     "-r",     capture,
                                                     "-o",     "ip.check_checksum:TRUE",
                                                     "-o",     "tcp.check_checksum:TRUE",
                                                     "-o",     "udp.check_checksum:TRUE",
                                                     "-o",     "tcp.desegment_tcp_streams:FALSE",
                                                     "-o",     "tcp.analyze_sequence_numbers:FALSE",
                                                     "-o",     "ip.defragment:FALSE",
                                                     "-o",     "ipv6.defragment:FALSE",
                                                     "-T",     "fields",
                                                     "-E",     "separator=|",
                                                     "-e",     "frame.time_epoch",
                                                     "-e",     "frame.len",
                                                     "-e",     "frame.cap_len",
                                                     "-e",     "ip.checksum.status",
                                                     "-e",     "tcp.checksum.status",
                                                     "-e",     "udp.checksum.status",
                                                     "-e",     "icmp.checksum.status",
                                                     "-e",     "icmpv6.checksum.status",
                                                     "-e",     "_ws.malformed"}));
  EXPECT_TRUE(run.endedWith(0)) << run.error;
  return run.output;
}

/// Fails unless each verdict of `sent` is one of `received`, as often.
void expectAmong(const Words& sent, const Words& received) {
  std::multiset<std::string> left(received.begin(), received.end());
  int strange = 0;
  for (const std::string& verdict : sent) {
    const auto same = left.find(verdict);
    if (same != left.end()) {
      left.erase(same);
    } else if (++strange <= 5) {
      ADD_FAILURE() << "no packet that came in is like " << verdict;
    }
  }
  EXPECT_EQ(strange, 0);
}

class CapturesTest : public jextest::OverCaptures {
 protected:
  static std::string output(int port) { return pathOf("out" + std::to_string(port) + ".pcap"); }

  void start(const std::string& program, const Words& commands, const Words& tables) {
    partner_.reset();
    agent_.reset();
    agent_ = startSwitch(program, {"--clock", "capture", "--port", "2=pcap:," + output(2), "--port",
                                   "3=pcap:," + output(3)});
    partner_ = std::make_unique<ShellProcess>(program);
    partner_->make(commands, tables);
  }

  /// Lets the capture in, and waits until all that it leads to stands in the outputs.
  static json passAll(const std::string& input) {
    EXPECT_TRUE(switchctl({"port-add", "1=pcap:" + input}).endedWith(0));
    EXPECT_TRUE(waitUntil([] { return portOf(1).at("input") == "exhausted"; }));
    const json packets = answerOf({"ports"}).at("packets");
    for (const char* port : {"2", "3"}) EXPECT_TRUE(switchctl({"port-delete", port}).endedWith(0));
    return packets;
  }

  void passThroughALanSwitch(const std::string& input);
  void passThroughARouter(const std::string& input);

  std::unique_ptr<Child> agent_;
  std::unique_ptr<ShellProcess> partner_;
};

bool isGroup(const Bytes& frame) { return (frame.at(0) & 1) != 0; }

bool areSame(const std::vector<Frame>& left, const std::vector<Frame>& right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](const Frame& a, const Frame& b) {
                      return a.time_ns == b.time_ns && a.bytes == b.bytes && a.length == b.length;
                    });
}

std::string written(const Bytes& mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text;
}

void CapturesTest::passThroughALanSwitch(const std::string& input) {
  const std::vector<CaptureFrame> frames = framesOf(input);
  ASSERT_FALSE(frames.empty());
  std::map<Bytes, int> ports;  // known addresses, alternately behind ports 2 and 3
  std::map<int, std::vector<Frame>> expected;
  Words commands;
  size_t refused = 0;
  for (const CaptureFrame& frame : frames) {
    if (!frame.taken) {
      ++refused;
      continue;
    }
    if (isGroup(frame.bytes)) {
      expected[2].push_back(frame);
      expected[3].push_back(frame);
      continue;
    }
    const Bytes mac(frame.bytes.begin(), frame.bytes.begin() + 6);
    const auto [known, added] = ports.emplace(mac, 2 + static_cast<int>(ports.size() % 2));
    if (added) {
      commands.push_back("add dmac ethernet.dst=" + written(mac) +
                         " -> forward port=" + std::to_string(known->second));
    }
    expected[known->second].push_back(frame);
  }
  start("l2_switch", commands, {"dmac"});
  const json packets = passAll(input);

  EXPECT_EQ(packets.at("received"), frames.size());
  EXPECT_EQ(packets.at("dropped"), refused) << packets.at("drop_reasons");
  const Words before = verdictsOn(input);
  for (const int port : {2, 3}) {
    const std::vector<Frame> sent = readCapture(output(port));
    EXPECT_FALSE(sent.empty());
    EXPECT_TRUE(areSame(sent, expected[port])) << "port " << port;
    expectAmong(verdictsOn(output(port)), before);
  }
}

TEST_P(CapturesTest, PassThroughALanSwitchUnchanged) {
  forEachFile([this](const std::string& input) { passThroughALanSwitch(input); });
}

void CapturesTest::passThroughARouter(const std::string& input) {
  start("router",
        {"member-add nexthops member=1 -> set_nexthop port=2 dmac=02:00:00:00:00:02 "
         "smac=02:00:00:00:01:02",
         "member-add nexthops member=2 -> set_nexthop port=3 dmac=02:00:00:00:00:03 "
         "smac=02:00:00:00:01:03",
         "group-create ecmp_groups group=1 max=2 members=1,2",
         "add ipv4_lpm ipv4.dst=0.0.0.0/0 -> group=1", "add ipv6_lpm ipv6.dst=::/0 -> group=1"},
        {"nexthops", "ecmp_groups", "ipv4_lpm", "ipv6_lpm"});
  const json packets = passAll(input);
  const auto forwarded = packets.at("forwarded").get<size_t>();
  EXPECT_GT(forwarded, 0u);
  EXPECT_EQ(forwarded + packets.at("dropped").get<size_t>(), packets.at("received"));
  const Words before = verdictsOn(input);
  EXPECT_EQ(before.size(), packets.at("received"));
  Words after;
  for (const int port : {2, 3}) {
    const Words some = verdictsOn(output(port));
    after.insert(after.end(), some.begin(), some.end());
  }
  EXPECT_EQ(after.size(), forwarded);
  expectAmong(after, before);
}

TEST_P(CapturesTest, PassThroughARouterIntact) {
  forEachFile([this](const std::string& input) { passThroughARouter(input); });
}

INSTANTIATE_TEST_SUITE_P(Recorded, CapturesTest, testing::ValuesIn(jextest::captures()),
                         jextest::inWords);

}  // namespace
