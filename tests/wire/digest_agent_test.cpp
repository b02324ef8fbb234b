// Digests on the agent: arming and disarming by raw requests, and what is sent for learn messages.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/stop.h"
#include "wire/notify_frames.h"
#include "wire/notify_processes.h"
#include "wire/notify_programs.h"

namespace jextest {
namespace {

const char kInSet[] = "PartnerLib::setDigestNotfications(";
const char kInCallback[] = "PartnerLib::learnCppCallback(";

Stop stopIn(const std::string& error, const std::string& expression,
            const std::string& function = kInSet) {
  return {"Error: " + error, "JexPartnerLibDigest", function, expression};
}

const Stop kCollision = stopIn("Cannot insert digest notify cookie struct", "res.second == true");
const Stop kNeverArmed = stopIn("Cannot find digest notify cookie struct to delete", "false");

DigestRequest disarm(uint32_t learn = kAddresses, uint32_t enable = 0) {
  DigestRequest request;
  request.learn = learn;
  request.size = 0;
  request.enable = enable;
  return request;
}

DigestRequest arm(uint32_t enable = 1) {
  DigestRequest request;
  request.enable = enable;
  return request;
}

DigestRequest armOf(const std::string& program, uint32_t learn, uint32_t bits) {
  DigestRequest request;
  request.program = program;
  request.learn = learn;
  request.size = bits;
  return request;
}

DigestRequest armSized(uint32_t bits) { return armOf("limits", kAddresses, bits); }

void send(RawPartner& partner, const DigestRequest& request) {
  partner.send(request.message(partner.pid()));
}

/// Values of one digest of "addresses": 1, 2, 16 and 16 bytes.
Bytes addressesValues(uint8_t first) {
  Bytes values = {static_cast<uint8_t>(first & 1), 1, first};
  append(values, countingBytes(32, first));
  return values;
}

std::string injectLine(const Bytes& values) { return "inject limits addresses " + hexOf(values); }

TEST(DigestAgent, ArmsAndDisarmsAsOftenAsItIsAsked) {
  NotifyAgentPair pair;
  for (int i = 0; i < 5; ++i) {
    send(pair.partner, arm());
    send(pair.partner, disarm());
  }
  pair.expectAllTaken();
}

// A wrong reading arms twice or disarms twice, and either stops the agent on other grounds.
TEST(DigestAgent, LooksAtTheLowByteOfEnableOnly) {
  NotifyAgentPair pair;
  send(pair.partner, arm(0x80));
  send(pair.partner, disarm(kAddresses, 0x100));
  send(pair.partner, arm(0xFFFFFF01));
  send(pair.partner, disarm(kAddresses, 0xFFFFFF00));
  send(pair.partner, arm(0x000000FF));
  send(pair.partner, disarm(kAddresses, 0x01000000));
  pair.expectAllTaken();
}

TEST(DigestAgent, LooksAtNothingBehindTheEndOfAName) {
  NotifyAgentPair pair;
  Bytes message = arm().message(pair.partner.pid());
  for (size_t i = 24 + 7; i < 280; ++i) message[i] = static_cast<uint8_t>(i | 1);
  pair.partner.send(message);
  send(pair.partner, disarm());
  pair.expectAllTaken();
}

TEST(DigestAgent, StopsWhenADigestIsArmedTwice) {
  NotifyAgentPair pair;
  send(pair.partner, arm());
  send(pair.partner, arm());
  expectStop(pair.agent, kCollision);
}

TEST(DigestAgent, StopsWhenADigestIsDisarmedThatNeverWasArmed) {
  NotifyAgentPair pair;
  send(pair.partner, disarm());
  expectStop(pair.agent, kNeverArmed);
}

TEST(DigestAgent, StopsWhenADigestIsDisarmedTwice) {
  NotifyAgentPair pair;
  send(pair.partner, arm());
  send(pair.partner, disarm());
  send(pair.partner, disarm());
  expectStop(pair.agent, kNeverArmed);
}

// The device's callback goes first; that the Partner never asked for it is found afterwards.
TEST(DigestAgent, DeregistersBeforeItLooksWhetherItEverArmed) {
  NotifyAgentPair pair({"limits"},
                       {{"JX_MODEL_FAULTS", "JxRtLearn::callbackDeregister:1:status=22"}});
  send(pair.partner, disarm());
  expectStop(pair.agent,
             stopIn("Cannot deregister digest callback for digest id", "jx_status == JX_SUCCESS"));
}

/// Registers Partners one after the other, so that the agent's sockets count up.
std::vector<std::unique_ptr<RawPartner>> partnersBehind(NotifyAgentPair& pair, size_t count) {
  std::vector<std::unique_ptr<RawPartner>> partners;
  for (size_t i = 1; i <= count; ++i) {
    partners.push_back(std::make_unique<RawPartner>(pair.partner.pid() + i));
    pair.partner.send(registration(partners.back()->pid(), partners.back()->address()));
  }
  return partners;
}

// Ten sockets further on and one digest before: the same key.
TEST(DigestAgent, StopsWhenTwoPartnersHaveTheSameKey) {
  NotifyAgentPair pair({bitsProgram()});
  const auto partners = partnersBehind(pair, 10);
  send(pair.partner, armOf("bits", kTwoAndThree, 32));
  pair.partner.send(armOf("bits", kThreeBits, 3).message(partners[9]->pid()));
  expectStop(pair.agent, kCollision);
}

TEST(DigestAgent, TellsNeighbouringKeysApart) {
  NotifyAgentPair pair({bitsProgram()});
  const auto partners = partnersBehind(pair, 11);
  send(pair.partner, armOf("bits", kTwoAndThree, 32));
  pair.partner.send(armOf("bits", kThreeBits, 3).message(partners[8]->pid()));
  pair.partner.send(armOf("bits", kThreeBits, 3).message(partners[10]->pid()));
  pair.expectAllTaken();
}

struct FailingRequest {
  const char* name;
  std::string faults;
  std::vector<DigestRequest> requests;
  Stop stop;
};

const Stop kNoProgram =
    stopIn("Cannot find p4 program", "jx_status == JX_SUCCESS && jxRtInfo != nullptr");
const Stop kNoLearn =
    stopIn("Cannot find learn object from id", "jx_status == JX_SUCCESS && learnObj != nullptr");

class FailingDigestRequest : public testing::TestWithParam<FailingRequest> {};
INSTANTIATE_TEST_SUITE_P(
    Each, FailingDigestRequest,
    testing::Values(
        FailingRequest{"Program", "", {armOf("nothing", kAddresses, 1)}, kNoProgram},
        FailingRequest{"ProgramStatus", "JxRtDevMgr::jxRtInfoGet:1:status=22", {arm()}, kNoProgram},
        FailingRequest{"ProgramNull", "JxRtDevMgr::jxRtInfoGet:1:null", {arm()}, kNoProgram},
        FailingRequest{"Learn", "", {armOf("limits", 12345, 1)}, kNoLearn},
        FailingRequest{"LearnStatus", "JxRtInfo::learnFromIdGet:1:status=22", {arm()}, kNoLearn},
        FailingRequest{"LearnNull", "JxRtInfo::learnFromIdGet:1:null", {arm()}, kNoLearn},
        FailingRequest{"FieldList",
                       "JxRtLearn::learnFieldIdListGet:1:status=22",
                       {arm()},
                       stopIn("Cannot get learn field list", "jx_status == JX_SUCCESS")},
        FailingRequest{"FirstFieldSize",
                       "JxRtLearn::learnFieldSizeGet:1:status=22",
                       {arm()},
                       stopIn("Cannot get learn field size", "jx_status == JX_SUCCESS")},
        FailingRequest{"LastFieldSize",
                       "JxRtLearn::learnFieldSizeGet:4:status=22",
                       {arm()},
                       stopIn("Cannot get learn field size", "jx_status == JX_SUCCESS")},
        FailingRequest{
            "Register",
            "JxRtLearn::callbackRegister:1:status=24",
            {arm()},
            stopIn("Cannot register digest callback for digest id", "jx_status == JX_SUCCESS")},
        FailingRequest{
            "DisarmProgram", "JxRtDevMgr::jxRtInfoGet:2:status=22", {arm(), disarm()}, kNoProgram},
        FailingRequest{
            "DisarmLearn", "JxRtInfo::learnFromIdGet:2:null", {arm(), disarm()}, kNoLearn},
        FailingRequest{
            "Deregister",
            "JxRtLearn::callbackDeregister:1:status=24",
            {arm(), disarm()},
            stopIn("Cannot deregister digest callback for digest id", "jx_status == JX_SUCCESS")},
        // Orders: the step that comes first is the one that stops.
        FailingRequest{"FieldsBeforeKey",
                       "JxRtLearn::learnFieldIdListGet:2:status=22",
                       {arm(), arm()},
                       stopIn("Cannot get learn field list", "jx_status == JX_SUCCESS")},
        FailingRequest{"KeyBeforeRegistering",
                       "JxRtLearn::callbackRegister:2:status=22",
                       {arm(), arm()},
                       kCollision}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(FailingDigestRequest, StopsTheAgent) {
  NotifyAgentPair pair({"limits"}, {{"JX_MODEL_FAULTS", GetParam().faults}});
  for (const DigestRequest& request : GetParam().requests) send(pair.partner, request);
  expectStop(pair.agent, GetParam().stop);
}

uint64_t steadyMilliseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

TEST(DigestAgent, SendsOneRecordForADigest) {
  NotifyAgentPair pair;
  send(pair.partner, arm());
  ASSERT_TRUE(pair.waitUntilTaken().empty());
  const uint64_t before = steadyMilliseconds();
  const Bytes values = addressesValues(7);
  ASSERT_EQ(pair.agent.ask(injectLine(values)), "0");
  const Bytes record = pair.partner.receive();
  const uint64_t after = steadyMilliseconds();
  ASSERT_EQ(record.size(), 20u + kAddressesBytes);
  EXPECT_EQ(record[0], 1);
  EXPECT_EQ(record[1], 0) << "the physical device";
  EXPECT_EQ(integerAt<uint16_t>(record, 2), 20 + kAddressesBytes);
  EXPECT_EQ(u32At(record, 4), kAddresses);
  EXPECT_GE(u64At(record, 8), before);
  EXPECT_LE(u64At(record, 8), after);
  EXPECT_EQ(bytesFrom(record, 20), values);
  EXPECT_EQ(pair.agent.ask("settled"), "0");
  EXPECT_EQ(pair.agent.ask("counts limits addresses"), "1 0") << "delivered and acknowledged";
  EXPECT_TRUE(pair.waitUntilTaken().empty()) << "nothing else is sent";
}

// Bits are summed and rounded down, fields are rounded up one by one.
TEST(DigestAgent, TakesAByteForEachFieldOfOneBit) {
  NotifyAgentPair pair({bitsProgram()});
  send(pair.partner, armOf("bits", kThreeBits, 3));
  pair.waitUntilTaken();
  ASSERT_EQ(pair.agent.ask("inject bits three_bits 010001"), "0");
  const Bytes record = pair.partner.receive();
  ASSERT_EQ(record.size(), 23u);
  EXPECT_EQ(integerAt<uint16_t>(record, 2), 23);
  EXPECT_EQ(bytesFrom(record, 20), (Bytes{1, 0, 1}));
}

TEST(DigestAgent, PacksFieldsOfOddWidthsWithoutPadding) {
  NotifyAgentPair pair({bitsProgram()});
  send(pair.partner, armOf("bits", kTwoAndThree, 32));
  pair.waitUntilTaken();
  ASSERT_EQ(pair.agent.ask("inject bits two_and_three 1fff07fffe"), "0");
  const Bytes record = pair.partner.receive();
  ASSERT_EQ(record.size(), 25u);
  EXPECT_EQ(bytesFrom(record, 20), (Bytes{0x1F, 0xFF, 0x07, 0xFF, 0xFE}));
}

TEST(DigestAgent, SendsDigestsInOrder) {
  NotifyAgentPair pair({manyProgram(1, 0)});
  send(pair.partner, armOf("many", manyDigest(1), 64));
  pair.waitUntilTaken();
  ASSERT_EQ(pair.agent.ask("count-up many d1 1 500"), "0");
  for (uint64_t i = 1; i <= 500 && !HasFailure(); ++i) {
    const Bytes record = pair.partner.receive();
    ASSERT_EQ(record.size(), 28u);
    EXPECT_EQ(__builtin_bswap64(u64At(record, 20)), i);
  }
}

TEST(DigestAgent, SendsNothingOnceDisarmed) {
  NotifyAgentPair pair;
  send(pair.partner, arm());
  send(pair.partner, disarm());
  pair.waitUntilTaken();
  EXPECT_EQ(pair.agent.ask(injectLine(addressesValues(1))), "19") << "nobody has registered";
  EXPECT_TRUE(pair.waitUntilTaken().empty());
}

TEST(DigestAgent, SendsToWhoArmedLast) {
  NotifyAgentPair pair;
  RawPartner other(pair.partner.pid() + 1);
  send(pair.partner, arm());
  pair.partner.send(registration(other.pid(), other.address()));
  pair.partner.send(arm().message(other.pid()));
  pair.waitUntilTaken();
  ASSERT_EQ(pair.agent.ask(injectLine(addressesValues(3))), "0");
  EXPECT_EQ(bytesFrom(other.receive(), 20), addressesValues(3));
  EXPECT_TRUE(pair.waitUntilTaken().empty());
}

// 2027 bytes and 20 of head are the most; the bound goes by what the Partner said.
TEST(DigestAgent, TakesADigestThatIsSaidToHaveAsMuchAsARecordCarries) {
  for (const uint32_t bits : {2027u * 8, 2027u * 8 + 7}) {
    NotifyAgentPair pair;
    send(pair.partner, armSized(bits));
    pair.waitUntilTaken();
    ASSERT_EQ(pair.agent.ask(injectLine(addressesValues(5))), "0");
    EXPECT_EQ(bytesFrom(pair.partner.receive(), 20), addressesValues(5));
  }
}

TEST(DigestAgent, StopsOnADigestThatIsSaidToHaveMoreThanARecordCarries) {
  for (const uint32_t bytes : {2028u, 536870911u}) {
    NotifyAgentPair pair;
    send(pair.partner, armSized(bytes * 8));
    pair.waitUntilTaken();
    pair.agent.say(injectLine(addressesValues(5)));
    expectStop(pair.agent, stopIn("Digest too big for: 229377 got size of: " +
                                      std::to_string(bytes + 20) + " expecting atmost: 2048",
                                  "( ( sizeof( PartnerDigestNotify ) + notifyCookie->size ) < "
                                  "PACK_BUFFER_SIZE )",
                                  kInCallback));
  }
}

TEST(DigestAgent, StopsWhenAValueCannotBeRead) {
  NotifyAgentPair pair;
  send(pair.partner, arm());
  pair.waitUntilTaken();
  ASSERT_EQ(pair.agent.ask("fault JxRtTableData::getValue 3 status=6"), "0");
  pair.agent.say(injectLine(addressesValues(5)));
  expectStop(pair.agent, stopIn("Cannot get learn field value id: 229377 fld: 3",
                                "jx_status == JX_SUCCESS", kInCallback));
  Bytes record;
  EXPECT_FALSE(pair.partner.tryReceive(&record)) << "half a record";
}

TEST(DigestAgent, StopsWhenThereIsNobodyToSendTo) {
  NotifyAgentPair pair;
  pair.partner.send(arm().message(4711));  // never registered
  pair.waitUntilTaken();
  pair.agent.say(injectLine(addressesValues(5)));
  expectStop(pair.agent, stopIn("Invalid SliceAgent Send socket",
                                "( notifyCookie->sendSocket >= 0 )", kInCallback));
}

TEST(DigestAgent, StopsWhenALearnMessageCannotBeAcknowledged) {
  NotifyAgentPair pair;
  send(pair.partner, arm());
  pair.waitUntilTaken();
  ASSERT_EQ(pair.agent.ask("fault JxRtLearn::notifyAck 1 status=6"), "0");
  pair.agent.say(injectLine(addressesValues(5)));
  EXPECT_EQ(pair.partner.receive().size(), 20u + kAddressesBytes) << "sent before";
  expectStop(pair.agent, stopIn("Unable to Ack Learn with driver: 229377",
                                "jx_status == JX_SUCCESS", kInCallback));
}

}  // namespace
}  // namespace jextest
