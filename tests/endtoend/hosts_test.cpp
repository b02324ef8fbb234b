// A slice agent between hosts: network namespaces with the kernel's own protocol stack, plugged
// into its ports by veth pairs. What a partner writes decides whether they reach each other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "endtoend/host.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/private_world.h"
#include "support/wait_until.h"

namespace {

using jextest::answerOf;
using jextest::Child;
using jextest::Finished;
using jextest::Frame;
using jextest::Host;
using jextest::kGateway;
using jextest::pathOf;
using jextest::portOf;
using jextest::readCapture;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using nlohmann::json;
using testing::HasSubstr;

/// A web server of a host, with one file.
class WebServer {
 public:
  WebServer(const Host& host, int port)
      : process_(host.start({"python3", "-u", "-m", "http.server", "--bind", "::", "--directory",
                             folder(), std::to_string(port)})) {
    EXPECT_THAT(process_.readLine(), HasSubstr("Serving HTTP")) << process_.standardError();
  }
  static std::string content() {
    std::string text;
    for (int line = 0; text.size() < 300'000; ++line) text += std::to_string(line) + "\n";
    return text;
  }

 private:
  static std::string folder() {
    const std::string path = pathOf("web");
    std::filesystem::create_directories(path);
    std::ofstream(path + "/file") << content();
    return path;
  }
  Child process_;
};

std::string downloaded() { return pathOf("download"); }

Words curl(const std::string& address, int port) {
  const std::string name = address.find(':') == std::string::npos ? address : "[" + address + "]";
  return {
      "curl", "--silent", "--globoff",  "--noproxy",
      "*",    "--output", downloaded(), "http://" + name + ":" + std::to_string(port) + "/file"};
}

/// Exit status of a download by `host`; the file has to be whole if it is 0.
int download(const Host& host, const std::string& address, int port) {
  const Finished run = host.run(curl(address, port));
  if (run.exit.code == 0) {
    std::ifstream file(downloaded());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), WebServer::content());
  }
  return run.exit.code;
}

/// Packets that the switch has received and sent to nobody.
int64_t lostPackets() {
  const json packets = answerOf({"ports"}).at("packets");
  return packets.at("dropped").get<int64_t>() + packets.at("sent_nowhere").get<int64_t>();
}

/// Starts `command`, which has no end of its own, on `host`, and interrupts it when the switch has
/// lost `count` packets. Tells how it has ended.
jextest::Exit interruptedWhenLost(const Host& host, const Words& command, int64_t count) {
  const int64_t before = lostPackets();
  Child attempt = host.start(command);
  EXPECT_TRUE(waitUntil([&] { return attempt.ended() || lostPackets() >= before + count; }));
  attempt.signal(SIGINT);
  return attempt.waitForExit();
}

/// Whether none of `host`'s requests is answered. There are more of them than the few packets that
/// a host sends on its own.
bool misses(const Host& host, const std::string& address) {
  const jextest::Exit exit =
      interruptedWhenLost(host, {"ping", "-n", "-q", "-i", "0.02", address}, 20);
  return exit.signal == 0 && exit.code == 1;
}

bool cannotDownload(const Host& host, const std::string& address, int port) {
  return interruptedWhenLost(host, curl(address, port), 1).signal == SIGINT;
}

/// Sends 8 MB over one TCP connection. The receiver stops counting when the sender is done, so what
/// is then on its way, a few windows at most, is not in its report.
void expectTransfer(const Host& from, const Host& to, const std::string& address) {
  constexpr int64_t kSent = 8'000'000;
  constexpr int64_t kOnItsWay = 1'000'000;
  Child server = to.start({"iperf3", "--server", "--one-off", "--forceflush"});
  std::string line;
  do {
    line = server.readLine();
  } while (!line.empty() && line[0] != '<' && line.find("listening") == std::string::npos);
  ASSERT_THAT(line, HasSubstr("listening")) << server.standardError();
  const Finished client = from.run({"iperf3", "--client", address, "--bytes", std::to_string(kSent),
                                    "--window", "64K", "--json"});
  std::string text;
  for (const std::string& part : client.output) text += part;
  ASSERT_TRUE(client.endedWith(0)) << text << client.error;
  const json end = json::parse(text).at("end");
  EXPECT_GE(end.at("sum_sent").at("bytes"), kSent);
  EXPECT_GE(end.at("sum_received").at("bytes"), kSent - kOnItsWay);
}

/// A switch with as many hosts as the parameter says, on the ports from 1 on.
class HostsTest : public testing::TestWithParam<int> {
 protected:
  void plug(const std::string& program, void (Host::*join)()) {
    Words ports;
    for (int number = 1; number <= GetParam(); ++number) {
      hosts_.push_back(std::make_unique<Host>(number));
      (hosts_.back().get()->*join)();
      ports.insert(ports.end(), {"--port", hosts_.back()->spec()});
    }
    agent_ = startSwitch(program, ports);
    for (const auto& host : hosts_) {
      EXPECT_TRUE(waitUntil([&] { return portOf(host->port()).at("link") == true; }));
    }
    partner_ = std::make_unique<ShellProcess>(program);
  }
  void expectAllReachEachOther() {
    for (const auto& from : hosts_) {
      for (const auto& to : hosts_) {
        if (from == to) continue;
        EXPECT_TRUE(from->reaches(to->v4())) << from->port() << " to " << to->v4();
        EXPECT_TRUE(from->reaches(to->v6())) << from->port() << " to " << to->v6();
      }
    }
  }
  Host& first() { return *hosts_.front(); }
  Host& last() { return *hosts_.back(); }

  std::vector<std::unique_ptr<Host>> hosts_;
  std::unique_ptr<Child> agent_;
  std::unique_ptr<ShellProcess> partner_;
};

std::string forward(const char* verb, const Host& host, int port) {
  return std::string(verb) + " dmac ethernet.dst=" + host.mac() +
         " -> forward port=" + std::to_string(port);
}

class HostsOnALan : public HostsTest {
 protected:
  void SetUp() override {
    JEX_SKIP_WITHOUT_NETWORKS();
    plug("l2_switch", &Host::joinLan);
  }
  void makeKnown() {
    Words commands;
    for (const auto& host : hosts_) commands.push_back(forward("add", *host, host->port()));
    partner_->make(commands, {"dmac"});
  }
};

TEST_P(HostsOnALan, ReachEachOtherBeforeAndAfterTheirAddressesAreKnown) {
  expectAllReachEachOther();
  json packets = answerOf({"ports"}).at("packets");
  EXPECT_GT(packets.at("flooded"), 0);
  EXPECT_EQ(packets.at("forwarded"), 0);
  makeKnown();
  expectAllReachEachOther();
  EXPECT_GT(answerOf({"ports"}).at("packets").at("forwarded"), 0);
}

TEST_P(HostsOnALan, LoadFilesFromEachOther) {
  makeKnown();
  const WebServer server(last(), 8000);
  EXPECT_EQ(download(first(), last().v4(), 8000), 0);
  EXPECT_EQ(download(first(), last().v6(), 8000), 0);
  expectTransfer(first(), last(), last().v4());
}

TEST_P(HostsOnALan, AreLostWhenTheirAddressIsBehindAnotherPort) {
  makeKnown();
  EXPECT_TRUE(first().reaches(last().v4()));
  partner_->make({forward("modify", last(), 9)}, {"dmac"});
  EXPECT_TRUE(misses(first(), last().v4()));
  partner_->make({forward("modify", last(), last().port())}, {"dmac"});
  EXPECT_TRUE(first().reaches(last().v4()));
}

INSTANTIATE_TEST_SUITE_P(TwoAndFour, HostsOnALan, testing::Values(2, 4),
                         testing::PrintToStringParamName());

class ThreeOnALan : public HostsOnALan {};

bool isPing(const Frame& frame) {
  return frame.bytes.size() > 34 && frame.bytes[12] == 8 && frame.bytes[13] == 0 &&
         frame.bytes[23] == IPPROTO_ICMP;
}

TEST_P(ThreeOnALan, AThirdHostDoesNotHearWhatKnownOnesSayToEachOther) {
  makeKnown();
  for (const bool known : {true, false}) {
    if (!known) partner_->make({"delete dmac ethernet.dst=" + hosts_[1]->mac()}, {"dmac"});
    const std::string heard = pathOf(known ? "known.pcap" : "unknown.pcap");
    Child tap(JEX_SWITCHCTL, {"capture", "--port", "3", heard});
    ASSERT_EQ(tap.readLine(), "capturing at port 3");
    EXPECT_TRUE(first().reaches(hosts_[1]->v4()));
    // What the tap has seen last comes from this.
    EXPECT_TRUE(first().reaches(last().v4()));
    const auto pings = [&] {
      const auto frames = readCapture(heard);
      return std::count_if(frames.begin(), frames.end(), isPing);
    };
    // Both ways of two requests to itself, and two requests to an unknown address.
    const int expected = known ? 4 : 6;
    EXPECT_TRUE(waitUntil([&] { return pings() >= expected; })) << pings();
    tap.signal(SIGINT);
    tap.waitForExit();
    EXPECT_EQ(pings(), expected);
  }
}

INSTANTIATE_TEST_SUITE_P(Three, ThreeOnALan, testing::Values(3), testing::PrintToStringParamName());

class HostsBehindARouter : public HostsTest {
 protected:
  void SetUp() override {
    JEX_SKIP_WITHOUT_NETWORKS();
    plug("router", &Host::joinRouter);
    Words commands;
    for (const auto& host : hosts_) {
      const std::string n = std::to_string(host->port());
      commands.push_back("member-add nexthops member=" + n + " -> set_nexthop port=" + n +
                         " dmac=" + host->mac() + " smac=" + kGateway);
      commands.push_back("add " + route4(*host) + " -> member=" + n);
      commands.push_back("add " + route6(*host) + " -> member=" + n);
    }
    partner_->make(commands, {"nexthops", "ipv4_lpm", "ipv6_lpm"});
  }
  static std::string route4(const Host& host) {
    return "ipv4_lpm ipv4.dst=10.0." + std::to_string(host.port()) + ".0/24";
  }
  static std::string route6(const Host& host) {
    return "ipv6_lpm ipv6.dst=fd00:" + std::to_string(host.port()) + "::/64";
  }
};

TEST_P(HostsBehindARouter, ReachEachOther) { expectAllReachEachOther(); }

TEST_P(HostsBehindARouter, LoadFilesFromEachOther) {
  const WebServer server(last(), 8000);
  EXPECT_EQ(download(first(), last().v4(), 8000), 0);
  EXPECT_EQ(download(first(), last().v6(), 8000), 0);
  expectTransfer(first(), last(), last().v4());
  expectTransfer(last(), first(), first().v6());
}

TEST_P(HostsBehindARouter, AreLostWithoutTheirRoute) {
  const WebServer server(last(), 8000);
  const std::string member = " -> member=" + std::to_string(last().port());
  partner_->make({"delete " + route4(last())}, {"ipv4_lpm"});
  EXPECT_TRUE(misses(first(), last().v4()));
  EXPECT_TRUE(cannotDownload(first(), last().v4(), 8000));
  EXPECT_TRUE(first().reaches(last().v6()));
  EXPECT_EQ(download(first(), last().v6(), 8000), 0);

  partner_->make({"add " + route4(last()) + member, "delete " + route6(last())},
                 {"ipv4_lpm", "ipv6_lpm"});
  EXPECT_TRUE(first().reaches(last().v4()));
  EXPECT_EQ(download(first(), last().v4(), 8000), 0);
  EXPECT_TRUE(misses(first(), last().v6()));
  EXPECT_TRUE(cannotDownload(first(), last().v6(), 8000));
}

TEST_P(HostsBehindARouter, AreKeptFromOnePortByADenial) {
  const WebServer open(last(), 8000);
  const WebServer closed(last(), 8001);
  EXPECT_EQ(download(first(), last().v4(), 8001), 0);
  const std::string rule = "acl ipv4.protocol=6 l4.dport=8001";
  partner_->make({"add " + rule + " priority=10 -> deny"}, {"acl"});
  EXPECT_TRUE(cannotDownload(first(), last().v4(), 8001));
  EXPECT_EQ(download(first(), last().v4(), 8000), 0);
  EXPECT_EQ(download(first(), last().v6(), 8001), 0);  // the list is one of IPv4
  EXPECT_TRUE(first().reaches(last().v4()));
  partner_->make({"delete " + rule}, {"acl"});
  EXPECT_EQ(download(first(), last().v4(), 8001), 0);
}

INSTANTIATE_TEST_SUITE_P(TwoAndFour, HostsBehindARouter, testing::Values(2, 4),
                         testing::PrintToStringParamName());

}  // namespace
