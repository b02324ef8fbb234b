// Learn messages: from packets, and injected, to who has registered.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "unit/notify/notify_device.h"

namespace jxnotifytest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t kLearned = 0x020000000001;
constexpr jx_model_learn_options_t kDefaults = {32, 1, 16, 65536};

class LearnTest : public NotifyTest {
 protected:
  /// Hosts kLearned, kLearned + 1, ... talk at port 3.
  static void talk(uint64_t first, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) inject(3, frame(kLearned + first + i));
  }
  static jx_status_t injectDigests(uint64_t count) {
    Bytes values;
    for (uint64_t i = 0; i < count; ++i) {
      const Bytes one = digest(kLearned + i, 3);
      values.insert(values.end(), one.begin(), one.end());
    }
    return jx_model_learn_inject(kDevice, "l2_switch", "mac_learn", values.data(), count);
  }
};

TEST_F(LearnTest, ADigestComesWhenItsTimeIsUpAndNotBefore) {
  Learner learner(learn());
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  talk(0, 2);
  advance(0);
  settle();
  EXPECT_THAT(learner.sizes(), IsEmpty());
  EXPECT_EQ(counts().waiting, 2U);
  ASSERT_EQ(jx_model_clock_advance(kMs - 1), JX_SUCCESS);
  settle();
  EXPECT_THAT(learner.sizes(), IsEmpty());
  ASSERT_EQ(jx_model_clock_advance(1), JX_SUCCESS);
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(2));
  EXPECT_THAT(learner.digests(), ElementsAre(digest(kLearned, 3), digest(kLearned + 1, 3)));
  EXPECT_EQ(counts().delivered, 2U);
  EXPECT_EQ(counts().messages, 1U);
  EXPECT_EQ(counts().waiting, 0U);
  EXPECT_EQ(counts().unacked, 0U);
}

TEST_F(LearnTest, AFullMessageDoesNotWait) {
  setOptions({3, 1000, 16, 100});
  Learner learner(learn());
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  talk(0, 7);
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(3, 3));
  EXPECT_EQ(counts().waiting, 1U);
  advance(1000);
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(3, 3, 1));
}

TEST_F(LearnTest, TheTimeOfAMessageBeginsWithItsFirstDigest) {
  setOptions({2, 10, 16, 100});
  Learner learner(learn());
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  talk(0, 1);
  advance(9);
  talk(1, 2);  // the first two make a message, the third begins one
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(2));
  advance(9);
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(2));
  advance(1);
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(2, 1));
}

TEST_F(LearnTest, WithoutATimeEachDigestGoesAtOnce) {
  setOptions({32, 0, 16, 100});
  Learner learner(learn());
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  talk(0, 3);
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(1, 1, 1));
}

TEST_F(LearnTest, ADigestOnItsWayIsNotSentAgain) {
  setOptions({1, 0, 16, 100});
  Learner learner(learn(), false);
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  talk(0, 1);
  talk(0, 1);
  settle();
  talk(0, 1);
  inject(4, frame(kLearned));  // another port is another digest
  settle();
  EXPECT_THAT(learner.digests(), ElementsAre(digest(kLearned, 3), digest(kLearned, 4)));
  EXPECT_EQ(counts().suppressed, 2U);
  ASSERT_EQ(learner.acknowledge(0), JX_SUCCESS);
  talk(0, 1);
  settle();
  EXPECT_THAT(learner.digests(),
              ElementsAre(digest(kLearned, 3), digest(kLearned, 4), digest(kLearned, 3)));
}

TEST_F(LearnTest, SoManyMessagesMayBeUnacknowledgedAndSoManyDigestsWait) {
  setOptions({2, 0, 2, 3});
  setOptions({2, 1000, 2, 3});
  Learner learner(learn(), false);
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  talk(0, 2);
  settle();  // before more come: only three may wait for the thread that tells
  talk(2, 2);
  settle();
  ASSERT_THAT(learner.sizes(), ElementsAre(2, 2));
  talk(4, 5);  // three find room
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(2, 2));
  EXPECT_EQ(counts().unacked, 2U);
  EXPECT_EQ(counts().waiting, 3U);
  EXPECT_EQ(counts().lost, 2U);
  ASSERT_EQ(learner.acknowledge(1), JX_SUCCESS);
  settle();
  ASSERT_THAT(learner.sizes(), ElementsAre(2, 2, 2));
  EXPECT_EQ(learner.digests()[4], digest(kLearned + 4, 3));
  talk(7, 1);  // was lost, so it may come again
  EXPECT_EQ(counts().waiting, 2U);
}

TEST_F(LearnTest, AcknowledgingTwiceOrNothingIsAnError) {
  setOptions({1, 0, 16, 100});
  const auto session = jxrt::JxRtSession::sessionCreate();
  Learner learner(learn(), false);
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  talk(0, 2);
  settle();
  EXPECT_EQ(learner.acknowledge(1), JX_SUCCESS);
  EXPECT_EQ(learner.acknowledge(1), JX_OBJECT_NOT_FOUND);
  int nothing = 0;
  EXPECT_EQ(learn()->notifyAck(session, reinterpret_cast<jx_rt_learn_msg_hdl*>(&nothing)),
            JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(learn()->notifyAck(session, nullptr), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(learn()->notifyAck(nullptr, reinterpret_cast<jx_rt_learn_msg_hdl*>(&nothing)),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(learner.acknowledge(0), JX_SUCCESS);
}

TEST_F(LearnTest, WithoutAClientDigestsAreUnclaimed) {
  talk(0, 3);
  EXPECT_EQ(counts().unclaimed, 3U);
  EXPECT_EQ(injectDigests(1), JX_NO_LEARN_CLIENTS);
}

TEST_F(LearnTest, DeregisteringLeavesWhatWaitsUnclaimed) {
  setOptions({2, 1000, 1, 100});
  Learner learner(learn(), false);
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  talk(0, 5);
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(2));
  EXPECT_EQ(learner.end(), JX_SUCCESS);
  EXPECT_EQ(counts().unclaimed, 3U);
  EXPECT_EQ(counts().waiting, 0U);
  EXPECT_EQ(learner.acknowledge(0), JX_SUCCESS) << "what was delivered is still the client's";
  talk(0, 1);
  EXPECT_EQ(counts().unclaimed, 4U);
  EXPECT_EQ(learner.end(), JX_SUCCESS) << "nothing to end is no error";
}

TEST_F(LearnTest, TheClientThatRegistersLastGetsWhatWaits) {
  setOptions({1, 0, 1, 100});
  Learner first(learn(), false), second(learn());
  ASSERT_EQ(first.begin(), JX_SUCCESS);
  talk(0, 3);
  settle();
  ASSERT_EQ(second.begin(), JX_SUCCESS);
  settle();
  EXPECT_THAT(first.digests(), ElementsAre(digest(kLearned, 3)));
  EXPECT_THAT(second.digests(), ElementsAre(digest(kLearned + 1, 3), digest(kLearned + 2, 3)));
  EXPECT_EQ(first.acknowledge(0), JX_SUCCESS);
}

TEST_F(LearnTest, NoCallbackRunsOnceDeregisteringHasReturned) {
  setOptions({1, 0, 16, 1000});
  const auto session = jxrt::JxRtSession::sessionCreate();
  std::atomic<bool> running{false}, go{false};
  const auto slow = [&](const jx_rt_target_t&, std::shared_ptr<jxrt::JxRtSession> given,
                        std::vector<std::unique_ptr<jxrt::JxRtTableData>>,
                        jx_rt_learn_msg_hdl* const message, const void*) {
    running = true;
    while (!go) std::this_thread::yield();
    EXPECT_EQ(learn()->notifyAck(given, message), JX_SUCCESS);
    running = false;
    return JX_SUCCESS;
  };
  ASSERT_EQ(learn()->callbackRegister(session, target(), slow, nullptr), JX_SUCCESS);
  talk(0, 5);
  while (!running) std::this_thread::yield();
  std::thread releases([&] { go = true; });
  EXPECT_EQ(learn()->callbackDeregister(session, target()), JX_SUCCESS);
  EXPECT_FALSE(running);
  releases.join();
  settle();
  EXPECT_FALSE(running);
}

TEST_F(LearnTest, ACallbackMayDeregisterItself) {
  setOptions({1, 0, 16, 1000});
  const auto session = jxrt::JxRtSession::sessionCreate();
  int calls = 0;
  const auto once = [&](const jx_rt_target_t&, std::shared_ptr<jxrt::JxRtSession> given,
                        std::vector<std::unique_ptr<jxrt::JxRtTableData>>,
                        jx_rt_learn_msg_hdl* const message, const void*) {
    ++calls;
    EXPECT_EQ(learn()->callbackDeregister(given, target()), JX_SUCCESS);
    EXPECT_EQ(learn()->notifyAck(given, message), JX_SUCCESS);
    return JX_SUCCESS;
  };
  ASSERT_EQ(learn()->callbackRegister(session, target(), once, nullptr), JX_SUCCESS);
  talk(0, 3);
  settle();
  EXPECT_EQ(calls, 1);
}

TEST_F(LearnTest, ACallbackMayRemoveTheDevice) {
  setOptions({1, 0, 16, 1000});
  const auto session = jxrt::JxRtSession::sessionCreate();
  std::atomic<int> removed{-1};
  const auto remover = [&](const jx_rt_target_t&, std::shared_ptr<jxrt::JxRtSession>,
                           std::vector<std::unique_ptr<jxrt::JxRtTableData>>,
                           jx_rt_learn_msg_hdl* const, const void*) {
    const jx_status_t status = jx_device_remove(kDevice);
    removed = status;
    return JX_SUCCESS;
  };
  ASSERT_EQ(learn()->callbackRegister(session, target(), remover, nullptr), JX_SUCCESS);
  ASSERT_EQ(injectDigests(1), JX_SUCCESS);
  while (removed < 0) std::this_thread::yield();
  EXPECT_EQ(removed, JX_SUCCESS);
}

TEST_F(LearnTest, RegisteringChecksItsArguments) {
  const auto session = jxrt::JxRtSession::sessionCreate();
  Learner learner(learn());
  EXPECT_EQ(learn()->callbackRegister(nullptr, target(), learner.callback(), nullptr),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(learn()->callbackRegister(session, target(), nullptr, nullptr), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(learn()->callbackRegister(session, {9, 0, 0, 0}, learner.callback(), nullptr),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(learn()->callbackDeregister(nullptr, target()), JX_INVALID_ARGUMENTS);
}

TEST_F(LearnTest, OptionsAreChecked) {
  jx_model_learn_options_t options{};
  ASSERT_EQ(jx_model_learn_options_get(kDevice, "l2_switch", "mac_learn", &options), JX_SUCCESS);
  EXPECT_EQ(options.batch, kDefaults.batch);
  EXPECT_EQ(options.batch_ms, kDefaults.batch_ms);
  EXPECT_EQ(options.max_unacked, kDefaults.max_unacked);
  EXPECT_EQ(options.max_waiting, kDefaults.max_waiting);
  for (const jx_model_learn_options_t& wrong :
       {jx_model_learn_options_t{0, 1, 1, 1}, {65537, 1, 1, 1}, {1, 1, 0, 1}, {1, 1, 1, 0}}) {
    EXPECT_EQ(jx_model_learn_options_set(kDevice, "l2_switch", "mac_learn", &wrong),
              JX_INVALID_ARGUMENTS);
  }
  EXPECT_EQ(jx_model_learn_options_get(kDevice, "l2_switch", "nothing", &options),
            JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_model_learn_options_get(kDevice, "nothing", "mac_learn", &options),
            JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_model_learn_options_get(77, "l2_switch", "mac_learn", &options),
            JX_OBJECT_NOT_FOUND);
}

TEST_F(LearnTest, AMillionDigestsAtFullSpeedLoseNone) {
  ASSERT_EQ(jx_model_clock_set(JX_MODEL_CLOCK_REAL, 0), JX_SUCCESS);
  constexpr uint64_t kMany = 1'000'000;
  const auto session = jxrt::JxRtSession::sessionCreate();
  std::atomic<uint64_t> came{0}, misplaced{0};
  const auto count = [&](const jx_rt_target_t&, std::shared_ptr<jxrt::JxRtSession> given,
                         std::vector<std::unique_ptr<jxrt::JxRtTableData>> data,
                         jx_rt_learn_msg_hdl* const message, const void*) {
    for (const auto& entry : data) {
      uint64_t source = 0;
      entry->getValue(1, &source);
      if (source != kLearned + came) ++misplaced;
      ++came;
    }
    return learn()->notifyAck(given, message);
  };
  ASSERT_EQ(learn()->callbackRegister(session, target(), count, nullptr), JX_SUCCESS);
  ASSERT_EQ(injectDigests(kMany), JX_SUCCESS);
  for (uint64_t seen = 0; seen < kMany; seen = came) std::this_thread::yield();
  EXPECT_EQ(misplaced, 0U);
  EXPECT_EQ(counts().delivered, kMany);
  EXPECT_EQ(counts().lost, 0U);
}

std::vector<jxmodel::PacketBuffer> hosts(uint64_t count, uint64_t step_ns) {
  std::vector<jxmodel::PacketBuffer> packets;
  for (uint64_t i = 0; i < count; ++i) {
    packets.push_back(jxmodel::test::packetOf(frame(kLearned + i),
                                              static_cast<int64_t>(kStart + i * step_ns),
                                              jxmodel::TimeResolution::kNanosecond));
  }
  return packets;
}

TEST_F(LearnTest, ACaptureWaitsForRoomInsteadOfLosingDigests) {
  setOptions({2, 0, 1, 4});
  setOptions({3, 1, 1, 2});
  ASSERT_EQ(jx_model_clock_set(JX_MODEL_CLOCK_CAPTURE, 0), JX_SUCCESS);
  Learner learner(learn(), false);
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  attach(3, hosts(50, 10));
  for (size_t message = 0; learner.digests().size() < 50;) {
    ASSERT_TRUE(learner.wait(1));
    if (learner.sizes().size() <= message) continue;
    ASSERT_EQ(learner.acknowledge(message++), JX_SUCCESS);
  }
  EXPECT_EQ(counts().lost, 0U);
  EXPECT_EQ(counts().delivered, 50U);
}

TEST_F(LearnTest, WithACaptureAMessageComesBeforeThePacketsAfterItsTime) {
  ASSERT_EQ(jx_model_clock_set(JX_MODEL_CLOCK_CAPTURE, 0), JX_SUCCESS);
  setOptions({4, 5, 16, 100});
  Learner learner(learn());
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  attach(3, hosts(20, 2 * kMs));  // three a message: at 0, 2 and 4 ms; 6 ms is after the fifth
  ASSERT_EQ(jx_model_ports_wait_idle(kDevice, kPatienceMs), JX_SUCCESS);
  settle();
  EXPECT_THAT(learner.sizes(), ElementsAre(3, 3, 3, 3, 3, 3, 2)) << "the last one at the end";
}

TEST_F(LearnTest, RemovingTheDeviceFreesACaptureThatWaits) {
  setOptions({1, 0, 1, 1});
  Learner learner(learn(), false);
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  attach(3, hosts(50, 10));
  ASSERT_TRUE(learner.wait(1));
  EXPECT_EQ(jx_device_remove(kDevice), JX_SUCCESS);  // comes back
  learner.deviceGone();
}

TEST_F(LearnTest, FieldsHaveTheirWidths) {
  program_ = "odd";
  load(R"({"name": "odd", "id": 9,
    "fields": [{"name": "meta.a", "width": 1}, {"name": "meta.b", "width": 1},
               {"name": "meta.c", "width": 1}, {"name": "meta.d", "width": 9},
               {"name": "ipv6.src", "width": 128}],
    "actions": [{"name": "nop"}],
    "tables": [{"name": "any", "kind": "match", "size": 1, "actions": ["nop"],
                "key": [{"field": "ipv6.src", "match": "exact"}]}],
    "learn": [{"name": "odd_learn", "fields": ["meta.a", "meta.b", "meta.c", "meta.d",
                                               "ipv6.src"]}],
    "control": []})");
  Bytes values = {1, 0, 1, 1, 0xFE};
  for (uint8_t i = 0; i < 16; ++i) values.push_back(i);
  const auto injectValues = [&values] {
    return jx_model_learn_inject(kDevice, "odd", "odd_learn", values.data(), 1);
  };
  Learner learner(learn("odd_learn"));
  ASSERT_EQ(learner.begin(), JX_SUCCESS);
  ASSERT_EQ(injectValues(), JX_SUCCESS);
  advance(1);
  settle();
  EXPECT_THAT(learner.digests(), ElementsAre(values));
  values[3] = 2;  // ten bits
  EXPECT_EQ(injectValues(), JX_INVALID_ARGUMENTS);

  const auto session = jxrt::JxRtSession::sessionCreate();
  const auto reader = [&](const jx_rt_target_t&, std::shared_ptr<jxrt::JxRtSession> given,
                          std::vector<std::unique_ptr<jxrt::JxRtTableData>> data,
                          jx_rt_learn_msg_hdl* const message, const void*) {
    uint64_t number = 0;
    uint8_t byte = 0;
    bool active = false;
    std::vector<uint32_t> list;
    EXPECT_EQ(data[0]->getValue(4, &number), JX_SUCCESS);
    EXPECT_EQ(number, 0x1FEU);
    EXPECT_EQ(data[0]->getValue(4, 1, &byte), JX_INVALID_ARGUMENTS) << "it has two bytes";
    EXPECT_EQ(data[0]->getValue(5, &number), JX_INVALID_ARGUMENTS) << "wider than a number";
    EXPECT_EQ(data[0]->getValue(6, &number), JX_INVALID_ARGUMENTS);
    EXPECT_EQ(data[0]->getValue(0, 1, &byte), JX_INVALID_ARGUMENTS);
    EXPECT_EQ(data[0]->getValue(1, &list), JX_INVALID_ARGUMENTS);
    EXPECT_EQ(data[0]->setValue(1, uint64_t{0}), JX_NOT_SUPPORTED);
    EXPECT_EQ(data[0]->isActive(1, &active), JX_SUCCESS);
    EXPECT_TRUE(active);
    return learn("odd_learn")->notifyAck(given, message);
  };
  ASSERT_EQ(learn("odd_learn")->callbackRegister(session, target(), reader, nullptr), JX_SUCCESS);
  values[3] = 1;
  ASSERT_EQ(injectValues(), JX_SUCCESS);
  advance(1);
  settle();
}

}  // namespace
}  // namespace jxnotifytest
