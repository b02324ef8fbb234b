// Captures through a learning switch, with the clock of the captures: who is learned,
// and which silences are found, compared with what the capture itself says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "endtoend/captures.h"
#include "endtoend/learner.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/wait_until.h"

namespace {

using jextest::CaptureFrame;
using jextest::Child;
using jextest::directions;
using jextest::framesOf;
using jextest::kLongAge;
using jextest::Learner;
using jextest::portOf;
using jextest::PortsByAddress;
using jextest::ShellProcess;
using jextest::sources;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using jextest::writeCapture;
using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int64_t kMillisecond = 1'000'000;

std::string sourceOf(const CaptureFrame& frame) {
  char text[18];
  const uint8_t* const mac = frame.bytes.data() + 6;
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text;
}

/// The addresses of hosts that have sent something.
std::set<std::string> hostsIn(const std::vector<CaptureFrame>& frames) {
  std::set<std::string> hosts;
  for (const CaptureFrame& frame : frames) {
    if (!frame.taken) continue;
    const bool group = (frame.bytes.at(6) & 1) != 0;
    if (!group) hosts.insert(sourceOf(frame));
  }
  return hosts;
}

class L2LearningOnCaptures : public jextest::OverCaptures {
 protected:
  void start(const std::string& input) {
    agent_.reset();
    input_ = input;
    frames_ = framesOf(input);
    hosts_ = hostsIn(frames_);
    ASSERT_FALSE(hosts_.empty());
    agent_ = startSwitch("l2_switch", {"--clock", "capture"});
  }
  /// Lets the capture in and waits until all of it has been through the tables.
  void passAll() const {
    EXPECT_TRUE(switchctl({"port-add", "1=pcap:" + input_}).endedWith(0));
    EXPECT_TRUE(waitUntil([] { return portOf(1).at("input") == "exhausted"; }));
  }

  void learnEachHostOnce();
  void learnAndForget();
  void findSilences();

  std::string input_;
  std::vector<CaptureFrame> frames_;
  std::set<std::string> hosts_;
  std::unique_ptr<Child> agent_;
};

void L2LearningOnCaptures::learnEachHostOnce() {
  PortsByAddress expected;
  std::multiset<std::string> lines;
  for (const std::string& host : hosts_) {
    expected[host] = "1";
    lines.insert("learned " + host + " on port 1");
  }
  Learner learner(kLongAge);
  passAll();
  EXPECT_TRUE(waitUntil([&] { return sources() == expected && directions() == expected; }))
      << testing::PrintToString(sources());
  // All that it has ever said, up to what was still on its way when it was told to end.
  const Words said = learner.end(SIGTERM);
  EXPECT_EQ(std::multiset<std::string>(said.begin(), said.end()), lines);
  EXPECT_TRUE(waitUntil([&] { return sources().empty() && directions().empty(); }));
}

TEST_P(L2LearningOnCaptures, LearnsEachHostOnceAndNoGroup) {
  forEachFile([this](const std::string& input) {
    start(input);
    if (!HasFatalFailure()) learnEachHostOnce();
  });
}

// How far the capture has come when a host is written to the tables depends on the processes, and
// so do the silences that are found. Whenever that is: every host is learned at some time, and none
// again before it has aged.
void L2LearningOnCaptures::learnAndForget() {
  Learner learner(1);
  passAll();
  PortsByAddress left;
  std::set<std::string> ever;
  const auto follow = [&](const std::string& line) {
    std::array<char, 18> mac{};
    if (std::sscanf(line.c_str(), "learned %17s on port 1", mac.data()) == 1) {
      EXPECT_TRUE(left.emplace(mac.data(), "1").second) << line << " again";
      ever.insert(mac.data());
    } else if (std::sscanf(line.c_str(), "aged %17s on port 1", mac.data()) == 1) {
      EXPECT_EQ(left.erase(mac.data()), 1u) << line;
    } else {
      ADD_FAILURE() << line;
    }
  };
  while (ever != hosts_ && !testing::Test::HasFailure()) follow(learner.lines(1)[0]);
  for (const std::string& line : learner.end(SIGTERM)) follow(line);
  EXPECT_EQ(ever, hosts_);
  EXPECT_TRUE(waitUntil([&] { return sources().empty() && directions().empty(); }));
}

TEST_P(L2LearningOnCaptures, LearnsAndForgetsInTurn) {
  forEachFile([this](const std::string& input) {
    start(input);
    if (!HasFatalFailure()) learnAndForget();
  });
}

// ---- silences

/// An address, and the time of the capture at which its silence was found.
using Silence = std::pair<std::string, int64_t>;

struct KnownHost {
  int64_t ttl_ns = 0;
  int64_t last_ns = 0;
  bool silent = false;
};

/// All silences that a switch finds which knows every host from the beginning, and which looks at
/// the multiples of `interval`: when a frame has moved the clock to or beyond the first look after
/// the host's time was over. The clock never goes back, whatever time stamps do.
std::vector<Silence> silencesIn(const std::vector<CaptureFrame>& frames,
                                std::map<std::string, KnownHost> hosts, int64_t interval) {
  std::vector<Silence> silences;
  int64_t clock = frames.front().time_ns;
  for (auto& [mac, host] : hosts) host.last_ns = clock;
  for (const CaptureFrame& frame : frames) {
    clock = std::max(clock, frame.time_ns);
    for (auto& [mac, host] : hosts) {
      const int64_t over = host.last_ns + host.ttl_ns;
      const int64_t look = (over + interval - 1) / interval * interval;
      if (host.silent || look > clock) continue;
      host.silent = true;
      silences.emplace_back(mac, clock);
    }
    if (!frame.taken) continue;
    const auto sender = hosts.find(sourceOf(frame));
    if (sender == hosts.end()) continue;
    sender->second.last_ns = clock;
    sender->second.silent = false;
  }
  std::sort(silences.begin(), silences.end());
  return silences;
}

/// The silences that a watcher tells, when it has told `count`.
std::vector<Silence> silencesOf(Child& watcher, size_t count) {
  std::vector<Silence> silences;
  while (silences.size() < count) {
    const std::string line = watcher.readLine();
    const json event = json::parse(line, nullptr, false);
    if (!event.is_object()) {
      ADD_FAILURE() << line << watcher.standardError();
      break;
    }
    if (event.at("event") == "port_up") continue;
    // Nobody is learned, since all are known.
    EXPECT_EQ(event.at("event"), "aged") << line;
    silences.emplace_back(event.at("key").at("ethernet.src"), event.at("time_ns"));
  }
  std::sort(silences.begin(), silences.end());
  return silences;
}

void L2LearningOnCaptures::findSilences() {
  constexpr int kIntervalMs = 500;
  constexpr std::array<int, 3> kTtlsMs{1000, 10'000, 60'000};
  std::map<std::string, KnownHost> known;
  Words commands{"queue-create silences 65536",
                 "idle-register smac silences ttl-query=" + std::to_string(kIntervalMs) +
                     " max-ttl=60000 min-ttl=1000"};
  for (const std::string& host : hosts_) {
    const int ttl_ms = kTtlsMs[known.size() % kTtlsMs.size()];
    known[host].ttl_ns = ttl_ms * kMillisecond;
    commands.push_back("add smac ethernet.src=" + host +
                       " meta.ingress_port=1 -> known ttl=" + std::to_string(ttl_ms));
  }
  const std::vector<Silence> expected = silencesIn(frames_, known, kIntervalMs * kMillisecond);
  ASSERT_FALSE(expected.empty());
  ShellProcess partner("l2_switch");
  partner.make(commands, {"smac"});
  Child watcher(JEX_SWITCHCTL, {"watch", "--json"});
  EXPECT_THAT(watcher.readLine(), HasSubstr("watching")) << watcher.standardError();
  passAll();
  EXPECT_EQ(silencesOf(watcher, expected.size()), expected);

  std::map<std::string, size_t> times, expected_times;
  for (const auto& [mac, time] : expected) ++expected_times[mac];
  const std::string wanted = std::to_string(expected.size());
  for (const json& told : partner.list("drain silences max=" + wanted + " wait=40000")) {
    ASSERT_EQ(told.at("kind"), "idle") << told;
    ++times[told.at("key").at("ethernet.src")];
  }
  EXPECT_EQ(times, expected_times);
  partner.ask("idle-deregister smac");
  EXPECT_THAT(partner.list("drain silences"), IsEmpty());
}

TEST_P(L2LearningOnCaptures, FindExactlyTheSilencesOfTheCapture) {
  forEachFile([this](const std::string& input) {
    start(input);
    if (!HasFatalFailure()) findSilences();
  });
}

// The switch finds a host silent on a port that it has left, while the learner does not run. When
// it runs again, the entry of the new port may have got the handle of the old one.
TEST(L2LearningOfMoves, TakesNoOldSilenceForOneOnTheNewPort) {
  const jextest::Bytes broadcast(6, 0xff);
  const auto frameFrom = [&](const jextest::Bytes& source) {
    jextest::Bytes frame(broadcast);
    frame.insert(frame.end(), source.begin(), source.end());
    frame.insert(frame.end(), {0x88, 0xb5});
    frame.resize(60);
    return frame;
  };
  const auto inject = [](const char* port, const std::string& capture) {
    EXPECT_TRUE(switchctl({"inject", "--port", port, capture}).endedWith(0));
  };
  const jextest::Bytes host{2, 0, 0, 0, 0, 1}, group{3, 0, 0, 0, 0, 1};
  const std::string mac = "02:00:00:00:00:01";
  const auto agent = startSwitch("l2_switch", {"--clock", "capture"});
  Learner learner(2);
  inject("1", writeCapture("first.in", {frameFrom(host)}));
  EXPECT_EQ(learner.lines(1)[0], "learned " + mac + " on port 1");
  EXPECT_TRUE(waitUntil([&] { return directions() == PortsByAddress{{mac, "1"}}; }));

  learner.process().stop();
  inject("2", writeCapture("moved.in", {frameFrom(host)}));
  // Nobody is learned from these. The first two move the clock by a second, so that the digest goes
  // its way; the others beyond the host's time on port 1.
  for (const size_t count : {2, 9}) {
    inject("3", writeCapture("later.in", std::vector<jextest::Bytes>(count, frameFrom(group))));
  }
  const auto milliseconds = [] {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
  };
  const auto told = milliseconds();
  EXPECT_TRUE(waitUntil([&] { return milliseconds() > told; }));
  learner.process().signal(SIGCONT);

  EXPECT_TRUE(waitUntil([&] { return directions() == PortsByAddress{{mac, "2"}}; }));
  // Both stand in the queue, which has no order between them: either may come first.
  const Words said = learner.end(SIGTERM);
  EXPECT_THAT(said, testing::AnyOf(testing::ElementsAre("moved " + mac + " on port 2"),
                                   testing::ElementsAre("aged " + mac + " on port 1",
                                                        "learned " + mac + " on port 2")));
}

INSTANTIATE_TEST_SUITE_P(Recorded, L2LearningOnCaptures, testing::ValuesIn(jextest::captures()),
                         jextest::inWords);

}  // namespace
