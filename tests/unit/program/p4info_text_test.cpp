// P4Info text: what the text form may look like, what a control half becomes, what is refused.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "model/program/p4info/p4info.h"

namespace jxmodel {
namespace {

std::shared_ptr<Program> loadText(const std::string& text, LoadError* error) {
  UnpackedProgram unpacked;
  if (!programFromP4Info(text, "x.p4info.txtpb", &unpacked, error)) return nullptr;
  if (!layOut(&unpacked, error)) return nullptr;
  return std::make_shared<Program>(std::move(unpacked.program));
}

std::string textErrorOf(const std::string& text) {
  LoadError error;
  EXPECT_EQ(loadText(text, &error), nullptr);
  return error.text();
}

// One action a and one table t, whose key and other members a test gives.
std::string tableWith(const std::string& members) {
  return "actions { preamble { id: 0x01000001 name: \"a\" } params { id: 1 name: \"p\" bitwidth: 9 "
         "} }\n"
         "tables { preamble { id: 0x02000001 name: \"t\" } size: 16\n"
         "action_refs { id: 0x01000001 }\n" +
         members + "}\n";
}

const char kPlain[] =
    "tables { preamble { id: 33554433 name: \"in.t\" } size: 17"
    " match_fields { id: 1 name: \"k\" bitwidth: 12 match_type: TERNARY } }";

struct TextRow {
  const char* what;
  const char* text;
};

TEST(P4InfoText, TakesEveryFormOfTheSameTable) {
  const TextRow rows[] = {
      {"plain", kPlain},
      {"comments",
       "# one\ntables { # two\n preamble { id: 33554433 name: \"in.t\" } size: 17"
       " match_fields { id: 1 name: \"k\" bitwidth: 12 match_type: TERNARY } }\n# end"},
      {"colons before braces",
       "tables: { preamble: { id: 33554433 name: \"in.t\" } size: 17"
       " match_fields: { id: 1 name: \"k\" bitwidth: 12 match_type: TERNARY } }"},
      {"angles",
       "tables < preamble: < id: 33554433 name: \"in.t\" > size: 17"
       " match_fields < id: 1 name: \"k\" bitwidth: 12 match_type: TERNARY > >"},
      {"lists",
       "tables: [ { preamble { id: 33554433 name: \"in.t\" } size: 17"
       " match_fields: [ { id: 1 name: \"k\" bitwidth: 12 match_type: TERNARY } ] } ]"
       " actions: []"},
      {"separators",
       "tables { preamble { id: 33554433, name: \"in.t\"; }; size: 17,"
       " match_fields { id: 1; name: \"k\", bitwidth: 12; match_type: TERNARY; }, };"},
      {"joined strings",
       "tables { preamble { id: 33554433 name: \"in\" '.'\n\"t\" } size: 17"
       " match_fields { id: 1 name: 'k' bitwidth: 12 match_type: TERNARY } }"},
      {"escapes",
       "tables { preamble { id: 33554433 name: \"\\151n\\x2et\" } size: 17"
       " match_fields { id: 1 name: \"\\153\" bitwidth: 12 match_type: TERNARY } }"},
      {"numbers",
       "tables { preamble { id: 0x2000001 name: \"in.t\" } size: 021"
       " match_fields { id: 0x1 name: \"k\" bitwidth: 0xC match_type: 4 } }"},
      {"no blanks",
       "tables{preamble{id:33554433 name:\"in.t\"}size:17 match_fields{id:1 name:\"k\""
       "bitwidth:12 match_type:TERNARY}}"},
      {"unknown fields",
       "pkg_info { name: \"x\" contact: 'me' 'you' } made_by: -1.5e3 flag: true neg: -inf\n"
       "tables { preamble { id: 33554433 name: \"in.t\" doc { brief: \"b\" } } size: 17 new: [1, 2]"
       " match_fields { id: 1 name: \"k\" bitwidth: 12 match_type: TERNARY later < a { b: c } > }"
       " other_properties { [type.url.com/p4.Some] { a: 1 b { c: [ { d: 1 }, { d: 2 } ] } } } }\n"
       "platform { [type.url/Other] < x: 1 > [ext.name]: 5 }"},
  };
  for (const TextRow& row : rows) {
    SCOPED_TRACE(row.what);
    LoadError error;
    const auto program = loadText(row.text, &error);
    ASSERT_NE(program, nullptr) << error.text();
    ASSERT_EQ(program->tables.size(), 1U);
    const Table& table = program->tables[0];
    EXPECT_EQ(table.name, "in.t");
    EXPECT_EQ(table.id, 33554433U);
    EXPECT_EQ(table.size, 17U);
    ASSERT_EQ(table.key.size(), 1U);
    EXPECT_EQ(table.key[0].name, "k");
    EXPECT_EQ(table.key[0].width, 12U);
    EXPECT_EQ(table.key[0].match, JX_RT_MATCH_TERNARY);
  }
}

TEST(P4InfoText, ReadsEscapes) {
  LoadError error;
  const auto program = loadText(
      "tables { preamble { id: 0x2000001 name: 'a\\n\\t\\\"\\'\\\\\\101\\x42' } }", &error);
  ASSERT_NE(program, nullptr) << error.text();
  EXPECT_EQ(program->tables.at(0).name, "a\n\t\"'\\AB");
}

TEST(P4InfoText, ReadsFlags) {
  const std::string key = "match_fields { id: 1 name: \"k\" bitwidth: 1 match_type: EXACT }";
  for (const char* yes : {"true", "1", "t"}) {
    LoadError error;
    const auto program = loadText(tableWith(key + " is_const_table: " + yes), &error);
    ASSERT_NE(program, nullptr) << error.text();
    EXPECT_TRUE(program->tables[0].constant_entries);
  }
}

TEST(P4InfoText, TakesIdsFromTheText) {
  LoadError error;
  const auto program = loadText(
      "actions { preamble { id: 0x01000063 name: \"a\" }"
      " params { id: 7 name: \"p\" bitwidth: 9 } params { id: 3 name: \"q\" bitwidth: 128 } }\n"
      "tables { preamble { id: 0x02000009 name: \"t\" } action_refs { id: 0x01000063 }"
      " match_fields { id: 9 name: \"k\" bitwidth: 8 match_type: LPM }"
      " match_fields { id: 5 name: \"l\" bitwidth: 8 match_type: OPTIONAL } }",
      &error);
  ASSERT_NE(program, nullptr) << error.text();
  EXPECT_EQ(program->name, "x");
  const Table& table = program->tables.at(0);
  EXPECT_EQ(table.id, 0x02000009U);
  EXPECT_EQ(table.handle, 1U << 28 | program->id << 16 | 1);
  EXPECT_EQ(table.key.at(0).id, 9U);
  EXPECT_EQ(table.key.at(1).id, 5U);
  EXPECT_EQ(table.key.at(1).offset, 2U);
  EXPECT_TRUE(table.has_priority);
  EXPECT_EQ(table.size, 1024U);
  const Action* const action = program->actionById(0x01000063);
  ASSERT_NE(action, nullptr);
  EXPECT_EQ(action->params.at(0).id, 7U);
  EXPECT_EQ(action->params.at(1).id, 3U);
  EXPECT_EQ(action->params.at(1).offset, 2U);
  EXPECT_EQ(program->tableById(0x02000009), &table);
}

TEST(P4InfoText, ReadsDefaultsAndScopes) {
  LoadError error;
  const auto program = loadText(
      "actions { preamble { id: 0x01000001 name: \"a\" } params { id: 1 name: \"p\" bitwidth: 9 } "
      "}\n"
      "actions { preamble { id: 0x01000002 name: \"b\" } }\n"
      "actions { preamble { id: 0x01000003 name: \"c\" } }\n"
      "tables { preamble { id: 0x02000001 name: \"t\" } size: 16\n"
      "action_refs { id: 0x01000001 } action_refs { id: 0x01000002 scope: TABLE_ONLY }\n"
      "action_refs { id: 0x01000003 annotations: \"@defaultonly\" }\n"
      "const_default_action_id: 0x01000001\n"
      "initial_default_action { action_id: 0x01000001"
      " arguments { param_id: 1 value: \"\\x01\\xff\" } }\n"
      "idle_timeout_behavior: NOTIFY_CONTROL }",
      &error);
  ASSERT_NE(program, nullptr) << error.text();
  const Table& table = program->tables.at(0);
  EXPECT_TRUE(table.constant_default);
  EXPECT_TRUE(table.idle_timeout);
  ASSERT_TRUE(table.default_action.has_value());
  EXPECT_EQ(table.default_action->params, (std::vector<uint8_t>{1, 0xFF}));
  EXPECT_EQ(table.action_scopes,
            (std::vector<ActionScope>{ActionScope::kAnywhere, ActionScope::kEntriesOnly,
                                      ActionScope::kDefaultOnly}));
}

TEST(P4InfoText, FlattensDigests) {
  LoadError error;
  const auto program = loadText(R"(
digests { preamble { id: 0x17000005 name: "d" } type_spec { tuple {
  members { struct { name: "s" } }
  members { bitstring { bit { bitwidth: 7 } } }
  members { bool { } }
  members { header { name: "h" } }
  members { serializable_enum { name: "e" } }
  members { new_type { name: "n" } }
  members { enum { name: "plain" } } } } }
type_info {
  structs { key: "s" value { members { name: "a" type_spec { bitstring { int { bitwidth: 5 } } } }
                             members { name: "b" type_spec { struct { name: "inner" } } } } }
  structs { key: "inner" value { members { name: "c" type_spec { bool {} } } } }
  headers { key: "h" value { members { name: "x" type_spec { bit { bitwidth: 200 } } } } }
  serializable_enums { key: "e" value { underlying_type { bitwidth: 16 } } }
  new_types { key: "n" value { original_type { bitstring { bit { bitwidth: 33 } } } } }
})",
                                &error);
  ASSERT_NE(program, nullptr) << error.text();
  const Learn& learn = program->learns.at(0);
  EXPECT_EQ(learn.id, 0x17000005U);
  std::string fields;
  for (const LearnField& field : learn.fields) {
    const PacketField& packet = program->fields[field.field];
    fields += packet.name + ":" + std::to_string(packet.width) + " ";
  }
  EXPECT_EQ(fields, "f0.a:5 f0.b.c:1 f1:7 f2:1 f3.x:200 f4:16 f5:33 f6:32 ");
}

TEST(P4InfoText, MakesTablesOfProfilesAndCounters) {
  LoadError error;
  const auto program = loadText(
      "actions { preamble { id: 0x01000001 name: \"a\" } }\n"
      "tables { preamble { id: 0x02000001 name: \"t\" } size: 16 action_refs { id: 0x01000001 }"
      " implementation_id: 0x11000001 direct_resource_ids: 0x13000001"
      " match_fields { id: 1 name: \"k\" bitwidth: 8 match_type: EXACT } }\n"
      "action_profiles { preamble { id: 0x11000001 name: \"p\" annotations: \"@max_group_size(6)\" "
      "}"
      " table_ids: 0x02000001 with_selector: true size: 30 }\n"
      "counters { preamble { id: 0x12000001 name: \"c\" } size: 512 }\n"
      "direct_counters { preamble { id: 0x13000001 name: \"d\" } direct_table_id: 0x02000001 }\n",
      &error);
  ASSERT_NE(program, nullptr) << error.text();
  ASSERT_EQ(program->tables.size(), 5U);
  const Table& table = program->tables[0];
  EXPECT_EQ(table.type, JX_RT_TABLE_MATCH_SELECTOR);
  EXPECT_EQ(table.action_data_table, 1U);
  EXPECT_EQ(table.selector_table, 2U);
  EXPECT_EQ(table.direct_counter, 4U);
  EXPECT_EQ(program->tables[1].name, "p");
  EXPECT_EQ(program->tables[1].id, 0x11000001U);
  EXPECT_EQ(program->tables[1].actions, table.actions);
  EXPECT_EQ(program->tables[2].name, "p_selector");
  EXPECT_EQ(program->tables[2].max_members, 6U);
  EXPECT_EQ(program->tables[2].size, 30U);
  EXPECT_EQ(program->tables[3].size, 512U);
  EXPECT_EQ(program->tables[4].counted_table, 0U);
}

TEST(P4InfoText, SaysWhatIsWrong) {
  const auto key = [](const std::string& members) {
    return tableWith("match_fields { id: 1 name: \"K\" " + members + " }");
  };
  const std::pair<std::string, const char*> rows[] = {
      {"tables { preamble", "x.p4info.txtpb: line 1, column 18: Expected \"{\", found \"\"."},
      {"tables {\n  size: x\n}", "x.p4info.txtpb: line 2, column 9: Expected integer, got: x"},
      {"tables { match_fields { match_type: FUZZY } }",
       "x.p4info.txtpb: line 1, column 43: Unknown enumeration value of \"FUZZY\" for field "
       "\"match_type\"."},
      {"tables { size: 1 size: 2 }",
       "x.p4info.txtpb: line 1, column 22: Non-repeated field \"size\" is specified multiple "
       "times."},
      {"tables { preamble { id: 0x02000001 } }",
       "x.p4info.txtpb: line 1, column 1: P4Info table has no name"},
      {"tables { preamble { name: \"t\" } }",
       "x.p4info.txtpb: line 1, column 1: P4Info table t has no id"},
      {"\ntables { preamble { id: 0x01000001 name: \"t\" } }",
       "x.p4info.txtpb: line 2, column 1: P4Info table t: id 0x01000001 is not of its kind"},
      {"tables { preamble { id: 0x02000001 name: \"t\" } }\n"
       "tables { preamble { id: 0x02000001 name: \"u\" } }",
       "x.p4info.txtpb: line 2, column 1: P4Info table u: id 0x02000001 is already taken"},
      {"tables { preamble { id: 0x02000001 name: \"t\" } }\n"
       "tables { preamble { id: 0x02000002 name: \"t\" } }",
       "x.p4info.txtpb: line 2, column 1: P4Info table t is there twice"},
      {"tables { preamble { id: 0x02000001 name: \"t\" } action_refs { id: 0x01000005 } }",
       "x.p4info.txtpb: line 1, column 1: P4Info table t: there is no action with id 0x01000005"},
      {tableWith("implementation_id: 0x11000001"),
       "x.p4info.txtpb: line 2, column 1: P4Info table t: there is no action profile with id "
       "0x11000001"},
      {tableWith("direct_resource_ids: 0x13000001"),
       "x.p4info.txtpb: line 2, column 1: P4Info table t: there is no direct counter with id "
       "0x13000001"},
      {tableWith("const_default_action_id: 0x01000007"),
       "x.p4info.txtpb: line 2, column 1: P4Info table t: there is no action with id 0x01000007"},
      {"direct_counters { preamble { id: 0x13000001 name: \"c\" } direct_table_id: 0x02000001 }",
       "x.p4info.txtpb: line 1, column 1: P4Info direct counter c: there is no table with id "
       "0x02000001"},
      {key("match_type: EXACT"),
       "x.p4info.txtpb: line 2, column 1: table t: key K has no width (text keys are not "
       "supported)"},
      {key("bitwidth: 8 other_match_type: \"fuzzy\""),
       "x.p4info.txtpb: line 2, column 1: table t: key K is matched as fuzzy, which is not "
       "supported"},
      {key("bitwidth: 8"),
       "x.p4info.txtpb: line 2, column 1: table t: key K has no match type that is known"},
      {key("bitwidth: 8 match_type: 77"),
       "x.p4info.txtpb: line 2, column 1: table t: key K has no match type that is known"},
      {key("bitwidth: 8 match_type: EXACT } match_fields { id: 1 name: \"L\" bitwidth: 8 "
           "match_type: EXACT"),
       "x.p4info.txtpb: line 2, column 1: table t: key L: id 1 is 0 or already taken"},
      {tableWith("action_refs { id: 0x01000001 }"),
       "x.p4info.txtpb: line 2, column 1: P4Info table t: action 0x01000001 is there twice"},
      {"actions { preamble { id: 0x01000001 name: \"a\" } params { id: 1 name: \"p\" } }",
       "x.p4info.txtpb: line 1, column 1: action a: parameter p has no width (text parameters are "
       "not supported)"},
      {"counters { preamble { id: 0x12000001 name: \"c\" } size: -1 }",
       "x.p4info.txtpb: line 1, column 1: counter c: size -1 is not from 1 to 16777216"},
      {"digests { preamble { id: 0x17000001 name: \"d\" } type_spec { struct { name: \"s\" } } }",
       "x.p4info.txtpb: line 1, column 1: P4Info digest d: there is no struct s"},
      {"digests { preamble { id: 0x17000001 name: \"d\" } type_spec { struct { name: \"s\" } } }\n"
       "type_info { structs { key: \"s\" value { members { name: \"m\" type_spec { struct { name: "
       "\"s\" } } } } } }",
       "x.p4info.txtpb: line 1, column 1: P4Info digest d: its type is nested too deep"},
  };
  for (const auto& [text, error] : rows) EXPECT_EQ(textErrorOf(text), error);
}

// Nesting of unknown fields is bounded; the parser's stack is not the file's to use up.
TEST(P4InfoText, RefusesDeepNesting) {
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "a {";
  EXPECT_NE(textErrorOf(text), "");
  text.clear();
  for (int i = 0; i < 100000; ++i) text += "a: [";
  EXPECT_NE(textErrorOf(text), "");
}

// Whatever stands in the text, the answer is a program or one line.
TEST(P4InfoText, SurvivesMutations) {
  const std::string text =
      tableWith(
          "match_fields { id: 1 name: \"k\" bitwidth: 12 match_type: TERNARY type_name { name: "
          "\"n\" } }"
          " implementation_id: 0x11000001 direct_resource_ids: 0x13000001 is_const_table: true") +
      "action_profiles { preamble { id: 0x11000001 name: \"p\" } with_selector: true size: 9 }\n"
      "direct_counters { preamble { id: 0x13000001 name: \"d\" } direct_table_id: 0x02000001 }\n"
      "digests { preamble { id: 0x17000001 name: \"g\" } type_spec { tuple { members { bool {} } } "
      "} }";
  std::mt19937 random(7);
  size_t loaded = 0, refused = 0;
  for (int round = 0; round < 4000; ++round) {
    std::string mutated = text;
    for (unsigned i = 0, count = 1 + random() % 4; i < count; ++i) {
      const size_t at = random() % mutated.size();
      switch (random() % 3) {
        case 0:
          mutated[at] = static_cast<char>(random() % 256);
          break;
        case 1:
          mutated.erase(at, random() % 8);
          break;
        default:
          mutated.insert(at, mutated.substr(random() % mutated.size(), random() % 16));
      }
      if (mutated.empty()) mutated = "#";
    }
    LoadError error;
    if (loadText(mutated, &error) != nullptr) {
      ++loaded;
      continue;
    }
    ++refused;
    EXPECT_NE(error.reason, "") << mutated;
    EXPECT_EQ(error.text().find('\n'), std::string::npos) << mutated;
  }
  EXPECT_GT(loaded, 100U);
  EXPECT_GT(refused, 100U);
}

}  // namespace
}  // namespace jxmodel
