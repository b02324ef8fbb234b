// What the agent asks of the switch SDK when it arms and disarms digests: every call, every
// argument, in order. The SDK's objects have others in front of them here, which note each call and
// pass it on.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "JexPartnerLibDigest.h"
#include "support/switch_device.h"
#include "wire/noted_calls.h"
#include "wire/notify_frames.h"
#include "wire/notify_programs.h"
#include "wire/noting_manager.h"
#include "wire/sdk_front.h"

namespace jextest {
namespace {

using PartnerLib::digestCallbackMap;
using PartnerLib::DigestNotifyCookieStruct;
using Session = std::shared_ptr<jxrt::JxRtSession>;
using Callback = decltype(PartnerLib::learnCppCallback);

constexpr jx_dev_id_t kDevice = 3;
constexpr int kSocket = 6;

/// What is no number, of one call.
struct Given {
  Session session;
  size_t armed = 0;  // cookies that the library had
  // Of a registration:
  jxrt::JxRtLearnCb callback;
  const void* cookie = nullptr;
  DigestNotifyCookieStruct content{};  // of the cookie; from then on it may be used
};
std::vector<Given> given;

bool handling = false;  // a request
/// Sessions that were made while a request was handled. One lasts as long as the process.
std::vector<std::weak_ptr<jxrt::JxRtSession>> made;

class SpyLearn final : public jxrt::JxRtLearn {
 public:
  explicit SpyLearn(jxrt::JxRtLearn& real) : real_(real) { real.learnNameGet(&name_); }

  jx_status_t callbackRegister(const Session& session, const jx_rt_target_t& target,
                               const jxrt::JxRtLearnCb& callback, const void* cookie) override {
    note("register " + name_ + " at " + text(target));
    given.push_back({session, digestCallbackMap.size(), callback, cookie, {}});
    if (cookie != nullptr) {
      given.back().content = *static_cast<const DigestNotifyCookieStruct*>(cookie);
    }
    return real_.callbackRegister(session, target, callback, cookie);
  }
  jx_status_t callbackDeregister(const Session& session, const jx_rt_target_t& target) override {
    note("deregister " + name_ + " at " + text(target));
    given.push_back({session, digestCallbackMap.size(), nullptr, nullptr, {}});
    return real_.callbackDeregister(session, target);
  }
  jx_status_t notifyAck(const Session&, jx_rt_learn_msg_hdl*) override {
    note("acknowledge " + name_);
    return JX_NOT_SUPPORTED;
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
  std::string name_;
};

class SpyInfo final : public ForwardingInfo {
 public:
  using ForwardingInfo::ForwardingInfo;
  jx_status_t learnFromIdGet(uint32_t id, jxrt::JxRtLearn** learn) const override {
    note("learn " + std::to_string(id));
    const jx_status_t status = ForwardingInfo::learnFromIdGet(id, learn);
    if (status != JX_SUCCESS) return status;
    std::unique_ptr<SpyLearn>& spy = learns_[id];
    if (!spy) spy = std::make_unique<SpyLearn>(**learn);
    *learn = spy.get();
    return JX_SUCCESS;
  }

 private:
  mutable std::map<uint32_t, std::unique_ptr<SpyLearn>> learns_;
};

using SpyManager = NotingManager<SpyInfo>;
SpyManager* manager = nullptr;

DigestRequest addresses(uint32_t enable, uint32_t pipe = 0xFFFF) {
  DigestRequest request;
  request.pipe = pipe;
  request.size = enable == 0 ? 0 : kAddressesBits;
  request.enable = enable;
  return request;
}

DigestRequest twoAndThree(uint32_t enable, uint32_t pipe = 0xFFFF) {
  return {kTwoAndThree, pipe, "bits", enable == 0 ? 0 : 13u + 19u, enable};
}

class DigestCalls : public testing::Test {
 protected:
  DigestCalls() : device_(DeviceKind::kPhysical, kDevice, {"limits", bitsProgram()}) {
    manager = &manager_;
    given.clear();
    taken();
  }
  ~DigestCalls() override {
    manager = nullptr;
    given.clear();
  }

  /// What the library finds when it looks for this digest.
  jxrt::JxRtLearn* found(const DigestRequest& request) const {
    const jxrt::JxRtInfo* info = nullptr;
    jxrt::JxRtLearn* learn = nullptr;
    must(manager_.jxRtInfoGet(kDevice, request.program, &info), "program");
    must(info->learnFromIdGet(request.learn, &learn), "learn object");
    return learn;
  }

  void handle(const DigestRequest& request, int socket = kSocket) {
    const Bytes payload = bytesFrom(request.message(1), 16);
    handling = true;
    PartnerLib::digestDeserialize(kDevice, device_.view().session().sessHandleGet(), payload.data(),
                                  static_cast<uint32_t>(payload.size()), socket);
    handling = false;
  }

  SwitchDevice device_;
  SpyManager manager_;
};

const Calls kFindAddresses = {"program limits of 3", "learn " + std::to_string(kAddresses)};
const Calls kFindTwoAndThree = {"program bits of 3", "learn " + std::to_string(kTwoAndThree)};

TEST_F(DigestCalls, OfArmingGoByTheRequest) {
  handle(addresses(1, 0xFFFF));
  EXPECT_EQ(taken(), kFindAddresses + "register addresses at 3/65535/0/0");
  handle(twoAndThree(1, 2));
  EXPECT_EQ(taken(), kFindTwoAndThree + "register two_and_three at 3/2/0/0");
  handle(addresses(0));
  handle(twoAndThree(0));
}

TEST_F(DigestCalls, OfDisarmingGoByTheRequest) {
  handle(addresses(1, 1));
  handle(twoAndThree(1, 2));
  taken();
  handle(addresses(0, 3));
  EXPECT_EQ(taken(), kFindAddresses + "deregister addresses at 3/3/0/0");
  handle(twoAndThree(0, 0xFFFF));
  EXPECT_EQ(taken(), kFindTwoAndThree + "deregister two_and_three at 3/65535/0/0");
  EXPECT_TRUE(digestCallbackMap.empty());
}

TEST_F(DigestCalls, GiveTheCallbackACookieThatIsComplete) {
  handle(addresses(1));
  handle(twoAndThree(1), kSocket + 1);
  ASSERT_EQ(given.size(), 2u);
  for (const Given& one : given) {
    Callback* const* const callback = one.callback.target<Callback*>();
    ASSERT_NE(callback, nullptr);
    EXPECT_EQ(*callback, &PartnerLib::learnCppCallback);
  }
  ASSERT_EQ(digestCallbackMap.size(), 2u);
  EXPECT_EQ(given[0].armed, 1u) << "kept before";
  EXPECT_EQ(given[1].armed, 2u);
  EXPECT_EQ(given[0].cookie, digestCallbackMap[kSocket + kAddresses * 10]);
  EXPECT_EQ(given[1].cookie, digestCallbackMap[kSocket + 1 + kTwoAndThree * 10]);

  const DigestNotifyCookieStruct& first = given[0].content;
  EXPECT_EQ(first.sendSocket, kSocket);
  EXPECT_EQ(first.learn, found(addresses(1)));
  EXPECT_EQ(first.learnId, kAddresses);
  EXPECT_EQ(first.size, 33u) << "266 bits";
  EXPECT_EQ(first.fieldIds, (std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(first.fieldSizes, (std::vector<uint32_t>{1, 2, 16, 16}));

  const DigestNotifyCookieStruct& second = given[1].content;
  EXPECT_EQ(second.sendSocket, kSocket + 1);
  EXPECT_EQ(second.learn, found(twoAndThree(1)));
  EXPECT_EQ(second.learnId, kTwoAndThree);
  EXPECT_EQ(second.size, 4u);
  EXPECT_EQ(second.fieldIds, (std::vector<uint32_t>{1, 2}));
  EXPECT_EQ(second.fieldSizes, (std::vector<uint32_t>{2, 3}));

  handle(addresses(0));
  handle(twoAndThree(0), kSocket + 1);
}

// Until it has been deregistered the callback may run, and look at its cookie.
TEST_F(DigestCalls, KeepTheCookieUntilTheCallbackIsGone) {
  handle(addresses(1));
  handle(addresses(0));
  ASSERT_EQ(given.size(), 2u);
  EXPECT_EQ(given[1].armed, 1u) << "when it is deregistered";
  EXPECT_TRUE(digestCallbackMap.empty());
}

// The agent's own session is not for these: one is made when it is first needed, and kept.
TEST_F(DigestCalls, AreMadeOnBehalfOfOneSession) {
  handle(addresses(1));
  handle(twoAndThree(1));
  handle(addresses(0));
  handle(addresses(1), kSocket + 1);  // for another Partner
  handle(twoAndThree(0));
  handle(addresses(0), kSocket + 1);
  ASSERT_EQ(given.size(), 6u);
  ASSERT_EQ(made.size(), 1u) << "in the life of the process";
  for (const Given& one : given) EXPECT_EQ(one.session, made[0].lock());
  given.clear();
  EXPECT_FALSE(made[0].expired()) << "kept though nothing is armed";
}

}  // namespace

jxrt::JxRtDevMgr* managerInFront() { return manager; }

}  // namespace jextest

std::shared_ptr<jxrt::JxRtSession> jxrt::JxRtSession::sessionCreate() {
  static auto* const real = jextest::sdksOwn<std::shared_ptr<jxrt::JxRtSession>()>(
      "_ZN4jxrt11JxRtSession13sessionCreateEv");
  const std::shared_ptr<jxrt::JxRtSession> session = real();
  if (jextest::handling) jextest::made.push_back(session);
  return session;
}
