// Slots, handles and ids.
#include <gtest/gtest.h>

#include <set>

#include "model/tables/handle_space.h"
#include "model/tables/id_index.h"
#include "model/tables/slot_store.h"

namespace jxmodel {
namespace {

uint32_t takeOne(SlotStore* store) {
  const uint32_t slot = store->peek();
  store->take(slot, slot + 1);
  return slot;
}

TEST(SlotStore, GivesDenseSlotsUpToItsCapacity) {
  SlotStore sut(24, 5);
  for (uint32_t expected = 0; expected < 5; ++expected) EXPECT_EQ(takeOne(&sut), expected);
  EXPECT_EQ(sut.peek(), kNoSlot);
  EXPECT_EQ(sut.count(), 5U);
}

TEST(SlotStore, UsesFreedSlotsAgainBeforeFreshOnes) {
  SlotStore sut(24, 100);
  for (int i = 0; i < 10; ++i) takeOne(&sut);
  sut.release(3);
  sut.release(7);
  EXPECT_FALSE(sut.used(3));
  EXPECT_EQ((std::set<uint32_t>{takeOne(&sut), takeOne(&sut)}), (std::set<uint32_t>{3, 7}));
  EXPECT_EQ(takeOne(&sut), 10U);
}

TEST(SlotStore, PeekingTakesNothing) {
  SlotStore sut(24, 2);
  EXPECT_EQ(sut.peek(), 0U);
  EXPECT_EQ(sut.peek(), 0U);
  EXPECT_EQ(sut.count(), 0U);
  EXPECT_FALSE(sut.used(0));
}

TEST(SlotStore, KeepsRecordsWhereTheyAreAsItGrows) {
  SlotStore sut(40, 100000);
  const uint32_t first = takeOne(&sut);
  const uint8_t* const place = sut.at(first);
  for (int i = 0; i < 50000; ++i) takeOne(&sut);
  EXPECT_EQ(sut.at(first), place);
  EXPECT_EQ(sut.record(40000).handle, 40001U);
}

TEST(SlotStore, HoldsRecordsThatAreWiderThanAChunk) {
  SlotStore sut(100000, 3);
  EXPECT_EQ(takeOne(&sut), 0U);
  EXPECT_EQ(takeOne(&sut), 1U);
  sut.at(1)[99999] = 7;
  EXPECT_EQ(sut.record(0).handle, 1U);
}

TEST(HandleSpace, GivesHandlesOutFromItsBase) {
  HandleSpace sut(1000);
  EXPECT_EQ(sut.handleOf(0), 1000U);
  EXPECT_EQ(sut.handleOf(7), 1007U);
  EXPECT_EQ(sut.slotOf(1007), 7U);
}

TEST(HandleSpace, TiesAHandleFromOutsideOnce) {
  HandleSpace sut(std::nullopt);
  EXPECT_TRUE(sut.bind(0xFFFFFFFF, 4));
  EXPECT_FALSE(sut.bind(0xFFFFFFFF, 5));
  EXPECT_EQ(sut.slotOf(0xFFFFFFFF), 4U);
  sut.unbind(0xFFFFFFFF);
  EXPECT_EQ(sut.slotOf(0xFFFFFFFF), kNoSlot);
}

TEST(IdIndex, FindsOneOfSeveralWithTheSameNumber) {
  IdIndex sut;
  EXPECT_EQ(sut.find(1), kNoSlot);
  sut.add(1, 9);
  sut.add(1, 4);
  sut.add(2, 1);
  EXPECT_EQ(sut.find(1), 4U);
  sut.remove(1, 4);
  EXPECT_EQ(sut.find(1), 9U);
  sut.remove(1, 9);
  EXPECT_EQ(sut.find(1), kNoSlot);
  EXPECT_EQ(sut.find(2), 1U);
}

}  // namespace
}  // namespace jxmodel
