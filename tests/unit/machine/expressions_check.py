#!/usr/bin/env python3
"""Holds expressions of machines against Python's numbers.

Makes random expressions over random fields, evaluates them with Python's unbounded integers, lets
the given program (expression_cases) do the same, and compares values and counted mistakes.
"""
import argparse
import random
import subprocess
import sys

# As ExprOp.
OPS = ("constant field header_valid union_valid param lookahead stack_last stack_last_index "
       "stack_size union_stack_last element_field element_valid union_element_field headers_equal "
       "register add subtract multiply divide modulo shift_left shift_right and or xor not "
       "wrap_signed clamp_unsigned clamp_signed equal not_equal less less_equal greater "
       "greater_equal logical_and logical_or logical_not to_bool select").split()
NUMBER = {name: number for number, name in enumerate(OPS)}
WIDTHS = (1, 2, 7, 8, 9, 16, 31, 32, 33, 48, 63, 64, 65, 96, 127, 128, 129, 200, 256)
MAX_SHIFT = 2048  # beyond all widths


class Mistakes:
    def __init__(self):
        self.divisions = self.shifts = 0


def wrap(value, bits):
    value &= (1 << bits) - 1
    return value - (1 << bits) if bits and value >> (bits - 1) else value


def shift(value, amount, left, mistakes):
    if amount < 0:
        mistakes.shifts += 1
        return 0
    if amount >= MAX_SHIFT:
        return 0 if left or value >= 0 else -1
    return value << amount if left else value >> amount


def divide(left, right, remainder, mistakes):
    if right == 0:
        mistakes.divisions += 1
        return 0
    return left % right if remainder else left // right


BINARY = {
    "add": lambda a, b: a + b, "subtract": lambda a, b: a - b, "multiply": lambda a, b: a * b,
    "and": lambda a, b: a & b, "or": lambda a, b: a | b, "xor": lambda a, b: a ^ b,
}
COMPARE = {
    "equal": lambda a, b: a == b, "not_equal": lambda a, b: a != b, "less": lambda a, b: a < b,
    "less_equal": lambda a, b: a <= b, "greater": lambda a, b: a > b,
    "greater_equal": lambda a, b: a >= b,
}


class Maker:
    """Makes one case. A number is a pair: its code, and a function that yields its value."""

    def __init__(self, generator):
        self.random = generator
        self.fields = []
        narrow = generator.random() < 0.5
        for _ in range(generator.randint(1, 4)):
            width = generator.choice(WIDTHS[:10] if narrow else WIDTHS)
            signed = width > 1 and generator.random() < 0.3
            edge = generator.choice((0, 1, (1 << width) - 1, 1 << (width - 1), None, None, None))
            raw = generator.getrandbits(width) if edge is None else edge & ((1 << width) - 1)
            self.fields.append((width, signed, raw))
        self.most_constant = 16 if narrow else 140

    def number(self, depth):
        kind = self.random.random()
        if depth == 0 or kind < 0.15:
            return self.leaf()
        if kind < 0.65:
            name = self.random.choice(tuple(BINARY))
            (code, left), (more, right) = self.number(depth - 1), self.number(depth - 1)
            return (f"{code} {more} {NUMBER[name]}",
                    lambda m: BINARY[name](left(m), right(m)))
        if kind < 0.75:
            return self.shifted(depth)
        if kind < 0.80:
            return self.divided(depth)
        if kind < 0.92:
            return self.changed(depth)
        (test, condition) = self.boolean(depth - 1)
        (code, one), (more, other) = self.number(depth - 1), self.number(depth - 1)
        return (f"{test} {code} {more} {NUMBER['select']}",
                lambda m: one(m) if condition(m) else other(m))

    def leaf(self):
        if self.random.random() < 0.6:
            index = self.random.randrange(len(self.fields))
            width, signed, raw = self.fields[index]
            value = wrap(raw, width) if signed else raw
            return f"{NUMBER['field']}({index})", lambda m: value
        value = self.random.getrandbits(self.random.randint(1, self.most_constant))
        if self.random.random() < 0.3:
            value = -value
        return self.constant(value)

    @staticmethod
    def constant(value):
        return f"c{'-' if value < 0 else ''}{abs(value):x}", lambda m: value

    def shifted(self, depth):
        left = self.random.random() < 0.5
        code, value = self.number(depth - 1)
        choice = self.random.random()
        if choice < 0.7:
            amount_code, amount = self.constant(self.random.randint(0, 130))
        elif choice < 0.9:
            amount_code, amount = self.leaf()
        else:
            amount_code, amount = self.constant(self.random.choice((-1, 2047, 2048, 1 << 70)))
        name = "shift_left" if left else "shift_right"
        return (f"{code} {amount_code} {NUMBER[name]}",
                lambda m: shift(value(m), amount(m), left, m))

    def divided(self, depth):
        """Operands are not negative."""
        remainder = self.random.random() < 0.5
        (code, value), (more, by) = self.number(depth - 1), self.number(depth - 1)
        clamp = f"{NUMBER['clamp_unsigned']}(256)"
        name = "modulo" if remainder else "divide"

        def clamped(number):
            return min(max(number, 0), (1 << 256) - 1)
        return (f"{code} {clamp} {more} {clamp} {NUMBER[name]}",
                lambda m: divide(clamped(value(m)), clamped(by(m)), remainder, m))

    def changed(self, depth):
        code, value = self.number(depth - 1)
        name = self.random.choice(("not", "wrap_signed", "clamp_unsigned", "clamp_signed"))
        bits = self.random.choice(WIDTHS)
        change = {
            "not": lambda number: ~number,
            "wrap_signed": lambda number: wrap(number, bits),
            "clamp_unsigned": lambda number: min(max(number, 0), (1 << bits) - 1),
            "clamp_signed":
                lambda number: min(max(number, -(1 << (bits - 1))), (1 << (bits - 1)) - 1),
        }[name]
        return f"{code} {NUMBER[name]}({bits})", lambda m: change(value(m))

    def boolean(self, depth):
        kind = self.random.random()
        if depth <= 0 or kind < 0.5:
            name = self.random.choice(tuple(COMPARE))
            (code, left), (more, right) = self.number(max(depth - 1, 0)), self.number(0)
            return (f"{code} {more} {NUMBER[name]}",
                    lambda m: COMPARE[name](left(m), right(m)))
        if kind < 0.6:
            code, value = self.number(depth - 1)
            return f"{code} {NUMBER['to_bool']}", lambda m: value(m) != 0
        if kind < 0.7:
            code, value = self.boolean(depth - 1)
            return f"{code} {NUMBER['logical_not']}", lambda m: not value(m)
        (code, left), (more, right) = self.boolean(depth - 1), self.boolean(depth - 1)
        if kind < 0.85:
            return (f"{code} {more} {NUMBER['logical_and']}",
                    lambda m: left(m) and right(m))
        return f"{code} {more} {NUMBER['logical_or']}", lambda m: left(m) or right(m)

    def case(self):
        depth = self.random.randint(0, 5)
        code, value = self.boolean(depth) if self.random.random() < 0.3 else self.number(depth)
        mistakes = Mistakes()
        expected = int(value(mistakes)) & ((1 << 256) - 1)
        widths = " ".join(str(-width if signed else width) for width, signed, _ in self.fields)
        values = " ".join(f"{raw:x}" for _, _, raw in self.fields)
        return (f"{widths};{values};{code}",
                (f"{expected:064x}", str(mistakes.divisions), str(mistakes.shifts)))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program")
    parser.add_argument("--cases", type=int, default=4000)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    generator = random.Random(options.seed)
    arithmetics = [0, 0, 0]
    done = 0
    while done < options.cases:
        count = min(20_000, options.cases - done)
        cases = [Maker(generator).case() for _ in range(count)]
        answers = subprocess.run([options.program], input="\n".join(line for line, _ in cases) + "\n",
                                 capture_output=True, text=True, check=True).stdout.splitlines()
        if len(answers) != count:
            print(f"{len(answers)} answers to {count} cases")
            return 1
        for (line, expected), answer in zip(cases, answers):
            words = answer.split()
            if (words[0], *words[2:]) != expected:
                print(f"case:     {line}\nexpected: {expected}\nanswer:   {answer}")
                return 1
            arithmetics[int(words[1])] += 1
        done += count
    print(f"{done} cases agree: {arithmetics[0]} in 64 bits, {arithmetics[1]} in 128, "
          f"{arithmetics[2]} in any")
    return 0 if min(arithmetics) > 0 or options.cases < 1000 else 1


if __name__ == "__main__":
    sys.exit(main())
