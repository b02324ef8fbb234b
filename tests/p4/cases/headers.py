"""Header types, fields, validity, and values that actions leave in headers."""
from cases import case
from compiled import *
from observe import *
from reference import packed
from stf import Stf


def two_bytes(name):
    """A program with the headers one and two of one byte each. The caller adds the parser."""
    program = Program(name)
    program.header_type("byte_t", [("v", 8)])
    one, two = program.header("one", "byte_t"), program.header("two", "byte_t")
    return program, one, two


@case
def fields_cross_byte_boundaries():
    widths = [3, 13, 1, 7, 9, 15]
    program = Program("fields_cross_byte_boundaries")
    program.header_type("mixed_t", [(f"f{i}", width) for i, width in enumerate(widths)])
    mixed = program.header("mixed", "mixed_t")
    program.state("start", [extract(mixed)])
    report(program, [(f"r{i}", 16, mixed[f"f{i}"]) for i in range(len(widths))],
           before=[assign(mixed["f2"], mixed["f2"] + 1), assign(mixed["f4"], 0x1ab)])
    test = Stf("the first field holds the top bits of the first byte")
    for values in ([5, 0x1234, 0, 0x55, 0x101, 0x4321], [2, 0xfff, 1, 0, 0, 0x7fff]):
        data = packed(*zip(values, widths))
        after = values[:2] + [values[2] ^ 1, values[3], 0x1ab, values[5]]
        test.packet(2, data).expect(1, packed(*[(value, 16) for value in after])
                                    + packed(*zip(after, widths)))
    return program, test


@case
def wide_header_leaves_unchanged():
    program = Program("wide_header_leaves_unchanged")
    program.header_type("wide_t", [("w", 336)])
    wide = program.header("wide", "wide_t")
    program.state("start", [extract(wide)])
    program.ingress.run("send", to_port(program))
    data = bytes(range(200, 242)) + b"tail"
    return program, Stf("one field of 336 bits").packet(2, data).expect(1, data)


@case
def signed_fields_extend_their_sign():
    sut = Computation("signed_fields", [("s", 8, True), ("t", 12, True), ("u", 4)])
    s, t = sut["s"], sut["t"]
    local = sut.program.scalar("local", 8, True)
    sut.first(assign(local, s + 100))
    sut.result("wider", 16, s, True)
    sut.result("twelve", 16, t, True)
    sut.result("unsigned", 16, s)
    sut.result("cut", 8, t, True)
    sut.result("local", 16, local, True)
    sut.result("sum", 16, s + t, True)
    return sut.case([
        ((-1, -2048, 0), (-1, -2048, -1, 0, 99, -2049)),
        ((100, 0x7ff, 15), (100, 0x7ff, 100, -1, -56, 0x7ff + 100)),
        ((-128, -1, 1), (-128, -1, -128, -1, -28, -129))],
        "200 stored into the signed local of 8 bits is -56")


@case
def boolean_field_with_zero_for_signed_is_unsigned():
    program = Program("boolean_field")
    program.header_type("in_t", [("v", 8)])
    given = program.header("in", "in_t")
    program.state("start", [extract(given)])
    flag = program.scalar("flag", 1, 0)
    report(program, [("plain", 8, flag), ("is_one", 8, b2d(flag == 1)),
                     ("below_zero", 8, b2d(flag < 0)), ("as_boolean", 8, b2d(d2b(flag)))],
           before=[assign(flag, b2d(given["v"] > 9))])
    return program, (Stf("the third member of the field is the number 0")
                     .packet(2, "0a").expect(1, "010100010a")
                     .packet(2, "09").expect(1, "0000000009"))


@case
def padding_of_metadata_is_not_emitted():
    program = Program("padding_of_metadata")
    program.header_type("in_t", [("v", 8)])
    given = program.header("in", "in_t")
    program.state("start", [extract(given)])
    flag = program.scalar("flag", 1)
    program.header_type("own_t", [("a", 3), ("b", 10), ("_padding_1", 3)])
    own = program.metadata("own", "own_t")
    report(program, [("flag", 8, flag), ("a", 8, own["a"]), ("b", 16, own["b"])],
           before=[assign(flag, given["v"]), assign(own["a"], given["v"]),
                   assign(own["b"], given["v"] * 16)])
    return program, (Stf("metadata of 1 bit and of 13 bits")
                     .packet(2, "ffee").expect(1, "010703f0ffee")
                     .packet(2, "02ee").expect(1, "0002002002ee"))


@case
def metadata_is_always_valid():
    program, one, two = two_bytes("metadata_is_always_valid")
    program.state("start", [extract(one)])
    report(program, [("scalars", 8, Header("scalars").valid),
                     ("standard", 8, b2d(program.standard.is_valid())), ("one", 8, one.valid),
                     ("two", 8, two.valid)])
    return program, Stf("two is never parsed").packet(2, "77").expect(1, "0101010077")


@case
def metadata_is_zero_for_each_packet():
    program, one, two = two_bytes("metadata_is_zero_for_each_packet")
    kept = program.scalar("kept", 16)
    program.state("start", [extract(one)], [one["v"]], [on(1, "more", digits=2), otherwise(None)])
    program.state("more", [extract(two), set_field(kept, number(0xbeef))])
    report(program, [("kept", 16, kept), ("two", 8, two["v"]), ("two_valid", 8, two.valid)])
    return program, (Stf("nothing of the first packet is left in the second")
                     .packet(2, "0155").expect(1, "beef55010155")
                     .packet(2, "0066").expect(1, "000000000066"))


@case
def invalid_header_reads_as_zero():
    program, one, two = two_bytes("invalid_header_reads_as_zero")
    program.state("start", [extract(one), extract(two)])
    report(program, [("removed", 8, two["v"]), ("added", 8, one["v"]), ("sum", 8, two["v"] + 5)],
           before=[remove_header(two)])
    return program, (Stf("a removed header, and one that a short packet does not hold")
                     .packet(2, "1122ee").expect(1, "00110511ee")
                     .packet(2, "33").expect(1, "00330533"))


@case
def key_of_an_invalid_header_is_zero():
    program = Program("key_of_an_invalid_header_is_zero")
    program.header_type("kind_t", [("kind", 8)])
    program.header_type("address_t", [("a", 32)])
    kind, address = program.header("kind", "kind_t"), program.header("address", "address_t")
    program.state("start", [extract(kind)], [kind["kind"]],
                  [on(4, "read", digits=2), otherwise(None)])
    program.state("read", [extract(address)])
    send = program.action("send", assign(program.standard["egress_spec"], Data(0)),
                          data=[("port", 9)])
    program.ingress.table("hosts", [key("exact", address["a"])], [send], default=send,
                          default_data=[9])
    return program, (Stf("the second packet has no address; the key is 0, not that of the first")
                     .add("hosts", "address.a:0x0a000001", "send(port:3)")
                     .add("hosts", "address.a:0", "send(port:4)")
                     .packet(2, "040a000001").expect(3, "040a000001")
                     .packet(2, "060a000001").expect(4, "060a000001")
                     .packet(2, "040b000001").expect(9, "040b000001"))


@case
def write_to_an_invalid_header_is_lost():
    program, one, two = two_bytes("write_to_an_invalid_header_is_lost")
    program.state("start", [extract(one)])
    report(program, [("read", 8, two["v"])],
           before=[assign(two["v"], 0x77), assign(one["v"], two["v"] + 1), add_header(two)])
    return program, Stf("two is written, read, then added").packet(2, "05ee").expect(1, "000100ee")


@case
def add_header_keeps_a_valid_header():
    program, one, two = two_bytes("add_header_keeps_a_valid_header")
    program.state("start", [extract(one), extract(two)])
    program.ingress.run("add", add_header(one), remove_header(two), add_header(two),
                        to_port(program))
    return program, (Stf("one is valid and keeps its value; two is removed and added: 0")
                     .packet(2, "0707ee").expect(1, "0700ee"))


@case
def remove_header_takes_a_header_out():
    program, one, two = two_bytes("remove_header_takes_a_header_out")
    program.state("start", [extract(one), extract(two)])
    report(program, [("one", 8, one.valid), ("two", 8, b2d(two.is_valid())),
                     ("not_one", 8, b2d(negate(one.is_valid())))],
           before=[remove_header(one), remove_header(one)])
    return program, Stf().packet(2, "1122ee").expect(1, "00010122ee")


@case
def valid_operators():
    program = Program("valid_operators")
    program.header_type("byte_t", [("v", 8)])
    program.union_type("u_t", [("a", "byte_t"), ("b", "byte_t")])
    kind, union = program.header("kind", "byte_t"), program.union("u", "u_t")
    program.state("start", [extract(kind)], [kind["v"]],
                  [on(1, "first", digits=2), on(2, "second", digits=2), otherwise(None)])
    program.state("first", [extract(union["a"])])
    program.state("second", [extract(union["b"])])
    report(program, [("union", 8, b2d(op("valid_union", None, union))),
                     ("a", 8, b2d(op("valid", None, union["a"]))),
                     ("b", 8, b2d(op("valid", None, union["b"])))])
    return program, (Stf("operators valid and valid_union")
                     .packet(2, "0177").expect(1, "0101000177")
                     .packet(2, "0277").expect(1, "0100010277")
                     .packet(2, "0377").expect(1, "0000000377"))


@case
def assign_header_copies_fields_and_validity():
    program, one, two = two_bytes("assign_header_copies")
    program.state("start", [extract(one)], [one["v"]],
                  [on(0x80, "more", mask=0x80, digits=2), otherwise(None)])
    program.state("more", [extract(two)])
    program.emit(two, one)
    program.ingress.run("copy", assign_header(one, two), to_port(program))
    return program, (Stf("two is copied to one: its value, or its not being there")
                     .packet(2, "8122ee").expect(1, "2222ee")
                     .packet(2, "0122ee").expect(1, "22ee"))


@case
def assign_header_to_itself_changes_nothing():
    program, one, two = two_bytes("assign_header_to_itself")
    program.state("start", [extract(one)])
    program.ingress.run("copy", assign_header(one, one), assign_header(two, two), to_port(program))
    return program, Stf().packet(2, "1122ee").expect(1, "1122ee")


@case
def assign_header_copies_metadata():
    program, one, _ = two_bytes("assign_header_copies_metadata")
    program.header_type("own_t", [("a", 5), ("s", 11, True)])
    source, copy_of = program.metadata("source", "own_t"), program.metadata("copy", "own_t")
    program.state("start", [extract(one), set_field(source["a"], one["v"]),
                            set_field(source["s"], 0 - one["v"])])
    report(program, [("a", 8, copy_of["a"]), ("s", 16, copy_of["s"], True)],
           before=[assign_header(copy_of, source), assign(source["a"], 0)])
    return program, Stf("a struct of metadata").packet(2, "09ee").expect(1, "09fff709ee")


@case
def headers_are_equal_by_all_fields():
    program = Program("headers_are_equal_by_all_fields")
    program.header_type("pair_t", [("a", 8), ("b", 8)])
    one, two = program.header("one", "pair_t"), program.header("two", "pair_t")
    program.state("start", [extract(one), extract(two)])
    report(program, [("equal", 8, b2d(one == two)), ("unequal", 8, b2d(one != two))])
    return program, (Stf("both valid; then two does not fit into the packet")
                     .packet(2, "01020102").expect(1, "0100" "01020102")
                     .packet(2, "01020103").expect(1, "0001" "01020103")
                     .packet(2, "01020202").expect(1, "0001" "01020202")
                     .packet(2, "010201").expect(1, "0001" "010201")
                     .packet(2, "000000").expect(1, "0001" "000000"))


@case
def two_invalid_headers_are_equal():
    program, one, two = two_bytes("two_invalid_headers_are_equal")
    program.state("start")
    report(program, [("equal", 8, b2d(one == two)), ("unequal", 8, b2d(one != two))])
    return program, Stf("as the language says").packet(2, "ee").expect(1, "0100ee")


# Varbits


def blob_program(name, *headers, maximum=4):
    """Headers of a length byte and a varbit of at most `maximum` bytes, parsed in this order."""
    program = Program(name)
    program.header_type("blob_t", [("n", 8), ("body", "*")], max_length=1 + maximum)
    length = program.scalar("length", 32)
    blobs = [program.header(each, "blob_t") for each in headers]
    steps = []
    for blob in blobs:
        steps += [set_field(length, lookahead(0, 8)), extract_varbit(blob, length << 3)]
    program.state("start", steps)
    return program, *blobs


@case
def varbit_is_emitted_with_its_length():
    program, blob = blob_program("varbit_is_emitted_with_its_length", "blob")
    report(program, [("n", 8, blob["n"])])
    test = Stf("lengths 0 to the maximum")
    for data in ("00", "0111", "03112233", "0411223344"):
        test.packet(2, data + "eeff").expect(1, data[:2] + data + "eeff")
    return program, test


@case
def varbits_are_compared_by_length_and_bytes():
    program, one, two = blob_program("varbits_are_compared", "one", "two")
    report(program, [("equal", 8, b2d(one == two)), ("unequal", 8, b2d(one != two))],
           before=[assign(one["n"], 0), assign(two["n"], 0)])
    test = Stf("the length bytes are set to 0, so that the varbits alone decide")
    for first, second in (("abcdef", "fedcba"), ("cdef", "00cdef"), ("cdef", "cdef00"), ("", "00"),
                          ("abcdef", "abcdef"), ("", ""), ("00", "00")):
        data = f"{len(first) // 2:02x}{first}{len(second) // 2:02x}{second}"
        equal = "0100" if first == second else "0001"
        test.packet(2, data).expect(1, f"{equal}00{first}00{second}")
    return program, test


@case
def varbit_is_copied_with_its_header():
    program, one, two = blob_program("varbit_is_copied_with_its_header", "one", "two")
    program.ingress.run("copy", assign_header(one, two), to_port(program))
    return program, (Stf("one becomes two, longer or shorter than it was")
                     .packet(2, "0111" "03223344" "ee").expect(1, "03223344" "03223344" "ee")
                     .packet(2, "03223344" "00" "ee").expect(1, "00" "00" "ee"))


@case
def varbit_is_assigned_alone():
    program, one, two = blob_program("varbit_is_assigned_alone", "one", "two")
    program.ingress.run("copy", assign_varbit(one["body"], two["body"]), to_port(program))
    return program, (Stf("the varbit moves with its length; the length byte stays")
                     .packet(2, "0111" "03223344" "ee").expect(1, "01223344" "03223344" "ee")
                     .packet(2, "03223344" "00" "ee").expect(1, "03" "00" "ee"))


@case
def added_header_has_an_empty_varbit():
    program, blob = blob_program("added_header_has_an_empty_varbit", "blob")
    program.ingress.run("renew", remove_header(blob), add_header(blob), assign(blob["n"], 9),
                        to_port(program))
    return program, (Stf("removed and added: length 0")
                     .packet(2, "03112233ee").expect(1, "09ee")
                     .packet(2, "00").expect(1, "09"))


@case
def varbit_between_fixed_fields():
    program = Program("varbit_between_fixed_fields")
    program.header_type("blob_t", [("n", 8), ("body", "*"), ("end", 16)], max_length=7)
    blob = program.header("blob", "blob_t")
    length = program.scalar("length", 32)
    program.state("start", [set_field(length, lookahead(0, 8)), extract_varbit(blob, length * 8)])
    report(program, [("end", 16, blob["end"])])
    return program, (Stf("the field behind the varbit moves with its length")
                     .packet(2, "00abcdee").expect(1, "abcd" "00abcdee")
                     .packet(2, "02112233445566").expect(1, "3344" "02112233445566"))


# Names, ids, and what a loader ignores


@case
def error_numbers_are_found_by_name():
    program = Program("error_numbers", errors=[
        "OwnOne", "OwnTwo", "OwnThree", "NoError", "PacketTooShort", "NoMatch", "StackOutOfBounds",
        "HeaderTooShort", "ParserTimeout", "ParserInvalidArgument"])
    program.header_type("byte_t", [("v", 8)])
    one, two = program.header("one", "byte_t"), program.header("two", "byte_t")
    stack = program.stack("pile", "byte_t", 1)
    program.state("start", [extract(one)], [one["v"]],
                  [on(0, None, digits=2), on(1, "long", digits=2), on(2, "overflow", digits=2),
                   on(3, "own", digits=2), on(4, "odd", digits=2), on(5, "start_again", digits=2)])
    program.state("long", [extract(two)])
    program.state("overflow", [extract(stack), extract(stack)])
    program.state("own", [verify(False, 1)])
    program.state("odd", [advance(4)])
    program.state("start_again", [], [], [otherwise("start_again")])
    report(program, [("error", 32, program.standard["parser_error"])])
    test = Stf("the program's own errors come first, so NoError is 3")
    for data, error in (("0055", 3), ("01", 4), ("025566", 6), ("0355", 1), ("0455", 9),
                        ("0555", 8), ("0655", 5)):
        test.packet(2, data).expect(1, f"{error:08x}{data}")
    return program, test


@case
def standard_metadata_is_found_by_name():
    program = Program("standard_metadata_by_name")
    fields = [field for field in STANDARD_METADATA if field[0] != "_padding"]
    program.root["header_types"][1]["fields"] = [
        list(field) + [False] for field in [("_padding_7", 3)] + fields[::-1]]
    program.header_type("byte_t", [("v", 8)])
    one, two = program.header("one", "byte_t"), program.header("two", "byte_t")
    program.state("start", [extract(one), extract(two)])
    standard = program.standard
    report(program, [("ingress_port", 16, standard["ingress_port"]),
                     ("length", 32, standard["packet_length"]),
                     ("error", 8, standard["parser_error"])], port=7)
    return program, (Stf("the fields of standard_metadata stand in another order")
                     .packet(5, "2233ee").expect(7, "0005" "00000003" "00" "2233ee")
                     .packet(6, "22").expect(7, "0006" "00000001" "01" "22"))


@case
def ids_of_headers_are_no_positions():
    program = Program("ids_of_headers")
    program.header_type("byte_t", [("v", 8)])
    stack = program.stack("pile", "byte_t", 2)
    program.union_type("u_t", [("a", "byte_t"), ("b", "byte_t")])
    union = program.union("u", "u_t")
    program.state("start", [extract(stack), extract(stack), extract(union["a"])])
    program.ingress.run("change", pop(stack, 1), add_header(union["b"]), assign(union["b"]["v"], 9),
                        to_port(program))
    root = program.build()
    new_ids = {each["id"]: 40 - 3 * each["id"] for each in root["headers"]}
    for each in root["headers"]:
        each["id"] = new_ids[each["id"]]
    for each in root["header_stacks"] + root["header_unions"]:
        each["header_ids"] = [new_ids[old] for old in each["header_ids"]]
    root["headers"].reverse()
    root["header_types"].reverse()
    return root, (Stf("header ids run backwards with gaps; pop and the union still find them")
                  .packet(2, "112233ee").expect(1, "2209ee"))


@case
def unknown_members_are_ignored():
    program, one, _ = two_bytes("unknown_members_are_ignored")
    program.state("start", [extract(one)])
    program.ingress.run("send", to_port(program))
    root = program.build()
    source = {"filename": "a.p4", "line": 1, "column": 2, "source_fragment": "x"}
    root["annotations"] = {"any": [1, None]}
    root["headers"][2]["source_info"] = source
    root["pipelines"][0]["tables"][0]["source_info"] = source
    root["actions"][0]["remark"] = "any"
    root["actions"][0]["primitives"][0]["source_info"] = source
    root["parsers"][0]["parse_states"][0]["source_info"] = source
    del root["program"]
    return root, Stf().packet(2, "11ee").expect(1, "11ee")


@case
def minor_versions_are_accepted():
    program, one, _ = two_bytes("minor_versions_are_accepted")
    program.state("start", [extract(one)])
    program.ingress.run("send", to_port(program))
    root = program.build()
    root["__meta__"] = {"version": [2, 0]}
    return root, Stf("version 2.0, without the compiler's name").packet(2, "11ee").expect(1, "11ee")


@case
def newest_minor_version_is_accepted():
    program, one, _ = two_bytes("newest_minor_version")
    program.root["__meta__"]["version"] = [2, 24]
    program.state("start", [extract(one)])
    program.ingress.run("send", to_port(program))
    return program, Stf("version 2.24").packet(2, "11ee").expect(1, "11ee")


@case
def alias_may_be_listed_twice():
    program, one, _ = two_bytes("alias_may_be_listed_twice")
    program.state("start", [extract(one)])
    program.ingress.run("send", to_port(program))
    root = program.build()
    root["field_aliases"] += root["field_aliases"][:1]
    return root, Stf("one alias is listed twice").packet(2, "11ee").expect(1, "11ee")


# The deparser


@case
def deparser_orders_the_headers():
    program, one, two = two_bytes("deparser_orders_the_headers")
    program.state("start", [extract(one), extract(two)])
    program.emit(two, one)
    program.ingress.run("send", to_port(program))
    return program, (Stf("two leaves before one, the payload last")
                     .packet(2, "1122ee").expect(1, "2211ee")
                     .packet(2, "11").expect(1, "11"))


@case
def header_that_is_not_listed_is_not_emitted():
    program, one, two = two_bytes("header_that_is_not_listed")
    program.state("start", [extract(one), extract(two)])
    program.emit(two)
    program.ingress.run("send", to_port(program))
    return program, Stf().packet(2, "1122ee").expect(1, "22ee")


@case
def packet_without_parsed_headers_is_payload():
    program, one, two = two_bytes("packet_without_parsed_headers")
    program.state("start")
    program.ingress.run("send", to_port(program))
    return program, (Stf("the parser accepts at once")
                     .packet(2, "11223344").expect(1, "11223344").packet(2, "11").expect(1, "11"))


@case
def headers_added_in_egress_are_emitted():
    program, one, two = two_bytes("headers_added_in_egress")
    program.state("start", [extract(one)])
    program.ingress.run("send", to_port(program))
    program.egress.run("add", add_header(two), assign(two["v"], one["v"] + 1), remove_header(one))
    return program, Stf().packet(2, "11ee").expect(1, "12ee")
