// Status texts, clock and globals that both sides share.
#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
#include <climits>
#include <stdexcept>

#include "JexPartnerLibClient.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "jxmodel/faults.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/switch_device.h"

namespace jextest {
namespace {

const char* const kStatusTexts[27] = {
    "Success",
    "Not ready",
    "No system resources",
    "Invalid arguments",
    "Already exists",
    "HW access fails",
    "Object not found",
    "Max sessions exceeded",
    "Session not found",
    "Not enough space",
    "Resource temporarily not available, try again later",
    "Initialization error",
    "Not supported in transaction",
    "Resource held by another session",
    "IO error",
    "Unexpected error",
    "Action data entry is being referenced by match entries",
    "Operation not supported",
    "Updating hardware failed",
    "No learning clients registered",
    "Idle time update state already in progress",
    "Device locked",
    "Internal error",
    "Table not found",
    "In use",
    "Object not implemented",
    "Hardware entry not found",
};

TEST(StatusText, EveryStatusHasItsText) {
  for (int status = 0; status < 27; ++status) {
    EXPECT_STREQ(PartnerLib::statusText(status), kStatusTexts[status]) << status;
  }
}

TEST(StatusText, WhatIsNoStatusIsAnUnknownError) {
  for (const int status : {27, 28, 1000, INT_MAX, -1, INT_MIN}) {
    EXPECT_STREQ(PartnerLib::statusText(status), "Unknown error") << status;
  }
}

TEST(JxStatusError, AsksTheSdk) {
  for (int status = 0; status < 27; ++status) {
    EXPECT_EQ(PartnerLib::jxStatusError(status), kStatusTexts[status]);
  }
  EXPECT_EQ(PartnerLib::jxStatusError(27), "Unknown error");
}

TEST(JxStatusError, ThrowsOnANullText) {
  ASSERT_EQ(jx_model_fault_arm("jx_rt_err_str", 1, JX_MODEL_FAULT_NULL, 0), JX_SUCCESS);
  EXPECT_THROW(PartnerLib::jxStatusError(3), std::logic_error);
  EXPECT_EQ(PartnerLib::jxStatusError(3), "Invalid arguments");
}

uint64_t steadyMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec)) /
         1000000u;
}

TEST(EpochTime, IsTheSteadyClockInMilliseconds) {
  for (int i = 0; i < 1000; ++i) {
    const uint64_t before = steadyMilliseconds();
    const uint64_t time = PartnerLib::getEpochTime();
    const uint64_t after = steadyMilliseconds();
    ASSERT_LE(before, time);
    ASSERT_LE(time, after);
  }
}

TEST(EpochTime, NeverDecreases) {
  static_assert(sizeof(PartnerLib::getEpochTime()) == 8);
  uint64_t last = PartnerLib::getEpochTime();
  for (int i = 0; i < 200000; ++i) {
    const uint64_t now = PartnerLib::getEpochTime();
    ASSERT_GE(now, last);
    last = now;
  }
}

TEST(Globals, AreAsTheyAreAtLoad) {
  EXPECT_EQ(PartnerLib::myPid, -1);
  EXPECT_EQ(PartnerLib::pSocket, nullptr);
  EXPECT_EQ(PartnerLib::pMessage, nullptr);
  EXPECT_FALSE(PartnerLib::moduleInitDone);
  EXPECT_TRUE(PartnerLib::pidSocketMap.empty());
}

TEST(Registry, FindsOnlyWhoRegistered) {
  EXPECT_EQ(PartnerLib::findSendSocket(4242), -1);
  PartnerLib::pidSocketMap.emplace(4242, 7);
  EXPECT_EQ(PartnerLib::findSendSocket(4242), 7);
  EXPECT_EQ(PartnerLib::findSendSocket(4243), -1);
  PartnerLib::pidSocketMap.clear();
}

TEST(Registry, HeartbeatWithNobodyRegisteredReturnsTrue) {
  EXPECT_TRUE(PartnerLib::PeriodicHeartbeatUpdate());
}

JEX_HELPER(find_table_of_no_program) {
  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
  findJxRtTableFromName(1, "no_such_program", "exact_direct");
  return 0;
}

TEST(FindTable, StopsForAProgramThatIsNotThere) {
  Child child = Child::helper("find_table_of_no_program");
  expectStop(child, {"Error: Unable to get any jxrtInfo for no_such_program returns: 6",
                     "JexPartnerLib", "findJxRtTableFromName(", "jx_status == JX_SUCCESS"});
}

TEST(FindTable, FindsATableByName) {
  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
  EXPECT_EQ(findJxRtTableFromName(1, "limits", "exact_direct"),
            &device.view().table("exact_direct"));
  EXPECT_EQ(findJxRtTableFromName(1, "limits", "no_such_table"), nullptr);
}

}  // namespace
}  // namespace jextest
