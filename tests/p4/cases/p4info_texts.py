"""Packet tests of programs with a P4Info text: what the text may look like, and what it changes.

A name, id or kind that is read wrongly gives a P4Info that does not fit the program, which is refused.
"""
from cases import case, fails, refusal
from lab import *

TABLE, ACTION, SET, CONTROLLER, PROFILE = 0x02, 0x01, 0x03, 0x04, 0x11
COUNTER, DIRECT_COUNTER, METER, DIRECT_METER, REGISTER, DIGEST = 0x12, 0x13, 0x14, 0x15, 0x16, 0x17

MARK, NO_ACTION, PICK = ACTION << 24 | 1, ACTION << 24 | 2, TABLE << 24 | 1

ACTIONS = f"""
actions {{ preamble {{ id: {MARK} name: "C.mark" alias: "mark" }} params {{ id: 1 name: "v" bitwidth: 8 }} }}
actions {{ preamble {{ id: {NO_ACTION} name: "NoAction" alias: "NoAction" }} }}
"""


def pick_lab(*keys, **more):
    """A table C.pick whose action C.mark(v) writes t.a; packets leave on port 1."""
    p = Lab()
    action = p.action("C.mark", assign(f("t.a"), Data(0)), data=[("v", 8)])
    if "entries" in more:
        more["entries"] = [entry(*each, action, [value], place + 1)
                           for place, (each, value) in enumerate(more["entries"])]
    p.node("C.pick", list(keys), [action], **more)
    p.do(out(1))
    return p


def preamble(number_, name):
    return f'preamble {{ id: {number_} name: "{name}" alias: "{name.rpartition(".")[2]}" }}'


def match(number_, name, width, kind):
    return f'match_fields {{ id: {number_} name: "{name}" bitwidth: {width} match_type: {kind} }}'


def table(*fields, number_=PICK, name="C.pick", refs=(MARK, NO_ACTION), size=1024):
    """The text of a table. A table with the default keys has one: t.b, exact."""
    fields = fields or (match(1, "t.b", 8, "EXACT"),)
    references = " ".join(f"action_refs {{ id: {each} }}" for each in refs)
    return f"tables {{ {preamble(number_, name)} {' '.join(fields)} {references} size: {size} }}\n"


HITS = ["add pick t.b:1 mark(v:7)", packet(1, t(b=1)), expect(1, t(a=7, b=1)), *same(1, t(b=2), 1)]


@case
def p4info_plain():
    """A P4Info text in the usual form."""
    return pick_lab(key("exact", f("t.b"))).test(
        HITS, p4info='pkg_info { name: "lab" arch: "v1model" }\n' + table() + ACTIONS)


@case
def p4info_comments_and_braces():
    """Comments, <...> and {...}, a colon before a block, and separators that may be there or not."""
    return pick_lab(key("exact", f("t.b"))).test(HITS, p4info=f"""# tables {{ preamble
tables: <   # a block in other braces
  preamble: {{ id: {PICK}, name: "C.pick"; alias: 'pick' }};
  match_fields <id:1;name:"t.b",bitwidth:8 match_type:EXACT>,
  action_refs {{ id: {MARK} }} action_refs: < id: {NO_ACTION} >
  size: 1024
>
{ACTIONS}# the end without a line end""")


@case
def p4info_lists():
    """Repetition by lists of blocks and of numbers, and by repeating the name."""
    p = Lab()
    p.ingress.action_profile("C.set")
    action = p.action("C.mark", assign(f("t.a"), Data(0)), data=[("v", 8)])
    for name in ("C.pick", "C.second"):
        p.node(name, [key("exact", f("t.b"))], [action, p.no_action()], kind="indirect",
               profile="C.set")
    p.do(out(1))
    second, members = PICK + 1, PROFILE << 24 | 5
    fields = f'match_fields: [ {{ id: 1 name: "t.b" bitwidth: 8 match_type: EXACT }} ]'
    refs = f"action_refs: [ {{ id: {MARK} }}, < id: {NO_ACTION} > ] implementation_id: {members} size: 1024"
    return p.test("member set 1 mark(v:7)", "add C.pick t.b:1 member(1)", packet(1, t(b=1)),
                  expect(1, t(a=7, b=1)),
                  "add second t.b:2 member(1)", packet(1, t(b=2)), expect(1, t(a=7, b=2)), p4info=f"""
tables: [
  {{ {preamble(PICK, "C.pick")} {fields} {refs} }},
  {{ {preamble(second, "C.second")} {fields} {refs} direct_resource_ids: [] }}
]
action_profiles {{ {preamble(members, "C.set")} table_ids: [{PICK}, {second}] size: 1024 }}
{ACTIONS}""")


@case
def p4info_strings():
    """Neighbouring strings are joined; escapes are octal, hexadecimal and letters, in both kinds of quotes."""
    return pick_lab(key("exact", f("t.b"))).test(HITS, p4info=f"""
tables {{
  preamble {{ id: {PICK} name: "C." 'p' "\\151\\x63" # joined over a comment
    "k" alias: "\\"\\'\\\\\\n\\t" annotations: "@name(\\"C.pick\\")" annotations: '@other' doc {{ brief: "a }} b" }} }}
  match_fields {{ id: 1 name: '\\164.\\x62' bitwidth: 8 match_type: EXACT }}
  action_refs {{ id: {MARK} }} action_refs {{ id: {NO_ACTION} }} size: 1024
}}
{ACTIONS}""")


@case
def p4info_numbers():
    """Integers are decimal, hexadecimal or octal; enums are names or numbers."""
    return pick_lab(key("exact", f("t.b")), key("lpm", f("t.d"))).test(
        "add pick t.b:1 t.d:0x0a000000/8 mark(v:7)", packet(1, t(b=1, d=0x0a010203)),
        expect(1, t(a=7, b=1, d=0x0a010203)), p4info=f"""
tables {{ {preamble(f"0{PICK:o}", "C.pick")}
  match_fields {{ id: 0x1 name: "t.b" bitwidth: 010 match_type: 2 }}
  match_fields {{ id: 02 name: "t.d" bitwidth: 0x20 match_type: 0x3 }}
  action_refs {{ id: {MARK:#x} scope: 0 }} action_refs {{ id: {NO_ACTION} scope: DEFAULT_ONLY }} size: 02000
  idle_timeout_behavior: 0 is_const_table: false has_initial_entries: false }}
{ACTIONS}""")


@case
def p4info_unknown_fields():
    """Fields that are not known are skipped with their blocks, lists and strings, on every level."""
    return pick_lab(key("exact", f("t.b"))).test(HITS, p4info=f"""
future_thing {{ a: 1 b {{ c: "}}" d: [1, 2, {{ e: 'x' }}] }} f < g: -1 > h: 1.5e3 i: some_name }}
tables {{ {preamble(PICK, "C.pick")} {match(1, "t.b", 8, "EXACT")} future: [ "a", "b" ]
  action_refs {{ id: {MARK} }} action_refs {{ id: {NO_ACTION} new_field: true }} size: 1024
  other_properties {{ [type.url/some.Name] {{ x: 1 y {{ z: "]" }} }} }} }}
{ACTIONS}
another: "text" ' more' ;
""")


@case
def p4info_empty():
    """An empty text knows no table: a program without tables of its own fits it."""
    p = Lab()
    p.do(out(1))
    return p.test(same(1, t(), 1), p4info="# nothing\n")


@case
def p4info_optional_key():
    """A key that only P4Info calls optional: left out it matches everything, else one value."""
    p = pick_lab(key("ternary", f("t.b")), key("exact", f("t.c")))
    return p.test("add pick 10 t.b:0x05 t.c:1 mark(v:1)", "add pick 5 t.c:1 mark(v:2)",
                  packet(1, t(b=5, c=1)), expect(1, t(a=1, b=5, c=1)), packet(1, t(b=6, c=1)),
                  expect(1, t(a=2, b=6, c=1)),
                  same(1, t(b=5, c=2), 1),
                  p4info=table(match(1, "t.b", 8, "OPTIONAL"),
                               match(2, "t.c", 16, "EXACT")) + ACTIONS)


@case
def p4info_optional_key_by_number():
    """OPTIONAL as the number 6."""
    p = pick_lab(key("ternary", f("t.b")))
    return p.test("add pick 10 t.b:0x05 mark(v:1)", "add pick 5 mark(v:2)", packet(1, t(b=5)),
                  expect(1, t(a=1, b=5)),
                  packet(1, t(b=6)), expect(1, t(a=2, b=6)),
                  p4info=table(match(1, "t.b", 8, 6)) + ACTIONS)


@case
def p4info_ids_that_are_not_positions():
    """Ids of keys need not count from 1, nor need those of parameters."""
    p = Lab()
    action = p.action("C.mark", assign(f("t.a"), Data(0)), assign(f("t.c"), Data(1)),
                      data=[("v", 8), ("w", 16)])
    p.node("C.pick", [key("exact", f("t.b")), key("exact", f("t.d")), key("exact", f("t.op"))],
           [action])
    p.do(out(1))
    return p.test("add pick t.op:3 t.b:1 t.d:2 mark(w:0x222, v:0x11)", packet(1, t(op=3, b=1, d=2)),
                  expect(1, t(op=3, a=0x11, b=1, c=0x222, d=2)), p4info=f"""
tables {{ {preamble(PICK, "C.pick")} {match(9, "t.b", 8, "EXACT")} {match(5, "t.d", 32, "EXACT")} {match(1, "t.op", 8, "EXACT")}
  action_refs {{ id: {MARK} }} action_refs {{ id: {NO_ACTION} }} size: 1024 }}
actions {{ {preamble(MARK, "C.mark")} params {{ id: 7 name: "v" bitwidth: 8 }} params {{ id: 2 name: "w" bitwidth: 16 }} }}
actions {{ {preamble(NO_ACTION, "NoAction")} }}
""")


@case
def p4info_translated_width():
    """With a type_name the width of P4Info may be another than the program's."""
    return pick_lab(key("exact", f("t.b"))).test(HITS, p4info=f"""
tables {{ {preamble(PICK, "C.pick")}
  match_fields {{ id: 1 name: "t.b" bitwidth: 32 match_type: EXACT type_name {{ name: "port_id_t" }} }}
  action_refs {{ id: {MARK} }} action_refs {{ id: {NO_ACTION} }} size: 1024 }}
{ACTIONS}
type_info {{ new_types {{ key: "port_id_t" value {{ translated_type {{ uri: "" sdn_bitwidth: 32 }} }} }} }}
""")


@case
def p4info_entries_that_may_change():
    """has_initial_entries without is_const_table: entries of the program to which more are added."""
    p = pick_lab(key("exact", f("t.b")), entries=[([[exact_key(1)]], 0x11)])
    text = table(size=1024).replace("size:", "has_initial_entries: true size:")
    return p.test(packet(1, t(b=1)), expect(1, t(a=0x11, b=1)), same(1, t(b=2), 1),
                  "add pick t.b:2 mark(v:0x22)",
                  packet(1, t(b=2)), expect(1, t(a=0x22, b=2)), p4info=text + ACTIONS)


@fails("table C.pick: its entries are those of the program")
def p4info_constant_entries():
    p = pick_lab(key("exact", f("t.b")), entries=[([[exact_key(1)]], 0x11)])
    text = table(size=1024).replace("size:", "is_const_table: true has_initial_entries: true size:")
    return p.test("add pick t.b:2 mark(v:0x22)", packet(1, t()), expect(1, t()),
                  p4info=text + ACTIONS)


@case
def p4info_of_stateful_objects():
    """Counters, meters, registers, digests, value sets and packet headers stand beside tables."""
    p = pick_lab(key("exact", f("t.b")), with_counters=True)
    p.direct_counter("C.pick_hits", "C.pick")
    p.counter("C.seen", 4)
    p.meter("C.police", 4, "packets")
    p.register("C.cells", 4, 16)
    p.scalar("d0", 8)
    p.scalar("d1", 9)
    p.learn_list("learn_t", [user("d0"), user("d1")])
    p.learn_list("tuple_0", [user("d0")])
    p.value_set("P.kinds", 16)
    def bits(width):
        return f"bitstring {{ bit {{ bitwidth: {width} }} }}"
    text = table().replace("size:", f"direct_resource_ids: {DIRECT_COUNTER << 24 | 1} size:") + ACTIONS + f"""
direct_counters {{ {preamble(DIRECT_COUNTER << 24 | 1, "C.pick_hits")} spec {{ unit: BOTH }} direct_table_id: {PICK} }}
counters {{ {preamble(COUNTER << 24 | 1, "C.seen")} spec {{ unit: PACKETS }} size: 4 }}
meters {{ {preamble(METER << 24 | 1, "C.police")} spec {{ unit: PACKETS type: TWO_RATE_THREE_COLOR }} size: 4 }}
registers {{ {preamble(REGISTER << 24 | 1, "C.cells")} type_spec {{ {bits(16)} }} size: 4 }}
digests {{ {preamble(DIGEST << 24 | 1, "learn_t")} type_spec {{ struct {{ name: "learn_t" }} }} }}
digests {{ {preamble(DIGEST << 24 | 2, "digest_0")} type_spec {{ tuple {{ members {{ {bits(8)} }} }} }} }}
value_sets {{ {preamble(SET << 24 | 1, "P.kinds")} {match(1, "t.c", 16, "EXACT").replace("match_fields", "match")} size: 8 }}
controller_packet_metadata {{ {preamble(CONTROLLER << 24 | 1, "packet_in")} metadata {{ id: 1 name: "port" bitwidth: 9 }} }}
type_info {{ structs {{ key: "learn_t" value {{
  members {{ name: "mac" type_spec {{ {bits(8)} }} }} members {{ name: "port" type_spec {{ {bits(9)} }} }} }} }} }}
"""
    return p.test(HITS, "check_counter C.seen(0) packets == 0", p4info=text)


@case
def p4info_size_with_entries_of_the_program():
    """A table with entries has their number as its size in the program, and another one in P4Info."""
    p = pick_lab(key("ternary", f("t.b")), entries=[([[ternary_key(1, 0xff)]], 1),
                                                    ([[ternary_key(0, 0)]], 2)])
    text = table(match(1, "t.b", 8, "TERNARY"), size=64).replace("size:",
                                                                 "is_const_table: true has_initial_entries: true size:")
    return p.test(packet(1, t(b=1)), expect(1, t(a=1, b=1)), packet(1, t(b=3)),
                  expect(1, t(a=2, b=3)), p4info=text + ACTIONS)


def exact_lab():
    return pick_lab(key("exact", f("t.b")))


@refusal("P4Info table C.other has no counterpart in the program")
def p4info_table_without_counterpart():
    return exact_lab().refused(p4info=table() + table(number_=PICK + 1, name="C.other") + ACTIONS)


@refusal("C.pick")
def p4info_id_of_another_kind():
    return exact_lab().refused(p4info=table(number_=COUNTER << 24 | 1) + ACTIONS)


@refusal("C.second")
def p4info_id_twice():
    """The same id, once decimal and once octal."""
    p = exact_lab()
    p.node("C.second", [key("exact", f("t.b"))], ["C.mark", "NoAction"], default="NoAction")
    return p.refused(p4info=table() + table(number_=f"0{PICK:o}", name="C.second") + ACTIONS)


@refusal("C.pick")
def p4info_action_reference_to_nothing():
    return exact_lab().refused(p4info=table(refs=(MARK, ACTION << 24 | 77)) + ACTIONS)


@refusal("C.pick")
def p4info_profile_reference_to_nothing():
    return exact_lab().refused(p4info=table().replace("size:",
                                                      f"implementation_id: {PROFILE << 24 | 3} size:") + ACTIONS)


@refusal("t.b")
def p4info_key_of_another_width():
    return exact_lab().refused(p4info=table(match(1, "t.b", 9, "EXACT")) + ACTIONS)


@refusal("C.mark")
def p4info_parameter_of_another_width():
    return exact_lab().refused(p4info=table() + ACTIONS.replace("bitwidth: 8", "bitwidth: 16"))


@refusal("table C.pick: key t.b has no width (text keys are not supported)")
def p4info_key_without_width():
    text = 'match_fields { id: 1 name: "t.b" match_type: EXACT type_name { name: "name_t" } }'
    return exact_lab().refused(p4info=table(text) + ACTIONS)


@refusal("t.b")
def p4info_other_match_type():
    text = 'match_fields { id: 1 name: "t.b" bitwidth: 8 other_match_type: "fuzzy" }'
    return exact_lab().refused(p4info=table(text) + ACTIONS)


@refusal("t.b")
def p4info_key_of_another_kind():
    return exact_lab().refused(p4info=table(match(1, "t.b", 8, "LPM")) + ACTIONS)


@refusal("t.z")
def p4info_key_without_counterpart():
    return exact_lab().refused(p4info=table(match(1, "t.z", 8, "EXACT")) + ACTIONS)


@refusal("C.nothing")
def p4info_counter_without_counterpart():
    return exact_lab().refused(p4info=table() + ACTIONS + f"counters {{ {preamble(COUNTER << 24 | 9, 'C.nothing')} size: 4 }}\n")


@refusal("learn_t")
def p4info_digest_of_another_shape():
    """The digest's struct has one member, the program's list two."""
    p = exact_lab()
    p.learn_list("learn_t", [f("t.b"), f("t.c")])
    return p.refused(p4info=table() + ACTIONS + f"""
digests {{ {preamble(DIGEST << 24 | 1, "learn_t")} type_spec {{ struct {{ name: "learn_t" }} }} }}
type_info {{ structs {{ key: "learn_t" value {{ members {{ name: "mac" type_spec {{ bitstring {{ bit {{ bitwidth: 8 }} }} }} }} }} }} }}
""")


@refusal("p4info.txtpb")
def p4info_block_without_end():
    return exact_lab().refused(p4info=table().rstrip()[:-1] + ACTIONS)


@refusal("p4info.txtpb")
def p4info_string_without_end():
    return exact_lab().refused(p4info=table().replace('"t.b"', '"t.b') + ACTIONS)


@refusal("p4info.txtpb")
def p4info_braces_of_two_kinds():
    return exact_lab().refused(p4info="pkg_info { name: \"lab\" >\n" + table() + ACTIONS)


@refusal("EXACTLY")
def p4info_unknown_enum_name():
    return exact_lab().refused(p4info=table(match(1, "t.b", 8, "EXACTLY")) + ACTIONS)
