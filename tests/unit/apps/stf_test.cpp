// Packet tests: how their lines are read, what they ask of a device, and how a run is judged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "setup_requests.h"
#include "stf_commands.h"
#include "stf_judge.h"

namespace {

using jx::control::v1::ApplyRequest;
using jx::control::v1::KeyField;
using jx::control::v1::ProgramDescription;
using stf::Difference;
using stf::Left;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Key = ProgramDescription::Key;

template <typename Command>
Command parsed(const std::string& line) {
  const auto command = stf::parseLine(line);
  EXPECT_TRUE(command && std::holds_alternative<Command>(*command)) << line;
  return std::get<Command>(*command);
}

template <typename Function>
std::string errorOf(Function function) {
  try {
    function();
  } catch (const stf::Error& error) {
    return error.what();
  }
  return "no error";
}

std::string parseError(const std::string& line) {
  return errorOf([&line] { stf::parseLine(line); });
}

// --- lines

TEST(StfLine, IsNothingWhereItIsBlankOrAComment) {
  EXPECT_FALSE(stf::parseLine("").has_value());
  EXPECT_FALSE(stf::parseLine("  \t# add t k:1 a()\r").has_value());
}

TEST(StfLine, TakesKeywordsInAnyCase) {
  EXPECT_EQ(parsed<stf::PacketIn>("PACKET 1 00").port, 1U);
  EXPECT_EQ(parsed<stf::Expect>("Expect 2 ff$").port, 2U);
}

TEST(StfLine, ReadsAPacketWhoseBlanksMeanNothing) {
  const auto packet = parsed<stf::PacketIn>("packet 511 00 AB cdef 0 1 # five bytes");
  EXPECT_EQ(packet.port, 511U);
  EXPECT_EQ(packet.digits, "00abcdef01");
}

TEST(StfLine, ReadsTheFormsOfExpect) {
  const auto any = parsed<stf::Expect>("expect 3");
  EXPECT_FALSE(any.digits.has_value());
  const auto open = parsed<stf::Expect>("expect 3 0a ** f*");
  EXPECT_EQ(open.digits, "0a**f*");
  EXPECT_FALSE(open.whole);
  for (const char* const line : {"expect 3 0a$", "expect 3 0a $ "}) {
    const auto whole = parsed<stf::Expect>(line);
    EXPECT_EQ(whole.digits, "0a");
    EXPECT_TRUE(whole.whole);
  }
}

TEST(StfLine, ReadsAnEntryWithPriorityKeysActionAndId) {
  const auto add = parsed<stf::Add>(
      "add ingress.t 10 hdr.h[0].f:0x0a/8 \"odd name\".$valid$ : 1 r:1->0x20 "
      "m:0x5&&&0xf set_port(port:7, vid : 0b11) = e1");
  EXPECT_EQ(add.table, "ingress.t");
  EXPECT_EQ(add.priority, 10U);
  ASSERT_THAT(add.key, SizeIs(4));
  EXPECT_EQ(add.key[0].name, "hdr.h[0].f");
  EXPECT_EQ(add.key[0].form, stf::KeyValue::Form::kPrefix);
  EXPECT_EQ(add.key[0].prefix, 8U);
  EXPECT_EQ(add.key[1].name, "odd name.$valid$");
  EXPECT_EQ(add.key[1].value, "1");
  EXPECT_EQ(add.key[2].form, stf::KeyValue::Form::kRange);
  EXPECT_EQ(add.key[2].second, "0x20");
  EXPECT_EQ(add.key[3].form, stf::KeyValue::Form::kMask);
  EXPECT_EQ(add.call.action, "set_port");
  ASSERT_THAT(add.call.arguments, SizeIs(2));
  EXPECT_EQ(add.call.arguments[1].name, "vid");
  EXPECT_EQ(add.call.arguments[1].value, "0b11");
  EXPECT_EQ(add.id, "e1");
}

TEST(StfLine, ReadsReferencesInPlaceOfActions) {
  EXPECT_EQ(parsed<stf::Add>("add t k:1 member(5)").call.member, 5U);
  EXPECT_EQ(parsed<stf::SetDefault>("setdefault t group(0x10)").call.group, 16U);
  const auto action = parsed<stf::Add>("add t k:1 member(port:5)");
  EXPECT_EQ(action.call.action, "member");
  EXPECT_THAT(parsed<stf::AddGroup>("group p 1 2 3 4").members, ElementsAre(2, 3, 4));
  EXPECT_EQ(parsed<stf::AddMember>("member p 9 a()").id, 9U);
}

TEST(StfLine, ReadsAKeyThatEndsInACall) {
  EXPECT_EQ(parsed<stf::Add>("add t hdr.h.isValid():1 a()").key.at(0).name, "hdr.h.isValid()");
}

TEST(StfLine, ReadsTheCommandsOfSettings) {
  EXPECT_EQ(parsed<stf::SetSession>("mirroring_add 5 9").port, 9U);
  EXPECT_EQ(parsed<stf::SetSession>("mirroring_add_mc 5 9").group, 9U);
  EXPECT_EQ(parsed<stf::DeleteSession>("mirroring_delete 5").session, 5U);
  EXPECT_EQ(parsed<stf::CreateGroup>("mc_mgrp_create 7").group, 7U);
  EXPECT_THAT(parsed<stf::CreateNode>("mc_node_create 3 1 2").ports, ElementsAre(1, 2));
  EXPECT_EQ(parsed<stf::UpdateNode>("mc_node_update 0 4").node, 0U);
  EXPECT_EQ(parsed<stf::Associate>("mc_node_associate 7 0").group, 7U);
  EXPECT_EQ(parsed<stf::WriteRegister>("register_write r 2 0xff").value, "0xff");
  EXPECT_EQ(parsed<stf::ResetRegister>("register_reset r").name, "r");
  EXPECT_EQ(parsed<stf::WriteCounter>("counter_write c 1 2 3").bytes, 3U);
  const auto meter = parsed<stf::SetMeter>("meter_set_rates m 1 0.5:100 2:200");
  EXPECT_EQ(meter.index, 1U);
  EXPECT_DOUBLE_EQ(meter.committed.per_microsecond, 0.5);
  EXPECT_EQ(meter.peak.burst, 200U);
  EXPECT_FALSE(parsed<stf::SetMeter>("meter_array_set_rates m 1:1 2:2").index.has_value());
  EXPECT_EQ(parsed<stf::ChangeValueSet>("vset_add v 0x10 &&& 0xf0").mask, "0xf0");
}

TEST(StfLine, ReadsChecksOfCounters) {
  const auto check = parsed<stf::CheckCounter>("check_counter ingress.c(3) packets >= 7");
  EXPECT_EQ(check.index, "3");
  ASSERT_TRUE(check.condition.has_value());
  EXPECT_EQ(check.condition->test, stf::CheckCounter::Test::kGreaterEqual);
  EXPECT_TRUE(parsed<stf::CheckCounter>("check_counter c(0) bytes<5").condition->bytes);
  EXPECT_FALSE(parsed<stf::CheckCounter>("check_counter c(0)").condition.has_value());
}

TEST(StfLine, SaysWhatIsWrongWithIt) {
  EXPECT_EQ(parseError("frobnicate 1"), "'frobnicate' is not a command");
  EXPECT_EQ(parseError("packet 512 00"), "port: 512 is above 511, the greatest there is");
  EXPECT_EQ(parseError("packet 0x1 00"), "port '0x1' is not a decimal number");
  EXPECT_EQ(parseError("packet 1 0"), "a packet of 1 digits: two are needed for each byte");
  EXPECT_EQ(parseError("packet 1 0*"), "'*' is not a hexadecimal digit");
  EXPECT_EQ(parseError("packet 1"), "a packet without bytes");
  EXPECT_EQ(parseError("expect 1 0g"), "'g' is not a hexadecimal digit");
  EXPECT_EQ(parseError("add t k:1"), "an action is missing at the end of the line");
  EXPECT_EQ(parseError("add t k:1 a(x:1 y:2)"),
            "',' is missing between the values of action a before 'y:2)'");
  EXPECT_EQ(parseError("add t k:1 a() b"), "'b' is too much");
  EXPECT_EQ(parseError("remove some"), "remove takes the word all and nothing else");
  EXPECT_EQ(parseError("meter_set_rates m 1 7 8"), "'7' is not RATE:BURST, 0.5:100 say");
  EXPECT_EQ(parseError("check_counter c(1) packets 5"),
            "a comparison is missing: ==, !=, <, <=, > or >=");
}

TEST(StfText, NamesFileAndLineOfAnError) {
  EXPECT_EQ(errorOf([] { stf::parseText("# one\npacket 1 00\nwhat\n", "a.stf"); }),
            "a.stf:3: 'what' is not a command");
}

TEST(StfText, RefusesBothFormsOfExpectOnOnePort) {
  EXPECT_EQ(errorOf([] { stf::parseText("expect 1 00\nexpect 2\nexpect 1\n", "a.stf"); }),
            "a.stf:3: port 1 expects packets with and without content, see line 1: choose one form "
            "for it");
}

// --- requests

ProgramDescription::Table* addTable(ProgramDescription* program, const std::string& name) {
  auto* const table = program->add_tables();
  table->set_name(name);
  table->set_kind(jx::control::v1::TABLE_KIND_MATCH_DIRECT);
  auto* const action = table->add_actions();
  action->set_name("ingress.set_port");
  auto* const param = action->add_params();
  param->set_name("port");
  param->set_width(9);
  return table;
}

void addKey(ProgramDescription::Table* table, const std::string& name, uint32_t width,
            Key::Match match) {
  auto* const key = table->add_key();
  key->set_name(name);
  key->set_width(width);
  key->set_match(match);
}

/// The first key field that a table with one key field gets for what is written.
KeyField keyFor(Key::Match match, uint32_t width, const std::string& written) {
  ProgramDescription program;
  addKey(addTable(&program, "t"), "k", width, match);
  const auto command = stf::parseLine("add t " + written + " set_port(port:1)");
  return stf::Names(program).request(*command).add_entry().key(0);
}

std::string keyError(Key::Match match, uint32_t width, const std::string& written) {
  return errorOf([&] { keyFor(match, width, written); });
}

std::string bytes(std::initializer_list<int> values) { return {values.begin(), values.end()}; }

TEST(StfKey, TakesNumbersOfAllBases) {
  for (const char* const written : {"k:266", "k:0x10a", "k:0X010A", "k:0b100001010"}) {
    EXPECT_EQ(keyFor(Key::MATCH_EXACT, 9, written).exact(), bytes({1, 10})) << written;
  }
  EXPECT_EQ(keyFor(Key::MATCH_EXACT, 1, "k:true").exact(), bytes({1}));
  EXPECT_EQ(keyFor(Key::MATCH_EXACT, 128, "k:340282366920938463463374607431768211455").exact(),
            std::string(16, '\xff'));
  EXPECT_EQ(keyError(Key::MATCH_EXACT, 9, "k:512"), "table t, key k: 512 does not fit 9 bits");
  EXPECT_EQ(keyError(Key::MATCH_EXACT, 8, "k:0x100"), "table t, key k: 0x100 does not fit 8 bits");
  EXPECT_EQ(keyError(Key::MATCH_EXACT, 8, "k:12a"), "table t, key k: '12a' is not a number");
  EXPECT_EQ(keyError(Key::MATCH_EXACT, 8, "k:0x1*"), "table t, key k takes a number, not '0x1*'");
}

TEST(StfKey, TakesPrefixesWithLengthWithStarsAndByTheDigitsThatAreWritten) {
  const auto expect = [](const std::string& written, const std::string& value, uint32_t length) {
    const KeyField key = keyFor(Key::MATCH_LPM, 32, written);
    EXPECT_EQ(key.lpm().value(), value) << written;
    EXPECT_EQ(key.lpm().prefix_length(), length) << written;
  };
  expect("k:0x0a01ffff/16", bytes({10, 1, 0, 0}), 16);
  expect("k:0x0a01****", bytes({10, 1, 0, 0}), 16);
  expect("k:0b00001010************************", bytes({10, 0, 0, 0}), 8);
  expect("k:0x0a010203", bytes({10, 1, 2, 3}), 32);
  expect("k:0x12", bytes({0, 0, 0, 0}), 8);  // digits in front are not written
  expect("k:167837955", bytes({10, 1, 1, 3}), 32);
  expect("", bytes({0, 0, 0, 0}), 0);
  EXPECT_EQ(keyError(Key::MATCH_LPM, 32, "k:1/33"),
            "table t, key k: prefix length 33 is beyond the 32 bits of the field");
  EXPECT_EQ(keyError(Key::MATCH_LPM, 32, "k:0x1*2*"),
            "table t, key k: '0x1*2*' has digits behind a star: a prefix has none");
}

TEST(StfKey, MasksTernaryDigitsThatAreStarsOrNotWritten) {
  const auto expect = [](const std::string& written, const std::string& value,
                         const std::string& mask) {
    const KeyField key = keyFor(Key::MATCH_TERNARY, 16, written);
    EXPECT_EQ(key.ternary().value(), value) << written;
    EXPECT_EQ(key.ternary().mask(), mask) << written;
  };
  expect("k:0x25**", bytes({0x25, 0}), bytes({-1, 0}));
  expect("k:0x25", bytes({0, 0x25}), bytes({0, -1}));
  expect("k:0b1**0", bytes({0, 8}), bytes({0, 9}));
  expect("k:0x0a00/8", bytes({10, 0}), bytes({-1, 0}));
  expect("k:0x0aff&&&0xff0f", bytes({10, 15}), bytes({-1, 15}));
  expect("k:*", bytes({0, 0}), bytes({0, 0}));
  expect("", bytes({0, 0}), bytes({0, 0}));
  expect("k:37", bytes({0, 0x25}), bytes({-1, -1}));
}

TEST(StfKey, CutsTheMaskToTheField) {
  const KeyField key = keyFor(Key::MATCH_TERNARY, 9, "k:0x0ff");
  EXPECT_EQ(key.ternary().mask(), bytes({1, -1}));
}

TEST(StfKey, TakesRangesAndOptionalValues) {
  KeyField key = keyFor(Key::MATCH_RANGE, 16, "k:80->0x1bb");
  EXPECT_EQ(key.range().low(), bytes({0, 80}));
  EXPECT_EQ(key.range().high(), bytes({1, -69}));
  key = keyFor(Key::MATCH_RANGE, 9, "");
  EXPECT_EQ(key.range().high(), bytes({1, -1}));
  EXPECT_EQ(keyError(Key::MATCH_RANGE, 16, "k:9->5"),
            "table t, key k takes a range that begins below its end, not '9->5'");
  EXPECT_TRUE(keyFor(Key::MATCH_OPTIONAL, 8, "k:0x11").optional().valid());
  EXPECT_FALSE(keyFor(Key::MATCH_OPTIONAL, 8, "").optional().valid());
  EXPECT_FALSE(keyFor(Key::MATCH_OPTIONAL, 8, "k:0x**").optional().valid());
}

TEST(StfKey, LeavesOutAnExactFieldAsZero) {
  EXPECT_EQ(keyFor(Key::MATCH_EXACT, 16, "").exact(), bytes({0, 0}));
}

/// The value that the key field of this name gets, of those that have another one than 0.
std::string keyNamed(const std::vector<std::string>& names, const std::string& written) {
  ProgramDescription program;
  auto* const table = addTable(&program, "t");
  for (const std::string& name : names) addKey(table, name, 8, Key::MATCH_EXACT);
  const auto request =
      stf::Names(program).request(*stf::parseLine("add t " + written + ":1 set_port(port:1)"));
  for (const KeyField& key : request.add_entry().key()) {
    if (key.exact() != bytes({0})) return key.name();
  }
  return {};
}

TEST(StfNames, FindKeysByTheirEndsAndValidity) {
  EXPECT_EQ(keyNamed({"hdr.a[3].y", "y"}, "hdr.a$3.y"), "hdr.a[3].y");
  EXPECT_EQ(keyNamed({"hdr.a.x", "x"}, "x"), "x");
  EXPECT_EQ(keyNamed({"hdr.a.x", "hdr.ax"}, "x"), "hdr.a.x");
  EXPECT_EQ(keyNamed({"h.$valid$", "h.f"}, "h"), "h.$valid$");
  EXPECT_EQ(keyNamed({"hdr.h.$valid$", "h.f"}, "h.valid"), "hdr.h.$valid$");
  EXPECT_EQ(keyNamed({"hdr.h.isValid()", "h.f"}, "h.valid"), "hdr.h.isValid()");
  EXPECT_EQ(keyNamed({"hdr.h.$valid$", "h.f"}, "valid"), "hdr.h.$valid$");
  EXPECT_EQ(errorOf([] {
              keyNamed({"a.x", "b.x"}, "x");
            }),
            "table t: key x can be a.x or b.x: write more of the name");
  EXPECT_EQ(errorOf([] {
              keyNamed({"a.x", "b.x"}, "c");
            }),
            "table t has no key c: it has a.x, b.x");
}

TEST(StfNames, FindTablesAndActionsByTheirEnds) {
  ProgramDescription program;
  program.set_program("p");
  addTable(&program, "ingress.a.t");
  addTable(&program, "egress.b.t");
  const stf::Names names(program);
  const auto request = names.request(*stf::parseLine("setdefault a.t set_port(port:0x1ff)"));
  EXPECT_EQ(request.set_default().table(), "ingress.a.t");
  EXPECT_EQ(request.set_default().result().action(), "ingress.set_port");
  EXPECT_EQ(request.set_default().result().params(0), bytes({1, -1}));
  const auto error = [&](const char* line) {
    return errorOf([&] { names.request(*stf::parseLine(line)); });
  };
  EXPECT_EQ(error("setdefault t set_port(port:1)"),
            "table t can be ingress.a.t or egress.b.t in program p: write more of the name");
  EXPECT_EQ(error("setdefault u set_port(port:1)"), "there is no table u in program p");
  EXPECT_EQ(error("setdefault a.t drop()"), "there is no action drop in table ingress.a.t");
  EXPECT_EQ(error("setdefault a.t set_port()"),
            "action ingress.set_port: a value for port is missing");
  EXPECT_EQ(error("setdefault a.t set_port(port:1, x:2)"),
            "action ingress.set_port has no parameter x");
  EXPECT_EQ(error("setdefault a.t set_port(port:1, port:2)"),
            "action ingress.set_port: a parameter has two values");
  EXPECT_EQ(error("packet 1 00"), "packet belongs to packet tests: it sets nothing up");
}

TEST(StfNames, GivePriorityOnlyToTablesThatHaveOne) {
  ProgramDescription program;
  auto* const table = addTable(&program, "t");
  addKey(table, "k", 8, Key::MATCH_EXACT);
  const auto priorityOf = [&] {
    const stf::Names names(program);
    return names.request(*stf::parseLine("add t 7 k:1 set_port(port:1)")).add_entry().priority();
  };
  EXPECT_EQ(priorityOf(), 0U);
  table->set_has_priority(true);
  EXPECT_EQ(priorityOf(), 7U);
}

TEST(StfNames, FindProfilesAndTheirGroups) {
  ProgramDescription program;
  auto* const members = addTable(&program, "ingress.nexthops");
  members->set_kind(jx::control::v1::TABLE_KIND_ACTION_DATA);
  auto* const groups = program.add_tables();
  groups->set_name("ingress.nexthops_selector");
  groups->set_kind(jx::control::v1::TABLE_KIND_SELECTOR);
  groups->set_action_data_table("ingress.nexthops");
  const stf::Names names(program);
  EXPECT_EQ(
      names.request(*stf::parseLine("member nexthops 1 set_port(port:1)")).add_member().table(),
      "ingress.nexthops");
  EXPECT_EQ(names.request(*stf::parseLine("group nexthops 1 1 2")).add_group().table(),
            "ingress.nexthops_selector");
}

TEST(StfNames, TurnRatesPerMicrosecondIntoRatesPerSecond) {
  ProgramDescription program;
  auto* const meter = program.add_meters();
  meter->set_name("ingress.m");
  const auto request =
      stf::Names(program).request(*stf::parseLine("meter_set_rates m 0 0.001:5 2:6"));
  EXPECT_DOUBLE_EQ(request.set_meter_rates().rates().committed().per_second(), 1000);
  EXPECT_DOUBLE_EQ(request.set_meter_rates().rates().peak().per_second(), 2e6);
  EXPECT_EQ(request.set_meter_rates().rates().peak().burst(), 6U);
}

// --- the judge

std::vector<std::string> judged(const std::string& test, const std::vector<Left>& left) {
  std::vector<std::string> out;
  for (const Difference& difference : stf::judge(stf::parseText(test, "t"), left)) {
    out.push_back(std::to_string(difference.line) + ": " + difference.text);
  }
  return out;
}

TEST(StfJudge, AcceptsWhatIsExpectedInOrderOnEachPort) {
  EXPECT_THAT(judged("expect 1 00\nexpect 2 **ff$\nexpect 1 01\nexpect 3\n",
                     {{2, "abff", 0}, {1, "0012", 0}, {3, "77", 0}, {1, "01", 0}, {3, "88", 0}}),
              IsEmpty());
}

TEST(StfJudge, SeesTheWrongOrder) {
  EXPECT_THAT(judged("expect 1 00$\nexpect 1 01$\n", {{1, "01", 5}, {1, "00", 6}}),
              ElementsAre("1: port 1: expected 00$, got 01: digit 2 is 1, not 0",
                          "2: port 1: expected 01$, got 00: digit 2 is 0, not 1"));
}

TEST(StfJudge, SeesOneDigit) {
  EXPECT_THAT(judged("expect 1 00*1a\n", {{1, "00f1b0", 5}}),
              ElementsAre("1: port 1: expected 00*1a, got 00f1b0: digit 5 is b, not a"));
}

TEST(StfJudge, SeesAPacketTooManyAndOneOnASilentPort) {
  EXPECT_THAT(judged("expect 1 00\n", {{1, "00", 5}, {1, "00", 6}, {2, "ff", 7}}),
              ElementsAre("6: port 1: expected no packet, got 00",
                          "7: port 2: expected no packet, got ff"));
}

TEST(StfJudge, SeesAMissingPacket) {
  EXPECT_THAT(judged("expect 1 00\nexpect 1 00$\nexpect 3\n", {{1, "00", 5}}),
              ElementsAre("2: port 1: expected 00$, got no packet",
                          "3: port 3: expected a packet, got none"));
}

TEST(StfJudge, SeesPacketsThatEndTooEarlyOrTooLate) {
  EXPECT_THAT(
      judged("expect 1 0011\nexpect 1 0011\nexpect 1 0011$\n",
             {{1, "00", 5}, {1, "001122", 6}, {1, "00112233", 7}}),
      ElementsAre("1: port 1: expected 0011, got 00: it ends before digit 3",
                  "3: port 1: expected 0011$, got 00112233: 4 digits too many, from digit 5 "
                  "on"));
}

}  // namespace
