"""Packet tests of the ways of a packet: copies, returns, groups, drops, and the standard metadata."""
from cases import case
from lab import *

INGRESS_CLONE, EGRESS_CLONE, RECIRCULATED, REPLICA, RESUBMITTED = 1, 2, 4, 5, 6


def group(number_, *nodes):
    """The commands that make a group; a node is (rid, port, ...). Only one group in a test."""
    lines = [f"mc_mgrp_create {number_}"]
    for rid, *ports in nodes:
        lines.append(f"mc_node_create {rid} {' '.join(map(str, ports))}")
    return lines + [f"mc_node_associate {number_} {handle}" for handle in range(len(nodes))]


@case
def unset_port_is_port_zero():
    """A program that sets no port sends on port 0, and egress_port is 0 in ingress."""
    p = Lab()
    p.do(assign(f("t.c"), f("egress_port")), assign(f("t.d"), f("egress_spec")))
    return p.test(packet(7, t(c=1, d=1)), expect(0, t()))


@case
def ports_in_egress():
    """In egress egress_port is the port and egress_spec is 0; writing either moves nothing."""
    p = Lab()
    p.do(out(6))
    p.do(assign(f("t.a"), f("egress_port")), assign(f("t.b"), f("egress_spec")),
         assign(f("t.c"), f("ingress_port")), assign(f("egress_port"), 9),
         assign(f("egress_spec"), 3),
         assign(f("t.d"), f("egress_rid")), pipe="egress")
    return p.test(packet(300, t(a=1, b=1, c=1, d=1)), expect(6, t(a=6, c=300)))


@case
def multicast_group_in_egress_means_nothing():
    """mcast_grp that is set in egress makes no copies."""
    p = Lab()
    p.do(out(6))
    p.do(assign(f("mcast_grp"), 1), pipe="egress")
    return p.test(group(1, (1, 2, 3)), same(1, t(), 6))


@case
def packet_length_and_headers():
    """packet_length is the received length, in egress too, whatever headers changed."""
    p = Lab()
    p.header_type("x_t", [("x", 32)])
    p.header("x", "x_t")
    p.header("y", "x_t")
    p.state("start", [extract(p.t)], [f("t.op")], [on("0x01", "more"), otherwise(None)])
    p.state("more", [extract(Header("x"))])
    p.deparse("t", "x", "y")
    p.do(assign(f("t.c"), f("packet_length")), out(1))
    p.when(f("t.op") == 1, "take_off", "put_on")
    p.do(remove_header(Header("x")), name="take_off", next=None)
    p.do(add_header(Header("x")), add_header(Header("y")), name="put_on", next=None)
    p.do(assign(f("t.d"), f("packet_length")), pipe="egress")
    return p.test(packet(1, t(op=1) + "aabbccdd" + "77"), expect(1, t(op=1, c=14, d=14) + "77"),
                  packet(1, t(op=2) + "7777"), expect(1, t(op=2, c=11, d=11) + "00" * 8 + "7777"))


@case
def shorter_than_the_header():
    """A packet that is too short for its first header leaves as it came, and its length counts."""
    p = Lab()
    p.do(assign(f("egress_spec"), f("packet_length")), assign(f("t.a"), 1))
    return p.test(same(1, "0102030405", 5), same(1, "01" * 8, 8), same(1, "ff", 1))


@case
def multicast_copies():
    """One copy per node in the order of association and per port in ascending order, with its rid."""
    p = Lab()
    p.scalar("kept", 8)
    p.do(assign(user("kept"), 0x5a), assign(f("t.b"), f("egress_rid")),
         assign(f("mcast_grp"), f("t.c")), out(9))
    p.do(assign(f("t.c"), f("egress_rid")), assign(f("t.op"), f("instance_type")),
         assign(f("t.a"), user("kept")),
         assign(f("t.d"), f("ingress_port")), pipe="egress")
    copy = lambda port, rid: expect(port, t(op=REPLICA, a=0x5a, c=rid, d=7) + "ee")
    return p.test("mc_mgrp_create 5", "mc_node_create 20 4 2", "mc_node_create 10 2 3",
                  "mc_node_create 30 3 2",
                  "mc_node_associate 5 2", "mc_node_associate 5 0", "mc_node_associate 5 1",
                  packet(7, t(b=1, c=5) + "ee"),
                  copy(2, 30), copy(2, 20), copy(2, 10), copy(3, 30), copy(3, 10), copy(4, 20))


@case
def multicast_to_nobody():
    """An unknown or empty group sends nothing, not even to egress_spec."""
    p = Lab()
    p.do(assign(f("mcast_grp"), f("t.c")), out(9))
    return p.test("mc_mgrp_create 5", packet(1, t(c=5)), packet(1, t(c=6)), same(1, t(c=0), 9))


@case
def multicast_node_is_updated():
    """mc_node_update replaces the ports of a node; a node serves each group it is associated with."""
    p = Lab()
    p.do(assign(f("mcast_grp"), f("t.c")))
    return p.test("mc_mgrp_create 1", "mc_mgrp_create 2", "mc_node_create 1 3",
                  "mc_node_associate 1 0",
                  "mc_node_associate 2 0", same(9, t(c=1), 3), same(9, t(c=2), 3),
                  "mc_node_update 0 5 4", packet(9, t(c=1)), expect(4, t(c=1)), expect(5, t(c=1)))


@case
def copies_are_independent():
    """What egress does to one copy of a group does not show in another; one copy may be dropped."""
    p = Lab()
    p.do(assign(f("mcast_grp"), 1))
    p.when(f("egress_rid") == 2, "drops", "counts", pipe="egress")
    p.do(mark_to_drop(), pipe="egress", name="drops", next=None)
    p.do(assign(f("t.a"), f("t.a") + 1), pipe="egress", name="counts", next=None)
    return p.test(group(1, (1, 2), (2, 3), (3, 4)), packet(1, t(a=5)), expect(2, t(a=6)),
                  expect(4, t(a=6)))


def clone_lab(kind, fields=("kept",)):
    """Clones to session t.c with a field list of the user metadata; x is set by the parser, y and kept later."""
    p = Lab()
    for name in ("kept", "lost", "parsed"):
        p.scalar(name, 8)
    p.state("start", [extract(p.t), set_field(user("parsed"), 0x44)])
    listed = p.field_list("fl", [user(name) for name in fields])
    clone = clone_ingress if kind == INGRESS_CLONE else clone_egress
    return p, clone(f("t.c"), listed)


@case
def ingress_clone():
    """An ingress clone is the packet as it came in, parsed again; its metadata are 0 but for the field list."""
    p, clone = clone_lab(INGRESS_CLONE)
    p.do(assign(user("lost"), 9), assign(user("kept"), 7), clone, assign(f("t.b"), 0xbb),
         assign(user("kept"), 8), out(2))
    p.do(assign(f("t.a"), user("kept")), assign(f("t.d"),
                                                (user("lost") << 16) | (user("parsed") << 8) | f("instance_type")),
         pipe="egress")
    return p.test("mirroring_add 4 5", packet(1, t(c=4) + "ee"),
                  expect(2, t(a=8, b=0xbb, c=4, d=0x094400) + "ee"),
                  # The field list is read at the end of ingress; what the parser set is lost.
                  expect(5, t(a=8, c=4, d=0x000001) + "ee"))


@case
def ingress_clone_keeps_its_port():
    """An ingress clone keeps ingress_port and has the session's port as its egress_port."""
    p, clone = clone_lab(INGRESS_CLONE)
    p.do(clone, out(2))
    p.do(assign(f("t.a"), f("ingress_port")), assign(f("t.b"), f("egress_port")),
         assign(f("t.d"), f("egress_rid") + f("mcast_grp") + f("egress_spec")), pipe="egress")
    return p.test("mirroring_add 4 5", packet(77, t(c=4)), expect(2, t(a=77, b=2, c=4)),
                  expect(5, t(a=77, b=5, c=4)))


@case
def clone_of_a_dropped_packet():
    """A clone leaves although the packet is dropped."""
    p, clone = clone_lab(INGRESS_CLONE)
    p.do(clone, mark_to_drop())
    return p.test("mirroring_add 4 5", packet(1, t(c=4)), expect(5, t(c=4)))


@case
def last_clone_wins():
    """A second clone in one packet replaces session and field list; a session may come from action data."""
    p = Lab()
    p.scalar("x", 8)
    p.scalar("y", 8)
    first = p.field_list("fl1", [user("x")])
    second = p.field_list("fl2", [user("y")])
    mirror = p.action("mirror", clone_ingress(1, first), clone_ingress(Data(0), second),
                      assign(user("x"), 1),
                      assign(user("y"), 2), data=[("session", 32)])
    p.node("pick", [key("exact", f("t.op"))], [mirror])
    p.do(out(9))
    p.do(assign(f("t.a"), user("x")), assign(f("t.b"), user("y")), pipe="egress")
    return p.test("mirroring_add 1 3", "mirroring_add 2 4", "add pick t.op:1 mirror(session:2)",
                  packet(1, t(op=1)),
                  expect(9, t(op=1, a=1, b=2)), expect(4, t(op=1, b=2)))


@case
def sessions_of_clones():
    """Session 0 and session 32767 work; an unknown and a deleted one make no copy."""
    p, clone = clone_lab(INGRESS_CLONE)
    p.do(clone, out(1))
    both_ = lambda session, port: [packet(9, t(c=session)), expect(1, t(c=session)),
                                   expect(port, t(c=session))]
    return p.test("mirroring_add 0 3", "mirroring_add 32767 4", both_(0, 3), both_(32767, 4),
                  same(9, t(c=5), 1),
                  "mirroring_get 0", "mirroring_delete 0", same(9, t(c=0), 1), both_(32767, 4))


@case
def clone_to_a_group():
    """A session of a group makes one clone per port of its nodes."""
    p, clone = clone_lab(INGRESS_CLONE)
    p.do(clone, out(1))
    p.do(assign(f("t.a"), f("instance_type")), pipe="egress")
    return p.test(group(3, (1, 5, 6), (2, 7)), "mirroring_add_mc 8 3", packet(9, t(c=8)),
                  expect(1, t(c=8)),
                  [expect(port, t(a=INGRESS_CLONE, c=8)) for port in (5, 6, 7)])


@case
def clone_with_an_unknown_field_list():
    """A list id that no list has is an empty list."""
    p = Lab()
    p.scalar("x", 8)
    p.field_list("fl", [user("x")])
    p.do(clone_ingress(1, 9), assign(user("x"), 5), out(2))
    p.do(assign(f("t.a"), user("x")), pipe="egress")
    return p.test("mirroring_add 1 3", packet(1, t()), expect(2, t(a=5)), expect(3, t()))


@case
def clone_beside_a_group():
    """A clone and the copies of a group leave alike."""
    p, clone = clone_lab(INGRESS_CLONE)
    p.do(clone, assign(f("t.a"), 1), assign(f("mcast_grp"), 2))
    return p.test(group(2, (1, 5, 6)), "mirroring_add 4 7", packet(1, t(c=4)), expect(7, t(c=4)),
                  expect(5, t(a=1, c=4)), expect(6, t(a=1, c=4)))


@case
def egress_clone():
    """An egress clone has the headers of that moment and goes through egress; metadata are 0 but for the list."""
    p, clone = clone_lab(EGRESS_CLONE)
    p.do(assign(user("lost"), 9), out(2))
    p.when(f("instance_type") == 0, "first", "second", pipe="egress")
    p.do(assign(user("kept"), 0x5e), clone, assign(f("t.b"), 0xcc), pipe="egress", name="first",
         next=None)
    p.do(assign(f("t.a"), user("kept")), assign(f("t.d"),
                                                (user("lost") << 16) | (user("parsed") << 8) | f("instance_type")),
         pipe="egress", name="second", next=None)
    return p.test("mirroring_add 4 5", packet(1, t(c=4) + "ee"), expect(2, t(b=0xcc, c=4) + "ee"),
                  expect(5, t(a=0x5e, b=0xcc, c=4, d=EGRESS_CLONE) + "ee"))


@case
def egress_clone_of_a_dropped_packet():
    """An egress clone leaves although egress drops the packet; headers it removed stay removed."""
    p, clone = clone_lab(EGRESS_CLONE)
    p.header_type("x_t", [("x", 8)])
    p.header("x", "x_t")
    p.deparse("x", "t")
    p.do(add_header(Header("x")), assign(f("x.x"), 0x11), out(2))
    p.when(f("instance_type") == 0, "first", None, pipe="egress")
    p.do(remove_header(Header("x")), clone, mark_to_drop(), pipe="egress", name="first", next=None)
    return p.test("mirroring_add 4 5", packet(1, t(c=4)), expect(5, t(c=4)))


@case
def egress_clone_of_an_ingress_clone():
    """Copies may be copied: an ingress clone passes egress, where it is cloned again."""
    p = Lab()
    p.field_list("fl", [])
    p.do(clone_ingress(1, 1), out(2))
    p.do(assign(f("t.a"), f("instance_type")), pipe="egress")
    p.when(f("instance_type") == INGRESS_CLONE, "again", None, pipe="egress")
    p.do(clone_egress(2, 1), pipe="egress", name="again", next=None)
    return p.test("mirroring_add 1 3", "mirroring_add 2 4", packet(1, t()), expect(2, t()),
                  expect(3, t(a=INGRESS_CLONE)), expect(4, t(a=EGRESS_CLONE)))


@case
def resubmit_starts_again():
    """A resubmitted packet is the one that came in; the parser sees its instance type, and the list is kept."""
    p = Lab()
    for name in ("x", "y", "type"):
        p.scalar(name, 8)
    p.state("start", [extract(p.t), set_field(user("type"), f("instance_type"))])
    listed = p.field_list("fl", [user("x")])
    p.when(f("instance_type") == 0, "first", "second")
    p.do(assign(user("x"), 7), assign(user("y"), 9), resubmit(listed), assign(f("t.d"), 0x99),
         out(3),
         name="first", next=None)
    p.do(assign(f("t.a"), user("x")), assign(f("t.b"), user("y")), assign(f("t.c"), user("type")),
         assign(f("t.op"), f("egress_spec")), assign(f("egress_spec"), f("ingress_port")),
         name="second", next=None)
    return p.test(packet(8, t() + "ee"), expect(8, t(a=7, c=RESUBMITTED) + "ee"))


@case
def resubmit_goes_before_group_and_drop():
    """A resubmitted packet makes no copies in its first round and is not dropped; its clone leaves."""
    p = Lab()
    p.field_list("fl", [])
    p.when(f("instance_type") == RESUBMITTED, "second", "first")
    p.do(clone_ingress(1, 1), resubmit(1), assign(f("mcast_grp"), 2), assign(f("egress_spec"), 511),
         name="first", next=None)
    p.do(assign(f("t.a"), f("mcast_grp")), out(3), name="second", next=None)
    return p.test(group(2, (1, 5, 6)), "mirroring_add 1 7", packet(1, t(a=9)), expect(3, t()),
                  expect(7, t(a=9)))


@case
def last_resubmit_wins():
    """The field list of the last call counts, with the values at the end of ingress."""
    p = Lab()
    p.scalar("x", 8)
    p.scalar("y", 8)
    first, second = p.field_list("fl1", [user("x")]), p.field_list("fl2", [user("y")])
    p.when(f("instance_type") == 0, "first", "second")
    p.do(assign(user("x"), 1), assign(user("y"), 2), resubmit(first), resubmit(second),
         assign(user("y"), 3),
         name="first", next=None)
    p.do(assign(f("t.a"), user("x")), assign(f("t.b"), user("y")), out(1), name="second", next=None)
    return p.test(packet(1, t()), expect(1, t(b=3)))


@case
def resubmit_in_egress_does_nothing():
    """resubmit acts at the end of ingress only."""
    p = Lab()
    p.field_list("fl", [])
    p.do(out(4), assign(f("t.a"), f("instance_type")))
    p.do(resubmit(1), pipe="egress")
    return p.test(same(1, t(), 4))


@case
def recirculate_parses_the_output():
    """A recirculated packet is the deparsed output; length and instance type are new, the list is kept."""
    p = Lab()
    p.header_type("x_t", [("x", 8)])
    p.header("x", "x_t")
    p.deparse("t", "x")
    for name in ("x", "y", "type"):
        p.scalar(name, 8)
    p.state("start", [extract(p.t), set_field(user("type"), f("instance_type"))])
    listed = p.field_list("fl", [user("x")])
    p.do(assign(f("t.c"), f("packet_length")), assign(f("t.b"), user("y")), out(5))
    p.when(f("instance_type") == 0, "first", "second", pipe="egress")
    p.do(assign(user("x"), 7), assign(user("y"), 9), add_header(Header("x")),
         assign(f("x.x"), 0x33),
         recirculate(listed), assign(f("t.d"), 0xd0d0), pipe="egress", name="first", next=None)
    p.do(assign(f("t.a"), user("x")), assign(f("t.op"), user("type")), pipe="egress", name="second",
         next=None)
    # The first round puts 33 before the payload; the second does not parse it.
    return p.test(packet(1, t(b=1) + "ee"), expect(5,
                                                   t(op=RECIRCULATED, a=7, c=11,
                                                     d=0xd0d0) + "33ee"))


@case
def recirculate_keeps_the_port():
    """ingress_port of a recirculated packet is that of the packet that came in."""
    p = Lab()
    p.field_list("fl", [])
    p.do(assign(f("t.a"), f("ingress_port")), out(5))
    p.when(f("instance_type") == 0, "first", None, pipe="egress")
    p.do(recirculate(1), pipe="egress", name="first", next=None)
    return p.test(packet(33, t()), expect(5, t(a=33)))


@case
def drop_goes_before_recirculation():
    """Egress drops a packet that was to be recirculated."""
    p = Lab()
    p.field_list("fl", [])
    p.do(assign(f("t.a"), f("instance_type")), out(5))
    p.when(f("instance_type") == 0, "first", None, pipe="egress")
    p.do(recirculate(1), mark_to_drop(), pipe="egress", name="first", next=None)
    return p.test(packet(1, t()))


@case
def truncated_before_recirculation():
    """The bytes that are recirculated are cut, and their length is the new packet_length."""
    p = Lab()
    p.field_list("fl", [])
    p.do(assign(f("t.c"), f("packet_length")), out(5))
    p.when(f("instance_type") == 0, "first", None, pipe="egress")
    p.do(truncate(11), recirculate(1), pipe="egress", name="first", next=None)
    return p.test(packet(1, t() + "0102030405"), expect(5, t(c=11) + "0102"))


@case
def counters_of_recirculated_packets():
    """Counters take the received length; for a recirculated packet this is the new one."""
    p = Lab()
    p.header_type("x_t", [("x", 32)])
    p.header("x", "x_t")
    p.deparse("t", "x")
    p.field_list("fl", [])
    p.counter("seen", 8)
    p.do(count("seen", f("instance_type")), out(5))
    p.when(f("instance_type") == 0, "first", None, pipe="egress")
    p.do(add_header(Header("x")), recirculate(1), pipe="egress", name="first", next=None)
    return p.test(packet(1, t() + "ee"), expect(5, t() + "00000000" + "ee"),
                  "check_counter seen(0) packets == 1", "check_counter seen(0) bytes == 10",
                  "check_counter seen(4) packets == 1", "check_counter seen(4) bytes == 14")


def rounds_lab(again, pipe):
    """The case of a packet that goes round t.b times; t.a is the count of rounds."""
    p = Lab()
    p.scalar("round", 8)
    p.field_list("fl", [user("round")])
    p.do(out(5))
    p.when(user("round") < f("t.b"), "go_round", "leave", pipe=pipe)
    p.do(assign(user("round"), user("round") + 1), again(1), pipe=pipe, name="go_round", next=None)
    p.do(assign(f("t.a"), user("round")), pipe=pipe, name="leave", next=None)
    return p.test(packet(1, t(b=3)), expect(5, t(a=3, b=3)), packet(1, t(b=8)),
                  expect(5, t(a=8, b=8)),
                  # More rounds than are allowed: the packet is cut off, and the next one passes.
                  packet(1, t(b=9)), packet(1, t(b=255)), packet(1, t(b=0)), expect(5, t()))


@case
def resubmit_is_bounded():
    """Eight rounds of resubmit are allowed; a packet that never ends is cut off."""
    return rounds_lab(resubmit, "ingress")


@case
def recirculate_is_bounded():
    """Eight rounds of recirculate are allowed; a packet that never ends is cut off."""
    return rounds_lab(recirculate, "egress")


@case
def egress_clones_are_bounded():
    """An egress clone that clones itself ends after eight generations; each has a port of its own."""
    p = Lab()
    p.field_list("fl", [])
    p.do(out(5))
    p.do(assign(f("t.a"), f("t.a") + 1), clone_egress(f("t.a"), 1), pipe="egress")
    return p.test([f"mirroring_add {session} {session + 10}" for session in range(1, 13)],
                  packet(1, t()), expect(5, t(a=1)),
                  [expect(session + 10, t(a=session + 1)) for session in range(1, 9)])


@case
def timestamps_do_not_go_back():
    """Egress is not before ingress, and a packet is not before the one that came in earlier."""
    p = Lab()
    p.register("last", 1, 48)
    p.scalar("before", 48)
    p.do(register_read(user("before"), "last", 0),
         register_write("last", 0, f("ingress_global_timestamp")),
         assign(f("t.a"), b2d(f("ingress_global_timestamp") >= user("before"))), out(1))
    p.do(assign(f("t.b"), b2d(f("egress_global_timestamp") >= f("ingress_global_timestamp"))),
         pipe="egress")
    return p.test([packet(1, t()), expect(1, t(a=1, b=1))] * 3)


@case
def deparser_without_headers():
    """A deparser without headers sends the payload only."""
    p = Lab()
    p.do(out(1))
    p.deparse()
    return p.test(packet(1, t(a=1) + "0102"), expect(1, "0102"))


@case
def two_copies_of_the_standard_metadata():
    """A copy of the standard metadata that is copied back carries port and group with it."""
    p = Lab()
    p.metadata("smeta", "standard_metadata")
    p.do(assign_header(Header("smeta"), p.standard), assign(f("smeta.egress_spec"), 6),
         assign(f("t.a"), f("smeta.ingress_port")), assign_header(p.standard, Header("smeta")))
    return p.test(packet(9, t()), expect(6, t(a=9)))


@case
def field_alias_names_are_not_headers():
    """The aliases of the queue and group fields exist beside the names of the standard metadata."""
    p = Lab()
    p.root["field_aliases"].append(["intrinsic_metadata.mcast_grp",
                                    ["standard_metadata", "mcast_grp"]])
    p.do(assign(f("mcast_grp"), 1))
    return p.test(group(1, (4, 2)), same(1, t(), 2))
