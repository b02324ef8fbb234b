#!/usr/bin/env python3
"""Writes compiled programs that differ in one number only: growing_programs.py OUT_DIR

tables_N.json: N tables, one behind the other, that a packet hits by its 48-bit destination.
headers_N.json: N headers of 4 bytes behind the first one, that a packet has and leaves with.
All send packets to port 2.
"""
import os
import json
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "p4"))

from compiled import *  # noqa: E402,F403

NUMBERS = (1, 2, 4, 8, 16, 32)
DESTINATION = 0x020000000001
PORT = 2


def program(name, headers, tables):
    p = Program(name)
    p.header_type("eth_t", [("dst", 48), ("src", 48), ("kind", 16)])
    p.header_type("part_t", [("a", 24), ("b", 8)])
    eth = p.header("eth", "eth_t")
    names = [f"part_{i}" for i in range(headers)]
    for each in names:
        p.header(each, "part_t")
    p.scalar("found", 16)
    states = ["start"] + names
    for i, state in enumerate(states):
        last = i + 1 == len(states)
        p.state(state, [extract(eth if i == 0 else Header(state))],
                transitions=[otherwise(None if last else states[i + 1])])
    found = p.action("found", assign(Field("scalars", "found"), Data(0)), data=[("value", 16)])
    for i in range(tables):
        p.ingress.table(f"table_{i}", [key("exact", eth["dst"])], [found],
                        next=f"table_{i + 1}" if i + 1 < tables else "tbl_send",
                        entries=[entry([exact_key(DESTINATION)], found, [i])])
    p.ingress.run("send", assign(p.standard["egress_spec"], PORT))
    return p.build()


def main():
    folder = sys.argv[1]
    os.makedirs(folder, exist_ok=True)
    made = {f"tables_{n}": (0, n) for n in NUMBERS}
    made.update({f"headers_{n}": (n, 0) for n in NUMBERS})
    for name, (headers, tables) in made.items():
        with open(os.path.join(folder, name + ".json"), "w", encoding="utf-8") as file:
            json.dump(program(name, headers, tables), file, indent=1)


main()
