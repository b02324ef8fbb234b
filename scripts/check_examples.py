#!/usr/bin/env python3
"""Checks that each example stays one source that is read in one go.

An example is a folder of examples/, but for p4/ with its P4 programs, with a main.cpp or a main.c, and nothing else, of fewer than 300
lines of at most 100 characters. What it needs and does not show (command line, signals, errors)
stands in one section, below a line "---- plumbing" and above the next such line, and takes at most a
screen: 60 lines.
"""
import pathlib
import re
import sys

MOST_LINES = 299
MOST_COLUMNS = 100
MOST_PLUMBING = 60
SOURCES = ("main.cpp", "main.c")
PROGRAMS = "p4"  # holds programs of switches, no applications
SECTION = re.compile(r"^(//|/\*) ---- (.*?) -*( \*/)?$")


def faults_of(example):
    """What is wrong with one example, in sentences."""
    sources = sorted(path for path in example.iterdir() if path.name in SOURCES)
    if not sources:
        yield "has no main.cpp or main.c"
        return
    others = sorted(path.name for path in example.iterdir() if path != sources[0])
    if others:
        yield f"has more than its {sources[0].name}: {', '.join(others)}"
    lines = sources[0].read_text(encoding="utf-8").splitlines()
    if len(lines) > MOST_LINES:
        yield f"has {len(lines)} lines, more than {MOST_LINES}"
    for number, line in enumerate(lines, 1):
        if len(line) > MOST_COLUMNS:
            yield f"line {number} has {len(line)} characters"
    plumbing = plumbing_of(lines)
    if plumbing is None:
        yield "has no section of plumbing"
    elif plumbing > MOST_PLUMBING:
        yield f"has {plumbing} lines of plumbing, more than {MOST_PLUMBING}"


def plumbing_of(lines):
    """Length of the section of plumbing; None if there is none that ends."""
    sections = [(at, found.group(2)) for at, line in enumerate(lines)
                if (found := SECTION.match(line))]
    for (begin, title), (end, _) in zip(sections, sections[1:]):
        if title == "plumbing":
            return end - begin - 1
    return None


def main():
    default = pathlib.Path(__file__).resolve().parent.parent / "examples"
    folder = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else default
    examples = sorted(path for path in folder.iterdir() if path.is_dir() and path.name != PROGRAMS)
    faults = [f"{example.name}: {fault}" for example in examples for fault in faults_of(example)]
    for fault in faults:
        print(fault)
    if not examples:
        print(f"no example in {folder}")
    else:
        print(f"{len(examples)} examples, {len(faults)} faults")
    return 1 if faults or not examples else 0


if __name__ == "__main__":
    sys.exit(main())
