// What the Partner's receive thread makes of an answer while an application thread sends the next
// barrier.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdint>

#include "JexPartnerLib.h"
#include "JexPartnerLibSocket.h"
#include "support/wait_until.h"
#include "wire/counter_frames.h"

namespace jextest {
namespace {

constexpr uint64_t kAnswered = 1000;
constexpr uint64_t kNewer = 2000;

#ifdef __x86_64__

volatile sig_atomic_t steps_left = 0;  // instructions until the newer barrier is sent
volatile sig_atomic_t sent = 0;

/// Called behind every instruction while the processor steps.
void sendNewerBarrierInTime(int /*signal*/) {
  if (steps_left == 0) return;
  steps_left = steps_left - 1;
  if (steps_left == 0) {
    __atomic_store_n(&requestedTime, kNewer, __ATOMIC_SEQ_CST);
    sent = 1;
  }
}

void step(bool on) {
  if (on) {
    __asm__ volatile("pushfq\n orq $0x100, (%%rsp)\n popfq" ::: "memory", "cc");
  } else {
    __asm__ volatile("pushfq\n andq $~0x100, (%%rsp)\n popfq" ::: "memory", "cc");
  }
}

/// Handles the answer to kAnswered. Behind instruction `at` of that, kNewer is sent. False if the
/// handling had fewer instructions.
bool answerAndSendBehind(int at) {
  Bytes record = barrierReply(kAnswered);
  requestedTime = kAnswered;
  steps_left = at;
  sent = 0;
  step(true);
  processClientMessageFromSocket(record.data(), static_cast<int>(record.size()), nullptr);
  step(false);
  return sent != 0;
}

// At whatever instruction the newer barrier comes.
TEST(BarrierAnswer, LeavesABarrierThatWasSentMeanwhile) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer's run time cannot be stepped through";
  struct sigaction action {};
  action.sa_handler = sendNewerBarrierInTime;
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGTRAP, &action, &before), 0);
  int at = 1;
  while (answerAndSendBehind(at)) {
    EXPECT_EQ(requestedTime, kNewer) << "sent behind instruction " << at;
    ++at;
  }
  sigaction(SIGTRAP, &before, nullptr);
  EXPECT_GT(at, 20) << "hardly anything was stepped through";
  EXPECT_EQ(requestedTime, 0u) << "the answered one";
}

#endif

}  // namespace
}  // namespace jextest
