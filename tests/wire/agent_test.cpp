// The agent's loop, its frame rules and its registry, against raw Partners.
#include <gtest/gtest.h>

#include <cerrno>

#include "support/helper.h"
#include "support/processes.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/wait_until.h"
#include "wire/nanomsg_faults.h"
#include "wire/recorded_update.h"

namespace jextest {
namespace {

constexpr uint32_t kPid = 4242;

/// An agent and a raw Partner.
struct AgentPair {
  explicit AgentPair(const Child::Environment& environment = {})
      : agent(startAgent({}, environment)), partner(kPid) {}

  /// Expects that the agent still takes requests: one more update reaches its device.
  void expectServes() {
    const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
    for (const Bytes& message : messagesOf(device.view(), {"add exact_direct 900 nop"}, kPid)) {
      partner.send(message);
    }
    expectDump(agent, device.view().dump());
  }

  /// Expects a heartbeat on the reverse path; the registration has arrived when it comes.
  void expectHeartbeat() {
    Bytes heartbeat;
    ASSERT_TRUE(waitUntil([&] {
      EXPECT_EQ(agent.ask("heartbeat"), "true");
      return partner.tryReceive(&heartbeat) || testing::Test::HasFailure();
    }));
    EXPECT_EQ(heartbeat, (Bytes{255, 0, 0, 0}));
  }

  Child agent;
  RawPartner partner;
};

struct BadFrame {
  const char* name;
  Bytes message;
  std::string error;
  std::string expression;
};

Bytes withLength(size_t size, uint64_t length, uint32_t type = 9) {
  Bytes message = request(type, kPid, size);
  putU64(message, 8, length);
  return message;
}

std::string mismatch(uint64_t expected, size_t got) {
  return "Error: Deserialize from socket msg size mismatch Exp: " + std::to_string(expected) +
         " Got: " + std::to_string(got);
}

std::string unsupported(uint32_t type) {
  return "Error: Deserialize from socket unsupported for msg Type: " + std::to_string(type);
}

const char kLengthRule[] = "nbytes == tl->len";

class AgentFrame : public testing::TestWithParam<BadFrame> {};
INSTANTIATE_TEST_SUITE_P(
    Bad, AgentFrame,
    testing::Values(
        BadFrame{"OneMore", withLength(40, 41), mismatch(41, 40), kLengthRule},
        BadFrame{"OneLess", withLength(40, 39), mismatch(39, 40), kLengthRule},
        BadFrame{"HighWord", withLength(40, 0x100000028), mismatch(0x100000028, 40), kLengthRule},
        BadFrame{"HighestBit", withLength(16, 0x8000000000000010u),
                 mismatch(0x8000000000000010u, 16), kLengthRule},
        BadFrame{"PingOf17", withLength(16, 17), mismatch(17, 16), kLengthRule},
        BadFrame{"UpdateOneMore", withLength(36, 37, 0), mismatch(37, 36), kLengthRule},
        BadFrame{"LengthBeforeType", withLength(16, 17, 7), mismatch(17, 16), kLengthRule},
        BadFrame{"Type7", request(7, kPid), unsupported(7), "false"},
        BadFrame{"Type11", request(11, kPid), unsupported(11), "false"},
        BadFrame{"TypeMax", request(0xFFFFFFFF, kPid), unsupported(0xFFFFFFFF), "false"},
        BadFrame{"TypeMaxSigned", request(0x80000000, kPid), unsupported(0x80000000), "false"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(AgentFrame, StopsTheAgent) {
  AgentPair pair;
  pair.partner.send(GetParam().message);
  expectStop(pair.agent, {GetParam().error, "JexPartnerLibServer",
                          "PartnerLib::PartnerMessage::deSerialize(", GetParam().expression});
}

class ShortFrame : public testing::TestWithParam<size_t> {};
INSTANTIATE_TEST_SUITE_P(Sizes, ShortFrame, testing::Values(1, 4, 8, 12, 15));

// What a short message says of its length is not all there; what was received is.
TEST_P(ShortFrame, IsASizeMismatch) {
  AgentPair pair;
  Bytes message = request(9, kPid);
  message.resize(GetParam());
  pair.partner.send(message);
  pair.agent.waitForExit();
  const auto errors = linesWith(pair.agent.standardError(), "Error: ");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].rfind("Error: Deserialize from socket msg size mismatch Exp: ", 0), 0u);
  const std::string got = " Got: " + std::to_string(GetParam());
  EXPECT_EQ(errors[0].substr(errors[0].size() - got.size()), got);
  expectStop(pair.agent, {errors[0], "JexPartnerLibServer",
                          "PartnerLib::PartnerMessage::deSerialize(", kLengthRule});
}

TEST(Agent, IgnoresAnEmptyMessage) {
  AgentPair pair;
  pair.partner.send({});
  pair.expectServes();
}

TEST(Agent, IgnoresAPing) {
  AgentPair pair;
  pair.partner.send(request(9, kPid));
  pair.expectServes();
  EXPECT_EQ(pair.agent.standardError(), "");
}

TEST(Agent, SendsAHeartbeatToWhoRegistered) {
  AgentPair pair;
  pair.partner.registerWithAgent();
  pair.expectHeartbeat();
}

TEST(Agent, SendsAHeartbeatToEveryone) {
  AgentPair pair;
  RawPartner second(kPid + 1);
  RawPartner third(kPid + 2);
  pair.partner.registerWithAgent();
  second.registerWithAgent();
  third.registerWithAgent();
  pair.expectHeartbeat();
  for (RawPartner* partner : {&second, &third}) {
    Bytes heartbeat;
    ASSERT_TRUE(waitUntil([&] {
      pair.agent.ask("heartbeat");
      return partner->tryReceive(&heartbeat);
    }));
    EXPECT_EQ(heartbeat, (Bytes{255, 0, 0, 0}));
  }
}

TEST(Agent, SendsNoHeartbeatWhenNobodyRegistered) {
  AgentPair pair;
  EXPECT_EQ(pair.agent.ask("heartbeat"), "true");
  pair.expectServes();
  Bytes message;
  EXPECT_FALSE(pair.partner.tryReceive(&message));
}

TEST(Agent, StopsWhenAPidRegistersTwice) {
  AgentPair pair;
  pair.partner.registerWithAgent();
  pair.partner.registerWithAgent();
  expectStop(pair.agent, {"Error: Cannot insert notify cookie struct", "JexPartnerLibServer",
                          "PartnerLib::PartnerMessage::deSerialize(", "res.second == true"});
}

TEST(Agent, StopsWhenAReverseAddressCannotBeConnected) {
  AgentPair pair;
  pair.partner.send(registration(kPid, "nothing://nowhere"));
  expectStop(pair.agent,
             {"Error: Cannot open socket for reverse path from server", "JexPartnerLibServer",
              "PartnerLib::PartnerMessage::deSerialize(", "( endpoint >= 0 )"});
}

// The second socket of the process is the reverse one.
TEST(Agent, RegistersNothingWhenThereIsNoSocketForIt) {
  AgentPair pair({{kNanomsgFaultVariable, nanomsgFault("nn_socket", 2, -1, EMFILE)}});
  pair.partner.registerWithAgent();
  pair.expectServes();
  EXPECT_EQ(pair.agent.standardError(), "");
  EXPECT_EQ(pair.agent.ask("heartbeat"), "true");
  pair.partner.registerWithAgent();  // not a second registration: the first one left nothing
  pair.expectHeartbeat();
}

TEST(Agent, StopsWhenItsAddressIsTaken) {
  RawAgent other;
  Child agent = startAgent();
  expectStop(agent, {"Error:  Socket Init failed", "JexPartnerLibServer",
                     "PartnerLib::PartnerLibServerSetup(",
                     "pSocket->init( DEFAULT_SOCKET_NAME, false ) == true"});
}

// Nothing is sent: every poll is one that waits for a request.
TEST(Agent, StopsWhenPollingFails) {
  Child agent = startAgent({}, {{kNanomsgFaultVariable, nanomsgFault("nn_poll", 3, -1, EBADF)}});
  expectStop(agent,
             {"Error: Socket recvWithTimeout failed - remote disconnect/dead Bad file descriptor",
              "JexPartnerLibSocket", "recvWithTimeout(", "r >= 0"});
}

// A sender that closes in mid-stream leaves poll and receive at odds; the loop has to go on.
TEST(Agent, GoesOnWhenSendersCloseInMidStream) {
  AgentPair pair;
  Bytes ping = request(9, kPid);
  for (int trial = 0; trial < 60; ++trial) {
    RawPartner sender(5000 + static_cast<uint32_t>(trial));
    for (int i = 0; i < 50; ++i) sender.send(ping);
  }
  pair.expectServes();
}

/// Requests whose handlers are not there yet must not be taken for done.
}  // namespace
}  // namespace jextest
