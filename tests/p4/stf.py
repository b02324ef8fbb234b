"""Writes packet tests: lines of `packet` and `expect`, and table entries."""


def to_hex(data):
    """Hexadecimal text; text is passed on without blanks, so it may hold `*` for any digit."""
    return data.hex() if isinstance(data, (bytes, bytearray)) else data.replace(" ", "")


class Stf:
    """Collects the lines of one test. Data are bytes or hexadecimal text.

        test = Stf("what the program shows")
        test.packet(1, "0102").expect(2, "0103")
    """

    def __init__(self, comment=None):
        self.lines = []
        if comment:
            self.comment(comment)

    def comment(self, text):
        return self.line(f"# {text}")

    def line(self, text):
        """Any command."""
        self.lines.append(text)
        return self

    def packet(self, port, data):
        """A packet in. Without an expect() after it, the program drops it."""
        return self.line(f"packet {port} {to_hex(data)}")

    def expect(self, port, data):
        """A packet out, with exactly these bytes."""
        return self.line(f"expect {port} {to_hex(data)}$")

    def add(self, table, keys, action, priority=None):
        """`keys` as in "dst:0x0a000000/8 port:3", `action` as in "to(port:1)"."""
        priority = "" if priority is None else f" {priority}"
        return self.line(f"add {table}{priority} {keys} {action}")

    def set_default(self, table, action):
        return self.line(f"setdefault {table} {action}")

    def __str__(self):
        return "\n".join(self.lines) + "\n"
