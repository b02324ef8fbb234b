// What a Partner asks of its own device when it registers and deregisters tables for idle time:
// every call, every argument, in order. The SDK's objects have others in front of them here, which
// note each call and pass it on.
#include <gtest/gtest.h>
#include <nanomsg/pipeline.h>

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "JexPartnerLibClient.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "wire/noted_calls.h"
#include "wire/noting_manager.h"
#include "wire/sdk_front.h"
#include "wire/unsupported_table.h"

namespace jextest {
namespace {

constexpr jx_dev_id_t kVirtual = 5;
using Callback = jx_status_t(const jx_rt_target_t&, const jxrt::JxRtTableKey*, const void*);

/// What is no number, of the last calls.
struct Given {
  const jxrt::JxRtTable* found = nullptr;  // by the library
  jxrt::JxRtIdleTmoCb callback;
  const void* cookie = nullptr;
  const jxrt::JxRtSession* session = nullptr;
};
Given given;

class SpyAttributes final : public jxrt::JxRtTableAttributes {
 public:
  SpyAttributes(std::string table, std::unique_ptr<jxrt::JxRtTableAttributes> real)
      : table_(std::move(table)), real_(std::move(real)) {}

  jx_status_t idleTableNotifyModeSet(bool enable, const jxrt::JxRtIdleTmoCb& callback,
                                     uint32_t ttl_query_interval, uint32_t max_ttl,
                                     uint32_t min_ttl, const void* cookie) override {
    note("attributes of " + table_ + ": enable " + std::to_string(enable) + " interval " +
         std::to_string(ttl_query_interval) + " max " + std::to_string(max_ttl) + " min " +
         std::to_string(min_ttl));
    given.callback = callback;
    given.cookie = cookie;
    return real_->idleTableNotifyModeSet(enable, callback, ttl_query_interval, max_ttl, min_ttl,
                                         cookie);
  }
  const jxrt::JxRtTableAttributes& real() const { return *real_; }

 private:
  std::string table_;
  std::unique_ptr<jxrt::JxRtTableAttributes> real_;
};

class SpyTable final : public UnsupportedTable {
 public:
  SpyTable(std::string name, const jxrt::JxRtTable& real) : name_(std::move(name)), real_(real) {}

  jx_status_t tableIdGet(uint32_t* id) const override { return real_.tableIdGet(id); }
  jx_status_t idleTableAttributesAllocate(
      jx_rt_idle_table_mode_t mode,
      std::unique_ptr<jxrt::JxRtTableAttributes>* attributes) const override {
    note("attributes for " + name_ + " mode " + std::to_string(mode));
    std::unique_ptr<jxrt::JxRtTableAttributes> real;
    const jx_status_t status = real_.idleTableAttributesAllocate(mode, &real);
    if (status == JX_SUCCESS) *attributes = std::make_unique<SpyAttributes>(name_, std::move(real));
    return status;
  }
  jx_status_t tableAttributesSet(Session session, Target target, uint64_t flags,
                                 const jxrt::JxRtTableAttributes& attributes) const override {
    note("set " + name_ + " at " + text(target) + " flags " + std::to_string(flags));
    given.session = &session;
    const auto& spy = dynamic_cast<const SpyAttributes&>(attributes);
    return real_.tableAttributesSet(session, target, flags, spy.real());
  }

 private:
  std::string name_;
  const jxrt::JxRtTable& real_;
};

class SpyInfo final : public ForwardingInfo {
 public:
  using ForwardingInfo::ForwardingInfo;
  jx_status_t tableFromNameGet(const std::string& name,
                               const jxrt::JxRtTable** table) const override {
    note("table " + name);
    const jx_status_t status = ForwardingInfo::tableFromNameGet(name, table);
    if (status != JX_SUCCESS) return status;
    std::unique_ptr<SpyTable>& spy = tables_[name];
    if (!spy) spy = std::make_unique<SpyTable>(name, **table);
    given.found = *table = spy.get();
    return JX_SUCCESS;
  }

 private:
  mutable std::map<std::string, std::unique_ptr<SpyTable>> tables_;
};

using SpyManager = NotingManager<SpyInfo>;
SpyManager* manager = nullptr;

/// Two arguments of each kind: none is made up.
struct Registration {
  const char* program;
  const char* table;
  uint32_t id;
  uint32_t interval;
  uint32_t max_ttl;
  uint32_t min_ttl;
  jx_rt_target_t target;
};

/// A Partner with a device of its own, whose requests go to a raw socket.
class IdlePartnerCalls : public testing::TestWithParam<Registration> {
 protected:
  IdlePartnerCalls()
      : device_(DeviceKind::kVirtual, kVirtual, {"l2_switch", "limits"}),
        session_(jxrt::JxRtSession::sessionCreate()),
        agent_(NN_PULL),
        push_(NN_PUSH),
        socket_(1) {
    agent_.bind("inproc://idle_partner_calls");
    push_.connect("inproc://idle_partner_calls");
    socket_.socket_ = push_.fd();
    PartnerLib::pSocket = &socket_;
    EXPECT_TRUE(PartnerNotificationQueueCreate("q", 16, &queue_));
    manager = &manager_;
    given = {};
    taken();
  }
  ~IdlePartnerCalls() override {
    deregister();
    partnerNotificationQueueMap.clear();
    PartnerNotificationQueueDestroy(queue_);
    manager = nullptr;
    given = {};
    PartnerLib::pSocket = nullptr;
  }

  bool registerTable() {
    const Registration& one = GetParam();
    return PartnerRegisterIdleNotification(one.program, one.table, one.interval, one.max_ttl,
                                           one.min_ttl, one.target, session_->cHandle(), queue_);
  }
  static bool deregister() {
    return PartnerDeregisterIdleNotification(GetParam().program, GetParam().table,
                                             GetParam().target);
  }
  /// How a table is found.
  static Calls find() {
    return {std::string("program ") + GetParam().program + " of 5",
            std::string("table ") + GetParam().table};
  }

  SwitchDevice device_;
  std::shared_ptr<jxrt::JxRtSession> session_;
  RawSocket agent_;
  RawSocket push_;
  PartnerLib::PartnerSocket socket_;
  void* queue_ = nullptr;
  SpyManager manager_;
};
INSTANTIATE_TEST_SUITE_P(
    Each, IdlePartnerCalls,
    testing::Values(
        Registration{"limits", "all_kinds", 0x30007, 1001, 5002, 103, {kVirtual, 2, 1, 7}},
        Registration{"l2_switch", "smac", 0x10001, 30, 0xFFFFFFFF, 20, {kVirtual, 0xFFFF, 0, 0}}),
    [](const auto& test) { return std::string(test.param.table); });

TEST_P(IdlePartnerCalls, OfARegistration) {
  ASSERT_TRUE(registerTable());
  const Registration& one = GetParam();
  const std::string table = one.table;
  EXPECT_EQ(taken(),
            find() + ("attributes for " + table + " mode 1") +
                ("attributes of " + table + ": enable 1 interval " + std::to_string(one.interval) +
                 " max " + std::to_string(one.max_ttl) + " min " + std::to_string(one.min_ttl)) +
                ("set " + table + " at " + text(one.target) + " flags 0"));
  EXPECT_EQ(given.session, session_.get());
  EXPECT_EQ(given.cookie, nullptr);
  Callback* const* const callback = given.callback.target<Callback*>();
  ASSERT_NE(callback, nullptr);
  EXPECT_EQ(*callback, &dummyHlpIdletimeCallback);
}

TEST_P(IdlePartnerCalls, KeepWhereReportsGo) {
  ASSERT_TRUE(registerTable());
  ASSERT_EQ(partnerNotificationQueueMap.size(), 1u);
  ASSERT_EQ(partnerNotificationQueueMap.count(GetParam().id), 1u);
  const NotifyRegStruct& registration = *partnerNotificationQueueMap.at(GetParam().id);
  EXPECT_EQ(registration.queue, queue_);
  EXPECT_NE(registration.token, nullptr);
  EXPECT_EQ(registration.session, session_->cHandle());
  EXPECT_EQ(registration.table, given.found);
}

TEST_P(IdlePartnerCalls, OfADeregistrationLeaveTheAttributesAlone) {
  ASSERT_TRUE(registerTable());
  taken();
  EXPECT_FALSE(deregister());
  EXPECT_EQ(taken(), find());
}

TEST_P(IdlePartnerCalls, OfADeregistrationOfWhatNobodyRegistered) {
  EXPECT_FALSE(deregister());
  EXPECT_EQ(taken(), find());
}

// Nobody is told of the device's own aged entries: neither the agent nor a queue.
TEST_P(IdlePartnerCalls, GiveACallbackThatDoesNothing) {
  ASSERT_TRUE(registerTable());
  EXPECT_EQ(agent_.receive().size(), 296u);
  taken();
  ASSERT_NE(given.callback, nullptr);
  EXPECT_EQ(given.callback(GetParam().target, nullptr, given.cookie), JX_SUCCESS);
  EXPECT_EQ(taken(), Calls());
  void* value = nullptr;
  EXPECT_EQ(PartnerNotificationQueueTryDequeue(queue_, &value, 1), 0u);
  EXPECT_FALSE(deregister());
  EXPECT_EQ(agent_.receive().at(292), 0) << "the next request is the deregistration";
}

}  // namespace

jxrt::JxRtDevMgr* managerInFront() { return manager; }

}  // namespace jextest
