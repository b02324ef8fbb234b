// The example l2_learning on one switch in every form of its program: described by hand, and as the
// P4 compiler writes it with P4Info and without. It does the same on all of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "endtoend/learner.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/switch_device.h"
#include "support/wait_until.h"

namespace {

using jextest::Bytes;
using jextest::Child;
using jextest::directions;
using jextest::frameFrom;
using jextest::Learner;
using jextest::pathOf;
using jextest::portOf;
using jextest::PortsByAddress;
using jextest::sources;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kFirst[] = "02:00:00:00:00:01";
constexpr char kOther[] = "02:00:00:00:00:02";

/// Where a program comes from, and what its switch needs to be set up.
struct Form {
  const char* name;
  std::string (*program)();
  const char* set_up;
};

/// The compiled switch with its P4Info beside it, in a folder of this run.
std::string compiledSwitch() {
  const std::string folder = pathOf("compiled");
  const auto made =
      jextest::finish(Child("/usr/bin/env", {"python3", JEX_P4_MAKE_CASES, folder, "l2_switch"}));
  EXPECT_TRUE(made.endedWith(0)) << made.error;
  return folder + "/l2_switch.json";
}

std::string compiledSwitchAlone() {
  std::filesystem::remove(std::filesystem::path(compiledSwitch()).parent_path() /
                          "l2_switch.p4info.txtpb");
  return pathOf("compiled") + "/l2_switch.json";
}

constexpr char kFloodGroup[] =
    "mc_mgrp_create 1\n"
    "mc_node_create 0 1 2 3\n"
    "mc_node_associate 1 0\n";

const Form kForms[] = {
    {"Described", [] { return jextest::programFile("l2_switch"); }, ""},
    {"Compiled", compiledSwitch, kFloodGroup},
    {"CompiledWithoutP4Info", compiledSwitchAlone, kFloodGroup},
};

Bytes frameTo(uint8_t to, uint8_t from) {
  Bytes frame = frameFrom(from);
  const Bytes address = {2, 0, 0, 0, 0, to};
  std::copy(address.begin(), address.end(), frame.begin());
  return frame;
}

class L2LearningForms : public testing::TestWithParam<Form> {
 protected:
  void SetUp() override {
    program_ = GetParam().program();
    const std::string set_up = pathOf("set_up");
    std::ofstream(set_up) << GetParam().set_up;
    agent_ = std::make_unique<Child>(
        JEX_SLICE_AGENT, Words{"--program", program_, "--heartbeat-ms", "0", "--clock", "capture",
                               "--configure", set_up, "--port", "3=pcap:," + pathOf("heard.pcap")});
    ASSERT_THAT(agent_->readLine(), StartsWith("slice-agent: ready")) << agent_->standardError();
  }

  /// Lets frames come in at a port, one a second.
  void say(int port, const std::vector<Bytes>& frames) {
    const std::string number = std::to_string(port);
    const std::string capture = jextest::writeCapture("said.pcap", frames);
    EXPECT_TRUE(switchctl({"port-add", number + "=pcap:" + capture}).endedWith(0));
    EXPECT_TRUE(waitUntil([&] { return portOf(port).at("input") == "exhausted"; }));
    EXPECT_TRUE(switchctl({"port-delete", number}).endedWith(0));
  }
  static bool knows(const PortsByAddress& wanted) {
    return waitUntil([&] { return directions() == wanted && sources() == wanted; });
  }

  std::string program_;
  std::unique_ptr<Child> agent_;
};

TEST_P(L2LearningForms, LearnsFollowsDirectsAndForgets) {
  Learner sut(300, program_);
  say(1, {frameFrom(1)});
  EXPECT_THAT(sut.lines(1), ElementsAre(std::string("learned ") + kFirst + " on port 1"));
  EXPECT_TRUE(knows({{kFirst, "1"}}));

  say(2, {frameTo(1, 2)});  // which only port 1 may hear
  EXPECT_THAT(sut.lines(1), ElementsAre(std::string("learned ") + kOther + " on port 2"));
  EXPECT_TRUE(knows({{kFirst, "1"}, {kOther, "2"}}));

  say(2, {frameFrom(1)});
  EXPECT_THAT(sut.lines(1), ElementsAre(std::string("moved ") + kFirst + " on port 2"));
  EXPECT_TRUE(knows({{kFirst, "2"}, {kOther, "2"}}));

  say(2, std::vector<Bytes>(3600, frameFrom(2)));  // an hour in which the first one is silent
  EXPECT_THAT(sut.lines(1), ElementsAre(std::string("aged ") + kFirst + " on port 2"));
  EXPECT_TRUE(knows({{kOther, "2"}}));

  EXPECT_THAT(sut.end(SIGTERM), IsEmpty());
  EXPECT_TRUE(knows({}));
  EXPECT_TRUE(switchctl({"port-delete", "3"}).endedWith(0));
  const auto heard = jextest::readCapture(pathOf("heard.pcap"));
  EXPECT_EQ(heard.size(), 1u + 1 + 3600) << "all but the frame to a known address";
  for (const auto& frame : heard) EXPECT_NE(frame.bytes[5], 1);
}

INSTANTIATE_TEST_SUITE_P(Forms, L2LearningForms, testing::ValuesIn(kForms),
                         [](const auto& form) { return form.param.name; });

}  // namespace
