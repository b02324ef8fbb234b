// The parser: what each event leaves behind.
#include <gtest/gtest.h>

#include "unit/machine/machine_builder.h"

namespace jxmachinetest {
namespace {

using namespace jxmodel;
using Packets = std::vector<std::string>;

// A result header in front shows the parser's error (8 bits) and the validity of a header.
struct ParserBench {
  Builder builder;
  uint32_t result = builder.header("result", {8});

  Bench make() {
    builder.ingress({AddHeaderStep{result},
                     builder.set(builder.field(result, 0), Builder::of(builder.parser_error)),
                     builder.set(builder.egress_spec, 3)});
    return Bench(builder);
  }
};

TEST(Parser, LeavesAPacketThatIsTooShortAsPayload) {
  ParserBench bench;
  const uint32_t header = bench.builder.header("h", {16, 16});
  bench.builder.state({Extract{ExtractHeader{header}, {}}});
  Bench sut = bench.make();
  EXPECT_EQ(sut.run("aabbcc"), Packets{"3: 01aabbcc"});
  EXPECT_EQ(sut.run("aabbccddee"), Packets{"3: 00aabbccddee"});
  EXPECT_EQ(sut.run(""), Packets{"3: 01"});
  EXPECT_EQ(sut.happened("parser error PacketTooShort"), 2U);
}

// length (8 bits), then a varbit of as many bits, at most 16.
struct VarbitBench : ParserBench {
  uint32_t header = builder.varbitHeader("v", {8}, 16);
  Bench make() {
    const Expression length = Builder::code(ExprOp::kLookahead, 0, 8);
    builder.state({Extract{ExtractHeader{header}, length}});
    return ParserBench::make();
  }
};

TEST(Parser, ChecksVarbitsInOrder) {
  Bench sut = VarbitBench().make();
  EXPECT_EQ(sut.run("18 5a5a5a"), Packets{"3: 04185a5a5a"});  // longer than the field
  EXPECT_EQ(sut.run("10 5a"), Packets{"3: 01105a"});          // longer than the packet
  EXPECT_EQ(sut.run("18 5a"), Packets{"3: 01185a"});          // both
  EXPECT_EQ(sut.run("01 5a"), Packets{"3: 06015a"});          // no whole bytes
  EXPECT_EQ(sut.run("ff"), Packets{"3: 06ff"});
  EXPECT_EQ(sut.run("10 5a6b7c"), Packets{"3: 00105a6b7c"});
  EXPECT_EQ(sut.run("00"), Packets{"3: 0000"});
}

TEST(Parser, StopsAtTheEndOfAStackBeforeItLooksAtTheLength) {
  ParserBench bench;
  const uint32_t stack = bench.builder.stack("s", 2, {8});
  const uint32_t state = bench.builder.state({Extract{ExtractNext{stack}, {}}});
  bench.builder.goOn(state, state);
  Bench sut = bench.make();
  EXPECT_EQ(sut.run("0102"), Packets{"3: 030102"});
  EXPECT_EQ(sut.run("01020304"), Packets{"3: 0301020304"});
  EXPECT_EQ(sut.run("01"), Packets{"3: 0101"});
}

TEST(Parser, LosesWhatItAdvancesOver) {
  ParserBench bench;
  const uint32_t state = bench.builder.state({Advance{bench.builder.constant(16)}});
  bench.builder.machine.states[state].transitions.clear();
  Bench sut = bench.make();
  EXPECT_EQ(sut.run("aabbcc"), Packets{"3: 00cc"});
  EXPECT_EQ(sut.run("aa"), Packets{"3: 01aa"});

  ParserBench odd;
  odd.builder.state({Advance{odd.builder.constant(12)}});
  EXPECT_EQ(odd.make().run("aabbcc"), Packets{"3: 06aabbcc"});
}

TEST(Parser, TakesTheErrorOfAVerify) {
  ParserBench bench;
  const uint32_t header = bench.builder.header("h", {8});
  const Expression is_4 = Builder::binary(
      ExprOp::kEqual, Builder::of(bench.builder.field(header, 0)), bench.builder.constant(4));
  bench.builder.state({Extract{ExtractHeader{header}, {}}, Verify{is_4, bench.builder.constant(42)},
                       Advance{bench.builder.constant(8)}});
  Bench sut = bench.make();
  EXPECT_EQ(sut.run("0499aa"), Packets{"3: 0004aa"});
  EXPECT_EQ(sut.run("0599aa"), Packets{"3: 2a0599aa"});
  EXPECT_EQ(sut.happened("parser error of no name"), 1U);
}

TEST(Parser, ReportsALookaheadBeyondThePacket) {
  ParserBench bench;
  const uint32_t meta = bench.builder.metadata("m", {16});
  bench.builder.state({MachineStep{
      bench.builder.set(bench.builder.field(meta, 0), Builder::code(ExprOp::kLookahead, 0, 16))}});
  Bench sut = bench.make();
  EXPECT_EQ(sut.run("aa"), Packets{"3: 01aa"});
  EXPECT_EQ(sut.run("aabb"), Packets{"3: 00aabb"});
}

TEST(Parser, ReportsTheLastElementOfAnEmptyStack) {
  ParserBench bench;
  const uint32_t stack = bench.builder.stack("s", 2, {8});
  const uint32_t meta = bench.builder.metadata("m", {8});
  bench.builder.state({MachineStep{bench.builder.set(
      bench.builder.field(meta, 0), Builder::code(ExprOp::kStackLast, stack, 0))}});
  EXPECT_EQ(bench.make().run("aa"), Packets{"3: 03aa"});
}

TEST(Parser, EndsAfter1000States) {
  ParserBench bench;
  const uint32_t state = bench.builder.state({});
  bench.builder.goOn(state, state);
  EXPECT_EQ(bench.make().run("aa"), Packets{"3: 05aa"});
}

// Keys of 12 and 4 bits, each in whole bytes; nothing else matches.
TEST(Parser, PadsEachPartOfAKey) {
  ParserBench bench;
  const uint32_t header = bench.builder.header("h", {12, 4});
  const uint32_t more = bench.builder.header("more", {8});
  const uint32_t first = bench.builder.state({Extract{ExtractHeader{header}, {}}});
  const uint32_t next = bench.builder.state({Extract{ExtractHeader{more}, {}}});
  ParserState& state = bench.builder.machine.states[first];
  state.key = {{Builder::of(bench.builder.field(header, 0)), 12},
               {Builder::of(bench.builder.field(header, 1)), 4}};
  Transition transition;
  transition.kind = Transition::Kind::kValue;
  transition.value = bytes("0aba03");
  transition.mask = bytes("ffffff");
  transition.next = next;
  state.transitions = {transition};
  Bench sut = bench.make();
  EXPECT_EQ(sut.run("aba3"), Packets{"3: 01aba3"});  // taken: there is no byte for more
  EXPECT_EQ(sut.run("aba4"), Packets{"3: 02aba4"});  // NoMatch
}

TEST(Parser, ComparesValuesUnderTheirMasks) {
  ParserBench bench;
  const uint32_t header = bench.builder.header("h", {16});
  const uint32_t more = bench.builder.header("more", {8});
  const uint32_t first = bench.builder.state({Extract{ExtractHeader{header}, {}}});
  const uint32_t next = bench.builder.state({Extract{ExtractHeader{more}, {}}});
  ParserState& state = bench.builder.machine.states[first];
  state.key = {{Builder::of(bench.builder.field(header, 0)), 16}};
  Transition transition;
  transition.kind = Transition::Kind::kValue;
  transition.value = bytes("1111");
  transition.mask = bytes("000f");
  transition.next = next;
  state.transitions = {transition, Transition{}};
  Bench sut = bench.make();
  EXPECT_EQ(sut.run("2221"), Packets{"3: 012221"});
  EXPECT_EQ(sut.run("2222"), Packets{"3: 002222"});
}

TEST(Parser, AsksValueSets) {
  ParserBench bench;
  const uint32_t header = bench.builder.header("h", {4, 12});
  const uint32_t more = bench.builder.header("more", {8});
  ValueSet set;
  set.name = "set";
  set.widths = {4, 12};
  set.compressed_width = 16;
  set.size = 2;
  bench.builder.machine.value_sets = {set};
  const uint32_t first = bench.builder.state({Extract{ExtractHeader{header}, {}}});
  const uint32_t next = bench.builder.state({Extract{ExtractHeader{more}, {}}});
  ParserState& state = bench.builder.machine.states[first];
  state.key = {{Builder::of(bench.builder.field(header, 0)), 4},
               {Builder::of(bench.builder.field(header, 1)), 12}};
  Transition transition;
  transition.kind = Transition::Kind::kValueSet;
  transition.next = next;
  state.transitions = {transition, Transition{}};
  Bench sut = bench.make();
  EXPECT_EQ(sut.run("1234"), Packets{"3: 001234"});
  const MachineSettings::Member member{bytes("1234"), bytes("fff0")};
  EXPECT_EQ(sut.settings().addMember(0, member), "");
  EXPECT_EQ(sut.settings().addMember(0, member), "the member is in value set set");
  EXPECT_EQ(sut.run("1239"), Packets{"3: 011239"});
  EXPECT_EQ(sut.run("2234"), Packets{"3: 002234"});
  EXPECT_EQ(sut.settings().removeMember(0, member), "");
  EXPECT_EQ(sut.run("1234"), Packets{"3: 001234"});
}

TEST(Parser, KeepsOneMemberOfAUnion) {
  ParserBench bench;
  const uint32_t one = bench.builder.header("u.a", {8});
  const uint32_t other = bench.builder.header("u.b", {8});
  bench.builder.unionOf("u", {one, other});
  bench.builder.state({Extract{ExtractHeader{one}, {}}, Extract{ExtractHeader{other}, {}}});
  EXPECT_EQ(bench.make().run("aabb"), Packets{"3: 00bb"});
}

TEST(Parser, ReadsFieldsAtAnyBit) {
  ParserBench bench;
  const uint32_t header = bench.builder.header("h", {3, 70, 7, 128, 64, 48, 16});
  const uint32_t copy = bench.builder.header("c", {3, 70, 7, 128, 64, 48, 16});
  bench.builder.state({Extract{ExtractHeader{header}, {}}});
  bench.builder.ingress({AssignHeaderStep{copy, header}, RemoveHeaderStep{header}});
  const std::string data =
      "a1b2c3d4e5f60718293a4b5c6d7e8f90112233445566778899aabbccddeeff0102030405060708";
  ASSERT_EQ(bytes(data).size(), 39U);
  const std::string whole = data + "0a0b0c";
  EXPECT_EQ(bench.make().run(whole + "77"), Packets{"3: 00" + whole + "77"});
}

// Headers of the packet before are gone, and their fields are 0.
TEST(Parser, LeavesNothingToTheNextPacket) {
  ParserBench bench;
  const uint32_t header = bench.builder.header("h", {16});
  const uint32_t shown = bench.builder.header("shown", {16});
  bench.builder.state({Extract{ExtractHeader{header}, {}}});
  bench.builder.ingress(
      {AddHeaderStep{shown}, bench.builder.set(bench.builder.field(shown, 0),
                                               Builder::of(bench.builder.field(header, 0)))});
  Bench sut = bench.make();
  EXPECT_EQ(sut.run("1234"), Packets{"3: 0012341234"});
  EXPECT_EQ(sut.run("12"), Packets{"3: 01000012"});
}

}  // namespace
}  // namespace jxmachinetest
