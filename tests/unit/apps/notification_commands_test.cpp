// Queues, registrations and drain: what they answer, and what they ask the library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "notification_lines.h"
#include "shell_on_device.h"

namespace jexapps {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class NotificationCommands : public ShellOnDevice {
 protected:
  /// A line is an error, and the library is not asked.
  void expectRefused(const std::string& line, const std::string& reason) {
    partner_.calls.clear();
    EXPECT_EQ(answer(line), "error: " + reason);
    EXPECT_THAT(partner_.calls, IsEmpty()) << line;
  }

  uint32_t tableId(const std::string& name) const { return sut_->table(name).id; }
  uint32_t digestId(const std::string& name) const { return sut_->digest(name).id; }

  void notifyIdle(const std::string& table, uint32_t handle, uint64_t time) {
    PartnerIdleNotify record{};
    record.type = PARTNER_NOTIFY_IDLE;
    record.unused[0] = record.unused[1] = 0xee;
    record.tableId = tableId(table);
    record.entryKey = handle;
    record.time = time;
    partner_.notify("q", record);
  }

  void notifyDigest(uint32_t learn_id, const std::string& values, uint64_t time) {
    PartnerDigestNotify record{};
    record.type = PARTNER_NOTIFY_DIGEST;
    record.devId = 3;
    record.length = 0xeeee;
    record.learnId = learn_id;
    record.time = time;
    record.valueSize = static_cast<uint32_t>(values.size());
    partner_.notify("q", record, values);
  }
};

constexpr char kIdle[] = "idle-register smac q ttl-query=100 max-ttl=10000 min-ttl=10";
const std::string kMacAndPort("\x02\x00\x00\x00\x00\x01\x01\x02", 8);

TEST_F(NotificationCommands, RegisterAndDeregister) {
  given({"queue-create q 100", kIdle, "digest-register mac_learn q", "idle-deregister smac",
         "digest-deregister l2_switch.mac_learn"});
  EXPECT_EQ(answer("queue-destroy q"), "ok 0 notifications");
  EXPECT_THAT(partner_.calls, ElementsAre("create q 100", "register smac 100 10000 10 on q",
                                          "register mac_learn on q", "deregister smac",
                                          "deregister mac_learn", "destroy q"));
}

TEST_F(NotificationCommands, RefuseQueuesThatMakeNoSense) {
  expectRefused("queue-destroy q", "no queue 'q'; queue-create makes one");
  expectRefused("drain q", "no queue 'q'; queue-create makes one");
  expectRefused("digest-register mac_learn q", "no queue 'q'; queue-create makes one");
  expectRefused(kIdle, "no queue 'q'; queue-create makes one");
  expectRefused("queue-create q 1000001",
                "queue 'q': room for at most 1000000 notifications can be made at once; a queue "
                "grows by itself");
  given({"queue-create q 0"});
  expectRefused("queue-create q 10", "queue 'q' is there already");
  EXPECT_THAT(answer("queue-create r many"), StartsWith("error: "));
  given({"queue-destroy q", "queue-create q 10"});
}

TEST_F(NotificationCommands, RefuseWhatWouldStopTheProcess) {
  given({"queue-create q 10", "queue-create r 10"});
  expectRefused("idle-deregister smac", "smac: it is not registered");
  expectRefused("digest-deregister mac_learn", "mac_learn: it is not registered");
  given({kIdle, "digest-register mac_learn r"});
  expectRefused(kIdle, "smac: it is registered on queue 'q'");
  expectRefused("digest-register mac_learn q", "mac_learn: it is registered on queue 'r'");
  expectRefused("queue-destroy q",
                "queue 'q': table smac is registered on it; idle-deregister it first");
  expectRefused("queue-destroy r",
                "queue 'r': digest mac_learn is registered on it; digest-deregister it first");
  given({"idle-deregister smac", "digest-deregister mac_learn"});
  const std::string again =
      ": it has been registered before, which a partner can do only once in its life; start "
      "another shell";
  expectRefused(kIdle, "smac" + again);
  expectRefused("digest-register mac_learn q", "mac_learn" + again);
  expectRefused("idle-deregister smac", "smac: it has been deregistered already");
  expectRefused("digest-deregister mac_learn", "mac_learn: it has been deregistered already");
  given({"queue-destroy q", "queue-destroy r"});
}

TEST_F(NotificationCommands, RefuseTablesTimesAndDigestsThatMakeNoSense) {
  given({"queue-create q 10"});
  expectRefused("idle-register dmac q ttl-query=1 max-ttl=2 min-ttl=1",
                "dmac: its entries do not age");
  expectRefused("idle-register port_counters q ttl-query=1 max-ttl=2 min-ttl=1",
                "port_counters: its entries do not age");
  expectRefused("idle-register smac q ttl-query=1 max-ttl=1 min-ttl=2",
                "smac: min-ttl=2 is greater than max-ttl=1");
  expectRefused("idle-register smac q ttl-query=1 max-ttl=1", "min-ttl=MS is missing");
  expectRefused("digest-register smac q", "no digest 'smac'");
}

TEST(NotificationRules, RefuseADigestThatIsTooLongForTheAgent) {
  FakePartner partner;
  Notifications sut(partner);
  sut.createQueue("q", 1);
  DigestFacts digest{"p", "d", 1, {{"a", 2027 * 8}}};
  sut.registerDigest(digest, "q");
  digest.id = 2;
  digest.fields[0].width += 1;
  EXPECT_THROW(sut.registerDigest(digest, "q"), std::runtime_error);
}

TEST_F(NotificationCommands, RefuseADigestThatAnotherPartnerTakes) {
  given({"queue-create q 10"});
  partner_.digest_taken = {true, {}};
  expectRefused("digest-register mac_learn q",
                "mac_learn: another partner takes it, and only one can; with take-over=yes that "
                "one loses it");
  expectRefused("digest-register mac_learn q take-over=maybe",
                "take-over is yes or no, not 'maybe'");
  partner_.calls.clear();
  EXPECT_EQ(answer("digest-register mac_learn q take-over=yes"), "ok");
  EXPECT_EQ(partner_.calls, (Words{"register mac_learn on q"}));
}

TEST(NotificationRules, SayOnceThatNobodyCouldBeAskedAboutDigests) {
  FakePartner partner;
  partner.digest_taken = {std::nullopt, "nobody is there"};
  Notifications sut(partner);
  sut.createQueue("q", 1);
  EXPECT_EQ(sut.registerDigest({"p", "d", 1, {}}, "q"),
            "the slice agent could not be asked whether another partner takes d and loses it now: "
            "nobody is there");
  EXPECT_EQ(sut.registerDigest({"p", "e", 2, {}}, "q"), "");
}

TEST_F(NotificationCommands, DrainIdleEntriesByTheirKeys) {
  given({"queue-create q 10",
         "add smac ethernet.src=02:00:00:00:00:01 meta.ingress_port=7 ttl=5000 -> known"});
  notifyIdle("smac", 1000, 1990);
  notifyIdle("smac", 77, 2000);
  partner_.time = 2000;
  EXPECT_EQ(answer("drain q"),
            "idle smac #1000 ethernet.src=02:00:00:00:00:01 meta.ingress_port=7 age=10ms\n"
            "idle smac #77 (key unknown) age=0ms\n"
            "ok 2 notifications");
  EXPECT_EQ(answer("drain q"), "ok 0 notifications");
  EXPECT_EQ(partner_.live_records, 0);
}

TEST_F(NotificationCommands, DrainDigestsByTheirFields) {
  given({"queue-create q 10"});
  notifyDigest(digestId("mac_learn"), kMacAndPort, 1999);
  partner_.time = 2000;
  EXPECT_EQ(answer("drain q"),
            "digest mac_learn ethernet.src=02:00:00:00:00:01 meta.ingress_port=258 age=1ms\n"
            "ok 1 notification");
}

TEST_F(NotificationCommands, DrainAsJson) {
  useFormat(/*json=*/true);
  answer("queue-create q 10");
  answer("add smac ethernet.src=02:00:00:00:00:01 meta.ingress_port=7 ttl=5000 -> known");
  notifyIdle("smac", 1000, 1990);
  notifyIdle("smac", 77, 2000);
  notifyDigest(digestId("mac_learn"), kMacAndPort, 2001);
  partner_.time = 2002;
  EXPECT_EQ(
      answer("drain q"),
      R"({"kind":"idle","program":"l2_switch","table":"smac","device":0,"handle":1000,)"
      R"("key":{"ethernet.src":"02:00:00:00:00:01","meta.ingress_port":"7"},"time":1990,"age":12})"
      "\n"
      R"({"kind":"idle","program":"l2_switch","table":"smac","device":0,"handle":77,"key":null,)"
      R"("time":2000,"age":2})"
      "\n"
      R"({"kind":"digest","program":"l2_switch","digest":"mac_learn","device":3,)"
      R"("fields":{"ethernet.src":"02:00:00:00:00:01","meta.ingress_port":"258"},"time":2001,)"
      R"("age":1})"
      "\n"
      R"({"ok":true,"notifications":3})");
}

// Nobody's digest, values of another length than the digest's, and a kind that there is not: none
// of them is lost.
TEST_F(NotificationCommands, DrainWhatNoProgramHereHas) {
  given({"queue-create q 10"});
  notifyDigest(4711, std::string("\x01\xab", 2), 2000);
  notifyDigest(digestId("mac_learn"), "", 2000);
  PartnerIdleNotify strange{};
  strange.type = 9;
  partner_.notify("q", strange);
  partner_.time = 2000;
  EXPECT_EQ(answer("drain q"),
            "digest 4711 bytes=0x01ab age=0ms\n"
            "digest mac_learn age=0ms\n"
            "unknown kind=9\n"
            "ok 3 notifications");
}

TEST_F(NotificationCommands, DrainNoMoreThanWanted) {
  given({"queue-create q 10"});
  for (uint32_t i = 0; i < 5; ++i) notifyIdle("smac", i, 1);
  EXPECT_THAT(answer("drain q max=0"), "ok 0 notifications");
  EXPECT_THAT(answer("drain q max=2"), HasSubstr("ok 2 notifications"));
  EXPECT_THAT(answer("drain q max=9 wait=1"), HasSubstr("ok 3 notifications"));
  EXPECT_THAT(answer("drain q wait=1"), HasSubstr("ok 0 notifications"));
}

TEST_F(NotificationCommands, EndADrainEarlyWhenTheShellIsToEnd) {
  given({"queue-create q 10"});
  stop_ = true;
  EXPECT_EQ(answer("drain q wait=4294967295"), "ok 0 notifications");
}

TEST_F(NotificationCommands, PrintWhatAQueueHoldsThatIsDestroyed) {
  given({"queue-create q 10"});
  notifyIdle("smac", 5, 2000);
  partner_.time = 2000;
  EXPECT_EQ(answer("queue-destroy q"), "idle smac #5 (key unknown) age=0ms\nok 1 notification");
  EXPECT_EQ(partner_.live_records, 0);
  EXPECT_EQ(answer("drain q"), "error: no queue 'q'; queue-create makes one");
}

using Words = std::vector<std::string>;

TEST_F(NotificationCommands, CompleteQueuesDigestsAndOptions) {
  given({"queue-create blue 1", "queue-create green 1"});
  EXPECT_EQ(sut_->completions("drain ").words, (Words{"blue", "green"}));
  EXPECT_EQ(sut_->completions("drain blue w").words, Words{"wait="});
  EXPECT_EQ(sut_->completions("queue-destroy g").words, Words{"green"});
  EXPECT_EQ(sut_->completions("idle-register ").words, Words{"smac"});
  EXPECT_EQ(sut_->completions("idle-register smac b").words, Words{"blue"});
  EXPECT_EQ(sut_->completions("idle-register smac blue m").words, (Words{"max-ttl=", "min-ttl="}));
  EXPECT_EQ(sut_->completions("digest-register m").words, Words{"mac_learn"});
  EXPECT_EQ(sut_->completions("digest-register mac_learn g").words, Words{"green"});
  EXPECT_EQ(sut_->completions("counters-start p").words, Words{"port_counters"});
  EXPECT_EQ(sut_->completions("barrier route").words, Words{"route_counters"});
  EXPECT_EQ(sut_->completions("barrier route_counters d").words, Words{"double"});
  EXPECT_EQ(sut_->completions("help dig").words, (Words{"digest-register", "digest-deregister"}));
}

}  // namespace
}  // namespace jexapps
