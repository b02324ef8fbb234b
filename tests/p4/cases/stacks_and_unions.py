"""Header stacks, their next index, run-time indexes; header unions and stacks of unions."""
from cases import case, refusal
from compiled import *
from observe import *
from stf import Stf


def pile_program(name, size=3):
    """A count byte, then that many labels of one byte that go to the stack `pile`."""
    program = Program(name)
    program.header_type("count_t", [("n", 8)])
    program.header_type("label_t", [("v", 8)])
    count_header = program.header("count", "count_t")
    pile = program.stack("pile", "label_t", size)
    left = program.scalar("left", 8)
    program.state("start", [extract(count_header), set_field(left, count_header["n"])],
                  [count_header["n"]], [on(0, None, digits=2), otherwise("label")])
    program.state("label", [extract(pile), set_field(left, left - 1)], [left],
                  [on(0, None, digits=2), otherwise("label")])
    return program, count_header, pile


def validity(pile, size):
    return [(f"valid{i}", 8, pile[i].valid) for i in range(size)]


def changed(name, change, rows, size=3):
    """Runs change(pile) on 0 to 3 labels; shows the next index and validity before the labels."""
    program, _, pile = pile_program(name, size)
    report(program, [("next", 8, stack_size(pile))] + validity(pile, size), before=change(pile))
    test = Stf("out: next index, validity of each element, count, labels")
    for labels, shown in rows:
        count_byte = f"{len(labels) // 2:02x}"
        next_and_validity, left = shown
        test.packet(2, f"{count_byte}{labels}ee")
        test.expect(1, f"{next_and_validity}{count_byte}{left}ee")
    return program, test


@case
def push_moves_elements_up():
    return changed("push", lambda pile: [push(pile, 1)], [
        ("", ("01000000", "")), ("aa", ("02000100", "aa")), ("aabb", ("03000101", "aabb")),
        ("aabbcc", ("03000101", "aabb"))])


@case
def push_of_several_elements():
    return changed("push_two", lambda pile: [push(pile, 2)], [
        ("", ("02000000", "")), ("aa", ("03000001", "aa")), ("aabbcc", ("03000001", "aa"))])


@case
def push_beyond_the_size_empties_the_stack():
    return changed("push_many", lambda pile: [push(pile, 7)], [
        ("aabbcc", ("03000000", "")), ("", ("03000000", ""))])


@case
def pushed_element_is_added_with_zeros():
    return changed("push_and_add", lambda pile: [push(pile, 1), add_header(pile[0])], [
        ("aabb", ("03010101", "00aabb")), ("aabbcc", ("03010101", "00aabb"))])


@case
def pop_moves_elements_down():
    return changed("pop", lambda pile: [pop(pile, 1)], [
        ("", ("00000000", "")), ("aa", ("00000000", "")), ("aabb", ("01010000", "bb")),
        ("aabbcc", ("02010100", "bbcc"))])


@case
def pop_of_several_elements():
    return changed("pop_two", lambda pile: [pop(pile, 2)], [
        ("aa", ("00000000", "")), ("aabbcc", ("01010000", "cc"))])


@case
def pop_beyond_the_size_empties_the_stack():
    return changed("pop_many", lambda pile: [pop(pile, 9)], [
        ("aabbcc", ("00000000", "")), ("", ("00000000", ""))])


@case
def push_moves_invalid_elements_too():
    def change(pile):
        return [remove_header(pile[0]), push(pile, 1), add_header(pile[0]),
                assign(pile[0]["v"], 0x99)]
    return changed("push_with_hole", change, [
        ("aabb", ("03010001", "99bb")), ("aa", ("02010000", "99"))])


@case
def add_header_of_an_element_does_not_move_next():
    return changed("add_element", lambda pile: [add_header(pile[2]), remove_header(pile[0])], [
        ("", ("00000001", "00")), ("aabb", ("02000101", "bb00"))])


@case
def last_index_and_size_of_a_stack():
    program, _, pile = pile_program("last_index_and_size")
    report(program, [("last", 8, last_index(pile)), ("size", 8, stack_size(pile)),
                     ("wide_last", 16, last_index(pile)),
                     ("empty", 8, b2d(last_index(pile) < 0)),
                     ("last_value", 8, pile.last("v"))])
    return program, (Stf("an empty stack has the last index -1, and its last field is 0")
                     .packet(2, "00ee").expect(1, "ff00ffff0100" "00ee")
                     .packet(2, "01aaee").expect(1, "0001000000aa" "01aaee")
                     .packet(2, "03aabbccee").expect(1, "0203000200cc" "03aabbccee"))


@case
def last_element_follows_push_and_pop():
    program, _, pile = pile_program("last_element_follows")
    before, after = program.scalar("before", 8), program.scalar("after", 8)
    report(program, [("before", 8, before), ("after", 8, after)],
           before=[assign(before, pile.last("v")), pop(pile, 2), assign(after, pile.last("v"))])
    return program, (Stf("the last element's field before and after pop 2")
                     .packet(2, "03aabbccee").expect(1, "cccc" "03ccee")
                     .packet(2, "02aabbee").expect(1, "bb00" "02ee"))


@case
def element_at_a_run_time_index_is_read():
    program, count_header, pile = pile_program("element_at_a_run_time_index")
    program.header_type("index_t", [("i", 8, True)])
    index = program.header("index", "index_t")
    program.parser["parse_states"][0]["parser_ops"].insert(0, extract(index))
    element = pile.at(index["i"])
    report(program, [("value", 8, access(element, 0)), ("sum", 8, access(element, 0) + 1)])
    program.emitted = ["res", "index", "count", "pile[0]", "pile[1]", "pile[2]"]
    test = Stf("an index out of range and an invalid element read as 0")
    for index_byte, value in (("00", 0xaa), ("01", 0xbb), ("02", 0), ("03", 0), ("7f", 0),
                              ("ff", 0), ("80", 0)):
        data = f"{index_byte}02aabbee"
        test.packet(2, data).expect(1, f"{value:02x}{value + 1:02x}{data}")
    return program, test


@case
def element_at_a_run_time_index_is_written():
    program, count_header, pile = pile_program("element_at_a_run_time_index_is_written")
    target = wrapped(access(pile.at(count_header["n"] - 1), 0))
    beyond = wrapped(access(pile.at(count_header["n"] + 100), 0))
    program.ingress.run("write", assign(target, 0x55), assign(beyond, 0x66),
                        to_port(program))
    return program, (Stf("the last element is written; without one the write is ignored")
                     .packet(2, "03aabbccee").expect(1, "03aabb55ee")
                     .packet(2, "01aaee").expect(1, "0155ee")
                     .packet(2, "00ee").expect(1, "00ee"))


@case
def second_field_of_an_element_at_a_run_time_index():
    program = Program("second_field_of_an_element")
    program.header_type("pair_t", [("a", 4), ("b", 12)])
    pile = program.stack("pile", "pair_t", 2)
    program.state("start", [extract(pile), extract(pile)])
    index = program.scalar("index", 32)
    program.ingress.run("swap", assign(index, 1),
                        assign(wrapped(access(pile.at(index), 1)), access(pile.at(index - 1), 1)),
                        assign(wrapped(access(pile.at(index - 1), 0)), 0x1f), to_port(program))
    return program, Stf("field 1 is copied up; field 0 is cut to 4 bits").packet(
        2, "1abc2def").expect(1, "fabc2abc")


@case
def header_operations_at_a_run_time_index():
    program, count_header, pile = pile_program("header_operations_at_a_run_time_index")
    index = program.scalar("index", 32)
    element = pile.at(index)
    program.ingress.run("change", assign(index, count_header["n"]), add_header(element),
                        assign(wrapped(access(element, 0)), 0x77),
                        assign_header(pile[0], element), assign(index, 1), remove_header(element),
                        to_port(program))
    return program, (Stf("element n is added with 77 and copied to element 0; element 1 is removed")
                     .packet(2, "02aabbee").expect(1, "027777ee")
                     .packet(2, "01aaee").expect(1, "0177ee"))


@case
def validity_at_a_run_time_index():
    program, count_header, pile = pile_program("validity_at_a_run_time_index")
    index = count_header["n"]
    report(program, [("at", 8, b2d(op("valid", None, pile.at(index)))),
                     ("before", 8, b2d(op("valid", None, pile.at(index - 1))))])
    return program, (Stf("element n is not there, element n - 1 is")
                     .packet(2, "02aabb").expect(1, "0001" "02aabb")
                     .packet(2, "00").expect(1, "0000" "00")
                     .packet(2, "03aabbcc").expect(1, "0001" "03aabbcc"))


@case
def stack_is_assigned_whole():
    program = Program("stack_is_assigned_whole")
    program.header_type("label_t", [("v", 8)])
    first = program.header("first", "label_t")
    one, two = program.stack("one", "label_t", 2), program.stack("two", "label_t", 2)
    program.state("start", [extract(first), extract(one), extract(one), extract(two)])
    program.ingress.run("copy", assign_stack(one, two), to_port(program))
    return program, (Stf("each element of one becomes that of two, valid or not")
                     .packet(2, "77112233").expect(1, "773333")
                     .packet(2, "771122").expect(1, "77"))


# Unions


def union_program(name):
    """A kind byte; 1 is followed by u.h1 (one byte), 2 by u.h2 (two bytes)."""
    program = Program(name)
    program.header_type("kind_t", [("k", 8)])
    program.header_type("h1_t", [("v", 8)])
    program.header_type("h2_t", [("v", 16)])
    program.union_type("u_t", [("h1", "h1_t"), ("h2", "h2_t")])
    kind, union = program.header("kind", "kind_t"), program.union("u", "u_t")
    program.state("start", [extract(kind)], [kind["k"]],
                  [on(1, "h1", digits=2), on(2, "h2", digits=2), on(3, "h1_h2", digits=2),
                   otherwise(None)])
    program.state("h1", [extract(union["h1"])])
    program.state("h2", [extract(union["h2"])])
    program.state("h1_h2", [extract(union["h1"]), extract(union["h2"])])
    return program, union


@case
def union_member_is_parsed_and_emitted():
    program, union = union_program("union_member_is_parsed")
    report(program, [("h1", 8, union["h1"].valid), ("h2", 8, union["h2"].valid)])
    return program, (Stf()
                     .packet(2, "0111ee").expect(1, "0100" "0111ee")
                     .packet(2, "021122ee").expect(1, "0001" "021122ee")
                     .packet(2, "00ee").expect(1, "0000" "00ee"))


@case
def extracting_a_member_invalidates_the_others():
    program, union = union_program("extracting_a_member")
    report(program, [("h1", 8, union["h1"].valid), ("h2", 8, union["h2"].valid)])
    return program, (Stf("h1 is extracted, then h2; where h2 does not fit, h1 stays")
                     .packet(2, "03112233ee").expect(1, "0001" "032233ee")
                     .packet(2, "031122").expect(1, "0100" "031122"))


@case
def adding_a_member_invalidates_the_others():
    program, union = union_program("adding_a_member")
    program.ingress.run("add", add_header(union["h2"]), to_port(program))
    return program, (Stf("h2 is added: zeros where it was not there")
                     .packet(2, "0111ee").expect(1, "010000ee")
                     .packet(2, "021122ee").expect(1, "021122ee")
                     .packet(2, "00ee").expect(1, "000000ee"))


@case
def assigning_a_member_invalidates_the_others():
    program, union = union_program("assigning_a_member")
    other = program.header("other", "h2_t")
    program.emit(Header("kind"), union["h1"], union["h2"])
    program.ingress.run("assign", add_header(other), assign(other["v"], 0x5566),
                        assign_header(union["h2"], other), to_port(program))
    return program, (Stf("u.h2 = other, which is valid")
                     .packet(2, "0111ee").expect(1, "015566ee")
                     .packet(2, "00ee").expect(1, "005566ee"))


@case
def assigning_an_invalid_header_keeps_the_other_member():
    program, union = union_program("assigning_an_invalid_header")
    other = program.header("other", "h2_t")
    program.ingress.run("assign", assign_header(union["h2"], other), to_port(program))
    return program, (Stf("u.h2 = other, which is invalid: u.h1 stays, u.h2 does not")
                     .packet(2, "0111ee").expect(1, "0111ee")
                     .packet(2, "021122ee").expect(1, "02ee"))


@case
def removing_a_member_leaves_the_union_empty():
    program, union = union_program("removing_a_member")
    report(program, [("union", 8, b2d(op("valid_union", None, union)))],
           before=[remove_header(union["h1"])])
    return program, (Stf("u.h1 is removed")
                     .packet(2, "0111ee").expect(1, "00" "01ee")
                     .packet(2, "021122ee").expect(1, "01" "021122ee"))


@case
def union_is_assigned_whole():
    program, union = union_program("union_is_assigned_whole")
    copy_of = program.union("copy", "u_t")
    report(program, [("u", 8, b2d(op("valid_union", None, union))),
                     ("copy", 8, b2d(op("valid_union", None, copy_of)))],
           before=[add_header(copy_of["h1"]), assign_union(copy_of, union)])
    return program, (Stf("copy has h1 before; then it is u, member for member")
                     .packet(2, "0111ee").expect(1, "0101" "01" "11" "11" "ee")
                     .packet(2, "021122ee").expect(1, "0101" "02" "1122" "1122" "ee")
                     .packet(2, "00ee").expect(1, "0000" "00ee"))


def union_stack_program(name):
    """Options: 01 and one byte, 02 and two bytes, until 00; each in the next union of `pile`."""
    program = Program(name)
    program.header_type("h1_t", [("k", 8), ("v", 8)])
    program.header_type("h2_t", [("k", 8), ("v", 16)])
    program.header_type("end_t", [("k", 8)])
    program.union_type("u_t", [("h1", "h1_t"), ("h2", "h2_t")])
    pile, end = program.union_stack("pile", "u_t", 2), program.header("end", "end_t")
    kind = program.scalar("kind", 8)
    program.state("start", [set_field(kind, lookahead(0, 8))], [kind],
                  [on(1, "h1", digits=2), on(2, "h2", digits=2), on(0, "end", digits=2),
                   otherwise(None)])
    program.state("h1", [extract((pile, "h1"))], [], [otherwise("start")])
    program.state("h2", [extract((pile, "h2"))], [], [otherwise("start")])
    program.state("end", [extract(end)])
    return program, pile


@case
def union_stack_is_parsed_and_emitted():
    program, pile = union_stack_program("union_stack_is_parsed")
    report(program, [("first", 8, b2d(op("valid_union", None, pile[0]))),
                     ("second_h1", 8, pile[1]["h1"].valid), ("second_h2", 8, pile[1]["h2"].valid),
                     ("error", 8, program.standard["parser_error"])])
    return program, (Stf("two options fit, a third is StackOutOfBounds")
                     .packet(2, "00ee").expect(1, "00000000" "00ee")
                     .packet(2, "01aa02bbcc00ee").expect(1, "01000100" "01aa02bbcc00ee")
                     .packet(2, "02bbcc01aa00ee").expect(1, "01010000" "02bbcc01aa00ee")
                     .packet(2, "01aa01bb01cc00ee").expect(1, "01010003" "01aa01bb01cc00ee"))


@case
def union_stack_field_as_parser_key():
    program = Program("union_stack_field_as_parser_key")
    program.header_type("h1_t", [("last", 8), ("v", 8)])
    program.union_type("u_t", [("h1", "h1_t")])
    pile = program.union_stack("pile", "u_t", 3)
    program.state("start", [extract((pile, "h1"))], [pile.last("h1", "last")],
                  [on(0, "start", digits=2), otherwise(None)])
    report(program, [(f"valid{i}", 8, pile[i]["h1"].valid) for i in range(3)])
    return program, (Stf("the loop ends at the first element whose byte `last` is not 0")
                     .packet(2, "01aaee").expect(1, "010000" "01aaee")
                     .packet(2, "00aa01bbee").expect(1, "010100" "00aa01bbee"))


@refusal("union stack is not supported")
def validity_in_a_union_stack_at_a_run_time_index():
    program, pile = union_stack_program("validity_in_a_union_stack_at_a_run_time_index")
    index = program.scalar("index", 8)
    union = op("dereference_union_stack", pile, index)
    member = Operator({"op": "access_union_header", "left": union.operand(), "right": 0})
    report(program, [("value", 8, access(member, 1)),
                     ("valid", 8, b2d(op("valid", None, member)))], before=[assign(index, 1)])
    return program


@case
def union_stack_is_assigned_whole():
    program, pile = union_stack_program("union_stack_is_assigned_whole")
    copy_of = program.union_stack("copy", "u_t", 2)
    program.ingress.run("assign", add_header(copy_of[1]["h2"]), assign_union_stack(copy_of, pile),
                        to_port(program))
    return program, (Stf("copy is emitted behind the options and their end")
                     .packet(2, "01aa02bbcc00ee").expect(1, "01aa02bbcc00" "01aa02bbcc" "ee")
                     .packet(2, "01aa00ee").expect(1, "01aa00" "01aa" "ee"))
