"""A bench for small programs: one header t, nodes that follow each other, tests as lists of lines.

    lab = Lab()
    lab.do(assign(f("t.a"), f("t.b")), out(3))
    return lab.test(packet(1, t(b=7)), expect(3, t(a=7, b=7)))

The header t has the fields op, a, b (8 bits), c (16) and d (32); the function t() gives its bytes.
"""
from compiled import *
from stf import Stf, to_hex

FOLLOWING = "$following"  # the node that is added next to the same pipeline; null after the last one

T_FIELDS = (("op", 8), ("a", 8), ("b", 8), ("c", 16), ("d", 32))


def f(path):
    """The field of a header: "t.a", "s[0].x", "x.$valid$"; one of the standard metadata: "egress_spec"."""
    header, dot, field = path.rpartition(".")
    return Field(header if dot else "standard_metadata", field)


def user(name):
    """A field of the user metadata."""
    return Field("scalars", name)


def t(**values):
    """The bytes of the header t as hexadecimal text."""
    return packed(T_FIELDS, **values)


def packed(fields, **values):
    """The bytes of a header whose fields are (name, width); what is not given is 0."""
    unknown = set(values) - {name for name, _ in fields}
    if unknown:
        raise ValueError(f"no field {sorted(unknown)[0]}")
    number_, bits = 0, 0
    for name, width in fields:
        value = values.get(name, 0)
        if not 0 <= value < 1 << width:
            raise ValueError(f"{name} = {value} does not fit {width} bits")
        number_, bits = number_ << width | value, bits + width
    return number_.to_bytes(bits // 8, "big").hex()


def crc16(data):
    """The algorithm crc16: polynomial 0x8005 reflected, which starts at 0."""
    crc = 0
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = crc >> 1 ^ 0xa001 if crc & 1 else crc >> 1
    return crc


def out(port):
    """Sends the packet to a port. 511 is no port: it drops."""
    return assign(f("egress_spec"), port)


def packet(port, data):
    return f"packet {port} {to_hex(data)}"


def expect(port, data):
    """One packet out, with exactly these bytes."""
    return f"expect {port} {to_hex(data)}$"


def same(port_in, data, port_out):
    """A packet that leaves as it came in."""
    return [packet(port_in, data), expect(port_out, data)]


class Lab(Program):
    """A program that extracts and emits the header t; nodes run in the order they are added."""

    def __init__(self):
        super().__init__("lab")
        self.header_type("t_t", T_FIELDS)
        self.t = self.header("t", "t_t")
        self.nodes = {"ingress": [], "egress": []}
        self.order = ["t"]

    # Parser and deparser

    def parse(self, *names):
        """One state that extracts these headers."""
        self.state("start", [extract(Header(name)) for name in names])

    def parse_some(self, stack):
        """The parser extracts t, then as many elements of the stack as t.op says, 0 to 3."""
        self.state("start", [extract(self.t)], [self.t["op"]],
                   [on(count_, f"take_{count_}", digits=2) for count_ in (1, 2, 3)] + [otherwise(None)])
        for count_ in (1, 2, 3):
            self.state(f"take_{count_}", [extract(stack)] * count_)

    def deparse(self, *names):
        self.order = list(names)

    # Nodes

    def do(self, *primitives, pipe="ingress", name=None, next=FOLLOWING):
        """A keyless helper table that runs these primitives."""
        name = name or f"tbl_{pipe}_{len(self.nodes[pipe])}"
        action = self.action(f"{name}_body", *primitives)
        return self.node(name, [], [action], default=action, const_default=True, pipe=pipe, next=next)

    def node(self, name, keys, actions, pipe="ingress", next=FOLLOWING, base=None, **more):
        """A table of Pipeline.table(); the default of a simple one with keys is NoAction.

        base: base_default_next, where it is not `next`.
        """
        if keys and more.get("default") is None and more.get("kind", "simple") == "simple":
            more["default"] = self.no_action()
            actions = [*actions, more["default"]]
        getattr(self, pipe).table(name, keys, actions, next=next, **more)
        if base is not None:
            getattr(self, pipe).json["tables"][-1]["base_default_next"] = base
        self.nodes[pipe].append(name)
        return name

    def when(self, expression, true, false=None, pipe="ingress", name=None):
        """A conditional."""
        name = name or f"node_{pipe}_{len(self.nodes[pipe])}"
        self.nodes[pipe].append(name)
        return getattr(self, pipe).condition(name, expression, true, false)

    def no_action(self):
        return self.action("NoAction")

    # Result

    def build(self):
        if not self.parser["parse_states"]:
            self.parse("t")
        self.emit(*[Header(name) for name in self.order])
        root = super().build()
        for pipeline in root["pipelines"]:
            order = self.nodes[pipeline["name"]]
            for node in pipeline["tables"] + pipeline["conditionals"]:
                place_ = order.index(node["name"])
                follow(node, order[place_ + 1] if place_ + 1 < len(order) else None)
        return root

    def test(self, *lines, p4info=None):
        """The case: this program and its packet test. Lists among the lines are flattened."""
        test = Stf()
        for line in lines:
            for each in [line] if isinstance(line, str) else line:
                test.line(each)
        return (self, test) if p4info is None else (self, test, p4info)

    def refused(self, p4info=None):
        """The case of a program that is not loaded."""
        return self, None, p4info


def follow(node, following):
    """Puts the following node's name in the place of FOLLOWING."""
    for member in ("base_default_next", "true_next", "false_next"):
        if node.get(member) == FOLLOWING:
            node[member] = following
    nexts = node.get("next_tables", {})
    for action in nexts:
        if nexts[action] == FOLLOWING:
            nexts[action] = following
