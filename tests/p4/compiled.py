"""Builds compiled P4 programs: the JSON that the open P4 compiler writes for v1model.

A test describes a program with the class Program and with the functions of this module, which build
expressions, primitives of actions, and operations of parser states:

    program = Program("swap")
    program.header_type("pair_t", [("a", 8), ("b", 8)])
    pair = program.header("pair", "pair_t")
    program.state("start", [extract(pair)])
    program.ingress.run("swap", assign(pair["a"], pair["b"] + 1))

build() returns the JSON's root object. Nothing here checks the program: tests of refusals write
broken ones. make_cases.py --check checks the rest.
"""
import copy

VERSION = (2, 23)

STANDARD_ERRORS = ("NoError", "PacketTooShort", "NoMatch", "StackOutOfBounds", "HeaderTooShort",
                   "ParserTimeout", "ParserInvalidArgument")

STANDARD_METADATA = (
    ("ingress_port", 9), ("egress_spec", 9), ("egress_port", 9), ("instance_type", 32),
    ("packet_length", 32), ("enq_timestamp", 32), ("enq_qdepth", 19), ("deq_timedelta", 32),
    ("deq_qdepth", 19), ("ingress_global_timestamp", 48), ("egress_global_timestamp", 48),
    ("mcast_grp", 16), ("egress_rid", 16), ("checksum_error", 1), ("parser_error", 32),
    ("priority", 3), ("_padding", 3))

FIELD_ALIASES = (
    ("queueing_metadata.enq_timestamp", "enq_timestamp"),
    ("queueing_metadata.enq_qdepth", "enq_qdepth"),
    ("queueing_metadata.deq_timedelta", "deq_timedelta"),
    ("queueing_metadata.deq_qdepth", "deq_qdepth"),
    ("intrinsic_metadata.ingress_global_timestamp", "ingress_global_timestamp"),
    ("intrinsic_metadata.egress_global_timestamp", "egress_global_timestamp"),
    ("intrinsic_metadata.mcast_grp", "mcast_grp"),
    ("intrinsic_metadata.egress_rid", "egress_rid"),
    ("intrinsic_metadata.priority", "priority"))

DROP_PORT = 511


# Expressions


def hexstr(value, digits=0):
    """A number as text: "0x" and at least the given count of digits, with a "-" for negatives."""
    return f"{'-' if value < 0 else ''}0x{abs(value):0{digits}x}"


class Expr:
    """A type-value object. Operators combine expressions, integers and booleans to new ones.

    Comparisons build expressions too, so `==` never compares two objects of this class.
    """

    def __init__(self, kind, value):
        self.kind = kind
        self.value = value

    def operand(self):
        """The object as an operand inside another expression."""
        return {"type": self.kind, "value": self.value}

    def parameter(self):
        """The object as a parameter of a primitive or of a parser operation."""
        return self.operand()

    def __add__(self, other): return op("+", self, other)
    def __radd__(self, other): return op("+", other, self)
    def __sub__(self, other): return op("-", self, other)
    def __rsub__(self, other): return op("-", other, self)
    def __mul__(self, other): return op("*", self, other)
    def __rmul__(self, other): return op("*", other, self)
    def __truediv__(self, other): return op("/", self, other)
    def __rtruediv__(self, other): return op("/", other, self)
    def __mod__(self, other): return op("%", self, other)
    def __rmod__(self, other): return op("%", other, self)
    def __lshift__(self, other): return op("<<", self, other)
    def __rlshift__(self, other): return op("<<", other, self)
    def __rshift__(self, other): return op(">>", self, other)
    def __rrshift__(self, other): return op(">>", other, self)
    def __and__(self, other): return op("&", self, other)
    def __rand__(self, other): return op("&", other, self)
    def __or__(self, other): return op("|", self, other)
    def __ror__(self, other): return op("|", other, self)
    def __xor__(self, other): return op("^", self, other)
    def __rxor__(self, other): return op("^", other, self)
    def __invert__(self): return op("~", None, self)
    def __eq__(self, other): return op("==", self, other)
    def __ne__(self, other): return op("!=", self, other)
    def __lt__(self, other): return op("<", self, other)
    def __le__(self, other): return op("<=", self, other)
    def __gt__(self, other): return op(">", self, other)
    def __ge__(self, other): return op(">=", self, other)
    __hash__ = None

    def __bool__(self):
        raise TypeError("an expression of a P4 program has no value here")


class Operator(Expr):
    """An operator object, {"op": ..., "left": ..., "right": ...}."""

    def __init__(self, value):
        super().__init__("expression", value)

    def parameter(self):
        # The compiler wraps the expressions of parameters twice.
        return {"type": "expression", "value": self.operand()}


class Data(Expr):
    """A parameter of an action, by its index in the action's runtime data."""

    def __init__(self, index):
        super().__init__("runtime_data", index)

    def operand(self):
        return {"type": "local", "value": self.value}

    def parameter(self):
        return {"type": "runtime_data", "value": self.value}


class Field(Expr):
    """A field of a header; target is [header name, field name]."""

    def __init__(self, header, field):
        super().__init__("field", [header, field])

    @property
    def target(self):
        return list(self.value)


class Header(Expr):
    """A header by its name. header["f"] is a field; as an operand it is the header itself."""

    def __init__(self, name):
        super().__init__("header", name)
        self.name = name

    def __getitem__(self, field):
        return Field(self.name, field)

    @property
    def valid(self):
        """The hidden field of one bit."""
        return Field(self.name, "$valid$")

    def is_valid(self):
        """The boolean expression that the compiler writes for isValid()."""
        return d2b(self.valid)


class Stack(Expr):
    """A header stack. stack[i] is the element's header."""

    def __init__(self, name):
        super().__init__("header_stack", name)
        self.name = name

    def __getitem__(self, index):
        return Header(f"{self.name}[{index}]")

    def last(self, field):
        """The field of the last element, for parser keys and operands."""
        return Expr("stack_field", [self.name, field])

    def at(self, index):
        """The element at an index that is known at run time only."""
        return op("dereference_header_stack", self, index)


class Union(Expr):
    """A header union. union["m"] is the member's header."""

    def __init__(self, name):
        super().__init__("header_union", name)
        self.name = name

    def __getitem__(self, member):
        return Header(f"{self.name}.{member}")


class UnionStack(Expr):
    """A stack of header unions. stack[i] is a union."""

    def __init__(self, name):
        super().__init__("header_union_stack", name)
        self.name = name

    def __getitem__(self, index):
        return Union(f"{self.name}[{index}]")

    def last(self, member, field):
        return Expr("union_stack_field", [self.name, member, field])


def number(value, width=0):
    """A constant; `width` bits give the count of digits."""
    return Expr("hexstr", hexstr(value, (width + 3) // 4))


def boolean(value):
    return Expr("bool", value)


def lookahead(offset, width):
    """`width` bits of the packet, `offset` bits after the parser's place. In parser states only."""
    return Expr("lookahead", [offset, width])


def register_cell(array, index):
    """A register's cell as an operand."""
    return Expr("register", [array, to_expr(index).parameter()])


def to_expr(value):
    if isinstance(value, Expr):
        return value
    return boolean(value) if isinstance(value, bool) else number(value)


def op(name, left, right, **more):
    """An operator object; `left` is None for unary operators."""
    def side(value):
        return None if value is None else to_expr(value).operand()
    value = {"op": name, "left": side(left), "right": side(right)}
    value.update({key: side(more[key]) for key in more})
    return Operator(value)


def d2b(value): return op("d2b", None, value)
def b2d(value): return op("b2d", None, value)
def both(left, right): return op("and", left, right)
def either(left, right): return op("or", left, right)
def negate(value): return op("not", None, value)
def choose(condition, yes, no): return op("?", yes, no, cond=condition)
def two_comp_mod(value, width): return op("two_comp_mod", value, width)
def usat_cast(value, width): return op("usat_cast", value, width)
def sat_cast(value, width): return op("sat_cast", value, width)
def last_index(stack): return op("last_stack_index", None, stack)
def stack_size(stack): return op("size_stack", None, stack)


def access(header, index):
    """Field number `index` of a header expression; the number is plain in the JSON."""
    return Operator({"op": "access_field", "left": header.operand(), "right": index})


def wrapped(value, times=1):
    """The same expression with `times` more layers of "expression" around it."""
    layers = to_expr(value).operand()
    for _ in range(times):
        layers = {"type": "expression", "value": layers}
    return Expr(layers["type"], layers["value"])


# Primitives of actions


def primitive(name, *parameters):
    """Any primitive. A parameter is an expression, an integer, a boolean, or a JSON object."""
    return {"op": name, "parameters": [as_parameter(each) for each in parameters]}


def as_parameter(value):
    return value if isinstance(value, dict) else to_expr(value).parameter()


def named(kind, name):
    """An operand that names an object: register_array, counter_array, meter_array, calculation."""
    return Expr(kind, name)


def assign(to, value): return primitive("assign", to, value)
def assign_varbit(to, value): return primitive("assign_VL", to, value)
def assign_header(to, value): return primitive("assign_header", to, value)
def assign_stack(to, value): return primitive("assign_header_stack", to, value)
def assign_union(to, value): return primitive("assign_union", to, value)
def assign_union_stack(to, value): return primitive("assign_union_stack", to, value)
def add_header(header): return primitive("add_header", header)
def remove_header(header): return primitive("remove_header", header)
def push(stack, count): return primitive("push", stack, count)
def pop(stack, count): return primitive("pop", stack, count)
def jump(index): return primitive("_jump", index)
def jump_if_zero(value, index): return primitive("_jump_if_zero", value, index)
def exit_pipeline(): return primitive("exit")


def mark_to_drop(header=Header("standard_metadata")):
    """`header` is the standard metadata or a header of the same type."""
    return primitive("mark_to_drop", header)


def hash_into(to, base, calculation, maximum):
    return primitive("modify_field_with_hash_based_offset", to, base,
                     named("calculation", calculation), maximum)


def random_into(to, low, high): return primitive("modify_field_rng_uniform", to, low, high)


def register_read(to, array, index):
    return primitive("register_read", to, named("register_array", array), index)


def register_write(array, index, value):
    return primitive("register_write", named("register_array", array), index, value)


def count(array, index): return primitive("count", named("counter_array", array), index)


def execute_meter(array, index, to):
    return primitive("execute_meter", named("meter_array", array), index, to)


def generate_digest(list_id, receiver=0):
    return primitive("generate_digest", number(receiver, 32), list_id)


def clone_ingress(session, list_id):
    return primitive("clone_ingress_pkt_to_egress", session, list_id)


def clone_egress(session, list_id): return primitive("clone_egress_pkt_to_egress", session, list_id)
def resubmit(list_id): return primitive("resubmit", list_id)
def recirculate(list_id): return primitive("recirculate", list_id)
def truncate(length): return primitive("truncate", length)


def log_msg(text, *values):
    """The compiler writes {} in place of an empty list of values."""
    vector = [to_expr(each).parameter() for each in values] or {}
    return primitive("log_msg", Expr("string", text), Expr("parameters_vector", vector))


def assert_true(condition): return primitive("assert", b2d(condition))
def assume_true(condition): return primitive("assume", b2d(condition))


# Operations and transitions of parser states


def place(target):
    """Where an extraction goes: a header, a stack's next element, or [union stack, member]."""
    if isinstance(target, Stack):
        return {"type": "stack", "value": target.name}
    if isinstance(target, (tuple, list)):
        return {"type": "union_stack", "value": [target[0].name, target[1]]}
    return {"type": "regular", "value": target.name}


def parser_op(name, *parameters):
    return {"parameters": [as_parameter(each) for each in parameters], "op": name}


def extract(target): return parser_op("extract", place(target))


def extract_varbit(target, bits):
    """The varbit's length is in bits."""
    return parser_op("extract_VL", place(target), wrapped(bits))


def set_field(to, value): return parser_op("set", to, value)
def advance(bits): return parser_op("advance", bits)


def verify(condition, error):
    """`error` is the number of the error, or an expression."""
    return {"parameters": [to_expr(condition).operand(), as_parameter(error)], "op": "verify"}


def parser_primitive(inner):
    """A primitive of actions in a parser state."""
    return {"parameters": [inner], "op": "primitive"}


def on(value, next_state, mask=None, digits=0):
    """A transition on a value of the padded key, given as a number or as text."""
    def text(each):
        return hexstr(each, digits) if isinstance(each, int) else each
    return {"type": "hexstr", "value": text(value), "mask": text(mask), "next_state": next_state}


def on_set(value_set, next_state, mask=None):
    return {"type": "parse_vset", "value": value_set, "mask": mask, "next_state": next_state}


def otherwise(next_state):
    return {"type": "default", "value": None, "mask": None, "next_state": next_state}


# Keys and entries of tables


def key(match_type, target, name=None, mask=None):
    """A key on a field or on an expression (a dynamic stack element). mask: a number or None."""
    result = {"match_type": match_type}
    if isinstance(target, Field):
        result["name"] = name or ".".join(target.target)
        result["target"] = target.target
    else:
        result["name"] = name
        result["target"] = target.operand()
    result["mask"] = None if mask is None else hexstr(mask)
    if name == "":
        del result["name"]
    return result


def exact_key(value): return {"match_type": "exact", "key": hexstr(value)}


def lpm_key(value, length):
    return {"match_type": "lpm", "key": hexstr(value), "prefix_length": length}


def ternary_key(value, mask):
    return {"match_type": "ternary", "key": hexstr(value), "mask": hexstr(mask)}


def range_key(low, high): return {"match_type": "range", "start": hexstr(low), "end": hexstr(high)}
def valid_key(value): return {"match_type": "valid", "key": value}


# Programs


class Pipeline:
    """The ingress or the egress of a program. Nodes are tables and conditionals, by name.

    The first node that is added is the pipeline's start; begin_at() names another one.
    """

    def __init__(self, program, name, number_):
        self.program = program
        self.json = {"name": name, "id": number_, "init_table": None, "tables": [],
                     "action_profiles": [], "conditionals": []}

    def begin_at(self, node):
        self.json["init_table"] = node

    def _add(self, kind, node):
        if not self.json["tables"] and not self.json["conditionals"]:
            self.json["init_table"] = node["name"]
        self.json[kind].append(node)
        return node["name"]

    def run(self, name, *primitives, next=None):
        """A keyless helper table `tbl_NAME` that runs these primitives; returns its name."""
        action = self.program.action(name, *primitives)
        return self.table(f"tbl_{name}", [], [action], next=next, default=action,
                          const_default=True)

    def sequence(self, *steps):
        """Keyless helper tables in a row; a step is (name, primitive, ...)."""
        names = [f"tbl_{step[0]}" for step in steps] + [None]
        for index, step in enumerate(steps):
            self.run(*step, next=names[index + 1])
        return names[0]

    def table(self, name, keys, actions, next=None, next_tables=None, default=None, default_data=(),
              const_default=False, match_type=None, kind="simple", profile=None, max_size=1024,
              entries=None, with_counters=False, support_timeout=False, direct_meters=None):
        """A table; returns its name.

        `actions` are names or ids as action() returns them; `default` is one of these. `next` is
        the node after every action; `next_tables` replaces the object (action name, __HIT__ or
        __MISS__ to node). `entries` are objects of entry(). match_type: by default, what the
        compiler derives from the keys.
        """
        actions = [self.program.action_of(each) for each in actions]
        names = [each["name"] for each in actions]
        table = {
            "name": name, "id": self.program.next_id("table"), "key": list(keys),
            "match_type": match_type or match_type_of(keys), "type": kind}
        if profile is not None:
            table["action_profile"] = profile
        table.update({
            "max_size": max_size if entries is None else max(1, len(entries)),
            "with_counters": with_counters, "support_timeout": support_timeout,
            "direct_meters": direct_meters, "action_ids": [each["id"] for each in actions],
            "actions": names, "base_default_next": next,
            "next_tables": {each: next for each in names} if next_tables is None else next_tables})
        if default is not None:
            table["default_entry"] = {
                "action_id": self.program.action_of(default)["id"], "action_const": const_default,
                "action_data": [hexstr(each) for each in default_data],
                "action_entry_const": const_default}
        if entries is not None:
            table["entries"] = list(entries)
        return self._add("tables", table)

    def condition(self, name, expression, true_next=None, false_next=None):
        return self._add("conditionals", {
            "name": name, "id": self.program.next_id("conditional"),
            "expression": to_expr(expression).operand(), "true_next": true_next,
            "false_next": false_next})

    def action_profile(self, name, max_size=1024, algorithm=None, fields=()):
        """With an algorithm, a selector over these fields."""
        profile = {"name": name, "id": self.program.next_id("profile"), "max_size": max_size}
        if algorithm is not None:
            profile["selector"] = {"algo": algorithm, "input": [each.operand() for each in fields]}
        self.json["action_profiles"].append(profile)
        return name


def match_type_of(keys):
    kinds = {each["match_type"] for each in keys}
    return next((kind for kind in ("range", "ternary", "lpm") if kind in kinds), "exact")


class Program:
    """One compiled program. build() returns the root object of its JSON.

    Methods that add an object return a Header, Stack, Union or Field to build expressions with;
    else the object's name, or its id where the JSON refers to it by id (actions, lists).
    """

    def __init__(self, name, version=VERSION, errors=STANDARD_ERRORS, more_errors=()):
        """`errors`: names, numbered from 0, or (name, number). `more_errors` follow them."""
        self.name = name
        self.ids = {}
        self.scalars = []
        self.emitted = None
        self.actions = []
        errors = list(errors) + list(more_errors)
        errors = [(each, i) if isinstance(each, str) else each for i, each in enumerate(errors)]
        self.root = {
            "header_types": [], "headers": [], "header_stacks": [], "header_union_types": [],
            "header_unions": [], "header_union_stacks": [], "field_lists": [],
            "errors": [list(each) for each in errors], "enums": [], "parsers": [],
            "parse_vsets": [], "deparsers": [], "meter_arrays": [], "counter_arrays": [],
            "register_arrays": [], "calculations": [], "learn_lists": [], "actions": [],
            "pipelines": [], "checksums": [], "force_arith": [], "extern_instances": [],
            "field_aliases": [[alias, ["standard_metadata", field]]
                              for alias, field in FIELD_ALIASES],
            "program": f"{name}.p4",
            "__meta__": {"version": list(version), "compiler": "tests/p4/compiled.py"}}
        self.parser = {"name": "parser", "id": 0, "init_state": "start", "parse_states": []}
        self.ingress = Pipeline(self, "ingress", 0)
        self.egress = Pipeline(self, "egress", 1)
        self.header_type("scalars_0", [])
        self.header_type("standard_metadata", STANDARD_METADATA)
        self.metadata("scalars", "scalars_0")
        self.standard = self.metadata("standard_metadata", "standard_metadata")

    def next_id(self, kind, first=0):
        """Ids run on per kind; tables and conditionals count over both pipelines."""
        self.ids[kind] = self.ids.get(kind, first - 1) + 1
        return self.ids[kind]

    def error(self, name):
        """The number of an error."""
        return dict(self.root["errors"])[name]

    # Headers

    def header_type(self, name, fields, max_length=None):
        """A field is (name, width), (name, width, signed) or (name, "*").

        max_length: bytes of the whole header; only with a varbit.
        """
        header_type = {"name": name, "id": self.next_id("header_type"),
                       "fields": [as_field(each) for each in fields]}
        if max_length is not None:
            header_type["max_length"] = max_length
        self.root["header_types"].append(header_type)
        return name

    def header(self, name, header_type, metadata=False):
        self.root["headers"].append({"name": name, "id": self.next_id("header"),
                                     "header_type": header_type, "metadata": metadata,
                                     "pi_omit": True})
        return Header(name)

    def metadata(self, name, header_type):
        return self.header(name, header_type, metadata=True)

    def scalar(self, name, width, signed=False):
        """A local variable or a member of the user metadata. P4's bool has signed=0 and 1 bit."""
        self.scalars.append([name, width, signed])
        return Field("scalars", name)

    def stack(self, name, header_type, size):
        ids = [self._header_id(self.header(f"{name}[{i}]", header_type)) for i in range(size)]
        self.root["header_stacks"].append({"name": name, "id": self.next_id("stack"),
                                           "header_type": header_type, "size": size,
                                           "header_ids": ids})
        return Stack(name)

    def union_type(self, name, members):
        """members: (name, header type)."""
        self.root["header_union_types"].append({"name": name, "id": self.next_id("union_type"),
                                                "headers": [list(each) for each in members]})
        return name

    def union(self, name, union_type):
        members = next(each["headers"] for each in self.root["header_union_types"]
                       if each["name"] == union_type)
        ids = [self._header_id(self.header(f"{name}.{member}", kind)) for member, kind in members]
        self.root["header_unions"].append({"name": name, "id": self.next_id("union"),
                                           "union_type": union_type, "header_ids": ids,
                                           "pi_omit": True})
        return Union(name)

    def union_stack(self, name, union_type, size):
        ids = []
        for index in range(size):
            self.union(f"{name}[{index}]", union_type)
            ids.append(self.root["header_unions"][-1]["id"])
        self.root["header_union_stacks"].append({"name": name, "id": self.next_id("union_stack"),
                                                 "union_type": union_type, "size": size,
                                                 "header_union_ids": ids})
        return UnionStack(name)

    def _header_id(self, header):
        return next(each["id"] for each in self.root["headers"] if each["name"] == header.name)

    # Parser and deparser

    def state(self, name, operations=(), keys=(), transitions=None):
        """Without transitions, the state accepts: one default to null."""
        transitions = [otherwise(None)] if transitions is None else transitions
        self.parser["parse_states"].append({
            "name": name, "id": self.next_id("state"), "parser_ops": list(operations),
            "transitions": list(transitions), "transition_key": [each.operand() for each in keys]})
        return name

    def value_set(self, name, width, max_size=8):
        """width: bits of all keys without padding."""
        self.root["parse_vsets"].append({"name": name, "id": self.next_id("value_set"),
                                         "compressed_bitwidth": width, "max_size": max_size})
        return name

    def emit(self, *headers):
        """The order of the deparser. By default, all packet headers as they were added."""
        self.emitted = [each.name for each in headers]

    # Actions

    def action(self, name, *primitives, data=()):
        """`data` are (name, width). Returns the id: names may repeat."""
        action = {"name": name, "id": self.next_id("action"),
                  "runtime_data": [{"name": each, "bitwidth": width} for each, width in data],
                  "primitives": list(primitives)}
        self.actions.append(action)
        return action["id"]

    def action_of(self, reference):
        """An action by id or by name."""
        member = "name" if isinstance(reference, str) else "id"
        return next(each for each in self.actions if each[member] == reference)

    # Calculations and checksums

    def calculation(self, name, algorithm, inputs):
        """Inputs are fields, headers, constants of constant() and PAYLOAD."""
        self.root["calculations"].append({
            "name": name, "id": self.next_id("calculation"), "algo": algorithm,
            "input": [each if isinstance(each, dict) else each.operand() for each in inputs]})
        return name

    def checksum(self, target, calculation, verify=False, update=False, condition=None, name=None):
        """condition: an expression, a boolean, or None for always."""
        identity = self.next_id("checksum")
        self.root["checksums"].append({
            "name": name or f"cksum_{identity}", "id": identity, "target": target.target,
            "type": "generic", "calculation": calculation, "verify": verify, "update": update,
            "if_cond": None if condition is None else to_expr(condition).operand()})

    # Stateful objects and lists

    def counter(self, name, size):
        self.root["counter_arrays"].append({"name": name, "id": self.next_id("counter"),
                                            "size": size, "is_direct": False})
        return name

    def direct_counter(self, name, table):
        """The table needs with_counters=True."""
        self.root["counter_arrays"].append({"name": name, "id": self.next_id("counter"),
                                            "is_direct": True, "binding": table})
        return name

    def meter(self, name, size, unit="bytes"):
        self.root["meter_arrays"].append({"name": name, "id": self.next_id("meter"),
                                          "is_direct": False, "size": size, "rate_count": 2,
                                          "type": unit})
        return name

    def direct_meter(self, name, table, result, size=1024, unit="packets"):
        """The table needs direct_meters=name."""
        self.root["meter_arrays"].append({"name": name, "id": self.next_id("meter"),
                                          "is_direct": True, "rate_count": 2, "type": unit,
                                          "size": size, "binding": table,
                                          "result_target": result.target})
        return name

    def register(self, name, size, width):
        self.root["register_arrays"].append({"name": name, "id": self.next_id("register"),
                                             "size": size, "bitwidth": width})
        return name

    def learn_list(self, name, fields):
        return self._list("learn_lists", name, fields)

    def field_list(self, name, fields):
        return self._list("field_lists", name, fields)

    def _list(self, kind, name, fields):
        identity = self.next_id(kind, first=1)
        self.root[kind].append({"id": identity, "name": name,
                                "elements": [each.operand() for each in fields]})
        return identity

    # Result

    def build(self):
        """The root object, complete: a copy that the caller may change."""
        root = copy.deepcopy(self.root)
        root["header_types"][0]["fields"] = padded(self.scalars)
        root["parsers"] = [copy.deepcopy(self.parser)]
        root["deparsers"] = [{"name": "deparser", "id": 0, "order": self._order(),
                              "primitives": []}]
        root["actions"] = copy.deepcopy(self.actions)
        root["pipelines"] = copy.deepcopy([self.ingress.json, self.egress.json])
        return root

    def _order(self):
        if self.emitted is not None:
            return list(self.emitted)
        return [each["name"] for each in self.root["headers"] if not each["metadata"]]


PAYLOAD = {"type": "payload", "value": None}


def constant(value, width):
    """A constant as the input of a calculation, `width` bits wide."""
    return {"type": "hexstr", "value": hexstr(value, (width + 3) // 4), "bitwidth": width}


def entry(match_keys, action_id, data=(), priority=1):
    """A const entry of a table; the smaller priority wins."""
    return {"match_key": list(match_keys),
            "action_entry": {"action_id": action_id,
                             "action_data": [hexstr(each) for each in data]},
            "priority": priority}


def as_field(field):
    """[name, width, signed]; the compiler writes a varbit without the third member."""
    field = list(field)
    return field if len(field) == 3 or field[1] == "*" else field + [False]


def padded(fields):
    """Metadata ends with a padding field where its fields are no whole bytes."""
    fields = [list(each) for each in fields]
    missing = -sum(each[1] for each in fields) % 8
    return fields + [["_padding_0", missing, False]] if missing else fields
