// Counters and barriers while requests, syncs and timers run at once: this process plays the
// agent's loop, the SDK's thread completes, another thread is the host program's timer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "wire/counting_handlers.h"

namespace jextest {
namespace {

using Agent = CountingHandlers;

/// A thread that does one thing over and over until its object goes.
class Repeated {
 public:
  template <typename Work>
  explicit Repeated(Work work)
      : thread_([this, work] {
          while (!done_) work();
        }) {}
  ~Repeated() {
    done_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> done_{false};
  std::thread thread_;
};

/// The host program's timer, with no more under way than it can catch up with.
void updateNowAndThen() {
  if (Agent::waiting() < 3) {
    PartnerLib::PeriodicHybridCounterUpdate();
  } else {
    std::this_thread::yield();
  }
}

/// Receives answers as the Partner's receive thread does.
class Answers {
 public:
  explicit Answers(Agent& agent) : agent_(agent), thread_([this] { receive(); }) {}

  uint64_t last() const { return last_; }
  uint64_t count() const { return count_; }
  bool inOrder() const { return in_order_; }

 private:
  void receive() {
    Bytes message;
    if (!agent_.tryReceive(&message)) {
      std::this_thread::yield();
      return;
    }
    const uint64_t name = u64At(message, 4);
    if (message != barrierReply(name) || name <= last_) in_order_ = false;
    last_ = name;
    ++count_;
  }

  Agent& agent_;
  std::atomic<uint64_t> last_{0};
  std::atomic<uint64_t> count_{0};
  std::atomic<bool> in_order_{true};
  Repeated thread_;  // last: it uses all the others
};

// Barriers replace one another, but the last one is never lost, whenever it comes.
TEST(CounterRace, NoBarrierIsLostWhileSyncsComplete) {
  constexpr int kRounds = kSanitized ? 200 : 1000;
  constexpr uint64_t kBarriers = 50;
  Agent agent;
  agent.start();
  Answers answers(agent);
  uint64_t name = 0;
  for (int round = 0; round < kRounds && !testing::Test::HasFailure(); ++round) {
    {
      const Repeated timer(updateNowAndThen);
      for (uint64_t i = 0; i < kBarriers; ++i) agent.handleBarrier(++name);
    }
    // One may wait for the sync after the last one, with another one behind it.
    for (int sync = 0; sync < 2; ++sync) {
      agent.becomeIdle();
      PartnerLib::PeriodicHybridCounterUpdate();
    }
    agent.becomeIdle();
    ASSERT_EQ(agent.left(), std::make_pair(uint64_t{0}, uint64_t{0})) << "round " << round;
    ASSERT_TRUE(waitUntil([&] { return answers.last() == name; })) << "round " << round;
  }
  EXPECT_TRUE(answers.inOrder());
  EXPECT_GE(answers.count(), static_cast<uint64_t>(kRounds));
  agent.stop();
}

// Single barriers as close as can be to the end of a sync: each is answered, by its own sync or the
// one after it.
TEST(CounterRace, EveryLoneBarrierIsAnswered) {
  constexpr uint64_t kBarriers = kSanitized ? 1000 : 5000;
  Agent agent;
  agent.start();
  Answers answers(agent);
  const Repeated timer(updateNowAndThen);
  for (uint64_t name = 1; name <= kBarriers; ++name) {
    agent.handleBarrier(name);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (answers.last() != name) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << name;
      std::this_thread::yield();
    }
  }
  EXPECT_EQ(answers.count(), kBarriers);
  EXPECT_TRUE(answers.inOrder());
  agent.stop();
}

/// Lets some time pass without giving the core away, which may take long on a busy machine.
void spin(std::chrono::microseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < end) {
  }
}

// The end comes while syncs complete. A sync that is under way answers the barrier that waits for
// it, and a second one the barrier behind it: once each, whenever the end comes.
TEST(CounterRace, SyncsAnswerEachBarrierOnceWhileTheTableEnds) {
  constexpr int kRounds = kSanitized ? 1000 : 5000;
  Agent agent;
  Answers answers(agent);
  uint64_t name = 0;
  uint64_t expected = 0;
  for (int round = 1; round <= kRounds; ++round) {
    const bool two_syncs = round % 2 == 0;
    agent.start();
    agent.hold(true);
    agent.handleBarrier(++name);
    if (two_syncs) PartnerLib::PeriodicHybridCounterUpdate();
    agent.handleBarrier(++name);
    agent.hold(false);
    spin(std::chrono::microseconds(round % 64));
    agent.stop();
    agent.becomeIdle();
    expected += two_syncs ? 2 : 1;
    ASSERT_TRUE(waitUntil([&] { return answers.count() >= expected; })) << "round " << round;
    ASSERT_EQ(answers.last(), two_syncs ? name : name - 1) << "round " << round;
  }
  EXPECT_EQ(answers.count(), expected);
  EXPECT_TRUE(answers.inOrder());
}

// After stop() has returned nothing is written, though syncs run and go on to their end.
TEST(CounterRace, NothingIsWrittenAfterTheEndWhileSyncsRun) {
  constexpr int kRounds = kSanitized ? 1000 : 5000;
  const std::string name = std::to_string(kPairs);
  Agent agent;
  const Answers answers(agent);
  const Repeated timer(updateNowAndThen);
  int ended_in_flight = 0;
  for (int round = 1; round <= kRounds; ++round) {
    agent.start();
    agent.handleBarrier(static_cast<uint64_t>(round));
    if (round % 2 == 0) PartnerLib::PeriodicHybridCounterUpdateModel();
    agent.stop();
    if (agent.waiting() != 0) ++ended_in_flight;
    agent.block().fill(name, 0xA5);
    if (round % 3 == 0) agent.becomeIdle();
    for (int look = 0; look < 3; ++look) {
      ASSERT_EQ(agent.block().block(name), Bytes(12 + 16 * kPairCount, 0xA5)) << "round " << round;
      std::this_thread::yield();
    }
  }
  EXPECT_GT(ended_in_flight, 0) << "no sync was under way at any end";
}

// The same with the sync certainly under way.
TEST(CounterRace, NothingIsWrittenAfterTheEndOfAHeldSync) {
  constexpr int kRounds = kSanitized ? 500 : 3000;
  const std::string name = std::to_string(kPairs);
  Agent agent;
  const Answers answers(agent);
  for (int round = 1; round <= kRounds; ++round) {
    agent.start();
    agent.hold(true);
    agent.handleBarrier(static_cast<uint64_t>(round));
    PartnerLib::PeriodicHybridCounterUpdate();
    ASSERT_EQ(agent.waiting(), 2u);
    agent.stop();
    agent.block().fill(name, 0x5A);
    if (round % 2 == 0) agent.start();  // a later start gets none of it
    agent.hold(false);
    agent.becomeIdle();
    ASSERT_EQ(agent.block().block(name), Bytes(12 + 16 * kPairCount, 0x5A)) << "round " << round;
    if (round % 2 == 0) agent.stop();
  }
}

}  // namespace
}  // namespace jextest
