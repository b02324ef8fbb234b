// Updates that several threads make at once: each builds a message of its own.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "JexPartnerLibMatchCallback.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/bytes.h"
#include "support/wait_until.h"
#include "wire/nanomsg_calls.h"

namespace jextest {
namespace {

// The second message is built when the first has been built and not been taken yet.
TEST(CaptureThreads, BuildMessagesApart) {
  constexpr int kThreads = 2;
  std::atomic<int> sending{0};
  std::atomic<int> whole{0};
  NanomsgCalls calls;
  calls.poll = [](nn_pollfd* fds, int, int) {
    fds[0].revents = NN_POLLOUT;
    return 1;
  };
  calls.send = [&](int, const void* message, size_t size, int) {
    const auto* const bytes = static_cast<const uint8_t*>(message);
    const Bytes before(bytes, bytes + size);
    ++sending;
    EXPECT_TRUE(waitUntil([&] { return sending == kThreads; }));
    const Bytes after(bytes, bytes + size);
    EXPECT_EQ(after, before);
    EXPECT_EQ(u32At(after, 24), u32At(after, 32)) << "table and entry are of one update";
    ++whole;
    return static_cast<int>(size);
  };
  const NanomsgInFront front(&calls);
  PartnerLib::PartnerSocket socket(1);
  PartnerLib::PartnerMessage message(&socket);
  std::thread threads[kThreads];
  for (uint32_t i = 0; i < kThreads; ++i) {
    threads[i] = std::thread([&message, i] {
      pipe_mat_update_params params{};
      const uint32_t entry = 1000 + i;
      std::memcpy(&params, &entry, sizeof entry);
      PartnerLib::packMatchCallback({1, 0xFFFF}, entry, PIPE_MAT_UPDATE_DEL, &params, &message);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(whole, kThreads);
}

}  // namespace
}  // namespace jextest
