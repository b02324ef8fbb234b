"""Errors of the parser: each event, which of two comes first, and the state afterwards."""
from cases import case
from compiled import *
from observe import *
from stf import Stf

TOO_SHORT, NO_MATCH, STACK_FULL, HEADER_TOO_SHORT, TIMEOUT, INVALID_ARGUMENT = 1, 2, 3, 4, 5, 6


def words_program(name):
    """Headers one, two and three of two bytes each; `after` is set by operations after an error."""
    program = Program(name)
    program.header_type("word_t", [("v", 16)])
    headers = [program.header(each, "word_t") for each in ("one", "two", "three")]
    return program, headers, program.scalar("after", 8)


def report_headers(program, headers, after):
    report(program, [("error", 8, program.standard["parser_error"]), ("after", 8, after)]
           + [(f"{each.name}_valid", 8, each.valid) for each in headers])


@case
def short_packet_is_payload():
    program, headers, after = words_program("short_packet")
    program.state("start", [extract(headers[0]), set_field(after, 1)])
    report_headers(program, headers, after)
    return program, (Stf("PacketTooShort: nothing is extracted, nothing is dropped")
                     .packet(2, "11").expect(1, "0100000000" "11")
                     .packet(2, "1122").expect(1, "0001010000" "1122"))


@case
def short_header_in_the_middle_ends_the_parser():
    program, headers, after = words_program("short_header_in_the_middle")
    program.state("start", [extract(headers[0]), extract(headers[1]), set_field(after, 1)], [],
                  [otherwise("more")])
    program.state("more", [extract(headers[2])])
    report_headers(program, headers, after)
    return program, (Stf("what was extracted stays; the rest is payload")
                     .packet(2, "112233").expect(1, "0100010000" "112233")
                     .packet(2, "1122334455").expect(1, "0101010100" "1122334455")
                     .packet(2, "112233445566ee").expect(1, "0001010101" "112233445566ee"))


@case
def parser_error_leaves_the_header_unchanged():
    program = Program("parser_error_leaves_the_header")
    program.header_type("word_t", [("v", 16)])
    one = program.header("one", "word_t")
    program.state("start", [extract(one), extract(one)])
    report(program, [("error", 8, program.standard["parser_error"]), ("one", 16, one["v"])])
    return program, (Stf("the second extraction does not fit: the first value stays")
                     .packet(2, "112233").expect(1, "011122" "112233"))


@case
def lookahead_past_the_end():
    program, headers, after = words_program("lookahead_past_the_end")
    kept = program.scalar("kept", 32)
    program.state("start", [set_field(kept, number(0x77)), set_field(kept, lookahead(8, 16)),
                            set_field(after, 1)])
    report(program, [("error", 8, program.standard["parser_error"]), ("after", 8, after),
                     ("kept", 16, kept)])
    return program, (Stf("bits 8 to 23 exist from three bytes on")
                     .packet(2, "1122").expect(1, "01000077" "1122")
                     .packet(2, "112233").expect(1, "00012233" "112233"))


@case
def lookahead_past_the_end_in_an_expression():
    program, headers, after = words_program("lookahead_in_an_expression")
    kept = program.scalar("kept", 8)
    program.state("start", [extract(headers[0]), set_field(kept, (lookahead(0, 16) >> 8) & 0xff),
                            set_field(after, 1)])
    report(program, [("error", 8, program.standard["parser_error"]), ("after", 8, after),
                     ("kept", 8, kept)])
    return program, (Stf()
                     .packet(2, "112233").expect(1, "010000" "112233")
                     .packet(2, "11223344").expect(1, "000133" "11223344"))


@case
def lookahead_past_the_end_in_a_key():
    program, headers, after = words_program("lookahead_in_a_key")
    program.state("start", [extract(headers[0])], [lookahead(0, 16)],
                  [on(0x3344, "more", digits=4), otherwise("other")])
    program.state("more", [extract(headers[1])])
    program.state("other", [set_field(after, 1)])
    report_headers(program, headers, after)
    return program, (Stf("the error comes before any transition")
                     .packet(2, "112233").expect(1, "0100010000" "112233")
                     .packet(2, "11223344").expect(1, "0000010100" "11223344")
                     .packet(2, "11223355").expect(1, "0001010000" "11223355"))


@case
def advance_past_the_end():
    program, headers, after = words_program("advance_past_the_end")
    program.state("start", [extract(headers[0]), advance(number(24)), set_field(after, 1)])
    report_headers(program, headers, after)
    return program, (Stf("PacketTooShort: the place stays, so the bytes are payload")
                     .packet(2, "1122aabb").expect(1, "0100010000" "1122aabb")
                     .packet(2, "1122aabbcc").expect(1, "0001010000" "1122"))


@case
def advance_by_part_of_a_byte():
    program, headers, after = words_program("advance_by_part_of_a_byte")
    program.state("start", [extract(headers[0]), advance(headers[0]["v"]), set_field(after, 1)])
    report_headers(program, headers, after)
    return program, (Stf("ParserInvalidArgument unless a multiple of 8")
                     .packet(2, "0009aabbcc").expect(1, "0600010000" "0009aabbcc")
                     .packet(2, "0007aabbcc").expect(1, "0600010000" "0007aabbcc")
                     .packet(2, "0008aabbcc").expect(1, "0001010000" "0008bbcc"))


@case
def advance_by_a_huge_amount():
    program = Program("advance_by_a_huge_amount")
    program.header_type("long_t", [("v", 64)])
    one = program.header("one", "long_t")
    program.state("start", [extract(one), advance(one["v"] << 3)])
    report(program, [("error", 8, program.standard["parser_error"])])
    test = Stf("2 to the power of 64 bits, and more, are past the end")
    for value in ("2000000000000000", "ffffffffffffffff", "0000000020000000"):
        test.packet(2, value + "eeff").expect(1, "01" + value + "eeff")
    return program, test.packet(2, "0000000000000001eeff").expect(1, "00" "0000000000000001ff")


@case
def extract_to_a_full_stack():
    program = Program("extract_to_a_full_stack")
    program.header_type("word_t", [("v", 16)])
    pile = program.stack("pile", "word_t", 2)
    program.state("start", [extract(pile)], [], [otherwise("start")])
    report(program, [("error", 8, program.standard["parser_error"]), ("next", 8, stack_size(pile))])
    return program, (Stf("StackOutOfBounds comes before PacketTooShort")
                     .packet(2, "111122223333").expect(1, "0302" "111122223333")
                     .packet(2, "1111222233").expect(1, "0302" "1111222233")
                     .packet(2, "11112222").expect(1, "0302" "11112222")
                     .packet(2, "111122").expect(1, "0101" "111122")
                     .packet(2, "11").expect(1, "0100" "11"))


@case
def last_element_of_an_empty_stack():
    program = Program("last_element_of_an_empty_stack")
    program.header_type("byte_t", [("v", 8)])
    one, pile = program.header("one", "byte_t"), program.stack("pile", "byte_t", 2)
    kept = program.scalar("kept", 8)
    program.state("start", [extract(one)], [one["v"]],
                  [on(1, "key", digits=2), on(2, "value", digits=2), on(3, "filled", digits=2),
                   otherwise(None)])
    program.state("key", [set_field(kept, 1)], [pile.last("v")],
                  [on(0, "more", digits=2), otherwise("more")])
    program.state("value", [set_field(kept, pile.last("v")), set_field(kept, 4)])
    program.state("filled", [extract(pile)], [], [otherwise("key")])
    program.state("more", [set_field(kept, 5)])
    report(program, [("error", 8, program.standard["parser_error"]), ("kept", 8, kept)])
    return program, (Stf("StackOutOfBounds in a key and in a value; with an element all is well")
                     .packet(2, "01ee").expect(1, "0301" "01ee")
                     .packet(2, "02ee").expect(1, "0300" "02ee")
                     .packet(2, "0377ee").expect(1, "0005" "0377ee"))


@case
def select_without_a_match():
    program, headers, after = words_program("select_without_a_match")
    program.state("start", [extract(headers[0])], [headers[0]["v"]],
                  [on(0x1122, "more", digits=4), on(0xff00, None, mask=0xff00, digits=4)])
    program.state("more", [extract(headers[1])])
    report_headers(program, headers, after)
    return program, (Stf("NoMatch without a default; an accepting transition is no error")
                     .packet(2, "11223344").expect(1, "0000010100" "11223344")
                     .packet(2, "11233344").expect(1, "0200010000" "11233344")
                     .packet(2, "ff013344").expect(1, "0000010000" "ff013344"))


@case
def verify_ends_the_parser():
    program = Program("verify_ends_the_parser", more_errors=["OwnError"])
    program.header_type("word_t", [("a", 8), ("b", 8)])
    one, two = program.header("one", "word_t"), program.header("two", "word_t")
    after = program.scalar("after", 8)
    program.state("start", [extract(one), verify(one["a"] < one["b"], program.error("OwnError")),
                            set_field(after, 1), extract(two)])
    report(program, [("error", 8, program.standard["parser_error"]), ("after", 8, after)])
    return program, (Stf("error 7 where a is not below b; operations after it do not run")
                     .packet(2, "01023344").expect(1, "0001" "01023344")
                     .packet(2, "02023344").expect(1, "0700" "02023344")
                     .packet(2, "0102").expect(1, "0101" "0102"))


@case
def verify_with_a_computed_error():
    program = Program("verify_with_a_computed_error")
    program.header_type("byte_t", [("v", 8)])
    one = program.header("one", "byte_t")
    program.state("start", [extract(one), verify(True, one["v"]),
                            verify(d2b(one["v"] & 1), wrapped((one["v"] << 8) + 1))])
    report(program, [("error", 32, program.standard["parser_error"])])
    return program, (Stf("the second operand is evaluated when the first is false")
                     .packet(2, "03ee").expect(1, "00000000" "03ee")
                     .packet(2, "44ee").expect(1, "00004401" "44ee"))


@case
def parser_loop_runs_into_its_limit():
    program = Program("parser_loop")
    program.header_type("word_t", [("n", 16)])
    one = program.header("one", "word_t")
    left = program.scalar("left", 16)
    program.state("start", [extract(one), set_field(left, one["n"])], [], [otherwise("loop")])
    program.state("loop", [set_field(left, left - 1)], [left],
                  [on(0, None, digits=4), otherwise("loop")])
    report(program, [("error", 8, program.standard["parser_error"])])
    return program, (Stf("start and 999 times loop are 1000 states; one more is ParserTimeout")
                     .packet(2, "0001ee").expect(1, "00" "0001ee")
                     .packet(2, "03e7ee").expect(1, "00" "03e7ee")
                     .packet(2, "03e8ee").expect(1, "05" "03e8ee")
                     .packet(2, "ffffee").expect(1, "05" "ffffee"))


@case
def parser_loop_without_an_end():
    program, headers, after = words_program("parser_loop_without_an_end")
    program.state("start", [extract(headers[0])], [], [otherwise("loop")])
    program.state("loop", [], [], [otherwise("loop")])
    report_headers(program, headers, after)
    return program, Stf("ParserTimeout").packet(2, "1122ee").expect(1, "0500010000" "1122ee")


@case
def accept_and_reject_look_alike():
    program, headers, after = words_program("accept_and_reject")
    program.state("start", [extract(headers[0])], [headers[0]["v"]],
                  [on(1, None, digits=4), otherwise("more")])
    program.state("more", [extract(headers[1])])
    report_headers(program, headers, after)
    return program, (Stf("a null next state sets no error")
                     .packet(2, "00013344").expect(1, "0000010000" "00013344")
                     .packet(2, "00023344").expect(1, "0000010100" "00023344"))


@case
def parser_error_is_seen_in_egress():
    program, headers, after = words_program("parser_error_in_egress")
    program.state("start", [extract(headers[0])])
    fill = result_header(program, [("error", 32, program.standard["parser_error"])])
    program.ingress.run("send", to_port(program))
    program.egress.run("show", *fill)
    return program, (Stf()
                     .packet(2, "11").expect(1, "00000001" "11")
                     .packet(2, "1122").expect(1, "00000000" "1122"))


# Varbits


def varbit_program(name, width, bits, maximum=2):
    """A length field of `width` bits and a varbit of at most `maximum` bytes.

    `bits` makes the varbit's length from the length field, which is read ahead.
    """
    program = Program(name)
    program.header_type("blob_t", [("n", width), ("body", "*")], max_length=width // 8 + maximum)
    blob = program.header("blob", "blob_t")
    n = program.scalar("n", width)
    program.state("start", [set_field(n, lookahead(0, width)), extract_varbit(blob, bits(n))])
    report(program, [("error", 8, program.standard["parser_error"]), ("valid", 8, blob.valid)])
    return program


def varbit_test(rows, comment=None):
    """A row is (packet, error); the packet always leaves whole."""
    test = Stf(comment)
    for data, error in rows:
        data = data.replace(" ", "")
        test.packet(2, data).expect(1, f"{error:02x}{0 if error else 1:02x}{data}")
    return test


@case
def varbit_length_errors():
    program = varbit_program("varbit_length_errors", 8, lambda n: n)
    return program, varbit_test([
        ("00 eeee", 0), ("08 5a eeee", 0), ("10 5a5a ee", 0), ("10 5a5a", 0), ("00", 0),
        ("18 5a5a5a", HEADER_TOO_SHORT), ("18 5a5a5a ee", HEADER_TOO_SHORT),
        ("10 5a", TOO_SHORT), ("08", TOO_SHORT), ("01 5a5a", INVALID_ARGUMENT),
        ("0f 5a5a", INVALID_ARGUMENT)], "the length is in bits, at most 16 of them fit")


@case
def varbit_length_errors_come_in_order():
    program = varbit_program("varbit_length_errors_in_order", 8, lambda n: n)
    return program, varbit_test([
        ("19 5a5a", INVALID_ARGUMENT), ("11 5a", INVALID_ARGUMENT),
        ("19 5a5a5a5a", INVALID_ARGUMENT),
        ("18 5a5a", TOO_SHORT), ("f8 5a", TOO_SHORT)],
        "not whole bytes, then past the packet's end, then past the greatest length")


@case
def varbit_length_that_wrapped_around():
    program = varbit_program("varbit_length_that_wrapped", 8, lambda n: ((n - 4) << 3) & 0xffffffff)
    return program, varbit_test([
        ("04 eeee", 0), ("05 5a ee", 0), ("06 5a5a ee", 0), ("07 5a5a5a ee", HEADER_TOO_SHORT),
        ("03 5a5a5a5a5a5a", TOO_SHORT), ("00 5a5a5a5a5a5a", TOO_SHORT)],
        "n - 4 words below zero become some 2 to the power of 32 bits")


@case
def varbit_length_of_all_ones():
    program = varbit_program("varbit_length_of_all_ones", 32, lambda n: n)
    return program, varbit_test([
        ("ffffffff 5a5a", INVALID_ARGUMENT), ("fffffff8 5a5a", TOO_SHORT),
        ("80000000 5a5a", TOO_SHORT), ("00000010 5a5a ee", 0)])


@case
def varbit_length_beyond_64_bits():
    program = varbit_program("varbit_length_beyond_64_bits", 64, lambda n: n << 3)
    return program, varbit_test([
        ("2000000000000000 5a5a", TOO_SHORT), ("2000000000000001 5a5a", TOO_SHORT),
        ("ffffffffffffffff 5a5a", TOO_SHORT), ("0000000000000002 5a5a ee", 0)],
        "2 to the power of 64 bits are not 0 bits")


@case
def varbit_length_below_zero():
    program = varbit_program("varbit_length_below_zero", 8, lambda n: (n - 4) << 3)
    return program, varbit_test([
        ("03 5a5a5a", TOO_SHORT), ("00 5a5a5a", TOO_SHORT), ("05 5a ee", 0)],
        "a negative length that is not masked")


@case
def varbit_is_extracted_to_a_stack():
    program = Program("varbit_is_extracted_to_a_stack")
    program.header_type("blob_t", [("n", 8), ("body", "*")], max_length=3)
    pile = program.stack("pile", "blob_t", 2)
    n = program.scalar("n", 8)
    program.state("start", [set_field(n, lookahead(0, 8)), extract_varbit(pile, n << 3)], [n],
                  [on(0, None, digits=2), otherwise("start")])
    report(program, [("error", 8, program.standard["parser_error"]), ("next", 8, stack_size(pile))])
    return program, (Stf("a full stack comes before the checks of the length")
                     .packet(2, "01aa00ee").expect(1, "0002" "01aa00ee")
                     .packet(2, "02aabb01cc00ee").expect(1, "0302" "02aabb01cc00ee")
                     .packet(2, "02aabb01cc09").expect(1, "0302" "02aabb01cc09")
                     .packet(2, "01aa03bbccdd").expect(1, "0401" "01aa03bbccdd"))
