// Things that are done after a grace period.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "model/base/read_copy_update.h"
#include "model/tables/slot_store.h"
#include "support/wait_until.h"

namespace jxmodel {
namespace {

void increment(void* owner, uint64_t by) { *static_cast<uint64_t*>(owner) += by; }

TEST(Reclaimer, DoesEverythingOnceWhenDrained) {
  uint64_t done = 0;
  Reclaimer sut;
  for (int i = 0; i < 1000; ++i) sut.defer(increment, &done, 1);
  sut.drain();
  EXPECT_EQ(done, 1000U);
  EXPECT_EQ(sut.pending(), 0U);
}

using Clock = std::chrono::steady_clock;

/// Hands a batch over, and one thing more now and then, until something is done or patience ends.
/// Returns how many.
uint64_t handOver(Reclaimer* sut, uint64_t* done, Clock::duration patience) {
  const Clock::time_point end = Clock::now() + patience;
  uint64_t count = 0;
  for (; count < Reclaimer::kBatch; ++count) sut->defer(increment, done, 1);
  for (; *done == 0 && Clock::now() < end; ++count) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
    sut->defer(increment, done, 1);
  }
  return count;
}

/// How long it takes until something is done where no section is open.
Clock::duration gracePeriod() {
  uint64_t done = 0;
  Reclaimer sut;
  const Clock::time_point begin = Clock::now();
  handOver(&sut, &done, jextest::kPatience);
  EXPECT_GT(done, 0U);
  return Clock::now() - begin;
}

// A section that did not hold grace periods back would let things be done within the time that they
// take otherwise; ten times that is waited.
TEST(Reclaimer, DoesNothingWhileASectionIsOpen) {
  const Clock::duration patience = 10 * std::max(gracePeriod(), gracePeriod());
  std::promise<void> opened, close;
  std::thread reader([&] {
    const ReadSection section;
    opened.set_value();
    close.get_future().wait();
  });
  opened.get_future().wait();
  uint64_t done = 0;
  Reclaimer sut;
  const uint64_t handed_over = handOver(&sut, &done, patience);
  EXPECT_EQ(done, 0U);
  close.set_value();
  reader.join();
  sut.drain();
  EXPECT_EQ(done, handed_over);
}

TEST(SlotStore, WaitsForAGracePeriodBeforeASlotIsUsedAgain) {
  Reclaimer reclaimer;
  SlotStore sut(24, 2, &reclaimer);
  for (uint32_t slot = 0; slot < 2; ++slot) sut.take(sut.peek(), slot + 1);
  EXPECT_EQ(sut.peek(), kNoSlot);
  sut.release(0);
  EXPECT_EQ(sut.peek(), 2U);  // one more than the capacity: slot 0 may still be read
  reclaimer.drain();
  EXPECT_EQ(sut.peek(), 0U);
}

}  // namespace
}  // namespace jxmodel
