// The cookie of an armed table or digest lives exactly as long as the SDK may use it. The SDK's
// calls are wrapped (--wrap) or have objects of the test in front of them.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "JexPartnerLibDigest.h"
#include "JexPartnerLibIdle.h"
#include "support/switch_device.h"
#include "wire/living_blocks.h"
#include "wire/noted_calls.h"
#include "wire/notify_frames.h"
#include "wire/sdk_front.h"

namespace jextest {
namespace {

constexpr jx_dev_id_t kDevice = 3;
constexpr int kSocket = 6;

/// Runs inside the SDK's call that arms or disarms.
std::function<void()> while_arming;

class IdleLifetimes : public testing::Test {
 protected:
  IdleLifetimes() : device_(DeviceKind::kPhysical, kDevice, {"limits"}) { taken(); }
  ~IdleLifetimes() override { while_arming = nullptr; }

  void handle(uint32_t enable) {
    IdleRequest request;
    request.enable = enable;
    const Bytes payload = bytesFrom(request.message(1), 16);
    PartnerLib::idleDeserialize(kDevice, device_.view().session().sessHandleGet(), payload.data(),
                                static_cast<uint32_t>(payload.size()), kSocket);
  }
  static PartnerLib::NotifyCookieStruct* cookie() {
    return PartnerLib::notifyCallbackMap.at(kSocket + kAllKinds * 10);
  }

  SwitchDevice device_;
};

TEST_F(IdleLifetimes, AttributesAreReleasedOnceTheyAreSet) {
  const Calls once = {"allocate", "set", "release"};
  handle(1);
  EXPECT_EQ(taken(), once);
  handle(0);
  EXPECT_EQ(taken(), once);
}

TEST_F(IdleLifetimes, TheCookieIsKeptBeforeTheTableIsArmed) {
  bool kept = false;
  while_arming = [&] { kept = PartnerLib::notifyCallbackMap.size() == 1; };
  handle(1);
  EXPECT_TRUE(kept);
  handle(0);
}

// Until the table is disarmed the SDK may report with the cookie.
TEST_F(IdleLifetimes, TheCookieIsFreedAfterTheTableIsDisarmed) {
  handle(1);
  watchBlock(cookie());
  bool lived = false;
  while_arming = [&] { lived = !watchedBlockIsFreed(); };
  handle(0);
  EXPECT_TRUE(lived);
  EXPECT_TRUE(watchedBlockIsFreed());
}

class SpyLearn final : public jxrt::JxRtLearn {
 public:
  using Session = std::shared_ptr<jxrt::JxRtSession>;
  explicit SpyLearn(jxrt::JxRtLearn& real) : real_(real) {}

  jx_status_t callbackRegister(const Session& session, const jx_rt_target_t& target,
                               const jxrt::JxRtLearnCb& callback, const void* cookie) override {
    if (while_arming) while_arming();
    return real_.callbackRegister(session, target, callback, cookie);
  }
  jx_status_t callbackDeregister(const Session& session, const jx_rt_target_t& target) override {
    if (while_arming) while_arming();
    return real_.callbackDeregister(session, target);
  }
  jx_status_t notifyAck(const Session& session, jx_rt_learn_msg_hdl* message) override {
    return real_.notifyAck(session, message);
  }
  jx_status_t learnIdGet(uint32_t* id) const override { return real_.learnIdGet(id); }
  jx_status_t learnNameGet(std::string* name) const override { return real_.learnNameGet(name); }
  jx_status_t learnFieldIdListGet(std::vector<uint32_t>* ids) const override {
    return real_.learnFieldIdListGet(ids);
  }
  jx_status_t learnFieldNameGet(uint32_t field_id, std::string* name) const override {
    return real_.learnFieldNameGet(field_id, name);
  }
  jx_status_t learnFieldSizeGet(uint32_t field_id, size_t* bits) const override {
    return real_.learnFieldSizeGet(field_id, bits);
  }

 private:
  jxrt::JxRtLearn& real_;
};

class SpyInfo final : public ForwardingInfo {
 public:
  using ForwardingInfo::ForwardingInfo;
  jx_status_t learnFromIdGet(uint32_t id, jxrt::JxRtLearn** learn) const override {
    const jx_status_t status = ForwardingInfo::learnFromIdGet(id, learn);
    if (status != JX_SUCCESS) return status;
    spy_ = std::make_unique<SpyLearn>(**learn);
    *learn = spy_.get();
    return JX_SUCCESS;
  }

 private:
  mutable std::unique_ptr<SpyLearn> spy_;
};

class SpyManager final : public ForwardingManager {
  std::unique_ptr<jxrt::JxRtInfo> inFrontOf(const jxrt::JxRtInfo& info) const override {
    return std::make_unique<SpyInfo>(info);
  }
};
SpyManager* manager = nullptr;

class DigestLifetimes : public testing::Test {
 protected:
  DigestLifetimes() : device_(DeviceKind::kPhysical, kDevice, {"limits"}) { manager = &manager_; }
  ~DigestLifetimes() override {
    while_arming = nullptr;
    manager = nullptr;
  }

  void handle(uint32_t enable) {
    DigestRequest request;
    request.enable = enable;
    const Bytes payload = bytesFrom(request.message(1), 16);
    PartnerLib::digestDeserialize(kDevice, device_.view().session().sessHandleGet(), payload.data(),
                                  static_cast<uint32_t>(payload.size()), kSocket);
  }

  SwitchDevice device_;
  SpyManager manager_;
};

TEST_F(DigestLifetimes, TheCookieIsKeptBeforeTheDigestIsArmed) {
  bool kept = false;
  while_arming = [&] { kept = PartnerLib::digestCallbackMap.size() == 1; };
  handle(1);
  EXPECT_TRUE(kept);
  handle(0);
}

TEST_F(DigestLifetimes, TheCookieIsFreedAfterTheDigestIsDisarmed) {
  handle(1);
  watchBlock(PartnerLib::digestCallbackMap.at(kSocket + kAddresses * 10));
  bool lived = false;
  while_arming = [&] { lived = !watchedBlockIsFreed(); };
  handle(0);
  EXPECT_TRUE(lived);
  EXPECT_TRUE(watchedBlockIsFreed());
}

}  // namespace

jxrt::JxRtDevMgr* managerInFront() { return manager; }

}  // namespace jextest

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
jx_status_t __real_jx_rt_table_idle_table_attributes_allocate(
    const jx_rt_table_hdl* table, jx_rt_idle_table_mode_t mode,
    jx_rt_table_attributes_hdl** attributes);
jx_status_t __wrap_jx_rt_table_idle_table_attributes_allocate(
    const jx_rt_table_hdl* table, jx_rt_idle_table_mode_t mode,
    jx_rt_table_attributes_hdl** attributes) {
  jextest::note("allocate");
  return __real_jx_rt_table_idle_table_attributes_allocate(table, mode, attributes);
}

jx_status_t __real_jx_rt_table_attributes_set(const jx_rt_table_hdl* table,
                                              const jx_rt_session_hdl* session,
                                              const jx_rt_target_t* target, uint64_t flags,
                                              const jx_rt_table_attributes_hdl* attributes);
jx_status_t __wrap_jx_rt_table_attributes_set(const jx_rt_table_hdl* table,
                                              const jx_rt_session_hdl* session,
                                              const jx_rt_target_t* target, uint64_t flags,
                                              const jx_rt_table_attributes_hdl* attributes) {
  jextest::note("set");
  if (jextest::while_arming) jextest::while_arming();
  return __real_jx_rt_table_attributes_set(table, session, target, flags, attributes);
}

jx_status_t __real_jx_rt_table_attributes_deallocate(jx_rt_table_attributes_hdl* attributes);
jx_status_t __wrap_jx_rt_table_attributes_deallocate(jx_rt_table_attributes_hdl* attributes) {
  jextest::note("release");
  return __real_jx_rt_table_attributes_deallocate(attributes);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
