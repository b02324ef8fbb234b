// Flows over equal-cost next hops: how evenly they are spread, and which of them move when
// a next hop goes.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "endtoend/switch_run.h"
#include "support/test_data.h"

namespace {

using jextest::Bytes;
using jextest::Child;
using jextest::Finished;
using jextest::Frame;
using jextest::internetSum;
using jextest::pathOf;
using jextest::readCapture;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::Words;
using jextest::writeCapture;

/// Addresses, ports and protocol of a flow, as they stand in its packets.
using Flow = std::array<uint8_t, 13>;

void putNumber(const std::string& text, uint8_t* to) {
  const int number = std::stoi(text);
  to[0] = static_cast<uint8_t>(number >> 8);
  to[1] = static_cast<uint8_t>(number);
}

/// The flows of TCP and UDP in a file, plain or gzip, each once.
std::set<Flow> flowsOf(const std::string& path) {
  std::set<Flow> flows;
  gzFile const file = gzopen(path.c_str(), "rb");
  if (file == nullptr) return flows;
  char line[512];
  while (gzgets(file, line, sizeof line) != nullptr) {
    std::istringstream columns(line);
    std::string start, duration, protocol, src, sport, dst, dport;
    for (std::string* column : {&start, &duration, &protocol, &src, &sport, &dst, &dport}) {
      std::getline(columns, *column, ',');
    }
    if (protocol != "tcp" && protocol != "udp") continue;
    Flow flow{};
    EXPECT_EQ(inet_pton(AF_INET, src.c_str(), &flow[0]), 1) << line;
    EXPECT_EQ(inet_pton(AF_INET, dst.c_str(), &flow[4]), 1) << line;
    putNumber(sport, &flow[8]);
    putNumber(dport, &flow[10]);
    flow[12] = protocol == "tcp" ? IPPROTO_TCP : IPPROTO_UDP;
    flows.insert(flow);
  }
  gzclose(file);
  return flows;
}

constexpr size_t kLink = 14;
constexpr size_t kIp = 20;

void putSum(Bytes* bytes, size_t at, uint16_t sum) {
  (*bytes)[at] = static_cast<uint8_t>(~sum >> 8);
  (*bytes)[at + 1] = static_cast<uint8_t>(~sum);
}

/// A packet of `flow`, the `number`-th: its identification and payload differ.
Bytes packetOf(const Flow& flow, uint8_t number) {
  const bool tcp = flow[12] == IPPROTO_TCP;
  const auto l4_size = static_cast<uint8_t>((tcp ? 20 : 8) + 4);
  Bytes packet{2, 0, 0, 0, 1, 1, 2, 0, 0, 0, 0, 1, 8, 0};
  packet.insert(packet.end(), {0x45, 0, 0, static_cast<uint8_t>(kIp + l4_size), 0, number, 0, 0, 64,
                               flow[12], 0, 0});
  packet.insert(packet.end(), flow.begin(), flow.begin() + 8);
  putSum(&packet, kLink + 10, internetSum(&packet[kLink], kIp));
  const size_t l4 = packet.size();
  packet.insert(packet.end(), flow.begin() + 8, flow.begin() + 12);
  if (tcp) {
    packet.insert(packet.end(), {0, 0, 0, number, 0, 0, 0, 0, 0x50, 0x10, 16, 0, 0, 0, 0, 0});
  } else {
    packet.insert(packet.end(), {0, l4_size, 0, 0});
  }
  packet.insert(packet.end(), 4, number);
  const uint32_t pseudo = internetSum(&packet[kLink + 12], 8) + flow[12] + uint32_t{l4_size};
  putSum(&packet, l4 + (tcp ? 16 : 6), internetSum(&packet[l4], l4_size, pseudo));
  return packet;
}

Flow flowOf(const Bytes& packet) {
  Flow flow{};
  std::copy_n(&packet[kLink + 12], 8, &flow[0]);
  std::copy_n(&packet[kLink + kIp], 4, &flow[8]);
  flow[12] = packet[kLink + 9];
  return flow;
}

constexpr int kMembers = 4;
constexpr uint8_t kPackets = 3;  // of each flow

std::string outputOf(int port) { return "port" + std::to_string(port) + ".pcap"; }

/// A router whose default route is a group of four next hops, member N behind port N.
class EcmpTest : public jextest::OverFiles {
 protected:
  EcmpTest() : OverFiles("flows", "flows") {}

  using Way = std::map<Flow, int>;  // the port that each flow took

  void SetUp() override {
    OverFiles::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const std::string& file : files()) flows_.merge(flowsOf(file));
    ASSERT_GT(flows_.size(), 6000u);
    std::vector<Bytes> packets;
    for (uint8_t number = 0; number < kPackets; ++number) {
      for (const Flow& flow : flows_) packets.push_back(packetOf(flow, number));
    }
    input_ = writeCapture("flows.pcap", packets);

    Words ports;
    Words commands;
    for (int port = 1; port <= kMembers; ++port) {
      const std::string n = std::to_string(port);
      ports.insert(ports.end(), {"--port", n + "=pcap:," + pathOf(outputOf(port))});
      commands.push_back("member-add nexthops member=" + n + " -> set_nexthop port=" + n +
                         " dmac=02:00:00:00:00:0" + n + " smac=02:00:00:00:01:0" + n);
    }
    commands.push_back("group-create ecmp_groups group=1 max=4 members=1,2,3,4");
    commands.push_back("add ipv4_lpm ipv4.dst=0.0.0.0/0 -> group=1");
    agent_ = startSwitch("router", ports);
    partner_ = std::make_unique<ShellProcess>("router");
    partner_->make(commands, {"nexthops", "ecmp_groups", "ipv4_lpm"});
  }

  /// Sends all packets through the router. The test fails unless each flow has kept to one port,
  /// with all its packets.
  Way send() {
    const Finished inject = switchctl({"inject", "--port", "9", input_});
    EXPECT_TRUE(inject.endedWith(0)) << inject.error;
    Way way;
    std::map<Flow, int> packets;
    for (int port = 1; port <= kMembers; ++port) {
      const std::vector<Frame> sent = readCapture(pathOf(outputOf(port)));
      for (size_t i = seen_[port]; i < sent.size(); ++i) {
        const Flow flow = flowOf(sent[i].bytes);
        EXPECT_EQ(way.emplace(flow, port).first->second, port) << "a flow was torn apart";
        ++packets[flow];
      }
      seen_[port] = sent.size();
    }
    EXPECT_EQ(way.size(), flows_.size());
    for (const auto& [flow, count] : packets) EXPECT_EQ(count, kPackets);
    return way;
  }

  static void expectEvenOver(const std::set<int>& ports, const Way& way) {
    std::map<int, int> flows;
    for (const auto& [flow, port] : way) ++flows[port];
    const double even = static_cast<double>(way.size()) / static_cast<double>(ports.size());
    EXPECT_EQ(flows.size(), ports.size());
    for (const auto& [port, count] : flows) {
      EXPECT_TRUE(ports.count(port)) << port;
      EXPECT_NEAR(count, even, even / 10) << "flows at port " << port;
    }
  }

  std::set<Flow> flows_;
  std::string input_;
  std::map<int, size_t> seen_;  // packets of each output that are accounted for
  std::unique_ptr<Child> agent_;
  std::unique_ptr<ShellProcess> partner_;
};

TEST_P(EcmpTest, SpreadsFlowsEvenlyAndKeepsEachTogether) {
  const Way way = send();
  expectEvenOver({1, 2, 3, 4}, way);
  EXPECT_EQ(send(), way);
}

TEST_P(EcmpTest, MovesOnlyTheFlowsOfAMemberThatGoes) {
  const Way before = send();
  partner_->make({"group-deactivate ecmp_groups group=1 member=2"}, {"ecmp_groups"});
  const Way without = send();
  expectEvenOver({1, 3, 4}, without);
  for (const auto& [flow, port] : before) {
    if (port == 2) continue;
    EXPECT_EQ(without.at(flow), port);
  }
  partner_->make({"group-activate ecmp_groups group=1 member=2"}, {"ecmp_groups"});
  EXPECT_EQ(send(), before);
}

INSTANTIATE_TEST_SUITE_P(Flows, EcmpTest, testing::ValuesIn(jextest::madeAndReal("flows")),
                         jextest::inWords);

}  // namespace
