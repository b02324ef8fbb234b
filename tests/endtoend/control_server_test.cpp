// The control server of the SDK's model inside of a process of its own, asked through switchctl.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "jxmodel/control.h"
#include "support/child.h"
#include "support/helper.h"
#include "support/switch_device.h"

namespace {

using jextest::Child;
using jextest::Words;
using testing::HasSubstr;
using testing::StartsWith;
using testing::UnorderedElementsAre;

/// A process with a virtual device: starts servers and removes the device line by line.
JEX_HELPER(controlled_process) {
  std::optional<jextest::SwitchDevice> device;
  device.emplace(jextest::DeviceKind::kVirtual, 3, Words{"l2_switch"});
  std::cout << "up" << std::endl;
  std::string command, address;
  while (std::cin >> command) {
    if (command == "serve") {
      std::cin >> address;
      std::cout << jx_rt_grpc_server_run_with_addr(address.c_str()) << std::endl;
    } else if (command == "port") {
      std::cout << jx_model_grpc_port() << std::endl;
    } else if (command == "remove") {
      device.reset();
      std::cout << "removed" << std::endl;
    }
  }
  return 0;  // with the server still at work
}

Child controlledProcess(const Child::Environment& environment = {}) {
  Child process = Child::helper("controlled_process", {}, environment);
  EXPECT_EQ(process.readLine(), "up");
  return process;
}

std::string status(int code) { return std::to_string(code); }

/// First line that switchctl prints about the process, or what it says on standard error.
std::string ask(Words arguments) {
  arguments.insert(arguments.end(), {"--target", "127.0.0.1:50053", "--json"});
  Child switchctl(JEX_SWITCHCTL, arguments);
  const std::string line = switchctl.readLine();
  return switchctl.waitForExit().code == 0 ? line : switchctl.standardError();
}

TEST(ControlServer, StartsOncePerProcess) {
  Child sut = controlledProcess();
  EXPECT_EQ(sut.ask("port"), "0");
  EXPECT_EQ(sut.ask("serve 127.0.0.1:50053"), status(JX_SUCCESS));
  EXPECT_EQ(sut.ask("serve 127.0.0.1:50054"), status(JX_ALREADY_EXISTS));
  EXPECT_EQ(sut.ask("port"), "50053");
}

TEST(ControlServer, RefusesAnAddressThatCannotBeBoundAndTakesAnotherOneThen) {
  Child sut = controlledProcess();
  EXPECT_EQ(sut.ask("serve 192.0.2.1:50053"), status(JX_IO_ERROR));
  EXPECT_EQ(sut.ask("serve 127.0.0.1"), status(JX_INVALID_ARGUMENTS));
  for (const char* port : {"99999", "65536", "-1", "http", "80x"}) {
    EXPECT_EQ(sut.ask("serve 127.0.0.1:" + std::string(port)), status(JX_INVALID_ARGUMENTS));
  }
  EXPECT_EQ(sut.ask("port"), "0");
  EXPECT_EQ(sut.ask("serve 0.0.0.0:0"), status(JX_SUCCESS));
  EXPECT_NE(sut.ask("port"), "0");
}

TEST(ControlServer, DoesNotShareItsAddressWithAnotherProcess) {
  Child first = controlledProcess();
  ASSERT_EQ(first.ask("serve 127.0.0.1:50053"), status(JX_SUCCESS));
  Child sut = controlledProcess();
  EXPECT_EQ(sut.ask("serve 127.0.0.1:50053"), status(JX_IO_ERROR));
}

TEST(ControlServer, FailsAsAFaultSays) {
  Child sut =
      controlledProcess({{"JX_MODEL_FAULTS", "jx_rt_grpc_server_run_with_addr:1:status=11"}});
  EXPECT_EQ(sut.ask("serve 127.0.0.1:50053"), status(JX_INITIALIZATION_ERROR));
  EXPECT_EQ(sut.ask("serve 127.0.0.1:50053"), status(JX_SUCCESS));
}

TEST(ControlServer, TellsGenericToolsWhatItServes) {
  Child sut = controlledProcess();
  ASSERT_EQ(sut.ask("serve 127.0.0.1:50053"), status(JX_SUCCESS));
  const jextest::Finished listed = jextest::finish(Child(JEX_LIST_SERVICES, {"127.0.0.1:50053"}));
  EXPECT_TRUE(listed.endedWith(0)) << listed.error;
  EXPECT_THAT(listed.output, UnorderedElementsAre("grpc.health.v1.Health", "jx.control.v1.Switch",
                                                  "jx.control.v1.Settings",
                                                  "grpc.reflection.v1alpha.ServerReflection"));
}

TEST(ControlServer, LetsItsProcessExitAndPrintsNothing) {
  Child sut = controlledProcess();
  ASSERT_EQ(sut.ask("serve 127.0.0.1:50053"), status(JX_SUCCESS));
  ASSERT_EQ(ask({"health"}), "{\"status\":\"SERVING\"}");
  sut.closeInput();
  EXPECT_EQ(sut.readLine(), "<end>");
  const jextest::Exit exit = sut.waitForExit();
  EXPECT_EQ(exit.signal, 0);
  EXPECT_EQ(exit.code, 0);
  EXPECT_EQ(sut.standardError(), "");
}

TEST(ControlServer, ShowsADeviceForAsLongAsItIsThere) {
  Child sut = controlledProcess();
  ASSERT_EQ(sut.ask("serve 127.0.0.1:50053"), status(JX_SUCCESS));
  EXPECT_THAT(ask({"programs"}),
              StartsWith("[{\"device\":3,\"virtual\":true,\"program\":\"l2_switch\""));
  EXPECT_EQ(ask({"count", "smac", "--device", "3"}), "{\"table\":\"smac\",\"entries\":0}");
  ASSERT_EQ(sut.ask("remove"), "removed");
  EXPECT_EQ(ask({"programs"}), "[]");
  EXPECT_THAT(ask({"count", "smac"}), HasSubstr("there is no table 'smac'"));
  EXPECT_THAT(ask({"count", "smac", "--device", "3"}), HasSubstr("there is no device 3"));
}

}  // namespace
