// switchctl watch: what is learned, what ages, ports up and down, told while it happens.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/wait_until.h"

namespace {

using jextest::answerOf;
using jextest::Bytes;
using jextest::Child;
using jextest::Finished;
using jextest::frameFrom;
using jextest::isOneLine;
using jextest::kCaptureTime;
using jextest::kPatience;
using jextest::kSecond;
using jextest::pathOf;
using jextest::portOf;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using jextest::writeCapture;
using nlohmann::json;
using testing::HasSubstr;

void run(const Words& arguments) {
  const Finished result = switchctl(arguments);
  EXPECT_TRUE(result.endedWith(0)) << result.error;
}

void expectEnd(Child& process, int status) {
  const jextest::Exit exit = process.waitForExit();
  EXPECT_EQ(exit.signal, 0);
  EXPECT_EQ(exit.code, status) << process.standardError();
}

/// A switch whose time is that of the frames that come in: 0 before the first.
class Watch : public testing::Test {
 protected:
  /// A process that watches already.
  static std::unique_ptr<Child> watch(const Words& more = {}) {
    Words arguments{"watch"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    auto process = std::make_unique<Child>(JEX_SWITCHCTL, arguments);
    const std::string first = process->readLine();
    const bool in_json = !first.empty() && first[0] == '{';
    EXPECT_EQ(first,
              in_json ? R"({"event":"watching","device":0})" : std::string("watching device 0"))
        << process->standardError();
    return process;
  }

  std::unique_ptr<Child> agent_ = startSwitch("l2_switch", {"--clock", "capture"});
};

TEST_F(Watch, TellsPortsUpAndDown) {
  const auto watcher = watch({"--json"});
  const std::string out = pathOf("watched.out");
  run({"port-add", "2=pcap:," + out});
  EXPECT_EQ(watcher->readLine(), R"({"event":"port_up","time_ns":0,"port":2})");
  run({"port-down", "2"});
  EXPECT_EQ(watcher->readLine(), R"({"event":"port_down","time_ns":0,"port":2})");
  run({"port-up", "2"});
  EXPECT_EQ(watcher->readLine(), R"({"event":"port_up","time_ns":0,"port":2})");
  run({"port-delete", "2"});
  EXPECT_EQ(watcher->readLine(), R"({"event":"port_down","time_ns":0,"port":2})");
}

TEST_F(Watch, TellsSourcesThatAreLearnedAndEntriesThatAge) {
  ShellProcess partner("l2_switch");
  partner.make({"add smac ethernet.src=02:00:00:00:00:07 meta.ingress_port=1 -> known ttl=1500",
                "queue-create q 64", "idle-register smac q ttl-query=100 max-ttl=9000 min-ttl=100"},
               {"smac"});
  const json entry = json::parse(switchctl({"entries", "smac", "--json"}).output.at(0));
  const auto watcher = watch({"--json"});
  const auto text_watcher = watch({"--count", "3"});
  // At seconds 0 to 3. The entry is silent from 0 on; the look that finds it comes before second 2.
  run({"inject", "--port", "1",
       writeCapture("watch.in", {frameFrom(7), frameFrom(9), frameFrom(8), frameFrom(7)})});

  const auto learned = [](int second, const char* mac) {
    return json{{"event", "learned"},
                {"time_ns", kCaptureTime + second * kSecond},
                {"program", "l2_switch"},
                {"digest", "mac_learn"},
                {"fields", {{"ethernet.src", mac}, {"meta.ingress_port", "1"}}}};
  };
  EXPECT_EQ(json::parse(watcher->readLine()), learned(1, "02:00:00:00:00:09"));
  EXPECT_EQ(json::parse(watcher->readLine()),
            json({{"event", "aged"},
                  {"time_ns", kCaptureTime + 2 * kSecond},
                  {"program", "l2_switch"},
                  {"table", "smac"},
                  {"handle", entry.at("handle")},
                  {"key", {{"ethernet.src", "02:00:00:00:00:07"}, {"meta.ingress_port", "1"}}}}));
  EXPECT_EQ(json::parse(watcher->readLine()), learned(2, "02:00:00:00:00:08"));

  EXPECT_EQ(text_watcher->readLine(),
            "2020-09-13T12:26:41.000000000Z learned mac_learn ethernet.src=02:00:00:00:00:09 "
            "meta.ingress_port=1");
  EXPECT_EQ(text_watcher->readLine(), "2020-09-13T12:26:42.000000000Z aged smac #" +
                                          entry.at("handle").dump() +
                                          " ethernet.src=02:00:00:00:00:07 meta.ingress_port=1");
  EXPECT_EQ(text_watcher->readLine(),
            "2020-09-13T12:26:42.000000000Z learned mac_learn ethernet.src=02:00:00:00:00:08 "
            "meta.ingress_port=1");
  EXPECT_EQ(text_watcher->readLine(), "3 events");
  expectEnd(*text_watcher, 0);
}

TEST_F(Watch, EndsWellAtASignal) {
  for (const int signal_number : {SIGINT, SIGTERM}) {
    const auto text = watch();
    text->signal(signal_number);
    EXPECT_EQ(text->readLine(), "0 events");
    expectEnd(*text, 0);
    const auto in_json = watch({"--json"});
    in_json->signal(signal_number);
    EXPECT_EQ(in_json->readLine(), "<end>");
    expectEnd(*in_json, 0);
  }
}

TEST_F(Watch, CountsWhatASlowReaderLosesWhilePacketsGoOn) {
  // More than the switch queues for a watcher, and the kernel for a connection.
  constexpr uint64_t kFrames = 300'000;
  const std::string capture = writeCapture("many.in", std::vector<Bytes>(kFrames, frameFrom(9)));
  const auto watcher = watch({"--json"});
  watcher->stop();
  run({"port-add", "1=pcap:" + capture});
  EXPECT_TRUE(waitUntil([] { return portOf(1).at("input") == "exhausted"; }, 2 * kPatience));
  EXPECT_EQ(answerOf({"ports"}).at("packets").at("received"), kFrames);
  watcher->signal(SIGCONT);

  uint64_t learned = 0, lost = 0, ups = 0;
  // The port comes up at some place among them, and may itself be lost.
  while (learned + lost + ups < kFrames + 1) {
    const std::string line = watcher->readLine();
    const json event = json::parse(line, nullptr, false);
    ASSERT_TRUE(event.is_object()) << line << watcher->standardError();
    const std::string what = event.at("event");
    learned += what == "learned" ? 1u : 0u;
    ups += what == "port_up" ? 1u : 0u;
    lost += what == "lost" ? event.at("events").get<uint64_t>() : 0;
  }
  EXPECT_EQ(learned + lost + ups, kFrames + 1);
  EXPECT_GT(learned, 0u);
  EXPECT_GT(lost, 0u);
  watcher->signal(SIGTERM);
  EXPECT_EQ(watcher->readLine(), "<end>");
  expectEnd(*watcher, 0);
}

TEST_F(Watch, SaysWhyItFails) {
  const Finished no_device = switchctl({"watch", "--device", "4"});
  EXPECT_TRUE(no_device.endedWith(1));
  EXPECT_EQ(no_device.error, "switchctl: 127.0.0.1:50051: there is no device 4\n");
  EXPECT_TRUE(switchctl({"watch", "--count", "many"}).endedWith(2));

  const auto watcher = watch();
  agent_->signal(SIGTERM);
  agent_->waitForExit();
  EXPECT_EQ(watcher->readLine(), "<end>");
  expectEnd(*watcher, 1);
  EXPECT_THAT(watcher->standardError(), HasSubstr("switchctl: cannot reach 127.0.0.1:50051: "));
  EXPECT_TRUE(isOneLine(watcher->standardError()));
}

}  // namespace
