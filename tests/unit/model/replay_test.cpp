// Random writes on a virtual device, replayed on a physical one: both hold the same at any time.
#include <gtest/gtest.h>

#include <set>

#include "unit/model/random_writes.h"
#include "unit/model/twin.h"

namespace jxmodeltest {
namespace {

class Replay : public testing::TestWithParam<const char*> {};

TEST_P(Replay, BothDevicesHoldTheSame) {
  const bool own = std::string(GetParam()) == "every_kind";
  Twin twin({own ? everyKind() : delivered(GetParam())}, 70000);
  RandomWrites writes(twin.virt, 20260);
  std::set<jx_status_t> refusals;
  size_t written = 0;
  for (int round = 0; round < 20; ++round) {
    for (int i = 0; i < 500; ++i) {
      const jx_status_t status = writes.write();
      status == JX_SUCCESS ? ++written : refusals.insert(status).second;
    }
    ASSERT_EQ(twin.virt.dump(), twin.physical.dump()) << "after round " << round;
  }
  EXPECT_GT(written, 1000U);
  EXPECT_FALSE(twin.virt.dump().empty());
  EXPECT_TRUE(refusals.count(JX_OBJECT_NOT_FOUND));
  const std::set<std::string> kinds(twin.reported.begin(), twin.reported.end());
  if (own) {
    EXPECT_EQ(kinds, (std::set<std::string>{"match 0", "match 2", "match 3", "match 4", "match 5",
                                            "match 6", "adt 0", "adt 1", "adt 2", "sel 0", "sel 1",
                                            "sel 2", "sel 3", "sel 4", "sel 5", "sel 6", "sel 7"}));
    EXPECT_EQ(refusals,
              (std::set<jx_status_t>{JX_INVALID_ARGUMENTS, JX_ALREADY_EXISTS, JX_OBJECT_NOT_FOUND,
                                     JX_NOT_ENOUGH_SPACE, JX_ACTION_DATA_REFERENCED,
                                     JX_NOT_SUPPORTED, JX_IN_USE}));
  }
}

INSTANTIATE_TEST_SUITE_P(Programs, Replay,
                         testing::Values("every_kind", "router", "limits", "l2_switch"),
                         [](const auto& row) { return std::string(row.param); });

}  // namespace
}  // namespace jxmodeltest
