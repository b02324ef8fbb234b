#!/usr/bin/env python3
"""Checks program descriptions against the schema, and that the schema refuses broken ones.

usage: check_schema.py SCHEMA PROGRAM...
"""
import copy
import json
import sys

import jsonschema

DROP = object()  # takes the member out

# What is done to a right description (l2_switch), and must then be refused.
BREAKAGES = [
    (["id"], 0),
    (["id"], 4096),
    (["id"], "1"),
    (["name"], "l2 switch"),
    (["name"], DROP),
    (["control"], DROP),
    (["controls"], []),
    (["fields", 0, "width"], 129),
    (["fields", 0, "width"], 0),
    (["actions", 1, "params", 0, "width"], 16385),
    (["actions", 1, "params", 0, "default"], -1),
    (["actions", 1, "body", 0, "op"], "foward"),
    (["actions", 1, "body", 0, "port"], DROP),
    (["actions", 1, "body", 0, "table"], "smac"),
    (["tables"], []),
    (["tables", 0, "kind"], "macth"),
    (["tables", 0, "kind"], DROP),
    (["tables", 0, "size"], 0),
    (["tables", 0, "size"], 16777217),
    (["tables", 0, "key"], []),
    (["tables", 0, "key", 0, "match"], "lmp"),
    (["tables", 0, "selector"], "groups"),
    (["tables", 0, "action_data"], "members"),  # beside its own actions
    (["tables", 0, "actions"], DROP),
    (["tables", 0, "idle_timout"], True),
    (["tables", 2, "key"], []),
    (["learn", 0, "fields"], ["ethernet.src", "ethernet.src"]),
    (["control", 1, "on_mis"], []),
    (["control", 1, "on_miss", 0, "then"], DROP),
    (["control", 1, "on_miss", 0, "if", "op"], "="),
    (["control", 2], {}),
]


def broken(program, path, value):
    program = copy.deepcopy(program)
    place = program
    for step in path[:-1]:
        place = place[step]
    if value is DROP:
        del place[path[-1]]
    else:
        place[path[-1]] = value
    return program


def main(schema_path, program_paths):
    with open(schema_path, encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)

    failures = 0
    programs = {}
    for path in program_paths:
        with open(path, encoding="utf-8") as file:
            program = json.load(file)
        programs[program["name"]] = program
        for error in validator.iter_errors(program):
            failures += 1
            place = "/".join(str(step) for step in error.absolute_path)
            print(f"{path}: /{place}: {error.message}")

    for path, value in BREAKAGES:
        if validator.is_valid(broken(programs["l2_switch"], path, value)):
            failures += 1
            shown = "taken out" if value is DROP else json.dumps(value)
            print(f"the schema lets pass: {path} {shown}")

    print(f"{len(programs)} programs, {len(BREAKAGES)} broken ones, {failures} failures")
    return 1 if failures or not programs else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
