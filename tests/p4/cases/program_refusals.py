"""Programs that a loader refuses, with text of the error line."""
from cases import refusal
from lab import *


def mark(lab):
    return lab.action("mark", assign(f("t.a"), Data(0)), data=[("v", 8)])


def keyed(*keys, **more):
    p = Lab()
    p.node("pick", list(keys), [mark(p)], **more)
    p.do(out(1))
    return p


def changed(lab, change):
    """The program's JSON after change(root)."""
    root = lab.build()
    change(root)
    return root


def plain():
    p = Lab()
    p.do(out(1))
    return p


@refusal("version 3.0 is not supported: this loader reads bmv2 JSON 2.0 to 2.24")
def version_of_another_major():
    return changed(plain(), lambda root: root["__meta__"].update(version=[3, 0]))


@refusal("table pick: next node nowhere does not exist")
def next_node_does_not_exist():
    p = Lab()
    p.node("pick", [key("exact", f("t.b"))], [mark(p)], next="nowhere")
    return p.refused()


@refusal("nowhere")
def next_node_of_a_conditional_does_not_exist():
    p = plain()
    p.when(f("t.b") == 1, "nowhere")
    return p.refused()


@refusal("late")
def next_node_of_the_other_pipeline():
    """A node of egress cannot follow one of ingress."""
    p = Lab()
    p.do(out(1), next="late")
    p.do(assign(f("t.a"), 1), pipe="egress", name="late")
    return p.refused()


@refusal("no_register")
def register_does_not_exist():
    p = plain()
    p.do(register_write("no_register", 0, 1))
    return p.refused()


@refusal("pick")
def two_tables_of_one_name():
    p = keyed(key("exact", f("t.b")))
    return changed(p, lambda root: root["pipelines"][1]["tables"].append(
        {**root["pipelines"][0]["tables"][0], "id": 9, "base_default_next": None,
         "next_tables": {"mark": None, "NoAction": None}}))


@refusal("pick")
def two_lpm_keys():
    return keyed(key("lpm", f("t.c")), key("lpm", f("t.d"))).refused()


@refusal("table pick is exact but key t.b is ternary")
def table_weaker_than_its_key():
    return keyed(key("ternary", f("t.b")), match_type="exact").refused()


def with_entries(keys, *entries):
    """A table `pick` over these keys with entries of these match keys."""
    p = Lab()
    action = mark(p)
    p.node("pick", list(keys), [action],
           entries=[entry(each, action, [1], place_ + 1) for place_, each in enumerate(entries)])
    return p.refused()


@refusal("start 9 is above end 5")
def entry_with_an_empty_range():
    return with_entries([key("range", f("t.b"))], [range_key(1, 2)], [range_key(9, 5)])


@refusal("table pick, entry")
def entry_with_one_key_of_two():
    return with_entries([key("exact", f("t.b")), key("exact", f("t.c"))], [exact_key(1)])


@refusal("table pick, entry")
def entry_with_a_key_of_another_kind():
    return with_entries([key("exact", f("t.b"))], [lpm_key(1, 8)])


@refusal("table pick, entry")
def entry_with_a_value_too_wide():
    return with_entries([key("exact", f("t.b"))], [exact_key(0x100)])


@refusal("table pick, entry")
def entry_with_a_prefix_too_long():
    return with_entries([key("lpm", f("t.c"))], [lpm_key(0x1234, 17)])


@refusal("table pick, entry")
def entry_that_exists_already():
    return with_entries([key("exact", f("t.b"))], [exact_key(1)], [exact_key(1)])


@refusal("table pick: action take_two takes 2 values, not 1")
def default_action_with_one_value_of_two():
    p = Lab()
    action = p.action("take_two", assign(f("t.a"), Data(0)), assign(f("t.b"), Data(1)),
                      data=[("v", 8), ("w", 8)])
    p.node("pick", [key("exact", f("t.c"))], [action], default=action, default_data=[1])
    return p.refused()


@refusal("pick")
def entry_with_an_action_of_another_table():
    p = Lab()
    first, second = mark(p), p.action("other")
    p.node("pick", [key("exact", f("t.b"))], [first],
           entries=[entry([exact_key(1)], second, [], 1)])
    p.node("more", [key("exact", f("t.b"))], [second])
    return p.refused()


@refusal("pick")
def default_action_of_another_table():
    p = Lab()
    first, second = mark(p), p.action("other")
    p.node("pick", [key("exact", f("t.b"))], [first], default=second)
    return p.refused()


@refusal("action leap: jump to 9, but it has 6 steps")
def jump_behind_the_action():
    p = plain()
    p.node("pick", [key("exact", f("t.b"))], [p.action("leap", jump(9),
                                                       *[assign(f("t.a"), 1)] * 5)])
    return p.refused()


@refusal("cells")
def constant_index_beyond_the_register():
    p = plain()
    p.register("cells", 4, 8)
    p.do(register_write("cells", 4, 1))
    return p.refused()


@refusal("pipeline ingress: pick follows itself")
def table_that_follows_itself():
    p = Lab()
    p.node("pick", [key("exact", f("t.b"))], [mark(p)], next="pick")
    return p.refused()


@refusal("pipeline ingress")
def ring_of_tables_and_conditionals():
    p = Lab()
    p.do(out(1), name="first")
    p.when(f("t.b") == 1, "first")
    return p.refused()


@refusal("table pick: action profile set has no selector")
def selector_table_without_selector():
    p = Lab()
    p.ingress.action_profile("set")
    p.node("pick", [key("exact", f("t.b"))], [mark(p)], kind="indirect_ws", profile="set")
    return p.refused()


@refusal("no_set")
def profile_does_not_exist():
    p = Lab()
    p.node("pick", [key("exact", f("t.b"))], [mark(p)], kind="indirect", profile="no_set")
    return p.refused()


@refusal("register cells")
def register_without_cells():
    p = plain()
    p.register("cells", 0, 8)
    return p.refused()


@refusal("is above the limit")
def register_beyond_the_memory():
    p = plain()
    p.register("cells", 1 << 40, 8)
    return p.refused()


@refusal("table pick")
def table_without_size():
    return keyed(key("exact", f("t.b")), max_size=0).refused()
