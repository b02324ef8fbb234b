// Things that are done after a grace period.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "model/read_copy_update.h"
#include "model/slot_store.h"

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

TEST(Reclaimer, DoesNothingWhileASectionIsOpen) {
  std::mutex mutex;
  std::condition_variable changed;
  bool open = false, close = false;
  std::thread reader([&] {
    const ReadSection section;
    std::unique_lock lock(mutex);
    open = true;
    changed.notify_all();
    changed.wait(lock, [&] { return close; });
  });
  uint64_t done = 0;
  Reclaimer sut;
  {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return open; });
    for (size_t i = 0; i < 20 * Reclaimer::kBatch; ++i) sut.defer(increment, &done, 1);
    EXPECT_EQ(done, 0U);
    close = true;
    changed.notify_all();
  }
  reader.join();
  sut.drain();
  EXPECT_EQ(done, 20 * Reclaimer::kBatch);
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
