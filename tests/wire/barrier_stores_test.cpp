// The order in which a Partner's barrier variables change: what an application sees of a barrier
// while it is sent and while it is answered.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "JexPartnerLib.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "wire/counter_frames.h"
#include "wire/nanomsg_calls.h"
#include "wire/store_order.h"

namespace jextest {
namespace {

void answer(uint64_t timestamp) {
  Bytes record = barrierReply(timestamp);
  processClientMessageFromSocket(record.data(), static_cast<int>(record.size()), nullptr);
}

/// A Partner whose barriers go nowhere; what happens while one leaves is the test's.
class BarrierStores : public testing::Test {
 protected:
  BarrierStores() : socket_(1), front_(&calls_) {
    calls_.poll = [](nn_pollfd* fds, int, int) {
      fds[0].revents = NN_POLLOUT;
      return 1;
    };
    calls_.send = [this](int, const void* message, size_t size, int) {
      const auto* const bytes = static_cast<const uint8_t*>(message);
      sent_.push_back(u64At(Bytes(bytes, bytes + size), 276));
      requested_.push_back(requestedTime);
      if (answered_at_once_) answer(sent_.back());
      return static_cast<int>(size);
    };
    PartnerLib::pSocket = &socket_;
    requestedTime = kOlder;
  }
  ~BarrierStores() override { PartnerLib::pSocket = nullptr; }

  static constexpr uint64_t kOlder = 5;
  PartnerLib::PartnerSocket socket_;
  NanomsgCalls calls_;
  NanomsgInFront front_;
  std::vector<uint64_t> sent_;
  std::vector<uint64_t> requested_;  // what requestedTime was at each
  bool answered_at_once_ = false;
};

TEST_F(BarrierStores, ABarrierIsSentBeforeItIsTheOneAskedFor) {
  const uint64_t single = PartnerBarrierSend();
  EXPECT_EQ(requested_, (std::vector<uint64_t>{kOlder}));
  EXPECT_EQ(requestedTime, single);
  requested_.clear();
  const uint64_t second = PartnerBarrierSendWithCounterSyncDouble(nullptr);
  EXPECT_EQ(requested_, (std::vector<uint64_t>{single, single})) << "neither of the two counts yet";
  EXPECT_EQ(requestedTime, second);
}

// An answer that overtakes the store leaves the barrier asked for; lastResponse tells the truth.
TEST_F(BarrierStores, AnAnswerThatComesWhileTheBarrierLeavesIsInLastResponse) {
  answered_at_once_ = true;
  const uint64_t timestamp = PartnerBarrierSend();
  EXPECT_EQ(requestedTime, timestamp);
  EXPECT_EQ(PartnerBarrierGetLastComplete(), timestamp);
}

// What an answer does not hold counts as zero; memory behind it is not its own.
TEST_F(BarrierStores, AShortAnswerIsReadToItsEnd) {
  Bytes record = barrierReply(0xAAAAAAAA00000007);
  processClientMessageFromSocket(record.data(), 8, nullptr);
  EXPECT_EQ(PartnerBarrierGetLastComplete(), 7u);
}

#ifdef JEX_TEST_STORE_ORDER
// Who sees that nothing is asked for any more finds the answer, and who sees the histogram move
// finds both.
TEST_F(BarrierStores, AnAnswerIsStoredInOrder) {
  uint32_t count = 0;
  uint64_t* bins = nullptr;
  PartnerBarrierGetMaxProcTime(&count, &bins);
  ASSERT_EQ(count, 32u);
  requestedTime = PartnerGetTimestamp() - 3600000;
  StoreOrder order({{"lastResponse", &lastResponse, sizeof lastResponse},
                    {"requestedTime", &requestedTime, sizeof requestedTime},
                    {"bins", bins, 32 * sizeof *bins},
                    {"maxProcTime", &maxProcTime, sizeof maxProcTime}});
  order.begin();
  answer(requestedTime);
  EXPECT_EQ(order.end(),
            (std::vector<std::string>{"lastResponse", "requestedTime", "bins", "maxProcTime"}));
  EXPECT_EQ(requestedTime, 0u);
}
#endif

}  // namespace
}  // namespace jextest
