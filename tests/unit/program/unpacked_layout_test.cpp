// layOut(): ids and handles, packed keys of entries, and what does not fit.
#include <gtest/gtest.h>

#include <functional>

#include "model/program/layout.h"

namespace jxmodel {
namespace {

using Bytes = std::vector<uint8_t>;

KeyField keyField(const std::string& name, uint32_t width, jx_rt_key_match_type_t match) {
  KeyField field;
  field.name = name;
  field.width = width;
  field.match = match;
  return field;
}

KeyValue exactly(Bytes value) { return {std::move(value), {}, 0, false}; }
KeyValue pair(Bytes value, Bytes other) { return {std::move(value), std::move(other), 0, false}; }
KeyValue prefixed(Bytes value, uint32_t prefix) { return {std::move(value), {}, prefix, false}; }
KeyValue anything() { return {{}, {}, 0, true}; }

// Table T with one key of 12 bits, actions a(9 bits) and b, and one entry.
UnpackedProgram oneTable(jx_rt_key_match_type_t match, const KeyValue& value) {
  UnpackedProgram unpacked;
  Program& program = unpacked.program;
  program.name = "some";
  program.actions.resize(2);
  program.actions[0].name = "a";
  program.actions[0].params.resize(1);
  program.actions[0].params[0].name = "port";
  program.actions[0].params[0].width = 9;
  program.actions[1].name = "b";
  Table table;
  table.name = "T";
  table.size = 8;
  table.key.push_back(keyField("K", 12, match));
  table.actions = {0, 1};
  program.tables.push_back(table);
  UnpackedEntry entry;
  entry.key = {value};
  entry.priority = 5;
  entry.call = {0, {0x01, 0xFF}};
  unpacked.entries = {{entry}};
  return unpacked;
}

struct PackedRow {
  const char* what;
  jx_rt_key_match_type_t match;
  KeyValue value;
  Bytes packed;
  uint32_t priority;
};

TEST(UnpackedLayout, PacksEntriesInCanonicalForm) {
  const PackedRow rows[] = {
      {"exact", JX_RT_MATCH_EXACT, exactly({0x0A, 0xBC}), {0x0A, 0xBC}, 0},
      {"short value", JX_RT_MATCH_EXACT, exactly({0xBC}), {0x00, 0xBC}, 0},
      {"long value", JX_RT_MATCH_EXACT, exactly({0, 0, 0x0A, 0xBC}), {0x0A, 0xBC}, 0},
      {"lpm", JX_RT_MATCH_LPM, prefixed({0x0A, 0xBC}, 4), {0x0A, 0x00, 4}, 0},
      {"lpm /0", JX_RT_MATCH_LPM, prefixed({0x0A, 0xBC}, 0), {0, 0, 0}, 0},
      {"lpm /12", JX_RT_MATCH_LPM, prefixed({0x0A, 0xBC}, 12), {0x0A, 0xBC, 12}, 0},
      {"ternary", JX_RT_MATCH_TERNARY, pair({0x0A, 0xBC}, {0x00, 0x0F}), {0, 0x0C, 0, 0x0F}, 5},
      {"range", JX_RT_MATCH_RANGE, pair({5}, {0x01, 0x00}), {0, 5, 1, 0}, 5},
      {"optional", JX_RT_MATCH_OPTIONAL, exactly({0x0A, 0xBC}), {0x0A, 0xBC, 1}, 5},
      {"optional, any", JX_RT_MATCH_OPTIONAL, anything(), {0, 0, 0}, 5},
      {"optional under mask 0", JX_RT_MATCH_OPTIONAL, pair({7}, {0, 0}), {0, 0, 0}, 5},
      {"optional under all", JX_RT_MATCH_OPTIONAL, pair({7}, {0x0F, 0xFF}), {0, 7, 1}, 5},
  };
  for (const PackedRow& row : rows) {
    SCOPED_TRACE(row.what);
    UnpackedProgram unpacked = oneTable(row.match, row.value);
    LoadError error;
    ASSERT_TRUE(layOut(&unpacked, &error)) << error.reason;
    const Table& table = unpacked.program.tables[0];
    ASSERT_EQ(table.initial_entries.size(), 1U);
    EXPECT_EQ(table.initial_entries[0].key, row.packed);
    EXPECT_EQ(table.initial_entries[0].priority, row.priority);
    EXPECT_EQ(table.initial_entries[0].call.params, (Bytes{0x01, 0xFF}));
  }
}

TEST(UnpackedLayout, GivesIdsAndHandlesToWhatHasNone) {
  UnpackedProgram unpacked = oneTable(JX_RT_MATCH_EXACT, exactly({1}));
  Program& program = unpacked.program;
  Table counter;
  counter.name = "C";
  counter.type = JX_RT_TABLE_COUNTER;
  counter.id = 0x12345678;
  Table selector;
  selector.name = "S";
  selector.type = JX_RT_TABLE_SELECTOR;
  selector.size = 70000;
  program.tables.push_back(counter);
  program.tables.push_back(selector);
  program.learns.resize(2);
  program.learns[1].id = 9;
  program.learns[0].fields.resize(2);
  ASSERT_TRUE(layOut(&unpacked, nullptr));
  // CRC-32 of "some" is 0xF6CEDC4E.
  EXPECT_EQ(program.id, 1 + 0xF6CEDC4EU % 4095);
  const uint32_t high = program.id << 16;
  EXPECT_EQ(program.tables[0].id, high | 1);
  EXPECT_EQ(program.tables[0].handle, 1U << 28 | high | 1);
  EXPECT_EQ(program.tables[1].id, 0x12345678U);
  EXPECT_EQ(program.tables[1].handle, 6U << 28 | high | 2);
  EXPECT_EQ(program.tables[2].id, high | 3);
  EXPECT_EQ(program.tables[2].handle, 5U << 28 | high | 3);
  EXPECT_EQ(program.tables[2].max_members, 65536U);
  EXPECT_EQ(program.tables[1].key.at(0).name, "$COUNTER_INDEX");
  EXPECT_EQ(program.tables[2].key.at(0).name, "$GROUP_ID");
  EXPECT_EQ(program.actions[1].id, high | 2);
  EXPECT_EQ(program.actions[0].params[0].id, 1U);
  EXPECT_EQ(program.learns[0].id, high | 0x8001);
  EXPECT_EQ(program.learns[1].id, 9U);
  EXPECT_EQ(program.learns[0].fields[1].id, 2U);
}

TEST(UnpackedLayout, LeavesAnIdThatIsTakenToItsOwner) {
  UnpackedProgram unpacked = oneTable(JX_RT_MATCH_EXACT, exactly({1}));
  Program& program = unpacked.program;
  program.id = 0x200;
  Table other;
  other.name = "U";
  other.size = 1;
  other.id = 0x02000001;  // the first position's of this program
  program.tables.push_back(other);
  ASSERT_TRUE(layOut(&unpacked, nullptr));
  EXPECT_EQ(program.tables[0].id, 0x02000002U);
  EXPECT_EQ(program.tables[1].id, 0x02000001U);
  EXPECT_EQ(program.tables[0].handle, 0x12000001U);
  EXPECT_EQ(program.tables[1].handle, 0x12000002U);
}

TEST(UnpackedLayout, TellsCountersFromTablesOfTheirName) {
  UnpackedProgram unpacked = oneTable(JX_RT_MATCH_EXACT, exactly({1}));
  Table counter;
  counter.name = "T";
  counter.type = JX_RT_TABLE_COUNTER;
  unpacked.program.tables.push_back(counter);
  ASSERT_TRUE(layOut(&unpacked, nullptr));
  EXPECT_EQ(unpacked.program.tables[1].name, "T_counter");
}

TEST(UnpackedLayout, KeepsPrefixesBesideMasks) {
  UnpackedProgram unpacked = oneTable(JX_RT_MATCH_TERNARY, pair({1}, {1}));
  unpacked.program.tables[0].key.push_back(keyField("P", 32, JX_RT_MATCH_LPM));
  unpacked.entries[0][0].key.push_back(prefixed({10, 1, 2, 3}, 8));
  ASSERT_TRUE(layOut(&unpacked, nullptr));
  const Table& table = unpacked.program.tables[0];
  EXPECT_TRUE(table.has_priority);
  EXPECT_EQ(table.initial_entries[0].key, (Bytes{0, 1, 0, 1, 10, 0, 0, 0, 8}));
}

struct RefusalRow {
  std::function<void(UnpackedProgram*)> spoil;
  const char* reason;
};

TEST(UnpackedLayout, RefusesWhatDoesNotFit) {
  const auto entry = [](UnpackedProgram* p) -> UnpackedEntry& { return p->entries[0][0]; };
  const auto table = [](UnpackedProgram* p) -> Table& { return p->program.tables[0]; };
  const RefusalRow rows[] = {
      {[&](auto* p) { entry(p).key[0].value = {9}; }, "table T, entry 1: start 9 is above end 5"},
      {[&](auto* p) {
         entry(p).key[0].other = {0x10, 0};
       },
       "table T, entry 1: end 4096 of key K is wider than its 12 bits"},
      {[&](auto* p) { entry(p).key[0].value = {1, 0, 0, 0, 0, 0, 0, 0, 0}; },
       "table T, entry 1: start 0x010000000000000000 of key K is wider than its 12 bits"},
      {[&](auto* p) {
         table(p).key[0].match = JX_RT_MATCH_LPM;
         entry(p).key[0].prefix = 13;
       },
       "table T, entry 1: prefix length 13 of key K is above its 12 bits"},
      {[&](auto* p) {
         table(p).key[0].match = JX_RT_MATCH_OPTIONAL;
         entry(p).key[0].other = {3};
       },
       "table T, entry 1: mask 3 of key K, which is optional, has neither all bits nor none"},
      {[&](auto* p) { entry(p).key.push_back({}); },
       "table T, entry 1: it has 2 key values, the table has 1 keys"},
      {[&](auto* p) { entry(p).call.params = {0}; },
       "table T, entry 1: action a takes 2 bytes of values, not 1"},
      {[&](auto* p) {
         entry(p).call.params = {2, 0};
       },
       "table T, entry 1: the value of port is wider than its 9 bits"},
      {[&](auto* p) { table(p).actions = {1}; },
       "table T, entry 1: action a is none of its actions"},
      {[&](auto* p) {
         table(p).action_scopes = {ActionScope::kDefaultOnly, ActionScope::kAnywhere};
       },
       "table T, entry 1: action a is for the default only"},
      {[&](auto* p) {
         table(p).action_scopes = {ActionScope::kAnywhere, ActionScope::kEntriesOnly};
         table(p).default_action = ActionCall{1, {}};
       },
       "table T: action b is for entries only"},
      {[&](auto* p) { p->entries[0].push_back(entry(p)); },
       "table T, entry 2: it has the key of entry 1"},
      {[&](auto* p) { table(p).size = 0; }, "table T: its size is 0"},
      {[&](auto* p) { table(p).size = 16'777'217; },
       "table T: size 16777217 is above the limit 16777216"},
      {[&](auto* p) { table(p).key[0].width = 129; },
       "table T: key K has 129 bits; a key field of its kind has at most 128"},
      {[&](auto* p) { table(p).key[0].width = 0; }, "table T: key K has no width"},
      {[&](auto* p) {
         for (const char* name : {"A", "B"}) {
           table(p).key.push_back(keyField(name, 8, JX_RT_MATCH_LPM));
         }
       },
       "table T: keys A and B are both lpm"},
      {[&](auto* p) { table(p).key.assign(65, keyField("K", 128, JX_RT_MATCH_EXACT)); },
       "table T: the packed key has 1040 bytes, at most 1024 are allowed"},
      {[&](auto* p) { p->program.actions[0].params[0].width = 0; },
       "action a: parameter port has 0 bits, not 1 to 16384"},
      {[&](auto* p) {
         p->program.actions[0].params.resize(5);
         for (Param& param : p->program.actions[0].params) param.width = 8192;
       },
       "action a: the packed parameters have 5120 bytes, at most 4096 are allowed"},
      {[&](auto* p) { p->program.tables.push_back(table(p)); }, "table T is there twice"},
      {[&](auto* p) { p->program.actions[0].id = p->program.actions[1].id = 7; },
       "action b: id 7 is already taken"},
  };
  for (const RefusalRow& row : rows) {
    UnpackedProgram unpacked = oneTable(JX_RT_MATCH_RANGE, pair({3}, {5}));
    row.spoil(&unpacked);
    LoadError error;
    EXPECT_FALSE(layOut(&unpacked, &error)) << row.reason;
    EXPECT_EQ(error.reason, row.reason);
    EXPECT_EQ(error.place, "/");
  }
}

TEST(UnpackedLayout, SaysWhereAnEntryStands) {
  UnpackedProgram unpacked = oneTable(JX_RT_MATCH_RANGE, pair({9}, {5}));
  unpacked.places = {"/pipelines/0/tables/0"};
  LoadError error;
  EXPECT_FALSE(layOut(&unpacked, &error));
  EXPECT_EQ(error.place, "/pipelines/0/tables/0");
  unpacked.entries[0][0].place = "/pipelines/0/tables/0/entries/0";
  EXPECT_FALSE(layOut(&unpacked, &error));
  EXPECT_EQ(error.place, "/pipelines/0/tables/0/entries/0");
}

TEST(UnpackedLayout, TakesEntriesOfOneKeyWithOtherPriorities) {
  UnpackedProgram unpacked = oneTable(JX_RT_MATCH_RANGE, pair({3}, {5}));
  unpacked.entries[0].push_back(unpacked.entries[0][0]);
  unpacked.entries[0][1].priority = 6;
  EXPECT_TRUE(layOut(&unpacked, nullptr));
}

TEST(UnpackedLayout, TakesAConstantTableWithoutEntries) {
  UnpackedProgram unpacked = oneTable(JX_RT_MATCH_RANGE, pair({3}, {5}));
  unpacked.entries.clear();
  unpacked.program.tables[0].size = 0;
  unpacked.program.tables[0].constant_entries = true;
  ASSERT_TRUE(layOut(&unpacked, nullptr));
  EXPECT_EQ(unpacked.program.tables[0].size, 1U);
}

}  // namespace
}  // namespace jxmodel
