// The model's clock.
#include "model/base/clock.h"

#include <gtest/gtest.h>

namespace jxmodel {
namespace {

TEST(Clock, RunsWithTheMachineUnlessTold) {
  Clock sut;
  const uint64_t first = sut.now();
  EXPECT_GT(first, 1'600'000'000'000'000'000U);
  EXPECT_GE(sut.now(), first);
  EXPECT_FALSE(sut.advance(1));
}

TEST(Clock, StandsUntilItIsMoved) {
  Clock sut;
  sut.set(JX_MODEL_CLOCK_STOPPED, 100);
  sut.observe(5000);
  EXPECT_EQ(sut.now(), 100U);
  EXPECT_TRUE(sut.advance(30));
  EXPECT_EQ(sut.now(), 130U);
}

TEST(Clock, FollowsCapturesAndNeverGoesBack) {
  Clock sut;
  sut.set(JX_MODEL_CLOCK_CAPTURE, 0);
  sut.observe(5000);
  sut.observe(4000);
  EXPECT_EQ(sut.now(), 5000U);
  EXPECT_FALSE(sut.advance(1));
}

TEST(Clock, IsOneForTheProcess) {
  EXPECT_EQ(jx_model_clock_set(static_cast<jx_model_clock_source_t>(3), 0), JX_INVALID_ARGUMENTS);
  ASSERT_EQ(jx_model_clock_set(JX_MODEL_CLOCK_STOPPED, 7), JX_SUCCESS);
  ASSERT_EQ(jx_model_clock_advance(3), JX_SUCCESS);
  EXPECT_EQ(Clock::instance().now(), 10U);
  ASSERT_EQ(jx_model_clock_set(JX_MODEL_CLOCK_REAL, 0), JX_SUCCESS);
  EXPECT_EQ(jx_model_clock_advance(3), JX_NOT_SUPPORTED);
}

}  // namespace
}  // namespace jxmodel
