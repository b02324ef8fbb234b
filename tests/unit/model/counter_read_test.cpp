// Reads of counter tables.
#include <gtest/gtest.h>

#include "jxmodel/faults.h"
#include "model/tables/counter_table.h"
#include "unit/model/counter_user.h"

namespace jxmodeltest {
namespace {

constexpr uint32_t kMillion = 1'000'000;

TEST(CounterRead, FindsTheCopyOfTheLastSyncOrTheHardware) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kPhysical, {countersOf({8})});
  const CounterUser sut(device, "counters_8");
  jxmodel::CounterTable& hardware = *device.state("counters_8").counters;
  ASSERT_TRUE(hardware.count(3, 100));
  ASSERT_TRUE(hardware.count(3, 60));
  EXPECT_EQ(sut.at(3), Pair(0, 0));
  EXPECT_EQ(sut.hardwareAt(3), Pair(2, 160));

  sut.syncAndWait();
  EXPECT_EQ(sut.at(3), Pair(2, 160));
  EXPECT_EQ(sut.at(2), Pair(0, 0));

  ASSERT_TRUE(hardware.count(3, 40));
  EXPECT_EQ(sut.at(3), Pair(2, 160));
  EXPECT_EQ(sut.hardwareAt(3), Pair(3, 200));
  sut.syncAndWait();
  EXPECT_EQ(sut.at(3), Pair(3, 200));
}

TEST(CounterRead, HoldsNumbersOfSixtyFourBits) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kPhysical, {countersOf({1})});
  const CounterUser sut(device, "counters_1");
  device.state("counters_1").counters->exchange(0, {UINT64_MAX, UINT64_MAX - 1});
  sut.syncAndWait();
  EXPECT_EQ(sut.at(0), Pair(UINT64_MAX, UINT64_MAX - 1));
}

TEST(CounterRead, EndsWithTheTable) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kPhysical, {countersOf({0, 8})});
  const CounterUser sut(device, "counters_8"), empty(device, "counters_0");
  EXPECT_EQ(sut.at(5), Pair(0, 0));
  EXPECT_EQ(sut.read(7), JX_SUCCESS);
  EXPECT_EQ(sut.read(8), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(sut.read(8, JX_RT_FLAG_FROM_HARDWARE), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(sut.read(UINT32_MAX), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(sut.read(uint64_t{UINT32_MAX} + 1), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(sut.read(0, 2), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(sut.values(), Pair(0, 0));  // what the last read that succeeded found
  EXPECT_EQ(empty.read(0), JX_OBJECT_NOT_FOUND);
}

TEST(CounterRead, TellsFactsOfTheTable) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kPhysical, {countersOf({0, 8})});
  for (const uint32_t size : {0U, 8U}) {
    const CounterUser sut(device, "counters_" + std::to_string(size));
    const jx_rt_target_t target = sut.target();
    size_t entries = 99;
    uint32_t used = 99;
    EXPECT_EQ(jx_rt_table_size_get(sut.table(), sut.session(), &target, 0, &entries), JX_SUCCESS);
    EXPECT_EQ(jx_rt_table_usage_get(sut.table(), sut.session(), &target, 0, &used), JX_SUCCESS);
    EXPECT_EQ(entries, size);
    EXPECT_EQ(used, size);
  }
  const CounterUser sut(device, "counters_8");
  uint32_t id = 0;
  EXPECT_EQ(jx_rt_key_field_id_get(sut.table(), "$COUNTER_SPEC_PKTS", &id), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_rt_data_field_id_get(sut.table(), "$COUNTER_INDEX", &id), JX_OBJECT_NOT_FOUND);
}

TEST(CounterRead, ResetForgetsWhatWasRead) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kPhysical, {countersOf({8})});
  const CounterUser sut(device, "counters_8");
  ASSERT_EQ(sut.read(5), JX_SUCCESS);
  jx_rt_table_key_hdl* key = sut.key();
  jx_rt_table_data_hdl* data = sut.data();
  ASSERT_EQ(jx_rt_table_key_reset(sut.table(), &key), JX_SUCCESS);
  ASSERT_EQ(jx_rt_table_data_reset(sut.table(), &data), JX_SUCCESS);
  uint32_t id = 0;
  uint64_t value = 99;
  ASSERT_EQ(jx_rt_key_field_id_get(sut.table(), "$COUNTER_INDEX", &id), JX_SUCCESS);
  EXPECT_EQ(jx_rt_key_field_get_value(key, id, &value), JX_SUCCESS);
  EXPECT_EQ(value, 0U);
  ASSERT_EQ(jx_rt_data_field_id_get(sut.table(), "$COUNTER_SPEC_PKTS", &id), JX_SUCCESS);
  EXPECT_EQ(jx_rt_data_field_get_value(data, id, &value), JX_OBJECT_NOT_FOUND);
}

TEST(CounterRead, WritesValuesAnywhere) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kPhysical, {countersOf({8})});
  const CounterUser sut(device, "counters_8");
  device.state("counters_8").counters->count(1, 0x0102030405060708);
  ASSERT_EQ(sut.read(1, JX_RT_FLAG_FROM_HARDWARE), JX_SUCCESS);
  uint32_t id = 0;
  ASSERT_EQ(jx_rt_data_field_id_get(sut.table(), "$COUNTER_SPEC_BYTES", &id), JX_SUCCESS);
  alignas(8) uint8_t memory[16] = {};
  ASSERT_EQ(jx_rt_data_field_get_value(sut.data(), id, reinterpret_cast<uint64_t*>(memory + 4)),
            JX_SUCCESS);
  uint64_t value = 0;
  std::memcpy(&value, memory + 4, sizeof value);
  EXPECT_EQ(value, 0x0102030405060708U);
}

TEST(CounterRead, WalksOverAllIndices) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kPhysical, {countersOf({0, 3})});
  const CounterUser sut(device, "counters_3"), empty(device, "counters_0");
  const jx_rt_target_t target = sut.target();
  for (uint32_t i = 0; i < 3; ++i) device.state("counters_3").counters->count(i, 10 * i);
  uint32_t id = 0;
  ASSERT_EQ(jx_rt_key_field_id_get(sut.table(), "$COUNTER_INDEX", &id), JX_SUCCESS);

  jx_status_t status = jx_rt_table_entry_get_first(sut.table(), sut.session(), &target, sut.key(),
                                                   sut.data(), JX_RT_FLAG_FROM_HARDWARE);
  for (uint64_t expected = 0; expected < 3; ++expected) {
    ASSERT_EQ(status, JX_SUCCESS);
    uint64_t index = 99;
    ASSERT_EQ(jx_rt_key_field_get_value(sut.key(), id, &index), JX_SUCCESS);
    EXPECT_EQ(index, expected);
    EXPECT_EQ(sut.values(), Pair(1, 10 * expected));
    uint32_t handle = 99;
    EXPECT_EQ(jx_rt_table_entry_handle_get(sut.table(), sut.session(), &target, sut.key(), &handle),
              JX_SUCCESS);
    EXPECT_EQ(handle, expected);
    status = jx_rt_table_entry_get_next(sut.table(), sut.session(), &target, sut.key(), sut.key(),
                                        sut.data(), JX_RT_FLAG_FROM_HARDWARE);
  }
  EXPECT_EQ(status, JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(jx_rt_table_entry_get_first(empty.table(), empty.session(), &target, empty.key(),
                                        empty.data(), 0),
            JX_OBJECT_NOT_FOUND);
}

TEST(CounterRead, HandsOutManyAtATime) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kPhysical, {countersOf({5})});
  const TableUser sut(device, "counters_5");
  device.state("counters_5").counters->count(4, 64);
  std::vector<jxrt::JxRtTable::Entry> entries;
  uint64_t cursor = 0;
  ASSERT_EQ((*sut).tableEntriesGet(device.session(), device.target(), JX_RT_FLAG_FROM_HARDWARE,
                                   &cursor, 2, &entries),
            JX_SUCCESS);
  EXPECT_EQ(entries.size(), 2U);
  ASSERT_EQ((*sut).tableEntriesGet(device.session(), device.target(), JX_RT_FLAG_FROM_HARDWARE,
                                   &cursor, 10, &entries),
            JX_SUCCESS);
  ASSERT_EQ(entries.size(), 5U);
  uint64_t bytes = 0;
  EXPECT_EQ(entries[4].handle, 4U);
  EXPECT_EQ(entries[4].data->getValue(jxmodel::kFieldCounterBytes, &bytes), JX_SUCCESS);
  EXPECT_EQ(bytes, 64U);
  ASSERT_EQ((*sut).tableEntriesGet(device.session(), device.target(), 0, &cursor, 10, &entries),
            JX_SUCCESS);
  EXPECT_EQ(entries.size(), 5U);
}

TEST(CounterRead, OfAVirtualDeviceFindsZeros) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kVirtual, {countersOf({0, 8})});
  const CounterUser sut(device, "counters_8");
  EXPECT_EQ(sut.at(7), Pair(0, 0));
  EXPECT_EQ(sut.hardwareAt(7), Pair(0, 0));
  EXPECT_EQ(sut.read(8), JX_OBJECT_NOT_FOUND);
  const jx_rt_target_t target = sut.target();
  size_t size = 0;
  EXPECT_EQ(jx_rt_table_size_get(sut.table(), sut.session(), &target, 0, &size), JX_SUCCESS);
  EXPECT_EQ(size, 8U);
}

TEST(CounterRead, AreReadOnly) {
  for (const auto kind : {ModelDevice::Kind::kVirtual, ModelDevice::Kind::kPhysical}) {
    const ModelDevice device(kCounted, kind, {countersOf({8})});
    const TableUser sut(device, "counters_8");
    const auto key = sut.key(3);
    const auto data = sut.data(jxmodel::kFieldCounterPkts, 0);
    EXPECT_EQ(sut.add(key, data), JX_NOT_SUPPORTED);
    EXPECT_EQ(sut.mod(key, data), JX_NOT_SUPPORTED);
    EXPECT_EQ(sut.move(key), JX_NOT_SUPPORTED);
    EXPECT_EQ(sut.del(key), JX_NOT_SUPPORTED);
    EXPECT_EQ(sut.setDefault(data), JX_NOT_SUPPORTED);
    EXPECT_EQ(sut.getDefault(data), JX_NOT_SUPPORTED);
  }
}

TEST(CounterRead, IsRightForEachOfAMillion) {
  const ModelDevice device(kCounted, ModelDevice::Kind::kPhysical, {countersOf({kMillion})});
  const CounterUser sut(device, "counters_1000000");
  jxmodel::CounterTable& hardware = *device.state("counters_1000000").counters;
  for (uint32_t i = 0; i < kMillion; ++i) hardware.exchange(i, {i + 1, uint64_t{i} << 20});
  sut.syncAndWait();
  uint32_t wrong = 0;
  for (uint32_t i = 0; i < kMillion; ++i) {
    if (sut.at(i) != Pair(i + 1, uint64_t{i} << 20)) ++wrong;
  }
  EXPECT_EQ(wrong, 0U);
}

}  // namespace
}  // namespace jxmodeltest
