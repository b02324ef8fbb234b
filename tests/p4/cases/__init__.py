"""The packet tests of compiled P4 programs, one function per case.

A module of this package holds the cases of one subject. A function with @case returns (program,
packet test) or (program, packet test, P4Info text). A function with @refusal("words") returns a
program that a loader refuses with an error line that contains these words; one with
@fails("difference") returns a case whose packet test must fail, and `difference` says what the
runner has to report. A program is a Program, the root object of its JSON, or the JSON's text. The
function's name is the case's name, its description opens the packet test. Expected bytes come from
calculations in the test's own Python.
"""
import importlib
import json
import pkgutil

CASES = {}


class Case:
    """What one function describes; a case with `refusal` has no packet test.

    difference: what a packet test that must fail shows, None where it must pass.
    """

    def __init__(self, function, refusal=None, difference=None):
        self.name = function.__name__
        self.refusal = refusal
        self.difference = difference
        result = function()
        if not isinstance(result, tuple):
            result = (result,)
        program, *texts = result
        self.text = json_text(program)
        self.stf = self.described(function, texts[0]) if texts and texts[0] is not None else None
        self.p4info = texts[1] if len(texts) > 1 else None

    def described(self, function, test):
        """The packet test, with the function's description and the difference as comments on top."""
        words = (function.__doc__ or "").splitlines()
        words += [] if self.difference is None else [f"fails: {self.difference}"]
        return "".join(f"# {line.strip()}\n" for line in words if line.strip()) + str(test)


def json_text(program):
    if isinstance(program, str):
        return program
    return json.dumps(program if isinstance(program, dict) else program.build())


def register(function, *more):
    if function.__name__ in CASES:
        raise ValueError(f"case {function.__name__} exists twice")
    CASES[function.__name__] = (function, *more)
    return function


def case(function):
    """Marks a function that returns a program and its packet test."""
    return register(function)


def refusal(words):
    """Marks a function whose program a loader refuses with an error line that contains `words`."""
    return lambda function: register(function, words)


def fails(difference):
    """Marks a function whose packet test must fail; a runner reports this difference."""
    return lambda function: register(function, None, difference)


def load():
    """Imports every module of the package and returns the names of all cases."""
    for module in pkgutil.iter_modules(__path__):
        importlib.import_module(f"{__name__}.{module.name}")
    return sorted(CASES)


def make(name):
    return Case(*CASES[name])
