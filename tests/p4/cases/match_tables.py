"""Packet tests of tables: kinds of keys, who wins, entries of the program, and the next node."""
from cases import case
from lab import *


def marker(lab, name="mark"):
    """An action that writes its value to t.a."""
    return lab.action(name, assign(f("t.a"), Data(0)), data=[("v", 8)])


def one_table(*keys, **more):
    """A table `pick` over these keys whose action mark(v) writes t.a; a miss writes 0xff. Port 1."""
    p = Lab()
    action = marker(p)
    p.node("pick", list(keys), [action], default=action, default_data=[0xff], **more)
    p.do(out(1))
    return p


def hits(value, data, **fields):
    """A packet of the given fields whose t.a becomes `value`."""
    return [packet(1, t(**fields) + data), expect(1, t(**{**fields, "a": value}) + data)]


@case
def exact_match_on_two_keys():
    """Both keys must be equal."""
    p = one_table(key("exact", f("t.b")), key("exact", f("t.c")))
    return p.test("add pick t.b:1 t.c:0x0102 mark(v:1)", "add pick t.b:2 t.c:0x0102 mark(v:2)",
                  hits(1, "", b=1, c=0x102), hits(2, "", b=2, c=0x102), hits(255, "", b=1, c=0x103),
                  hits(255, "", b=3, c=0x102), hits(255, "", b=0, c=0))


@case
def longest_prefix_wins():
    """The longest prefix wins whatever the order of entries; /0 takes the rest, /32 one address."""
    p = one_table(key("lpm", f("t.d")))
    return p.test("add pick t.d:0x0a000000/8 mark(v:8)", "add pick t.d:0x0a010203/32 mark(v:32)",
                  "add pick t.d:0x00000000/0 mark(v:0)", "add pick t.d:0x0a010000/17 mark(v:17)",
                  hits(8, "", d=0x0a800000), hits(32, "", d=0x0a010203), hits(17, "", d=0x0a017fff),
                  hits(8, "", d=0x0a018000), hits(0, "", d=0x0b000000))


@case
def longest_prefix_among_equal_exact_keys():
    """A longer prefix of another exact key does not win."""
    p = one_table(key("exact", f("t.b")), key("lpm", f("t.d")))
    return p.test("add pick t.b:1 t.d:0x0a000000/8 mark(v:1)",
                  "add pick t.b:2 t.d:0x0a010000/16 mark(v:2)",
                  "add pick t.b:1 t.d:0x0a000000/7 mark(v:3)",
                  hits(1, "", b=1, d=0x0a010000), hits(2, "", b=2, d=0x0a010000),
                  hits(3, "", b=1, d=0x0b000000),
                  hits(255, "", b=2, d=0x0a020000), hits(255, "", b=3, d=0x0a010000))


@case
def ternary_priority_of_the_control_plane():
    """In the test file the larger priority wins."""
    p = one_table(key("ternary", f("t.c")), key("ternary", f("t.b")))
    return p.test("add pick 10 t.c:0x12** mark(v:10)", "add pick 20 t.c:0x**34 mark(v:20)",
                  "add pick 15 t.b:0x7* mark(v:15)",
                  hits(20, "", c=0x1234, b=0x70), hits(15, "", c=0x1235, b=0x7f),
                  hits(10, "", c=0x1235, b=0x80),
                  hits(255, "", c=0x2235))


@case
def ternary_equal_priorities():
    """Of equal priorities the older entry wins."""
    p = one_table(key("ternary", f("t.c")))
    return p.test("add pick 10 t.c:0x12** mark(v:1)", "add pick 10 t.c:0x**34 mark(v:2)",
                  "add pick 10 t.c:0x123* mark(v:3)",
                  hits(1, "", c=0x1234), hits(2, "", c=0x2234), hits(1, "", c=0x1239))


@case
def ternary_same_key_at_two_priorities():
    """Equal value and mask at another priority is another entry."""
    p = one_table(key("ternary", f("t.c")))
    return p.test("add pick 10 t.c:0x12** mark(v:1)", "add pick 11 t.c:0x12** mark(v:2)",
                  hits(2, "", c=0x1200))


@case
def range_bounds_are_inclusive():
    """start <= v <= end, unsigned, also over the whole width."""
    p = one_table(key("range", f("t.c")), match_type="range")
    return p.test("add pick 5 t.c:10->20 mark(v:1)", "add pick 4 t.c:0x8000->0xffff mark(v:2)",
                  "add pick 3 t.c:30->30 mark(v:3)",
                  hits(1, "", c=10), hits(1, "", c=20), hits(255, "", c=9), hits(255, "", c=21),
                  hits(2, "", c=0x8000), hits(2, "", c=0xffff), hits(255, "", c=0x7fff),
                  hits(3, "", c=30), hits(255, "", c=31))


@case
def all_kinds_in_a_range_table():
    """Exact, lpm, ternary and range keys in one table: the priority wins, not the longer prefix."""
    p = one_table(key("exact", f("t.op")), key("lpm", f("t.d")), key("ternary", f("t.b")),
                  key("range", f("t.c")))
    return p.test("add pick 20 t.op:1 t.d:0x0a000000/8 t.b:0x0* t.c:0->100 mark(v:1)",
                  "add pick 10 t.op:1 t.d:0x0a010000/16 t.b:0x0* t.c:0->200 mark(v:2)",
                  "add pick 30 t.op:2 mark(v:3)",
                  hits(1, "", op=1, d=0x0a010000, b=5, c=100),
                  hits(2, "", op=1, d=0x0a010000, b=5, c=101),
                  hits(255, "", op=1, d=0x0a020000, b=5, c=101),
                  hits(255, "", op=1, d=0x0a010000, b=0x10, c=1),
                  hits(3, "", op=2, d=0xffffffff, b=0xff, c=0xffff),
                  hits(255, "", op=3, d=0x0a010000, b=5, c=1))


@case
def lpm_beside_ternary_is_a_mask():
    """In a ternary table the shorter prefix of the better priority wins."""
    p = one_table(key("lpm", f("t.d")), key("ternary", f("t.b")))
    return p.test("add pick 1 t.d:0x0a010200/24 mark(v:1)", "add pick 2 t.d:0x0a000000/8 mark(v:2)",
                  "add pick 3 t.b:0x55 mark(v:3)",
                  hits(2, "", d=0x0a010203), hits(3, "", d=0x0a010203, b=0x55),
                  hits(255, "", d=0x0b000000))


@case
def static_key_mask():
    """The program masks the key, and entries as well: bits outside the mask do not matter."""
    action_keys = [key("exact", f("t.c"), mask=0x0f0f)]
    p = Lab()
    action = marker(p)
    p.node("pick", action_keys, [action], default=action, default_data=[0xff],
           entries=[entry([exact_key(0x0102)], action, [1], 1),
                    entry([exact_key(0xf3f4)], action, [2], 2)])
    p.do(out(1))
    return p.test(hits(1, "", c=0xa1b2), hits(1, "", c=0x0102), hits(2, "", c=0x0304),
                  hits(2, "", c=0xf3f4),
                  hits(255, "", c=0x0103))


@case
def static_mask_of_a_ternary_key():
    """A static mask and an entry's mask both apply."""
    p = Lab()
    action = marker(p)
    p.node("pick", [key("ternary", f("t.c"), mask=0x0ff0)], [action], default=action,
           default_data=[0xff],
           entries=[entry([ternary_key(0x0120, 0x0ff0)], action, [1], 1),
                    entry([ternary_key(0x0030, 0x00ff)], action, [2], 2)])
    p.do(out(1))
    return p.test(hits(1, "", c=0xf12f), hits(2, "", c=0xa53b), hits(255, "", c=0x0140))


@case
def static_mask_with_entries_of_the_control_plane():
    """An entry that is added at run time is compared under the program's mask."""
    p = one_table(key("exact", f("t.c"), mask=0x00ff))
    return p.test("add pick t.c:0x0034 mark(v:1)", hits(1, "", c=0x1234), hits(1, "", c=0x0034),
                  hits(255, "", c=0x3412))


@case
def two_keys_on_one_field():
    """Two keys with one target are both matched, under their own names."""
    p = one_table(key("ternary", f("t.b"), "icmp_type"), key("ternary", f("t.b"), "icmpv6_type"))
    return p.test("add pick 10 icmp_type:0x08 mark(v:1)", "add pick 9 icmpv6_type:0x87 mark(v:2)",
                  "add pick 8 icmp_type:0x4* icmpv6_type:0x*2 mark(v:3)",
                  hits(1, "", b=8), hits(2, "", b=135), hits(3, "", b=0x42), hits(255, "", b=0x43),
                  hits(255, "", b=0x52))


@case
def entry_priorities_in_any_order():
    """In the program's entries the smaller priority wins, wherever it stands in the array."""
    p = Lab()
    action = marker(p)
    p.node("pick", [key("ternary", f("t.c"))], [action], default=action, default_data=[0xff],
           entries=[entry([ternary_key(0x1000, 0xf000)], action, [3], 3),
                    entry([ternary_key(0x1200, 0xff00)], action, [2], 2),
                    entry([ternary_key(0x0004, 0x000f)], action, [1], 1)])
    p.do(out(1))
    return p.test(hits(1, "", c=0x1234), hits(2, "", c=0x1235), hits(3, "", c=0x1335),
                  hits(255, "", c=0x2335))


@case
def entries_of_equal_priority():
    """Of entries with equal priority the earlier one in the array wins."""
    p = Lab()
    action = marker(p)
    p.node("pick", [key("ternary", f("t.c"))], [action], default=action, default_data=[0xff],
           entries=[entry([ternary_key(0x0100, 0xff00)], action, [1], 5),
                    entry([ternary_key(0x0004, 0x000f)], action, [2], 5),
                    entry([ternary_key(0x0000, 0x0000)], action, [3], 7)])
    p.do(out(1))
    return p.test(hits(1, "", c=0x0104), hits(2, "", c=0x0204), hits(3, "", c=0x0205))


@case
def entry_bits_outside_the_mask():
    """Bits of an entry's value that its mask does not cover do not count."""
    p = Lab()
    action = marker(p)
    p.node("pick", [key("ternary", f("t.c"))], [action], default=action, default_data=[0xff],
           entries=[entry([ternary_key(0x1111, 0x000f)], action, [1], 1)])
    p.do(out(1))
    return p.test(hits(1, "", c=0x2221), hits(1, "", c=0x1111), hits(255, "", c=0x1112))


@case
def prefix_entry_bits_outside_the_prefix():
    """Bits of an lpm entry's value beyond its prefix do not count."""
    p = Lab()
    action = marker(p)
    p.node("pick", [key("lpm", f("t.d"))], [action], default=action, default_data=[0xff],
           entries=[entry([lpm_key(0x0a0b0c0d, 16)], action, [1], 1),
                    entry([lpm_key(0x0a0b0c0d, 8)], action, [2], 2)])
    p.do(out(1))
    return p.test(hits(1, "", d=0x0a0bffff), hits(2, "", d=0x0affffff), hits(255, "", d=0x0b0b0c0d))


@case
def priorities_of_exact_and_prefix_entries_mean_nothing():
    """The longest prefix wins against a smaller priority."""
    p = Lab()
    action = marker(p)
    p.node("pick", [key("lpm", f("t.d"))], [action], default=action, default_data=[0xff],
           entries=[entry([lpm_key(0x0a000000, 8)], action, [1], 1),
                    entry([lpm_key(0x0a0b0000, 16)], action, [2], 2)])
    q = p.action("other", assign(f("t.b"), Data(0)), data=[("v", 8)])
    p.node("exactly", [key("exact", f("t.c"))], [q],
           entries=[entry([exact_key(2)], q, [0x20], 9), entry([exact_key(1)], q, [0x10], 3)])
    p.do(out(1))
    return p.test(packet(1, t(d=0x0a0b0001, c=1)), expect(1, t(d=0x0a0b0001, c=1, a=2, b=0x10)),
                  packet(1, t(d=0x0a0c0001, c=2)), expect(1, t(d=0x0a0c0001, c=2, a=1, b=0x20)))


@case
def range_entries_of_the_program():
    """Range entries go by priority."""
    p = Lab()
    action = marker(p)
    p.node("pick", [key("range", f("t.c"))], [action], default=action, default_data=[0xff],
           entries=[entry([range_key(0, 1000)], action, [4], 4),
                    entry([range_key(150, 400)], action, [3], 3),
                    entry([range_key(160, 160)], action, [1], 1),
                    entry([range_key(100, 199)], action, [2], 2)])
    p.do(out(1))
    return p.test(hits(1, "", c=160), hits(2, "", c=199), hits(3, "", c=200), hits(4, "", c=99),
                  hits(4, "", c=401), hits(255, "", c=1001))


@case
def entry_data_is_not_padded():
    """0x7 for 48 bits is 7."""
    p = Lab()
    p.scalar("mac", 48)
    action = p.action("take", assign(user("mac"), Data(0)), assign(f("t.d"), Data(1)),
                      data=[("m", 48), ("n", 32)])
    p.node("pick", [key("exact", f("t.op"))], [action],
           entries=[entry([exact_key(1)], action, [7, 0x10], 1)])
    p.do(assign(f("t.c"), user("mac")), out(1))
    return p.test(packet(1, t(op=1)), expect(1, t(op=1, c=7, d=0x10)))


@case
def empty_array_of_entries():
    """A table with an empty array of entries always misses."""
    p = Lab()
    action = marker(p)
    p.node("pick", [key("exact", f("t.b"))], [action], default=action, default_data=[9], entries=[])
    p.do(out(1))
    return p.test(hits(9, "", b=0), hits(9, "", b=1))


@case
def default_action_with_data():
    """A default action has data; setdefault replaces both."""
    p = Lab()
    action = p.action("mark_two", assign(f("t.a"), Data(0)), assign(f("t.c"), Data(1)),
                      data=[("x", 8), ("y", 16)])
    other = p.action("other", assign(f("t.d"), 0x99))
    p.node("pick", [key("exact", f("t.op"))], [action, other], default=action,
           default_data=[0x12, 0x3456])
    p.do(out(1))
    return p.test(packet(1, t()), expect(1, t(a=0x12, c=0x3456)),
                  "setdefault pick mark_two(y:0x5, x:0x6)", packet(1, t()), expect(1, t(a=6, c=5)),
                  "setdefault pick other()", packet(1, t()), expect(1, t(d=0x99)))


@case
def keyless_table_of_the_author():
    """A keyless table always takes its default, which the control plane may change."""
    p = Lab()
    action, other = marker(p), p.action("other", assign(f("t.b"), 0x77))
    p.node("pick", [], [action, other], default=action, default_data=[3])
    p.do(out(1))
    return p.test(packet(1, t()), expect(1, t(a=3)), "setdefault pick mark(v:4)", packet(1, t()),
                  expect(1, t(a=4)),
                  "setdefault pick other()", packet(1, t()), expect(1, t(b=0x77)))


def two_ways(lab, next_tables, base):
    """A table `pick` on t.op with the actions one and two, and two nodes that mark t.b."""
    lab.node("pick", [key("exact", f("t.op"))],
             [lab.action("one", assign(f("t.a"), 1)), lab.action("two", assign(f("t.a"), 2)),
              lab.no_action()],
             default="NoAction", next_tables=next_tables, base=base)
    for mark in (0x10, 0x20, 0x30):
        lab.do(assign(f("t.b"), mark), name=f"way_{mark:x}", next="leave")
    lab.do(out(1), name="leave")
    return ["add pick t.op:1 one()", "add pick t.op:2 two()", "add pick t.op:3 NoAction()"]


@case
def next_node_by_action():
    """The next node follows from the action that ran, and a changed default changes the way."""
    p = Lab()
    adds = two_ways(p, {"one": "way_10", "two": "way_20", "NoAction": "way_30"}, "leave")
    return p.test(adds, packet(1, t(op=1)), expect(1, t(op=1, a=1, b=0x10)),
                  packet(1, t(op=2)), expect(1, t(op=2, a=2, b=0x20)),
                  packet(1, t(op=3)), expect(1, t(op=3, b=0x30)), packet(1, t(op=4)),
                  expect(1, t(op=4, b=0x30)),
                  "setdefault pick two()", packet(1, t(op=4)), expect(1, t(op=4, a=2, b=0x20)))


@case
def next_node_by_hit_and_miss():
    """__HIT__ and __MISS__ go before the action: a hit of the default's action is a hit."""
    p = Lab()
    adds = two_ways(p, {"__HIT__": "way_10", "__MISS__": "way_20"}, "way_30")
    return p.test(adds, packet(1, t(op=2)), expect(1, t(op=2, a=2, b=0x10)),
                  packet(1, t(op=3)), expect(1, t(op=3, b=0x10)), packet(1, t(op=4)),
                  expect(1, t(op=4, b=0x20)),
                  "setdefault pick one()", packet(1, t(op=4)), expect(1, t(op=4, a=1, b=0x20)))


@case
def hit_may_end_the_pipeline():
    """A null next node ends the pipeline; the other way goes on."""
    p = Lab()
    p.do(out(1))
    action = marker(p)
    p.node("pick", [key("exact", f("t.op"))], [action], default=action, default_data=[0x55],
           next_tables={"__HIT__": None, "__MISS__": "after"}, base="after")
    p.do(assign(f("t.b"), 0x66), name="after")
    return p.test("add pick t.op:1 mark(v:1)", packet(1, t(op=1)), expect(1, t(op=1, a=1)),
                  packet(1, t(op=2)), expect(1, t(op=2, a=0x55, b=0x66)))


@case
def next_node_of_the_default_by_its_name():
    """A miss goes where next_tables sends the default's action, not to base_default_next."""
    p = Lab()
    p.node("pick", [key("exact", f("t.op"))], [p.action("one", assign(f("t.a"), 1)), p.no_action()],
           default="NoAction", next_tables={"one": "way_10", "NoAction": "way_20"}, base="way_10")
    p.do(assign(f("t.b"), 0x10), name="way_10", next="leave")
    p.do(assign(f("t.b"), 0x20), name="way_20", next="leave")
    p.do(out(1), name="leave")
    return p.test("add pick t.op:1 one()", packet(1, t(op=1)), expect(1, t(op=1, a=1, b=0x10)),
                  packet(1, t(op=2)), expect(1, t(op=2, b=0x20)))


@case
def next_node_when_nothing_else_applies():
    """An action that next_tables does not name goes to base_default_next, after a hit and after a miss."""
    p = Lab()
    adds = two_ways(p, {"one": "way_10"}, "way_30")
    return p.test(adds, packet(1, t(op=1)), expect(1, t(op=1, a=1, b=0x10)),
                  packet(1, t(op=2)), expect(1, t(op=2, a=2, b=0x30)), packet(1, t(op=4)),
                  expect(1, t(op=4, b=0x30)))


@case
def ids_run_over_both_pipelines():
    """Tables and conditionals of egress have ids that go on from those of ingress."""
    p = Lab()
    mark = marker(p)
    late = p.action("late", assign(f("t.b"), Data(0)), data=[("v", 8)])
    for number_ in range(5):
        p.node(f"in_{number_}", [key("exact", f("t.op"))], [mark])
        p.when(f("t.c") == number_, None, FOLLOWING)
    p.do(out(2))
    p.do(assign(f("t.d"), 9), pipe="egress")
    p.when(f("t.op") == 8, None, "eg", pipe="egress")
    p.node("eg", [key("exact", f("t.op"))], [late], pipe="egress")
    return p.test("add in_0 t.op:1 mark(v:0x10)", "add in_4 t.op:1 mark(v:0x40)",
                  "add eg t.op:1 late(v:0xe0)",
                  "add eg t.op:8 late(v:0xe8)",
                  packet(1, t(op=1, c=9)), expect(2, t(op=1, c=9, a=0x40, b=0xe0, d=9)),
                  packet(1, t(op=8, c=9)), expect(2, t(op=8, c=9, d=9)),
                  # t.c = 2 ends ingress before the port is set: port 0.
                  packet(1, t(op=1, c=2)), expect(0, t(op=1, c=2, a=0x10, b=0xe0, d=9)))


@case
def key_from_a_computed_element():
    """A key's target may be an expression: the element of a stack that t.b names."""
    p = Lab()
    p.header_type("e_t", [("v", 8)])
    stack = p.stack("s", "e_t", 3)
    p.parse_some(stack)
    p.deparse("t", "s[0]", "s[1]", "s[2]")
    mark = marker(p)
    p.node("pick", [key("exact", access(stack.at(f("t.b")), 0), "s.v")], [mark], default=mark,
           default_data=[0xff])
    p.do(out(1))
    return p.test('add pick s.v:0x22 mark(v:2)', "add pick s.v:0 mark(v:0x80)",
                  hits(2, "112233", op=3, b=1), hits(0xff, "112233", op=3, b=0),
                  # Elements that are invalid or outside the stack are 0.
                  hits(0x80, "11", op=1, b=1), hits(0x80, "112233", op=3, b=3))


@case
def key_on_validity():
    """$valid$ is a key of one bit; the field of an invalid header is 0 as a key."""
    p = Lab()
    p.header_type("x_t", [("x", 8)])
    p.header("x", "x_t")
    p.deparse("t", "x")
    p.state("start", [extract(p.t)], [f("t.op")], [on("0x01", "more"), otherwise(None)])
    p.state("more", [extract(Header("x"))])
    mark = marker(p)
    p.node("pick", [key("exact", f("x.$valid$"), "x.$valid$"), key("ternary", f("x.x"))], [mark],
           default=mark, default_data=[0xff])
    p.do(out(1))
    return p.test("add pick 10 x.$valid$:1 x.x:0x05 mark(v:1)",
                  "add pick 9 x.$valid$:0 x.x:0x00 mark(v:2)",
                  "add pick 8 x.$valid$:1 mark(v:3)",
                  hits(1, "05", op=1), hits(3, "06", op=1), hits(3, "00", op=1),
                  hits(2, "05", op=0))


@case
def key_on_a_leftover_of_another_packet():
    """A header that packet 1 had and packet 2 has not reads as 0 in packet 2."""
    p = Lab()
    p.header_type("x_t", [("x", 32)])
    p.header("x", "x_t")
    p.deparse("t", "x")
    p.state("start", [extract(p.t)], [f("t.op")], [on("0x01", "more"), otherwise(None)])
    p.state("more", [extract(Header("x"))])
    mark = marker(p)
    p.node("pick", [key("exact", f("x.x"))], [mark], default=mark, default_data=[0xff])
    p.scalar("seen", 8)
    p.do(assign(f("t.b"), user("seen")), assign(user("seen"), 0x77), out(1))
    return p.test("add pick x.x:0x0a000001 mark(v:1)", "add pick x.x:0 mark(v:2)",
                  hits(1, "0a000001", op=1), hits(2, "", op=0), hits(255, "0b000001", op=1))


@case
def old_kind_of_validity_key():
    """A key of kind `valid` has a header as its target and a boolean in entries."""
    p = Lab()
    p.header_type("x_t", [("x", 8)])
    p.header("x", "x_t")
    p.deparse("t", "x")
    p.state("start", [extract(p.t)], [f("t.op")], [on("0x01", "more"), otherwise(None)])
    p.state("more", [extract(Header("x"))])
    mark = marker(p)
    p.node("pick", [{"match_type": "valid", "name": "x", "target": "x", "mask": None}], [mark],
           default=mark, default_data=[0xff], match_type="exact",
           entries=[entry([valid_key(True)], mark, [1], 1),
                    entry([valid_key(False)], mark, [2], 2)])
    p.do(out(1))
    return p.test(hits(1, "05", op=1), hits(2, "05", op=0))


@case
def direct_counter_counts_hits():
    """A direct counter counts hits with the received length, not misses; the entry's action may add bytes."""
    p = Lab()
    p.header_type("x_t", [("x", 400)])
    p.header("x", "x_t")
    p.deparse("x", "t")
    grow = p.action("grow", add_header(Header("x")))
    p.node("pick", [key("exact", f("t.op"))], [grow], with_counters=True)
    p.direct_counter("pick_hits", "pick")
    p.do(out(1))
    rest = "ee" * 55
    return p.test("add pick t.op:1 grow()", "check_counter pick_hits(0) packets == 0",
                  packet(1, t(op=1) + rest), expect(1, "00" * 50 + t(op=1) + rest),
                  packet(1, t(op=2) + rest), expect(1, t(op=2) + rest),
                  packet(1, t(op=3) + rest), expect(1, t(op=3) + rest),
                  "check_counter pick_hits(0) packets == 1",
                  "check_counter pick_hits(0) bytes == 64")


@case
def direct_meter_without_rates():
    """A direct meter stores green, 0, before the entry's action runs; a miss leaves the field."""
    p = Lab()
    p.scalar("color", 8)
    mark = p.action("copy", assign(f("t.a"), user("color")))
    p.do(assign(user("color"), 7))
    p.node("pick", [key("exact", f("t.op"))], [mark], direct_meters="police", default=mark)
    p.direct_meter("police", "pick", user("color"))
    p.do(out(1))
    return p.test("add pick t.op:1 copy()", packet(1, t(op=1, a=9)), expect(1, t(op=1, a=0)),
                  packet(1, t(op=2, a=9)), expect(1, t(op=2, a=7)))


def profile_table(lab, name="pick", keys=None, kind="indirect", profile="set", **more):
    """An indirect table whose action mark(v) writes t.a."""
    return lab.node(name, [key("exact", f("t.op"))] if keys is None else keys,
                    [marker(lab), lab.no_action()],
                    kind=kind, profile=profile, **more)


@case
def action_profile_members():
    """Entries refer to members; two entries may share one."""
    p = Lab()
    p.ingress.action_profile("set")
    profile_table(p)
    p.do(out(1))
    return p.test("member set 7 mark(v:0x77)", "member set 3 mark(v:0x33)",
                  "add pick t.op:1 member(7)",
                  "add pick t.op:2 member(3)", "add pick t.op:3 member(7)",
                  hits(0x77, "", op=1), hits(0x33, "", op=2), hits(0x77, "", op=3),
                  packet(1, t(op=4, a=5)), expect(1, t(op=4, a=5)))


@case
def action_profile_without_default():
    """A miss in an indirect table does nothing and goes on at base_default_next; a default member acts."""
    p = Lab()
    p.ingress.action_profile("set")
    profile_table(p, next_tables={"mark": "way_10", "NoAction": "way_10"}, base="way_20")
    p.do(assign(f("t.b"), 0x10), name="way_10", next="leave")
    p.do(assign(f("t.b"), 0x20), name="way_20", next="leave")
    p.do(out(1), name="leave")
    return p.test("member set 1 mark(v:1)", packet(1, t(op=1)), expect(1, t(op=1, b=0x20)),
                  "add pick t.op:1 member(1)", packet(1, t(op=1)), expect(1, t(op=1, a=1, b=0x10)),
                  "setdefault pick member(1)", packet(1, t(op=9)), expect(1, t(op=9, a=1, b=0x10)))


@case
def action_profile_miss_node():
    """A miss without a default goes to __MISS__."""
    p = Lab()
    p.ingress.action_profile("set")
    profile_table(p, next_tables={"__HIT__": "leave", "__MISS__": "missed"}, base="leave")
    p.do(assign(f("t.b"), 0x20), name="missed", next="leave")
    p.do(out(1), name="leave")
    return p.test("member set 1 mark(v:1)", "add pick t.op:1 member(1)",
                  packet(1, t(op=1)), expect(1, t(op=1, a=1)), packet(1, t(op=2)),
                  expect(1, t(op=2, b=0x20)))


@case
def keyless_indirect_table():
    """A keyless table of a profile does nothing until its default is a member."""
    p = Lab()
    p.ingress.action_profile("set")
    profile_table(p, keys=[])
    p.do(out(1))
    return p.test("member set 1 mark(v:1)", "member set 2 mark(v:2)", packet(1, t()),
                  expect(1, t()),
                  "setdefault pick member(2)", packet(1, t()), expect(1, t(a=2)),
                  "setdefault pick member(1)", packet(1, t()), expect(1, t(a=1)))


@case
def one_profile_for_two_tables():
    """A member serves both tables; next node and body of the action are those of the table's own copy."""
    p = Lab()
    p.ingress.action_profile("set")
    first = marker(p, "mark")
    second = p.action("mark", assign(f("t.c"), Data(0)), data=[("v", 8)])
    p.node("one", [key("exact", f("t.op"))], [first], kind="indirect", profile="set",
           next_tables={"mark": "way_10"}, base="two")
    p.node("two", [key("lpm", f("t.d"))], [second], kind="indirect", profile="set",
           next_tables={"mark": "way_20"}, base="leave")
    p.do(assign(f("t.b"), 0x10), name="way_10", next="leave")
    p.do(assign(f("t.b"), 0x20), name="way_20", next="leave")
    p.do(out(1), name="leave")
    return p.test("member set 1 mark(v:1)", "add one t.op:1 member(1)",
                  "add two t.d:0x0a000000/8 member(1)",
                  packet(1, t(op=1)), expect(1, t(op=1, a=1, b=0x10)),
                  packet(1, t(op=2, d=0x0a111111)), expect(1, t(op=2, d=0x0a111111, b=0x20, c=1)),
                  packet(1, t(op=2, d=0x0b111111)), expect(1, t(op=2, d=0x0b111111)))


@case
def selector_takes_the_member_by_its_hash():
    """The member is number H mod n of the group; an entry may name a member too."""
    p = Lab()
    p.ingress.action_profile("set", algorithm="crc16", fields=[f("t.c"), f("t.d")])
    profile_table(p, kind="indirect_ws")
    p.do(out(1))
    lines = ["member set 11 mark(v:11)", "member set 12 mark(v:12)", "member set 13 mark(v:13)",
             "group set 1 11 12 13", "group set 2 12", "add pick t.op:1 group(1)",
             "add pick t.op:2 group(2)",
             "add pick t.op:3 member(13)"]
    for c, d in ((1, 2), (3, 4), (0xffff, 5), (77, 0x0a0b0c0d), (78, 0x0a0b0c0d), (79, 0x0a0b0c0d)):
        value = crc16(c.to_bytes(2, "big") + d.to_bytes(4, "big"))
        lines += hits(11 + value % 3, "", op=1, c=c, d=d)
    return p.test(lines, hits(12, "", op=2, c=1, d=2), hits(13, "", op=3, c=1, d=2))


@case
def selector_by_identity():
    """identity takes the first 8 bytes of its input, and bits that are no whole bytes are padded on the right."""
    p = Lab()
    p.header_type("x_t", [("x", 12), ("y", 4)])
    p.header("x", "x_t")
    p.parse("t", "x")
    p.deparse("t", "x")
    p.ingress.action_profile("set", algorithm="identity", fields=[f("x.x")])
    p.ingress.action_profile("wide", algorithm="identity",
                             fields=[f("t.d"), f("t.c"), f("t.op"), f("t.a"), f("t.b")])
    keys = [key("exact", f("t.op"))]
    profile_table(p, kind="indirect_ws", keys=keys)
    p.node("pick_wide", keys, [p.action("mark_wide", assign(f("t.b"), Data(0)), data=[("v", 8)])],
           kind="indirect_ws", profile="wide")
    p.do(out(1))
    lines = [f"member set {i} mark(v:{i})" for i in range(5)] + ["group set 1 0 1 2 3 4",
                                                                 "add pick t.op:1 group(1)"]
    lines += [f"member wide {i} mark_wide(v:{i})" for i in range(5)] + ["group wide 1 0 1 2 3 4",
                                                                        "add pick_wide t.op:1 group(1)"]
    for x, b, d in ((0x123, 7, 1), (0x124, 8, 0x01020304), (0xfff, 9, 0xfffffffe)):
        first = (x << 4) % 5
        # t.a was written by the table before; t.b is byte 9 and does not count.
        value = int.from_bytes(d.to_bytes(4, "big") + (0x55).to_bytes(2, "big") + bytes([1, first]),
                               "big")
        tail = f"{x:03x}7"
        lines += [packet(1, t(op=1, a=9, b=b, c=0x55, d=d) + tail),
                  expect(1, t(op=1, a=first, b=value % 5, c=0x55, d=d) + tail)]
    return p.test(lines)


@case
def selector_leaves_invalid_headers_out():
    """Fields of an invalid header are no input of the selector's hash, not even zeros."""
    p = Lab()
    p.header_type("x_t", [("x", 32)])
    p.header("x", "x_t")
    p.deparse("t", "x")
    p.state("start", [extract(p.t)], [f("t.op")], [on("0x01", "more"), otherwise(None)])
    p.state("more", [extract(Header("x"))])
    p.ingress.action_profile("set", algorithm="crc16", fields=[f("t.d"), f("x.x")])
    profile_table(p, kind="indirect_ws", keys=[])
    p.do(out(1))
    lines = [f"member set {i} mark(v:{i})" for i in range(7)] + ["group set 1 0 1 2 3 4 5 6",
                                                                 "setdefault pick group(1)"]
    for d in (1, 2, 3, 0x0a000001):
        first = crc16(d.to_bytes(4, "big") + bytes([0, 0, 0, 9]))
        alone = crc16(d.to_bytes(4, "big"))
        lines += hits(first % 7, "00000009", op=1, d=d) + hits(alone % 7, "00000009", op=2, d=d)
    return p.test(lines)


@case
def conditional_first_and_last():
    """The pipeline may start with a conditional, and both of its ways may end it."""
    p = Lab()
    p.when(f("t.op") == 1, "one", "two")
    p.do(out(1), name="one", next="last")
    p.do(out(2), name="two", next="last")
    p.when(f("t.a") == 1, None, None, name="last")
    return p.test(same(9, t(op=1), 1), same(9, t(op=2), 2), same(9, t(op=2, a=1), 2))


@case
def empty_pipelines():
    """Without any node the packet leaves on port 0."""
    return Lab().test(same(5, t(op=1) + "aabb", 0), same(0, "0102", 0))


@case
def optional_key_without_p4info_is_ternary():
    """Entries that leave the key out match every packet; a full value matches itself."""
    p = one_table(key("ternary", f("t.b"), "o"), key("exact", f("t.c"), "e"))
    return p.test("add pick 10 o:0x05 e:1 mark(v:1)", "add pick 5 e:1 mark(v:2)",
                  hits(1, "", b=5, c=1), hits(2, "", b=6, c=1), hits(255, "", b=5, c=2))


@case
def wide_key():
    """A key of 128 bits is compared over all bits, in exact, lpm and ternary tables."""
    p = Lab()
    p.header_type("w_t", [("w", 128)])
    p.header("w", "w_t")
    p.parse("t", "w")
    p.deparse("t", "w")
    mark = marker(p)
    other = p.action("other", assign(f("t.b"), Data(0)), data=[("v", 8)])
    third = p.action("third", assign(f("t.c"), Data(0)), data=[("v", 16)])
    p.node("pick", [key("exact", f("w.w"))], [mark])
    p.node("route", [key("lpm", f("w.w"))], [other])
    p.node("acl", [key("ternary", f("w.w"))], [third])
    p.do(out(1))
    address = 0x20010db8000000010000000000000001
    text = f"{address:032x}"
    return p.test(f"add pick w.w:0x{text} mark(v:1)",
                  f"add route w.w:0x{address >> 63 << 63:032x}/65 other(v:65)",
                  f"add route w.w:0x{address >> 96 << 96:032x}/32 other(v:32)",
                  "add acl 5 w.w:0x" + "*" * 31 + "1 third(v:0x111)",
                  "add acl 9 w.w:0xa" + "*" * 31 + " third(v:0x888)",
                  packet(1, t() + text), expect(1, t(a=1, b=65, c=0x111) + text),
                  packet(1, t() + f"{address | 1 << 63:032x}"),
                  expect(1, t(b=32, c=0x111) + f"{address | 1 << 63:032x}"),
                  packet(1, t() + f"{address | 1 << 127:032x}"),
                  expect(1, t(c=0x888) + f"{address | 1 << 127:032x}"))
