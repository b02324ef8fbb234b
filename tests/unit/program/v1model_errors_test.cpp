// What is wrong with a compiled program, or cannot be had, is said in one line.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "model/program/v1model/v1model.h"
#include "v1model_base.h"

namespace jxmodel {
namespace {

using V1modelJson = nlohmann::json;

struct V1modelErrorRow {
  const char* op;  // of a JSON Patch: "replace", "add", "remove"
  const char* path;
  const char* value;  // JSON
  const char* error;  // behind "base.json: "
};

// An assignment of a value to scalars.x as the first step of action send.
#define STEP "/actions/1/primitives/0"
#define VALUE STEP "/parameters/1"
#define ACL "/pipelines/0/tables/1"
#define ROUTES "/pipelines/0/tables/2"
#define STATE "/parsers/0/parse_states/0"

const V1modelErrorRow kV1modelErrors[] = {
    // The document and what it is for.
    {"replace", "", "[]", "/: must be an object"},
    {"remove", "/__meta__", "",
     "/: a file without a version is not supported: this loader reads bmv2 JSON 2.0 to 2.24"},
    {"replace", "/__meta__/version", "[3, 0]",
     "/__meta__/version: version 3.0 is not supported: this loader reads bmv2 JSON 2.0 to 2.24"},
    {"replace", "/__meta__/version", "[2, 25]",
     "/__meta__/version: version 2.25 is not supported: this loader reads bmv2 JSON 2.0 to 2.24"},
    {"replace", "/__meta__/version", "[1, 0]",
     "/__meta__/version: version 1.0 is not supported: this loader reads bmv2 JSON 2.0 to 2.24"},
    {"replace", "/pipelines/1/name", "\"main\"",
     "/pipelines/1/name: architecture is not v1model: pipeline main"},
    {"replace", "/pipelines/1/name", "\"ingress\"",
     "/pipelines/1/name: architecture is not v1model: pipeline ingress"},
    {"remove", "/pipelines/1", "", "/: architecture is not v1model: pipeline egress is missing"},
    {"replace", "/parsers", "[]", "/parsers: architecture is not v1model: 0 parsers"},
    {"replace", "/deparsers", "[1, 2]", "/deparsers: architecture is not v1model: 2 deparsers"},
    {"replace", "/pipelines/0/action_calls", "[1]",
     "/pipelines/0/action_calls: architecture is not v1model: action_calls"},
    {"replace", "/deparsers/0/primitives", "[1]",
     "/deparsers/0/primitives: architecture is not v1model: the deparser has primitives"},
    {"replace", "/extern_instances", R"([{"name": "e", "id": 0, "type": "t"}])",
     "/extern_instances/0: extern e of type t has no implementation"},

    // Headers.
    {"replace", "/header_types/2/fields/2/1", "13",
     "/headers/2: header eth has 109 bits, not whole bytes"},
    {"replace", "/header_types/2/fields/2/1", "0",
     "/header_types/2/fields/2/1: header eth_t: must be a whole number from 1 to 1048576"},
    {"replace", "/header_types/4/fields/0/1", "\"*\"",
     "/header_types/4/fields/1: header opt_t has two varbits, at most one is possible"},
    {"remove", "/header_types/4/max_length", "",
     "/header_types/4: header opt_t: member 'max_length' is missing"},
    {"add", "/header_types/4/length_exp", "{}",
     "/header_types/4/length_exp: header opt_t: the expression length_exp is not supported"},
    {"replace", "/header_types/2/fields/1/0", "\"dst\"",
     "/header_types/2/fields/1: header eth_t: field dst is declared twice"},
    {"replace", "/header_types/3/name", "\"eth_t\"",
     "/header_types/3/name: header type eth_t is declared twice"},
    {"remove", "/headers/2/name", "", "/headers/2: member 'name' is missing"},
    {"remove", "/headers/2/id", "", "/headers/2: member 'id' is missing"},
    {"replace", "/headers/3/id", "2", "/headers/3/id: header id 2 is given twice"},
    {"replace", "/headers/2/header_type", "\"no_t\"",
     "/headers/2/header_type: header type no_t does not exist"},
    {"replace", "/headers/1/name", "\"meta\"",
     "/field_aliases/0/1: field "
     "standard_metadata.mcast_grp does not exist"},
    {"replace", "/header_stacks/0/header_ids", "[3, 99]",
     "/header_stacks/0/header_ids/1: header 99 does not exist"},
    {"replace", "/header_stacks/0/size", "3",
     "/header_stacks/0/size: size 3, but there are 2 elements"},
    {"replace", "/header_stacks/0/header_ids", "[2, 4]",
     "/header_stacks/0/header_ids/0: the header has another type"},
    {"replace", "/header_unions/1/header_ids", "[7, 10]",
     "/header_unions/1/header_ids/0: the header is in two unions"},
    {"replace", "/header_unions/0/union_type", "\"x\"",
     "/header_unions/0/union_type: header union type x does not exist"},

    // Expressions.
    {"replace", VALUE, R"({"type": "hexstr", "value": "12"})",
     VALUE "/value: action send: '12' is no number in 0x form"},
    {"replace", VALUE, R"({"type": "hexstr", "value": "0x1g"})",
     VALUE "/value: action send: '0x1g' is no number in 0x form"},
    {"replace", VALUE, R"({"type": "odd", "value": "0x1"})",
     VALUE ": action send: operand type odd is not known here"},
    {"replace", VALUE, R"({"type": "field", "value": ["eth", "no"]})",
     VALUE "/value/1: action send: field eth.no does not exist"},
    {"replace", VALUE, R"({"type": "field", "value": ["ether", "no"]})",
     VALUE "/value/0: action send: header ether does not exist"},
    {"replace", VALUE, R"({"type": "runtime_data", "value": 2})",
     VALUE "/value: action send: parameter 2 does not exist: there are 2"},
    {"replace", VALUE, R"({"type": "field", "value": ["opt", "data"]})",
     VALUE ": action send: field opt.data is a varbit: it has no value in an expression"},
    {"replace", VALUE, R"({"type": "lookahead", "value": [0, 8]})",
     VALUE ": action send: lookahead is for parsers"},
    {"replace", VALUE, R"({"op": "**", "left": null, "right": null})",
     VALUE ": action send: operator ** is not known here"},
    {"replace", VALUE,
     R"({"op": "+", "left": {"type": "hexstr", "value": "0x1"}, "right": {"type": "field", "value": ["scalars", "wide"]}})",
     VALUE "/right: action send: field scalars.wide has 3000 bits; arithmetic is limited to 2048"},
    {"replace", VALUE,
     R"({"op": "/", "left": {"type": "hexstr", "value": "0x1"}, "right": {"type": "hexstr", "value": "0x0"}})",
     VALUE "/right: action send: division by 0"},
    {"replace", VALUE,
     R"({"op": "sat_cast", "left": {"type": "hexstr", "value": "0x1"}, "right": {"type": "hexstr", "value": "0x0"}})",
     VALUE "/right: action send: the width of sat_cast must be a constant from 1 to 65536"},
    {"replace", VALUE,
     R"({"op": "access_field", "left": {"op": "dereference_header_stack", "left": {"type": "header_stack", "value": "tag"}, "right": {"type": "hexstr", "value": "0x2"}}, "right": 0})",
     VALUE "/left/right: action send: index 2 is outside header stack tag, which has 2 elements"},
    {"replace", VALUE,
     R"({"op": "access_field", "left": {"type": "header", "value": "eth"}, "right": 4})",
     VALUE "/right: action send: field 4 is not below 4"},
    {"replace", STEP "/parameters/0", R"({"type": "field", "value": ["eth", "$valid$"]})",
     STEP "/parameters/0: action send: eth.$valid$ cannot be written to"},
    {"replace", STEP "/parameters/0", R"({"type": "hexstr", "value": "0x1"})",
     STEP "/parameters/0: action send: must be a field, not hexstr"},

    // Actions.
    {"replace", STEP "/op", "\"warp\"", STEP ": action send: primitive warp is not known"},
    {"replace", STEP "/parameters", "[]",
     STEP ": action send: primitive assign takes 2 parameters, not 0"},
    {"replace", STEP, R"({"op": "_jump", "parameters": [{"type": "hexstr", "value": "0x9"}]})",
     STEP "/parameters/0: action send: jump to 9, but it has 1 steps"},
    {"replace", STEP, R"({"op": "register_write", "parameters": [
       {"type": "register_array", "value": "cells"}, {"type": "hexstr", "value": "0x8"},
       {"type": "hexstr", "value": "0x8"}]})",
     STEP "/parameters/1: action send: index 8 is outside register cells, which has 8 cells"},
    {"replace", STEP, R"({"op": "count", "parameters": [
       {"type": "counter_array", "value": "ports"}, {"type": "hexstr", "value": "0x8"}]})",
     STEP "/parameters/1: action send: index 8 is outside counter ports, which has 8 cells"},
    {"replace", STEP, R"({"op": "count", "parameters": [
       {"type": "counter_array", "value": "hits"}, {"type": "hexstr", "value": "0x0"}]})",
     STEP ": action send: hits belongs to the entries of a table"},
    {"replace", STEP, R"({"op": "count", "parameters": [
       {"type": "counter_array", "value": "none"}, {"type": "hexstr", "value": "0x0"}]})",
     STEP "/parameters/0/value: action send: counter none does not exist"},
    {"replace", STEP, R"({"op": "generate_digest", "parameters": [
       {"type": "hexstr", "value": "0x1"}, {"type": "hexstr", "value": "0x2"}]})",
     STEP "/parameters/1: action send: learn list 2 does not exist"},
    {"replace", STEP, R"({"op": "assign_header", "parameters": [
       {"type": "header", "value": "eth"}, {"type": "header", "value": "opt"}]})",
     STEP ": action send: the headers have different types"},
    {"replace", STEP,
     R"({"op": "mark_to_drop", "parameters": [{"type": "header", "value": "eth"}]})",
     STEP ": action send: header eth has no field egress_spec"},
    {"replace", "/actions/3/id", "1", "/actions/3/id: action id 1 is given twice"},
    {"remove", "/actions/3/id", "", "/actions/3: member 'id' is missing"},
    {"replace", "/actions/3/runtime_data", "[]",
     ROUTES ": table routes: action send has other parameters than in another table"},

    // Parser.
    {"replace", STATE "/parser_ops/0/op", "\"fetch\"",
     STATE "/parser_ops/0: parser state start: operation fetch is not known"},
    {"replace", STATE "/parser_ops/0/parameters/0/value", "\"scalars\"",
     STATE "/parser_ops/0/parameters/0/value: parser state start: header scalars is metadata"},
    {"replace", STATE "/parser_ops/0",
     R"({"op": "primitive", "parameters": [{"op": "exit", "parameters": []}]})",
     STATE "/parser_ops/0/parameters/0: parser state start: primitive exit is for actions only"},
    {"replace", STATE "/transitions/0/value", "\"0x010800\"",
     STATE "/transitions/0/value: parser state start: '0x010800' has 6 digits, the key only 4"},
    {"replace", STATE "/transitions/0/next_state", "\"gone\"",
     STATE "/transitions/0/next_state: parser state start: parser state gone does not exist"},
    {"replace", STATE "/transitions/0/type", "\"odd\"",
     STATE "/transitions/0/type: parser state start: transition type odd is not known"},
    {"replace", STATE "/transition_key/0/value/1", "\"src\"",
     STATE "/transitions/1/value: parser state start: value set kinds has 16 bits, the key 48"},
    {"replace", "/parsers/0/parse_states/1/name", "\"start\"",
     "/parsers/0/parse_states/1/name: parser state start is declared twice"},

    // Tables.
    {"remove", ACL "/name", "", ACL ": member 'name' is missing"},
    {"remove", ACL "/id", "", ACL ": table acl: member 'id' is missing"},
    {"replace", ACL "/name", "\"routes\"", ROUTES "/name: table routes is declared twice"},
    {"replace", "/pipelines/0/conditionals/0/name", "\"acl\"",
     "/pipelines/0/conditionals/0/name: table or conditional acl is declared twice"},
    {"replace", ACL "/base_default_next", "\"gone\"",
     ACL "/base_default_next: table acl: next node gone does not exist"},
    {"replace", ACL "/base_default_next", "\"ports_out\"",
     ACL "/base_default_next: table acl: next node ports_out belongs to pipeline egress"},
    {"replace", ACL "/next_tables/send", "\"acl\"", ACL ": pipeline ingress: acl follows itself"},
    {"replace", ROUTES "/next_tables/__HIT__", "\"tbl_helper\"",
     "/pipelines/0/tables/0: pipeline ingress: tbl_helper follows itself"},
    {"add", ACL "/next_tables/__HIT__", "null",
     ACL "/next_tables: table acl: next_tables names both actions and __HIT__ or __MISS__"},
    {"add", ACL "/next_tables/other", "null",
     ACL "/next_tables/other: table acl: action other is none of its actions"},
    {"replace", ACL "/match_type", "\"exact\"",
     ACL "/key/0/match_type: table acl is exact but key dst is ternary"},
    {"replace", ACL "/match_type", "\"odd\"",
     ACL "/match_type: table acl: match type odd is not known"},
    {"replace", ACL "/key/0/match_type", "\"lpm\"",
     ACL "/key/2/match_type: table acl has two lpm keys: dst and kind"},
    {"replace", ACL "/key/2/target", R"(["scalars", "wide"])",
     ACL "/key/2: table acl: key kind has 3000 bits; at most 128 can be matched"},
    {"replace", ACL "/key/0/mask", "\"0x1000000000000\"",
     ACL "/key/0/mask: table acl: value 281474976710656 does not fit 48 bits"},
    {"replace", "/pipelines/1/tables/0",
     R"({"name": "ports_out", "id": 3, "match_type": "exact", "type": "simple", "max_size": 0,
         "key": [{"match_type": "exact", "target": ["eth", "kind"]}], "action_ids": [4]})",
     "/pipelines/1/tables/0/max_size: table ports_out: size 0 is below 1"},
    {"replace", ACL "/max_size", "16777217",
     ACL "/max_size: table acl: size 16777217 is above the limit 16777216"},
    {"replace", "/pipelines/1/tables/0/type", "\"odd\"",
     "/pipelines/1/tables/0/type: table ports_out: type odd is not known"},
    {"replace", ACL "/action_ids/1", "99",
     ACL "/action_ids/1: table acl: action 99 does not exist"},
    {"replace", ACL "/action_ids", "[1, 3]", ACL ": table acl: action send is in its list twice"},
    {"replace", ACL "/default_entry/action_id", "4",
     ACL "/default_entry/action_id: table acl: action NoAction is none of its actions"},
    {"replace", ACL "/default_entry/action_data", "[\"0x1\"]",
     ACL "/default_entry/action_data: table acl: action send takes 2 values, not 1"},
    {"replace", ACL "/default_entry/action_data/0", "\"0x200\"",
     ACL "/default_entry/action_data/0: table acl: value 512 does not fit 9 bits"},
    {"replace", "/pipelines/0/tables/0/default_entry/action_data", "[]",
     "/pipelines/0/tables/0/default_entry/action_data: table tbl_helper: action helper takes 1 "
     "values, not 0"},

    // Entries.
    {"replace", "/pipelines/1/tables/0/entries/0/match_key/0/start", "\"0x9\"",
     "/pipelines/1/tables/0/entries/0/match_key/0/start: table ports_out, entry 0: start 9 is "
     "above end 5"},
    {"remove", ACL "/entries/1/match_key/2", "",
     ACL "/entries/1/match_key: table acl, entry 1: the key has 3 fields, not 2"},
    {"replace", ACL "/entries/1/match_key/0/match_type", "\"exact\"",
     ACL "/entries/1/match_key/0/match_type: table acl, entry 1: key dst is ternary, not exact"},
    {"replace", ACL "/entries/0/match_key/1/key", "\"0x2\"",
     ACL "/entries/0/match_key/1/key: table acl, entry 0: value 2 does not fit 1 bits"},
    {"replace", ACL "/entries/0/match_key/2/prefix_length", "17",
     ACL "/entries/0/match_key/2/prefix_length: table acl, entry 0: prefix length 17 is above the "
         "16 bits of key kind"},
    {"replace", ACL "/entries/0/action_entry/action_id", "2",
     ACL "/entries/0/action_entry/action_id: table acl, entry 0: action helper is none of its "
         "actions"},
    {"replace", ACL "/entries/0/action_entry/action_data", "[]",
     ACL "/entries/0/action_entry/action_data: table acl, entry 0: action send takes 2 values, "
         "not 0"},
    {"add", "/pipelines/1/tables/0/entries/1",
     R"({"match_key": [{"match_type": "range", "start": "0x01", "end": "0x5"}],
         "action_entry": {"action_id": 4, "action_data": []}, "priority": 1})",
     "/pipelines/1/tables/0/entries/1: table ports_out, entry 1: the same key has been given "
     "before"},

    // Profiles.
    {"replace", ROUTES "/action_profile", "\"none\"",
     ROUTES "/action_profile: table routes: action profile none does not exist"},
    {"remove", ROUTES "/action_profile", "",
     ROUTES ": table routes: member 'action_profile' is missing"},
    {"remove", "/pipelines/0/action_profiles/0/selector", "",
     ROUTES "/action_profile: table routes: action profile hops has no selector"},
    {"replace", "/pipelines/0/action_profiles/0/max_size", "0",
     "/pipelines/0/action_profiles/0/max_size: action profile hops: size 0 is below 1"},
    {"add", ROUTES "/default_entry", R"({"action_id": 3, "action_data": ["0x0", "0x0"]})",
     ROUTES "/default_entry: table routes: a table with an action profile has no default entry"},

    // Calculations and checksums.
    {"replace", "/calculations/0/algo", "\"md5\"",
     "/calculations/0/algo: calculation sum: algorithm md5 is not available"},
    {"remove", "/calculations/0/input/1/bitwidth", "",
     "/calculations/0/input/1: calculation sum: member 'bitwidth' is missing"},
    {"replace", "/checksums/0/calculation", "\"none\"",
     "/checksums/0/calculation: checksum ck: calculation none does not exist"},
    {"replace", "/checksums/0/type", "\"ipv4\"",
     "/checksums/0/type: checksum ck: type ipv4 is not known"},
    {"replace", "/deparsers/0/order/0", "\"scalars\"",
     "/deparsers/0/order/0: header scalars is metadata, which does not leave"},

    // What stays from packet to packet.
    {"replace", "/register_arrays/0/size", "4294967295",
     "/register_arrays/0/size: register cells: size 4294967295 is above the limit 44739242"},
    {"replace", "/register_arrays/0/size", "0",
     "/register_arrays/0/size: register cells: size 0 is below 1"},
    {"replace", "/register_arrays/0/bitwidth", "0",
     "/register_arrays/0/bitwidth: register cells: must be a whole number from 1 to 2048"},
    {"replace", "/counter_arrays/0/binding", "\"none\"",
     "/counter_arrays/0/binding: counter hits: table none does not exist"},
    {"replace", "/counter_arrays/1/size", "16777217",
     "/counter_arrays/1/size: counter ports: size 16777217 is above the limit 16777213"},
    {"replace", "/meter_arrays/0/type", "\"bits\"",
     "/meter_arrays/0/type: meter rates: type bits is not known"},
    {"replace", "/meter_arrays/0/rate_count", "3",
     "/meter_arrays/0/rate_count: meter rates: a meter has 2 rates"},
    {"replace", "/learn_lists/0/elements/0/type", "\"hexstr\"",
     "/learn_lists/0/elements/0: learn list learn_t: must be a field"},
    {"replace", "/field_lists/0/elements/0/value/1", "\"none\"",
     "/field_lists/0/elements/0/value/1: field list kept: field scalars.none does not exist"},
};

V1modelJson patched(const V1modelErrorRow& row) {
  V1modelJson patch = {{{"op", row.op}, {"path", row.path}}};
  if (std::string(row.op) != "remove") patch[0]["value"] = V1modelJson::parse(row.value);
  return V1modelJson::parse(kV1modelBase).patch(patch);
}

TEST(V1modelErrors, BaseIsRight) {
  UnpackedProgram unpacked;
  LoadError error;
  EXPECT_TRUE(programFromV1model(kV1modelBase, "base.json", &unpacked, &error)) << error.text();
}

TEST(V1modelErrors, EachIsOneLineWithItsPlace) {
  for (const V1modelErrorRow& row : kV1modelErrors) {
    UnpackedProgram unpacked;
    unpacked.program.name = "untouched";
    LoadError error;
    const bool loaded = programFromV1model(patched(row).dump(), "base.json", &unpacked, &error);
    EXPECT_FALSE(loaded) << row.path << " " << row.value;
    EXPECT_EQ(error.text(), std::string("base.json: ") + row.error);
    EXPECT_EQ(unpacked.program.name, "untouched");
    EXPECT_TRUE(unpacked.program.tables.empty());
  }
}

}  // namespace
}  // namespace jxmodel
