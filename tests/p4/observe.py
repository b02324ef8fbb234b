"""Makes what a program computes visible: values are written into a header of the packet out."""
from compiled import Program, add_header, assign, extract
from reference import packed
from stf import Stf

OUT_PORT = 1
PAYLOAD_BYTES = b"\xee\xdd\xcc"


def to_port(program, port=OUT_PORT):
    return assign(program.standard["egress_spec"], port)


def result_header(program, results):
    """Adds the header `res`, emitted before all packet headers; returns primitives that fill it.

    `results` are (name, width, expression) or (name, width, expression, signed).
    """
    others = [each["name"] for each in program.root["headers"] if not each["metadata"]]
    program.header_type("res_t", [(each[0], each[1], *each[3:]) for each in results])
    res = program.header("res", "res_t")
    program.emitted = [res.name] + others
    return [add_header(res)] + [assign(res[each[0]], each[2]) for each in results]


def report(program, results, before=(), port=OUT_PORT):
    """The ingress runs `before`, writes `results` into the header `res`, and sends to `port`."""
    fill = result_header(program, results)
    program.ingress.run("report", *before, *fill, to_port(program, port))


class Computation:
    """A program that computes results from the fields of one header, `in`.

        sut = Computation("sum", [("a", 8), ("b", 8)])
        sut.result("sum", 8, sut["a"] + sut["b"])
        return sut.case([((1, 2), (3,))])
    """

    def __init__(self, name, inputs):
        self.program = Program(name)
        self.inputs = inputs
        self.results = []
        self.before = []
        self.program.header_type("in_t", inputs)
        self.header = self.program.header("in", "in_t")
        self.program.state("start", [extract(self.header)])

    def __getitem__(self, field):
        return self.header[field]

    def first(self, *primitives):
        """Primitives that run before the results are computed."""
        self.before += primitives

    def result(self, name, width, expression, signed=False):
        self.results.append((name, width, expression, signed))

    def case(self, rows, comment=None):
        """A row is (values of the inputs, values of the results)."""
        report(self.program, self.results, self.before)
        test = Stf(comment)
        for given, expected in rows:
            assert len(given) == len(self.inputs) and len(expected) == len(self.results)
            data = packed(*zip(given, [each[1] for each in self.inputs])) + PAYLOAD_BYTES
            shown = packed(*zip(expected, [each[1] for each in self.results]))
            test.packet(2, data).expect(OUT_PORT, shown + data)
        return self.program, test
