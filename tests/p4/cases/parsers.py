"""Parser states: operations, keys, transitions."""
from cases import case
from compiled import *
from observe import *
from reference import packed
from stf import Stf


def selecting(name, fields, transitions, keys=None, operations=()):
    """Parses the header `h` of these fields and selects on `keys` (default: on all its fields).

    The states one, two, three and other set `path` to 1, 2, 3 and 9; the packet out begins with
    path and parser_error.
    """
    program = Program(name)
    program.header_type("h_t", fields)
    h = program.header("h", "h_t")
    path = program.scalar("path", 8)
    keys = [h[each[0]] for each in fields] if keys is None else keys(program, h)
    program.state("start", [extract(h), *operations], keys, transitions)
    for number_, state in ((1, "one"), (2, "two"), (3, "three"), (9, "other")):
        program.state(state, [set_field(path, number_)])
    report(program, [("path", 8, path), ("error", 8, program.standard["parser_error"])])
    return program


def paths(rows, comment=None):
    """A row is (packet, path, error)."""
    test = Stf(comment)
    for data, path, error in rows:
        data = data.replace(" ", "")
        test.packet(2, data).expect(1, f"{path:02x}{error:02x}{data}")
    return test


@case
def select_takes_the_first_transition_that_matches():
    program = selecting("first_transition", [("v", 8)], [
        on(0x10, "one", digits=2), on(0x10, "two", mask=0xf0, digits=2),
        on(0x10, "three", digits=2),
        otherwise("other")])
    return program, paths([("10ee", 1, 0), ("15ee", 2, 0), ("20ee", 9, 0)])


@case
def select_masks_key_and_value():
    program = selecting("masks", [("v", 16)], [
        on(0x1111, "one", mask=0x000f, digits=4), on(0xffff, "two", mask=0xff00, digits=4),
        on(0x0042, "three", mask=0xffff, digits=4), otherwise("other")])
    return program, paths([("2221ee", 1, 0), ("ff00ee", 2, 0), ("0042ee", 3, 0), ("0043ee", 9, 0)],
                          "bits of the value outside the mask do not count")


@case
def key_parts_are_padded_on_the_left():
    program = selecting("key_of_9_and_4_bits", [("a", 9), ("b", 4), ("rest", 3)], [
        on("0x01ff0a", "one"), on("0x01000f", "two", mask="0x01000f"), otherwise("other")],
        keys=lambda program, h: [h["a"], h["b"]])
    def data(a, b):
        return packed((a, 9), (b, 4), (7, 3)).hex() + "ee"
    return program, paths([(data(0x1ff, 0xa), 1, 0), (data(0x101, 0xf), 2, 0),
                           (data(0x1ff, 0xb), 9, 0), (data(0x0ff, 0xf), 9, 0)])


@case
def key_of_12_and_2_bits():
    program = selecting("key_of_12_and_2_bits", [("a", 12), ("b", 2), ("rest", 2)], [
        on("0x0aba03", "one"), on("0x000003", "two", mask="0x000003"), otherwise("other")],
        keys=lambda program, h: [h["a"], h["b"]])
    return program, paths([
        (packed((0xaba, 12), (3, 2), (0, 2)).hex(), 1, 0),
        (packed((0xabb, 12), (3, 2), (0, 2)).hex(), 2, 0),
        (packed((0xaba, 12), (2, 2), (3, 2)).hex(), 9, 0)])


@case
def key_of_many_parts():
    fields = [("a", 1), ("b", 48), ("c", 7), ("d", 128), ("e", 8)]
    program = selecting("key_of_many_parts", fields, [
        on("0x01" "020000000001" "7f" "20010db8000000000000000000000001" "05", "one"),
        on("0x00" "000000000001" "00" "00000000000000000000000000000000" "00", "two",
           mask="0x00" "000000000001" "00" "00000000000000000000000000000000" "00"),
        on("0x00" "000000000000" "00" "20010000000000000000000000000000" "00", "three",
           mask="0x00" "000000000000" "00" "ffff0000000000000000000000000000" "00"),
        otherwise("other")])
    def data(*values):
        return packed(*zip(values, [width for _, width in fields])).hex() + "ee"
    address = 0x20010db8 << 96 | 1
    return program, paths([
        (data(1, 0x020000000001, 0x7f, address, 5), 1, 0),
        (data(1, 0x020000000001, 0x7e, address, 5), 2, 0),
        (data(1, 0x020000000002, 0x7f, address, 5), 3, 0),
        (data(0, 0x020000000002, 0x7f, address >> 1, 5), 9, 0)], "a key of 25 bytes")


@case
def short_values_are_padded_on_the_left():
    program = selecting("short_values", [("v", 16)], [
        on("0xa", "one"), on("0x100", "two", mask="0xf00"), otherwise("other")])
    return program, paths([("000aee", 1, 0), ("a000ee", 9, 0), ("01ffee", 2, 0), ("f1ffee", 2, 0)],
                          "0xa on 16 bits is 000a")


@case
def signed_fields_as_key_are_bit_patterns():
    program = selecting("signed_fields_as_key", [("a", 4, True), ("b", 12, True)], [
        on("0x0f" "0ffe", "one"), on("0x08" "0800", "two"), otherwise("other")])
    return program, paths([("fffeee", 1, 0), ("8800ee", 2, 0), ("7ffeee", 9, 0)],
                          "-1 of 4 bits is 0f, -2 of 12 bits is 0ffe: the padding is zeros")


@case
def keys_of_other_kinds():
    program = Program("keys_of_other_kinds")
    program.header_type("byte_t", [("v", 8)])
    one, two = program.header("one", "byte_t"), program.header("two", "byte_t")
    flag, path = program.scalar("flag", 1, 0), program.scalar("path", 8)
    program.state("start", [extract(one), set_field(flag, one["v"])],
                  [lookahead(0, 8), lookahead(4, 12)], [
                      on("0xab" "0bcd", "by_flag"),
                      on("0x12" "0000", "by_flag", mask="0xff" "0000"),
                      otherwise(None)])
    program.state("by_flag", [set_field(path, 1)],
                  [flag, one.valid, two.valid, program.standard["ingress_port"]],
                  [on("0x01" "01" "00" "0002", "deep"), otherwise(None)])
    program.state("deep", [set_field(path, 2), extract(two)])
    report(program, [("path", 8, path), ("two", 8, two.valid)])
    test = Stf("lookahead with an offset, metadata, validity, the port")
    for port, data, path_value, valid in (
            (2, "01abcd", 2, 1), (2, "00abcd", 1, 0), (3, "01abcd", 1, 0), (2, "01abce", 0, 0),
            (2, "011234", 2, 1), (2, "031fff", 0, 0)):
        test.packet(port, data).expect(1, f"{path_value:02x}{valid:02x}{data}")
    return program, test


@case
def last_stack_element_as_key():
    program = Program("last_stack_element_as_key")
    program.header_type("label_t", [("value", 7), ("last", 1)])
    pile = program.stack("pile", "label_t", 3)
    program.state("start", [extract(pile)], [pile.last("last")],
                  [on(0, "start", digits=2), otherwise(None)])
    report(program, [("next", 8, stack_size(pile)), ("error", 8, program.standard["parser_error"])])
    return program, (Stf("labels up to the one whose last bit is set")
                     .packet(2, "0305ee").expect(1, "0100" "0305ee")
                     .packet(2, "020405ee").expect(1, "0300" "020405ee")
                     .packet(2, "020406ee").expect(1, "0303" "020406ee"))


@case
def states_are_found_by_name():
    program = Program("states_are_found_by_name")
    program.header_type("byte_t", [("v", 8)])
    one, two = program.header("one", "byte_t"), program.header("two", "byte_t")
    program.parser["init_state"] = "begin"
    program.state("second", [extract(two)])
    program.state("begin", [extract(one)], [], [otherwise("second")])
    program.state("start", [])
    report(program, [("one", 8, one["v"]), ("two", 8, two["v"])])
    for each in program.parser["parse_states"]:
        each["id"] = 70 - each["id"]
    return program, Stf("the parser begins with the state begin").packet(2, "1122ee").expect(
        1, "1122" "1122ee")


@case
def value_sets_are_empty_at_load():
    program = Program("value_sets_are_empty")
    program.header_type("h_t", [("a", 12), ("b", 4)])
    h = program.header("h", "h_t")
    path = program.scalar("path", 8)
    chosen = program.value_set("P.chosen", 16)
    program.state("start", [extract(h)], [h["a"], h["b"]],
                  [on_set(chosen, "one"), on_set(chosen, "one", mask="0x0fff00"),
                   on("0x012304", "two"), otherwise("other")])
    for number_, state in ((1, "one"), (2, "two"), (9, "other")):
        program.state(state, [set_field(path, number_)])
    report(program, [("path", 8, path)])
    return program, (Stf("a set without members matches nothing, not even 0")
                     .packet(2, "1234ee").expect(1, "021234ee")
                     .packet(2, "0000ee").expect(1, "090000ee"))


@case
def field_of_an_invalid_header_as_key_is_zero():
    program = Program("invalid_header_as_key")
    program.header_type("byte_t", [("v", 8)])
    one, two = program.header("one", "byte_t"), program.header("two", "byte_t")
    path = program.scalar("path", 8)
    program.state("start", [extract(one)], [one["v"]],
                  [on(2, "both", digits=2), otherwise("key")])
    program.state("both", [extract(two)], [], [otherwise("key")])
    program.state("key", [], [two["v"], two.valid],
                  [on("0x0000", "one_path"), on("0x0001", "two_path"), otherwise(None)])
    program.state("one_path", [set_field(path, 1)])
    program.state("two_path", [set_field(path, 2)])
    report(program, [("path", 8, path)])
    return program, (Stf("0 of an invalid header, 0 of a valid one, and 77 before an invalid one")
                     .packet(2, "027700").expect(1, "00" "027700")
                     .packet(2, "017700").expect(1, "01" "017700")
                     .packet(2, "020077").expect(1, "02" "020077"))


# Operations


@case
def set_stores_fields_constants_lookaheads_and_expressions():
    program = Program("set_in_the_parser")
    program.header_type("pair_t", [("a", 8), ("b", 8)])
    one, two = program.header("one", "pair_t"), program.header("two", "pair_t")
    names = [("copy", 8), ("constant", 16), ("cut", 4), ("ahead", 8), ("ahead_wide", 24),
             ("ahead_shifted", 8), ("sum", 8), ("ahead_sum", 8)]
    kept = {name: program.scalar(name, width) for name, width in names}
    signed = program.scalar("signed", 8, True)
    program.state("start", [
        extract(one), set_field(kept["copy"], one["b"]),
        set_field(kept["constant"], number(0xbeef)),
        set_field(kept["cut"], number(0x1ff)), set_field(kept["ahead"], lookahead(0, 8)),
        set_field(kept["ahead_wide"], lookahead(0, 24)),
        set_field(kept["ahead_shifted"], lookahead(3, 7)),
        set_field(kept["sum"], one["a"] + one["b"]),
        set_field(kept["ahead_sum"], lookahead(8, 8) + 1),
        set_field(signed, one["b"]), set_field(one["a"], wrapped(0x155)), extract(two)])
    report(program, [(name, 24 if name == "ahead_wide" else 16, kept[name]) for name, _ in names]
           + [("signed", 16, signed, True)])
    expected = packed((0xf0, 16), (0xbeef, 16), (0xf, 16), (0xa5, 16), (0xa5ff31, 24),
                      (0b0010111, 16), ((0x20 + 0xf0) % 256, 16), (0, 16), (-16, 16))
    return program, (Stf("a lookahead reads without moving; one.a becomes 55")
                     .packet(2, "20f0a5ff31").expect(1, expected + bytes.fromhex("55f0a5ff31")))


@case
def lookahead_of_more_than_64_bits():
    program = Program("lookahead_of_more_than_64_bits")
    program.header_type("byte_t", [("v", 8)])
    one = program.header("one", "byte_t")
    whole, part = program.scalar("whole", 160), program.scalar("part", 128)
    program.state("start", [extract(one), set_field(whole, lookahead(0, 160)),
                            set_field(part, lookahead(12, 128))])
    report(program, [("whole", 160, whole), ("part", 128, part)])
    data = bytes(range(0x10, 0x10 + 21))
    ahead = int.from_bytes(data[1:], "big")
    part_value = ahead >> (160 - 12 - 128) & ((1 << 128) - 1)
    return program, (Stf("160 bits, and 128 bits from bit 12 on")
                     .packet(2, data).expect(1, packed((ahead, 160), (part_value, 128)) + data))


@case
def set_to_an_invalid_header_is_lost():
    program = Program("set_to_an_invalid_header")
    program.header_type("byte_t", [("v", 8)])
    one, two = program.header("one", "byte_t"), program.header("two", "byte_t")
    seen = program.scalar("seen", 8)
    program.state("start", [set_field(two["v"], 0x77), set_field(seen, two["v"]), extract(one),
                            parser_primitive(add_header(two))])
    report(program, [("seen", 8, seen)])
    return program, Stf().packet(2, "11ee").expect(1, "00" "1100" "ee")


@case
def advance_skips_bytes_for_good():
    program = Program("advance_skips_bytes")
    program.header_type("h_t", [("n", 8)])
    one, two = program.header("one", "h_t"), program.header("two", "h_t")
    program.state("start", [extract(one)], [one["n"]],
                  [on(0xff, "constant", digits=2), on(0xf0, "field", mask=0xf0, digits=2),
                   otherwise("computed")])
    bits = program.scalar("bits", 32)
    program.state("constant", [advance(number(16))], [], [otherwise("rest")])
    program.state("field", [set_field(bits, (one["n"] & 0xf) << 3), advance(bits)], [],
                  [otherwise("rest")])
    program.state("computed", [advance(one["n"] << 3)], [], [otherwise("rest")])
    program.state("rest", [extract(two)])
    report(program, [("error", 8, program.standard["parser_error"])])
    return program, (Stf("skipped bytes are neither header nor payload")
                     .packet(2, "ffaabbccee").expect(1, "00" "ffccee")
                     .packet(2, "f3aabbccddee").expect(1, "00" "f3ddee")
                     .packet(2, "01aabbee").expect(1, "00" "01bbee")
                     .packet(2, "00aaee").expect(1, "00" "00aaee")
                     .packet(2, "02aabb").expect(1, "01" "02"))


@case
def shift_skips_bytes():
    program = Program("shift_skips_bytes")
    program.header_type("byte_t", [("v", 8)])
    one, two = program.header("one", "byte_t"), program.header("two", "byte_t")
    program.state("start", [extract(one), parser_op("shift", number(2)), extract(two)])
    report(program, [("error", 8, program.standard["parser_error"])])
    return program, (Stf("the old operation: 2 bytes")
                     .packet(2, "11aabb22ee").expect(1, "00" "1122ee"))


@case
def primitives_in_parser_states():
    program = Program("primitives_in_parser_states")
    program.header_type("byte_t", [("v", 8)])
    one, two, three = [program.header(each, "byte_t") for each in ("one", "two", "three")]
    program.state("start", [extract(one), extract(two), parser_primitive(assign_header(three, one)),
                            parser_primitive(remove_header(one)),
                            parser_primitive(add_header(two))])
    report(program, [("one", 8, one.valid), ("two", 8, two["v"]), ("three", 8, three["v"])])
    return program, (Stf("three = one, one is removed, two is valid and stays")
                     .packet(2, "1122ee").expect(1, "002211" "2211ee"))


@case
def parser_assigns_a_stack():
    program = Program("parser_assigns_a_stack")
    program.header_type("byte_t", [("v", 8)])
    one, two = program.stack("one", "byte_t", 2), program.stack("two", "byte_t", 2)
    program.state("start", [extract(one), parser_primitive(assign_stack(two, one)),
                            extract(one)])
    report(program, [(f"two{i}", 8, two[i].valid) for i in range(2)])
    return program, (Stf("two has what one held at that moment")
                     .packet(2, "1122ee").expect(1, "0100" "112211ee"))


@case
def parser_pushes_onto_a_stack():
    program = Program("parser_pushes_onto_a_stack")
    program.header_type("byte_t", [("v", 8)])
    pile = program.stack("pile", "byte_t", 3)
    program.state("start", [extract(pile), parser_primitive(push(pile, 1)), extract(pile)])
    report(program, [(f"v{i}", 8, pile[i]["v"]) for i in range(3)]
           + [("next", 8, stack_size(pile))])
    return program, (Stf("the push moves the next index, so the second byte goes to element 2")
                     .packet(2, "1122ee").expect(1, "00112203" "1122ee"))


@case
def extract_fills_a_stack_in_order():
    program = Program("extract_fills_a_stack")
    program.header_type("byte_t", [("v", 8)])
    pile = program.stack("pile", "byte_t", 3)
    program.state("start", [extract(pile), extract(pile)])
    report(program, [(f"v{i}", 8, pile[i]["v"]) for i in range(3)]
           + [("valid2", 8, pile[2].valid), ("next", 8, stack_size(pile))])
    return program, Stf().packet(2, "1122ee").expect(1, "1122000002" "1122ee")


@case
def named_extract_does_not_move_the_next_index():
    program = Program("named_extract")
    program.header_type("byte_t", [("v", 8)])
    pile = program.stack("pile", "byte_t", 3)
    program.state("start", [extract(pile[0]), extract(pile)])
    report(program, [("next", 8, stack_size(pile)), ("one", 8, pile[1].valid)])
    return program, (Stf("pile[0] is extracted by name, then pile: pile[0] again")
                     .packet(2, "1122ee").expect(1, "0100" "22ee"))


@case
def extract_again_replaces_a_header():
    program = Program("extract_again")
    program.header_type("byte_t", [("v", 8)])
    one = program.header("one", "byte_t")
    program.state("start", [extract(one), extract(one)])
    report(program, [("one", 8, one["v"])])
    return program, Stf().packet(2, "1122ee").expect(1, "22" "22ee")


@case
def unrolled_loop_extracts_elements_by_name():
    program = Program("unrolled_loop")
    program.header_type("label_t", [("value", 7), ("last", 1)])
    pile = program.stack("pile", "label_t", 2)
    program.state("start", [extract(pile[0])], [pile[0]["last"]],
                  [on(0, "start1", digits=2), otherwise(None)])
    program.state("start1", [extract(pile[1])], [pile[1]["last"]],
                  [on(0, "start2", digits=2), otherwise(None)])
    program.state("start2", [verify(False, program.error("StackOutOfBounds"))])
    report(program, [("error", 8, program.standard["parser_error"])])
    return program, (Stf("as the compiler writes a loop over a stack")
                     .packet(2, "03ee").expect(1, "00" "03ee")
                     .packet(2, "0203ee").expect(1, "00" "0203ee")
                     .packet(2, "0202ee").expect(1, "03" "0202ee"))
