"""Hashes and checksums: algorithms, inputs, conditions, order, and the payload."""
from cases import case
from compiled import *
from observe import *
from reference import CHECK_TEXT, crc16, crc32, csum16, identity, packed, packed_right, xor16
from stf import Stf

ALGORITHMS = [("csum16", csum16), ("crc16", crc16), ("crc32", crc32), ("xor16", xor16),
              ("identity", identity)]


GREATEST = (1 << 64) - 1  # as the maximum of a hash, changes no value but this one


def hash_all(program, inputs):
    """Results that show every algorithm over these inputs, and the primitives that compute them."""
    results, before = [], []
    for name, _ in ALGORITHMS:
        value = program.scalar(f"of_{name}", 64)
        calculation = program.calculation(f"calc_{name}", name, inputs)
        before.append(hash_into(value, 0, calculation, GREATEST))
        results.append((name, 64, value))
    return results, before


def hashes(data):
    return packed(*[(function(data) % GREATEST, 64) for _, function in ALGORITHMS])


def hashing(name, fields, inputs, rows, comment=None):
    """Hashes inputs(h, program) with every algorithm; a row is (values of fields, hashed bytes)."""
    program = Program(name)
    program.header_type("h_t", fields)
    h = program.header("h", "h_t")
    program.state("start", [extract(h)])
    results, before = hash_all(program, inputs(h, program))
    report(program, results, before)
    test = Stf(comment)
    for values, data in rows:
        packet = packed(*zip(values, [each[1] for each in fields])) + PAYLOAD_BYTES
        test.packet(2, packet).expect(1, hashes(data) + packet)
    return program, test


@case
def hashes_of_the_check_text():
    text = int.from_bytes(CHECK_TEXT, "big")
    other = int.from_bytes(b"987654321", "big")
    carries_twice = bytes.fromhex("ffffffff0001000000")
    return hashing("hashes_of_the_check_text", [("text", 72)], lambda h, program: [h["text"]],
                   [((text,), CHECK_TEXT), ((other,), b"987654321"), ((0,), bytes(9)),
                    ((2**72 - 1,), b"\xff" * 9), ((0xffffffff0001 << 24,), carries_twice)],
                   "123456789, an odd number of bytes: csum16, crc16, crc32, xor16, identity")


@case
def hashes_join_fields_without_padding():
    fields = [("a", 4), ("b", 12), ("c", 3), ("d", 13)]
    rows = []
    for values in ((0xa, 0xbcd, 5, 0x1234), (1, 0, 0, 1), (0xf, 0xfff, 7, 0x1fff)):
        rows.append((values, packed(*zip(values, [4, 12, 3, 13]))))
    return hashing("hashes_join_fields", fields,
                   lambda h, program: [h["a"], h["b"], h["c"], h["d"]], rows)


@case
def hashes_pad_zero_bits_on_the_right():
    fields = [("a", 3), ("b", 10), ("c", 3)]
    rows = []
    for values in ((5, 0x3a5, 7), (0, 1, 7), (7, 0x3ff, 0)):
        rows.append((values, packed_right((values[0], 3), (values[1], 10))))
    return hashing("hashes_pad_zero_bits", fields, lambda h, program: [h["a"], h["b"]], rows,
                   "13 bits are followed by three zero bits")


@case
def hashes_of_one_bit_and_of_signed_fields():
    fields = [("flag", 1), ("rest", 7), ("s", 8, True)]
    rows = [((1, 0x55, -2), packed_right((1, 1), (-2, 8))),
            ((0, 0, -128), packed_right((0, 1), (-128, 8)))]
    return hashing("hashes_of_one_bit", fields, lambda h, program: [h["flag"], h["s"]], rows,
                   "a bit, then the two's complement of a signed field: 9 bits")


@case
def hashes_take_constants_with_their_width():
    fields = [("a", 8)]
    rows = [((value,), packed((0x0800, 16), (value, 8), (5, 4), (0xb, 4), (0, 32)))
            for value in (0, 0x77)]
    return hashing("hashes_take_constants", fields,
                   lambda h, program: [constant(0x0800, 16), h["a"], constant(5, 4),
                                       constant(0xb, 4),
                                       constant(0, 32)], rows)


@case
def hashes_take_metadata():
    fields = [("a", 8)]
    rows = [((value,), packed_right((value * 3, 16), (2, 9))) for value in (1, 0xff)]

    def inputs(h, program):
        kept = program.scalar("kept", 16)
        program.parser["parse_states"][0]["parser_ops"].append(set_field(kept, h["a"] * 3))
        return [kept, program.standard["ingress_port"]]
    return hashing("hashes_take_metadata", fields, inputs, rows, "16 bits and the port of 9 bits")


def two_addresses(name, inputs):
    """A kind byte. Bit 0: `short` (4 bytes) follows. Bit 1: `long` (16 bytes) follows."""
    program = Program(name)
    program.header_type("kind_t", [("k", 8)])
    program.header_type("short_t", [("a", 32)])
    program.header_type("long_t", [("a", 128)])
    kind, short, long = [program.header(each, f"{each}_t") for each in ("kind", "short", "long")]
    program.state("start", [extract(kind)], [kind["k"]],
                  [on(1, "short", mask=1, digits=2), otherwise("maybe_long")])
    program.state("short", [extract(short)], [], [otherwise("maybe_long")])
    program.state("maybe_long", [], [kind["k"]],
                  [on(2, "long", mask=2, digits=2), otherwise(None)])
    program.state("long", [extract(long)])
    results, before = hash_all(program, inputs(short, long))
    report(program, results, before)
    first, second = bytes([10, 0, 0, 1]), bytes.fromhex("20010db8000000000000000000000001")
    test = Stf("hashed: kind 1 four bytes, 2 sixteen, 3 twenty, 0 none")
    for bits, data in ((1, first), (2, second), (3, first + second), (0, b"")):
        packet = bytes([bits]) + data + PAYLOAD_BYTES
        test.packet(2, packet).expect(1, hashes(data) + packet)
    return program, test


@case
def hashes_leave_out_fields_of_invalid_headers():
    return two_addresses("hashes_leave_out_fields", lambda short, long: [short["a"], long["a"]])


@case
def hashes_take_whole_headers():
    return two_addresses("hashes_take_whole_headers", lambda short, long: [short, long])


@case
def hashes_take_the_payload():
    program = Program("hashes_take_the_payload")
    program.header_type("byte_t", [("v", 8)])
    one = program.header("one", "byte_t")
    program.state("start", [extract(one)])
    results, before = hash_all(program, [one["v"], PAYLOAD])
    report(program, results, before)
    test = Stf("all bytes that the parser left, none of them too")
    for data in (b"\x11", b"\x11\x22", b"\x11" + CHECK_TEXT, bytes(range(100))):
        test.packet(2, data).expect(1, hashes(data) + data)
    return program, test


@case
def hashes_take_varbits_with_their_length():
    program = Program("hashes_take_varbits")
    program.header_type("blob_t", [("n", 8), ("body", "*"), ("end", 8)], max_length=12)
    blob = program.header("blob", "blob_t")
    n = program.scalar("n", 8)
    program.state("start", [set_field(n, lookahead(0, 8)), extract_varbit(blob, n << 3)])
    results, before = hash_all(program, [blob["n"], blob["body"], blob["end"]])
    report(program, results, before)
    test = Stf("the varbit counts with its current length")
    for body in (b"", b"\xaa", CHECK_TEXT):
        data = bytes([len(body)]) + body + b"\x7e"
        test.packet(2, data + b"\xee").expect(1, hashes(data) + data + b"\xee")
    return program, test


@case
def identity_takes_the_first_bytes():
    program = Program("identity_takes_the_first_bytes")
    program.header_type("h_t", [("long", 128), ("short", 24)])
    h = program.header("h", "h_t")
    program.state("start", [extract(h)])
    values = {name: program.scalar(name, 64) for name in ("long", "modulo", "short")}
    program.calculation("of_long", "identity", [h["long"]])
    program.calculation("of_short", "identity", [h["short"]])
    report(program, [(name, 64, value) for name, value in values.items()],
           before=[hash_into(values["long"], 0, "of_long", GREATEST),
                   hash_into(values["modulo"], 0, "of_long", 4),
                   hash_into(values["short"], 0, "of_short", GREATEST)])
    data = "20010db80000000000000000000000ff" "123456"
    return program, (Stf("16 bytes give the first 8; three bytes give all three")
                     .packet(2, data + "ee")
                     .expect(1, "20010db800000000" "0000000000000000" "0000000000123456"
                             + data + "ee"))


@case
def hash_adds_the_base_to_the_rest():
    sut = Computation("hash_base_and_maximum", [("a", 32), ("base", 16), ("max", 16)])
    program = sut.program
    program.calculation("calc", "identity", [sut["a"]])
    cells = {name: program.scalar(name, width)
             for name, width in (("narrow", 8), ("wide", 64), ("fixed", 32))}
    sut.first(hash_into(cells["wide"], sut["base"], "calc", sut["max"]),
              hash_into(cells["narrow"], sut["base"], "calc", sut["max"]),
              hash_into(cells["fixed"], 100, "calc", 10))
    sut.result("wide", 64, cells["wide"])
    sut.result("narrow", 8, cells["narrow"])
    sut.result("fixed", 32, cells["fixed"])
    return sut.case([
        ((1234567, 1000, 1000), (1567, 1567 % 256, 107)),
        ((0xffffffff, 0, 0xffff), (0, 0, 105)),
        ((77, 300, 0), (300, 44, 107)),
        ((77, 0, 1), (0, 0, 107)),
        ((5, 0xffff, 6), (0x10004, 4, 105))],
        "base + (hash mod maximum), maximum 0 acts as 1, then cut")


@case
def hash_into_a_field_of_the_packet():
    program = Program("hash_into_a_packet_field")
    program.header_type("h_t", [("a", 32), ("out", 8)])
    h = program.header("h", "h_t")
    program.state("start", [extract(h)])
    program.calculation("calc", "crc32", [h["a"], h["out"]])
    program.ingress.run("hash", hash_into(h["out"], 0, "calc", GREATEST), to_port(program))
    data = bytes.fromhex("0a00000155")
    return program, (Stf("crc32 is cut to the 8 bits of the field, which is an input too")
                     .packet(2, data).expect(1, data[:4] + bytes([crc32(data) & 0xff])))


@case
def custom_crcs_are_the_usual_ones_at_load():
    program = Program("custom_crcs")
    program.header_type("h_t", [("text", 72)])
    h = program.header("h", "h_t")
    program.state("start", [extract(h)])
    short, long = program.scalar("short", 16), program.scalar("long", 32)
    program.calculation("calc_16", "crc16_custom", [h["text"]])
    program.calculation("calc_32", "crc32_custom", [h["text"]])
    report(program, [("short", 16, short), ("long", 32, long)],
           before=[hash_into(short, 0, "calc_16", GREATEST),
                   hash_into(long, 0, "calc_32", GREATEST)])
    return program, Stf().packet(2, CHECK_TEXT).expect(
        1, packed((crc16(CHECK_TEXT), 16), (crc32(CHECK_TEXT), 32)) + CHECK_TEXT)


# Checksums


def summed_program(name, *headers):
    """Headers of a word to sum and its checksum, parsed one after another."""
    program = Program(name)
    program.header_type("summed_t", [("v", 32), ("sum", 16)])
    headers = [program.header(each, "summed_t") for each in headers]
    program.state("start", [extract(each) for each in headers])
    return program, *headers


def summed(value, checksum=None):
    data = value.to_bytes(4, "big")
    return data + packed((csum16(data) if checksum is None else checksum, 16))


@case
def checksum_is_updated():
    program, one = summed_program("checksum_is_updated", "one")
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(one["sum"], "calc", update=True)
    program.ingress.run("send", assign(one["v"], one["v"] + 1), to_port(program))
    test = Stf("a sum of all ones gives 0")
    for value in (0x45000028, 0xfffefffe, 0xffff0000, 0, 0xfffffffe, 0x0000fffe, 0xffffffff):
        test.packet(2, summed(value, 0xaaaa) + b"\xee")
        test.expect(1, summed((value + 1) % 2**32) + b"\xee")
    return program, test


@case
def checksum_error_of_a_bad_checksum():
    program, one = summed_program("checksum_error", "one")
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(one["sum"], "calc", verify=True)
    report(program, [("bad", 8, program.standard["checksum_error"])])
    good, bad = summed(0x12345678), summed(0x12345678, 0x1234)
    return program, (Stf("nothing is dropped; the next packet begins anew")
                     .packet(2, bad).expect(1, b"\x01" + bad)
                     .packet(2, good).expect(1, b"\x00" + good))


@case
def verify_alone_updates_nothing_and_update_alone_verifies_nothing():
    program, one, two = summed_program("verify_alone", "one", "two")
    program.calculation("calc_one", "csum16", [one["v"]])
    program.calculation("calc_two", "csum16", [two["v"]])
    program.checksum(one["sum"], "calc_one", verify=True)
    program.checksum(two["sum"], "calc_two", update=True)
    report(program, [("bad", 8, program.standard["checksum_error"])])
    return program, (Stf("one is verified, two is updated")
                     .packet(2, summed(5, 1) + summed(6, 2))
                     .expect(1, b"\x01" + summed(5, 1) + summed(6))
                     .packet(2, summed(5) + summed(6, 2))
                     .expect(1, b"\x00" + summed(5) + summed(6)))


@case
def checksum_without_verify_and_update_does_both():
    program, one = summed_program("checksum_does_both", "one")
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(one["sum"], "calc")
    report(program, [("bad", 8, program.standard["checksum_error"])])
    root = program.build()
    del root["checksums"][0]["verify"], root["checksums"][0]["update"]
    return root, (Stf("both members are absent, so both are true")
                  .packet(2, summed(5, 1)).expect(1, b"\x01" + summed(5))
                  .packet(2, summed(5)).expect(1, b"\x00" + summed(5)))


@case
def checksum_error_is_not_reset_by_a_good_checksum():
    program, one, two = summed_program("checksum_error_stays", "one", "two")
    for header in (one, two):
        program.calculation(f"calc_{header.name}", "csum16", [header["v"]])
        program.checksum(header["sum"], f"calc_{header.name}", verify=True)
    report(program, [("bad", 8, program.standard["checksum_error"])])
    test = Stf("one bad of two is enough, the first or the second")
    for first, second, bad in ((1, None, 1), (None, 1, 1), (1, 1, 1), (None, None, 0)):
        data = summed(5, first) + summed(6, second)
        test.packet(2, data).expect(1, bytes([bad]) + data)
    return program, test


@case
def verification_skips_an_invalid_target():
    program, one, two = summed_program("verification_skips", "one", "two")
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(two["sum"], "calc", verify=True)
    report(program, [("bad", 8, program.standard["checksum_error"])])
    good = csum16(summed(5)[:4])
    return program, (Stf("the sum of one stands in two; without two there is nothing to verify")
                     .packet(2, summed(5)).expect(1, b"\x00" + summed(5))
                     .packet(2, summed(5) + summed(6, good)).expect(
                         1, b"\x00" + summed(5) + summed(6, good))
                     .packet(2, summed(5) + summed(6)).expect(1, b"\x01" + summed(5) + summed(6)))


@case
def verification_runs_after_a_parser_error():
    program, one, two = summed_program("verification_after_an_error", "one", "two")
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(one["sum"], "calc", verify=True)
    report(program, [("bad", 8, program.standard["checksum_error"]),
                     ("error", 8, program.standard["parser_error"])])
    return program, (Stf("two is cut short: PacketTooShort and a bad checksum of one")
                     .packet(2, summed(5, 1) + b"\x77")
                     .expect(1, b"\x01\x01" + summed(5, 1) + b"\x77")
                     .packet(2, summed(5) + b"\x77").expect(1, b"\x00\x01" + summed(5) + b"\x77"))


@case
def verification_uses_the_values_after_the_parser():
    program, one = summed_program("verification_uses_the_values", "one")
    program.parser["parse_states"][0]["parser_ops"].append(set_field(one["v"], one["v"] + 1))
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(one["sum"], "calc", verify=True)
    report(program, [("bad", 8, program.standard["checksum_error"])],
           before=[assign(one["v"], 0)])
    good = csum16(summed(6)[:4])
    return program, (Stf("the parser adds 1 to the word; what ingress writes comes too late")
                     .packet(2, summed(5, good)).expect(1, b"\x00" + summed(0, good))
                     .packet(2, summed(5)).expect(1, b"\x01" + summed(0, csum16(summed(5)[:4]))))


@case
def checksum_conditions():
    program, one, two = summed_program("checksum_conditions", "one", "two")
    for header, condition in ((one, one["v"] > 0xff), (two, False)):
        for kind in ("verify", "update"):
            calculation = program.calculation(f"{kind}_{header.name}", "csum16", [header["v"]])
            program.checksum(header["sum"], calculation, **{kind: True}, condition=condition)
    report(program, [("bad", 8, program.standard["checksum_error"])])
    return program, (Stf("one: v above ff, two: never")
                     .packet(2, summed(0x100, 1) + summed(7, 2))
                     .expect(1, b"\x01" + summed(0x100) + summed(7, 2))
                     .packet(2, summed(0xff, 1) + summed(7, 2))
                     .expect(1, b"\x00" + summed(0xff, 1) + summed(7, 2)))


@case
def checksum_condition_that_is_always_true():
    program, one = summed_program("checksum_condition_true", "one")
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(one["sum"], "calc", update=True, condition=True)
    program.ingress.run("send", to_port(program))
    return program, Stf().packet(2, summed(5, 1)).expect(1, summed(5))


@case
def update_condition_is_evaluated_at_the_end():
    program, one, two = summed_program("update_condition", "one", "two")
    flag = program.scalar("flag", 1, 0)
    program.calculation("calc_one", "csum16", [one["v"]])
    program.checksum(one["sum"], "calc_one", update=True, condition=two.is_valid())
    program.calculation("calc_two", "csum16", [two["v"]])
    program.checksum(two["sum"], "calc_two", update=True, condition=d2b(flag))
    program.ingress.condition("node_2", one["v"] == 1, true_next="tbl_remove",
                              false_next="tbl_send")
    program.ingress.run("remove", remove_header(two), next="tbl_send")
    program.ingress.run("send", to_port(program))
    program.egress.run("set_flag", assign(flag, 1))
    return program, (Stf("two is removed in ingress: no update of one; the flag is set in egress")
                     .packet(2, summed(1, 9) + summed(6, 9)).expect(1, summed(1, 9))
                     .packet(2, summed(2, 9) + summed(6, 9)).expect(1, summed(2) + summed(6)))


@case
def later_updates_see_earlier_results():
    program = Program("later_updates")
    program.header_type("pair_t", [("v", 16), ("first", 16), ("second", 16)])
    pair = program.header("pair", "pair_t")
    program.state("start", [extract(pair)])
    program.calculation("calc_first", "csum16", [pair["v"]])
    program.calculation("calc_second", "csum16", [pair["v"], pair["first"], constant(0x0101, 16)])
    program.checksum(pair["first"], "calc_first", update=True)
    program.checksum(pair["second"], "calc_second", update=True)
    program.ingress.run("send", to_port(program))
    value = bytes.fromhex("1234")
    first = csum16(value).to_bytes(2, "big")
    second = csum16(value + first + b"\x01\x01").to_bytes(2, "big")
    return program, (Stf("the second checksum covers the first, in the order of the array")
                     .packet(2, "123455556666ee").expect(1, value + first + second + b"\xee"))


@case
def update_of_an_invalid_target_is_lost():
    program, one, two = summed_program("update_of_an_invalid_target", "one", "two")
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(two["sum"], "calc", update=True)
    program.ingress.run("send", to_port(program))
    good = csum16(summed(5)[:4])
    return program, (Stf("two takes the sum of one where it is there")
                     .packet(2, summed(5, 1) + summed(6, 1))
                     .expect(1, summed(5, 1) + summed(6, good))
                     .packet(2, summed(5, 1)).expect(1, summed(5, 1)))


@case
def checksum_covers_the_payload():
    program = Program("checksum_covers_the_payload")
    program.header_type("length_t", [("src", 32), ("len", 16)])
    program.header_type("segment_t", [("port", 16), ("sum", 16)])
    outer, segment = program.header("outer", "length_t"), program.header("segment", "segment_t")
    program.state("start", [extract(outer), extract(segment)])
    inputs = [outer["src"], constant(0, 8), constant(17, 8), outer["len"], segment["port"], PAYLOAD]
    program.calculation("calc", "csum16", inputs)
    program.calculation("calc_0", "csum16", inputs)
    program.checksum(segment["sum"], "calc", verify=True)
    program.checksum(segment["sum"], "calc_0", update=True)
    report(program, [("bad", 8, program.standard["checksum_error"])],
           before=[assign(outer["src"], outer["src"] + 1)])

    def data(source, payload, checksum=None):
        front = source.to_bytes(4, "big") + bytes([0, len(payload)]) + b"\x12\x34"
        right = csum16(front[:4] + b"\x00\x11" + front[4:] + payload)
        return front + packed((right if checksum is None else checksum, 16)) + payload
    test = Stf("pseudo header, port, payload of even, odd and no length")
    for payload in (b"abcd", b"abcde", b"", b"\xff", bytes(range(201))):
        test.packet(2, data(0x0a000001, payload)).expect(1, b"\x00" + data(0x0a000002, payload))
        test.packet(2, data(0x0a000001, payload, 7)).expect(1, b"\x01" + data(0x0a000002, payload))
    return program, test


@case
def checksum_leaves_out_invalid_headers():
    program = Program("checksum_leaves_out_invalid_headers")
    program.header_type("kind_t", [("k", 16), ("sum", 16)])
    program.header_type("short_t", [("a", 16)])
    kind, short = program.header("kind", "kind_t"), program.header("short", "short_t")
    program.state("start", [extract(kind)], [kind["k"]],
                  [on(1, "short", digits=4), otherwise(None)])
    program.state("short", [extract(short)])
    program.calculation("calc", "csum16", [kind["k"], short["a"], PAYLOAD])
    program.checksum(kind["sum"], "calc", update=True)
    program.ingress.run("send", assign(short["a"], 0x7777), to_port(program))
    one = csum16(bytes.fromhex("00017777") + b"pay").to_bytes(2, "big")
    two = csum16(bytes.fromhex("0002") + b"pay").to_bytes(2, "big")
    return program, (Stf("ingress writes 7777 to short, which counts only where short is valid")
                     .packet(2, b"\x00\x01\xaa\xaa\x12\x34pay")
                     .expect(1, b"\x00\x01" + one + b"\x77\x77pay")
                     .packet(2, b"\x00\x02\xaa\xaapay").expect(1, b"\x00\x02" + two + b"pay"))


@case
def checksum_of_a_metadata_target():
    program, one = summed_program("checksum_of_a_metadata_target", "one")
    kept = program.scalar("kept", 16)
    program.parser["parse_states"][0]["parser_ops"].append(set_field(kept, one["sum"]))
    program.calculation("calc", "csum16", [one["v"]])
    program.checksum(kept, "calc", verify=True)
    program.calculation("calc_0", "csum16", [one["v"], constant(1, 16)])
    program.checksum(kept, "calc_0", update=True)
    program.calculation("calc_1", "csum16", [kept])
    program.checksum(one["sum"], "calc_1", update=True)
    report(program, [("bad", 8, program.standard["checksum_error"])])
    updated = csum16((5).to_bytes(4, "big") + b"\x00\x01")
    shown = csum16(updated.to_bytes(2, "big"))
    return program, (Stf("the metadata is verified, then updated, then summed into the header")
                     .packet(2, summed(5)).expect(1, b"\x00" + summed(5, shown))
                     .packet(2, summed(5, 1)).expect(1, b"\x01" + summed(5, shown)))


@case
def checksum_with_other_algorithms():
    program = Program("checksum_with_other_algorithms")
    program.header_type("h_t", [("v", 72), ("short", 16), ("long", 32), ("xor", 16)])
    h = program.header("h", "h_t")
    program.state("start", [extract(h)])
    for field, algorithm in (("short", "crc16"), ("long", "crc32"), ("xor", "xor16")):
        for kind in ("verify", "update"):
            calculation = program.calculation(f"{kind}_{field}", algorithm, [h["v"]])
            program.checksum(h[field], calculation, **{kind: True})
    report(program, [("bad", 8, program.standard["checksum_error"])])
    good = CHECK_TEXT + packed((crc16(CHECK_TEXT), 16), (crc32(CHECK_TEXT), 32),
                               (xor16(CHECK_TEXT), 16))
    bad = good[:14] + bytes([good[14] ^ 1]) + good[15:]
    return program, (Stf("crc16, crc32 and xor16 of 123456789 in the packet")
                     .packet(2, good + b"\xee").expect(1, b"\x00" + good + b"\xee")
                     .packet(2, bad + b"\xee").expect(1, b"\x01" + good + b"\xee"))
