// Registration of digests by a Partner, against a raw agent.
#include <gtest/gtest.h>

#include <string>

#include "support/stop.h"
#include "wire/notify_frames.h"
#include "wire/notify_processes.h"
#include "wire/notify_programs.h"

namespace jextest {
namespace {

const char kRegister[] = "digest limits addresses 65535 q";
const char kDeregister[] = "no-digest limits addresses 65535";
const char kInRegister[] = "PartnerRegisterDigestNotification(";
const char kInDeregister[] = "PartnerDeregisterDigestNotification(";

Stop stopIn(const std::string& function, const std::string& error, const std::string& expression) {
  return {"Error: " + error, "JexPartnerLib", function, expression};
}

const Stop kRegisteredBefore = stopIn(
    kInRegister, "Cannot insert into map digest->notify reg for addresses", "res.second == true");

/// All fields of a request of type 8, and nothing of what stands behind the program's name.
void expectDigestRequest(const Bytes& found, const DigestRequest& expected, uint32_t pid) {
  ASSERT_EQ(found.size(), 288u);
  EXPECT_EQ(u32At(found, 0), 8u);
  EXPECT_EQ(u32At(found, 4), pid);
  EXPECT_EQ(u64At(found, 8), 288u);
  EXPECT_EQ(u32At(found, 16), expected.learn);
  EXPECT_EQ(u32At(found, 20), expected.pipe);
  EXPECT_EQ(textAt(found, 24, 256), expected.program);
  EXPECT_EQ(u32At(found, 280), expected.size);
  EXPECT_EQ(u32At(found, 284), expected.enable);
}

TEST(DigestPartner, RegistersWithOneRequest) {
  NotifyPair pair;
  ASSERT_EQ(pair.partner.ask("queue q 16"), "true");
  EXPECT_EQ(pair.partner.ask(kRegister), "true");
  expectDigestRequest(pair.agent.receive(), {kAddresses, 0xFFFF, "limits", kAddressesBits, 1},
                      pair.pid());
  pair.waitUntilReceived();  // nothing but the ping comes behind it
}

TEST(DigestPartner, SendsThePipeOfItsTarget) {
  NotifyPair pair;
  ASSERT_EQ(pair.partner.ask("queue q 16"), "true");
  EXPECT_EQ(pair.partner.ask("digest limits addresses 2 q"), "true");
  expectDigestRequest(pair.agent.receive(), {kAddresses, 2, "limits", kAddressesBits, 1},
                      pair.pid());
  EXPECT_EQ(pair.partner.ask("no-digest limits addresses 3"), "true");
  expectDigestRequest(pair.agent.receive(), {kAddresses, 3, "limits", 0, 0}, pair.pid());
}

TEST(DigestPartner, SendsTheSumOfItsFieldsInBits) {
  NotifyPair pair({"limits", bitsProgram()});
  ASSERT_EQ(pair.partner.ask("queue q 16"), "true");
  EXPECT_EQ(pair.partner.ask("digest bits three_bits 65535 q"), "true");
  expectDigestRequest(pair.agent.receive(), {kThreeBits, 0xFFFF, "bits", 3, 1}, pair.pid());
  EXPECT_EQ(pair.partner.ask("digest bits two_and_three 65535 q"), "true");
  expectDigestRequest(pair.agent.receive(), {kTwoAndThree, 0xFFFF, "bits", 13 + 19, 1}, pair.pid());
}

TEST(DigestPartner, DeregistersWithOneRequestWithoutASizeAndReturnsTrue) {
  NotifyPair pair;
  pair.registerDigest();
  EXPECT_EQ(pair.partner.ask(kDeregister), "true");
  expectDigestRequest(pair.agent.receive(), {kAddresses, 0xFFFF, "limits", 0, 0}, pair.pid());
  pair.waitUntilReceived();
  EXPECT_EQ(pair.partner.ask("destroy q"), "true");
  EXPECT_EQ(pair.partner.standardError().find("Error"), std::string::npos);
}

// The agent is told all the same; what becomes of it is the agent's.
TEST(DigestPartner, DeregistersWhatWasNeverRegistered) {
  NotifyPair pair;
  EXPECT_EQ(pair.partner.ask(kDeregister), "true");
  expectDigestRequest(pair.agent.receive(), {kAddresses, 0xFFFF, "limits", 0, 0}, pair.pid());
  pair.waitUntilReceived();
}

TEST(DigestPartner, DeregistersTwice) {
  NotifyPair pair;
  pair.registerDigest();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(pair.partner.ask(kDeregister), "true");
    EXPECT_EQ(u32At(pair.agent.receive(), 284), 0u);
  }
  pair.waitUntilReceived();
}

TEST(DigestPartner, StopsWhenADigestIsRegisteredTwice) {
  NotifyPair pair;
  pair.registerDigest();
  pair.partner.say(kRegister);
  expectStop(pair.partner, kRegisteredBefore);
}

TEST(DigestPartner, StopsWhenADigestIsRegisteredAgain) {
  NotifyPair pair;
  pair.registerDigest();
  EXPECT_EQ(pair.partner.ask(kDeregister), "true");
  pair.partner.say(kRegister);
  expectStop(pair.partner, kRegisteredBefore);
}

/// Nothing is set on the virtual device: each of these would stop the registration.
TEST(DigestPartner, LeavesItsOwnDeviceAlone) {
  NotifyPair pair;
  for (const char* entry : {"JxRtLearn::callbackRegister", "JxRtLearn::callbackDeregister",
                            "JxRtTable::tableAttributesSet"}) {
    ASSERT_EQ(pair.partner.ask("fault " + std::string(entry) + " 0 status=22"), "0");
  }
  pair.registerDigest();
  EXPECT_EQ(pair.partner.ask(kDeregister), "true");
}

struct FailingCall {
  const char* name;
  std::vector<std::string> before;
  std::string call;
  Stop stop;
};

const char kInFind[] = "findJxRtLearnFromName(";

class FailingDigestCall : public testing::TestWithParam<FailingCall> {};
INSTANTIATE_TEST_SUITE_P(
    Each, FailingDigestCall,
    testing::Values(
        FailingCall{"Program",
                    {},
                    "digest nothing addresses 65535 q",
                    stopIn(kInFind, "Unable to get any jxrtInfo for nothing returns: 6",
                           "jx_status == JX_SUCCESS")},
        FailingCall{"ProgramStatus",
                    {"fault JxRtDevMgr::jxRtInfoGet 1 status=22"},
                    kRegister,
                    stopIn(kInFind, "Unable to get any jxrtInfo for limits returns: 22",
                           "jx_status == JX_SUCCESS")},
        FailingCall{"Digest",
                    {},
                    "digest limits nothing 65535 q",
                    stopIn(kInRegister, "Cannot find digest: nothing", "learn != NULL")},
        FailingCall{"DigestStatus",
                    {"fault JxRtInfo::learnFromNameGet 1 status=6"},
                    kRegister,
                    stopIn(kInRegister, "Cannot find digest: addresses", "learn != NULL")},
        FailingCall{"DigestNull",
                    {"fault JxRtInfo::learnFromNameGet 1 null"},
                    kRegister,
                    stopIn(kInRegister, "Cannot find digest: addresses", "learn != NULL")},
        FailingCall{"Id",
                    {"fault JxRtLearn::learnIdGet 1 status=22"},
                    kRegister,
                    stopIn(kInRegister, "Cannot get learn id: addresses",
                           "learn->learnIdGet( &learn_id ) == JX_SUCCESS")},
        FailingCall{"FieldList",
                    {"fault JxRtLearn::learnFieldIdListGet 1 status=22"},
                    kRegister,
                    stopIn(kInRegister, "Cannot get learn field list for addresses",
                           "status == JX_SUCCESS")},
        FailingCall{"FirstFieldSize",
                    {"fault JxRtLearn::learnFieldSizeGet 1 status=22"},
                    kRegister,
                    stopIn(kInRegister, "Cannot get learn field sizes for addresses",
                           "status == JX_SUCCESS")},
        FailingCall{"LastFieldSize",
                    {"fault JxRtLearn::learnFieldSizeGet 4 status=22"},
                    kRegister,
                    stopIn(kInRegister, "Cannot get learn field sizes for addresses",
                           "status == JX_SUCCESS")},
        FailingCall{
            "Token",
            {"no-token"},
            kRegister,
            stopIn(kInRegister, "Cannot create client queue for addresses", "token != nullptr")},
        FailingCall{"DeregisterProgram",
                    {},
                    "no-digest nothing addresses 65535",
                    stopIn(kInFind, "Unable to get any jxrtInfo for nothing returns: 6",
                           "jx_status == JX_SUCCESS")},
        FailingCall{"DeregisterDigest",
                    {},
                    "no-digest limits nothing 65535",
                    stopIn(kInDeregister, "Cannot find digest: nothing", "learn != NULL")},
        FailingCall{"DeregisterId",
                    {"fault JxRtLearn::learnIdGet 1 status=22"},
                    kDeregister,
                    stopIn(kInDeregister, "Cannot get learn id for addresses",
                           "learn->learnIdGet( &learn_id ) == JX_SUCCESS")},
        // Orders: the step that comes first is the one that stops.
        FailingCall{"IdBeforeFields",
                    {"fault JxRtLearn::learnFieldIdListGet 1 status=22",
                     "fault JxRtLearn::learnIdGet 1 status=22"},
                    kRegister,
                    stopIn(kInRegister, "Cannot get learn id: addresses",
                           "learn->learnIdGet( &learn_id ) == JX_SUCCESS")},
        FailingCall{"FieldsBeforeTheToken",
                    {"no-token", "fault JxRtLearn::learnFieldSizeGet 4 status=22"},
                    kRegister,
                    stopIn(kInRegister, "Cannot get learn field sizes for addresses",
                           "status == JX_SUCCESS")},
        FailingCall{
            "TokenBeforeTheMap",
            {kRegister, "no-token"},
            kRegister,
            stopIn(kInRegister, "Cannot create client queue for addresses", "token != nullptr")}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(FailingDigestCall, Stops) {
  NotifyPair pair;
  ASSERT_EQ(pair.partner.ask("queue q 16"), "true");
  bool registered = false;
  for (const std::string& command : GetParam().before) {
    const std::string answer = pair.partner.ask(command);
    EXPECT_TRUE(answer == "0" || answer == "done" || answer == "true") << command << ": " << answer;
    registered = registered || answer == "true";
  }
  if (registered) {
    EXPECT_EQ(u32At(pair.agent.receive(), 0), 8u);
  }
  pair.partner.say(GetParam().call);
  expectStop(pair.partner, GetParam().stop);
  Bytes message;
  EXPECT_FALSE(pair.agent.tryReceive(&message)) << "sent too early";
}

}  // namespace
}  // namespace jextest
