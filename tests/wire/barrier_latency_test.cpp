// The histogram of round trips to the millisecond: the clock of this thread stands still while it
// plays the Partner's receive thread.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <time.h>

#include "JexPartnerLib.h"
#include "JexPartnerLibSocket.h"
#include "wire/counter_frames.h"

namespace jextest {
namespace {

thread_local uint64_t stopped_at_ms = 0;  // 0: the clock runs

constexpr uint64_t kNow = 1000000000000;

/// Where an answer goes whose barrier is `age` ms old.
struct Place {
  uint64_t age;
  size_t bin;
};

class Latency : public testing::TestWithParam<Place> {
 protected:
  Latency() { stopped_at_ms = kNow; }
  ~Latency() override { stopped_at_ms = 0; }

  static std::vector<uint64_t> bins() {
    uint32_t count = 0;
    uint64_t* bins = nullptr;
    PartnerBarrierGetMaxProcTime(&count, &bins);
    EXPECT_EQ(count, 32u);
    return std::vector<uint64_t>(bins, bins + count);
  }

  static void answer(uint64_t timestamp) {
    Bytes record = barrierReply(timestamp);
    processClientMessageFromSocket(record.data(), static_cast<int>(record.size()), nullptr);
  }
};
INSTANTIATE_TEST_SUITE_P(Ages, Latency,
                         testing::Values(Place{0, 0}, Place{4, 0}, Place{5, 0}, Place{9, 0},
                                         Place{10, 1}, Place{14, 1}, Place{15, 2}, Place{19, 2},
                                         Place{20, 3}, Place{79, 14}, Place{80, 15}, Place{154, 29},
                                         Place{155, 30}, Place{159, 30}, Place{160, 31},
                                         Place{164, 31}, Place{165, 31}, Place{100000, 31},
                                         Place{10737418239, 31}),
                         [](const auto& test) { return "Ms" + std::to_string(test.param.age); });

TEST_P(Latency, GoesIntoItsBin) {
  ASSERT_EQ(PartnerGetTimestamp(), kNow) << "the clock stands still";
  std::vector<uint64_t> expected = bins();
  ++expected[GetParam().bin];
  answer(kNow - GetParam().age);
  EXPECT_EQ(bins(), expected);
  EXPECT_EQ(PartnerBarrierGetLastComplete(), kNow - GetParam().age);
}

TEST_P(Latency, MayBeTheLongest) {
  uint32_t count = 0;
  uint64_t* live = nullptr;
  const uint64_t before = PartnerBarrierGetMaxProcTime(&count, &live);
  answer(kNow - GetParam().age);
  EXPECT_EQ(PartnerBarrierGetMaxProcTime(&count, &live), std::max(before, GetParam().age));
}

// 5 ms in each bin from the second to the last but one: no age is left out or counted twice.
TEST_F(Latency, EveryAgeHasOneBin) {
  for (uint64_t age = 0; age < 400; ++age) {
    const size_t bin = age < 10 ? 0 : age >= 160 ? 31 : age / 5 - 1;
    std::vector<uint64_t> expected = bins();
    ++expected[bin];
    answer(kNow - age);
    ASSERT_EQ(bins(), expected) << age;
  }
}

TEST_F(Latency, TheArrayIsTheLiveOne) {
  uint32_t count = 0;
  uint64_t* live = nullptr;
  PartnerBarrierGetMaxProcTime(&count, &live);
  EXPECT_EQ(live, &latencyBins[0]);
  const uint64_t before = live[3];
  answer(kNow - 20);
  EXPECT_EQ(live[3], before + 1);
}

// The second of a double barrier may be answered before its time has come.
TEST_F(Latency, AnAnswerFromTheFutureIsBeyondAllBounds) {
  std::vector<uint64_t> expected = bins();
  ++expected[31];
  answer(kNow + 10);
  EXPECT_EQ(bins(), expected);
  uint32_t count = 0;
  uint64_t* live = nullptr;
  EXPECT_EQ(PartnerBarrierGetMaxProcTime(&count, &live), ~uint64_t{0} - 9);
}

TEST_F(Latency, OnlyItsOwnAnswerClearsARequest) {
  requestedTime = kNow;
  answer(kNow - 1);
  EXPECT_EQ(requestedTime, kNow);
  answer(kNow + 1);
  EXPECT_EQ(requestedTime, kNow);
  answer(kNow);
  EXPECT_EQ(requestedTime, 0u);
  EXPECT_EQ(lastResponse, kNow);
}

}  // namespace
}  // namespace jextest

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    timespec* time) {
  static const auto real =
      reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
  if (clock != CLOCK_MONOTONIC || jextest::stopped_at_ms == 0) return real(clock, time);
  time->tv_sec = static_cast<time_t>(jextest::stopped_at_ms / 1000);
  time->tv_nsec = static_cast<long>(jextest::stopped_at_ms % 1000 * 1000000);
  return 0;
}
