// Members and groups, with flows as hosts have them.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "support/test_data.h"
#include "unit/pipeline/data_files.h"
#include "unit/pipeline/testbed.h"

namespace jxpipelinetest {
namespace {

constexpr uint32_t kMembers = 4;

/// The router with a default route to a group of members behind ports 1 to 4.
class Selector : public jextest::OverFiles {
 protected:
  Selector() : OverFiles("flows", "flows") {
    for (uint32_t port = 1; port <= kMembers + 1; ++port) {
      const Packed params =
          Packed().add(port, 2).add(0x020000000100 + port, 6).add(0, 6).add(port, 4);
      members_.push_back(router_->addMember("nexthops", 100 + port, "set_nexthop", params));
    }
    group_ = router_->addGroup("ecmp_groups", 500, {members_.begin(), members_.begin() + kMembers});
    router_->add("ipv4_lpm", 700, Packed().add(0, 4).add(0, 1), 0, groupResult(group_));
  }

  void SetUp() override {
    OverFiles::SetUp();
    for (const std::string& file : files()) {
      const std::vector<Flow> more = loadFlows(file);
      flows_.insert(flows_.end(), more.begin(), more.end());
    }
  }

  jxmodel::SelectorTable& groups() { return *router_->table("ecmp_groups").groups; }
  uint32_t portOf(const Flow& flow) {
    Bytes frame = ipv4Frame(flow);
    return router_->run(&frame).port;
  }
  std::vector<uint32_t> ports() {
    std::vector<uint32_t> all;
    for (const Flow& flow : flows_) all.push_back(portOf(flow));
    return all;
  }
  /// Flows that moved though their member is still there, and flows on the one taken away.
  void expectOnlyFlowsOfMoved(const std::vector<uint32_t>& before, uint32_t taken) {
    const std::vector<uint32_t> after = ports();
    for (size_t i = 0; i < before.size(); ++i) {
      if (before[i] == taken) {
        EXPECT_NE(after[i], taken);
        EXPECT_NE(after[i], 0U);
      } else {
        ASSERT_EQ(after[i], before[i]);
      }
    }
  }

  std::unique_ptr<Testbed> router_ = Testbed::delivered("router");
  std::vector<Flow> flows_;
  std::vector<uint32_t> members_;
  uint32_t group_ = 0;
};

TEST_P(Selector, SpreadsFlowsEvenly) {
  ASSERT_GT(flows_.size(), 6000U);
  std::map<uint32_t, size_t> flows_of;
  for (const uint32_t port : ports()) ++flows_of[port];
  ASSERT_EQ(flows_of.size(), kMembers);
  const double even = static_cast<double>(flows_.size()) / kMembers;
  for (const auto& [port, count] : flows_of) {
    EXPECT_NEAR(static_cast<double>(count), even, even / 10) << "port " << port;
  }
}

TEST_P(Selector, KeepsFlowsTogether) { EXPECT_EQ(ports(), ports()); }

// The first fragment has ports, the others have none.
TEST_P(Selector, KeepsTheFragmentsOfADatagramTogether) {
  size_t apart = 0;
  for (size_t i = 0; i < 200; ++i) {
    Bytes first = ipv4Frame(flows_[i]);
    Bytes later = first;
    first[kFragment] = 0x20;
    later[kFragment + 1] = 1;
    const uint32_t port = router_->run(&first).port;
    EXPECT_NE(port, 0U);
    apart += router_->run(&later).port == port ? 0 : 1;
  }
  EXPECT_EQ(apart, 0U);
}

TEST_P(Selector, ADeactivatedMemberGivesUpItsFlowsOnlyAndGetsThemBack) {
  const std::vector<uint32_t> before = ports();
  ASSERT_EQ(groups().setActive(group_, members_[1], false), JX_SUCCESS);
  expectOnlyFlowsOfMoved(before, 2);
  ASSERT_EQ(groups().setActive(group_, members_[1], true), JX_SUCCESS);
  EXPECT_EQ(ports(), before);
}

TEST_P(Selector, ARemovedMemberGivesUpItsFlowsOnly) {
  const std::vector<uint32_t> before = ports();
  ASSERT_EQ(groups().removeMember(group_, members_[0]), JX_SUCCESS);
  expectOnlyFlowsOfMoved(before, 1);
}

TEST_P(Selector, TheFallbackStandsInWhereNoneIsActive) {
  groups().setFallback(members_[kMembers]);
  EXPECT_LE(portOf(flows_[0]), kMembers);
  for (uint32_t i = 0; i < kMembers; ++i) groups().setActive(group_, members_[i], false);
  EXPECT_EQ(portOf(flows_[0]), kMembers + 1);
  ASSERT_EQ(groups().clearFallback(), JX_SUCCESS);
  Bytes frame = ipv4Frame(flows_[0]);
  EXPECT_EQ(router_->run(&frame).reason, jxmodel::DropReason::kNoMember);
}

TEST_P(Selector, AModifiedMemberRewritesAnew) {
  router_->add("ipv4_lpm", 701, Packed().add(0x0A000000, 4).add(8, 1), 0,
               memberResult(members_[0]));
  const Flow flow{1, 0x0A000001, 17, 5, 6};
  EXPECT_EQ(portOf(flow), 1U);
  const Packed params = Packed().add(33, 2).add(0x02AABBCCDDEE, 6).add(7, 6).add(9, 4);
  router_->table("nexthops").members->modify(members_[0], router_->action("set_nexthop", params));
  Bytes frame = ipv4Frame(flow);
  EXPECT_EQ(router_->run(&frame).port, 33U);
  EXPECT_EQ(numberAt(frame, kEthernetDst, 6), 0x02AABBCCDDEEU);
  EXPECT_EQ(frame[kTtl], 63);
  EXPECT_EQ(router_->table("route_counters").counters->read(9).packets, 1U);
}

TEST_P(Selector, TheTraceNamesGroupAndMember) {
  jxmodel::Trace trace;
  Bytes frame = ipv4Frame(flows_[0]);
  const uint32_t port = router_->run(&frame, 1, &trace).port;
  const auto found = std::find_if(trace.steps.begin(), trace.steps.end(),
                                  [](const auto& step) { return step.what == "ipv4_lpm"; });
  ASSERT_NE(found, trace.steps.end());
  EXPECT_EQ(found->entry_handle, 700U);
  EXPECT_EQ(found->group_handle, 500U);
  EXPECT_EQ(found->member_handle, 100 + port);
}

INSTANTIATE_TEST_SUITE_P(Flows, Selector, testing::ValuesIn(jextest::madeAndReal("flows")),
                         jextest::inWords);

}  // namespace
}  // namespace jxpipelinetest
