// What the agent asks of the switch SDK when it arms and disarms a table: every argument. The three
// calls are wrapped (--wrap) in this binary, noted, and made.
#include <gtest/gtest.h>

#include "JexPartnerLibIdle.h"
#include "support/switch_device.h"
#include "wire/notify_frames.h"

namespace jextest {
namespace {

constexpr jx_dev_id_t kDevice = 3;
constexpr int kSocket = 6;

/// The calls of one request.
struct Calls {
  int allocations = 0;
  int mode = -1;
  int notify_modes = 0;
  bool enable = false;
  jx_rt_idle_tmo_cb callback = nullptr;
  uint32_t interval = 0;
  uint32_t max_ttl = 0;
  uint32_t min_ttl = 0;
  void* cookie = nullptr;
  int sets = 0;
  const jx_rt_table_hdl* table = nullptr;
  const jx_rt_session_hdl* session = nullptr;
  jx_rt_target_t target{};
  uint64_t flags = 0;
};
Calls calls;

class IdleCalls : public testing::Test {
 protected:
  IdleCalls() : device_(DeviceKind::kPhysical, kDevice, {"limits"}) {}

  void handle(const IdleRequest& request) {
    calls = {};
    const Bytes payload = bytesFrom(request.message(1), 16);
    PartnerLib::idleDeserialize(kDevice, device_.view().session().sessHandleGet(), payload.data(),
                                static_cast<uint32_t>(payload.size()), kSocket);
  }

  void expectSetOnce(uint32_t pipe) {
    EXPECT_EQ(calls.allocations, 1);
    EXPECT_EQ(calls.mode, 1) << "notify mode";
    EXPECT_EQ(calls.notify_modes, 1);
    EXPECT_EQ(calls.callback, &idletime_c_callback);
    EXPECT_EQ(calls.sets, 1);
    EXPECT_EQ(calls.session, device_.view().session().cHandle());
    EXPECT_EQ(calls.target.dev_id, kDevice);
    EXPECT_EQ(calls.target.pipe_id, pipe);
    EXPECT_EQ(calls.target.direction, 0u);
    EXPECT_EQ(calls.target.prsr_id, 0u);
    EXPECT_EQ(calls.flags, 16u);
    uint32_t id = 0;
    EXPECT_EQ(jx_rt_table_id_get(calls.table, &id), JX_SUCCESS);
    EXPECT_EQ(id, kAllKinds);
  }

  SwitchDevice device_;
};

TEST_F(IdleCalls, ArmWithWhatTheRequestSays) {
  IdleRequest request;
  request.pipe = 0xFFFF;
  request.interval = 250;
  request.max_ttl = 7000;
  request.min_ttl = 30;
  handle(request);
  expectSetOnce(0xFFFF);
  EXPECT_TRUE(calls.enable);
  EXPECT_EQ(calls.interval, 250u);
  EXPECT_EQ(calls.max_ttl, 7000u);
  EXPECT_EQ(calls.min_ttl, 30u);

  const auto found = PartnerLib::notifyCallbackMap.find(kSocket + kAllKinds * 10);
  ASSERT_NE(found, PartnerLib::notifyCallbackMap.end());
  EXPECT_EQ(calls.cookie, found->second);
  EXPECT_EQ(found->second->sendSocket, kSocket);
  EXPECT_EQ(found->second->tableId, kAllKinds);
  EXPECT_EQ(found->second->table, calls.table);

  request.enable = 0;
  handle(request);
}

TEST_F(IdleCalls, NameThePipeOfTheRequest) {
  IdleRequest request;
  request.pipe = 0;
  handle(request);
  expectSetOnce(0);
  request.enable = 0;
  handle(request);
  expectSetOnce(0);
}

TEST_F(IdleCalls, DisarmInTheSameWayWithoutACookie) {
  handle(IdleRequest());
  IdleRequest request;
  request.interval = request.max_ttl = request.min_ttl = request.enable = 0;
  handle(request);
  expectSetOnce(0xFFFF);
  EXPECT_FALSE(calls.enable);
  EXPECT_EQ(calls.cookie, nullptr);
  EXPECT_EQ(calls.interval, 0u);
  EXPECT_EQ(calls.max_ttl, 0u);
  EXPECT_EQ(calls.min_ttl, 0u);
  EXPECT_TRUE(PartnerLib::notifyCallbackMap.empty());
}

}  // namespace
}  // namespace jextest

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
jx_status_t __real_jx_rt_table_idle_table_attributes_allocate(
    const jx_rt_table_hdl* table, jx_rt_idle_table_mode_t mode,
    jx_rt_table_attributes_hdl** attributes);
jx_status_t __wrap_jx_rt_table_idle_table_attributes_allocate(
    const jx_rt_table_hdl* table, jx_rt_idle_table_mode_t mode,
    jx_rt_table_attributes_hdl** attributes) {
  ++jextest::calls.allocations;
  jextest::calls.mode = mode;
  return __real_jx_rt_table_idle_table_attributes_allocate(table, mode, attributes);
}

jx_status_t __real_jx_rt_attributes_idle_table_notify_mode_set(
    jx_rt_table_attributes_hdl* attributes, bool enable, jx_rt_idle_tmo_cb callback,
    uint32_t ttl_query_interval, uint32_t max_ttl, uint32_t min_ttl, void* cookie);
jx_status_t __wrap_jx_rt_attributes_idle_table_notify_mode_set(
    jx_rt_table_attributes_hdl* attributes, bool enable, jx_rt_idle_tmo_cb callback,
    uint32_t ttl_query_interval, uint32_t max_ttl, uint32_t min_ttl, void* cookie) {
  ++jextest::calls.notify_modes;
  jextest::calls.enable = enable;
  jextest::calls.callback = callback;
  jextest::calls.interval = ttl_query_interval;
  jextest::calls.max_ttl = max_ttl;
  jextest::calls.min_ttl = min_ttl;
  jextest::calls.cookie = cookie;
  return __real_jx_rt_attributes_idle_table_notify_mode_set(
      attributes, enable, callback, ttl_query_interval, max_ttl, min_ttl, cookie);
}

jx_status_t __real_jx_rt_table_attributes_set(const jx_rt_table_hdl* table,
                                              const jx_rt_session_hdl* session,
                                              const jx_rt_target_t* target, uint64_t flags,
                                              const jx_rt_table_attributes_hdl* attributes);
jx_status_t __wrap_jx_rt_table_attributes_set(const jx_rt_table_hdl* table,
                                              const jx_rt_session_hdl* session,
                                              const jx_rt_target_t* target, uint64_t flags,
                                              const jx_rt_table_attributes_hdl* attributes) {
  ++jextest::calls.sets;
  jextest::calls.table = table;
  jextest::calls.session = session;
  jextest::calls.target = *target;
  jextest::calls.flags = flags;
  return __real_jx_rt_table_attributes_set(table, session, target, flags, attributes);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
