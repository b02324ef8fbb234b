// The agent's counter service: what it writes into shared memory, beside a raw Partner.
#include <gtest/gtest.h>

#include "support/private_world.h"
#include "wire/counting_pair.h"
#include "wire/table_alias.h"

namespace jextest {
namespace {

constexpr uint32_t kPid = AgentBesideRawPartner::kPid;

std::string packets(size_t port, size_t count, size_t bytes) {
  return "packets " + std::to_string(port) + " " + std::to_string(count) + " " +
         std::to_string(bytes);
}

/// Program "counters" with one table of `size`.
struct CountedAgent : AgentBesideRawPartner {
  explicit CountedAgent(uint32_t size, uint32_t program_id = 31,
                        const Child::Environment& environment = {})
      : AgentBesideRawPartner({0, counterProgram(program_id, {size})}, environment),
        table(counterTableId(program_id, 1)) {
    enable(table, size, "counters");
  }

  /// Counts a different number of packets and bytes at every index below `count`.
  void countAt(size_t count) {
    for (size_t i = 0; i < count; ++i) {
      EXPECT_EQ(agent.ask(packets(i, i + 1, 64 + i)), "status 0");
    }
  }

  uint32_t table;
};

TEST(CounterAgent, WritesEveryPairOnASync) {
  CountedAgent pair(16);
  pair.countAt(16);
  const uint64_t before = steadyMilliseconds();
  pair.sync(pair.table);
  const uint64_t after = steadyMilliseconds();
  const Bytes block = pair.block(pair.table);
  ASSERT_EQ(block.size(), 12u + 16 * 16);
  EXPECT_EQ(reservedOf(block), 0u);
  EXPECT_LE(before, lastReadTimeOf(block));
  EXPECT_LE(lastReadTimeOf(block), after);
  for (size_t i = 0; i < 16; ++i) {
    EXPECT_EQ(packetsOf(block, i), i + 1) << i;
    EXPECT_EQ(bytesCountedIn(block, i), (i + 1) * (64 + i)) << i;
  }
  EXPECT_EQ(pair.agent.standardError(), "");
}

TEST(CounterAgent, LeavesTheReservedWordAlone) {
  CountedAgent pair(16);
  pair.fence();
  pair.segment.fill(std::to_string(pair.table), 0xD7);
  pair.sync(pair.table);
  const Bytes block = pair.block(pair.table);
  EXPECT_EQ(reservedOf(block), 0xD7D7D7D7u);
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(packetsOf(block, i), 0u) << i;
}

TEST(CounterAgent, StartsNoSyncByItself) {
  CountedAgent pair(16);
  pair.countAt(16);
  pair.fence();
  EXPECT_EQ(pair.agent.ask("waiting"), "0");
  EXPECT_EQ(pair.block(pair.table), Bytes(12 + 16 * 16, 0));
  EXPECT_EQ(pair.agent.ask("record " + std::to_string(pair.table)), "0 0");
}

TEST(CounterAgent, WritesOnPeriodicUpdates) {
  for (const char* update : {"update", "update-model"}) {
    SCOPED_TRACE(update);
    CountedAgent pair(4);
    pair.countAt(4);
    pair.fence();
    EXPECT_EQ(pair.agent.ask(update), "true");
    EXPECT_EQ(pair.agent.ask("idle"), "done");
    const Bytes block = pair.block(pair.table);
    EXPECT_EQ(packetsOf(block, 3), 4u);
    EXPECT_EQ(bytesCountedIn(block, 3), 4u * 67);
    EXPECT_NE(lastReadTimeOf(block), 0u);
    pair.fence();  // and nothing was sent
  }
}

// The model's variant makes two of each, the second one for nobody.
TEST(CounterAgent, AsksOnceOrTwiceATable) {
  CountedAgent pair(4);
  pair.fence();
  pair.agent.ask("hold");
  pair.agent.ask("update");
  EXPECT_EQ(pair.agent.ask("waiting"), "1");
  pair.agent.ask("update-model");
  EXPECT_EQ(pair.agent.ask("waiting"), "3");
  pair.agent.ask("release");
  EXPECT_EQ(pair.agent.ask("idle"), "done");
}

TEST(CounterAgent, UpdatesNothingWithoutTables) {
  AgentBesideRawPartner pair;
  EXPECT_EQ(pair.agent.ask("update"), "true");
  EXPECT_EQ(pair.agent.ask("update-model"), "true");
  EXPECT_EQ(pair.agent.ask("waiting"), "0");
  pair.fence();
}

TEST(CounterAgent, UpdatesAllTables) {
  AgentBesideRawPartner pair({0, counterProgram(32, {1, 2, 3})});
  for (uint32_t table = 1; table <= 3; ++table) {
    pair.enable(counterTableId(32, table), table, "counters");
  }
  EXPECT_EQ(pair.agent.ask(packets(0, 7, 100)), "status 0");
  pair.fence();
  EXPECT_EQ(pair.agent.ask("update"), "true");
  EXPECT_EQ(pair.agent.ask("idle"), "done");
  for (uint32_t table = 1; table <= 3; ++table) {
    EXPECT_EQ(packetsOf(pair.block(counterTableId(32, table)), 0), 7u) << table;
    EXPECT_EQ(bytesCountedIn(pair.block(counterTableId(32, table)), 0), 700u) << table;
  }
}

TEST(CounterAgent, StampsATableWithoutEntries) {
  AgentBesideRawPartner pair;
  pair.enable(kNoPairs, 0);
  const uint64_t before = steadyMilliseconds();
  pair.sync(kNoPairs);
  const Bytes block = pair.block(kNoPairs);
  ASSERT_EQ(block.size(), 12u);
  EXPECT_LE(before, lastReadTimeOf(block));
  EXPECT_EQ(reservedOf(block), 0u);
}

TEST(CounterAgent, NeverWritesPastATable) {
  AgentBesideRawPartner pair;
  pair.segment.makeBlock(std::to_string(kPairs), kPairCount + 1);
  pair.segment.fill(std::to_string(kPairs), 0x99);
  pair.partner.send(counterConfig(kPid, kPairs, 1));
  pair.sync(kPairs);
  const Bytes block = pair.block(kPairs);
  EXPECT_EQ(packetsOf(block, kPairCount - 1), 0u);
  EXPECT_EQ(packetsOf(block, kPairCount), 0x9999999999999999u);
}

class AgentBlock : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Ids, AgentBlock, testing::Values(1, 9, 10, 99, 100, 4294967295u));

TEST_P(AgentBlock, IsFoundUnderTheTableId) {
  AgentBesideRawPartner pair({}, {{kTableAliasVariable, tableAlias("pairs", GetParam())}});
  for (const uint32_t id : {0u, 1u, 9u, 10u, 99u, 100u, 4294967295u}) {
    pair.segment.makeBlock(std::to_string(id), kPairCount);
  }
  pair.partner.send(counterConfig(kPid, GetParam(), 1));
  pair.sync(GetParam());
  for (const uint32_t id : {0u, 1u, 9u, 10u, 99u, 100u, 4294967295u}) {
    EXPECT_EQ(lastReadTimeOf(pair.block(id)) != 0, id == GetParam()) << id;
  }
}

// Whatever the three bytes behind "enable" and the pipe say.
TEST(CounterAgent, LooksAtNoPipeAndNoPadding) {
  AgentBesideRawPartner pair;
  pair.segment.makeBlock(std::to_string(kPairs), kPairCount);
  Bytes message = counterConfig(kPid, kPairs, 1);
  message[21] = message[22] = message[23] = 0xFF;
  putU32(message, 24, 3);
  pair.partner.send(message);
  EXPECT_EQ(pair.agent.ask(packets(0, 2, 80)), "status 0");
  pair.sync(kPairs);
  EXPECT_EQ(packetsOf(pair.block(kPairs), 0), 2u);
}

TEST(CounterAgent, CountsOnAnyDevice) {
  AgentBesideRawPartner pair({5, "limits"});
  pair.enablePairs();
  EXPECT_EQ(pair.agent.ask(packets(0, 3, 80)), "status 0");
  pair.sync(kPairs);
  EXPECT_EQ(packetsOf(pair.block(kPairs), 0), 3u);
}

TEST(CounterAgent, KeepsItsMappingWhenTheNameIsTaken) {
  AgentBesideRawPartner pair;
  pair.enablePairs();
  pair.fence();
  CounterSegment later = CounterSegment::create();
  later.makeBlock(std::to_string(kPairs), kPairCount);
  EXPECT_EQ(pair.agent.ask(packets(0, 3, 80)), "status 0");
  pair.sync(kPairs);
  EXPECT_EQ(packetsOf(pair.block(kPairs), 0), 3u);
  EXPECT_EQ(later.block(std::to_string(kPairs)), Bytes(12 + 16 * kPairCount, 0));
}

TEST(CounterAgent, StartsATableAgainAfterItsEnd) {
  AgentBesideRawPartner pair;
  pair.enablePairs();
  for (int round = 1; round < 20; ++round) {
    pair.sync(kPairs);
    pair.disable(kPairs);
    pair.fence();
    EXPECT_EQ(pair.agent.ask("record " + std::to_string(kPairs)), "none");
    pair.segment.destroyBlock(std::to_string(kPairs));
    pair.enablePairs();
    EXPECT_EQ(pair.agent.ask(packets(0, 1, 80)), "status 0");
    pair.sync(kPairs);
    EXPECT_EQ(packetsOf(pair.block(kPairs), 0), static_cast<uint64_t>(round));
  }
}

TEST(CounterAgent, WritesNothingAfterTheEnd) {
  AgentBesideRawPartner pair;
  pair.enablePairs();
  pair.disable(kPairs);
  pair.fence();
  EXPECT_EQ(pair.agent.ask("update"), "true");
  EXPECT_EQ(pair.agent.ask("waiting"), "0");
  EXPECT_EQ(pair.block(kPairs), Bytes(12 + 16 * kPairCount, 0));
}

TEST(CounterAgent, ReadsForASenderOfItsOwnProcess) {
  AgentBesideRawPartner pair;
  pair.enablePairs();
  pair.sync(kPairs);
  EXPECT_EQ(pair.agent.ask(packets(0, 9, 80)), "status 0");
  // Only a sync refreshes what a read sees; the image names the block.
  pair.segment.fill(std::to_string(kPairs), 0xFF);
  EXPECT_EQ(pair.agent.ask("image " + std::to_string(kPairs)), "done");
  EXPECT_EQ(packetsOf(pair.block(kPairs), 0), 0u);
  EXPECT_NE(lastReadTimeOf(pair.block(kPairs)), ~uint64_t{0});
  pair.sync(kPairs);
  EXPECT_EQ(packetsOf(pair.block(kPairs), 0), 9u);
}

TEST(CounterAgent, SyncsAMillionEntries) {
  constexpr uint32_t kMillion = 1000000;
  CountedAgent pair(kMillion, 33);
  EXPECT_EQ(pair.agent.ask(packets(511, 3, 128)), "status 0");
  pair.fence();
  pair.segment.fill(std::to_string(pair.table), 0xFF);
  pair.sync(pair.table);
  const Bytes block = pair.block(pair.table);
  ASSERT_EQ(block.size(), 16000012u);
  size_t others = 0;
  for (size_t i = 0; i < kMillion; ++i) {
    if (packetsOf(block, i) != 0 || bytesCountedIn(block, i) != 0) ++others;
  }
  EXPECT_EQ(others, 1u);
  EXPECT_EQ(packetsOf(block, 511), 3u);
  EXPECT_EQ(bytesCountedIn(block, 511), 3u * 128);
  pair.disable(pair.table, "counters");
  pair.fence();
}

TEST(CounterAgent, TakesARequestOfAPidThatNeverRegistered) {
  AgentBesideRawPartner pair;
  pair.segment.makeBlock(std::to_string(kPairs), kPairCount);
  pair.partner.send(counterConfig(999, kPairs, 1));
  pair.fence();
  EXPECT_EQ(pair.agent.ask("update"), "true");
  EXPECT_EQ(pair.agent.ask("idle"), "done");
  EXPECT_NE(lastReadTimeOf(pair.block(kPairs)), 0u);
  pair.fence();
}

// A sync that was held while its table ended completes for nobody.
TEST(CounterAgent, ASyncUnderWayOutlivesItsTable) {
  AgentBesideRawPartner pair;
  pair.enablePairs();
  pair.fence();
  pair.agent.ask("hold");
  EXPECT_EQ(pair.agent.ask("update"), "true");
  EXPECT_EQ(pair.agent.ask("update-model"), "true");
  pair.disable(kPairs);
  pair.fence();
  pair.segment.fill(std::to_string(kPairs), 0xA5);
  pair.agent.ask("release");
  EXPECT_EQ(pair.agent.ask("idle"), "done");
  EXPECT_EQ(pair.block(kPairs), Bytes(12 + 16 * kPairCount, 0xA5));
  pair.fence();
}

// A sync that is writing ends where it is, so that the block may go as soon as the end has been
// handled. It may complete before or after the loop goes on: whoever is last frees the record, and
// what is freed is scribbled over here.
TEST(CounterAgent, TheEndOfATableEndsTheSyncThatIsWriting) {
  constexpr uint32_t kEntries = 100000;
  CountedAgent pair(
      kEntries, 34,
      {{"MALLOC_PERTURB_", "165"}, {"GLIBC_TUNABLES", "glibc.malloc.tcache_count=0"}});
  const std::string name = std::to_string(pair.table);
  for (int round = 0; round < 10 && !HasFailure(); ++round) {
    pair.fence();
    pair.segment.fill(name, 0xFF);
    EXPECT_EQ(pair.agent.ask("update"), "true");
    EXPECT_TRUE(waitUntil([&] { return packetsOf(pair.block(pair.table), 0) == 0; }));
    pair.disable(pair.table, "counters");
    pair.fence();
    pair.segment.fill(name, 0xA5);
    EXPECT_EQ(pair.agent.ask("idle"), "done");
    EXPECT_EQ(pair.agent.ask("record " + name), "none");
    EXPECT_TRUE(pair.block(pair.table) == Bytes(12 + 16 * kEntries, 0xA5)) << "written afterwards";
    pair.segment.destroyBlock(name);
    pair.enable(pair.table, kEntries, "counters");
  }
  pair.sync(pair.table);
}

// The same table, started anew in between, hears nothing of the old sync.
TEST(CounterAgent, ASyncUnderWayDoesNotReachTheNextStart) {
  AgentBesideRawPartner pair;
  pair.enablePairs();
  pair.fence();
  pair.agent.ask("hold");
  EXPECT_EQ(pair.agent.ask("update"), "true");
  pair.disable(kPairs);
  pair.fence();
  pair.segment.destroyBlock(std::to_string(kPairs));
  pair.enablePairs();
  pair.fence();
  pair.segment.fill(std::to_string(kPairs), 0xA5);
  pair.agent.ask("release");
  EXPECT_EQ(pair.agent.ask("idle"), "done");
  EXPECT_EQ(pair.block(kPairs), Bytes(12 + 16 * kPairCount, 0xA5));
  pair.sync(kPairs);
  EXPECT_EQ(packetsOf(pair.block(kPairs), 0), 0u);
}

}  // namespace
}  // namespace jextest
