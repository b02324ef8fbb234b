"""Programs that a loader refuses: versions, architecture, headers, parsers, expressions, checksums.

The words of a refusal are the parts of the error line that name the thing and the reason. They do
not stand in the case's name, because the error line may name the file.
"""
import json

from cases import refusal
from compiled import *
from observe import *


def plain(name="plain"):
    """A good program: the header `one` of the type byte_t, sent to port 1."""
    program = Program(name)
    program.header_type("byte_t", [("v", 8)])
    one = program.header("one", "byte_t")
    program.state("start", [extract(one)])
    program.ingress.run("send", to_port(program))
    return program, one


def changed(change):
    """The JSON of plain() after change(root)."""
    root = plain()[0].build()
    change(root)
    return root


def with_version(version):
    return changed(lambda root: root["__meta__"].update(version=version))


def with_assignment(value):
    """plain() with one more primitive in the action `work`: one.v = value(one)."""
    program, one = plain()
    program.egress.run("work", assign(one["v"], value(one)))
    return program


# Versions and architecture


@refusal("version")
def refuses_a_program_without_meta_data():
    return changed(lambda root: root.pop("__meta__"))


@refusal("version 3.0 is not supported")
def refuses_major_version_3():
    return with_version([3, 0])


@refusal("version 1.7 is not supported")
def refuses_major_version_1():
    return with_version([1, 7])


@refusal("version 2.25 is not supported")
def refuses_minor_version_25():
    return with_version([2, 25])


@refusal("architecture is not v1model")
def refuses_a_third_pipeline():
    return changed(lambda root: root["pipelines"].append(
        {"name": "middle", "id": 2, "init_table": None, "tables": [], "action_profiles": [],
         "conditionals": []}))


@refusal("architecture is not v1model")
def refuses_a_missing_egress():
    return changed(lambda root: root["pipelines"].pop())


@refusal("architecture is not v1model")
def refuses_two_parsers():
    return changed(lambda root: root["parsers"].append(
        {"name": "second", "id": 1, "init_state": "start",
         "parse_states": root["parsers"][0]["parse_states"]}))


@refusal("architecture is not v1model")
def refuses_two_deparsers():
    return changed(lambda root: root["deparsers"].append(
        {"name": "second", "id": 1, "order": [], "primitives": []}))


@refusal("architecture is not v1model")
def refuses_primitives_of_a_deparser():
    return changed(lambda root: root["deparsers"][0].update(
        primitives=[{"op": "assign", "parameters": []}]))


@refusal("architecture is not v1model")
def refuses_action_calls():
    return changed(lambda root: root["pipelines"][0].update(
        action_calls=[{"name": "call", "id": 0, "action_id": 0, "next_node": None}]))


@refusal("extern spare of type spare_t has no implementation")
def refuses_extern_instances():
    return changed(lambda root: root["extern_instances"].append(
        {"name": "spare", "id": 0, "type": "spare_t", "attribute_values": []}))


# Unknown things


@refusal("frobnicate")
def refuses_an_unknown_operator():
    return with_assignment(lambda one: op("frobnicate", one["v"], 1))


@refusal("frobnicate")
def refuses_an_unknown_operand_type():
    return with_assignment(lambda one: Expr("frobnicate", "one") + 1)


@refusal("action work: primitive frobnicate is not known")
def refuses_an_unknown_primitive():
    program, one = plain()
    program.egress.run("work", primitive("frobnicate", one["v"], 1))
    return program


@refusal("frobnicate")
def refuses_an_unknown_parser_operation():
    program, one = plain()
    program.state("more", [parser_op("frobnicate", one["v"])])
    return program


@refusal("frobnicate")
def refuses_an_unknown_primitive_in_a_parser_state():
    program, one = plain()
    program.state("more", [parser_primitive(primitive("frobnicate", one["v"]))])
    return program


@refusal("calculation odd_sum: algorithm frobnicate is not available")
def refuses_an_unknown_algorithm():
    program, one = plain()
    program.calculation("odd_sum", "frobnicate", [one["v"]])
    program.checksum(one["v"], "odd_sum", update=True)
    return program


@refusal("divi")
def refuses_a_quotient_by_constant_zero():
    return with_assignment(lambda one: one["v"] / 0)


@refusal("divi")
def refuses_a_remainder_by_constant_zero():
    return with_assignment(lambda one: one["v"] % 0)


# Missing names and ids


@refusal("ghost_t")
def refuses_a_header_of_a_missing_type():
    program, _ = plain()
    program.header("two", "ghost_t")
    return program


@refusal("ghost")
def refuses_a_missing_field():
    return with_assignment(lambda one: one["ghost"])


@refusal("ghost")
def refuses_a_missing_header_in_an_expression():
    return with_assignment(lambda one: Header("ghost")["v"] + 1)


@refusal("ghost")
def refuses_a_missing_header_in_an_extraction():
    program, _ = plain()
    program.state("more", [extract(Header("ghost"))])
    return program


@refusal("ghost")
def refuses_a_missing_stack_in_an_extraction():
    program, _ = plain()
    program.state("more", [extract(Stack("ghost"))])
    return program


@refusal("ghost")
def refuses_a_missing_next_state():
    program, _ = plain()
    program.state("more", [], [], [otherwise("ghost")])
    return program


@refusal("ghost")
def refuses_a_missing_first_state():
    program, _ = plain()
    program.parser["init_state"] = "ghost"
    return program


@refusal("ghost")
def refuses_a_missing_value_set():
    program, one = plain()
    program.state("more", [], [one["v"]], [on_set("ghost", None), otherwise(None)])
    return program


@refusal("ghost")
def refuses_a_missing_header_in_the_deparser():
    return changed(lambda root: root["deparsers"][0]["order"].append("ghost"))


@refusal("ghost")
def refuses_a_missing_calculation_of_a_checksum():
    program, one = plain()
    program.checksum(one["v"], "ghost", update=True)
    return program


@refusal("ghost")
def refuses_a_missing_target_of_a_checksum():
    program, one = plain()
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(one["ghost"], "calc", update=True)
    return program


@refusal("ghost")
def refuses_a_missing_field_in_a_calculation():
    program, one = plain()
    program.calculation("calc", "csum16", [one["ghost"]])
    return program


@refusal("ghost")
def refuses_a_missing_calculation_of_a_hash():
    program, one = plain()
    program.egress.run("work", hash_into(one["v"], 0, "ghost", 4))
    return program


@refusal("99")
def refuses_a_missing_header_id_of_a_stack():
    program, _ = plain()
    program.stack("pile", "byte_t", 2)
    root = program.build()
    root["header_stacks"][0]["header_ids"][1] = 99
    return root


@refusal("99")
def refuses_a_missing_header_id_of_a_union():
    program, _ = plain()
    program.union_type("u_t", [("a", "byte_t"), ("b", "byte_t")])
    program.union("u", "u_t")
    root = program.build()
    root["header_unions"][0]["header_ids"][1] = 99
    return root


# Names that exist twice


@refusal("twin_t")
def refuses_a_header_type_that_exists_twice():
    program, _ = plain()
    program.header_type("twin_t", [("v", 8)])
    program.header_type("twin_t", [("w", 16)])
    return program


@refusal("twin")
def refuses_a_header_that_exists_twice():
    program, _ = plain()
    program.header("twin", "byte_t")
    program.header("twin", "byte_t")
    return program


@refusal("twin")
def refuses_a_parser_state_that_exists_twice():
    program, _ = plain()
    program.state("twin")
    program.state("twin")
    return program


@refusal("twin")
def refuses_a_calculation_that_exists_twice():
    program, one = plain()
    program.calculation("twin", "csum16", [one["v"]])
    program.calculation("twin", "crc16", [one["v"]])
    return program


# Headers


@refusal("has 13 bits, not whole bytes")
def refuses_a_header_of_13_bits():
    program, _ = plain()
    program.header_type("odd_t", [("a", 8), ("b", 5)])
    program.header("odd", "odd_t")
    return program


@refusal("two_t")
def refuses_a_header_type_with_two_varbits():
    program, _ = plain()
    program.header_type("two_t", [("a", "*"), ("b", "*")], max_length=8)
    program.header("two_t", "two_t")
    return program


@refusal("length_exp")
def refuses_a_header_type_of_computed_size():
    program, _ = plain()
    program.header_type("old_t", [("n", 8), ("body", "*")], max_length=8)
    program.header("old", "old_t")
    root = program.build()
    root["header_types"][-1]["length_exp"] = {
        "type": "expression",
        "value": {"op": "+", "left": {"type": "local", "value": 0},
                  "right": {"type": "hexstr", "value": "0x1"}}}
    return root


@refusal("pile")
def refuses_a_stack_of_no_elements():
    program, _ = plain()
    program.stack("pile", "byte_t", 0)
    return program


# Parser


@refusal("select_one")
def refuses_a_transition_value_longer_than_the_key():
    program, one = plain()
    program.state("select_one", [], [one["v"]], [on("0x0011", None), otherwise(None)])
    return program


@refusal("select_one")
def refuses_a_transition_mask_longer_than_the_key():
    program, one = plain()
    program.state("select_one", [], [one["v"]], [on("0x11", None, mask="0x00ff"), otherwise(None)])
    return program


# Size


@refusal("nest")
def refuses_an_expression_of_100000_levels():
    levels = 100_000
    text = json.dumps(with_assignment(lambda one: Expr("innermost", "")).build())
    inner = '{"type": "innermost", "value": ""}'
    assert text.count(inner) == 1
    opening = '{"type": "expression", "value": {"op": "~", "left": null, "right": '
    middle = '{"type": "hexstr", "value": "0x1"}'
    return text.replace(inner, opening * levels + middle + "}}" * levels)
