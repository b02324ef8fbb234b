// Names of programs that fill their field in a request, and names that do not fit into it: the
// field is 256 bytes, and nothing behind it belongs to the name.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "JexPartnerLib.h"
#include "JexPartnerLibClient.h"
#include "JexPartnerLibCounter.h"
#include "JexPartnerLibDigest.h"
#include "JexPartnerLibIdle.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/switch_device.h"
#include "wire/counter_segment.h"
#include "wire/nanomsg_calls.h"
#include "wire/notify_frames.h"
#include "wire/sdk_front.h"

namespace jextest {
namespace {

constexpr uint8_t kDevice = 0;
constexpr int kSocket = 6;
constexpr size_t kNameBytes = 256;
constexpr uint32_t kCounts = 3 << 16 | 10;  // a counter table of "limits"
const std::string kLongName(kNameBytes, 'n');

/// Names of programs that the SDK was asked for. It has no names of this length: it is asked for
/// "limits" in their place.
std::vector<std::string> asked;

class LimitsManager final : public ForwardingManager {
 public:
  jx_status_t jxRtInfoGet(jx_dev_id_t dev_id, const std::string& p4_name,
                          const jxrt::JxRtInfo** info) const override {
    asked.push_back(p4_name);
    return ForwardingManager::jxRtInfoGet(dev_id, "limits", info);
  }

 private:
  std::unique_ptr<jxrt::JxRtInfo> inFrontOf(const jxrt::JxRtInfo& info) const override {
    return std::make_unique<ForwardingInfo>(info);
  }
};
LimitsManager* manager = nullptr;

/// An agent's device; its handlers are called with what a request carries.
class FullNames : public testing::Test {
 protected:
  FullNames() : device_(DeviceKind::kPhysical, kDevice, {"limits"}) {
    manager = &manager_;
    asked.clear();
  }
  ~FullNames() override { manager = nullptr; }

  uint32_t session() const { return device_.view().session().sessHandleGet(); }
  /// The payload of a request whose name begins at `offset` of the message. There is no zero behind
  /// the message.
  static Bytes payload(Bytes message, size_t offset) {
    std::fill_n(message.begin() + static_cast<std::ptrdiff_t>(offset), kNameBytes, 'n');
    Bytes bytes = bytesFrom(message, 16);
    append(bytes, {'n', 0});
    return bytes;
  }

  SwitchDevice device_;
  LimitsManager manager_;
};

TEST_F(FullNames, OfATableThatAges) {
  for (const uint32_t enable : {1u, 0u}) {
    IdleRequest request;
    request.enable = enable;
    const Bytes bytes = payload(request.message(1), 20);
    PartnerLib::idleDeserialize(kDevice, session(), bytes.data(), 280, kSocket);
  }
  EXPECT_EQ(asked, (std::vector<std::string>{kLongName, kLongName}));
}

TEST_F(FullNames, OfADigest) {
  for (const uint32_t enable : {1u, 0u}) {
    DigestRequest request;
    request.enable = enable;
    const Bytes bytes = payload(request.message(1), 24);
    PartnerLib::digestDeserialize(kDevice, session(), bytes.data(), 272, kSocket);
  }
  EXPECT_EQ(asked, (std::vector<std::string>{kLongName, kLongName}));
}

TEST_F(FullNames, OfACounterTable) {
  CounterSegment segment = CounterSegment::create();
  segment.makeBlock(std::to_string(kCounts), 16);
  for (const uint8_t enable : Bytes{1, 0}) {
    Bytes message = request(5, 1, 284);
    putU32(message, 16, kCounts);
    message[20] = enable;
    const Bytes bytes = payload(message, 28);
    PartnerLib::counterConfigDeserialize(kDevice, session(), bytes.data(), 268, kSocket, 1);
  }
  EXPECT_EQ(asked, (std::vector<std::string>{kLongName, kLongName}));
}

/// Names of more than 256 bytes end with a zero inside of their field.
class LongNames : public testing::Test {
 protected:
  LongNames() : socket_(1), front_(&calls_) {
    calls_.poll = [](nn_pollfd* fds, int, int) {
      fds[0].revents = NN_POLLOUT;
      return 1;
    };
    calls_.send = [this](int, const void* message, size_t size, int) {
      const auto* const bytes = static_cast<const uint8_t*>(message);
      sent_.assign(bytes, bytes + size);
      return static_cast<int>(size);
    };
    PartnerLib::pSocket = &socket_;
  }
  ~LongNames() override { PartnerLib::pSocket = nullptr; }

  PartnerLib::PartnerSocket socket_;
  NanomsgCalls calls_;
  NanomsgInFront front_;
  Bytes sent_;
};

const jx_rt_target_t kTarget = {1, 0x11223344, 0, 0};
const std::string kTooLong(300, 'x');

TEST_F(LongNames, OfTablesAreCut) {
  sendEnableIdleNotifications(kTarget, kTooLong.c_str(), 1, 2, 3, 4, true);
  ASSERT_EQ(sent_.size(), 296u);
  EXPECT_EQ(textAt(sent_, 20, kNameBytes), std::string(kNameBytes - 1, 'x'));
  EXPECT_EQ(u32At(sent_, 276), 0x11223344u);
}

TEST_F(LongNames, OfDigestsAreCut) {
  sendEnableDigestNotifications(kTarget, kTooLong.c_str(), 1, 2, true);
  ASSERT_EQ(sent_.size(), 288u);
  EXPECT_EQ(textAt(sent_, 24, kNameBytes), std::string(kNameBytes - 1, 'x'));
  EXPECT_EQ(u32At(sent_, 280), 2u);
}

}  // namespace

jxrt::JxRtDevMgr* managerInFront() { return manager; }

}  // namespace jextest

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
jx_status_t __real_jx_rt_info_get(jx_dev_id_t dev_id, const char* p4_name,
                                  const jx_rt_info_hdl** info);
__attribute__((visibility("default"))) jx_status_t __wrap_jx_rt_info_get(
    jx_dev_id_t dev_id, const char* p4_name, const jx_rt_info_hdl** info) {
  jextest::asked.emplace_back(p4_name);
  return __real_jx_rt_info_get(dev_id, "limits", info);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
