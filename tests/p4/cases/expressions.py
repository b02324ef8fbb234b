"""Operators, operands and values of expressions."""
from cases import case
from compiled import *
from stf import Stf


@case
def field_copies_into_header():
    program = Program("field_copies_into_header")
    program.header_type("pair_t", [("a", 8), ("b", 8)])
    pair = program.header("pair", "pair_t")
    program.state("start", [extract(pair)])
    program.ingress.run("copy", assign(pair["a"], pair["b"]),
                        assign(program.standard["egress_spec"], 3))
    return program, Stf("b is copied to a").packet(1, "0507aa").expect(3, "0707aa")
