"""Packet tests of the test language itself: commands, keys, names, and how a test is judged."""
from cases import case, fails
from lab import *


def mark(lab, name="mark"):
    return lab.action(name, assign(f("t.a"), Data(0)), data=[("v", 8)])


def keyed(*keys, **more):
    """A table `C.pick` whose action C.mark(v) writes t.a; packets leave on port 1."""
    p = Lab()
    p.node("C.pick", list(keys), [mark(p, "C.mark")], **more)
    p.do(out(1))
    return p


def echo():
    """Packets leave on port t.op as they came."""
    p = Lab()
    p.do(assign(f("egress_spec"), f("t.op")))
    return p


@case
def keywords_in_any_case():
    """Keywords may be written in any case; comments, blank lines and blanks in data mean nothing."""
    p = keyed(key("exact", f("t.b")))
    return p.test("ADD C.pick t.b:1 C.mark(v:7)", "", "   ", "  # a comment",
                  "PACKET 1 0000 01 0000 0000 0000 # ends here",
                  "Expect 1 00 0701 0000 00000000 $", "SetDefault C.pick C.mark(v:8)",
                  "Packet 1 000002000000000000",
                  "EXPECT 1 000802000000000000$")


@case
def digits_that_may_be_anything():
    """A star stands for any digit of a packet, and letters of digits may be large or small."""
    p = echo()
    return p.test("packet 9 01abcdef0123456789", "expect 1 01A*cD*f01234567**$",
                  "packet 9 020000000000000000ee",
                  "expect 2 ********************$")


@case
def pattern_without_an_end():
    """Without $ the packet may be longer than the pattern; with $ it may not."""
    p = echo()
    return p.test(packet(9, t(op=1) + "aabb"), "expect 1 0100", packet(9, t(op=1)),
                  "expect 1 " + t(op=1),
                  packet(9, t(op=1)), "expect 1 0", packet(9, t(op=1)), "expect 1 " + t(op=1) + "$")


@case
def port_with_any_packets():
    """expect with a port only is content with one packet or more, whatever they hold."""
    p = echo()
    return p.test("expect 1", packet(9, t(op=1)), packet(9, t(op=1, a=7)),
                  packet(9, t(op=1) + "ff"),
                  "expect 2", packet(9, t(op=2)))


@case
def expects_before_packets():
    """expect may stand before its packet; the order counts per port only."""
    p = echo()
    return p.test(expect(2, t(op=2)), expect(1, t(op=1, a=1)), packet(9, t(op=1, a=1)),
                  packet(9, t(op=1, a=2)),
                  packet(9, t(op=2)), expect(1, t(op=1, a=2)))


@case
def waiting_changes_nothing():
    """wait and no_packet between packets change nothing."""
    p = echo()
    return p.test("wait", same(9, t(op=1), 1), "wait", packet(9, t(op=2)), "wait",
                  expect(2, t(op=2)), "no_packet")


@case
def remove_all_entries():
    """remove all takes the entries out of the tables."""
    p = keyed(key("exact", f("t.b")))
    return p.test("add C.pick t.b:1 mark(v:7)", packet(1, t(b=1)), expect(1, t(a=7, b=1)),
                  "remove all",
                  same(1, t(b=1), 1), "add C.pick t.b:1 mark(v:6)", packet(1, t(b=1)),
                  expect(1, t(a=6, b=1)))


@case
def entries_act_on_later_packets():
    """A packet before the add misses, a packet after it hits."""
    p = keyed(key("exact", f("t.b")))
    return p.test(same(1, t(b=1), 1), "add C.pick t.b:1 mark(v:7) = 12", packet(1, t(b=1)),
                  expect(1, t(a=7, b=1)))


@case
def numbers_in_three_bases():
    """Numbers of keys and arguments are decimal, hexadecimal or binary."""
    p = keyed(key("exact", f("t.c")), key("exact", f("t.b")))
    return p.test("add pick t.c:4660 t.b:0b101 mark(v:0b11)",
                  "add pick t.c:0xABcd t.b:0x5 mark(v:0xfF)",
                  "add pick t.c:0b1 t.b:05 mark(v:9)",
                  packet(1, t(b=5, c=0x1234)), expect(1, t(a=3, b=5, c=0x1234)),
                  packet(1, t(b=5, c=0xabcd)), expect(1, t(a=255, b=5, c=0xabcd)),
                  packet(1, t(b=5, c=1)), expect(1, t(a=9, b=5, c=1)))


@case
def names_by_their_end():
    """A table or action is found by its full name, else by an end that only one has."""
    p = Lab()
    p.node("C.inner.pick", [key("exact", f("t.b"))], [mark(p, "C.inner.mark")])
    p.node("C.other", [key("exact", f("t.b"))], [mark(p, "C.inner.mark"),
                                                 p.action("C.clear", assign(f("t.d"), 5))])
    p.do(out(1))
    return p.test("add inner.pick t.b:1 mark(v:1)", "add ck t.b:2 ark(v:2)",
                  "add C.inner.pick t.b:3 C.inner.mark(v:3)",
                  "add other t.b:4 clear()", [line for b, a in ((1, 1), (2, 2), (3, 3)) for line in
                                              (packet(1, t(b=b)), expect(1, t(a=a, b=b)))],
                  packet(1, t(b=4)), expect(1, t(b=4, d=5)))


@case
def full_name_before_an_end():
    """A full name counts although another name ends with it."""
    p = Lab()
    p.node("pick", [key("exact", f("t.b"))], [mark(p, "mark")])
    p.node("C.pick", [key("exact", f("t.b"))], [p.action("C.mark", assign(f("t.c"), Data(0)),
                                                         data=[("v", 8)])])
    p.do(out(1))
    return p.test("add pick t.b:1 mark(v:1)", "add C.pick t.b:1 mark(v:2)", packet(1, t(b=1)),
                  expect(1, t(a=1, b=1, c=2)))


@case
def names_in_quotes():
    """A name may stand in double quotes, and may hold $ and a number in brackets."""
    p = Lab()
    p.header_type("e_t", [("y", 8)])
    p.parse_some(p.stack("x", "e_t", 3))
    p.deparse("t", "x[0]", "x[1]", "x[2]")
    p.node("C.$pick[2]", [key("exact", f("x[1].y"))], [mark(p)])
    p.do(out(1))
    return p.test('add "C.$pick[2]" "x[1].y":0x22 "mark"("v":7)',
                  "add C.$pick[2] x[1].y:0x33 mark(v:8)",
                  packet(1, t(op=2) + "1122"), expect(1, t(op=2, a=7) + "1122"),
                  packet(1, t(op=2) + "1133"), expect(1, t(op=2, a=8) + "1133"))


def validity_lab():
    """x[0..2] with $valid$ keys of elements 1 and 2."""
    p = Lab()
    p.header_type("e_t", [("y", 8)])
    p.parse_some(p.stack("x", "e_t", 3))
    p.deparse("t", "x[0]", "x[1]", "x[2]")
    return p


@case
def key_names_of_stack_elements():
    """x$1.y names x[1].y."""
    p = validity_lab()
    p.node("pick", [key("exact", f("x[1].y")), key("exact", f("x[2].y"))], [mark(p)])
    p.do(out(1))
    return p.test("add pick x$1.y:0x22 x$2.y:0x33 mark(v:7)", packet(1, t(op=3) + "112233"),
                  expect(1, t(op=3, a=7) + "112233"), same(1, t(op=3) + "113322", 1))


@case
def key_names_of_validity():
    """x[1] and x[1].valid name x[1].$valid$."""
    p = validity_lab()
    p.node("pick", [key("exact", f("x[1].$valid$")), key("exact", f("x[2].$valid$"))], [mark(p)])
    p.do(out(1))
    return p.test("add pick x[1]:1 x[2].valid:0 mark(v:1)",
                  "add pick x$1.$valid$:1 x$2.$valid$:1 mark(v:2)",
                  packet(1, t(op=2) + "1122"), expect(1, t(op=2, a=1) + "1122"),
                  packet(1, t(op=3) + "112233"), expect(1, t(op=3, a=2) + "112233"),
                  same(1, t(op=1) + "11", 1))


@case
def lone_valid_as_a_key():
    """The name valid alone is the only $valid$ key."""
    p = validity_lab()
    p.node("pick", [key("exact", f("x[1].$valid$")), key("exact", f("t.b"))], [mark(p)])
    p.do(out(1))
    return p.test("add pick valid:1 b:3 mark(v:1)", packet(1, t(op=2, b=3) + "1122"),
                  expect(1, t(op=2, a=1, b=3) + "1122"),
                  same(1, t(op=1, b=3) + "11", 1))


@case
def keys_in_any_order_and_left_out():
    """Keys come in any order; exact keys that are left out are 0, prefixes /0, ternary keys anything."""
    p = Lab()
    p.node("route", [key("exact", f("t.b")), key("lpm", f("t.d"))], [mark(p)])
    second = p.action("second", assign(f("t.c"), Data(0)), data=[("v", 16)])
    p.node("acl", [key("ternary", f("t.d")), key("exact", f("t.op"))], [second])
    p.do(out(1))
    return p.test("add route t.b:5 mark(v:1)", "add route t.d:0x0a000000/8 mark(v:2)",
                  "add route t.d:0x0b000000/8 t.b:5 mark(v:3)",
                  "add acl t.op:1 second(v:0x11)", "add acl second(v:0x22)",
                  packet(1, t(op=1, b=5, d=0x0a000001)),
                  expect(1, t(op=1, a=1, b=5, c=0x11, d=0x0a000001)),
                  packet(1, t(op=0, b=0, d=0x0a000001)),
                  expect(1, t(op=0, a=2, b=0, c=0x22, d=0x0a000001)),
                  packet(1, t(op=2, b=5, d=0x0b000001)), expect(1, t(op=2, a=3, b=5, d=0x0b000001)),
                  same(1, t(op=2, b=0, d=0x0b000001), 1))


@case
def prefixes_by_stars():
    """Stars at the end of a prefix key leave the digits before them: 4 bits each, in 0b one."""
    p = keyed(key("lpm", f("t.d")))
    return p.test("add pick t.d:0x0a01**** mark(v:16)", "add pick t.d:0x0a****** mark(v:8)",
                  "add pick t.d:0b000010100000001010" + "*" * 14 + " mark(v:18)",
                  [line for d, a in ((0x0a010000, 16), (0x0a01ffff, 16), (0x0affffff, 8),
                                     (0x0a02ffff, 8),
                                     (0x0a02bfff, 18), (0x0a028001,
                                                        18)) for line in (packet(1, t(d=d)),
                                                                          expect(1, t(a=a, d=d)))],
                                                                          same(1, t(d=0x0b010000),
                                                                               1))


@case
def prefixes_by_written_digits():
    """A prefix key without star and length takes all written digits: 0x12 on 16 bits is 0x0012/8."""
    p = keyed(key("lpm", f("t.c")))
    return p.test("add pick t.c:0x12 mark(v:1)", "add pick t.c:0x3456 mark(v:2)",
                  [line for c, a in ((0x0012, 1), (0x0099, 1), (0x3456, 2)) for line in
                   (packet(1, t(c=c)), expect(1, t(a=a, c=c)))],
                  same(1, t(c=0x1200), 1), same(1, t(c=0x3457), 1))


@case
def short_ternary_values():
    """Of a ternary value, digits that are not written match anything, and so do stars."""
    p = keyed(key("ternary", f("t.c")))
    return p.test("add pick 1 t.c:0x25 mark(v:1)", "add pick 2 t.c:0x37** mark(v:2)",
                  "add pick 6 t.c:0x*4*8 mark(v:3)",
                  "add pick 4 t.c:0b1**0 mark(v:4)", "add pick 5 t.c:0x0001 mark(v:5)",
                  [line for c, a in ((0x1125, 1), (0x2500, 0), (0x3799, 2), (0x1488, 3),
                                     (0x148a, 4), (0x14f8, 3), (0x0001, 5),
                                     (0x1001, 0), (0x3725, 2), (0xfff7, 0), (0xff0c, 4),
                                     (0x0025, 1))
                   for line in (packet(1, t(c=c)), expect(1, t(a=a, c=c)))])


@case
def ternary_without_priority():
    """An entry of a ternary table without priority has priority 0."""
    p = keyed(key("ternary", f("t.c")))
    return p.test("add pick t.c:0x12** mark(v:1)", "add pick 1 t.c:0x**34 mark(v:2)",
                  packet(1, t(c=0x1234)), expect(1, t(a=2, c=0x1234)), packet(1, t(c=0x1235)),
                  expect(1, t(a=1, c=0x1235)))


@case
def priority_of_other_tables_is_ignored():
    """A priority before the keys of an exact or lpm table means nothing."""
    p = keyed(key("lpm", f("t.d")))
    return p.test("add pick 100 t.d:0x0a000000/8 mark(v:1)",
                  "add pick 1 t.d:0x0a010000/16 mark(v:2)",
                  packet(1, t(d=0x0a010000)), expect(1, t(a=2, d=0x0a010000)))


@case
def counters_are_read_and_written():
    """counter_write sets a cell, check_counter compares it in six ways."""
    p = Lab()
    p.counter("C.seen", 4)
    p.do(count("C.seen", f("t.a")), out(1))
    return p.test("counter_write C.seen 2 5 100", same(1, t(a=2), 1), "counter_read C.seen 2",
                  *[f"check_counter C.seen(2) {text}" for text in (
                      "packets == 6", "bytes == 109", "packets != 5", "packets < 7", "packets <= 6",
                      "bytes > 108",
                      "bytes >= 109")], "check_counter C.seen(2)",
                      "check_counter seen(1) packets == 0")


@case
def meter_with_rates():
    """Bursts of 2 and 4 packets with next to no rate: two packets are green, two yellow, the rest red."""
    p = Lab()
    p.meter("police", 2, "packets")
    p.do(execute_meter("police", f("t.a"), f("t.c")), out(1))
    lines = ["meter_set_rates police 1 0.000000001:2 0.000000001:4", "meter_get_rates police 1"]
    for color in (0, 0, 1, 1, 2, 2):
        lines += [packet(1, t(a=1, c=9)), expect(1, t(a=1, c=color))]
    return p.test(lines, packet(1, t(a=0, c=9)), expect(1, t(a=0, c=0)),
                  "meter_array_set_rates police 0.000000001:1 0.000000001:1",
                  packet(1, t(a=0, c=9)), expect(1, t(a=0, c=0)), packet(1, t(a=0, c=9)),
                  expect(1, t(a=0, c=2)))


@case
def value_set_by_command():
    """vset_add puts values into the set of a parser; a mask leaves bits open."""
    p = Lab()
    p.value_set("P.kinds", 16)
    p.state("start", [extract(p.t)], [f("t.c")], [on_set("P.kinds", "known"), otherwise(None)])
    p.state("known", [set_field(f("t.a"), number(7))])
    p.do(out(1))
    return p.test(same(1, t(c=0x800), 1), "vset_add P.kinds 0x0800",
                  "vset_add P.kinds 0x8600 &&& 0xff00",
                  packet(1, t(c=0x800)), expect(1, t(a=7, c=0x800)), packet(1, t(c=0x86dd)),
                  expect(1, t(a=7, c=0x86dd)),
                  same(1, t(c=0x801), 1))


@fails("port 1, packet 1: byte 1 is 00, not 01")
def wrong_byte():
    return echo().test(packet(9, t(op=1)), expect(1, t(op=1, a=1)))


@fails("port 1, packet 1: the packet is longer than the pattern, which ends with $")
def longer_than_the_pattern():
    return echo().test(packet(9, t(op=1) + "ff"), expect(1, t(op=1)))


@fails("port 1, packet 1: the packet is shorter than the pattern")
def shorter_than_the_pattern():
    return echo().test(packet(9, t(op=1)), "expect 1 " + t(op=1) + "**")


@fails("port 1: one packet more than expected")
def one_packet_too_many():
    return echo().test(same(9, t(op=1), 1), packet(9, t(op=1)))


@fails("port 1: one packet fewer than expected")
def one_packet_too_few():
    return echo().test(same(9, t(op=1), 1), expect(1, t(op=1)))


@fails("port 1: packets 1 and 2 came in the other order")
def packets_in_another_order():
    return echo().test(packet(9, t(op=1, a=1)), packet(9, t(op=1, a=2)), expect(1, t(op=1, a=2)),
                       expect(1, t(op=1, a=1)))


@fails("port 2: a packet came, and none is expected")
def packet_on_a_silent_port():
    return echo().test(same(9, t(op=1), 1), packet(9, t(op=2)))


@fails("port 3: no packet came, and one or more are expected")
def no_packet_on_an_expected_port():
    return echo().test(same(9, t(op=1), 1), "expect 3")


@fails("port 1: both forms of expect are used")
def both_forms_of_expect():
    return echo().test("expect 1", same(9, t(op=1), 1))


@fails("counter seen(1): 1 packet, not 2")
def counter_with_another_value():
    p = Lab()
    p.counter("seen", 4)
    p.do(count("seen", f("t.a")), out(1))
    return p.test(same(1, t(a=1), 1), "check_counter seen(1) packets == 2")


@fails("counter seen(4): the index is beyond the size 4")
def counter_index_beyond_the_size():
    p = Lab()
    p.counter("seen", 4)
    p.do(count("seen", f("t.a")), out(1))
    return p.test(same(1, t(a=1), 1), "check_counter seen(4) packets == 0")


@fails("table pick: two tables end with this name, A.pick and B.pick")
def two_tables_end_alike():
    p = Lab()
    p.node("A.pick", [key("exact", f("t.b"))], [mark(p)])
    p.node("B.pick", [key("exact", f("t.b"))], [mark(p)])
    p.do(out(1))
    return p.test("add pick t.b:1 mark(v:1)", packet(1, t()), expect(1, t()))


@fails("table pick: two actions end with mark, A.mark and B.mark")
def two_actions_end_alike():
    p = Lab()
    p.node("pick", [key("exact", f("t.b"))], [mark(p, "A.mark"), mark(p, "B.mark")])
    p.do(out(1))
    return p.test("add pick t.b:1 mark(v:1)", packet(1, t()), expect(1, t()))


@fails("table C.pick: action other is not one of its actions")
def action_of_another_table():
    p = keyed(key("exact", f("t.b")))
    p.node("second", [key("exact", f("t.b"))], [p.action("other")])
    return p.test("add C.pick t.b:1 other()", packet(1, t()), expect(1, t()))


@fails("action mark: argument w does not exist")
def unknown_argument():
    return keyed(key("exact", f("t.b"))).test("add pick t.b:1 mark(w:1)", packet(1, t()),
                                              expect(1, t()))


@fails("action mark: argument v is missing")
def missing_argument():
    return keyed(key("exact", f("t.b"))).test("add pick t.b:1 mark()", packet(1, t()),
                                              expect(1, t()))


@fails("table C.pick: key t.z does not exist")
def unknown_key():
    return keyed(key("exact", f("t.b"))).test("add pick t.z:1 mark(v:1)", packet(1, t()),
                                              expect(1, t()))


@fails("table C.pick: key t.b is given twice")
def key_given_twice():
    return keyed(key("exact", f("t.b"))).test("add pick t.b:1 t.b:1 mark(v:1)", packet(1, t()),
                                              expect(1, t()))


@case
def decimal_ternary_value():
    """A decimal number has no digits to leave open: all bits are compared."""
    return keyed(key("ternary", f("t.c"))).test("add pick 1 t.c:5 mark(v:1)", packet(1, t(c=5)),
                                                expect(1, t(a=1, c=5)), same(1, t(c=4), 1))


@fails("table C.pick: key t.b: 0x123 does not fit 8 bits")
def exact_value_too_wide():
    return keyed(key("exact", f("t.b"))).test("add pick t.b:0x123 mark(v:1)", packet(1, t()),
                                              expect(1, t()))


@fails("table C.pick: the default action is constant")
def default_action_is_constant():
    p = keyed(key("exact", f("t.b")), default="C.mark", default_data=[0], const_default=True)
    return p.test("setdefault pick mark(v:1)", packet(1, t()), expect(1, t()))


@fails("table C.pick: its entries are those of the program")
def add_to_a_constant_table():
    p = Lab()
    action = mark(p, "C.mark")
    p.node("C.pick", [key("exact", f("t.b"))], [action],
           entries=[entry([exact_key(1)], action, [1], 1)])
    p.do(out(1))
    return p.test("add pick t.b:2 mark(v:2)", packet(1, t()), expect(1, t()))


@fails("table C.pick: an entry with these keys exists")
def same_entry_twice():
    return keyed(key("exact", f("t.b"))).test("add pick t.b:1 mark(v:1)",
                                              "add pick t.b:1 mark(v:2)",
                                              packet(1, t()), expect(1, t()))


@fails("table C.pick: a table without keys takes no entries")
def add_to_a_keyless_table():
    p = Lab()
    action = mark(p, "C.mark")
    p.node("C.pick", [], [action], default=action, default_data=[0])
    p.do(out(1))
    return p.test("add pick mark(v:1)", packet(1, t()), expect(1, t()))


@fails("table C.pick is full: it has 2 entries")
def table_is_full():
    p = keyed(key("exact", f("t.b")), max_size=2)
    return p.test([f"add pick t.b:{i} mark(v:1)" for i in (1, 2, 3)], packet(1, t()),
                  expect(1, t()))


@fails("table pick: member 9 does not exist in set")
def unknown_member():
    p = Lab()
    p.ingress.action_profile("set")
    p.node("pick", [key("exact", f("t.b"))], [mark(p)], kind="indirect", profile="set")
    p.do(out(1))
    return p.test("member set 1 mark(v:1)", "add pick t.b:1 member(9)", packet(1, t()),
                  expect(1, t()))


@fails("line 2: command frobnicate is not known")
def unknown_command():
    return echo().test(same(9, t(op=1), 1), "frobnicate 1")
