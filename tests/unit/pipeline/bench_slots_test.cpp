// The entries that a bench withdraws and announces beside packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "bench/slots.h"
#include "model/base/read_copy_update.h"
#include "unit/pipeline/testbed.h"

namespace jxpipelinetest {
namespace {

/// Routes of a router, each of which can be withdrawn and announced again.
class Routes {
 public:
  explicit Routes(uint32_t count) {
    member_ = router_->addMember("nexthops", 1, "set_nexthop",
                                 Packed().add(1, 2).add(1, 6).add(1, 6).add(1, 4));
    for (uint32_t route = 0; route < count; ++route) slots_.push_back(add(route));
  }

  void renew() {
    for (uint32_t route = 0; route < slots_.size(); ++route) {
      {
        const jxmodel::MutexLock lock(router_->device().mutex());
        router_->table("ipv4_lpm").match->remove(slots_[route]);
      }
      slots_[route] = add(route);
    }
  }
  const jxmodel::MatchTable& table() const { return *router_->table("ipv4_lpm").match; }
  const std::vector<uint32_t>& slots() const { return slots_; }

 private:
  uint32_t add(uint32_t route) {
    return router_->add("ipv4_lpm", 1000 + route, Packed().add(route << 8, 4).add(24, 1), 0,
                        memberResult(member_));
  }

  std::unique_ptr<Testbed> router_ = Testbed::delivered("router");
  uint32_t member_ = 0;
  std::vector<uint32_t> slots_;
};

TEST(BenchSlots, AreThoseOfAllEntriesWhereThereAreFew) {
  const Routes routes(10);
  EXPECT_THAT(bench::spreadSlots(routes.table(), 100), testing::ElementsAreArray(routes.slots()));
  EXPECT_EQ(bench::spreadSlots(Routes(0).table(), 100).size(), 0u);
}

TEST(BenchSlots, AreSpreadOverAllEntriesWhereThereAreMany) {
  const Routes routes(1000);
  for (const uint32_t count : {1u, 7u, 300u, 999u, 1000u}) {
    const std::vector<uint32_t> sut = bench::spreadSlots(routes.table(), count);
    EXPECT_LE(sut.size(), count);
    EXPECT_GT(sut.size(), count / 2);
    EXPECT_GE(sut.back(), 1000 - 1000 / sut.size()) << count;
  }
}

// While somebody reads, no slot that was freed is used again: the entries wander away from slot 0.
TEST(BenchSlots, AreFoundAmongManyThatWereFreed) {
  constexpr uint32_t kRoutes = 3;
  Routes routes(kRoutes);
  {
    const jxmodel::ReadSection reader;
    for (int round = 0; round < 100; ++round) routes.renew();
  }
  ASSERT_GT(routes.table().end(), 100 * kRoutes);
  for (const uint32_t count : {1u, 2u, kRoutes, 10u}) {
    EXPECT_FALSE(bench::spreadSlots(routes.table(), count).empty()) << count;
  }
  const std::vector<uint32_t> all = bench::spreadSlots(routes.table(), kRoutes);
  EXPECT_THAT(all, testing::UnorderedElementsAreArray(routes.slots()));
}

}  // namespace
}  // namespace jxpipelinetest
