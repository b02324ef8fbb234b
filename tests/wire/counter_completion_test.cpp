// The end of a counter sync, step by step: what a thread does while another one sends the reply.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "wire/counting_handlers.h"

namespace jextest {
namespace {

std::mutex replies_mutex;
std::vector<uint64_t> replies;  // time stamps, in the order in which sending began
std::function<void(uint64_t)>* on_reply = nullptr;  // called by the thread that sends, if it is set

std::vector<uint64_t> repliesSoFar() {
  const std::lock_guard<std::mutex> lock(replies_mutex);
  return replies;
}

/// The library's handlers; their replies come here, and go no further.
class CounterCompletion : public testing::Test {
 protected:
  CounterCompletion() {
    replies.clear();
    agent_.start();
  }
  ~CounterCompletion() override {
    agent_.becomeIdle();
    on_reply = nullptr;
  }

  /// Barrier 1 has a sync under way that is held, barrier 2 waits for the next.
  void letTwoBarriersWait() {
    agent_.hold(true);
    agent_.handleBarrier(1);
    agent_.handleBarrier(2);
    ASSERT_EQ(agent_.left(), std::make_pair(uint64_t{1}, uint64_t{2}));
  }
  void finish() {
    agent_.hold(false);
    agent_.becomeIdle();
  }

  CountingHandlers agent_;
};

using Names = std::vector<uint64_t>;
constexpr std::pair<uint64_t, uint64_t> kNone{0, 0};

// A Partner that waits for the reply sends the next barrier while the thread that sends the reply
// is still at it.
TEST_F(CounterCompletion, ABarrierSentBecauseTheReplyCameHasASyncOfItsOwn) {
  std::function<void(uint64_t)> hook = [this](uint64_t name) {
    if (name < 5) agent_.handleBarrier(name + 1);
  };
  on_reply = &hook;
  agent_.handleBarrier(1);
  agent_.becomeIdle();
  EXPECT_EQ(repliesSoFar(), (Names{1, 2, 3, 4, 5}));
  EXPECT_EQ(agent_.left(), kNone);
  agent_.stop();
}

// An SDK may complete syncs on several threads.
TEST_F(CounterCompletion, TwoThatOverlapAnswerBothBarriersOnce) {
  letTwoBarriersWait();
  PartnerLib::CounterReadStruct_t* const record = agent_.record();
  std::function<void(uint64_t)> hook = [&](uint64_t) {
    on_reply = nullptr;
    std::thread([record] { PartnerLib::processCounterRead(record); }).join();
  };
  on_reply = &hook;
  PartnerLib::processCounterRead(record);
  EXPECT_EQ(agent_.left(), kNone);
  finish();
  Names sent = repliesSoFar();
  std::sort(sent.begin(), sent.end());
  EXPECT_EQ(sent, (Names{1, 2}));
  agent_.stop();
}

TEST_F(CounterCompletion, AnswersInOrderOneAfterTheOther) {
  letTwoBarriersWait();
  PartnerLib::PeriodicHybridCounterUpdate();
  finish();
  EXPECT_EQ(repliesSoFar(), (Names{1, 2}));
  EXPECT_EQ(agent_.left(), kNone);
  agent_.stop();
}

TEST_F(CounterCompletion, OfAStoppedRecordAnswersTheBarrierThatWaitsForIt) {
  letTwoBarriersWait();
  agent_.stop();
  EXPECT_EQ(repliesSoFar(), Names{}) << "the stop itself answers nothing";
  finish();
  EXPECT_EQ(repliesSoFar(), Names{1}) << "no sync was made for barrier 2";
}

TEST_F(CounterCompletion, OfAStoppedRecordLeavesTheRestToTheNextOne) {
  letTwoBarriersWait();
  PartnerLib::PeriodicHybridCounterUpdate();
  PartnerLib::PeriodicHybridCounterUpdate();
  agent_.stop();
  finish();
  EXPECT_EQ(repliesSoFar(), (Names{1, 2}));
}

TEST_F(CounterCompletion, AStopWithoutSyncsAnswersNothing) {
  letTwoBarriersWait();
  finish();
  ASSERT_EQ(agent_.left(), std::make_pair(uint64_t{2}, uint64_t{0}));
  agent_.handleBarrier(3);
  agent_.stop();
  finish();
  EXPECT_EQ(repliesSoFar(), Names{1});
}

}  // namespace
}  // namespace jextest

// The linker sends the calls of the library's other sources here.
extern "C" bool __wrap__ZN10PartnerLib10socketSendEiPKvm(int, const void* buf, size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(buf);
  const uint64_t name = jextest::u64At(jextest::Bytes(bytes, bytes + size), 4);
  std::function<void(uint64_t)>* hook = nullptr;
  {
    const std::lock_guard<std::mutex> lock(jextest::replies_mutex);
    jextest::replies.push_back(name);
    hook = jextest::on_reply;
  }
  if (hook != nullptr) (*hook)(name);
  return true;
}
