// A small compiled program that tests change at one place.
#pragma once

namespace jxmodel {

inline constexpr const char* kV1modelBase = R"({
  "__meta__": {"version": [2, 23]},
  "header_types": [
    {"name": "scalars_0", "id": 0, "fields": [["x", 16, false], ["s", 8, true], ["b", 1, 0],
                                              ["wide", 3000, false], ["_padding", 7, false]]},
    {"name": "standard_metadata", "id": 1, "fields": [
      ["ingress_port", 9, false], ["egress_spec", 9, false], ["egress_port", 9, false],
      ["instance_type", 32, false], ["packet_length", 32, false],
      ["ingress_global_timestamp", 48, false], ["egress_global_timestamp", 48, false],
      ["mcast_grp", 16, false], ["egress_rid", 16, false], ["checksum_error", 1, false],
      ["parser_error", 32, false], ["_padding", 4, false]]},
    {"name": "eth_t", "id": 2, "fields": [["dst", 48, false], ["src", 48, false], ["kind", 16, false]]},
    {"name": "tag_t", "id": 3, "fields": [["id", 12, false], ["low", 4, false]]},
    {"name": "opt_t", "id": 4, "fields": [["len", 8, false], ["data", "*"]], "max_length": 5},
    {"name": "short_t", "id": 5, "fields": [["a", 8, false]]}],
  "headers": [
    {"name": "scalars", "id": 0, "header_type": "scalars_0", "metadata": true},
    {"name": "standard_metadata", "id": 1, "header_type": "standard_metadata", "metadata": true},
    {"name": "eth", "id": 2, "header_type": "eth_t", "metadata": false},
    {"name": "tag[0]", "id": 3, "header_type": "tag_t", "metadata": false},
    {"name": "tag[1]", "id": 4, "header_type": "tag_t", "metadata": false},
    {"name": "opt", "id": 5, "header_type": "opt_t", "metadata": false},
    {"name": "opt2", "id": 6, "header_type": "opt_t", "metadata": false},
    {"name": "u.s", "id": 7, "header_type": "short_t", "metadata": false},
    {"name": "u.t", "id": 8, "header_type": "tag_t", "metadata": false},
    {"name": "us[0].s", "id": 9, "header_type": "short_t", "metadata": false},
    {"name": "us[0].t", "id": 10, "header_type": "tag_t", "metadata": false},
    {"name": "us[1].s", "id": 11, "header_type": "short_t", "metadata": false},
    {"name": "us[1].t", "id": 12, "header_type": "tag_t", "metadata": false},
    {"name": "old[0]", "id": 13, "header_type": "tag_t", "metadata": false},
    {"name": "old[1]", "id": 14, "header_type": "tag_t", "metadata": false},
    {"name": "smeta_0", "id": 15, "header_type": "standard_metadata", "metadata": true}],
  "header_stacks": [
    {"name": "tag", "id": 0, "header_type": "tag_t", "size": 2, "header_ids": [3, 4]},
    {"name": "old", "id": 1, "header_type": "tag_t", "size": 2, "header_ids": [13, 14]}],
  "header_union_types": [{"name": "u_t", "id": 0, "headers": [["s", "short_t"], ["t", "tag_t"]]}],
  "header_unions": [
    {"name": "u", "id": 0, "union_type": "u_t", "header_ids": [7, 8]},
    {"name": "us[0]", "id": 1, "union_type": "u_t", "header_ids": [9, 10]},
    {"name": "us[1]", "id": 2, "union_type": "u_t", "header_ids": [11, 12]}],
  "header_union_stacks": [
    {"name": "us", "id": 0, "union_type": "u_t", "size": 2, "header_union_ids": [1, 2]}],
  "field_aliases": [["intrinsic_metadata.mcast_grp", ["standard_metadata", "mcast_grp"]]],
  "errors": [["NoError", 3], ["PacketTooShort", 4], ["Mine", 0]],
  "enums": [], "force_arith": [], "extern_instances": [],
  "parsers": [{"name": "parser", "id": 0, "init_state": "start", "parse_states": [
    {"name": "start", "id": 0,
     "parser_ops": [{"op": "extract", "parameters": [{"type": "regular", "value": "eth"}]}],
     "transition_key": [{"type": "field", "value": ["eth", "kind"]}],
     "transitions": [
       {"type": "hexstr", "value": "0x0800", "mask": null, "next_state": "more"},
       {"type": "parse_vset", "value": "kinds", "mask": null, "next_state": "more"},
       {"type": "default", "value": null, "mask": null, "next_state": null}]},
    {"name": "more", "id": 1, "parser_ops": [], "transition_key": [],
     "transitions": [{"type": "default", "value": null, "mask": null, "next_state": null}]}]}],
  "parse_vsets": [{"name": "kinds", "id": 0, "compressed_bitwidth": 16, "max_size": 4}],
  "deparsers": [{"name": "deparser", "id": 0, "order": ["eth", "tag[0]"], "primitives": []}],
  "meter_arrays": [
    {"name": "rates", "id": 0, "is_direct": false, "size": 4, "rate_count": 2, "type": "bytes"},
    {"name": "flows", "id": 1, "is_direct": true, "size": 4, "rate_count": 2, "type": "packets",
     "binding": "acl", "result_target": ["scalars", "x"]}],
  "counter_arrays": [
    {"name": "hits", "id": 0, "is_direct": true, "binding": "acl"},
    {"name": "ports", "id": 1, "is_direct": false, "size": 8}],
  "register_arrays": [{"name": "cells", "id": 0, "size": 8, "bitwidth": 48}],
  "calculations": [
    {"name": "sum", "id": 0, "algo": "csum16", "input": [
      {"type": "field", "value": ["eth", "dst"]}, {"type": "hexstr", "value": "0x1", "bitwidth": 8},
      {"type": "header", "value": "eth"}, {"type": "payload", "value": null}]}],
  "checksums": [{"name": "ck", "id": 0, "target": ["eth", "kind"], "type": "generic",
                 "calculation": "sum", "verify": false, "update": true,
                 "if_cond": {"type": "bool", "value": true}}],
  "learn_lists": [{"name": "learn_t", "id": 1,
                   "elements": [{"type": "field", "value": ["scalars", "x"]}]}],
  "field_lists": [{"name": "kept", "id": 1, "elements": [{"type": "field", "value": ["scalars", "x"]}]}],
  "actions": [
    {"name": "NoAction", "id": 0, "runtime_data": [], "primitives": []},
    {"name": "send", "id": 1, "runtime_data": [{"name": "port", "bitwidth": 9}, {"name": "mac", "bitwidth": 48}],
     "primitives": [{"op": "assign", "parameters": [
       {"type": "field", "value": ["standard_metadata", "egress_spec"]},
       {"type": "runtime_data", "value": 0}]}]},
    {"name": "helper", "id": 2, "runtime_data": [{"name": "v", "bitwidth": 12}],
     "primitives": [{"op": "exit", "parameters": []}]},
    {"name": "send", "id": 3, "runtime_data": [{"name": "port", "bitwidth": 9}, {"name": "mac", "bitwidth": 48}],
     "primitives": []},
    {"name": "NoAction", "id": 4, "runtime_data": [], "primitives": []}],
  "pipelines": [
    {"name": "ingress", "id": 0, "init_table": "node_1", "action_calls": [], "tables": [
      {"name": "tbl_helper", "id": 0, "match_type": "exact", "type": "simple", "key": [],
       "max_size": 1024, "with_counters": false, "support_timeout": false, "direct_meters": null,
       "action_ids": [2], "actions": ["helper"], "base_default_next": null,
       "next_tables": {"helper": "acl"},
       "default_entry": {"action_id": 2, "action_const": true, "action_data": ["0xabc"],
                         "action_entry_const": true}},
      {"name": "acl", "id": 1, "match_type": "ternary", "type": "simple",
       "key": [{"match_type": "ternary", "name": "dst", "target": ["eth", "dst"], "mask": null},
               {"match_type": "exact", "target": ["tag[0]", "$valid$"], "mask": null},
               {"match_type": "lpm", "name": "kind", "target": ["eth", "kind"], "mask": null}],
       "max_size": 100, "with_counters": true, "support_timeout": true, "direct_meters": "flows",
       "action_ids": [1, 0], "actions": ["send", "NoAction"], "base_default_next": "routes",
       "next_tables": {"send": "routes", "NoAction": null},
       "default_entry": {"action_id": 1, "action_const": false, "action_data": ["0x7", "0x8"],
                         "action_entry_const": false},
       "entries": [
         {"match_key": [{"match_type": "ternary", "key": "0x1111", "mask": "0x000f"},
                        {"match_type": "exact", "key": "0x1"},
                        {"match_type": "lpm", "key": "0x0801", "prefix_length": 8}],
          "action_entry": {"action_id": 1, "action_data": ["0x7", "0x8"]}, "priority": 3},
         {"match_key": [{"match_type": "ternary", "key": "0x0", "mask": "0x0"},
                        {"match_type": "exact", "key": "0x0"},
                        {"match_type": "lpm", "key": "0x0", "prefix_length": 0}],
          "action_entry": {"action_id": 0, "action_data": []}, "priority": 1}]},
      {"name": "routes", "id": 2, "match_type": "exact", "type": "indirect_ws", "key": [],
       "action_profile": "hops", "max_size": 1024, "action_ids": [3], "actions": ["send"],
       "base_default_next": null, "next_tables": {"__HIT__": null, "__MISS__": null}}],
     "action_profiles": [{"name": "hops", "id": 0, "max_size": 16, "selector":
        {"algo": "crc16", "input": [{"type": "field", "value": ["eth", "src"]}]}}],
     "conditionals": [{"name": "node_1", "id": 0,
        "expression": {"type": "expression", "value": {"op": "d2b", "left": null,
                       "right": {"type": "field", "value": ["eth", "$valid$"]}}},
        "true_next": "tbl_helper", "false_next": "acl"}]},
    {"name": "egress", "id": 1, "init_table": "ports_out", "action_calls": [], "tables": [
      {"name": "ports_out", "id": 3, "match_type": "range", "type": "simple",
       "key": [{"match_type": "range", "name": "port", "target": ["standard_metadata", "egress_port"], "mask": null}],
       "max_size": 10, "action_ids": [4], "actions": ["NoAction"], "base_default_next": null,
       "next_tables": {"NoAction": null},
       "default_entry": {"action_id": 4, "action_const": true, "action_data": [], "action_entry_const": true},
       "entries": [{"match_key": [{"match_type": "range", "start": "0x1", "end": "0x5"}],
                    "action_entry": {"action_id": 4, "action_data": []}, "priority": 1}]}],
     "action_profiles": [], "conditionals": []}]
})";

}  // namespace jxmodel
