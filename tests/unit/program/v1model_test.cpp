// What each construct of a compiled program becomes.
#include "model/program/v1model/v1model.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "v1model_base.h"
#include "v1model_text.h"

namespace jxmodel {
namespace {

using Document = nlohmann::json;

struct Loaded {
  UnpackedProgram unpacked;
  LoadError error;
  std::vector<std::string> notices;
  const Program& program() const { return unpacked.program; }
  const Machine& machine() const { return *unpacked.program.machine; }
};

Loaded load(const Document& document) {
  Loaded loaded;
  const bool right = programFromV1model(document.dump(), "dir/base.v1.json", &loaded.unpacked,
                                        &loaded.error, &loaded.notices);
  EXPECT_TRUE(right) << loaded.error.text();
  if (!right) loaded.unpacked.program.machine = std::make_shared<Machine>();
  return loaded;
}

Document base() { return Document::parse(kV1modelBase); }

struct TextRow {
  const char* json;
  const char* text;
};

#define HEX(value) R"({"type": "hexstr", "value": ")" value R"("})"
#define FIELD(header, field) R"({"type": "field", "value": [")" header R"(", ")" field R"("]})"
#define OP(op, left, right) R"({"op": ")" op R"(", "left": )" left R"(, "right": )" right "}"
#define EXPR(value) R"({"type": "expression", "value": )" value "}"
#define TAG R"({"type": "header_stack", "value": "tag"})"
#define AT(index) OP("dereference_header_stack", TAG, index)
#define UNION_AT(index) \
  OP("dereference_union_stack", R"({"type": "header_union_stack", "value": "us"})", index)

const TextRow kOperands[] = {
    {HEX("0x00ff"), "255"},
    {HEX("-0x5"), "-5"},
    {HEX("-0x0"), "0"},
    {HEX("0x123456789abcdef0123456789abcdef0123"), "number of 18 bytes"},
    {R"({"type": "bool", "value": true})", "1"},
    {FIELD("eth", "dst"), "eth.dst"},
    {FIELD("eth", "$valid$"), "valid(eth)"},
    {FIELD("intrinsic_metadata", "mcast_grp"), "standard_metadata.mcast_grp"},
    {FIELD("scalars", "wide"), "scalars.wide"},
    {R"({"type": "local", "value": 1})", "p1"},
    {R"({"type": "runtime_data", "value": 0})", "p0"},
    {EXPR(EXPR(EXPR(FIELD("eth", "dst")))), "eth.dst"},
    {R"({"type": "stack_field", "value": ["tag", "low"]})", "tag[last].1"},
    {R"({"type": "stack_field", "value": ["tag", "$valid$"]})", "tag.last valid(tag[])"},
    {R"({"type": "union_stack_field", "value": ["us", "t", "low"]})", "us[last].1.1"},
    {R"({"type": "register", "value": ["cells", {"type": "hexstr", "value": "0x3"}]})",
     "3 cells[]"},
    {EXPR(OP("+", HEX("0x1"), HEX("0x2"))), "1 2 +"},
    {OP("-", FIELD("eth", "dst"), HEX("0x2")), "eth.dst 2 -"},
    {OP("-", "null", HEX("0x2")), "0 2 -"},
    {OP("*", HEX("0x1"), HEX("0x2")), "1 2 *"},
    {OP("/", HEX("0x1"), HEX("0x2")), "1 2 /"},
    {OP("%", HEX("0x1"), HEX("0x2")), "1 2 %"},
    {OP("<<", HEX("0x1"), HEX("0x2")), "1 2 <<"},
    {OP(">>", HEX("0x1"), HEX("0x2")), "1 2 >>"},
    {OP("&", HEX("0x1"), HEX("0x2")), "1 2 &"},
    {OP("|", HEX("0x1"), HEX("0x2")), "1 2 |"},
    {OP("^", HEX("0x1"), HEX("0x2")), "1 2 ^"},
    {OP("~", "null", HEX("0x2")), "2 ~"},
    {OP("==", HEX("0x1"), HEX("0x2")), "1 2 =="},
    {OP("!=", HEX("0x1"), HEX("0x2")), "1 2 !="},
    {OP("<", HEX("0x1"), HEX("0x2")), "1 2 <"},
    {OP("<=", HEX("0x1"), HEX("0x2")), "1 2 <="},
    {OP(">", HEX("0x1"), HEX("0x2")), "1 2 >"},
    {OP(">=", HEX("0x1"), HEX("0x2")), "1 2 >="},
    {OP("and", OP("<", HEX("0x1"), HEX("0x2")), R"({"type": "bool", "value": false})"),
     "1 2 < 0 and"},
    {OP("or", FIELD("scalars", "b"), FIELD("eth", "$valid$")), "scalars.b bool valid(eth) or"},
    {OP("not", "null", FIELD("eth", "$valid$")), "valid(eth) not"},
    {OP("d2b", "null", FIELD("scalars", "x")), "scalars.x bool"},
    {OP("d2b", "null", FIELD("eth", "$valid$")), "valid(eth)"},
    {OP("b2d", "null", OP("d2b", "null", FIELD("scalars", "x"))), "scalars.x bool"},
    {OP("valid", "null", R"({"type": "header", "value": "eth"})"), "valid(eth)"},
    {OP("valid", "null", AT(FIELD("scalars", "x"))), "scalars.x valid(tag[])"},
    {OP("valid_union", "null", R"({"type": "header_union", "value": "u"})"), "valid(u)"},
    {R"({"op": "?", "cond": {"type": "bool", "value": true}, "left": {"type": "hexstr", "value": "0x1"},
         "right": {"type": "hexstr", "value": "0x2"}})",
     "1 1 2 ?"},
    {OP("two_comp_mod", HEX("0x101"), HEX("0x8")), "257 wrap8"},
    {OP("usat_cast", HEX("0x101"), HEX("0x8")), "257 uclamp8"},
    {OP("sat_cast", HEX("0x101"), HEX("0x8")), "257 sclamp8"},
    {OP("==", R"({"type": "header", "value": "opt"})", R"({"type": "header", "value": "opt2"})"),
     "equal(opt,opt2)"},
    {OP("!=", R"({"type": "header", "value": "opt"})", R"({"type": "header", "value": "opt2"})"),
     "equal(opt,opt2) not"},
    {OP("==", FIELD("scalars", "wide"), FIELD("scalars", "wide")), "scalars.wide scalars.wide =="},
    {OP("last_stack_index", "null", TAG), "tag.last"},
    {OP("size_stack", "null", TAG), "tag.next"},
    {OP("access_field", AT(HEX("0x1")), "0"), "tag[1].id"},
    {OP("access_field", AT(EXPR(OP("+", FIELD("scalars", "x"), HEX("0x1")))), "1"),
     "scalars.x 1 + tag[].1"},
    {OP("access_field", AT(FIELD("scalars", "x")), "2"), "scalars.x valid(tag[])"},
    {OP("access_field", R"({"type": "header", "value": "eth"})", "2"), "eth.kind"},
    {OP("access_field", OP("access_union_header", R"({"type": "header_union", "value": "u"})", "1"),
        "0"),
     "u.t.id"},
    {OP("access_field", OP("access_union_header", UNION_AT(HEX("0x1")), "0"), "0"), "us[1].s.a"},
    {OP("access_field", OP("access_union_header", UNION_AT(FIELD("scalars", "x")), "1"), "1"),
     "scalars.x us[].1.1"},
};

std::string valueText(const std::string& operand) {
  Document document = base();
  document["actions"][1]["primitives"][0]["parameters"][1] = Document::parse(operand);
  const Loaded loaded = load(document);
  if (loaded.machine().actions.empty()) return "";
  const std::string text = stepText(loaded.machine().actions[1].steps[0], loaded.machine());
  return text.substr(text.find(":= ") + 3);
}

TEST(V1model, ReadsEveryOperandAndOperator) {
  for (const TextRow& row : kOperands) EXPECT_EQ(valueText(row.json), row.text) << row.json;
}

#define STEP_OF(op, parameters) R"({"op": ")" op R"(", "parameters": [)" parameters "]}"
#define X FIELD("scalars", "x")
#define HEADER(name) R"({"type": "header", "value": ")" name R"("})"
#define STACK(name) R"({"type": "header_stack", "value": ")" name R"("})"
#define ARRAY(kind, name) R"({"type": ")" kind R"(", "value": ")" name R"("})"

const TextRow kSteps[] = {
    {STEP_OF("assign", X "," HEX("0x5")), "assign scalars.x := 5"},
    {STEP_OF("assign", R"({"type": "stack_field", "value": ["tag", "id"]},)" X),
     "assign tag[last].0 := scalars.x"},
    {STEP_OF("assign", EXPR(OP("access_field", AT(X), "1")) "," X),
     "assign tag[scalars.x].1 := scalars.x"},
    {STEP_OF("assign", FIELD("opt", "data") "," FIELD("opt2", "data")),
     "varbit opt.data := opt2.data"},
    {STEP_OF("assign_VL", FIELD("opt", "data") "," FIELD("opt2", "data")),
     "varbit opt.data := opt2.data"},
    {STEP_OF("assign_header", HEADER("opt") "," HEADER("opt2")), "header opt := opt2"},
    {STEP_OF("assign_header", EXPR(AT(X)) "," HEADER("tag[0]")), "header tag[scalars.x] := tag[0]"},
    {STEP_OF("assign_header_stack", STACK("tag") "," STACK("old")), "stack tag := old"},
    {STEP_OF("assign_union", ARRAY("header_union", "us[0]") "," ARRAY("header_union", "u")),
     "union us[0] := u"},
    {STEP_OF("assign_union_stack",
             ARRAY("header_union_stack", "us") "," ARRAY("header_union_stack", "us")),
     "union stack us := us"},
    {STEP_OF("add_header", HEADER("eth")), "add eth"},
    {STEP_OF("remove_header", EXPR(AT(X))), "remove tag[scalars.x]"},
    {STEP_OF("push", STACK("tag") "," HEX("0x1")), "push tag 1"},
    {STEP_OF("pop", STACK("tag") "," HEX("0xffffffff")), "pop tag 2"},
    {STEP_OF("mark_to_drop", HEADER("standard_metadata")),
     "drop standard_metadata.egress_spec standard_metadata.mcast_grp"},
    {STEP_OF("mark_to_drop", HEADER("smeta_0")), "drop smeta_0.egress_spec smeta_0.mcast_grp"},
    {STEP_OF("_jump", HEX("0x1")), "jump 1"},
    {STEP_OF("_jump_if_zero", EXPR(OP("d2b", "null", X)) "," HEX("0x1")),
     "jump 1 if 0: scalars.x bool"},
    {STEP_OF("exit", ""), "exit"},
    {STEP_OF("modify_field_with_hash_based_offset",
             X "," HEX("0x1") "," ARRAY("calculation", "sum") "," HEX("0x8")),
     "hash scalars.x := sum from 1 below 8"},
    {STEP_OF("modify_field_rng_uniform", X "," HEX("0x1") "," HEX("0x8")),
     "random scalars.x := 1 to 8"},
    {STEP_OF("register_read", X "," ARRAY("register_array", "cells") "," X),
     "read scalars.x := cells at scalars.x"},
    {STEP_OF("register_write", ARRAY("register_array", "cells") "," HEX("0x7") "," X),
     "write cells at 7 := scalars.x"},
    {STEP_OF("count", ARRAY("counter_array", "ports") "," X), "count ports at scalars.x"},
    {STEP_OF("execute_meter", ARRAY("meter_array", "rates") "," X "," X),
     "meter scalars.x := rates at scalars.x"},
    {STEP_OF("generate_digest", HEX("0x1") "," HEX("0x1")), "digest 0"},
    {STEP_OF("clone_ingress_pkt_to_egress", HEX("0x5") "," HEX("0x1")),
     "clone ingress 5 keeps kept"},
    {STEP_OF("clone_egress_pkt_to_egress", R"({"type": "runtime_data", "value": 0},)" HEX("0x9")),
     "clone egress p0"},
    {STEP_OF("resubmit", HEX("0x1")), "resubmit keeps kept"},
    {STEP_OF("recirculate", HEX("0x0")), "recirculate"},
    {STEP_OF("truncate", X), "truncate scalars.x"},
    {STEP_OF("log_msg", R"({"type": "string", "value": "x={}"},
                           {"type": "parameters_vector", "value": [)" X "]}"),
     "log 'x={}' (scalars.x)"},
    {STEP_OF("log_msg",
             R"({"type": "string", "value": "x"}, {"type": "parameters_vector", "value": {}})"),
     "log 'x'"},
    {STEP_OF("log_msg",
             R"({"type": "string", "value": "x"}, {"type": "parameters_vector", "value": null})"),
     "log 'x'"},
    {STEP_OF("assert", EXPR(OP("==", X, HEX("0x1")))), "assert scalars.x 1 =="},
    {STEP_OF("assume", EXPR(OP("b2d", "null", OP("==", X, HEX("0x1"))))), "assert scalars.x 1 =="},
    {STEP_OF("modify_field", X "," HEX("0x5")), "assign scalars.x := 5"},
    {STEP_OF("copy_header", HEADER("opt") "," HEADER("opt2")), "header opt := opt2"},
    {STEP_OF("drop", ""), "drop standard_metadata.egress_spec standard_metadata.mcast_grp"},
    {STEP_OF("no_op", ""), "jump 1"},
    {STEP_OF("add_to_field", X "," HEX("0x5")), "assign scalars.x := scalars.x 5 +"},
    {STEP_OF("subtract_from_field", X "," HEX("0x5")), "assign scalars.x := scalars.x 5 -"},
    {STEP_OF("bit_xor", X "," HEX("0x5") "," HEX("0x6")), "assign scalars.x := 5 6 ^"},
};

TEST(V1model, ReadsEveryPrimitive) {
  for (const TextRow& row : kSteps) {
    Document document = base();
    document["actions"][1]["primitives"][0] = Document::parse(row.json);
    const Loaded loaded = load(document);
    ASSERT_FALSE(loaded.machine().actions.empty()) << row.json;
    EXPECT_EQ(stepText(loaded.machine().actions[1].steps[0], loaded.machine()), row.text);
  }
}

// As deep as compilers were seen to nest; a wrapper around each operator.
TEST(V1model, ReadsDeepExpressionsAndRefusesDeeperOnes) {
  const auto nested = [](size_t levels) {
    std::string text;
    for (size_t i = 0; i < levels; ++i) {
      text += R"({"type":"expression","value":{"type":"expression","value":{"op":"+","left":)";
    }
    text += HEX("0x1");
    for (size_t i = 0; i < levels; ++i) text += R"(,"right":)" HEX("0x1") "}}}";
    return text;
  };
  const auto document = [&nested](size_t levels) {
    std::string text = kV1modelBase;
    const std::string place = R"({"type": "runtime_data", "value": 0})";
    return text.replace(text.find(place), place.size(), nested(levels));
  };
  UnpackedProgram unpacked;
  LoadError error;
  ASSERT_TRUE(programFromV1model(document(4096), "deep.json", &unpacked, &error)) << error.text();
  const auto& step = std::get<AssignStep>(unpacked.program.machine->actions[1].steps[0]);
  EXPECT_EQ(step.value.size(), 2 * 4096u + 1);

  EXPECT_FALSE(programFromV1model(document(22'000), "deep.json", &unpacked, &error));
  EXPECT_NE(error.text().find("nested deeper than 65536 levels"), std::string::npos);
  EXPECT_LT(error.text().size(), 1000u);
}

TEST(V1model, RefusesAnExpressionThatIsTooLong) {
  Document sum = Document::parse(HEX("0x1"));
  // Balanced, so that only the length is beyond the limit.
  for (int i = 0; i < 16; ++i) sum = {{"op", "+"}, {"left", sum}, {"right", sum}};
  Document document = base();
  document["actions"][1]["primitives"][0]["parameters"][1] = sum;
  UnpackedProgram unpacked;
  LoadError error;
  EXPECT_FALSE(programFromV1model(document.dump(), "long.json", &unpacked, &error));
  EXPECT_EQ(error.text(),
            "long.json: /actions/1/primitives/0/parameters/1: action send: expression is longer "
            "than 65536 steps");
}

TEST(V1model, KeepsFieldsOfHeaders) {
  const Loaded loaded = load(base());
  const Machine& machine = loaded.machine();
  const MachineHeader& opt = machine.headers[5];
  EXPECT_EQ(opt.name, "opt");
  EXPECT_EQ(opt.fixed_bits, 8u);
  EXPECT_EQ(opt.max_bytes, 5u);
  ASSERT_TRUE(opt.varbit_field.has_value());
  EXPECT_EQ(machine.fields[*opt.varbit_field].width, 32u);
  const MachineHeader& scalars = machine.headers[0];
  EXPECT_FALSE(machine.fields[scalars.first_field].is_signed);
  EXPECT_TRUE(machine.fields[scalars.first_field + 1].is_signed);
  EXPECT_FALSE(machine.fields[scalars.first_field + 2].is_signed);
  EXPECT_EQ(machine.headers[7].in_union, 0u);
  EXPECT_EQ(machine.union_stacks[0].unions, (std::vector<uint32_t>{1, 2}));
  EXPECT_EQ(machine.standard.header, 1u);
  EXPECT_EQ(machine.fields[*machine.standard.egress_rid].name, "egress_rid");
  EXPECT_EQ(machine.errors.no_error, 3u);
  EXPECT_EQ(machine.errors.packet_too_short, 4u);
  EXPECT_EQ(machine.errors.names.back(), (std::pair<std::string, uint32_t>{"Mine", 0}));
}

TEST(V1model, ReadsEveryParserOperation) {
  Document document = base();
  document["parsers"][0]["parse_states"][0]["parser_ops"] = Document::parse(R"([
    {"op": "extract", "parameters": [{"type": "regular", "value": "eth"}]},
    {"op": "extract", "parameters": [{"type": "stack", "value": "tag"}]},
    {"op": "extract", "parameters": [{"type": "union_stack", "value": ["us", "t"]}]},
    {"op": "extract_VL", "parameters": [{"type": "regular", "value": "opt"},
        {"type": "expression", "value": {"type": "field", "value": ["scalars", "x"]}}]},
    {"op": "set", "parameters": [{"type": "field", "value": ["scalars", "x"]},
                                 {"type": "lookahead", "value": [4, 12]}]},
    {"op": "verify", "parameters": [{"type": "bool", "value": false},
                                    {"type": "hexstr", "value": "0x7"}]},
    {"op": "advance", "parameters": [{"type": "hexstr", "value": "0x10"}]},
    {"op": "shift", "parameters": [2]},
    {"op": "primitive", "parameters": [{"op": "no_op", "parameters": []}]},
    {"op": "primitive", "parameters": [{"op": "remove_header",
                                        "parameters": [{"type": "header", "value": "eth"}]}]}])");
  const Loaded loaded = load(document);
  const Machine& machine = loaded.machine();
  ASSERT_EQ(machine.states.size(), 2u);
  const auto& ops = machine.states[0].ops;
  ASSERT_EQ(ops.size(), 9u);
  EXPECT_EQ(std::get<ExtractHeader>(std::get<Extract>(ops[0]).what).header, 2u);
  EXPECT_EQ(std::get<ExtractNext>(std::get<Extract>(ops[1]).what).stack, 0u);
  EXPECT_EQ(std::get<ExtractUnionNext>(std::get<Extract>(ops[2]).what).member, 1u);
  EXPECT_EQ(expressionText(*std::get<Extract>(ops[3]).varbit_bits, machine), "scalars.x");
  EXPECT_EQ(stepText(std::get<MachineStep>(ops[4]), machine), "assign scalars.x := ahead(4,12)");
  EXPECT_EQ(expressionText(std::get<Verify>(ops[5]).condition, machine), "0");
  EXPECT_EQ(expressionText(std::get<Verify>(ops[5]).error, machine), "7");
  EXPECT_EQ(expressionText(std::get<Advance>(ops[6]).bits, machine), "16");
  EXPECT_EQ(expressionText(std::get<Advance>(ops[7]).bits, machine), "16");
  EXPECT_EQ(stepText(std::get<MachineStep>(ops[8]), machine), "remove eth");
}

TEST(V1model, PadsValuesOfTransitionsPerKeyField) {
  Document document = base();
  auto& state = document["parsers"][0]["parse_states"][0];
  state["transition_key"] = Document::parse(R"([
    {"type": "field", "value": ["tag[0]", "id"]}, {"type": "stack_field", "value": ["tag", "low"]},
    {"type": "lookahead", "value": [0, 4]}, {"type": "field", "value": ["eth", "$valid$"]}])");
  document["parse_vsets"][0]["compressed_bitwidth"] = 21;
  state["transitions"][0]["value"] = "0xaba030401";
  state["transitions"][0]["mask"] = "0xff";
  const Loaded loaded = load(document);
  ASSERT_EQ(loaded.machine().states.size(), 2u);
  const ParserState& read = loaded.machine().states[0];
  ASSERT_EQ(read.key.size(), 4u);
  EXPECT_EQ(read.key[0].width, 12u);
  EXPECT_EQ(expressionText(read.key[1].value, loaded.machine()), "tag[last].1");
  EXPECT_EQ(read.key[2].width, 4u);
  EXPECT_EQ(read.key[3].width, 1u);
  EXPECT_EQ(read.transitions[0].value, (std::vector<uint8_t>{0x0A, 0xBA, 0x03, 0x04, 0x01}));
  EXPECT_EQ(read.transitions[0].mask, (std::vector<uint8_t>{0, 0, 0, 0, 0xFF}));
  EXPECT_EQ(read.transitions[0].next, 1u);
  EXPECT_EQ(read.transitions[1].kind, Transition::Kind::kValueSet);
  EXPECT_EQ(read.transitions[2].kind, Transition::Kind::kDefault);
  EXPECT_EQ(loaded.machine().value_sets[0].widths, (std::vector<uint32_t>{12, 4, 4, 1}));
}

TEST(V1model, OrdersTables) {
  const Loaded loaded = load(base());
  std::vector<std::string> names;
  for (const Table& table : loaded.program().tables) names.push_back(table.name);
  EXPECT_EQ(names, (std::vector<std::string>{"acl", "routes", "ports_out", "hops", "hops_selector",
                                             "ports", "hits"}));
  EXPECT_EQ(loaded.program().name, "base.v1");
}

TEST(V1model, DescribesAMatchTable) {
  const Loaded loaded = load(base());
  const Table& acl = loaded.program().tables[0];
  EXPECT_EQ(acl.type, JX_RT_TABLE_MATCH_DIRECT);
  EXPECT_EQ(acl.size, 100u);
  ASSERT_EQ(acl.key.size(), 3u);
  EXPECT_EQ(acl.key[0].match, JX_RT_MATCH_TERNARY);
  EXPECT_EQ(acl.key[1].name, "tag[0].$valid$");
  EXPECT_EQ(acl.key[1].width, 1u);
  EXPECT_EQ(acl.key[2].match, JX_RT_MATCH_LPM);
  EXPECT_FALSE(acl.key[0].field.has_value());
  EXPECT_TRUE(acl.idle_timeout);
  EXPECT_EQ(acl.direct_counter, 6u);
  EXPECT_EQ(loaded.program().tables[6].counted_table, 0u);
  EXPECT_EQ(loaded.program().tables[6].size, 100u);
  ASSERT_TRUE(acl.default_action.has_value());
  EXPECT_EQ(acl.default_action->params, (std::vector<uint8_t>{0, 7, 0, 0, 0, 0, 0, 8}));
  EXPECT_FALSE(acl.constant_default);
  EXPECT_TRUE(acl.constant_entries);
  // One action per name, in the order in which tables name them.
  ASSERT_EQ(loaded.program().actions.size(), 2u);
  EXPECT_EQ(loaded.program().actions[0].name, "send");
  EXPECT_EQ(acl.actions, (std::vector<uint32_t>{0, 1}));
  EXPECT_EQ(loaded.program().tables[2].actions, (std::vector<uint32_t>{1}));
}

TEST(V1model, TurnsPrioritiesRound) {
  const Loaded loaded = load(base());
  const auto& entries = loaded.unpacked.entries[0];
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].priority, 9997u);
  EXPECT_EQ(entries[1].priority, 9999u);
  EXPECT_EQ(entries[0].key[0].value, (std::vector<uint8_t>{0, 0, 0, 0, 0, 1}));
  EXPECT_EQ(entries[0].key[0].other, (std::vector<uint8_t>{0, 0, 0, 0, 0, 0x0F}));
  EXPECT_EQ(entries[0].key[2].value, (std::vector<uint8_t>{8, 0}));
  EXPECT_EQ(entries[0].key[2].prefix, 8u);
  EXPECT_EQ(entries[0].call.action, 0u);

  Document document = base();
  document["pipelines"][0]["tables"][1]["entries"][0]["priority"] = 4'000'000'000u;
  const Loaded ranked = load(document);
  EXPECT_EQ(ranked.unpacked.entries[0][0].priority, 0u);
  EXPECT_EQ(ranked.unpacked.entries[0][1].priority, 1u);
}

TEST(V1model, LaysTheMaskOfAKeyOverItsEntries) {
  Document document = base();
  auto& table = document["pipelines"][0]["tables"][1];
  table["key"][0]["mask"] = "0x010101010101";
  table["entries"][0]["match_key"][0]["key"] = "0xffffffffffff";
  table["entries"][0]["match_key"][0]["mask"] = "0xffffffffffff";
  const Loaded loaded = load(document);
  const std::vector<uint8_t> mask(6, 1);
  EXPECT_EQ(loaded.unpacked.entries[0][0].key[0].value, mask);
  const auto& node = std::get<TableNode>(loaded.machine().nodes[1].node);
  EXPECT_EQ(node.key_masks[0], mask);
  EXPECT_TRUE(node.key_masks[1].empty());
}

TEST(V1model, TakesComputedAndRepeatedKeyTargets) {
  Document document = base();
  auto& key = document["pipelines"][1]["tables"][0]["key"];
  key[0]["match_type"] = "range";
  document["pipelines"][1]["tables"][0].erase("entries");
  key.push_back(Document::parse(
      R"({"match_type": "ternary", "name": "again", "target": ["standard_metadata", "egress_port"]})"));
  key.push_back(Document::parse(R"({"match_type": "exact", "name": "at", "target": )" EXPR(
      OP("access_field", AT(FIELD("scalars", "x")), "0")) "}"));
  key.push_back(Document::parse(R"({"match_type": "valid", "name": "v", "target": "opt"})"));
  const Loaded loaded = load(document);
  const Table& table = loaded.program().tables[2];
  ASSERT_EQ(table.key.size(), 4u);
  EXPECT_EQ(table.key[2].width, 12u);
  EXPECT_EQ(table.key[3].match, JX_RT_MATCH_EXACT);
  const auto& node = std::get<TableNode>(loaded.machine().nodes[3].node);
  ASSERT_EQ(node.key.size(), 4u);
  EXPECT_EQ(expressionText(node.key[1], loaded.machine()), "standard_metadata.egress_port");
  EXPECT_EQ(expressionText(node.key[2], loaded.machine()), "scalars.x tag[].0");
  EXPECT_EQ(expressionText(node.key[3], loaded.machine()), "valid(opt)");
}

TEST(V1model, LinksNodes) {
  const Loaded loaded = load(base());
  const Machine& machine = loaded.machine();
  ASSERT_EQ(machine.nodes.size(), 5u);
  EXPECT_EQ(machine.ingress, 4u);
  EXPECT_EQ(machine.egress, 3u);
  const auto& call = std::get<CallNode>(machine.nodes[0].node);
  EXPECT_EQ(call.action, 2u);
  EXPECT_EQ(call.params, (std::vector<std::vector<uint8_t>>{{0x0A, 0xBC}}));
  EXPECT_EQ(call.next, 1u);
  const auto& acl = std::get<TableNode>(machine.nodes[1].node);
  EXPECT_EQ(acl.table, 0u);
  EXPECT_EQ(acl.actions[0].action, 1u);
  EXPECT_EQ(acl.actions[0].next, 2u);
  EXPECT_FALSE(acl.actions[1].next.has_value());
  EXPECT_EQ(acl.base_next, 2u);
  EXPECT_FALSE(acl.by_hit);
  EXPECT_EQ(acl.direct_counter, 6u);
  EXPECT_EQ(acl.direct_meter, 1u);
  EXPECT_EQ(machine.meters[1].table, 0u);
  EXPECT_EQ(machine.meters[1].size, 100u);
  EXPECT_EQ(machine.counters[0].table, 6u);
  EXPECT_EQ(machine.counters[1].table, 5u);
  const auto& routes = std::get<TableNode>(machine.nodes[2].node);
  EXPECT_TRUE(routes.by_hit);
  EXPECT_EQ(routes.actions[0].action, 3u);
  ASSERT_TRUE(routes.selector.has_value());
  EXPECT_EQ(machine.calculations[*routes.selector].algorithm, HashAlgorithm::kCrc16);
  const auto& condition = std::get<ConditionNode>(machine.nodes[4].node);
  EXPECT_EQ(condition.on_true, 0u);
  EXPECT_EQ(condition.on_false, 1u);
  EXPECT_EQ(expressionText(condition.condition, machine), "valid(eth)");
}

TEST(V1model, SharesProfiles) {
  const Loaded loaded = load(base());
  const auto& tables = loaded.program().tables;
  EXPECT_EQ(tables[1].type, JX_RT_TABLE_MATCH_SELECTOR);
  EXPECT_EQ(tables[1].action_data_table, 3u);
  EXPECT_EQ(tables[1].selector_table, 4u);
  EXPECT_TRUE(tables[1].key.empty());
  EXPECT_EQ(tables[3].type, JX_RT_TABLE_ACTION_DATA);
  EXPECT_EQ(tables[3].actions, (std::vector<uint32_t>{0}));
  EXPECT_EQ(tables[3].key[0].name, JX_RT_FIELD_MEMBER_ID);
  EXPECT_EQ(tables[4].action_data_table, 3u);
  EXPECT_EQ(tables[4].max_members, 16u);
}

TEST(V1model, DescribesDigests) {
  Document document = base();
  document["learn_lists"].push_back(document["learn_lists"][0]);
  document["learn_lists"][1]["id"] = 2;
  const Loaded loaded = load(document);
  ASSERT_EQ(loaded.program().learns.size(), 2u);
  EXPECT_EQ(loaded.program().learns[0].name, "learn_t");
  EXPECT_EQ(loaded.program().learns[1].name, "learn_t_2");
  const PacketField& field = loaded.program().fields[loaded.program().learns[1].fields[0].field];
  EXPECT_EQ(field.name, "f0");
  EXPECT_EQ(field.width, 16u);
  EXPECT_EQ(loaded.machine().learns[1].fields.size(), 1u);
}

TEST(V1model, ReadsCalculationsAndChecksums) {
  const Loaded loaded = load(base());
  const Machine& machine = loaded.machine();
  const auto& inputs = machine.calculations[0].inputs;
  ASSERT_EQ(inputs.size(), 4u);
  EXPECT_TRUE(std::holds_alternative<FieldInput>(inputs[0]));
  EXPECT_EQ(std::get<ConstantInput>(inputs[1]).width, 8u);
  EXPECT_EQ(std::get<HeaderInput>(inputs[2]).header, 2u);
  EXPECT_TRUE(std::holds_alternative<PayloadInput>(inputs[3]));
  EXPECT_TRUE(machine.checksums[0].update);
  EXPECT_FALSE(machine.checksums[0].verify);
  EXPECT_EQ(expressionText(*machine.checksums[0].condition, machine), "1");
  EXPECT_EQ(machine.deparser, (std::vector<uint32_t>{2, 3}));
}

struct AlgorithmCase {
  const char* name;
  HashAlgorithm algorithm;
};

TEST(V1model, KnowsEveryAlgorithm) {
  constexpr AlgorithmCase kCases[] = {
      {"csum16", HashAlgorithm::kCsum16},      {"xor16", HashAlgorithm::kXor16},
      {"crc16", HashAlgorithm::kCrc16},        {"crc32", HashAlgorithm::kCrc32},
      {"identity", HashAlgorithm::kIdentity},  {"random", HashAlgorithm::kRandom},
      {"crc16_custom", HashAlgorithm::kCrc16}, {"crc32_custom", HashAlgorithm::kCrc32}};
  for (const AlgorithmCase& row : kCases) {
    Document document = base();
    document["calculations"][0]["algo"] = row.name;
    const Loaded loaded = load(document);
    EXPECT_EQ(loaded.machine().calculations[0].algorithm, row.algorithm) << row.name;
  }
}

TEST(V1model, IgnoresWhatItDoesNotKnow) {
  Document document = base();
  document["vendor"] = {{"a", 1}};
  document["headers"][0]["pi_omit"] = true;
  document["actions"][1]["primitives"][0]["source_info"] = Document::parse(
      R"({"filename": "a.p4", "line": 7, "column": 1, "source_fragment": "x = 1"})");
  const Loaded loaded = load(document);
  const SourcePlace& place = loaded.machine().actions[1].places[0];
  EXPECT_EQ(place.file, "a.p4");
  EXPECT_EQ(place.line, 7u);
  EXPECT_EQ(place.fragment, "x = 1");
}

TEST(V1model, SaysWhatDoesLessThanExpected) {
  const Loaded loaded = load(base());
  EXPECT_EQ(loaded.notices,
            (std::vector<std::string>{"meter rates: packets are green until rates are set",
                                      "meter flows: packets are green until rates are set",
                                      "value set kinds: matches nothing until members are added"}));
}

// An author's table without a key can be programmed: more than one action, or a default to change.
TEST(V1model, HidesOnlyTablesOfTheCompiler) {
  Document document = base();
  document["pipelines"][0]["tables"][0]["default_entry"]["action_const"] = false;
  const Loaded loaded = load(document);
  ASSERT_FALSE(loaded.program().tables.empty());
  EXPECT_EQ(loaded.program().tables[0].name, "tbl_helper");
  EXPECT_TRUE(loaded.program().tables[0].key.empty());
}

}  // namespace
}  // namespace jxmodel
