// The Partner's counters: what it makes in shared memory and what it sends, against a raw agent.
#include <gtest/gtest.h>

#include <cstring>

#include "support/private_world.h"
#include "wire/counting_pair.h"
#include "wire/table_alias.h"

namespace jextest {
namespace {

TEST(CounterPartner, AsksTheAgentToStartATable) {
  PartnerBesideRawAgent pair;
  EXPECT_EQ(pair.partner.ask("init limits pairs"), "true handle") << pair.partner.standardError();
  const Bytes message = pair.agent.receive();
  ASSERT_EQ(message.size(), 284u);
  EXPECT_EQ(u32At(message, 0), 5u);
  EXPECT_EQ(u32At(message, 4), pair.pid());
  EXPECT_EQ(u64At(message, 8), 284u);
  EXPECT_EQ(u32At(message, 16), kPairs);
  EXPECT_EQ(message[20], 1);
  EXPECT_EQ(u32At(message, 24), 0xFFFFu) << "the pipe of its target";
  char name[256] = "limits";
  EXPECT_EQ(std::memcmp(message.data() + 28, name, sizeof name), 0);
  pair.expectNothingElse();
}

TEST(CounterPartner, AsksTheAgentToStopATable) {
  PartnerBesideRawAgent pair;
  pair.partner.ask("init limits pairs");
  Bytes expected = pair.agent.receive();
  EXPECT_EQ(pair.partner.ask("free pairs"), "done");
  Bytes message = pair.agent.receive();
  ASSERT_EQ(message.size(), 284u);
  EXPECT_EQ(message[20], 0);
  expected[20] = 0;
  for (Bytes* bytes : {&message, &expected}) bytes->erase(bytes->begin() + 21, bytes->begin() + 24);
  EXPECT_EQ(message, expected) << "all but the three bytes that nobody sets is the same";
  pair.expectNothingElse();
}

// The sender does not know where the name ends: the handle keeps all of it for the end.
TEST(CounterPartner, SendsEveryByteOfTheProgramName) {
  const std::string file = counterProgram(21, {4});
  PartnerBesideRawAgent pair({1, file});
  EXPECT_EQ(pair.partner.ask("init-padded counters t1"), "true handle");
  for (const int enable : {1, 0}) {
    const Bytes message = pair.agent.receive();
    ASSERT_EQ(message.size(), 284u);
    EXPECT_EQ(message[20], enable);
    EXPECT_STREQ(reinterpret_cast<const char*>(message.data() + 28), "counters");
    for (size_t i = 28 + 9; i < 284; ++i) ASSERT_EQ(message[i], 0xC7) << i;
    if (enable == 1) pair.partner.ask("free t1");
  }
}

TEST(CounterPartner, MakesTheSegment) {
  removeSegmentFile();
  PartnerBesideRawAgent pair;
  EXPECT_EQ(segmentFile().size, 0u) << "not before it is needed";
  pair.partner.ask("init limits pairs");
  EXPECT_EQ(segmentFile().size, 134217728u);
  EXPECT_EQ(segmentFile().permissions, 0644u);
}

TEST(CounterPartner, MakesABlockOfZeros) {
  PartnerBesideRawAgent pair;
  pair.partner.ask("init limits pairs");
  const CounterSegment segment = CounterSegment::open();
  ASSERT_FALSE(segment.none());
  EXPECT_EQ(segment.blocks(), 1u);
  EXPECT_EQ(segment.block(std::to_string(kPairs)), Bytes(12 + 16 * kPairCount, 0));
}

TEST(CounterPartner, MakesABlockOfAHeaderForATableWithoutEntries) {
  PartnerBesideRawAgent pair;
  EXPECT_EQ(pair.partner.ask("init limits no_pairs"), "true handle");
  EXPECT_EQ(CounterSegment::open().block(std::to_string(kNoPairs)), Bytes(12, 0));
  EXPECT_EQ(pair.partner.ask("read no_pairs 0 0"), "true 0");
}

TEST(CounterPartner, MakesOneSegmentForAllTables) {
  PartnerBesideRawAgent pair;
  pair.partner.ask("init limits pairs");
  const uint64_t inode = segmentFile().inode;
  pair.partner.ask("init limits no_pairs");
  EXPECT_EQ(segmentFile().inode, inode);
  EXPECT_EQ(CounterSegment::open().blocks(), 2u);
}

// The agent looks for the block as soon as it has the request.
TEST(CounterPartner, HasTheBlockReadyWhenItAsks) {
  PartnerBesideRawAgent pair;
  for (const char* table : {"pairs", "no_pairs"}) {
    pair.partner.say(std::string("init limits ") + table);
    const Bytes message = pair.agent.receive();
    EXPECT_FALSE(CounterSegment::open().block(std::to_string(u32At(message, 16))).empty());
    EXPECT_EQ(pair.partner.readLine(), "true handle");
  }
}

TEST(CounterPartner, TakesTheNameFromASegmentThatWasLeft) {
  CounterSegment left = CounterSegment::create();
  left.makeBlock(std::to_string(kPairs), 1);
  left.fill(std::to_string(kPairs), 0x5A);
  const uint64_t inode = segmentFile().inode;
  PartnerBesideRawAgent pair;
  EXPECT_EQ(segmentFile().inode, inode) << "a start-up leaves it alone";
  EXPECT_EQ(pair.partner.ask("init limits pairs"), "true handle");
  EXPECT_NE(segmentFile().inode, inode);
  EXPECT_EQ(CounterSegment::open().block(std::to_string(kPairs)), Bytes(12 + 16 * 16, 0));
  EXPECT_EQ(left.block(std::to_string(kPairs)), Bytes(12 + 16, 0x5A)) << "whoever maps it keeps it";
}

TEST(CounterPartner, DoesNothingWhenATableIsStartedTwice) {
  PartnerBesideRawAgent pair;
  EXPECT_EQ(pair.partner.ask("init limits pairs"), "true handle");
  CounterSegment::open().fill(std::to_string(kPairs), 1);
  EXPECT_EQ(pair.partner.ask("init limits pairs"), "true untouched");
  EXPECT_EQ(CounterSegment::open().block(std::to_string(kPairs)), Bytes(12 + 16 * 16, 1));
  EXPECT_EQ(u32At(pair.agent.receive(), 0), 5u);
  pair.expectNothingElse();
  EXPECT_EQ(pair.partner.ask("read pairs 0 0"), "true 72340172838076673") << "the first one works";
}

TEST(CounterPartner, ReadsWhatStandsInTheBlock) {
  PartnerBesideRawAgent pair;
  pair.partner.ask("init limits pairs");
  EXPECT_EQ(pair.partner.ask("read pairs 0 2"), "true 0 0:0 0:0") << "before the first sync";
  CounterSegment segment = CounterSegment::open();
  Bytes block(12 + 16 * kPairCount);
  putU32(block, 0, 0xBAD0BAD0);
  putU64(block, 4, 1234567890123);
  for (size_t i = 0; i < kPairCount; ++i) {
    putU64(block, 12 + 16 * i, 1000 + i);
    putU64(block, 20 + 16 * i, (uint64_t{1} << 63) + i);
  }
  segment.write(std::to_string(kPairs), block);
  EXPECT_EQ(pair.partner.ask("read pairs 0 2"),
            "true 1234567890123 1000:9223372036854775808 1001:9223372036854775809");
  EXPECT_EQ(pair.partner.ask("read pairs 15 1"), "true 1234567890123 1015:9223372036854775823");
  std::string all = "true 1234567890123";
  for (size_t i = 0; i < kPairCount; ++i) {
    all += " " + std::to_string(1000 + i) + ":" + std::to_string((uint64_t{1} << 63) + i);
  }
  EXPECT_EQ(pair.partner.ask("read pairs 0 16"), all);
}

TEST(CounterPartner, ReadsNothingButTheTimeWithACountOfZero) {
  PartnerBesideRawAgent pair;
  pair.partner.ask("init limits pairs");
  Bytes block(12 + 16 * kPairCount, 0xFF);
  putU64(block, 4, 77);
  CounterSegment::open().write(std::to_string(kPairs), block);
  EXPECT_EQ(pair.partner.ask("read pairs 0 0"), "true 77");
  EXPECT_EQ(pair.partner.ask("read pairs 16 0"), "true 77");
}

TEST(CounterPartner, ReadsNothingWithAHandleWithoutValues) {
  PartnerBesideRawAgent pair;
  EXPECT_EQ(pair.partner.ask("read-none"), "false");
}

TEST(CounterPartner, ReadingSendsNothing) {
  PartnerBesideRawAgent pair;
  pair.partner.ask("init limits pairs");
  pair.agent.receive();
  for (int i = 0; i < 10; ++i) pair.partner.ask("read pairs 0 16");
  pair.expectNothingElse();
}

// It does not wait for the agent, which may have handled nothing at all.
TEST(CounterPartner, DestroysTheBlockAtOnce) {
  PartnerBesideRawAgent pair;
  pair.partner.ask("init limits pairs");
  pair.partner.ask("init limits no_pairs");
  const CounterSegment segment = CounterSegment::open();
  EXPECT_EQ(pair.partner.ask("free pairs"), "done");
  EXPECT_TRUE(segment.block(std::to_string(kPairs)).empty());
  EXPECT_EQ(segment.block(std::to_string(kNoPairs)).size(), 12u) << "others stay";
  EXPECT_EQ(segmentFile().size, 134217728u) << "and so does the segment";
}

TEST(CounterPartner, StartsATableAgainAfterItsEnd) {
  PartnerBesideRawAgent pair;
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(pair.partner.ask("init limits pairs"), "true handle");
    EXPECT_EQ(pair.agent.receive()[20], 1);
    EXPECT_EQ(pair.partner.ask("read pairs 0 1"), "true 0 0:0") << "fresh zeros";
    CounterSegment::open().fill(std::to_string(kPairs), 0xEE);
    EXPECT_EQ(pair.partner.ask("free pairs"), "done");
    EXPECT_EQ(pair.agent.receive()[20], 0);
  }
  EXPECT_EQ(CounterSegment::open().blocks(), 0u);
}

// The later one has the name; the earlier one goes on with what it mapped.
TEST(CounterPartner, LosesTheNameToALaterProcess) {
  PartnerBesideRawAgent pair;
  pair.partner.ask("init limits pairs");
  const uint64_t inode = segmentFile().inode;
  CounterSegment first = CounterSegment::open();
  Child second = startCountingPartner({2, "limits"});
  ASSERT_EQ(second.ask("start"), "true");
  ASSERT_EQ(second.ask("init limits pairs"), "true handle");
  EXPECT_NE(segmentFile().inode, inode);
  first.fill(std::to_string(kPairs), 0x01);
  EXPECT_EQ(pair.partner.ask("read pairs 0 0"), "true 72340172838076673");
  EXPECT_EQ(second.ask("read pairs 0 1"), "true 0 0:0");
}

TEST(CounterPartner, LeavesTheSegmentBehind) {
  {
    PartnerBesideRawAgent pair;
    pair.partner.ask("init limits pairs");
    pair.partner.closeInput();
    EXPECT_EQ(pair.partner.waitForExit().code, 0);
  }
  EXPECT_EQ(segmentFile().size, 134217728u);
}

// A million entries are 16,000,012 bytes.
TEST(CounterPartner, HoldsAMillionEntries) {
  constexpr uint32_t kMillion = 1000000;
  PartnerBesideRawAgent pair({1, counterProgram(22, {kMillion})});
  EXPECT_EQ(pair.partner.ask("init counters t1"), "true handle");
  const std::string name = std::to_string(counterTableId(22, 1));
  Bytes block = CounterSegment::open().block(name);
  ASSERT_EQ(block.size(), 16000012u);
  EXPECT_EQ(block, Bytes(block.size(), 0));
  putU64(block, 12 + 16 * size_t{999999}, 5);
  putU64(block, 20 + 16 * size_t{999999}, 320);
  CounterSegment::open().write(name, block);
  EXPECT_EQ(pair.partner.ask("read t1 999999 1"), "true 0 5:320");
  EXPECT_EQ(pair.partner.ask("read-all t1 1000000"), "sums 5 320");
  EXPECT_EQ(pair.partner.ask("free t1"), "done");
  EXPECT_EQ(CounterSegment::open().blocks(), 0u);
}

TEST(CounterPartner, ThrowsWhenATableDoesNotFit) {
  // Eight million fit, but not twice; the largest table does not fit at all.
  PartnerBesideRawAgent pair({1, counterProgram(23, {8000000, 8000000, 16777216, 4})});
  EXPECT_EQ(pair.partner.ask("init counters t3"), "thrown boost::interprocess::bad_alloc");
  EXPECT_EQ(pair.partner.ask("init counters t1"), "true handle");
  EXPECT_EQ(pair.agent.receive()[20], 1);
  EXPECT_EQ(pair.partner.ask("init counters t2"), "thrown boost::interprocess::bad_alloc");
  pair.expectNothingElse();
  EXPECT_EQ(pair.partner.ask("init counters t4"), "true handle") << "what fits still does";
}

TEST(CounterPartner, StopsWhenNobodyCatchesThat) {
  PartnerBesideRawAgent pair({1, counterProgram(24, {16777216})});
  pair.partner.say("init-uncaught counters t1");
  EXPECT_EQ(pair.partner.waitForExit().signal, SIGABRT);
  const auto lines = linesWith(pair.partner.standardError(), "terminate called");
  ASSERT_EQ(lines.size(), 1u) << pair.partner.standardError();
  EXPECT_NE(lines[0].find("boost::interprocess::bad_alloc"), std::string::npos) << lines[0];
}

TEST(CounterPartner, ThrowsWhenABlockOfTheNameIsThere) {
  PartnerBesideRawAgent pair;
  pair.partner.ask("init limits no_pairs");
  CounterSegment segment = CounterSegment::open();
  segment.makeBlock(std::to_string(kPairs), 1);
  EXPECT_EQ(pair.partner.ask("init limits pairs"),
            "thrown boost::interprocess_exception::library_error");
}

class NullName : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Names, NullName, testing::Values("program", "table"),
                         [](const auto& test) { return test.param; });

TEST_P(NullName, Throws) {
  removeSegmentFile();
  PartnerBesideRawAgent pair;
  EXPECT_EQ(pair.partner.ask("init-null " + GetParam()),
            "thrown basic_string::_M_construct null not valid");
  pair.expectNothingElse();
  EXPECT_EQ(segmentFile().size, 0u);
}

TEST(CounterPartner, StopsOnAnUnknownProgram) {
  PartnerBesideRawAgent pair;
  pair.partner.say("init nothing pairs");
  expectStop(pair.partner, {"Error: Unable to get any jxrtInfo for nothing returns: 6",
                            "JexPartnerLib", "findJxRtTableFromName(", "jx_status == JX_SUCCESS"});
}

TEST(CounterPartner, StopsOnAnUnknownTable) {
  PartnerBesideRawAgent pair;
  pair.partner.say("init limits nothing");
  expectStop(pair.partner, {"Error: Cannot find table: nothing", "JexPartnerLib",
                            "PartnerCounterInit(", "table != NULL"});
}

TEST(CounterPartner, StopsWhenATableTellsNoId) {
  // The start-up asks for ids too, so what is counted begins with the command.
  PartnerBesideRawAgent pair;
  EXPECT_EQ(pair.partner.ask("fault JxRtTable::tableIdGet 3"), "done");
  pair.partner.say("init limits pairs");
  expectStop(pair.partner, {"Error: Cannot get table id for table 0", "JexPartnerLib",
                            "PartnerCounterInit(", "jx_status == JX_SUCCESS"});
}

TEST(CounterPartner, DoesNotLookAtTheStatusOfTheSize) {
  PartnerBesideRawAgent pair;
  EXPECT_EQ(pair.partner.ask("fault JxRtTable::tableSizeGet 3"), "done");
  EXPECT_EQ(pair.partner.ask("init limits pairs"), "true handle");
  EXPECT_EQ(CounterSegment::open().block(std::to_string(kPairs)).size(), 12u);
}

TEST(CounterPartner, StopsOnAHandleThatIsInNoMap) {
  PartnerBesideRawAgent pair;
  pair.partner.say("free-unknown 77");
  const Bytes message = pair.agent.receive();
  EXPECT_EQ(u32At(message, 16), 77u) << "the request leaves before";
  EXPECT_EQ(message[20], 0);
  expectStop(pair.partner, {"Error: Cannot find counter handle in map to delete", "JexPartnerLib",
                            "PartnerCounterFree(", "false"});
}

// Names of blocks are table ids in decimal, as they are.
class NamedBlock : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Ids, NamedBlock, testing::Values(0, 1, 9, 10, 99, 100, 4294967295u));

TEST_P(NamedBlock, HasTheTableIdForAName) {
  PartnerBesideRawAgent pair({}, {{kTableAliasVariable, tableAlias("pairs", GetParam())}});
  EXPECT_EQ(pair.partner.ask("init limits pairs"), "true handle");
  EXPECT_EQ(u32At(pair.agent.receive(), 16), GetParam());
  const std::string names[] = {"0", "1", "9", "10", "99", "100", "4294967295"};
  const CounterSegment segment = CounterSegment::open();
  for (const std::string& name : names) {
    const bool own = name == std::to_string(GetParam());
    EXPECT_EQ(segment.block(name).size(), own ? 12 + 16 * kPairCount : 0u) << name;
  }
  EXPECT_EQ(segment.blocks(), 1u);
  EXPECT_EQ(pair.partner.ask("free pairs"), "done");
  EXPECT_EQ(segment.blocks(), 0u);
}

}  // namespace
}  // namespace jextest
