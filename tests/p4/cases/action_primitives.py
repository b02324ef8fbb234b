"""Packet tests of what actions do: each primitive, in range and out of range."""
from cases import case
from lab import *


@case
def assign_cuts_to_the_width():
    """A value is cut to the destination's width when it is stored, also a negative one."""
    p = Lab()
    p.do(assign(f("t.a"), f("t.c")), assign(f("t.b"), 0x1234),
         assign(f("t.c"), number(0) - 1), assign(f("t.d"), -2), out(3))
    return p.test(
        packet(1, t(c=0xabcd)), expect(3, t(a=0xcd, b=0x34, c=0xffff, d=0xfffffffe)))


@case
def assign_of_wide_intermediates():
    """Operands are unbounded: 250 + 10 is compared as 260, and cut only when stored."""
    p = Lab()
    p.scalar("wide", 64)
    p.do(assign(user("wide"), f("t.a") + f("t.b")),
         assign(f("t.c"), b2d(f("t.a") + f("t.b") > 255)),
         assign(f("t.d"), user("wide")),
         assign(f("t.a"), f("t.a") + f("t.b")), out(2))
    return p.test(
        packet(1, t(a=250, b=10)), expect(2, t(a=4, b=10, c=1, d=260)),
        packet(1, t(a=25, b=10)), expect(2, t(a=35, b=10, c=0, d=35)))


@case
def assign_through_wrappers():
    """An expression in an expression around a plain field is a field, as a source and as a destination."""
    p = Lab()
    p.do(assign(wrapped(f("t.a")), wrapped(f("t.b"), 3)),
         assign(wrapped(f("t.c"), 2), wrapped(0x55aa, 2)), out(1))
    return p.test(packet(1, t(a=1, b=7)), expect(1, t(a=7, b=7, c=0x55aa)))


@case
def assign_from_action_data():
    """Action data are unsigned values of their width, as a parameter and inside an expression."""
    p = Lab()
    p.node("fill", [key("exact", f("t.op"))], [
        p.action("fill_in", assign(f("t.a"), Data(0)), assign(f("t.c"), Data(0) + Data(1)),
                 assign(f("t.d"), b2d(Data(1) > 0x7fff)), data=[("x", 8), ("y", 16)])])
    p.do(out(4))
    return p.test(
        "add fill t.op:1 fill_in(x:0xff, y:0xffff)",
        packet(1, t(op=1)), expect(4, t(op=1, a=0xff, c=0x00fe, d=1)))


@case
def write_to_invalid_header_is_lost():
    """What is written to an invalid header does not show when the header becomes valid, and reads as 0."""
    p = Lab()
    p.header_type("x_t", [("x", 8), ("y", 8)])
    p.header("x", "x_t")
    p.deparse("t", "x")
    p.do(assign(f("x.x"), 0x77), assign(f("t.a"), f("x.x")), add_header(Header("x")),
         assign(f("t.b"), f("x.x")), assign(f("x.y"), 0x99), out(1))
    return p.test(packet(1, t(a=9, b=9)), expect(1, t() + "0099"))


@case
def add_header_keeps_a_valid_one():
    """add_header on a valid header changes nothing; removed and added again, its fields are 0."""
    p = Lab()
    p.header_type("x_t", [("x", 8), ("y", 8)])
    p.header("x", "x_t")
    p.header("y", "x_t")
    p.parse("t", "x", "y")
    p.deparse("t", "x", "y")
    p.do(add_header(Header("x")), remove_header(Header("y")), add_header(Header("y")), out(1))
    return p.test(packet(1, t(op=5) + "07070808"), expect(1, t(op=5) + "07070000"))


@case
def remove_header_hides_its_fields():
    """A removed header is not sent, reads as 0, and loses what is written to it."""
    p = Lab()
    p.header_type("x_t", [("x", 8), ("y", 8)])
    p.header("x", "x_t")
    p.parse("t", "x")
    p.deparse("t", "x")
    p.do(remove_header(Header("x")), assign(f("t.a"), f("x.x")), assign(f("x.x"), 0x44),
         assign(f("t.b"), f("x.x")), assign(f("t.c"), f("x.$valid$")), out(1))
    return p.test(packet(1, t(a=1, b=2, c=3) + "0708" + "ee"), expect(1, t() + "ee"))


@case
def assign_header_copies_validity():
    """A valid source is copied and makes the destination valid; an invalid one makes it invalid."""
    p = Lab()
    p.header_type("x_t", [("x", 8), ("y", 8)])
    for name in ("x", "y", "z", "w"):
        p.header(name, "x_t")
    p.parse("t", "x", "y")
    p.deparse("t", "x", "y", "z")
    p.do(assign_header(Header("z"), Header("x")), assign_header(Header("y"), Header("w")),
         assign(f("x.x"), 0x55), out(1))
    return p.test(packet(1, t() + "0102" + "0304" + "ff"), expect(1, t() + "5502" + "0102" + "ff"))


def stack_lab():
    """A program with t and a stack s of three elements of one byte; t.op says how many of them follow."""
    p = Lab()
    p.header_type("e_t", [("v", 8)])
    p.parse_some(p.stack("s", "e_t", 3))
    p.deparse("t", "s[0]", "s[1]", "s[2]")
    return p


def element(index):
    """The field of an element of s at an index that is known at run time only."""
    return access(Stack("s").at(index), 0)


@case
def assign_at_a_run_time_index():
    """A stack element is read and written at an index that the packet gives."""
    p = stack_lab()
    p.do(assign(element(f("t.a")), 0xee), assign(f("t.c"), element(f("t.b"))), out(1))
    return p.test(
        packet(1, t(op=3, a=1, b=2) + "112233"), expect(1, t(op=3, a=1, b=2, c=0x33) + "11ee33"),
        packet(1, t(op=3, a=0, b=0) + "112233"), expect(1, t(op=3, a=0, b=0, c=0xee) + "ee2233"))


@case
def run_time_index_out_of_range():
    """Beyond the stack a read gives 0 and a write is ignored."""
    p = stack_lab()
    p.do(assign(element(f("t.a")), 0xee), assign(f("t.c"), element(f("t.b"))), out(1))
    return p.test(
        packet(1, t(op=3, a=3, b=3, c=0x99) + "112233"),
        expect(1, t(op=3, a=3, b=3, c=0) + "112233"),
        packet(1, t(op=3, a=255, b=254, c=0x99) + "112233"),
        expect(1, t(op=3, a=255, b=254, c=0) + "112233"))


@case
def run_time_index_of_an_invalid_element():
    """An element inside the stack that is not valid reads as 0 and loses what is written."""
    p = stack_lab()
    p.do(assign(element(f("t.a")), 0xee), assign(f("t.c"), element(f("t.a"))), out(1))
    return p.test(packet(1, t(op=1, a=2, c=0x99) + "11" + "7777"),
                  expect(1, t(op=1, a=2) + "11" + "7777"))


@case
def header_primitives_on_a_computed_element():
    """add_header, remove_header and assign_header take an element at a run-time index."""
    p = stack_lab()
    at = Stack("s").at
    p.do(assign_header(at(f("t.a")), Header("s[0]")), remove_header(at(0)),
         add_header(at(f("t.b"))), out(1))
    return p.test(
        packet(1, t(op=1, a=1, b=2) + "11" + "ff"), expect(1, t(op=1, a=1, b=2) + "1100" + "ff"),
        packet(1, t(op=1, a=2, b=2) + "11" + "ff"), expect(1, t(op=1, a=2, b=2) + "11" + "ff"))


@case
def varbit_assignment_copies_its_length():
    """assign_VL copies the length and the bytes of a varbit."""
    p = Lab()
    p.header_type("v_t", [("len", 8), ("var", "*")], max_length=9)
    p.header("v", "v_t")
    p.header("w", "v_t")
    p.state("start", [extract(p.t), extract_varbit(Header("v"), f("t.a") << 3),
                      extract_varbit(Header("w"), f("t.b") << 3)])
    p.deparse("t", "v", "w")
    p.do(assign_varbit(f("w.var"), f("v.var")), out(1))
    return p.test(
        packet(1, t(a=3, b=1) + "a1" + "010203" + "b2" + "09" + "ee"),
        expect(1, t(a=3, b=1) + "a1" + "010203" + "b2" + "010203" + "ee"),
        packet(1, t(a=0, b=2) + "a1" + "b2" + "0908" + "ee"),
        expect(1, t(a=0, b=2) + "a1" + "b2" + "ee"))


@case
def assign_header_copies_a_varbit():
    """assign_header copies the varbit with its length, and add_header makes one of length 0."""
    p = Lab()
    p.header_type("v_t", [("len", 8), ("var", "*")], max_length=9)
    for name in ("v", "w", "n"):
        p.header(name, "v_t")
    p.state("start", [extract(p.t), extract_varbit(Header("v"), f("t.a") << 3)])
    p.deparse("t", "w", "n", "v")
    p.do(assign_header(Header("w"), Header("v")), add_header(Header("n")),
         remove_header(Header("v")), add_header(Header("v")), out(1))
    return p.test(packet(1, t(a=2) + "c3" + "0506" + "ee"),
                  expect(1, t(a=2) + "c3" + "0506" + "00" + "00" + "ee"))


@case
def assign_header_stack_copies_elements():
    """assign_header_stack copies contents, validity and the next index."""
    p = stack_lab()
    p.stack("r", "e_t", 3)
    p.deparse("t", "r[0]", "r[1]", "r[2]")
    p.do(assign_stack(Stack("r"), Stack("s")),
         assign(f("t.b"), last_index(Stack("r"))), out(1))
    return p.test(
        packet(1, t(op=2) + "1122" + "ff"), expect(1, t(op=2, b=1) + "1122" + "ff"),
        packet(1, t(op=0) + "ff"), expect(1, t(op=0, b=0xff) + "ff"))


@case
def push_lifts_the_elements():
    """push 1 moves contents and validity up by one, and the lowest element becomes invalid."""
    p = stack_lab()
    p.do(push(Stack("s"), 1), assign(f("t.a"), f("s[0].$valid$")),
         assign(f("t.b"), last_index(Stack("s"))), add_header(Header("s[0]")),
         assign(f("s[0].v"), 0xab), out(1))
    return p.test(
        packet(1, t(op=0, a=9)), expect(1, t(op=0) + "ab"),
        packet(1, t(op=2, a=9) + "1122" + "ff"), expect(1, t(op=2, b=2) + "ab1122" + "ff"),
        # A full stack loses its last element, and next stays at the size.
        packet(1, t(op=3, a=9) + "112233" + "ff"), expect(1, t(op=3, b=2) + "ab1122" + "ff"))


@case
def push_the_whole_size():
    """push of as many as the stack holds leaves no valid element."""
    p = stack_lab()
    p.do(push(Stack("s"), 3), assign(f("t.b"), stack_size(Stack("s"))), out(1))
    return p.test(packet(1, t(op=2) + "1122" + "ff"), expect(1, t(op=2, b=3) + "ff"))


@case
def push_beyond_the_size():
    """push of more than the stack holds empties it as well; next stays at the size."""
    p = stack_lab()
    p.do(push(Stack("s"), 5), assign(f("t.b"), stack_size(Stack("s"))), out(1))
    return p.test(packet(1, t(op=2) + "1122" + "ff"), expect(1, t(op=2, b=3) + "ff"))


@case
def pop_lowers_the_elements():
    """pop 1 moves contents and validity down, and the top element becomes invalid."""
    p = stack_lab()
    p.do(pop(Stack("s"), 1), assign(f("t.a"), f("s[2].$valid$")),
         assign(f("t.b"), stack_size(Stack("s"))), out(1))
    return p.test(
        packet(1, t(op=2, a=9) + "aabb" + "ff"), expect(1, t(op=2, b=1) + "bb" + "ff"),
        packet(1, t(op=3, a=9) + "aabbcc" + "ff"), expect(1, t(op=3, b=2) + "bbcc" + "ff"),
        packet(1, t(op=0, a=9) + "ff"), expect(1, t(op=0, b=0) + "ff"))


@case
def pop_more_than_there_are():
    """pop of more elements than are valid empties the stack; next does not go below 0."""
    p = stack_lab()
    p.do(pop(Stack("s"), 2), assign(f("t.b"), stack_size(Stack("s"))), out(1))
    return p.test(
        packet(1, t(op=1) + "aa" + "ff"), expect(1, t(op=1, b=0) + "ff"),
        packet(1, t(op=3) + "aabbcc" + "ff"), expect(1, t(op=3, b=1) + "cc" + "ff"))


@case
def add_header_leaves_the_next_index():
    """add_header of an element does not move the stack's next index; push and pop do."""
    p = stack_lab()
    p.do(add_header(Header("s[2]")), assign(f("s[2].v"), 0x5a),
         assign(f("t.b"), stack_size(Stack("s"))), push(Stack("s"), 1),
         assign(f("t.a"), stack_size(Stack("s"))), pop(Stack("s"), 1), out(1))
    # The push throws s[2] out of the stack; the pop brings s[0] back.
    return p.test(packet(1, t(op=1) + "11" + "ff"), expect(1, t(op=1, b=1, a=2) + "11" + "ff"))


def union_lab():
    p = Lab()
    p.header_type("one_t", [("x", 8)])
    p.header_type("two_t", [("x", 16)])
    p.union_type("u_t", [("one", "one_t"), ("two", "two_t")])
    p.union("u", "u_t")
    p.deparse("t", "u.one", "u.two")
    return p


@case
def union_add_takes_the_other_away():
    """Making one member of a union valid makes the others invalid, from add_header and assign_header."""
    p = union_lab()
    p.header("spare", "one_t")
    p.parse("t", "u.one")
    p.when(f("t.op") == 1, "add_two", "copy_one")
    p.do(add_header(Header("u.two")), name="add_two", next="leave")
    p.do(add_header(Header("u.two")), add_header(Header("spare")),
        assign(f("spare.x"), 0x66), assign_header(Header("u.one"), Header("spare")),
        name="copy_one")
    p.do(assign(f("t.a"), f("u.one.$valid$")), assign(f("t.b"), f("u.two.$valid$")),
         assign(f("t.c"), b2d(op("valid_union", None, Union("u")))),
         out(1), name="leave")
    return p.test(
        packet(1, t(op=1) + "44" + "ff"), expect(1, t(op=1, b=1, c=1) + "0000" + "ff"),
        packet(1, t(op=2) + "44" + "ff"), expect(1, t(op=2, a=1, c=1) + "66" + "ff"))


@case
def assign_union_copies_the_valid_member():
    """assign_union copies members with their validity."""
    p = union_lab()
    p.union("w", "u_t")
    p.state("start", [extract(p.t)], [f("t.op")],
            [on("0x01", "has_one"), on("0x02", "has_two"), otherwise(None)])
    p.state("has_one", [extract(Header("u.one"))])
    p.state("has_two", [extract(Header("u.two"))])
    p.deparse("t", "w.one", "w.two")
    p.do(assign_union(Union("w"), Union("u")), out(1))
    return p.test(
        packet(1, t(op=1) + "44" + "ff"), expect(1, t(op=1) + "44" + "ff"),
        packet(1, t(op=2) + "4455" + "ff"), expect(1, t(op=2) + "4455" + "ff"),
        packet(1, t(op=3) + "ff"), expect(1, t(op=3) + "ff"))


@case
def mark_to_drop_and_revival():
    """mark_to_drop drops at the end of ingress, unless egress_spec is written after it."""
    p = Lab()
    p.do(out(1), mark_to_drop())
    p.when(f("t.op") == 1, "revive")
    p.do(out(3), name="revive")
    return p.test(packet(1, t(op=0)), packet(1, t(op=1)), expect(3, t(op=1)))


@case
def mark_to_drop_clears_the_group():
    """mark_to_drop sets mcast_grp to 0; a group that is set after it leaves all the same."""
    p = Lab()
    p.node("act", [key("exact", f("t.op"))], [
        p.action("group_first", assign(f("mcast_grp"), 5), mark_to_drop()),
        p.action("drop_first", mark_to_drop(), assign(f("mcast_grp"), 5))])
    return p.test(
        "mc_mgrp_create 5", "mc_node_create 1 2 3", "mc_node_associate 5 0",
        "add act t.op:1 group_first()", "add act t.op:2 drop_first()",
        packet(9, t(op=1)), packet(9, t(op=2)), expect(2, t(op=2)), expect(3, t(op=2)))


@case
def mark_to_drop_on_a_copy():
    """mark_to_drop of a copy of the standard metadata acts when the program copies it back."""
    p = Lab()
    p.metadata("smeta_0", "standard_metadata")
    p.do(out(4), mark_to_drop(Header("smeta_0")))
    p.when(f("t.op") == 1, "copy_back")
    p.do(assign_header(p.standard, Header("smeta_0")), name="copy_back", next=None)
    return p.test(packet(1, t(op=0)), expect(4, t(op=0)), packet(1, t(op=1)))


@case
def port_511_by_assignment_drops():
    """511 in egress_spec drops however it got there, at the end of ingress and of egress."""
    p = Lab()
    p.do(assign(f("egress_spec"), f("t.c")))
    p.do(assign(f("egress_spec"), f("t.d")), pipe="egress")
    return p.test(packet(1, t(c=511)), packet(1, t(c=2, d=511)), packet(1, t(c=510, d=3)),
                  expect(510, t(c=510, d=3)),
                          packet(1, t(c=0x2ff, d=0)), expect(255, t(c=0x2ff, d=0)))


@case
def drop_left_over_from_ingress():
    """egress_spec is 0 when egress begins: a 511 of ingress does not drop the copies of a group."""
    p = Lab()
    p.do(mark_to_drop(), assign(f("mcast_grp"), 7))
    p.do(assign(f("t.c"), f("egress_spec")), assign(f("t.a"), f("egress_port")), pipe="egress")
    return p.test("mc_mgrp_create 7", "mc_node_create 3 6", "mc_node_associate 7 0",
                      packet(1, t(c=0xffff)), expect(6, t(a=6)))


@case
def drop_taken_back_in_egress():
    """mark_to_drop in egress drops; a later write to egress_spec revives, on the same egress port."""
    p = Lab()
    p.do(out(5))
    p.do(mark_to_drop(), pipe="egress")
    p.when(f("t.op") == 1, "revive", pipe="egress")
    p.do(out(8), name="revive", next=None, pipe="egress")
    return p.test(packet(1, t(op=0)), packet(1, t(op=1)), expect(5, t(op=1)))


@case
def jump_goes_to_an_absolute_step():
    """_jump counts steps from the start of the action; the number of steps itself is the end."""
    p = Lab()
    p.do(out(1),                                      # 0
         assign(f("t.a"), 0x11),                   # 1
         jump(5),                           # 2
         assign(f("t.b"), 0x22),                   # 3: left out
         assign(f("t.c"), 0x33),                   # 4: left out
         assign(f("t.d"), 0x44),                   # 5
         jump(8),                           # 6: to the end
         assign(f("t.a"), 0x99))                   # 7: left out
    return p.test(packet(1, t()), expect(1, t(a=0x11, d=0x44)))


@case
def jump_if_zero_takes_both_ways():
    """_jump_if_zero jumps when its expression is 0 or false, and goes on otherwise."""
    p = Lab()
    p.do(out(1),                                                      # 0
         jump_if_zero(d2b(f("t.op")), 4),              # 1
         assign(f("t.a"), 1),                                      # 2
         jump(5),                                           # 3
         assign(f("t.a"), 2),                                      # 4
         jump_if_zero(f("t.op") - 3, 7),          # 5
         assign(f("t.b"), 3))                                      # 6
    return p.test(
        packet(1, t(op=0)), expect(1, t(op=0, a=2, b=3)), packet(1, t(op=1)),
        expect(1, t(op=1, a=1, b=3)),
        packet(1, t(op=3)), expect(1, t(op=3, a=1)))


@case
def jump_backwards_makes_a_loop():
    """A backward jump repeats steps: b becomes the sum of 1 to op."""
    p = Lab()
    p.scalar("left", 8)
    p.do(out(1), assign(user("left"), f("t.op")),                        # 0, 1
         jump_if_zero(user("left"), 6),                        # 2
         assign(f("t.b"), f("t.b") + user("left")),               # 3
         assign(user("left"), user("left") - 1),                  # 4
         jump(2),                                           # 5
         assign(f("t.a"), 0xaa))                                   # 6
    return p.test(packet(1, t(op=10)), expect(1, t(op=10, b=55, a=0xaa)), packet(1, t(op=0)),
                  expect(1, t(op=0, a=0xaa)))


@case
def endless_loop_is_stopped():
    """An action that never ends is cut; its packet was to be dropped, and the next one passes."""
    p = Lab()
    p.do(jump_if_zero(f("t.op"), 3), mark_to_drop(), jump(1), out(2))
    return p.test(packet(1, t(op=1)), packet(1, t(op=0)), expect(2, t(op=0)))


@case
def exit_stops_at_once():
    """exit leaves out the rest of the action and of ingress; egress and the deparser still run."""
    p = Lab()
    p.header_type("x_t", [("x", 8)])
    p.header("x", "x_t")
    p.deparse("x", "t")
    p.node("act", [key("exact", f("t.op"))], [
        p.action("leave", out(2), add_header(Header("x")), exit_pipeline(), assign(f("t.a"), 0xee)),
        p.action("stay", assign(f("t.a"), 0x11))])
    p.do(assign(f("t.b"), 0x22), out(3))
    p.do(assign(f("t.c"), f("t.c") + 1), pipe="egress")
    return p.test("add act t.op:1 leave()", "add act t.op:2 stay()",
                      packet(1, t(op=1)), expect(2, "00" + t(op=1, c=1)), packet(1, t(op=2)),
                      expect(3, t(op=2, a=0x11, b=0x22, c=1)))


@case
def exit_in_a_branch_of_an_action():
    """exit that a jump passes by does not count."""
    p = Lab()
    p.do(out(1), jump_if_zero(f("t.op"), 3), exit_pipeline(), assign(f("t.a"), 7))
    p.do(assign(f("t.b"), 8))
    return p.test(packet(1, t(op=1)), expect(1, t(op=1)), packet(1, t(op=0)),
                  expect(1, t(op=0, a=7, b=8)))


@case
def exit_in_egress():
    """exit in egress ends egress only; a drop that was set before it still drops."""
    p = Lab()
    p.do(out(1))
    p.when(f("t.op") == 1, "drops", "leaves", pipe="egress")
    p.do(mark_to_drop(), exit_pipeline(), name="drops", pipe="egress", next="after")
    p.do(exit_pipeline(), name="leaves", pipe="egress", next="after")
    p.do(assign(f("t.a"), 0x77), out(1), pipe="egress", name="after")
    return p.test(packet(1, t(op=1)), packet(1, t(op=2)), expect(1, t(op=2)))


@case
def hash_with_base_and_max():
    """A hash gives base + (H mod max), and max 0 acts as 1."""
    p = Lab()
    p.calculation("calc", "crc16", [f("t.d")])
    p.do(hash_into(f("t.c"), f("t.a"), "calc", f("t.b")), out(1))
    lines = []
    for d, base, most in ((0x01020304, 10, 7), (0xdeadbeef, 0, 255), (0x01020304, 200, 1), (0x01020304, 33, 0)):
        value = crc16(d.to_bytes(4, "big"))
        lines += [packet(1, t(a=base, b=most, d=d)),
                  expect(1, t(a=base, b=most, c=base + value % max(most, 1), d=d))]
    return p.test(*lines)


@case
def hash_is_cut_when_stored():
    """base + (H mod max) is computed in full, then cut to the destination."""
    p = Lab()
    p.calculation("calc", "identity", [f("t.d")])
    p.do(hash_into(f("t.a"), 0x1f0, "calc", 0x10000), out(1))
    return p.test(*[line for d in (0x00000011, 0x123456ff)
                            for line in (packet(1, t(d=d)), expect(1, t(a=(0x1f0 + d % 0x10000) & 0xff, d=d)))])


@case
def random_within_its_bounds():
    """random takes both bounds; low = high leaves no choice; low > high changes nothing."""
    p = Lab()
    p.do(random_into(f("t.c"), f("t.a"), f("t.b")), out(1))
    some = [packet(1, t(a=0x40, b=0x4f)), expect(1, "00404f" + "004*" + "00000000")] * 6
    return p.test(packet(1, t(a=9, b=9)), expect(1, t(a=9, b=9, c=9)),
                          packet(1, t(a=0, b=0, c=77)), expect(1, t(a=0, b=0, c=0)),
                          packet(1, t(a=9, b=8, c=0x1234)), expect(1, t(a=9, b=8, c=0x1234)), *some)


@case
def random_takes_every_value():
    """random of 0 to 1 gives both: a register remembers which values 64 packets saw."""
    p = Lab()
    p.register("seen", 2, 8)
    p.scalar("coin", 8)
    p.do(random_into(user("coin"), 0, 1), register_write("seen", user("coin"), 1), mark_to_drop())
    p.when(f("t.op") == 1, "answer")
    p.do(register_read(f("t.a"), "seen", 0), register_read(f("t.b"), "seen", 1), out(1),
         name="answer")
    return p.test(*[packet(1, t())] * 64, packet(1, t(op=1)), expect(1, t(op=1, a=1, b=1)))


def register_lab():
    """op 1 writes c to cell a, op 2 reads cell a into c; the register has 4 cells of 12 bits."""
    p = Lab()
    p.register("cells", 4, 12)
    p.node("act", [key("exact", f("t.op"))], [
        p.action("store", register_write("cells", f("t.a"), f("t.c"))),
        p.action("load", register_read(f("t.c"), "cells", f("t.a")))])
    p.do(out(1))
    return p, ["add act t.op:1 store()", "add act t.op:2 load()"]


@case
def register_keeps_and_cuts():
    """A cell starts at 0, keeps what was written from packet to packet, and cuts it to its width."""
    p, adds = register_lab()
    return p.test(
        *adds, packet(1, t(op=2, a=3, c=0xffff)), expect(1, t(op=2, a=3, c=0)),
        packet(1, t(op=1, a=3, c=0xabcd)), expect(1, t(op=1, a=3, c=0xabcd)),
        packet(1, t(op=2, a=3, c=0)), expect(1, t(op=2, a=3, c=0xbcd)),
        packet(1, t(op=2, a=2, c=1)), expect(1, t(op=2, a=2, c=0)))


@case
def register_out_of_range():
    """Beyond the size a write is ignored and a read leaves its destination."""
    p, adds = register_lab()
    return p.test(
        *adds, packet(1, t(op=1, a=4, c=0x123)), expect(1, t(op=1, a=4, c=0x123)),
        packet(1, t(op=2, a=4, c=0x7777)), expect(1, t(op=2, a=4, c=0x7777)),
        packet(1, t(op=2, a=255, c=0x7777)), expect(1, t(op=2, a=255, c=0x7777)),
        packet(1, t(op=2, a=0, c=0x7777)), expect(1, t(op=2, a=0, c=0)))


@case
def register_index_is_an_expression():
    """Index and value of a register may be expressions; the index is not cut."""
    p = Lab()
    p.register("cells", 4, 16)
    p.do(register_write("cells", f("t.a") + 1, f("t.b") * 3),
         register_read(f("t.c"), "cells", 1),
         register_read(f("t.d"), "cells", 0), out(1))
    return p.test(packet(1, t(a=0, b=5)), expect(1, t(a=0, b=5, c=15)),
                          # 255 + 1 is 256, not 0.
                          packet(1, t(a=255, b=6)), expect(1, t(a=255, b=6, c=15)))


@case
def register_through_the_control_plane():
    """register_write and register_reset of the test file act on what packets read."""
    p, adds = register_lab()
    return p.test(
        *adds, "register_write cells 2 0x345", packet(1, t(op=2, a=2)),
        expect(1, t(op=2, a=2, c=0x345)),
        "register_read cells 2", "register_reset cells", packet(1, t(op=2, a=2, c=9)),
        expect(1, t(op=2, a=2, c=0)))


@case
def count_in_both_pipelines():
    """count adds one packet and the received length, in egress too; an index beyond the size is ignored."""
    p = Lab()
    p.header_type("x_t", [("x", 32)])
    p.header("x", "x_t")
    p.deparse("x", "t")
    p.counter("in_count", 4)
    p.counter("out_count", 4)
    p.do(count("in_count", f("t.a")), add_header(Header("x")), out(1))
    p.do(count("out_count", f("t.a")), pipe="egress")
    return p.test(
        packet(1, t(a=3)), expect(1, "00000000" + t(a=3)),
        packet(1, t(a=3) + "eeee"), expect(1, "00000000" + t(a=3) + "eeee"),
        packet(1, t(a=4)), expect(1, "00000000" + t(a=4)),
        "check_counter in_count(3) packets == 2", "check_counter in_count(3) bytes == 20",
        "check_counter out_count(3) packets == 2", "check_counter out_count(3) bytes == 20",
        *[f"check_counter {name}({index}) {unit} == 0"
          for name in ("in_count", "out_count") for index in (0, 1, 2) for unit in ("packets", "bytes")])


@case
def meter_without_rates_is_green():
    """A meter without rates gives 0; an index beyond its size leaves the destination."""
    p = Lab()
    p.meter("police", 2, "packets")
    p.do(execute_meter("police", f("t.a"), f("t.c")), out(1))
    return p.test(packet(1, t(a=1, c=7)), expect(1, t(a=1, c=0)), packet(1, t(a=2, c=7)),
                  expect(1, t(a=2, c=7)))


@case
def digest_does_not_hold_the_packet():
    """generate_digest changes nothing of the packet, in ingress, twice, in egress, and when dropped."""
    p = Lab()
    p.scalar("d0", 8)
    first = p.learn_list("learn_t", [user("d0")])
    second = p.learn_list("tuple_0", [user("d0"), f("t.c")])
    p.do(assign(user("d0"), f("t.a")), generate_digest(first), generate_digest(second), out(1))
    p.when(f("t.op") == 1, "drop_it")
    p.do(mark_to_drop(), name="drop_it")
    p.do(generate_digest(first), assign(f("t.b"), 0x22), pipe="egress")
    return p.test(packet(1, t(a=9)), expect(1, t(a=9, b=0x22)), packet(1, t(op=1)))


@case
def truncate_cuts_the_output():
    """The output has at most n bytes, headers included; the smallest n of several calls wins."""
    p = Lab()
    p.header_type("x_t", [("x", 32)])
    p.header("x", "x_t")
    p.deparse("x", "t")
    p.do(add_header(Header("x")), assign(f("x.x"), 0xa1a2a3a4), truncate(f("t.a")), out(1))
    p.do(truncate(f("t.b")), pipe="egress")
    whole = lambda a, b: "a1a2a3a4" + t(a=a, b=b) + "11223344"
    lines = []
    for a, b in ((14, 20), (20, 15), (100, 17), (100, 16), (3, 200)):
        lines += [packet(1, t(a=a, b=b) + "11223344"), expect(1, whole(a, b)[:2 * min(a, b)])]
    return p.test(*lines)


@case
def log_messages_change_nothing():
    """log_msg takes an array, an empty object and null for its parameters."""
    p = Lab()
    p.do(log_msg("a is {}, {}", f("t.a"), f("t.b") + 1), log_msg("nothing"),
         primitive("log_msg", Expr("string", "null"), Expr("parameters_vector", None)),
         primitive("log_msg", Expr("string", "empty"), Expr("parameters_vector", [])), out(1))
    return p.test(packet(1, t(a=1)), expect(1, t(a=1)))


@case
def assertions_never_stop():
    """A false assert or assume lets the packet go on, whether it is given as a boolean or as a number."""
    p = Lab()
    p.do(primitive("assert", f("t.a") == 1), assign(f("t.b"), 1),
         assert_true(f("t.a") == 2), assign(f("t.c"), 2),
         primitive("assume", f("t.a") != f("t.a")), assign(f("t.d"), 3), out(1))
    return p.test(packet(1, t(a=1)), expect(1, t(a=1, b=1, c=2, d=3)), packet(1, t(a=5)),
                  expect(1, t(a=5, b=1, c=2, d=3)))


@case
def copies_of_an_action_have_their_own_bodies():
    """Two actions of one name differ by id; each table runs the one it lists."""
    p = Lab()
    first = p.action("C.mark", assign(f("t.a"), 0x11))
    second = p.action("C.mark", assign(f("t.a"), f("t.a") + 0x22))
    p.node("one", [key("exact", f("t.op"))], [first])
    p.node("two", [key("exact", f("t.op"))], [second])
    p.do(out(1))
    return p.test("add one t.op:1 mark()", "add two t.op:1 C.mark()", "add two t.op:2 mark()",
                      packet(1, t(op=1)), expect(1, t(op=1, a=0x33)), packet(1, t(op=2)),
                      expect(1, t(op=2, a=0x22)))
