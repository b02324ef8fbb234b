"""Checks cases of make_cases.py: references inside a program, and the lines of a packet test."""
import json
import re
import sys

HEX = r"[0-9a-fA-F]"
NAME = r"(\"[^\"]+\"|[A-Za-z_$][\w.$\[\]]*)"
NUMBER = r"(\d+|0x[0-9a-fA-F]+|0b[01]+)"
PATTERN = r"(\d+|0x[0-9a-fA-F*]+|0b[01*]+)"
KEY = rf"{NAME}:({PATTERN}(/\d+)?|{NUMBER}->{NUMBER})"
ACTION = rf"({NAME}\(({NAME}:{NUMBER}(\s*,\s*{NAME}:{NUMBER})*)?\)|(member|group)\({NUMBER}\))"
RATE = r"[\d.]+:\d+"

STF_LINES = [re.compile(form + "$", re.IGNORECASE) for form in (
    rf"packet \d+ ({HEX}| )+", rf"expect \d+( ({HEX}|\*| )*\$?)?",
    r"(no_packet|wait|remove all)",
    rf"add {NAME}( {NUMBER})?( {KEY})* {ACTION}( = \w+)?", rf"setdefault {NAME} {ACTION}",
    rf"check_counter {NAME}\(\d+\)( (packets|bytes) (==|!=|<|<=|>|>=) \d+)?",
    r"mirroring_add(_mc)? \d+ \d+", r"mirroring_(delete|get) \d+", r"mc_mgrp_create \d+",
    r"mc_node_create \d+( \d+)*", r"mc_node_update \d+( \d+)*", r"mc_node_associate \d+ \d+",
    rf"counter_read {NAME} \d+", rf"counter_write {NAME} \d+ \d+ \d+",
    rf"register_read {NAME} \d+", rf"register_write {NAME} \d+ {NUMBER}", rf"register_reset {NAME}",
    rf"meter_get_rates {NAME} \d+", rf"meter_set_rates {NAME} \d+( {RATE})+",
    rf"meter_array_set_rates {NAME}( {RATE})+",
    rf"vset_add {NAME} {NUMBER}( &&& {NUMBER})?",
    rf"member {NAME} \d+ {ACTION}", rf"group {NAME} \d+( \d+)+")]

NAMED_ARRAYS = {"register_array": "register_arrays", "counter_array": "counter_arrays",
                "meter_array": "meter_arrays", "calculation": "calculations"}
ROOT_MEMBERS = 25


def report(cases):
    """Prints one line per defect; returns the exit status."""
    defects = [f"{name}: {text}" for name in cases for text in defects_of(cases[name])]
    for line in defects:
        print(line, file=sys.stderr)
    print(f"{len(cases)} cases, {len(defects)} defects")
    return 1 if defects else 0


def defects_of(case):
    if case.refusal is not None:
        return refusal_defects(case)
    if case.stf is None:
        return ["the case has no packet test"]
    defects = References(json.loads(case.text)).defects()
    return defects if case.difference is not None else defects + stf_defects(case.stf)


def refusal_defects(case):
    if not case.refusal.strip():
        return ["the refusal has no words"]
    # An error line that names the file would contain such words whatever the reason is.
    return ["the words of the refusal stand in the name"] if case.refusal in case.name else []


def stf_defects(text):
    defects = []
    expects = 0
    for number, line in enumerate(text.splitlines(), 1):
        line = line.split("#", 1)[0].strip()
        expects += line.lower().startswith(("expect", "packet", "check_counter"))
        if line and not any(form.match(line) for form in STF_LINES):
            defects.append(f"line {number} of the packet test has no known form: {line}")
    return defects if expects else defects + ["the packet test observes nothing"]


class References:
    """Collects each reference of a program that names nothing."""

    def __init__(self, root):
        self.root = root
        self.found = []
        self.types = {each["name"]: each for each in root["header_types"]}
        self.headers = {each["name"]: each["header_type"] for each in root["headers"]}
        self.stacks = {each["name"]: each["header_type"] for each in root["header_stacks"]}
        self.unions = self.names("header_unions")
        self.union_stacks = self.names("header_union_stacks")
        self.actions = {each["id"]: each for each in root["actions"]}
        self.pipelines = {each["name"]: each for each in root["pipelines"]}
        self.nodes = {node["name"] for each in root["pipelines"]
                      for node in each["tables"] + each["conditionals"]}

    def defects(self):
        if len(self.root) != ROOT_MEMBERS:
            self.found.append(f"the root object has {len(self.root)} members")
        for kind in self.root:
            self.unique(kind)
        self.check_headers()
        self.check_parser()
        self.check_pipelines()
        self.check_objects()
        self.walk(self.root, "root")
        return self.found

    def names(self, kind):
        return {each["name"] for each in self.root[kind]}

    def need(self, thing, there, where):
        if thing not in there:
            self.found.append(f"{where}: {thing!r} does not exist")

    def unique(self, kind):
        items = self.root[kind]
        if not isinstance(items, list) or not items or not isinstance(items[0], dict):
            return
        for member in ("name", "id"):
            values = [each[member] for each in items if member in each]
            if len(values) != len(set(values)) and not (kind == "actions" and member == "name"):
                self.found.append(f"{kind}: a {member} exists twice")

    def field(self, target, where):
        header, field = target
        self.need(header, self.headers, where)
        if header in self.headers:
            self.need(field, self.fields_of(self.headers[header]), where)

    def fields_of(self, header_type):
        return {"$valid$"} | {each[0] for each in self.types[header_type]["fields"]}

    def check_headers(self):
        ids = {each["id"] for each in self.root["headers"]}
        for name in self.headers:
            self.need(self.headers[name], self.types, f"header {name}")
        for kind in ("header_stacks", "header_unions"):
            for each in self.root[kind]:
                for identity in each["header_ids"]:
                    self.need(identity, ids, each["name"])
        for each in self.root["field_aliases"]:
            self.field(each[1], each[0])
        for name in self.root["deparsers"][0]["order"]:
            self.need(name, self.headers, "deparser")
        for each in self.types.values():
            widths = [field[1] for field in each["fields"]]
            if "*" not in widths and sum(widths) % 8:
                self.found.append(f"header type {each['name']} is not whole bytes")

    def check_parser(self):
        parser = self.root["parsers"][0]
        states = {each["name"] for each in parser["parse_states"]} | {None}
        self.need(parser["init_state"], states, "parser")
        for state in parser["parse_states"]:
            for each in state["transitions"]:
                self.need(each["next_state"], states, state["name"])
                if each["type"] == "parse_vset":
                    self.need(each["value"], self.names("parse_vsets"), state["name"])
            for each in state["parser_ops"]:
                self.check_place(each, state["name"])

    def check_place(self, operation, where):
        if not operation["op"].startswith("extract"):
            return
        place = operation["parameters"][0]
        if place["type"] == "union_stack":
            self.need(place["value"][0], self.union_stacks, where)
        else:
            known = self.stacks if place["type"] == "stack" else self.headers
            self.need(place["value"], known, where)

    def check_pipelines(self):
        ids = [node["id"] for each in self.pipelines.values() for node in each["tables"]]
        if sorted(ids) != list(range(len(ids))):
            self.found.append("the ids of tables do not count over both pipelines")
        for pipeline in self.pipelines.values():
            nodes = {node["name"] for kind in ("tables", "conditionals") for node in pipeline[kind]}
            nodes.add(None)
            self.need(pipeline["init_table"], nodes, pipeline["name"])
            for each in pipeline["conditionals"]:
                self.need(each["true_next"], nodes, each["name"])
                self.need(each["false_next"], nodes, each["name"])
            for each in pipeline["tables"]:
                profiles = {profile["name"] for profile in pipeline["action_profiles"]}
                self.check_table(each, nodes, profiles)

    def check_table(self, table, nodes, profiles):
        where = f"table {table['name']}"
        for identity, name in zip(table["action_ids"], table["actions"]):
            self.need(identity, self.actions, where)
            if self.actions.get(identity, {}).get("name") != name:
                self.found.append(f"{where}: action {identity} is not {name}")
        self.need(table["base_default_next"], nodes, where)
        for name, node in table["next_tables"].items():
            self.need(node, nodes, where)
            self.need(name, set(table["actions"]) | {"__HIT__", "__MISS__"}, where)
        for each in table["key"]:
            if isinstance(each["target"], list):
                self.field(each["target"], where)
        if "action_profile" in table:
            self.need(table["action_profile"], profiles, where)
        if "default_entry" in table:
            self.check_data(table["default_entry"], table, where)
        for each in table.get("entries", []):
            self.check_data(each["action_entry"], table, where)
            if [key["match_type"] for key in each["match_key"]] != \
                    [key["match_type"] for key in table["key"]]:
                self.found.append(f"{where}: the keys of an entry are not those of the table")

    def check_data(self, call, table, where):
        self.need(call["action_id"], table["action_ids"], where)
        action = self.actions.get(call["action_id"])
        if action and len(action["runtime_data"]) != len(call["action_data"]):
            self.found.append(f"{where}: action {action['name']} has other data")

    def check_objects(self):
        tables = {table["name"] for each in self.pipelines.values() for table in each["tables"]}
        for each in self.root["checksums"]:
            self.field(each["target"], each["name"])
            self.need(each["calculation"], self.names("calculations"), each["name"])
        for kind in ("counter_arrays", "meter_arrays"):
            for each in self.root[kind]:
                if each["is_direct"]:
                    self.need(each["binding"], tables, each["name"])
        for each in self.root["meter_arrays"]:
            if each["is_direct"]:
                self.field(each["result_target"], each["name"])

    def walk(self, value, where):
        """Checks each type-value object, wherever it stands."""
        stack = [(value, where)]
        while stack:
            value, where = stack.pop()
            if isinstance(value, list):
                stack += [(each, where) for each in value]
            if not isinstance(value, dict):
                continue
            where = f"{where}.{value['name']}" if isinstance(value.get("name"), str) else where
            self.check_operand(value, where)
            stack += [(each, where) for each in value.values()]

    def check_operand(self, value, where):
        kind, name = value.get("type"), value.get("value")
        if kind == "field":
            self.field(name, where)
        elif kind == "header" and name is not None:
            self.need(name, self.headers, where)
        elif kind in ("header_stack", "stack"):
            self.need(name, self.stacks, where)
        elif kind == "header_union":
            self.need(name, self.unions, where)
        elif kind == "header_union_stack":
            self.need(name, self.union_stacks, where)
        elif kind == "stack_field":
            self.need(name[0], self.stacks, where)
            if name[0] in self.stacks:
                self.need(name[1], self.fields_of(self.stacks[name[0]]), where)
        elif kind in NAMED_ARRAYS:
            self.need(name, self.names(NAMED_ARRAYS[kind]), where)
