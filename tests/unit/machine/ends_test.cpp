// What follows the pipelines: drops, multicast, clones, resubmitting, recirculation, digests.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "unit/machine/machine_builder.h"

namespace jxmachinetest {
namespace {

using namespace jxmodel;
using Packets = std::vector<std::string>;

// Packets with a label of one byte. Egress appends a header with what it knows of the packet.
struct EndsBench {
  Builder builder;
  uint32_t label = builder.header("label", {8});
  uint32_t meta = builder.metadata("meta", {8, 8});

  EndsBench() { builder.state({Extract{ExtractHeader{label}, {}}}); }

  Expression isLabel(uint64_t value) {
    return Builder::binary(ExprOp::kEqual, Builder::of(builder.field(label, 0)),
                           builder.constant(value));
  }
  Expression isType(uint64_t value) {
    return Builder::binary(ExprOp::kEqual, Builder::of(builder.instance_type),
                           builder.constant(value));
  }
  MachineStep setLabel(uint64_t value) { return builder.set(builder.field(label, 0), value); }
  MachineStep markToDrop() { return MarkToDropStep{builder.egress_spec, builder.mcast_grp}; }
};

TEST(Ends, SendsToPort0WithoutAWord) {
  EndsBench bench;
  EXPECT_EQ(Bench(bench.builder).run("aabb"), Packets{"0: aabb"});
}

TEST(Ends, DropsAtPort511InBothPipelines) {
  EndsBench ingress;
  ingress.builder.ingress({ingress.builder.set(ingress.builder.egress_spec, kDropPort)});
  Bench sut(ingress.builder);
  EXPECT_EQ(sut.run("aa"), Packets{});
  EXPECT_EQ(sut.pipeline().counts().dropped[static_cast<size_t>(DropReason::kDropAction)], 1U);

  EndsBench egress;
  egress.builder.egress({egress.builder.set(egress.builder.egress_spec, kDropPort)});
  EXPECT_EQ(Bench(egress.builder).run("aa"), Packets{});
}

TEST(Ends, TakesADropBack) {
  EndsBench bench;
  bench.builder.ingress({bench.markToDrop(), bench.builder.set(bench.builder.egress_spec, 3)});
  EXPECT_EQ(Bench(bench.builder).run("aa"), Packets{"3: aa"});
}

TEST(Ends, PutsMulticastBeforeTheDrop) {
  EndsBench bench;
  bench.builder.ingress({bench.builder.set(bench.builder.egress_spec, kDropPort),
                         bench.builder.set(bench.builder.mcast_grp, 5)});
  bench.builder.egress({bench.builder.set(bench.builder.field(bench.label, 0),
                                          Builder::of(bench.builder.egress_rid))});
  Bench sut(bench.builder);
  EXPECT_EQ(sut.run("aa"), Packets{});
  EXPECT_EQ(sut.happened("multicast group without ports"), 1U);
  MachineSettings& settings = sut.settings();
  EXPECT_EQ(settings.createGroup(5), "");
  EXPECT_EQ(settings.createGroup(5), "multicast group 5 exists already");
  const uint32_t first = settings.createNode({7, {4, 2, 2}});
  const uint32_t second = settings.createNode({8, {1}});
  EXPECT_EQ(settings.associate(5, second), "");
  EXPECT_EQ(settings.associate(5, first), "");
  EXPECT_EQ(settings.associate(5, 9), "multicast node 9 does not exist");
  EXPECT_EQ(sut.run("aabb"), (Packets{"1: 08bb", "2: 07bb", "4: 07bb"}));
  EXPECT_EQ(settings.updateNode(first, {3}), "");
  EXPECT_EQ(sut.run("aabb"), (Packets{"1: 08bb", "3: 07bb"}));
  EXPECT_EQ(settings.deleteGroup(5), "");
  EXPECT_EQ(sut.run("aabb"), Packets{});
}

TEST(Ends, DropsMulticastByMarkToDrop) {
  EndsBench bench;
  bench.builder.ingress({bench.builder.set(bench.builder.mcast_grp, 5), bench.markToDrop()});
  Bench sut(bench.builder);
  sut.settings().createGroup(5);
  sut.settings().associate(5, sut.settings().createNode({0, {1}}));
  EXPECT_EQ(sut.run("aa"), Packets{});
}

// An ingress clone has the packet as it came in, an egress clone as it is.
TEST(Ends, ClonesBeforeAndAfterChanges) {
  EndsBench bench;
  bench.builder.ingress({bench.setLabel(0x11), CloneStep{false, bench.builder.constant(4), {}},
                         bench.builder.set(bench.builder.egress_spec, 1)});
  Bench sut(bench.builder);
  EXPECT_EQ(sut.run("aabb"), Packets{"1: 11bb"});
  EXPECT_EQ(sut.happened("unknown clone session"), 1U);
  EXPECT_EQ(sut.settings().setSession({4, 9, {}}), "");
  EXPECT_EQ(sut.run("aabb"), (Packets{"9: aabb", "1: 11bb"}));

  EndsBench after;
  after.builder.egress({JumpIfZeroStep{after.isType(0), 3}, after.setLabel(0x22),
                        CloneStep{true, after.builder.constant(4), {}}});
  Bench later(after.builder);
  EXPECT_EQ(later.settings().setSession({4, 9, {}}), "");
  EXPECT_EQ(later.run("aabb"), (Packets{"0: 22bb", "9: 22bb"}));
}

TEST(Ends, KeepsACloneOfADroppedPacket) {
  EndsBench bench;
  bench.builder.ingress({CloneStep{false, bench.builder.constant(0), {}}, bench.markToDrop()});
  Bench sut(bench.builder);
  sut.settings().setSession({0, 2, {}});
  EXPECT_EQ(sut.run("aa"), Packets{"2: aa"});
}

TEST(Ends, KeepsFieldsOfTheListOnly) {
  EndsBench bench;
  Builder& builder = bench.builder;
  const uint32_t kept = builder.field(bench.meta, 0), lost = builder.field(bench.meta, 1);
  builder.machine.field_lists = {{"list", {kept, builder.egress_port}}};
  builder.ingress({JumpIfZeroStep{bench.isType(0), 4}, builder.set(kept, 7), builder.set(lost, 9),
                   ResubmitStep{0}, builder.set(builder.egress_spec, 1)});
  const uint32_t shown = builder.header("shown", {8, 8, 8});
  builder.egress({AddHeaderStep{shown}, builder.set(builder.field(shown, 0), Builder::of(kept)),
                  builder.set(builder.field(shown, 1), Builder::of(lost)),
                  builder.set(builder.field(shown, 2), Builder::of(builder.ingress_port))});
  Bench sut(builder);
  EXPECT_EQ(sut.run("aabb", 5), Packets{"1: aa070005bb"});
  EXPECT_EQ(sut.happened("resubmitted"), 1U);
}

TEST(Ends, RecirculatesWhatWouldLeave) {
  EndsBench bench;
  Builder& builder = bench.builder;
  const uint32_t more = builder.header("more", {8});
  builder.egress({JumpIfZeroStep{bench.isType(0), 4}, AddHeaderStep{more},
                  builder.set(builder.field(more, 0), 0x55), RecirculateStep{},
                  builder.set(builder.field(bench.label, 0), Builder::of(builder.packet_length))});
  EXPECT_EQ(Bench(builder).run("aabb"), Packets{"0: 0355bb"});
}

TEST(Ends, CutsOffAfterEightGenerations) {
  EndsBench resubmitting;
  resubmitting.builder.ingress({ResubmitStep{}});
  Bench sut(resubmitting.builder);
  EXPECT_EQ(sut.run("aa"), Packets{});
  EXPECT_EQ(sut.happened("resubmitted"), 8U);
  EXPECT_EQ(sut.happened("cut off after too many generations"), 1U);
  EXPECT_EQ(sut.pipeline().counts().dropped[static_cast<size_t>(DropReason::kTooOften)], 1U);

  EndsBench cloning;
  cloning.builder.egress({CloneStep{true, cloning.builder.constant(1), {}}});
  Bench clones(cloning.builder);
  clones.settings().setSession({1, 6, {}});
  EXPECT_EQ(clones.run("aa").size(), 9U);
}

TEST(Ends, StopsAProgramThatLoops) {
  EndsBench bench;
  bench.builder.ingress({JumpStep{0}});
  Bench sut(bench.builder);
  EXPECT_EQ(sut.run("aa"), Packets{});
  EXPECT_EQ(sut.happened("too many steps"), 1U);
  EXPECT_EQ(sut.pipeline().counts().dropped[static_cast<size_t>(DropReason::kEndless)], 1U);
}

TEST(Ends, TruncatesToTheLeast) {
  EndsBench bench;
  bench.builder.ingress(
      {TruncateStep{bench.builder.constant(2)}, TruncateStep{bench.builder.constant(3)}});
  EXPECT_EQ(Bench(bench.builder).run("aabbccdd"), Packets{"0: aabb"});
}

TEST(Ends, EndsIngressOnlyByExit) {
  EndsBench bench;
  bench.builder.ingress({bench.builder.set(bench.builder.egress_spec, 2), ExitStep{},
                         bench.builder.set(bench.builder.egress_spec, 3)});
  bench.builder.ingress({bench.builder.set(bench.builder.egress_spec, 4)});
  bench.builder.egress({bench.setLabel(0x77)});
  EXPECT_EQ(Bench(bench.builder).run("aa"), Packets{"2: 77"});
}

TEST(Ends, SamplesADigestAtTheEndOfIngress) {
  EndsBench bench;
  Builder& builder = bench.builder;
  builder.program.fields = {{"f", 8}};
  Learn learn;
  learn.id = 1;
  learn.name = "seen";
  learn.fields = {{1, 0}};
  builder.program.learns = {learn};
  builder.machine.learns = {{{builder.field(bench.label, 0)}}};
  builder.ingress({DigestStep{0}, bench.setLabel(0x33)});
  builder.egress({DigestStep{0}, bench.setLabel(0x44)});
  Bench sut(builder);
  EXPECT_EQ(sut.run("aa"), Packets{"0: 44"});
  ASSERT_EQ(sut.digests.size(), 1U);
  EXPECT_EQ(hex(sut.digests[0].values), "33");
}

// --- headers and stacks

TEST(Headers, KeepValuesWhereTheyAreValidAlready) {
  EndsBench bench;
  bench.builder.ingress({AddHeaderStep{bench.label}});
  EXPECT_EQ(Bench(bench.builder).run("aa"), Packets{"0: aa"});

  EndsBench again;
  again.builder.ingress(
      {RemoveHeaderStep{again.label}, again.setLabel(9), AddHeaderStep{again.label}});
  EXPECT_EQ(Bench(again.builder).run("aa"), Packets{"0: 00"});
}

TEST(Headers, MoveValidityWithStacks) {
  Builder builder;
  const uint32_t stack = builder.stack("s", 3, {8});
  const std::vector<uint32_t> elements = builder.machine.stacks[stack].headers;
  builder.state({Extract{ExtractNext{stack}, {}}, Extract{ExtractNext{stack}, {}}});
  const uint32_t next = builder.header("next", {8});
  Builder popping = builder;
  popping.ingress({PopStep{stack, 1}, AddHeaderStep{next},
                   popping.set(popping.field(next, 0), Builder::code(ExprOp::kStackSize, stack))});
  EXPECT_EQ(Bench(popping).run("aabbcc"), Packets{"0: bb01cc"});
  Builder pushing = builder;
  pushing.ingress({PushStep{stack, 2}, AddHeaderStep{elements[0]}, AddHeaderStep{next},
                   pushing.set(pushing.field(next, 0), Builder::code(ExprOp::kStackSize, stack))});
  EXPECT_EQ(Bench(pushing).run("aabbcc"), Packets{"0: 00aa03cc"});
}

TEST(Headers, IgnoreElementsBeyondTheirStack) {
  Builder builder;
  const uint32_t stack = builder.stack("s", 2, {8});
  builder.state({Extract{ExtractNext{stack}, {}}, Extract{ExtractNext{stack}, {}}});
  const auto element = [&](uint64_t index) {
    return Builder::unary(ExprOp::kElementField, builder.constant(index), stack, 0);
  };
  const auto target = [&](uint64_t index) {
    return Target{ElementTarget{stack, builder.constant(index), 0}};
  };
  builder.ingress({AssignStep{target(0), element(1)}, AssignStep{target(2), element(1)},
                   AssignStep{target(1), element(7)}});
  Bench sut(builder);
  EXPECT_EQ(sut.run("aabbcc"), Packets{"0: bb00cc"});
  EXPECT_EQ(sut.happened("index out of range"), 2U);
}

// --- checksums, registers, traces

TEST(Checksums, AreVerifiedAndUpdatedWhereTheirHeadersAreValid) {
  Builder builder;
  const uint32_t header = builder.header("h", {16, 16});
  Calculation calculation;
  calculation.inputs = {FieldInput{builder.field(header, 0)}};
  builder.machine.calculations = {calculation};
  Checksum checksum;
  checksum.target = builder.field(header, 1);
  checksum.verify = checksum.update = true;
  builder.machine.checksums = {checksum};
  builder.state({Extract{ExtractHeader{header}, {}}});
  builder.ingress({builder.set(builder.egress_spec, Builder::of(builder.checksum_error)),
                   builder.set(builder.field(header, 0), 0x0102)});
  Bench sut(builder);
  EXPECT_EQ(sut.run("1234edcb55"), Packets{"0: 0102fefd55"});
  EXPECT_EQ(sut.run("1234edcc55"), Packets{"1: 0102fefd55"});
  EXPECT_EQ(sut.run("1234ed"), Packets{"0: 1234ed"});
}

TEST(Registers, StayFromPacketToPacket) {
  EndsBench bench;
  Builder& builder = bench.builder;
  builder.machine.registers = {{"r", 4, 8}};
  const Expression index = Builder::of(builder.ingress_port);
  const uint32_t value = builder.field(bench.meta, 0);
  builder.ingress(
      {RegisterReadStep{FieldTarget{value}, 0, index},
       RegisterWriteStep{0, index,
                         Builder::binary(ExprOp::kAdd, Builder::of(value), builder.constant(200))},
       RegisterReadStep{FieldTarget{builder.field(bench.label, 0)}, 0, index}});
  Bench sut(builder);
  EXPECT_EQ(sut.trace("aa", 3).leaving.at(0).bytes, bytes("c8"));  // it reads what it wrote
  EXPECT_EQ(sut.registerValue(0, 3), 0U);
  EXPECT_EQ(sut.run("aa", 3), Packets{"0: c8"});
  EXPECT_EQ(sut.run("aa", 3), Packets{"0: 90"});
  EXPECT_EQ(sut.registerValue(0, 3), 0x90U);
  EXPECT_EQ(sut.run("aa", 4), Packets{"0: aa"});
  EXPECT_EQ(sut.happened("index out of range"), 3U);
  EXPECT_EQ(sut.settings().writeRegister(0, 4, {1}),
            "index 4 is outside register r, which has 4 cells");
  EXPECT_EQ(sut.settings().resetRegister(0), "");
  EXPECT_EQ(sut.registerValue(0, 3), 0U);
}

TEST(Random, RepeatsWithItsSeed) {
  EndsBench bench;
  Builder& builder = bench.builder;
  builder.ingress({RandomStep{FieldTarget{builder.field(bench.label, 0)}, builder.constant(10),
                              builder.constant(13)}});
  Bench sut(builder);
  std::vector<std::string> first, again;
  for (int i = 0; i < 50; ++i) first.push_back(sut.run("aa").at(0));
  sut.settings().seed(1);
  for (int i = 0; i < 50; ++i) again.push_back(sut.run("aa").at(0));
  EXPECT_EQ(first, again);
  for (const char* const wanted : {"0: 0a", "0: 0b", "0: 0c", "0: 0d"}) {
    EXPECT_NE(std::find(first.begin(), first.end(), wanted), first.end()) << wanted;
  }
}

TEST(Trace, ShowsStatesStepsAndWhatLeaves) {
  EndsBench bench;
  bench.builder.machine.states[0].place = {"a.p4", 12, "packet.extract(label);"};
  bench.builder.ingress({bench.markToDrop(), bench.builder.set(bench.builder.egress_spec, 3)});
  Bench sut(bench.builder);
  EXPECT_EQ(sut.trace("aabb", 2).text(),
            "hand_made, from port 2\n"
            "  parser state state_0: extract label  (a.p4:12: packet.extract(label);)\n"
            "  ingress\n"
            "  call_0\n"
            "  mark to drop\n"
            "  egress to port 3\n"
            "  leaves through port 3\n"
            "  port 3: 0xaabb\n"
            "  forwarded to port 3");
  EXPECT_EQ(sut.pipeline().counts().received, 0U);
}

// --- threads

TEST(Settings, ChangeWhilePacketsRun) {
  EndsBench bench;
  Builder& builder = bench.builder;
  builder.machine.registers = {{"narrow", 4, 32}, {"wide", 4, 200}};
  builder.machine.meters.resize(1);
  builder.machine.meters[0].size = 4;
  const Expression index = builder.constant(1);
  builder.ingress({RegisterWriteStep{0, index, Builder::of(builder.ingress_port)},
                   RegisterWriteStep{1, index, Builder::of(builder.ingress_port)},
                   ExecuteMeterStep{0, index, FieldTarget{builder.field(bench.meta, 0)}},
                   CloneStep{false, builder.constant(3), {}}, builder.set(builder.mcast_grp, 6)});
  Bench sut(builder);
  MachineSettings& settings = sut.settings();
  ASSERT_EQ(settings.createGroup(6), "");
  const uint32_t node = settings.createNode({1, {1}});
  ASSERT_EQ(settings.associate(6, node), "");
  std::atomic<uint64_t> wrong{0};
  struct Nowhere final : Egress {
    void send(uint32_t port, PacketBuffer&&) override {
      wrong_ports += port == 1 || port == 2 ? 0 : 1;
    }
    void flood(uint32_t, PacketBuffer&&) override { ++wrong_ports; }
    uint64_t wrong_ports = 0;
  };
  std::vector<std::thread> threads;
  for (uint32_t thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&, thread] {
      Nowhere egress;
      const Bytes data = bytes("aabb");
      for (int i = 0; i < 2000; ++i) {
        sut.pipeline().forward(thread, PacketBuffer(data.data(), data.size()), egress, nullptr);
      }
      wrong += egress.wrong_ports;
    });
  }
  for (uint32_t i = 0; i < 500; ++i) {
    settings.updateNode(node, {i % 2 + 1});
    settings.setSession({3, 1, {}});
    settings.setMeterRates(0, 1, MachineSettings::Rates{{1, 1}, {1, 1}});
    Bytes value;
    settings.readRegister(1, 1, &value);
    settings.deleteSession(3);
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(sut.pipeline().counts().received, 6000U);
}

}  // namespace
}  // namespace jxmachinetest
