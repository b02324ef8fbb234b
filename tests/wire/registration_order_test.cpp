// Registrations of tables and digests at a Partner exist from before they are armed until they are
// disarmed, and leave nothing behind. Records of the agent come in the midst of a request here: in
// the call that sends it.
#include <gtest/gtest.h>
#include <nanomsg/pipeline.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "JexPartnerLib.h"
#include "JexPartnerLibClient.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "wire/living_blocks.h"
#include "wire/nanomsg_calls.h"
#include "wire/notify_frames.h"

namespace jextest {
namespace {

constexpr jx_dev_id_t kVirtual = 5;
constexpr jx_rt_target_t kTarget = {kVirtual, 0xFFFF, 0, 0};

void receive(Bytes record) {
  processClientMessageFromSocket(record.data(), static_cast<int>(record.size()), nullptr);
}

/// A Partner without an agent: nothing is sent, but what would be is seen.
class RegistrationOrder : public testing::TestWithParam<bool> {
 protected:
  RegistrationOrder()
      : device_(DeviceKind::kVirtual, kVirtual, {"limits", "l2_switch"}),
        session_(jxrt::JxRtSession::sessionCreate()),
        socket_(1),
        front_(&calls_) {
    calls_.poll = [](nn_pollfd* fds, int, int) {
      fds[0].revents = NN_POLLOUT;
      return 1;
    };
    calls_.send = [this](int, const void*, size_t size, int) {
      if (record_comes_) receive(record(20));
      return static_cast<int>(size);
    };
    PartnerLib::pSocket = &socket_;
    EXPECT_TRUE(PartnerNotificationQueueCreate("q", 16, &queue_));
  }
  ~RegistrationOrder() override {
    forget();
    PartnerNotificationQueueDestroy(queue_);
    PartnerLib::pSocket = nullptr;
  }

  static bool digest() { return GetParam(); }
  /// A record of the table or digest, of `size` bytes as it says.
  static Bytes record(uint16_t size) {
    if (!digest()) return idleRecord(kAllKinds, 1, 1);
    return digestRecordOfLength(size, {});
  }
  void registerIt() {
    if (digest()) {
      PartnerRegisterDigestNotification("limits", "addresses", kTarget, session_->cHandle(),
                                        queue_);
    } else {
      PartnerRegisterIdleNotification("limits", "all_kinds", 10, 50, 20, kTarget,
                                      session_->cHandle(), queue_);
    }
  }
  static void deregisterIt() {
    if (digest()) {
      PartnerDeregisterDigestNotification("limits", "addresses", kTarget);
    } else {
      PartnerDeregisterIdleNotification("limits", "all_kinds", kTarget);
    }
  }
  /// Takes the entries away that the library keeps for ever.
  static void forget() {
    partnerNotificationQueueMap.clear();
    partnerDigestNotificationQueueMap.clear();
  }
  /// How many records have been queued; they are freed.
  size_t queued() {
    void* values[8] = {};
    const size_t count = PartnerNotificationQueueTryDequeue(queue_, values, 8);
    PartnerNotificationQueueValuesFree(values, count);
    return count;
  }

  SwitchDevice device_;
  std::shared_ptr<jxrt::JxRtSession> session_;
  PartnerLib::PartnerSocket socket_;
  NanomsgCalls calls_;
  NanomsgInFront front_;
  void* queue_ = nullptr;
  bool record_comes_ = false;
};
INSTANTIATE_TEST_SUITE_P(Of, RegistrationOrder, testing::Bool(), [](const auto& test) {
  return std::string(test.param ? "Digests" : "Tables");
});

TEST_P(RegistrationOrder, ARecordIsQueuedThatComesWhileTheRequestToArmLeaves) {
  record_comes_ = true;
  registerIt();
  EXPECT_EQ(queued(), 1u);
  record_comes_ = false;
  deregisterIt();
}

TEST_P(RegistrationOrder, ARecordIsQueuedThatComesBeforeTheRequestToDisarmHasLeft) {
  registerIt();
  record_comes_ = true;
  deregisterIt();
  EXPECT_EQ(queued(), 1u);
}

TEST_P(RegistrationOrder, NothingStaysOfADeregisteredOneButItsEntry) {
  long living = 0;
  for (int round = 0; round < 3; ++round) {  // the first fills what is kept for good
    living = livingBlocks();
    registerIt();
    deregisterIt();
    forget();
  }
  EXPECT_EQ(livingBlocks(), living);
}

TEST_P(RegistrationOrder, NothingStaysOfADestroyedQueue) {
  long living = 0;
  for (int round = 0; round < 3; ++round) {
    living = livingBlocks();
    void* queue = nullptr;
    PartnerNotificationQueueCreate("other", 16, &queue);
    PartnerNotificationQueueDestroy(queue);
  }
  EXPECT_EQ(livingBlocks(), living);
}

// The thread sanitizer sees what reads a registration without its lock.
TEST_P(RegistrationOrder, RecordsComeWhileOthersAreRegisteredAndWhenTheirOwnIsGone) {
  registerIt();
  std::atomic<bool> over{false};
  std::atomic<int> received{0};
  std::thread receiver([&] {
    while (!over) {
      receive(record(20));
      queued();
      ++received;
    }
  });
  EXPECT_TRUE(waitUntil([&] { return received > 10; }));
  PartnerRegisterIdleNotification("l2_switch", "smac", 10, 50, 20, kTarget, session_->cHandle(),
                                  queue_);
  PartnerRegisterDigestNotification("l2_switch", "mac_learn", kTarget, session_->cHandle(), queue_);
  deregisterIt();
  const int before = received;
  EXPECT_TRUE(waitUntil([&] { return received > before + 10; }));
  over = true;
  receiver.join();
  PartnerDeregisterIdleNotification("l2_switch", "smac", kTarget);
  PartnerDeregisterDigestNotification("l2_switch", "mac_learn", kTarget);
}

class DigestRecord : public RegistrationOrder {};
INSTANTIATE_TEST_SUITE_P(Of, DigestRecord, testing::Values(true),
                         [](const auto&) { return std::string("Digests"); });

// What a record does not hold of its values is zero, not what the memory held before.
TEST_P(DigestRecord, HasZeroForTheValuesThatItDoesNotHold) {
  registerIt();
  constexpr uint16_t kSays = 300;
  receive(digestRecordOfLength(kSays, {1, 2, 3}));
  void* value = nullptr;
  ASSERT_EQ(PartnerNotificationQueueTryDequeue(queue_, &value, 1), 1u);
  const auto* const bytes = static_cast<const uint8_t*>(value);
  Bytes expected = {1, 2, 3};
  expected.resize(kSays - 20, 0);
  EXPECT_EQ(Bytes(bytes + 20, bytes + kSays), expected);
  PartnerNotificationQueueValuesFree(&value, 1);
  deregisterIt();
}

}  // namespace
}  // namespace jextest
