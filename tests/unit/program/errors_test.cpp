// What is wrong with a description is said in one line: file, place, reason.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "model/program/program.h"

namespace jxmodel {
namespace {

using Json = nlohmann::ordered_json;

// Right as it stands; each row of the table below breaks it at one place.
constexpr const char* kRight = R"({
  "name": "base", "id": 7,
  "fields": [{"name": "eth.src", "width": 48}, {"name": "ip.dst", "width": 32},
             {"name": "ip.ttl", "width": 8}, {"name": "meta.port", "width": 9}],
  "actions": [
    {"name": "send", "params": [{"name": "port", "width": 9}, {"name": "index", "width": 32, "default": 0}],
     "body": [{"op": "forward", "port": {"param": "port"}},
              {"op": "count", "table": "pairs", "index": {"param": "index"}},
              {"op": "set", "field": "ip.ttl", "from": 64}]},
    {"name": "nop"}],
  "tables": [
    {"name": "direct", "kind": "match", "size": 10, "actions": ["send", "nop"],
     "key": [{"field": "ip.dst", "match": "ternary"}, {"field": "meta.port", "match": "exact"}],
     "default": {"action": "send", "params": {"port": 3}}},
    {"name": "members", "kind": "action_data", "size": 10, "actions": ["send"]},
    {"name": "groups", "kind": "selector", "size": 10, "action_data": "members", "max_members": 8,
     "hash": ["ip.dst"]},
    {"name": "others", "kind": "action_data", "size": 10, "actions": ["nop"]},
    {"name": "routes", "kind": "match", "size": 10, "action_data": "members", "selector": "groups",
     "key": [{"field": "ip.dst", "match": "lpm"}, {"field": "meta.port", "match": "exact"}]},
    {"name": "pairs", "kind": "counter", "size": 16}],
  "learn": [{"name": "seen", "fields": ["eth.src", "meta.port"]}],
  "control": [
    {"apply": "direct", "on_miss": [{"op": "digest", "learn": "seen"}]},
    {"if": {"valid": "ip"}, "then": [{"apply": "routes"}]},
    {"if": {"left": {"field": "ip.ttl"}, "op": "<=", "right": 1, "mask": 255}, "then": [{"op": "drop"}]}]
})";

struct ErrorRow {
  const char* patch;  // JSON Patch operations
  const char* error;  // behind "base.json: "
};

#define REPLACE(path, value) R"([{"op":"replace","path":")" path R"(","value":)" value "}]"
#define ADD(path, value) R"([{"op":"add","path":")" path R"(","value":)" value "}]"
#define REMOVE(path) R"([{"op":"remove","path":")" path R"("}])"

const ErrorRow kErrorRows[] = {
    // The document and its top.
    {REPLACE("", "[]"), "/: must be an object"},
    {ADD("/tabels", "[]"), "/: unknown member 'tabels' in a program"},
    {ADD("/a~1b", "[]"), "/: unknown member 'a/b' in a program"},
    {ADD("/x\\n", "[]"), "/: unknown member 'x\\x0a' in a program"},
    {ADD("/description", "1"), "/description: must be a string"},
    {ADD("/$schema", "1"), "/$schema: must be a string"},
    {REMOVE("/name"), "/: member 'name' is missing"},
    {REMOVE("/id"), "/: member 'id' is missing"},
    {REMOVE("/fields"), "/: member 'fields' is missing"},
    {REMOVE("/actions"), "/: member 'actions' is missing"},
    {REMOVE("/tables"), "/: member 'tables' is missing"},
    {REMOVE("/control"), "/: member 'control' is missing"},
    {REPLACE("/name", "null"), "/name: must be a string"},
    {REPLACE("/name", "\"9x\""),
     "/name: '9x' is no name: a letter or '_', then letters, digits, '_' and '.', up to 255 "
     "characters"},
    {REPLACE("/id", "0"), "/id: must be a whole number from 1 to 4095"},
    {REPLACE("/id", "4096"), "/id: must be a whole number from 1 to 4095"},
    {REPLACE("/id", "-1"), "/id: must be a whole number from 1 to 4095"},
    {REPLACE("/id", "1.5"), "/id: must be a whole number from 1 to 4095"},
    {REPLACE("/id", "4294967297"), "/id: must be a whole number from 1 to 4095"},
    {REPLACE("/id", "\"7\""), "/id: must be a whole number from 1 to 4095"},
    // Fields.
    {REPLACE("/fields", "{}"), "/fields: must be a list"},
    {REPLACE("/fields/1", "7"), "/fields/1: must be an object"},
    {REPLACE("/fields/1/width", "0"), "/fields/1/width: must be a whole number from 1 to 128"},
    {REPLACE("/fields/1/width", "129"), "/fields/1/width: must be a whole number from 1 to 128"},
    {REPLACE("/fields/1/name", "\"eth.src\""),
     "/fields/1/name: field 'eth.src' is already declared"},
    {ADD("/fields/1/with", "1"), "/fields/1: unknown member 'with' in a field"},
    {REMOVE("/fields/1/width"), "/fields/1: member 'width' is missing"},
    // Actions.
    {ADD("/actions/1/parms", "[]"), "/actions/1: unknown member 'parms' in an action"},
    {REPLACE("/actions/1/name", "\"send\""), "/actions/1/name: action 'send' is already declared"},
    {REPLACE("/actions/0/params/1/name", "\"port\""),
     "/actions/0/params/1/name: parameter 'port' is already declared"},
    {REPLACE("/actions/0/params/0/width", "16385"),
     "/actions/0/params/0/width: must be a whole number from 1 to 16384"},
    {REPLACE("/actions/0/params/1/default", "4294967296"),
     "/actions/0/params/1/default: 4294967296 does not fit 32 bits"},
    {REPLACE("/actions/0/params/1/default", "\"2001:db8::1\""),
     "/actions/0/params/1/default: '2001:db8::1' does not fit 32 bits"},
    {REPLACE("/actions/0/params/1/default", "\"ten\""),
     "/actions/0/params/1/default: 'ten' is no decimal, 0x, MAC, IPv4 or IPv6 value"},
    {REPLACE("/actions/0/params/1/default", "-1"),
     "/actions/0/params/1/default: must be a number that is not negative, or a string"},
    {REPLACE("/actions/0/params", R"([{"name":"a","width":16384},{"name":"b","width":16384},
                                      {"name":"c","width":1}])"),
     "/actions/0/params: the packed parameters have 4097 bytes, at most 4096 are allowed"},
    // Steps of actions.
    {REPLACE("/actions/0/body/0", "[]"), "/actions/0/body/0: must be an object"},
    {REPLACE("/actions/0/body/0/op", "\"foward\""), "/actions/0/body/0/op: unknown op 'foward'"},
    {REMOVE("/actions/0/body/0/op"), "/actions/0/body/0: member 'op' is missing"},
    {REMOVE("/actions/0/body/0/port"), "/actions/0/body/0: member 'port' is missing"},
    {ADD("/actions/0/body/0/table", "\"pairs\""),
     "/actions/0/body/0: unknown member 'table' in a forward step"},
    {REPLACE("/actions/0/body/0/port", R"({"param":"prot"})"),
     "/actions/0/body/0/port/param: action 'send' has no parameter 'prot'"},
    {REPLACE("/actions/0/body/0/port", "{}"),
     "/actions/0/body/0/port: must have either 'field' or 'param'"},
    {REPLACE("/actions/0/body/0/port", R"({"param":"port","field":"meta.port"})"),
     "/actions/0/body/0/port: must have either 'field' or 'param'"},
    {REPLACE("/actions/0/body/0/port", R"({"parm":"port"})"),
     "/actions/0/body/0/port: unknown member 'parm' in an operand"},
    {REPLACE("/actions/0/body/0/port", R"({"field":"eth.src"})"),
     "/actions/0/body/0/port/field: field 'eth.src' has 48 bits, at most 32 fit"},
    {REPLACE("/actions/0/body/1/table", "\"pears\""),
     "/actions/0/body/1/table: unknown table 'pears'"},
    {REPLACE("/actions/0/body/1/table", "\"direct\""),
     "/actions/0/body/1/table: table 'direct' is no counter table"},
    {REPLACE("/actions/0/body/1/index", "16"),
     "/actions/0/body/1/index: index 16 is not below the size of 'pairs', 16"},
    {REPLACE("/actions/0/body/2/field", "\"ip.tll\""),
     "/actions/0/body/2/field: unknown field 'ip.tll'"},
    {REPLACE("/actions/0/body/2/from", "256"), "/actions/0/body/2/from: 256 does not fit 8 bits"},
    {REPLACE("/actions/0/body/2/from", R"({"param":"port"})"),
     "/actions/0/body/2/from/param: parameter 'port' has 9 bits, at most 8 fit"},
    {REPLACE("/actions/0/body/2", R"({"op":"digest","learn":"sean"})"),
     "/actions/0/body/2/learn: unknown learn object 'sean'"},
    {REPLACE("/actions/0/body/2", R"({"op":"drop","port":1})"),
     "/actions/0/body/2: unknown member 'port' in a drop step"},
    {REPLACE("/actions/0/body/2", R"({"op":"flood","port":1})"),
     "/actions/0/body/2: unknown member 'port' in a flood step"},
    {REPLACE("/actions/0/body/2", R"({"op":"decrement"})"),
     "/actions/0/body/2: member 'field' is missing"},
    // Tables.
    {REPLACE("/tables", "[]"), "/tables: must have 1 to 32767 items, has 0"},
    {REPLACE("/tables/0", "1"), "/tables/0: must be an object"},
    {REMOVE("/tables/0/kind"), "/tables/0: member 'kind' is missing"},
    {REPLACE("/tables/0/kind", "\"macth\""), "/tables/0/kind: unknown table kind 'macth'"},
    {ADD("/tables/0/idle_timout", "true"),
     "/tables/0: unknown member 'idle_timout' in a match table"},
    {ADD("/tables/1/key", "[]"), "/tables/1: unknown member 'key' in an action_data table"},
    {ADD("/tables/2/actions", "[]"), "/tables/2: unknown member 'actions' in a selector table"},
    {ADD("/tables/5/actions", "[]"), "/tables/5: unknown member 'actions' in a counter table"},
    {REPLACE("/tables/1/name", "\"direct\""), "/tables/1/name: table 'direct' is already declared"},
    {REPLACE("/tables/0/size", "0"), "/tables/0/size: must be a whole number from 1 to 16777216"},
    {REPLACE("/tables/0/size", "16777217"),
     "/tables/0/size: must be a whole number from 1 to 16777216"},
    {REPLACE("/tables/5/size", "16777217"),
     "/tables/5/size: must be a whole number from 0 to 16777216"},
    {ADD("/tables/0/idle_timeout", "1"), "/tables/0/idle_timeout: must be true or false"},
    {REMOVE("/tables/0/actions"), "/tables/0: member 'actions' is missing"},
    {REPLACE("/tables/0/actions", "[]"), "/tables/0/actions: must have 1 to 32767 items, has 0"},
    {REPLACE("/tables/0/actions/1", "\"nope\""), "/tables/0/actions/1: unknown action 'nope'"},
    {REPLACE("/tables/0/actions/1", "\"send\""),
     "/tables/0/actions/1: action 'send' is already in the list"},
    // Keys.
    {REMOVE("/tables/0/key"), "/tables/0: member 'key' is missing"},
    {REPLACE("/tables/0/key", "[]"), "/tables/0/key: must have 1 to 32767 items, has 0"},
    {REPLACE("/tables/0/key/0/match", "\"lmp\""),
     "/tables/0/key/0/match: unknown match kind 'lmp'"},
    {REPLACE("/tables/0/key/0/field", "\"ip.dts\""),
     "/tables/0/key/0/field: unknown field 'ip.dts'"},
    {REPLACE("/tables/0/key/1/field", "\"ip.dst\""),
     "/tables/0/key/1/field: field 'ip.dst' is already in the key"},
    {ADD("/tables/0/key/0/width", "1"), "/tables/0/key/0: unknown member 'width' in a key field"},
    {REPLACE("/tables/4/key/1/match", "\"lpm\""),
     "/tables/4/key/1/match: a table has at most one lpm field"},
    {REPLACE("/tables/4/key/1/match", "\"ternary\""),
     "/tables/4/key/1/match: beside an lpm field all others must be exact"},
    {REPLACE("/tables/0/key/1/match", "\"lpm\""),
     "/tables/0/key/0/match: beside an lpm field all others must be exact"},
    // Defaults.
    {ADD("/tables/0/default/parms", "{}"),
     "/tables/0/default: unknown member 'parms' in a default"},
    {REPLACE("/tables/0/default/action", "\"sent\""),
     "/tables/0/default/action: unknown action 'sent'"},
    {R"([{"op":"remove","path":"/tables/0/actions/1"},
         {"op":"replace","path":"/tables/0/default","value":{"action":"nop"}}])",
     "/tables/0/default/action: action 'nop' is none of this table's"},
    {ADD("/tables/0/default/params/prot", "1"),
     "/tables/0/default/params/prot: action 'send' has no such parameter"},
    {REMOVE("/tables/0/default/params/port"),
     "/tables/0/default/params: parameter 'port' is missing"},
    {REMOVE("/tables/0/default/params"), "/tables/0/default: parameter 'port' is missing"},
    {REPLACE("/tables/0/default/params", "[]"), "/tables/0/default/params: must be an object"},
    {REPLACE("/tables/0/default/params/port", "512"),
     "/tables/0/default/params/port: 512 does not fit 9 bits"},
    // How tables refer to one another.
    {REMOVE("/tables/4/action_data"), "/tables/4/selector: needs 'action_data' beside it"},
    {ADD("/tables/4/actions", "[\"nop\"]"),
     "/tables/4/actions: a table with 'action_data' has the actions of that table"},
    {ADD("/tables/4/default", "{}"),
     "/tables/4/default: a table with 'action_data' has no action as its default"},
    {REPLACE("/tables/4/action_data", "\"nobody\""),
     "/tables/4/action_data: unknown table 'nobody'"},
    {REPLACE("/tables/4/action_data", "\"groups\""),
     "/tables/4/action_data: table 'groups' is no action_data table"},
    {REPLACE("/tables/4/selector", "\"members\""),
     "/tables/4/selector: table 'members' is no selector table"},
    {REPLACE("/tables/4/action_data", "\"others\""),
     "/tables/4/selector: selector 'groups' has members of 'members', this table of 'others'"},
    {REMOVE("/tables/2/action_data"), "/tables/2: member 'action_data' is missing"},
    {REPLACE("/tables/2/action_data", "\"pairs\""),
     "/tables/2/action_data: table 'pairs' is no action_data table"},
    {REPLACE("/tables/2/max_members", "0"),
     "/tables/2/max_members: must be a whole number from 1 to 65536"},
    {REMOVE("/tables/2/hash"), "/tables/2: member 'hash' is missing"},
    {REPLACE("/tables/2/hash", "[\"ip.dst\",\"ip.dst\"]"),
     "/tables/2/hash/1: field 'ip.dst' is already in the list"},
    {REPLACE("/tables/2/hash/0", "\"ip.src\""), "/tables/2/hash/0: unknown field 'ip.src'"},
    // Learn objects.
    {REPLACE("/learn", "{}"), "/learn: must be a list"},
    {REPLACE("/learn/0/fields", "[]"), "/learn/0/fields: must have 1 to 32767 items, has 0"},
    {REPLACE("/learn/0/fields/1", "\"eth.src\""),
     "/learn/0/fields/1: field 'eth.src' is already in the list"},
    {REPLACE("/learn/0/fields/1", "\"eth.dst\""), "/learn/0/fields/1: unknown field 'eth.dst'"},
    {ADD("/learn/-", R"({"name":"seen","fields":["eth.src"]})"),
     "/learn/1/name: learn object 'seen' is already declared"},
    {ADD("/learn/0/id", "1"), "/learn/0: unknown member 'id' in a learn object"},
    // Control.
    {REPLACE("/control/0", "1"), "/control/0: must be an object"},
    {REPLACE("/control/0", "{}"), "/control/0: a step has one of 'apply', 'if' and 'op'"},
    {REPLACE("/control/0/apply", "\"dierct\""), "/control/0/apply: unknown table 'dierct'"},
    {REPLACE("/control/0/apply", "\"members\""),
     "/control/0/apply: table 'members' is no match table"},
    {REPLACE("/control/0/apply", "\"pairs\""), "/control/0/apply: table 'pairs' is no match table"},
    {REPLACE("/control/1/then/0/apply", "\"direct\""),
     "/control/1/then/0/apply: table 'direct' is already applied"},
    {ADD("/control/0/on_mis", "[]"), "/control/0: unknown member 'on_mis' in an apply step"},
    {ADD("/control/0/if", "{}"), "/control/0: unknown member 'if' in an apply step"},
    {REPLACE("/control/0/on_miss", "{}"), "/control/0/on_miss: must be a list"},
    {REPLACE("/control/0/on_miss/0/learn", "\"sean\""),
     "/control/0/on_miss/0/learn: unknown learn object 'sean'"},
    {REMOVE("/control/1/then"), "/control/1: member 'then' is missing"},
    {ADD("/control/1/els", "[]"), "/control/1: unknown member 'els' in an if step"},
    {REPLACE("/control/1/if/valid", "\"ipv9\""),
     "/control/1/if/valid: no field of header 'ipv9' is declared"},
    {ADD("/control/1/if/left", "1"), "/control/1/if: unknown member 'left' in a valid condition"},
    {REPLACE("/control/1/if", "true"), "/control/1/if: must be an object"},
    {REPLACE("/control/2/if/op", "\"=\""), "/control/2/if/op: unknown comparison '='"},
    {REMOVE("/control/2/if/right"), "/control/2/if: member 'right' is missing"},
    {ADD("/control/2/if/msk", "1"), "/control/2/if: unknown member 'msk' in a comparison"},
    {REPLACE("/control/2/if/left", "1"), "/control/2/if: a comparison needs a field on one side"},
    {REPLACE("/control/2/if/left", R"({"param":"port"})"),
     "/control/2/if/left/param: there are no action parameters here"},
    {REPLACE("/control/2/if/right", "256"), "/control/2/if/right: 256 does not fit 8 bits"},
    {REPLACE("/control/2/if/mask", "256"), "/control/2/if/mask: 256 does not fit 8 bits"},
    {REPLACE("/control/2/if/left/field", "\"ip.tll\""),
     "/control/2/if/left/field: unknown field 'ip.tll'"},
    {REPLACE("/control/2/then/0", R"({"op":"forward","port":{"param":"port"}})"),
     "/control/2/then/0/port/param: there are no action parameters here"},
};

std::string errorOf(const std::string& text) {
  LoadError error;
  EXPECT_EQ(parseProgramJson(text, "base.json", &error), nullptr);
  return error.text();
}

TEST(ProgramErrors, TheBaseIsRight) {
  LoadError error;
  EXPECT_NE(parseProgramJson(kRight, "base.json", &error), nullptr) << error.text();
}

TEST(ProgramErrors, SayPlaceAndReason) {
  const Json right = Json::parse(kRight);
  for (const ErrorRow& row : kErrorRows) {
    SCOPED_TRACE(row.patch);
    const std::string text = right.patch(Json::parse(row.patch)).dump();
    EXPECT_EQ(errorOf(text), std::string("base.json: ") + row.error);
  }
}

TEST(ProgramErrors, AKeyOf1024BytesIsTheGreatest) {
  Json program = Json::parse(kRight);
  Json key = Json::array();
  for (int i = 0; i < 32; ++i) {
    const std::string name = "big.f" + std::to_string(i);
    program["fields"].push_back({{"name", name}, {"width", 128}});
    key.push_back({{"field", name}, {"match", "ternary"}});
  }
  key.push_back({{"field", "ip.ttl"}, {"match", "exact"}});
  program["tables"][0]["key"] = key;
  EXPECT_EQ(errorOf(program.dump()),
            "base.json: /tables/0/key: the packed key has 1025 bytes, at most 1024 are allowed");
}

TEST(ProgramErrors, PositionsHave15Bits) {
  Json program = Json::parse(kRight);
  Json& fields = program["fields"];
  while (fields.size() < 32768) {
    fields.push_back({{"name", "f.n" + std::to_string(fields.size())}, {"width", 1}});
  }
  EXPECT_EQ(errorOf(program.dump()), "base.json: /fields: must have 0 to 32767 items, has 32768");
}

TEST(ProgramErrors, NamesAreBounded) {
  Json program = Json::parse(kRight);
  program["name"] = std::string(255, 'x');
  LoadError error;
  EXPECT_NE(parseProgramJson(program.dump(), "base.json", &error), nullptr) << error.text();
  program["name"] = std::string(256, 'x');
  EXPECT_EQ(errorOf(program.dump()), "base.json: /name: '" + std::string(80, 'x') +
                                         "...' is no name: a letter or '_', then letters, digits, "
                                         "'_' and '.', up to 255 characters");
}

TEST(ProgramErrors, ATableMayBeNamedBeforeItIsDescribed) {
  Json program = Json::parse(kRight);
  std::swap(program["tables"][1], program["tables"][4]);  // routes before members and groups
  LoadError error;
  const auto loaded = parseProgramJson(program.dump(), "base.json", &error);
  ASSERT_NE(loaded, nullptr) << error.text();
  const Table& routes = loaded->tables[1];
  EXPECT_EQ(routes.action_data_table, 4U);
  EXPECT_EQ(routes.actions, loaded->tables[4].actions);
}

struct SyntaxRow {
  const char* text;
  const char* error;
};

TEST(ProgramErrors, SyntaxErrorsNameLineAndColumn) {
  const SyntaxRow rows[] = {
      {"",
       "line 1, column 1: syntax error while parsing value - unexpected end of input; expected "
       "'[', '{', or a literal"},
      {"{\"name\" \"x\"}",
       "line 1, column 11: syntax error while parsing object separator - "
       "unexpected string literal; expected ':'"},
      {"{\n  \"id\": 1,\n}\n",
       "line 3, column 1: syntax error while parsing object key - "
       "unexpected '}'; expected string literal"},
      {"{\"id\": 1}\n}",
       "line 2, column 1: syntax error while parsing value - unexpected '}'; "
       "expected end of input"},
  };
  for (const SyntaxRow& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(errorOf(row.text), std::string("base.json: ") + row.error);
  }
}

TEST(ProgramErrors, RefusesWhatAParserAloneLetsPass) {
  EXPECT_EQ(errorOf(R"({"id": 1, "id": 2})"), "base.json: /: member 'id' is given twice");
  EXPECT_EQ(errorOf(R"({"tables": [{"a": 1}, {"key": [0, {"b": 1, "c": {"b": 1}, "b": 1}]}]})"),
            "base.json: /tables/1/key/1: member 'b' is given twice");
  EXPECT_EQ(errorOf(R"({"id": 1e999})"),
            "base.json: /id: a number is greater than any that can be read");
  EXPECT_EQ(errorOf(R"({"fields": [1, 2, 1e999]})"),
            "base.json: /fields/2: a number is greater than any that can be read");
}

TEST(ProgramErrors, NestingIsBounded) {
  const std::string open(100'000, '[');
  std::string place;
  for (int i = 0; i < 64; ++i) place += "/0";
  EXPECT_EQ(errorOf(open), "base.json: " + place + ": nested deeper than 64 levels");
}

// Any prefix of a right description is an error, and none is more than an error.
TEST(ProgramErrors, ACutFileIsRefused) {
  const std::string right = kRight;
  for (size_t length = 0; length < right.size(); ++length) {
    const std::string error = errorOf(right.substr(0, length));
    EXPECT_EQ(error.rfind("base.json: line ", 0), 0U) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace jxmodel
