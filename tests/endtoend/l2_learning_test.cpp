// The example l2_learning between hosts: it learns them from what they say to each other, follows
// them, forgets them, and leaves the switch as it was.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "endtoend/host.h"
#include "endtoend/learner.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/private_world.h"
#include "support/wait_until.h"

namespace {

using jextest::answerOf;
using jextest::Bytes;
using jextest::Child;
using jextest::directions;
using jextest::Finished;
using jextest::Frame;
using jextest::Host;
using jextest::kLongAge;
using jextest::Learner;
using jextest::pathOf;
using jextest::portOf;
using jextest::PortsByAddress;
using jextest::readCapture;
using jextest::sources;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::string learned(const Host& host) {
  return "learned " + host.mac() + " on port " + std::to_string(host.port());
}

std::string aged(const Host& host) {
  return "aged " + host.mac() + " on port " + std::to_string(host.port());
}

void run(const Words& switchctl_arguments) {
  const Finished result = switchctl(switchctl_arguments);
  EXPECT_TRUE(result.endedWith(0)) << result.error;
}

/// A switch whose hosts are on the ports from 1 on.
class L2Learning : public testing::Test {
 protected:
  void SetUp() override { JEX_SKIP_WITHOUT_NETWORKS(); }
  void plug(int hosts, void (Host::*join)()) {
    for (int number = 1; number <= hosts; ++number) {
      hosts_.push_back(std::make_unique<Host>(number));
      (hosts_.back().get()->*join)();
    }
    startAgent();
  }
  void startAgent() {
    Words ports;
    for (const auto& host : hosts_) ports.insert(ports.end(), {"--port", host->spec()});
    agent_ = startSwitch("l2_switch", ports);
    for (const auto& host : hosts_) {
      EXPECT_TRUE(waitUntil([&] { return portOf(host->port()).at("link") == true; }));
    }
  }
  void startLearner(int age_s) { learner_ = std::make_unique<Learner>(age_s); }

  Host& host(size_t number) { return *hosts_.at(number - 1); }

  /// Lets all hosts talk to each other until the agent knows them.
  void learnAll() {
    PortsByAddress all;
    std::set<std::string> lines;
    for (const auto& known : hosts_) {
      all[known->mac()] = std::to_string(known->port());
      lines.insert(learned(*known));
    }
    for (size_t to = 2; to <= hosts_.size(); ++to) {
      EXPECT_TRUE(host(1).reaches(host(to).v4()));
      EXPECT_TRUE(host(to).reaches(host(1).v4()));
    }
    EXPECT_TRUE(learner_->says(lines));
    EXPECT_TRUE(waitUntil([&] { return directions() == all && sources() == all; }));
  }

  std::vector<std::unique_ptr<Host>> hosts_;
  std::unique_ptr<Child> agent_;
  std::unique_ptr<Learner> learner_;
};

bool isPing(const Frame& frame) {
  return frame.bytes.size() > 34 && frame.bytes[12] == 8 && frame.bytes[13] == 0 &&
         frame.bytes[23] == IPPROTO_ICMP;
}

/// What a port hears, or may hear: its own host's traffic, that for everybody, and foreign one.
class Ear {
 public:
  Ear(const Host& host, const std::string& name)
      : mac_(host.mac()),
        file_(pathOf(name)),
        tap_(JEX_SWITCHCTL,
             {"capture", "--port", std::to_string(host.port()), "--direction", "out", file_}) {
    EXPECT_EQ(tap_.readLine(), "capturing at port " + std::to_string(host.port()));
  }
  /// Pings for the host.
  size_t pings() const {
    return count([this](const Frame& frame) { return isPing(frame) && isOwn(frame); });
  }
  /// Frames for one host, which is another.
  size_t foreign() const {
    return count([this](const Frame& f) { return (f.bytes.at(0) & 1) == 0 && !isOwn(f); });
  }

 private:
  template <typename Wanted>
  size_t count(Wanted wanted) const {
    const auto frames = readCapture(file_);
    return static_cast<size_t>(std::count_if(frames.begin(), frames.end(), wanted));
  }
  bool isOwn(const Frame& frame) const {
    return std::equal(frame.bytes.begin(), frame.bytes.begin() + 6, mac_.begin());
  }

  struct Mac : Bytes {
    explicit Mac(const std::string& text) {
      for (size_t at = 0; at < text.size(); at += 3) {
        push_back(static_cast<uint8_t>(std::stoi(text.substr(at, 2), nullptr, 16)));
      }
    }
  };
  const Mac mac_;
  const std::string file_;
  Child tap_;
};

TEST_F(L2Learning, LearnsHostsAndStopsFloodingWhatTheySayToEachOther) {
  plug(3, &Host::joinLan);
  {
    const Ear before(host(3), "before.pcap");
    EXPECT_TRUE(host(1).reaches(host(2).v4()));
    // Two requests and two answers, and an ARP answer.
    EXPECT_TRUE(waitUntil([&] { return before.foreign() >= 5; })) << before.foreign();
  }
  startLearner(kLongAge);
  learnAll();

  const Ear after(host(3), "after.pcap");
  for (int time = 0; time < 10; ++time) EXPECT_TRUE(host(1).reaches(host(2).v4()));
  EXPECT_TRUE(host(2).reaches(host(1).v6()));
  // What comes last has been heard: so would have been all before.
  EXPECT_TRUE(host(1).reaches(host(3).v4()));
  EXPECT_TRUE(waitUntil([&] { return after.pings() == 2; })) << after.pings();
  EXPECT_EQ(after.foreign(), 0u);
}

TEST_F(L2Learning, FollowsAHostToAnotherPort) {
  plug(3, &Host::joinLan);
  startLearner(kLongAge);
  learnAll();

  run({"port-delete", "2"});
  run({"port-add", "4=if:" + host(2).wire()});
  // The host has to say something on its new port to be found there.
  EXPECT_TRUE(waitUntil([&] {
    host(2).run({"ping", "-n", "-c", "1", "-W", "1", host(1).v4()});
    return directions()[host(2).mac()] == "4";
  }));
  EXPECT_TRUE(learner_->says({"moved " + host(2).mac() + " on port 4"}));
  const PortsByAddress now{{host(1).mac(), "1"}, {host(2).mac(), "4"}, {host(3).mac(), "3"}};
  EXPECT_TRUE(waitUntil([&] { return directions() == now && sources() == now; }));
  for (const size_t from : {1, 3}) {
    EXPECT_TRUE(host(from).reaches(host(2).v4()));
    EXPECT_TRUE(host(2).reaches(host(from).v6()));
  }
}

TEST_F(L2Learning, ForgetsASilentHostAtItsTimeAndLearnsItAgain) {
  plug(2, &Host::joinLanSilently);
  startLearner(1);
  for (int round = 0; round < 2; ++round) {
    // One frame of each host, and no other: each is learned once and ages once.
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(host(1).reachesOnce(host(2).v4()));
    const Words lines = learner_->lines(4);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_THAT(lines, UnorderedElementsAre(learned(host(1)), learned(host(2)), aged(host(1)),
                                            aged(host(2))));
    EXPECT_TRUE(waitUntil([] { return directions().empty() && sources().empty(); }));
  }
  EXPECT_THAT(learner_->end(SIGINT), IsEmpty());
}

TEST_F(L2Learning, LeavesTheSwitchAsItWasAndStartsAgain) {
  plug(2, &Host::joinLan);
  for (const int signal_number : {SIGTERM, SIGINT}) {
    startLearner(kLongAge);
    learnAll();
    EXPECT_THAT(learner_->end(signal_number), IsEmpty());
    for (const char* table : {"smac", "dmac"}) {
      EXPECT_TRUE(waitUntil([&] {
        return switchctl({"count", table}).output == Words{"0"};
      })) << testing::PrintToString(switchctl({"entries", table}).output);
    }
    EXPECT_TRUE(host(1).reaches(host(2).v4())) << "what is unknown is not flooded again";

    agent_->signal(SIGTERM);
    const jextest::Exit exit = agent_->waitForExit();
    EXPECT_EQ(exit.signal, 0);
    EXPECT_EQ(exit.code, 0);
    startAgent();
  }
}

TEST(L2LearningCommandLine, IsRefusedWithItsUsageIfItIsWrong) {
  const std::string program = jextest::programFile("l2_switch");
  for (const Words& arguments : std::vector<Words>{
           {}, {program, "0"}, {program, "-3"}, {program, "1000001"}, {program, "5", "more"}}) {
    const Finished result = jextest::finish(Child(JEX_L2_LEARNING, arguments));
    EXPECT_TRUE(result.endedWith(2)) << testing::PrintToString(arguments);
    EXPECT_EQ(result.error, "usage: l2_learning PROGRAM-FILE [AGE-SECONDS]\n");
    EXPECT_THAT(result.output, IsEmpty());
  }
}

}  // namespace
