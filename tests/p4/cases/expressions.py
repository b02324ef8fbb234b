"""Operators and operands of expressions, and what is cut when a value is stored."""
from cases import case, refusal
from compiled import *
from observe import *
from reference import packed
from stf import Stf

A_B = [("a", 8), ("b", 8)]
SIGNED = [("s", 8, True), ("t", 8, True)]


@case
def add_subtract_multiply_are_cut_on_store():
    sut = Computation("add_subtract_multiply", A_B)
    a, b = sut["a"], sut["b"]
    sut.result("sum", 8, a + b)
    sut.result("wide_sum", 16, a + b)
    sut.result("difference", 8, a - b)
    sut.result("wide_difference", 16, a - b)
    sut.result("product", 8, a * b)
    sut.result("wide_product", 16, a * b)
    return sut.case([
        ((250, 10), (4, 260, 240, 240, 0xc4, 2500)),
        ((0, 1), (1, 1, 0xff, 0xffff, 0, 0)),
        ((255, 255), (0xfe, 0x1fe, 0, 0, 1, 0xfe01))])


@case
def intermediate_values_are_not_wrapped():
    sut = Computation("intermediate_values", A_B)
    a, b = sut["a"], sut["b"]
    sut.result("is_260", 8, b2d((a + b) == 260))
    sut.result("is_4_masked", 8, b2d(((a + b) & 0xff) == 4))
    sut.result("is_negative", 8, b2d((a - b) < 0))
    sut.result("masked_difference", 16, (a - b) & 0xffff)
    sut.result("half_sum", 8, (a + b) >> 1)
    sut.result("product_above_255", 8, b2d((a * b) > 255))
    return sut.case([
        ((250, 10), (1, 1, 0, 240, 130, 1)),
        ((10, 250), (1, 1, 1, 0xff10, 130, 1)),
        ((4, 0), (0, 1, 0, 4, 2, 0))])


@case
def divide_and_modulo():
    sut = Computation("divide_and_modulo", A_B)
    sut.result("quotient", 8, sut["a"] / sut["b"])
    sut.result("rest", 8, sut["a"] % sut["b"])
    sut.result("by_constant", 8, sut["a"] / 7)
    sut.result("rest_of_constant", 8, sut["a"] % 7)
    return sut.case([
        ((17, 5), (3, 2, 2, 3)),
        ((255, 255), (1, 0, 36, 3)),
        ((5, 17), (0, 5, 0, 5))])


@case
def divide_by_zero_gives_zero():
    sut = Computation("divide_by_zero", A_B)
    sut.result("quotient", 8, sut["a"] / sut["b"])
    sut.result("rest", 8, sut["a"] % sut["b"])
    sut.result("after", 8, sut["a"])
    return sut.case([((17, 0), (0, 0, 17)), ((0, 0), (0, 0, 0)), ((17, 1), (17, 0, 17))])


@case
def shift_left():
    sut = Computation("shift_left", A_B)
    a, b = sut["a"], sut["b"]
    sut.result("narrow", 8, a << b)
    sut.result("wide", 16, a << b)
    sut.result("there_and_back", 8, (a << b) >> b)
    sut.result("masked", 8, (a << 4) & 0xf0)
    return sut.case([
        ((0x81, 0), (0x81, 0x81, 0x81, 0x10)),
        ((0x81, 1), (0x02, 0x102, 0x81, 0x10)),
        ((0xff, 8), (0, 0xff00, 0xff, 0xf0)),
        ((0x35, 100), (0, 0, 0x35, 0x50))])


@case
def shift_right():
    sut = Computation("shift_right", A_B)
    sut.result("shifted", 8, sut["a"] >> sut["b"])
    sut.result("slice", 8, (sut["a"] >> 2) & 0x7)
    return sut.case([
        ((0x81, 0), (0x81, 0)), ((0x81, 1), (0x40, 0)), ((0xff, 7), (1, 7)), ((0xff, 8), (0, 7)),
        ((0xff, 255), (0, 7))])


@case
def huge_shift_amounts():
    sut = Computation("huge_shift_amounts", [("a", 8), ("n", 128), ("s", 8, True)])
    a, n, s = sut["a"], sut["n"], sut["s"]
    sut.result("left", 8, a << n)
    sut.result("right", 8, a >> n)
    sut.result("signed_right", 8, s >> n, True)
    sut.result("left_constant", 8, a << (1 << 100))
    sut.result("right_constant", 8, a >> (1 << 100))
    sut.result("signed_right_constant", 8, s >> (1 << 100), True)
    sut.result("zero_left", 8, number(0) << n)
    return sut.case([
        ((0xff, (1 << 128) - 1, -2), (0, 0, -1, 0, 0, -1, 0)),
        ((0xff, 1 << 64, 2), (0, 0, 0, 0, 0, 0, 0)),
        ((0xff, 1 << 32, -128), (0, 0, -1, 0, 0, -1, 0)),
        ((0xff, 4, -128), (0xf0, 0x0f, -8, 0, 0, -1, 0))])


@case
def shift_right_of_negatives_keeps_the_sign():
    sut = Computation("shift_right_of_negatives", SIGNED)
    s, t = sut["s"], sut["t"]
    sut.result("one", 8, s >> 1, True)
    sut.result("seven", 8, s >> 7, True)
    sut.result("difference", 8, (s - t) >> 1, True)
    sut.result("into_unsigned", 8, s >> 1)
    return sut.case([
        ((-4, 1), (-2, -1, -3, 0xfe)),
        ((-1, 0), (-1, -1, -1, 0xff)),
        ((127, -128), (63, 0, 127, 63)),
        ((-128, 127), (-64, -1, -128, 0xc0))])


@case
def negative_shift_amounts_give_zero():
    sut = Computation("negative_shift_amounts", [("a", 8), ("n", 8, True)])
    sut.result("left", 8, sut["a"] << sut["n"])
    sut.result("right", 8, sut["a"] >> sut["n"])
    return sut.case([((0xff, -1), (0, 0)), ((0xff, -128), (0, 0)), ((0xff, 1), (0xfe, 0x7f))])


@case
def bitwise_operators():
    sut = Computation("bitwise_operators", A_B)
    a, b = sut["a"], sut["b"]
    sut.result("both", 8, a & b)
    sut.result("any", 8, a | b)
    sut.result("one", 8, a ^ b)
    sut.result("none", 8, ~a)
    return sut.case([
        ((0xc5, 0x93), (0x81, 0xd7, 0x56, 0x3a)), ((0, 0), (0, 0, 0, 0xff)),
        ((0xff, 0), (0, 0xff, 0xff, 0))])


@case
def bitwise_operators_extend_the_sign_of_negatives():
    sut = Computation("bitwise_on_negatives", A_B)
    less = sut["a"] - sut["b"]
    sut.result("and_mask", 16, less & 0xffff)
    sut.result("or_bit", 16, less | 1)
    sut.result("xor_bits", 16, less ^ 0xf)
    sut.result("complement", 16, ~less)
    sut.result("complement_below_zero", 8, b2d(~sut["a"] < 0))
    sut.result("and_below_zero", 8, b2d((less & ~number(0)) < 0))
    return sut.case([
        ((0, 2), (0xfffe, 0xffff, 0xfff1, 1, 1, 1)),
        ((5, 5), (0, 1, 0xf, 0xffff, 1, 0))])


@case
def equality_of_numbers():
    sut = Computation("equality_of_numbers", [("a", 8), ("s", 8, True), ("w", 16)])
    sut.result("equal", 8, b2d(sut["a"] == sut["w"]))
    sut.result("unequal", 8, b2d(sut["a"] != sut["w"]))
    sut.result("signed_equal", 8, b2d(sut["a"] == sut["s"]))
    sut.result("is_minus_one", 8, b2d(sut["s"] == -1))
    return sut.case([
        ((5, 5, 5), (1, 0, 1, 0)),
        ((255, -1, 255), (1, 0, 0, 1)),
        ((5, 5, 0x105), (0, 1, 1, 0))])


@case
def ordering_of_numbers():
    sut = Computation("ordering_of_numbers", A_B)
    a, b = sut["a"], sut["b"]
    sut.result("less", 8, b2d(a < b))
    sut.result("at_most", 8, b2d(a <= b))
    sut.result("greater", 8, b2d(a > b))
    sut.result("at_least", 8, b2d(a >= b))
    return sut.case([
        ((1, 2), (1, 1, 0, 0)), ((2, 2), (0, 1, 0, 1)), ((0x80, 0x7f), (0, 0, 1, 1)),
        ((0, 255), (1, 1, 0, 0))])


@case
def ordering_of_signed_numbers():
    sut = Computation("ordering_of_signed_numbers", SIGNED + [("u", 8)])
    s, t, u = sut["s"], sut["t"], sut["u"]
    sut.result("less", 8, b2d(s < t))
    sut.result("at_least_zero", 8, b2d(s >= 0))
    sut.result("less_than_unsigned", 8, b2d(s < u))
    return sut.case([
        ((-1, 1, 255), (1, 0, 1)), ((-128, -127, 0), (1, 0, 1)), ((127, -128, 128), (0, 1, 1)),
        ((0, 0, 0), (0, 1, 0))])


@case
def ordering_of_128_bit_numbers_is_unsigned():
    sut = Computation("ordering_of_128_bit_numbers", [("a", 128), ("b", 128)])
    sut.result("less", 8, b2d(sut["a"] < sut["b"]))
    sut.result("greater", 8, b2d(sut["a"] > sut["b"]))
    sut.result("at_least", 8, b2d(sut["a"] >= sut["b"]))
    multicast, unicast = 0xff02 << 112 | 1, 0x2001 << 112
    return sut.case([
        ((multicast, unicast), (0, 1, 1)), ((unicast, multicast), (1, 0, 0)),
        ((multicast, multicast), (0, 0, 1)), (((1 << 128) - 1, 0), (0, 1, 1))])


@case
def arithmetic_of_128_bits():
    sut = Computation("arithmetic_of_128_bits", [("a", 128), ("b", 128)])
    a, b = sut["a"], sut["b"]
    mask = (1 << 128) - 1
    sut.result("sum", 128, (a + b) & mask)
    sut.result("difference", 128, (a - b) & mask)
    sut.result("sum_overflows", 8, b2d((a + b) > mask))
    sut.result("upper_half", 64, (a >> 64) & ((1 << 64) - 1))
    sut.result("there_and_back", 128, (a << 32) >> 32)
    rows = []
    for x, y in ((mask, 1), (0, 1), (0x123456789abcdef0 << 64 | 5, 7), (1 << 127, 1 << 127)):
        rows.append(((x, y), ((x + y) % 2**128, (x - y) % 2**128, x + y >= 2**128, x // 2**64, x)))
    return sut.case(rows)


@case
def product_of_64_bit_numbers_is_not_wrapped():
    sut = Computation("product_of_64_bit_numbers", [("a", 64), ("b", 64)])
    sut.result("product", 128, sut["a"] * sut["b"])
    sut.result("upper_half", 64, (sut["a"] * sut["b"]) >> 64)
    sut.result("above_64_bits", 8, b2d((sut["a"] * sut["b"]) >= (1 << 64)))
    rows = []
    for x, y in ((2**64 - 1, 2**64 - 1), (2**32, 2**32), (2**32 - 1, 2**32), (3, 5)):
        rows.append(((x, y), (x * y, x * y // 2**64, x * y >= 2**64)))
    return sut.case(rows)


@case
def logic_operators():
    sut = Computation("logic_operators", A_B)
    a, b = d2b(sut["a"]), d2b(sut["b"])
    sut.result("and", 8, b2d(both(a, b)))
    sut.result("or", 8, b2d(either(a, b)))
    sut.result("not", 8, b2d(negate(a)))
    sut.result("number_to_boolean", 8, b2d(a))
    sut.result("equal", 8, b2d(a == b))
    sut.result("unequal", 8, b2d(a != b))
    return sut.case([
        ((0, 0), (0, 0, 1, 0, 1, 0)), ((0, 2), (0, 1, 1, 0, 0, 1)), ((128, 0), (0, 1, 0, 1, 0, 1)),
        ((1, 2), (1, 1, 0, 1, 1, 0))], "every number but 0 is true")


@case
def boolean_constants():
    sut = Computation("boolean_constants", A_B)
    sut.result("true", 8, b2d(True))
    sut.result("false", 8, b2d(False))
    sut.result("and_true", 8, b2d(both(d2b(sut["a"]), True)))
    sut.result("or_false", 8, b2d(either(False, d2b(sut["a"]))))
    sut.result("chosen", 8, choose(False, sut["a"], sut["b"]))
    return sut.case([((0, 9), (1, 0, 0, 0, 9)), ((3, 9), (1, 0, 1, 1, 9))])


@case
def conditional_operator():
    sut = Computation("conditional_operator", A_B)
    a, b = sut["a"], sut["b"]
    sut.result("number", 8, choose(a < b, a, b))
    sut.result("boolean", 8, b2d(choose(d2b(a), a == 1, b == 1)))
    sut.result("inside", 16, choose(a == b, number(0x100), a + b) + 1)
    return sut.case([
        ((3, 9), (3, 0, 13)), ((9, 3), (3, 0, 13)), ((1, 1), (1, 1, 0x101)), ((0, 1), (0, 1, 2)),
        ((0, 0), (0, 0, 0x101))])


@refusal("must be a header")
def conditional_operator_on_headers():
    program = Program("conditional_operator_on_headers")
    program.header_type("byte_t", [("v", 8)])
    one, two, copy = [program.header(each, "byte_t") for each in ("one", "two", "copy")]
    program.state("start", [extract(one), extract(two)])
    program.emit(copy, one, two)
    program.ingress.run("choose", assign_header(copy, choose(one["v"] > two["v"], one, two)),
                        to_port(program))
    return program


@case
def two_comp_mod_wraps_into_the_signed_range():
    sut = Computation("two_comp_mod", [("a", 16, True)])
    sut.result("eight", 16, two_comp_mod(sut["a"], 8), True)
    sut.result("below_zero", 8, b2d(two_comp_mod(sut["a"], 8) < 0))
    sut.result("one_bit", 8, two_comp_mod(sut["a"], 1), True)
    sut.result("wider", 24, two_comp_mod(sut["a"], 20), True)
    return sut.case([
        ((257,), (1, 0, -1, 257)), ((-129,), (127, 0, -1, -129)), ((128,), (-128, 1, 0, 128)),
        ((255,), (-1, 1, -1, 255)), ((-128,), (-128, 1, 0, -128)), ((127,), (127, 0, -1, 127))])


@case
def saturating_casts():
    sut = Computation("saturating_casts", [("a", 16, True), ("b", 16, True)])
    a, b = sut["a"], sut["b"]
    sut.result("unsigned", 16, usat_cast(a + b, 8))
    sut.result("signed", 16, sat_cast(a + b, 8), True)
    sut.result("unsigned_difference", 16, usat_cast(a - b, 8))
    return sut.case([
        ((200, 100), (255, 127, 100)), ((100, 27), (127, 127, 73)), ((5, 10), (15, 15, 0)),
        ((-100, -29), (0, -128, 0)), ((255, 0), (255, 127, 255)), ((-128, 0), (0, -128, 0)),
        ((32767, 32767), (255, 127, 0)), ((-32768, -32768), (0, -128, 0))])


@case
def slices_and_concatenation():
    sut = Computation("slices_and_concatenation", [("a", 16), ("b", 8)])
    a, b = sut["a"], sut["b"]
    sut.result("slice", 8, (a >> 4) & 0xff)
    sut.result("slice_replaced", 16, (a & ~number(0x0ff0)) | ((b << 4) & 0x0ff0))
    sut.result("joined", 24, (a << 8) | b)
    sut.result("masked_with_wide_complement", 16, (a & 0xfffff00f) | ((b << 4) & 0x0ff0))
    return sut.case([
        ((0x1234, 0xab), (0x23, 0x1ab4, 0x1234ab, 0x1ab4)),
        ((0xffff, 0x00), (0xff, 0xf00f, 0xffff00, 0xf00f))])


@case
def negative_constants():
    sut = Computation("negative_constants", [("a", 8, True)])
    sut.result("stored", 8, number(-5))
    sut.result("stored_signed", 16, number(-5), True)
    sut.result("added", 8, sut["a"] + number(-5), True)
    sut.result("below", 8, b2d(sut["a"] < number(-5)))
    return sut.case([((0,), (0xfb, -5, -5, 0)), ((-6,), (0xfb, -5, -11, 1))],
                    "the text of a negative constant is -0x5")


@case
def constants_of_more_than_128_bits():
    big = 0x5a << 200 | 0x1234
    sut = Computation("constants_of_more_than_128_bits", [("a", 16)])
    sut.result("low", 16, number(big))
    sut.result("equal", 8, b2d(sut["a"] == number(big)))
    return sut.case([((0x1234,), (0x1234, 0)), ((0,), (0x1234, 0))],
                    "a constant of 207 bits is cut on store, not before")


@case
def constants_with_and_without_leading_zeros():
    sut = Computation("constants_with_leading_zeros", [("a", 8)])
    sut.result("padded", 16, Expr("hexstr", "0x000000000000000000000000000000000000000007"))
    sut.result("short", 16, Expr("hexstr", "0x7"))
    sut.result("upper_case", 16, Expr("hexstr", "0xAB"))
    long_seven = Expr("hexstr", "0x0000000000000000000000000000000000007")
    sut.result("equal", 8, b2d(sut["a"] == long_seven))
    return sut.case([((7,), (7, 7, 0xab, 1))])


@case
def expressions_nested_in_expressions():
    sut = Computation("expressions_nested_in_expressions", A_B)
    a, b = sut["a"], sut["b"]
    sut.result("field", 8, wrapped(a, 1))
    sut.result("field_deep", 8, wrapped(a, 5))
    sut.result("constant", 8, wrapped(7, 2))
    sut.result("sum", 8, wrapped(wrapped(a, 3) + wrapped(5, 4), 3))
    sut.result("boolean", 8, b2d(wrapped(True, 3)))
    sut.first(assign(wrapped(b, 2), wrapped(9, 1)))
    report(sut.program, sut.results, sut.before)
    return sut.program, (Stf("wrappers around operands and around the target of an assignment")
                         .packet(2, "03ffee").expect(1, "0303070801" "0309ee"))


@case
def expression_with_4096_operators_nested_on_the_left():
    sut = Computation("deep_left", [("a", 16)])
    total = sut["a"]
    for _ in range(4096):
        total = total + 1
    sut.result("sum", 16, total)
    return sut.case([((0,), (4096,)), ((0xffff,), (4095,))])


@case
def expression_with_4096_operators_nested_on_the_right():
    sut = Computation("deep_right", [("a", 16)])
    total = sut["a"]
    for _ in range(4096):
        total = 1 - total
    sut.result("difference", 16, total)
    sut.result("comparison", 8, b2d(total == sut["a"]))
    return sut.case([((7,), (7, 1)), ((0,), (0, 1))], "1 - (1 - (... a)) is a again")


@case
def wide_fields_are_copied_and_compared():
    sut = Computation("wide_fields", [("a", 336), ("b", 336)])
    program = sut.program
    kept = program.scalar("kept", 336)
    sut.first(assign(kept, sut["a"]))
    sut.result("same", 8, b2d(sut["a"] == sut["b"]))
    sut.result("other", 8, b2d(sut["a"] != sut["b"]))
    sut.result("copy", 336, kept)
    sut.result("constant", 336, number(0xfeed << 320 | 0xbeef))
    one = int.from_bytes(bytes(range(42)), "big")
    constant_value = 0xfeed << 320 | 0xbeef
    return sut.case([
        ((one, one), (1, 0, one, constant_value)),
        ((one, one ^ 1 << 335), (0, 1, one, constant_value)),
        ((one, one ^ 1 << 150), (0, 1, one, constant_value)),
        ((one ^ 1, one), (0, 1, one ^ 1, constant_value))])


@case
def action_data_directly_and_in_expressions():
    program = Program("action_data")
    program.header_type("in_t", [("a", 8), ("b", 16)])
    given = program.header("in", "in_t")
    program.state("start", [extract(given)])
    action = program.action("work", assign(program.standard["egress_spec"], Data(0)),
                            assign(given["b"], Data(1) + Data(0)),
                            assign(given["a"], wrapped(Data(1), 2)),
                            data=[("port", 9), ("value", 16)])
    program.ingress.table("tbl_work", [], [action], default=action, default_data=[3, 0x1ffe],
                          const_default=True)
    return program, (Stf("a direct parameter is runtime_data, one in an expression is local")
                     .packet(2, "000000ee").expect(3, "fe2001ee"))


@case
def register_cell_as_an_operand():
    program = Program("register_cell_as_an_operand")
    program.header_type("in_t", [("i", 8), ("v", 16)])
    given = program.header("in", "in_t")
    program.state("start", [extract(given)])
    cells = program.register("cells", 4, 16)
    report(program, [("direct", 16, register_cell(cells, given["i"])),
                     ("sum", 16, register_cell(cells, given["i"]) + 1),
                     ("computed_index", 16, register_cell(cells, given["i"] - 1))],
           before=[register_write(cells, given["i"], given["v"])])
    return program, (Stf("cell i is written first; an operand [array, index] reads it")
                     .packet(2, "011234").expect(1, "123412350000" "011234")
                     .packet(2, "02ffff").expect(1, "ffff00001234" "02ffff"))


@case
def register_cell_operand_out_of_range_reads_zero():
    program = Program("register_cell_operand_out_of_range")
    program.header_type("in_t", [("i", 8)])
    given = program.header("in", "in_t")
    program.state("start", [extract(given)])
    cells = program.register("cells", 2, 8)
    report(program, [("cell", 8, register_cell(cells, given["i"]))],
           before=[register_write(cells, 0, 0x11), register_write(cells, 1, 0x22)])
    return program, (Stf("the index is at and beyond the size")
                     .packet(2, "01").expect(1, "2201").packet(2, "02").expect(1, "0002")
                     .packet(2, "ff").expect(1, "00ff"))


@case
def vectors_of_parameters_may_be_empty():
    program = Program("vectors_of_parameters")
    program.header_type("in_t", A_B)
    given = program.header("in", "in_t")
    program.state("start", [extract(given)])
    null_vector = primitive("log_msg", Expr("string", "three"), Expr("parameters_vector", None))
    program.ingress.run("log", log_msg("one {} {}", given["a"], given["a"] + 1), log_msg("two"),
                        null_vector, assign(given["b"], given["a"]), to_port(program))
    return program, (Stf("log_msg with two values, with {} and with null changes nothing")
                     .packet(2, "0102ee").expect(1, "0101ee"))


@case
def conditions_of_pipelines_are_expressions():
    program = Program("conditions_of_pipelines")
    program.header_type("in_t", A_B)
    given = program.header("in", "in_t")
    program.state("start", [extract(given)])
    ingress = program.ingress
    ingress.condition("node_2", given["a"] < given["b"], true_next="node_3", false_next="tbl_high")
    ingress.condition("node_3", True, true_next="node_4", false_next="tbl_high")
    ingress.condition("node_4", wrapped(d2b(given["a"]), 2), true_next="tbl_low", false_next=None)
    ingress.run("low", to_port(program, 1))
    ingress.run("high", to_port(program, 2))
    return program, (Stf("a < b and a != 0: port 1; a >= b: port 2; a = 0 < b: port 0, never set")
                     .packet(5, "0102").expect(1, "0102").packet(5, "0201").expect(2, "0201")
                     .packet(5, "0001").expect(0, "0001").packet(5, "0000").expect(2, "0000"))
