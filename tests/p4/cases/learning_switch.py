"""The learning switch of programs/l2_switch.json as a compiled program.

The names are those that @name(".smac"), @name("ethernet.src") and their like give in a P4 source.
tests/endtoend/l2_learning_forms_test.cpp lets the example l2_learning run on it.
"""
from cases import case
from compiled import *
from stf import Stf

ACTION, TABLE, COUNTER, DIGEST = 0x01 << 24, 0x02 << 24, 0x12 << 24, 0x17 << 24
KNOWN, NO_ACTION, FORWARD, FLOOD = (ACTION | number_ for number_ in (1, 2, 3, 4))
FLOOD_GROUP = 1


def preamble(number_, name):
    return f'preamble {{ id: {number_} name: "{name}" alias: "{name}" }}'


def exact(number_, name, width):
    return f'match_fields {{ id: {number_} name: "{name}" bitwidth: {width} match_type: EXACT }}'


def member(name, width):
    return f'members {{ name: "{name}" type_spec {{ bitstring {{ bit {{ bitwidth: {width} }} }} }} }}'


P4INFO = f"""pkg_info {{ name: "l2_switch" arch: "v1model" }}
tables {{ {preamble(TABLE | 1, "smac")} {exact(1, "ethernet.src", 48)}
  {exact(2, "meta.ingress_port", 9)}
  action_refs {{ id: {KNOWN} }} action_refs {{ id: {NO_ACTION} scope: DEFAULT_ONLY }}
  const_default_action_id: {NO_ACTION} size: 65536 idle_timeout_behavior: NOTIFY_CONTROL }}
tables {{ {preamble(TABLE | 2, "dmac")} {exact(1, "ethernet.dst", 48)}
  action_refs {{ id: {FORWARD} }} action_refs {{ id: {FLOOD} }} size: 65536 }}
actions {{ {preamble(KNOWN, "known")} }}
actions {{ {preamble(NO_ACTION, "NoAction")} }}
actions {{ {preamble(FORWARD, "forward")} params {{ id: 1 name: "port" bitwidth: 9 }} }}
actions {{ {preamble(FLOOD, "flood")} }}
counters {{ {preamble(COUNTER | 1, "port_counters")} spec {{ unit: BOTH }} size: 512 }}
digests {{ {preamble(DIGEST | 1, "mac_learn")} type_spec {{ struct {{ name: "mac_learn" }} }} }}
type_info {{ structs {{ key: "mac_learn" value {{ {member("ethernet.src", 48)}
  {member("meta.ingress_port", 9)} }} }} }}
"""


def frame(to, source):
    return f"02000000{to:04x}02000000{source:04x}88b50001"


@case
def l2_switch():
    """A switch that learns by digests, floods by a multicast group and not back to where it came from."""
    p = Program("l2_switch")
    p.header_type("ethernet_t", [("dst", 48), ("src", 48), ("kind", 16)])
    ethernet = p.header("ethernet", "ethernet_t")
    p.state("start", [extract(ethernet)])
    source, port = p.scalar("learn_src", 48), p.scalar("learn_port", 9)
    learn = p.learn_list("mac_learn", [source, port])
    p.counter("port_counters", 512)

    known, nothing = p.action("known"), p.action("NoAction")
    forward = p.action("forward", assign(p.standard["egress_spec"], Data(0)), data=[("port", 9)])
    flood = p.action("flood", assign(p.standard["mcast_grp"], FLOOD_GROUP))

    p.ingress.run("count", count("port_counters", p.standard["ingress_port"]), next="smac")
    p.ingress.table("smac", [key("exact", ethernet["src"], "ethernet.src"),
                             key("exact", p.standard["ingress_port"], "meta.ingress_port")],
                    [known, nothing], next_tables={"__HIT__": "dmac", "__MISS__": "is_unicast"},
                    default=nothing, const_default=True, max_size=65536, support_timeout=True)
    p.ingress.condition("is_unicast", (ethernet["src"] >> 40 & 1) == 0, "tbl_learn", "dmac")
    p.ingress.run("learn", assign(source, ethernet["src"]), assign(port, p.standard["ingress_port"]),
                  generate_digest(learn), next="dmac")
    p.ingress.table("dmac", [key("exact", ethernet["dst"], "ethernet.dst")], [forward, flood],
                    default=flood, max_size=65536)
    p.egress.condition("is_back", p.standard["egress_port"] == p.standard["ingress_port"],
                       "tbl_stay", None)
    p.egress.run("stay", mark_to_drop())

    test = Stf()
    for line in (f"mc_mgrp_create {FLOOD_GROUP}", "mc_node_create 0 1 2 3",
                 f"mc_node_associate {FLOOD_GROUP} 0"):
        test.line(line)
    test.packet(1, frame(2, 1)).expect(2, frame(2, 1)).expect(3, frame(2, 1))
    test.line("add smac ethernet.src:0x020000000001 meta.ingress_port:1 known()")
    test.line("add dmac ethernet.dst:0x020000000001 forward(port:1)")
    test.packet(2, frame(1, 2)).expect(1, frame(1, 2))
    test.packet(1, frame(1, 1))
    test.line("check_counter port_counters(1) packets == 2")
    return p, test, P4INFO
