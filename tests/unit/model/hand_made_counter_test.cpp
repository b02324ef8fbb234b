// Counters of the hits of single entries, as a counter table beside the table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "unit/model/counter_user.h"
#include "unit/model/hand_made.h"
#include "unit/model/twin.h"

namespace jxmodeltest {
namespace {

using jxmodel::kNoSlot;

constexpr uint32_t kSize = 8;

/// A table "t" of a key of 16 bits, with "t_hits" beside it.
HandMade counted() {
  HandMade program("made");
  const uint32_t to = program.action("to", {8});
  program.directCounter("t_hits", program.table("t", {{kExact, 16}}, kSize, {to}));
  return program;
}

/// A packet of so many bytes hits the entry.
bool hit(const Twin& twin, uint16_t key, uint64_t bytes) {
  const jxmodel::TableState& state = twin.physical.state("t");
  const uint8_t values[] = {static_cast<uint8_t>(key >> 8), static_cast<uint8_t>(key)};
  const uint32_t slot = state.match->lookup(values);
  EXPECT_NE(slot, kNoSlot) << key;
  return state.direct_counters->count(state.directIndexOf(slot), bytes);
}

/// Where a partner expects the counter of an entry.
uint32_t indexOf(const TableUser& table, uint16_t key) {
  return (table.handle(table.key(key)) - 1) % kSize;
}

void add(const TableUser& table, uint16_t key) {
  ASSERT_EQ(table.add(table.key(key), table.data("to", {1})), JX_SUCCESS) << key;
}

TEST(DirectCounter, CountsTheHitsOfEachEntryOfAFullTable) {
  for (const uint32_t base : {1u, 1000u, 50000000u}) {
    Twin twin({counted().make()}, base);
    const TableUser table(twin.virt, "t");
    ASSERT_EQ(table.setDefault(table.data("to", {9})), JX_SUCCESS);
    for (uint16_t key = 1; key <= kSize; ++key) add(table, key);
    const CounterUser counters(twin.physical, "t_hits");
    std::set<uint32_t> indices;
    for (uint16_t key = 1; key <= kSize; ++key) {
      indices.insert(indexOf(table, key));
      for (int i = 0; i < key; ++i) EXPECT_TRUE(hit(twin, key, 100));
      EXPECT_EQ(counters.hardwareAt(indexOf(table, key)), Pair(key, 100U * key));
    }
    EXPECT_EQ(indices.size(), kSize);
    EXPECT_EQ(table.handle(table.key(1)), base);
    EXPECT_EQ(counters.read(kSize), JX_OBJECT_NOT_FOUND);
    EXPECT_EQ(twin.virt.dump(), twin.physical.dump());
  }
}

TEST(DirectCounter, IsReadThroughASync) {
  Twin twin({counted().make()});
  const TableUser table(twin.virt, "t");
  add(table, 5);
  hit(twin, 5, 60);
  const CounterUser counters(twin.physical, "t_hits");
  EXPECT_EQ(counters.at(0), Pair(0, 0));
  counters.syncAndWait();
  EXPECT_EQ(counters.at(0), Pair(1, 60));
  size_t size = 0;
  const jx_rt_target_t target = twin.virt.target();
  ASSERT_EQ(twin.virt.table("t_hits").tableSizeGet(twin.virt.session(), target, 0, &size),
            JX_SUCCESS);
  EXPECT_EQ(size, kSize);
  // No packet is on a virtual device.
  EXPECT_EQ(CounterUser(twin.virt, "t_hits").at(0), Pair(0, 0));
  EXPECT_EQ(twin.virt.state("t").direct_counters, nullptr);
}

TEST(DirectCounter, BeginsAt0ForEachEntry) {
  Twin twin({counted().make()});
  const TableUser table(twin.virt, "t");
  const CounterUser counters(twin.physical, "t_hits");
  add(table, 5);
  hit(twin, 5, 60);
  counters.syncAndWait();
  // An entry that is modified goes on counting.
  ASSERT_EQ(table.mod(table.key(5), table.data("to", {2})), JX_SUCCESS);
  hit(twin, 5, 60);
  EXPECT_EQ(counters.hardwareAt(0), Pair(2, 120));
  ASSERT_EQ(table.del(table.key(5)), JX_SUCCESS);
  add(table, 6);
  ASSERT_EQ(indexOf(table, 6), 0U);
  EXPECT_EQ(counters.hardwareAt(0), Pair(0, 0));
  EXPECT_EQ(counters.at(0), Pair(0, 0));
  hit(twin, 6, 1);
  EXPECT_EQ(counters.hardwareAt(0), Pair(1, 1));
}

TEST(DirectCounter, CountsInitialEntriesAndWhatTakesTheirPlace) {
  HandMade program = counted();
  for (const uint8_t key : std::initializer_list<uint8_t>{101, 102, 103}) {
    program.entry(0, {is({0, key})}, 0, {1});
  }
  Twin twin({program.make()});
  const TableUser table(twin.virt, "t");
  const CounterUser counters(twin.physical, "t_hits");
  EXPECT_EQ(indexOf(table, 101), 0U);
  EXPECT_EQ(indexOf(table, 103), 2U);
  EXPECT_TRUE(hit(twin, 102, 7));
  EXPECT_EQ(counters.hardwareAt(1), Pair(1, 7));
  ASSERT_EQ(table.del(table.key(101)), JX_SUCCESS);
  ASSERT_EQ(table.del(table.key(102)), JX_SUCCESS);
  ASSERT_EQ(table.setDefault(table.data("to", {9})), JX_SUCCESS);
  std::set<uint32_t> indices = {2};
  for (uint16_t key = 1; key < kSize; ++key) {
    add(table, key);
    indices.insert(indexOf(table, key));
    EXPECT_TRUE(hit(twin, key, key)) << key;
    EXPECT_EQ(counters.hardwareAt(indexOf(table, key)), Pair(1, key));
  }
  EXPECT_EQ(indices.size(), kSize);
}

TEST(DirectCounter, CountsOneEntryAtAnIndex) {
  Twin twin({counted().make()}, 1);
  // Another partner, whose base is not among the first one's handles but falls on their indices.
  const ModelDevice other(12, ModelDevice::Kind::kVirtual, {counted().make()}, 1 + 4 * kSize);
  const TableUser theirs(other, "t"), table(twin.virt, "t");
  const jxrt::JxRtTable& watched = other.table("t");
  ASSERT_EQ(watched.matUpdateCbRegister(
                other.session(), other.target(),
                [](jx_dev_target_t, pipe_tbl_hdl_t handle, pipe_mat_update_type type,
                   pipe_mat_update_params* params,
                   void* cookie) { static_cast<Twin*>(cookie)->onMatch(handle, type, params); },
                &twin),
            JX_SUCCESS);
  add(table, 1);
  add(theirs, 2);
  add(theirs, 3);
  ASSERT_EQ(indexOf(theirs, 2), indexOf(table, 1));
  const CounterUser counters(twin.physical, "t_hits");
  EXPECT_TRUE(hit(twin, 1, 10));
  // Their first entry has no counter, and does not count in ours; their second one has its own.
  EXPECT_FALSE(hit(twin, 2, 20));
  EXPECT_TRUE(hit(twin, 3, 30));
  EXPECT_EQ(counters.hardwareAt(0), Pair(1, 10));
  EXPECT_EQ(counters.hardwareAt(1), Pair(1, 30));
  // That it goes takes nothing from ours.
  ASSERT_EQ(theirs.del(theirs.key(2)), JX_SUCCESS);
  EXPECT_TRUE(hit(twin, 1, 10));
  EXPECT_EQ(counters.hardwareAt(0), Pair(2, 20));
  ASSERT_EQ(table.del(table.key(1)), JX_SUCCESS);
  add(theirs, 4);
  EXPECT_TRUE(hit(twin, 4, 5));
  EXPECT_EQ(counters.hardwareAt(0), Pair(1, 5));
}

TEST(DirectCounter, HasAsManyCountersAsItsTableHasEntries) {
  auto program = std::make_shared<jxmodel::Program>(*counted().make());
  program->tables[1].size = kSize - 1;
  std::string error;
  EXPECT_EQ(jxmodel::Device::create(12, ModelDevice::Kind::kPhysical, {program}, 0, &error),
            nullptr);
  EXPECT_EQ(error,
            "program made, table t: counter table t_hits of its hits has a size of 7, not 8");
}

}  // namespace
}  // namespace jxmodeltest
