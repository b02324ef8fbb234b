// What the agent's counter service asks of the switch SDK: every call, every argument, in order.
// The calls are this binary's own here; no device is behind them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "JexPartnerLibCounter.h"
#include "wire/counter_frames.h"
#include "wire/counter_segment.h"
#include "wire/noted_calls.h"

namespace jextest {
namespace {

constexpr uint8_t kDevice = 3;
constexpr uint32_t kSession = 0x5E551011;
constexpr uint32_t kTable = 4242;
constexpr uint32_t kEntries = 2;
constexpr uint32_t kIndexField = 11;
constexpr uint32_t kPacketsField = 22;
constexpr uint32_t kBytesField = 33;

/// An object of the SDK that is nothing but an address.
template <typename Handle>
Handle* object(uintptr_t address) {
  return reinterpret_cast<Handle*>(address);
}
auto* const kInfo = object<const jx_rt_info_hdl>(0x1000);
auto* const kTableHdl = object<const jx_rt_table_hdl>(0x2000);
auto* const kSessionHdl = object<jx_rt_session_hdl>(0x3000);
auto* const kKey = object<jx_rt_table_key_hdl>(0x4000);
auto* const kData = object<jx_rt_table_data_hdl>(0x5000);
auto* const kOperation = object<jx_rt_table_operations_hdl>(0x6000);

jx_rt_counter_sync_cb last_callback = nullptr;
const void* last_cookie = nullptr;
uint64_t reads = 0;

class CounterCalls : public testing::Test {
 protected:
  static CounterSegment& segment() {
    static auto* const instance = new CounterSegment(CounterSegment::create());
    return *instance;
  }
  CounterCalls() {
    segment().makeBlock(std::to_string(kTable), kEntries);
    taken();
  }
  ~CounterCalls() override {
    if (PartnerLib::countersCallbackMap.count(kTable * 10) != 0) configure(0);
    segment().destroyBlock(std::to_string(kTable));
  }

  static void configure(uint8_t enable) {
    const Bytes message = counterConfig(1, kTable, enable, "router");
    PartnerLib::counterConfigDeserialize(kDevice, kSession, message.data() + 16,
                                         message.size() - 16, 9, 77);
  }
  static PartnerLib::CounterReadStruct_t* record() {
    return PartnerLib::countersCallbackMap.at(kTable * 10);
  }
};

const Calls kFind = {"session 1582632977 0", "info 3 router", "table 4242"};
const Calls kSync = {"operation 0", "sync 3/65535/0/0", "execute", "free operation"};

Calls operator+(Calls first, const Calls& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST_F(CounterCalls, OfAStart) {
  configure(1);
  EXPECT_EQ(taken(),
            kFind + (Calls{"size 3/65535/0/0 0", "key field $COUNTER_INDEX",
                           "data field $COUNTER_SPEC_PKTS", "data field $COUNTER_SPEC_BYTES"}));
  const PartnerLib::CounterReadStruct_t& rec = *record();
  EXPECT_EQ(rec.tableId, kTable);
  EXPECT_EQ(rec.table, kTableHdl);
  EXPECT_EQ(text(rec.target), "3/65535/0/0");
  EXPECT_EQ(rec.session, kSessionHdl);
  EXPECT_EQ(rec.counters, rec.block + 12);
  EXPECT_EQ(rec.size, kEntries);
  EXPECT_EQ(rec.indexField, kIndexField);
  EXPECT_EQ(rec.packetsField, kPacketsField);
  EXPECT_EQ(rec.bytesField, kBytesField);
  EXPECT_EQ(rec.replySocket, 9);
  EXPECT_EQ(rec.pid, 77);
  EXPECT_EQ(rec.readFlags, 0u);
  EXPECT_EQ(rec.pendingBarrier, 0u);
  EXPECT_EQ(rec.nextBarrier, 0u);
}

TEST_F(CounterCalls, OfAnEnd) {
  configure(1);
  taken();
  configure(0);
  EXPECT_EQ(taken(), kFind);
}

TEST_F(CounterCalls, OfAnUpdate) {
  configure(1);
  taken();
  EXPECT_TRUE(PartnerLib::PeriodicHybridCounterUpdate());
  EXPECT_EQ(taken(), kSync);
  EXPECT_EQ(last_callback, &counter_sync_callback);
  EXPECT_EQ(last_cookie, record());
  jx_rt_target_t target = record()->target;
  counter_sync_callback(&target, record());
}

TEST_F(CounterCalls, OfAModelsUpdate) {
  configure(1);
  taken();
  EXPECT_TRUE(PartnerLib::PeriodicHybridCounterUpdateModel());
  EXPECT_EQ(taken(), kSync + kSync);
  EXPECT_EQ(last_callback, nullptr) << "of the second";
  EXPECT_EQ(last_cookie, nullptr);
  jx_rt_target_t target = record()->target;
  counter_sync_callback(&target, record());
}

TEST_F(CounterCalls, OfACompletedSync) {
  configure(1);
  PartnerLib::PeriodicHybridCounterUpdate();
  taken();
  reads = 0;
  jx_rt_target_t target = record()->target;
  counter_sync_callback(&target, record());
  const std::string get = "get 3/65535/0/0 0";
  EXPECT_EQ(taken(), (Calls{"key", "data", "reset key", "reset data",   //
                            "index 11 0", get, "value 22", "value 33",  //
                            "index 11 1", get, "value 22", "value 33",  //
                            "free key", "free data"}));
  // Each value went straight to where it belongs: the n-th read was n.
  const Bytes block = segment().block(std::to_string(kTable));
  for (uint64_t i = 0; i < 2 * kEntries; ++i) EXPECT_EQ(u64At(block, 12 + 8 * i), i + 1);
}

}  // namespace
}  // namespace jextest

using jextest::note;

jx_rt_session_hdl* jxrt::JxRtSession::sessionInstantiate(uint32_t sess_hdl, uint64_t flags) {
  note("session " + std::to_string(sess_hdl) + " " + std::to_string(flags));
  return jextest::kSessionHdl;
}

extern "C" {

jx_status_t jx_rt_info_get(jx_dev_id_t dev_id, const char* p4_name, const jx_rt_info_hdl** info) {
  *info = jextest::kInfo;
  return note("info " + std::to_string(dev_id) + " " + p4_name);
}

jx_status_t jx_rt_table_from_id_get(const jx_rt_info_hdl* info, uint32_t table_id,
                                    const jx_rt_table_hdl** table) {
  EXPECT_EQ(info, jextest::kInfo);
  *table = jextest::kTableHdl;
  return note("table " + std::to_string(table_id));
}

jx_status_t jx_rt_table_size_get(const jx_rt_table_hdl* table, const jx_rt_session_hdl* session,
                                 const jx_rt_target_t* target, uint64_t flags, size_t* size) {
  EXPECT_EQ(table, jextest::kTableHdl);
  EXPECT_EQ(session, jextest::kSessionHdl);
  *size = jextest::kEntries;
  return note("size " + jextest::text(*target) + " " + std::to_string(flags));
}

jx_status_t jx_rt_key_field_id_get(const jx_rt_table_hdl* table, const char* name, uint32_t* id) {
  EXPECT_EQ(table, jextest::kTableHdl);
  *id = jextest::kIndexField;
  return note(std::string("key field ") + name);
}

jx_status_t jx_rt_data_field_id_get(const jx_rt_table_hdl* table, const char* name, uint32_t* id) {
  EXPECT_EQ(table, jextest::kTableHdl);
  *id = std::string(name) == "$COUNTER_SPEC_PKTS" ? jextest::kPacketsField : jextest::kBytesField;
  return note(std::string("data field ") + name);
}

jx_status_t jx_rt_table_operations_allocate(const jx_rt_table_hdl* table,
                                            jx_rt_table_operations_mode_t mode,
                                            jx_rt_table_operations_hdl** operations) {
  EXPECT_EQ(table, jextest::kTableHdl);
  *operations = jextest::kOperation;
  return note("operation " + std::to_string(mode));
}

jx_status_t jx_rt_operations_counter_sync_set(jx_rt_table_operations_hdl* operations,
                                              const jx_rt_session_hdl* session,
                                              const jx_rt_target_t* target,
                                              jx_rt_counter_sync_cb callback, const void* cookie) {
  EXPECT_EQ(operations, jextest::kOperation);
  EXPECT_EQ(session, jextest::kSessionHdl);
  jextest::last_callback = callback;
  jextest::last_cookie = cookie;
  return note("sync " + jextest::text(*target));
}

jx_status_t jx_rt_table_operations_execute(const jx_rt_table_hdl* table,
                                           const jx_rt_table_operations_hdl* operations) {
  EXPECT_EQ(table, jextest::kTableHdl);
  EXPECT_EQ(operations, jextest::kOperation);
  return note("execute");
}

jx_status_t jx_rt_table_operations_deallocate(jx_rt_table_operations_hdl* operations) {
  EXPECT_EQ(operations, jextest::kOperation);
  return note("free operation");
}

jx_status_t jx_rt_table_key_allocate(const jx_rt_table_hdl* table, jx_rt_table_key_hdl** key) {
  EXPECT_EQ(table, jextest::kTableHdl);
  *key = jextest::kKey;
  return note("key");
}

jx_status_t jx_rt_table_data_allocate(const jx_rt_table_hdl* table, jx_rt_table_data_hdl** data) {
  EXPECT_EQ(table, jextest::kTableHdl);
  *data = jextest::kData;
  return note("data");
}

jx_status_t jx_rt_table_key_reset(const jx_rt_table_hdl* table, jx_rt_table_key_hdl** key) {
  EXPECT_EQ(table, jextest::kTableHdl);
  EXPECT_EQ(*key, jextest::kKey);
  return note("reset key");
}

jx_status_t jx_rt_table_data_reset(const jx_rt_table_hdl* table, jx_rt_table_data_hdl** data) {
  EXPECT_EQ(table, jextest::kTableHdl);
  EXPECT_EQ(*data, jextest::kData);
  return note("reset data");
}

jx_status_t jx_rt_key_field_set_value(jx_rt_table_key_hdl* key, uint32_t field_id, uint64_t value) {
  EXPECT_EQ(key, jextest::kKey);
  return note("index " + std::to_string(field_id) + " " + std::to_string(value));
}

jx_status_t jx_rt_table_entry_get(const jx_rt_table_hdl* table, const jx_rt_session_hdl* session,
                                  const jx_rt_target_t* target, const jx_rt_table_key_hdl* key,
                                  jx_rt_table_data_hdl* data, uint64_t flags) {
  EXPECT_EQ(table, jextest::kTableHdl);
  EXPECT_EQ(session, jextest::kSessionHdl);
  EXPECT_EQ(key, jextest::kKey);
  EXPECT_EQ(data, jextest::kData);
  return note("get " + jextest::text(*target) + " " + std::to_string(flags));
}

jx_status_t jx_rt_data_field_get_value(const jx_rt_table_data_hdl* data, uint32_t field_id,
                                       uint64_t* value) {
  EXPECT_EQ(data, jextest::kData);
  const uint64_t read = ++jextest::reads;
  memcpy(value, &read, sizeof read);  // the block is not aligned to it
  return note("value " + std::to_string(field_id));
}

jx_status_t jx_rt_table_key_deallocate(jx_rt_table_key_hdl* key) {
  EXPECT_EQ(key, jextest::kKey);
  return note("free key");
}

jx_status_t jx_rt_table_data_deallocate(jx_rt_table_data_hdl* data) {
  EXPECT_EQ(data, jextest::kData);
  return note("free data");
}

}  // extern "C"
