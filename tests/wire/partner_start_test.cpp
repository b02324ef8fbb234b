// Start-up and shut-down of a Partner process, against a raw agent.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "JexPartnerLib.h"
#include "support/helper.h"
#include "support/private_world.h"
#include "support/processes.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/wait_until.h"
#include "wire/nanomsg_faults.h"
#include "wire/recorded_update.h"
#include "wire/scripts.h"

namespace jextest {
namespace {

std::string timeOfDay() {
  const time_t now = time(nullptr);
  tm local{};
  localtime_r(&now, &local);
  char text[16];
  strftime(text, sizeof text, "%H%M%S", &local);
  return text;
}

/// What a Partner and the raw agent do before anything else.
struct StartedPair {
  RawAgent agent;
  Child partner = startedPartner();
  std::string address = agent.receiveRegistration();
};

TEST(PartnerStart, RegistersFirst) {
  RawAgent agent;
  const std::string before = timeOfDay();
  Child partner = startedPartner();
  const std::string after = timeOfDay();
  const Bytes message = agent.receive();
  ASSERT_EQ(message.size(), 80u);
  EXPECT_EQ(u32At(message, 0), 4u);
  EXPECT_EQ(u32At(message, 4), static_cast<uint32_t>(partner.pid()));
  EXPECT_EQ(u64At(message, 8), 80u);
  const auto* const name = reinterpret_cast<const char*>(message.data() + 16);
  ASSERT_LT(strnlen(name, 64), 64u) << "the name ends inside its field";
  const std::string address = name;
  const std::string prefix = "ipc:///tmp/Partner_" + std::to_string(partner.pid()) + "_";
  ASSERT_EQ(address.substr(0, prefix.size()), prefix);
  const std::string time_of_day = address.substr(prefix.size());
  EXPECT_EQ(time_of_day.size(), 6u);
  EXPECT_EQ(time_of_day.find_first_not_of("0123456789"), std::string::npos) << time_of_day;
  if (before <= after) {  // not over midnight
    EXPECT_LE(before, time_of_day);
    EXPECT_LE(time_of_day, after);
  }
}

TEST(PartnerStart, GivesEveryProcessAnotherName) {
  RawAgent agent;
  std::set<std::string> names;
  std::vector<Child> partners;
  for (int i = 0; i < 3; ++i) {
    partners.push_back(startedPartner());
    names.insert(agent.receiveRegistration());
  }
  EXPECT_EQ(names.size(), 3u);
}

TEST(PartnerStart, AnswersAHeartbeatWithAPing) {
  StartedPair pair;
  RawSocket reverse = RawAgent::connectTo(pair.address);
  // Only the low byte of the first word is the kind.
  for (const uint32_t word : {255u, 0xABCDEFFFu}) {
    Bytes heartbeat;
    putU32(heartbeat, 0, word);
    reverse.send(heartbeat);
    const Bytes ping = pair.agent.receive();
    ASSERT_EQ(ping.size(), 16u);
    EXPECT_EQ(u32At(ping, 0), 9u);
    EXPECT_EQ(u32At(ping, 4), static_cast<uint32_t>(pair.partner.pid()));
    EXPECT_EQ(u64At(ping, 8), 16u);
  }
}

TEST(PartnerStart, SendsEveryUpdateAsItIsReported) {
  StartedPair pair;
  const std::vector<std::string> writes = {"add ternary_direct 1 small 11 77",
                                           "modify ternary_direct 1 small 12",
                                           "move ternary_direct 1 78",
                                           "delete ternary_direct 1",
                                           "default exact_direct small 1",
                                           "clear-default exact_direct",
                                           "member-add members 1 small 1",
                                           "member-add members 2 small 2",
                                           "member-modify members 1 nop",
                                           "group-create groups 5 1:1 2:0",
                                           "group-create groups 6",
                                           "group-add groups 6 2",
                                           "group-deactivate groups 5 1",
                                           "group-activate groups 5 2",
                                           "fallback groups 2",
                                           "clear-fallback groups",
                                           "refer via_members 3 $MEMBER_ID 1",
                                           "refer via_groups 4 $GROUP_ID 5",
                                           "rerefer via_groups 4 $MEMBER_ID 2",
                                           "delete via_groups 4",
                                           "delete via_members 3",
                                           "group-remove groups 6 2",
                                           "group-destroy groups 6",
                                           "group-destroy groups 5",
                                           "member-delete members 1"};
  // The same writes on a device of this process say what the updates are, and give placement data.
  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
  std::vector<Bytes> expected = messagesOf(device.view(), writes, 0);
  ASSERT_EQ(expected.size(), writes.size());
  for (size_t i = 0; i < writes.size(); ++i) {
    SCOPED_TRACE(writes[i]);
    ASSERT_EQ(pair.partner.ask(writes[i]), "status 0");
    Bytes found = pair.agent.receive();
    const UpdateLayout& layout = layoutOf(u32At(found, 0), u32At(found, 28));
    // The sender's pid is left as it is, and its pointer is its own.
    for (Bytes* message : {&found, &expected[i]}) {
      putU32(*message, 4, 0);
      if (layout.pointer >= 0) putU32(*message, 32 + 4 * static_cast<size_t>(layout.pointer), 0);
    }
    EXPECT_EQ(found, expected[i]);
  }
}

bool hasBoundItsReversePath(const Child& partner) {
  const std::string prefix = "Partner_" + std::to_string(partner.pid()) + "_";
  for (const auto& file : std::filesystem::directory_iterator("/tmp")) {
    if (file.path().filename().string().rfind(prefix, 0) == 0) return true;
  }
  return false;
}

TEST(PartnerStart, WaitsForAnAgent) {
  Child partner = startPartner();
  partner.say("start");
  ASSERT_TRUE(waitUntil([&] { return hasBoundItsReversePath(partner); }))
      << partner.standardError();
  EXPECT_FALSE(partner.ended());
  RawAgent agent;
  agent.receiveRegistration();
  EXPECT_EQ(partner.readLine(), "true");
}

TEST(PartnerStart, InstallsNothingOnADeviceWithoutPrograms) {
  PartnerOptions options;
  options.programs = {};
  RawAgent agent;
  Child partner = startedPartner(options);
  agent.receiveRegistration();
  EXPECT_EQ(partner.standardError(), "");
}

TEST(PartnerStart, SaysWhichTablesItIgnores) {
  StartedPair pair;  // limits has two counter tables
  EXPECT_EQ(pair.partner.standardError(), "Ignoring Table type: 5\nIgnoring Table type: 5\n");
}

TEST(PartnerStart, RegistersNothingOnAProgramOfOtherTables) {
  PartnerOptions options;
  options.programs = {runDirectory() + "/counters.json"};
  std::ofstream(options.programs[0]) << R"({"name": "counters", "id": 9, "fields": [],
      "actions": [], "learn": [], "control": [],
      "tables": [{"name": "first", "kind": "counter", "size": 4},
                 {"name": "second", "kind": "counter", "size": 4},
                 {"name": "third", "kind": "counter", "size": 4}]})";
  RawAgent agent;
  // No registration of a callback is tried: each of them would stop the Partner.
  Child partner = startedPartner(options, {{"JX_MODEL_FAULTS",
                                            "JxRtTable::matUpdateCbRegister:0:status=1;"
                                            "JxRtTable::adtUpdateCbRegister:0:status=1;"
                                            "JxRtTable::selUpdateCbRegister:0:status=1"}});
  EXPECT_EQ(partner.standardError(),
            "Ignoring Table type: 5\nIgnoring Table type: 5\nIgnoring Table type: 5\n");
}

bool listens(uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool connected = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return connected;
}

struct TestMode {
  const char* name;
  std::string value;
  bool on;
};

class TestModeVariable : public testing::TestWithParam<TestMode> {};
INSTANTIATE_TEST_SUITE_P(
    Values, TestModeVariable,
    testing::Values(TestMode{"Unset", Child::unset, false}, TestMode{"Empty", "", false},
                    TestMode{"UpperCase", "TRUE", false}, TestMode{"True", "true", true},
                    TestMode{"Longer", "trueish", true}, TestMode{"Shorter", "tru", false},
                    TestMode{"Capital", "True", false}, TestMode{"Behind", "xtrue", false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(TestModeVariable, StartsTheServerOfTestModeOrNot) {
  RawAgent agent;
  Child partner = startedPartner({}, {{"JEXPARTNER_TEST", GetParam().value}});
  EXPECT_EQ(listens(50053), GetParam().on);
}

TEST(PartnerStart, SetsTheDriverUpOncePerProcess) {
  // Each would stop the second start-up.
  const char* const faults =
      "jx_drv_init:2:status=5;pipe_mgr_init:2:status=5;jx_rt_module_init:2:status=5";
  auto agent = std::make_unique<RawAgent>();
  Child partner = startedPartner({}, {{"JX_MODEL_FAULTS", faults}});
  const std::string first = agent->receiveRegistration();
  partner.say("shutdown");
  EXPECT_EQ(partner.readLine(), "done");
  agent.reset();
  agent = std::make_unique<RawAgent>();
  EXPECT_EQ(partner.ask("start"), "true") << partner.standardError();
  const std::string second = agent->receiveRegistration();
  EXPECT_NE(first, second) << "a second has passed";
  // All of it works again.
  RawSocket reverse = RawAgent::connectTo(second);
  reverse.send({255, 0, 0, 0});
  EXPECT_EQ(u32At(agent->receive(), 0), 9u);
  EXPECT_EQ(partner.ask("add exact_direct 1 nop"), "status 0");
  EXPECT_EQ(u32At(agent->receive(), 0), 0u);
}

TEST(PartnerStart, StopsOnASecondStartUp) {
  RawAgent agent;
  Child partner = startedPartner();
  partner.say("start");
  // The device of the first start-up is there, so adding it again fails first.
  expectStop(partner, {"Error: Failed to add virtual device returns: Already exists",
                       "JexPartnerLibServer", "PartnerLib::PartnerLibSetup(", "rc == JX_SUCCESS"});
}

JEX_HELPER(start_two_devices) {
  Profile profile({"limits"});
  const DeviceView first(1);
  const DeviceView second(2);
  PartnerLibStartup(first.session(), first.target(), JX_DEV_TYPE_MODEL, profile.get());
  PartnerLibStartup(second.session(), second.target(), JX_DEV_TYPE_MODEL, profile.get());
  return 0;
}

TEST(PartnerStart, StopsOnASecondDevice) {
  RawAgent agent;
  Child child =
      Child::helper("start_two_devices", {}, {{"JX_MODEL_FAULTS", "jx_drv_init:2:status=5"}});
  expectStop(child, {"Error: Already initialized the hybrid library", "JexPartnerLibServer",
                     "PartnerLib::PartnerLibSetup(", "pSocket == nullptr && pMessage == nullptr"});
}

// The device is added before the library looks whether it runs already.
TEST(PartnerStart, AddsTheSecondDeviceBeforeItStops) {
  RawAgent agent;
  Child child = Child::helper("start_two_devices", {},
                              {{"JX_MODEL_FAULTS", "jx_virtual_device_add:2:status=9"}});
  expectStop(child, {"Error: Failed to add virtual device returns: Not enough space",
                     "JexPartnerLibServer", "PartnerLib::PartnerLibSetup(", "rc == JX_SUCCESS"});
}

/// Start-ups that stop; `may_register` says how far they came.
struct FailingStart {
  const char* name;
  std::string sdk_fault;
  std::string nanomsg_fault;
  bool may_register;
  Stop stop;
};

class FailingStartUp : public testing::TestWithParam<FailingStart> {};
INSTANTIATE_TEST_SUITE_P(
    Each, FailingStartUp,
    testing::Values(
        FailingStart{"Driver",
                     "jx_drv_init:1:status=11",
                     "",
                     false,
                     {"Error: Cannot init driver", "JexPartnerLibServer",
                      "PartnerLib::PartnerLibSetup(", "jx_drv_init() == JX_SUCCESS"}},
        FailingStart{"PipelineManager",
                     "pipe_mgr_init:1:status=11",
                     "",
                     false,
                     {"Error: Cannot init pipe_mgr", "JexPartnerLibServer",
                      "PartnerLib::PartnerLibSetup(", "pipe_mgr_init() == PIPE_SUCCESS"}},
        FailingStart{"Runtime",
                     "jx_rt_module_init:1:status=11",
                     "",
                     false,
                     {"Error: Failed to initialize JXRT returns: Initialization error",
                      "JexPartnerLibServer", "PartnerLib::PartnerLibSetup(", "rc == JX_SUCCESS"}},
        FailingStart{"Device",
                     "jx_virtual_device_add:1:status=21",
                     "",
                     false,
                     {"Error: Failed to add virtual device returns: Device locked",
                      "JexPartnerLibServer", "PartnerLib::PartnerLibSetup(", "rc == JX_SUCCESS"}},
        FailingStart{"ClientSocket",
                     "",
                     nanomsgFault("nn_socket", 1, -1, EMFILE),
                     false,
                     {"Error: Unable to open Client socket", "JexPartnerLibSocket", "init",
                      "( socket_ >= 0 )"}},
        FailingStart{
            "Connect",
            "",
            nanomsgFault("nn_connect", 1, -1, EINVAL),
            false,
            {"Error: Socket init Failed", "JexPartnerLibServer", "PartnerLib::PartnerLibSetup(",
             "pSocket->init( DEFAULT_SOCKET_NAME, testMode ) == true"}},
        FailingStart{"ReverseSocket",
                     "",
                     nanomsgFault("nn_socket", 2, -1, EMFILE),
                     false,
                     {"Error: Cannot open socket for reverse path", "JexPartnerLibSocket", "init",
                      "( reverse >= 0 )"}},
        FailingStart{"ReverseBind",
                     "",
                     nanomsgFault("nn_bind", 1, -1, EADDRINUSE),
                     false,
                     {"Error: Cannot bind socket for reverse path", "JexPartnerLibSocket", "init",
                      "( endpoints[1] >= 0 )"}},
        FailingStart{
            "Programs",
            "JxRtDevMgr::jxRtInfoP4NamesGet:1:status=6",
            "",
            true,
            {"Error: Unable to get the p4 programs list on 1 returns: 6",
             "JexPartnerLibMatchCallback", "PartnerLib::callbackSetUp(", "sts == JX_SUCCESS"}},
        FailingStart{"ProgramStatus",
                     "JxRtDevMgr::jxRtInfoGet:1:status=22",
                     "",
                     true,
                     {"Error: Unable to get any jxrtInfo for limits returns: 22",
                      "JexPartnerLibMatchCallback", "PartnerLib::callbackSetUp(",
                      "jx_status == JX_SUCCESS"}},
        FailingStart{"ProgramNull",
                     "JxRtDevMgr::jxRtInfoGet:1:null",
                     "",
                     true,
                     {"Error: Unable to get jxRTInfo for limits", "JexPartnerLibMatchCallback",
                      "PartnerLib::callbackSetUp(", "false"}},
        FailingStart{"MatchCallback",
                     "JxRtTable::matUpdateCbRegister:2:status=24",
                     "",
                     true,
                     {"Error: Failed callback setup on ternary_direct type: 0 status: In use",
                      "JexPartnerLibMatchCallback", "PartnerLib::callbackSetUp(", "false"}},
        FailingStart{"MemberRefCallback",
                     "JxRtTable::matUpdateCbRegister:3:status=24",
                     "",
                     true,
                     {"Error: Failed callback setup on via_members type: 1 status: In use",
                      "JexPartnerLibMatchCallback", "PartnerLib::callbackSetUp(", "false"}},
        FailingStart{"GroupRefCallback",
                     "JxRtTable::matUpdateCbRegister:4:status=27",
                     "",
                     true,
                     {"Error: Failed callback setup on via_groups type: 2 status: Unknown error",
                      "JexPartnerLibMatchCallback", "PartnerLib::callbackSetUp(", "false"}},
        FailingStart{"MemberCallback",
                     "JxRtTable::adtUpdateCbRegister:1:status=26",
                     "",
                     true,
                     {"Error: Failed callback setup on members type: 3 status: Hardware entry not "
                      "found",
                      "JexPartnerLibMatchCallback", "PartnerLib::callbackSetUp(", "false"}},
        FailingStart{"GroupCallback",
                     "JxRtTable::selUpdateCbRegister:1:status=17",
                     "",
                     true,
                     {"Error: Failed callback setup on groups type: 4 status: Operation not "
                      "supported",
                      "JexPartnerLibMatchCallback", "PartnerLib::callbackSetUp(", "false"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(FailingStartUp, Stops) {
  const FailingStart& row = GetParam();
  RawAgent agent;
  Child::Environment environment;
  if (!row.sdk_fault.empty()) environment["JX_MODEL_FAULTS"] = row.sdk_fault;
  if (!row.nanomsg_fault.empty()) environment[kNanomsgFaultVariable] = row.nanomsg_fault;
  Child partner = startPartner({}, environment);
  partner.say("start");
  expectStop(partner, row.stop);
  // A registration that was sent may be lost with its process; one that was not cannot be there.
  Bytes message;
  if (!row.may_register) {
    EXPECT_FALSE(agent.tryReceive(&message)) << "registered too early";
  }
}

// Without an agent the registration does not leave, and the server is not tried before it has.
TEST(PartnerStart, RegistersBeforeTestModeServes) {
  Child partner =
      startPartner({}, {{"JEXPARTNER_TEST", "true"},
                        {"JX_MODEL_FAULTS", "jx_rt_grpc_server_run_with_addr:1:status=4"}});
  partner.say("start");
  ASSERT_TRUE(waitUntil([&] { return hasBoundItsReversePath(partner); }));
  EXPECT_FALSE(partner.ended());
  RawAgent agent;
  expectStop(partner, {"Error: Cannot spawn gRPC server socket on 50053", "JexPartnerLibSocket",
                       "startgRPCServer(", "jx_status == JX_SUCCESS"});
}

// The agent receives meanwhile, as an agent does: nanomsg keeps nothing for a closed sender.
TEST(PartnerShutdown, LosesNothingThatWasSent) {
  StartedPair pair;
  constexpr int kWrites = 150;
  std::atomic<int> received{0};
  std::thread agent([&] {
    while (received < kWrites && u64At(pair.agent.receive(), 8) != 0) ++received;
  });
  for (int i = 0; i < kWrites; ++i) {
    EXPECT_EQ(pair.partner.ask("add exact_direct " + std::to_string(i) + " nop"), "status 0");
  }
  EXPECT_EQ(pair.partner.ask("shutdown"), "done") << pair.partner.standardError();
  agent.join();
  EXPECT_EQ(received, kWrites);
  Bytes more;
  EXPECT_FALSE(pair.agent.tryReceive(&more)) << "the removal of a device is no update";
  pair.partner.closeInput();
  EXPECT_EQ(pair.partner.waitForExit().code, 0);
}

// The receive thread is cancelled while it is busy; whatever it was in, nothing stays locked.
TEST(PartnerShutdown, EndsUnderAFloodOnTheReversePath) {
  for (int round = 0; round < 3; ++round) {
    StartedPair pair;
    std::atomic<bool> over{false};
    std::atomic<int> pings{0};
    std::thread flood([&] {
      RawSocket reverse = RawAgent::connectTo(pair.address);
      const Bytes heartbeat = {255, 0, 0, 0};
      while (!over) {
        nn_send(reverse.fd(), heartbeat.data(), heartbeat.size(), NN_DONTWAIT);
        sched_yield();
      }
    });
    std::thread agent([&] {
      Bytes message;
      while (!over) {
        if (pair.agent.tryReceive(&message)) ++pings;
      }
    });
    EXPECT_TRUE(waitUntil([&] { return pings > 100; }));
    EXPECT_EQ(pair.partner.ask("shutdown"), "done") << pair.partner.standardError();
    over = true;
    flood.join();
    agent.join();
    pair.partner.closeInput();
    EXPECT_EQ(pair.partner.waitForExit().code, 0);
  }
}

TEST(PartnerShutdown, UsesTheWordsOfAddingWhenTheDeviceCannotBeRemoved) {
  RawAgent agent;
  Child partner = startedPartner({}, {{"JX_MODEL_FAULTS", "jx_device_remove:1:status=24"}});
  partner.say("shutdown");
  expectStop(partner, {"Error: Failed to add virtual device returns: In use", "JexPartnerLib",
                       "PartnerLibShutdown(", "rc == JX_SUCCESS"});
}

TEST(PartnerShutdown, StopsWithoutADevice) {
  Child partner = startPartner();
  partner.say("shutdown");  // the SDK has not been brought up
  expectStop(partner, {"Error: Failed to add virtual device returns: Not ready", "JexPartnerLib",
                       "PartnerLibShutdown(", "rc == JX_SUCCESS"});
}

JEX_HELPER(shut_down_without_start) {
  const DeviceView view(1);
  bringSdkUp();
  Profile profile({"limits"});
  must(jx_virtual_device_add(1, profile.get(), JX_DEV_TYPE_MODEL), "device");
  PartnerLibShutdown(1);
  return jx_device_remove(1) == JX_OBJECT_NOT_FOUND ? 42 : 1;
}

TEST(PartnerShutdown, RemovesTheDeviceWhenNothingElseIsThere) {
  Child child = Child::helper("shut_down_without_start");
  EXPECT_EQ(child.waitForExit().code, 42) << child.standardError();
}

}  // namespace
}  // namespace jextest
