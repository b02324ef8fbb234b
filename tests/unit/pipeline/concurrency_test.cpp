// Packets beside updates: a packet sees a table before or after an update, never between. Each test
// has a writer that goes to and fro between states such that any mixture would show.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "support/wait_until.h"
#include "unit/pipeline/testbed.h"

namespace jxpipelinetest {
namespace {

constexpr int kReaders = 2;
constexpr uint32_t kPacketsOfAReader = 30'000;

/// Runs `read` so many times in each of some threads, and `write(round)` over and over meanwhile.
/// Returns the rounds written.
uint32_t besideEachOther(const std::function<void()>& read,
                         const std::function<void(uint32_t)>& write) {
  std::atomic<int> reading{kReaders};
  std::vector<std::thread> readers;
  for (int i = 0; i < kReaders; ++i) {
    readers.emplace_back([&] {
      for (uint32_t packet = 0; packet < kPacketsOfAReader; ++packet) read();
      --reading;
    });
  }
  uint32_t rounds = 0;
  while (reading != 0) write(rounds++);
  for (std::thread& reader : readers) reader.join();
  return rounds;
}

const Flow kFlow{0x01010101, 0x0A010203, 17, 1000, 2000};

uint32_t portOf(const jxmodel::Pipeline& pipeline) {
  Bytes frame = ipv4Frame(kFlow);
  const auto size = static_cast<uint32_t>(frame.size());
  return pipeline.run({frame.data(), size, size, 1}, nullptr).port;
}

class BesideUpdates : public testing::Test {
 protected:
  BesideUpdates() {
    for (uint32_t port = 1; port <= 4; ++port) {
      members_.push_back(router_->addMember("nexthops", port, "set_nexthop", nextHop(port)));
    }
  }

  /// All parameters say the same: a mixture of two would show.
  static Packed nextHop(uint64_t port) {
    return Packed().add(port, 2).add(port, 6).add(port, 6).add(port, 4);
  }
  uint32_t addRoute(uint32_t handle, uint32_t length, uint32_t member) {
    const uint32_t mask = length == 0 ? 0 : ~uint32_t{0} << (32 - length);
    return router_->add("ipv4_lpm", handle, Packed().add(kFlow.dst & mask, 4).add(length, 1), 0,
                        memberResult(member));
  }
  void remove(const std::string& table, uint32_t slot) {
    const jxmodel::MutexLock lock(router_->device().mutex());
    router_->table(table).match->remove(slot);
  }

  std::unique_ptr<Testbed> router_ = Testbed::delivered("router");
  std::vector<uint32_t> members_;
};

// The route moves between two prefixes: it is added there before it is taken away here. A look-up
// that tried the one before the add and the other after the removal would find neither.
TEST_F(BesideUpdates, ARouteThatMovesBetweenPrefixesIsAlwaysThere) {
  uint32_t slot = addRoute(1000, 24, members_[0]);
  std::atomic<uint32_t> lost{0};
  const uint32_t rounds = besideEachOther(
      [&] { lost += portOf(router_->pipeline()) == 1 ? 0 : 1; },
      [&](uint32_t round) {
        const uint32_t added = addRoute(1001 + round, round % 2 == 0 ? 16 : 24, members_[0]);
        remove("ipv4_lpm", slot);
        slot = added;
      });
  EXPECT_EQ(lost, 0U);
  EXPECT_GT(rounds, 10U);
}

// Many other routes come and go around it, so that cells of the hash table move and tables grow.
TEST_F(BesideUpdates, ARouteStaysWhileTheTableAroundItChanges) {
  addRoute(1, 24, members_[0]);
  std::atomic<uint32_t> lost{0};
  std::vector<uint32_t> slots;
  besideEachOther(
      [&] { lost += portOf(router_->pipeline()) == 1 ? 0 : 1; },
      [&](uint32_t round) {
        for (uint32_t i = 0; i < 64; ++i) {
          const uint32_t number = round * 64 + i;
          const Packed key = Packed().add(0x20000000 + (number << 8), 4).add(24, 1);
          slots.push_back(router_->add("ipv4_lpm", 10 + number, key, 0, memberResult(members_[1])));
        }
        if (round % 8 != 7) return;
        for (const uint32_t slot : slots) remove("ipv4_lpm", slot);
        slots.clear();
      });
  EXPECT_EQ(lost, 0U);
}

// An action's port, addresses and counter change together.
TEST_F(BesideUpdates, AMemberIsChangedAsAWhole) {
  addRoute(1, 24, members_[0]);
  std::atomic<uint32_t> mixed{0};
  const uint32_t rounds = besideEachOther(
      [&] {
        Bytes frame = ipv4Frame(kFlow);
        const auto size = static_cast<uint32_t>(frame.size());
        const uint32_t port = router_->pipeline().run({frame.data(), size, size, 1}, nullptr).port;
        const bool whole = port != 0 && numberAt(frame, kEthernetDst, 6) == port &&
                           numberAt(frame, kEthernetSrc, 6) == port;
        mixed += whole ? 0 : 1;
      },
      [&](uint32_t round) {
        const Packed params = nextHop(1 + round % 500);
        const jxmodel::MutexLock lock(router_->device().mutex());
        router_->table("nexthops")
            .members->modify(members_[0], router_->action("set_nexthop", params));
      });
  EXPECT_EQ(mixed, 0U);
  EXPECT_GT(rounds, 10U);
}

// Entry, member and slot go away and come back as another's: packets see the one or the other.
TEST_F(BesideUpdates, AnEntryIsModifiedAsAWholeWhileItsMembersComeAndGo) {
  const uint32_t route = addRoute(1, 24, members_[0]);
  uint32_t current = members_[0];
  std::atomic<uint32_t> lost{0};
  besideEachOther(
      [&] {
        Bytes frame = ipv4Frame(kFlow);
        const auto size = static_cast<uint32_t>(frame.size());
        const uint32_t port = router_->pipeline().run({frame.data(), size, size, 1}, nullptr).port;
        lost += port != 0 && numberAt(frame, kEthernetDst, 6) == port ? 0 : 1;
      },
      [&](uint32_t round) {
        const uint32_t fresh =
            router_->addMember("nexthops", 100 + round, "set_nexthop", nextHop(1 + round % 300));
        const jxmodel::MutexLock lock(router_->device().mutex());
        router_->table("ipv4_lpm").match->modify(route, 0, memberResult(fresh));
        ASSERT_EQ(router_->table("nexthops").members->remove(current), JX_SUCCESS);
        current = fresh;
      });
  EXPECT_EQ(lost, 0U);
}

// The last active member goes only after the fallback is set, and comes before it is cleared.
TEST_F(BesideUpdates, AGroupOrItsFallbackIsAlwaysThere) {
  const uint32_t group = router_->addGroup("ecmp_groups", 1, {members_[0]});
  router_->add("ipv4_lpm", 1, Packed().add(0, 4).add(0, 1), 0, groupResult(group));
  jxmodel::SelectorTable& groups = *router_->table("ecmp_groups").groups;
  std::atomic<uint32_t> lost{0};
  besideEachOther([&] { lost += portOf(router_->pipeline()) == 0 ? 1 : 0; },
                  [&](uint32_t) {
                    const jxmodel::MutexLock lock(router_->device().mutex());
                    groups.setFallback(members_[1]);
                    groups.setActive(group, members_[0], false);
                    groups.setActive(group, members_[0], true);
                    ASSERT_EQ(groups.clearFallback(), JX_SUCCESS);
                  });
  EXPECT_EQ(lost, 0U);
}

// Of two entries that both match, the one that counts changes its priority and is made anew: there
// is always one that permits and wins over the one that denies.
TEST_F(BesideUpdates, AnAccessRuleThatMovesIsAlwaysInForce) {
  addRoute(1, 24, members_[0]);
  const auto rule = [this](uint32_t handle, uint32_t mask, const std::string& action,
                           uint32_t priority) {
    return router_->addAction("acl", handle,
                              Packed()
                                  .add(kFlow.src & mask, 4)
                                  .add(mask, 4)
                                  .add(0, 8)
                                  .add(0, 2)
                                  .add(0, 2)
                                  .add(0xFFFF, 2)
                                  .add(0, 2)
                                  .add(0xFFFF, 2),
                              action, Packed().add(0, 4), priority);
  };
  rule(1, 0, "deny", 1);
  uint32_t permit = rule(2, 0xFFFFFFFF, "permit", 10);
  std::atomic<uint32_t> denied{0};
  besideEachOther([&] { denied += portOf(router_->pipeline()) == 1 ? 0 : 1; },
                  [&](uint32_t round) {
                    const uint32_t mask = ~uint32_t{0} << (round % 2 == 0 ? 8 : 0);
                    const uint32_t fresh = rule(3 + round, mask, "permit", 5 + round % 7);
                    {
                      const jxmodel::MutexLock lock(router_->device().mutex());
                      router_->table("acl").match->move(permit, 2 + round % 9);
                    }
                    remove("acl", permit);
                    permit = fresh;
                  });
  EXPECT_EQ(denied, 0U);
}

// What writers free is done within later writes, so a look-up can be made just in the middle of
// one: it has to say that it does not count. That of the tests above comes there by chance only.
TEST_F(BesideUpdates, ALookUpInTheMiddleOfARemovalDoesNotCount) {
  struct Middle {
    const jxmodel::MatchTable& table;
    const Packed values;
    bool reached = false, counted = false;
  };
  const auto look_up = [](void* owner, uint64_t) {
    Middle& middle = *static_cast<Middle*>(owner);
    jxmodel::MatchTable::Applied applied;
    middle.reached = true;
    middle.counted = middle.table.tryApply(middle.values.data(), &applied);
  };
  addRoute(1, 24, members_[0]);
  Middle middle{*router_->table("ipv4_lpm").match, Packed().add(kFlow.dst, 4)};
  {
    const jxmodel::MutexLock lock(router_->device().mutex());
    router_->device().reclaimer()->defer(look_up, &middle, 0);
  }
  jxmodel::MatchTable::Applied applied;
  EXPECT_TRUE(middle.table.tryApply(middle.values.data(), &applied));
  EXPECT_TRUE(jextest::waitUntil([&] {
    for (uint32_t i = 0; i < 1000 && !middle.reached; ++i) {
      remove("ipv4_lpm", addRoute(2, 16, members_[0]));
    }
    return middle.reached;
  }));
  EXPECT_FALSE(middle.counted);
  EXPECT_TRUE(middle.table.tryApply(middle.values.data(), &applied));
}

TEST(Sequence, ReadsAgainWhatMetAChange) {
  jxmodel::Sequence sut;
  int reads = 0;
  EXPECT_TRUE(sut.read([&] {
    if (++reads == 1) const jxmodel::Sequence::Change change(sut);
  }));
  EXPECT_EQ(reads, 2);
}

TEST(Sequence, GivesUpWhereItNeverStops) {
  jxmodel::Sequence sut;
  int reads = 0;
  EXPECT_FALSE(sut.read([&] {
    ++reads;
    const jxmodel::Sequence::Change change(sut);
  }));
  EXPECT_GT(reads, 1);
}

TEST(Sequence, IsNotReadDuringAChangeNorDuringOneWithinIt) {
  jxmodel::Sequence sut;
  bool read = false;
  {
    const jxmodel::Sequence::Change change(sut);
    { const jxmodel::Sequence::Change within(sut); }
    EXPECT_FALSE(sut.read([&] { read = true; }));
  }
  EXPECT_FALSE(read);
  EXPECT_TRUE(sut.read([&] { read = true; }));
}

TEST_F(BesideUpdates, NoCountIsLost) {
  addRoute(1, 24, members_[2]);
  besideEachOther([&] { portOf(router_->pipeline()); }, [](uint32_t) {});
  const auto pair = router_->table("route_counters").counters->read(3);
  EXPECT_EQ(pair.packets, kReaders * kPacketsOfAReader);
  EXPECT_EQ(pair.bytes, kReaders * kPacketsOfAReader * ipv4Frame(kFlow).size());
  EXPECT_EQ(router_->pipeline().counts().forwarded, kReaders * kPacketsOfAReader);
}

}  // namespace
}  // namespace jxpipelinetest
