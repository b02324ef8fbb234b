#!/usr/bin/env python3
"""Checks that each example stays one source that is read in one go.

An example is a folder of examples/ with a main.cpp, and nothing else, of fewer than 250 lines of at
most 100 characters.
"""
import pathlib
import sys

MOST_LINES = 249
MOST_COLUMNS = 100


def faults_of(example):
    """What is wrong with one example, in sentences."""
    others = sorted(path.name for path in example.iterdir() if path.name != "main.cpp")
    if others:
        yield f"has more than its main.cpp: {', '.join(others)}"
    source = example / "main.cpp"
    if not source.is_file():
        yield "has no main.cpp"
        return
    lines = source.read_text(encoding="utf-8").splitlines()
    if len(lines) > MOST_LINES:
        yield f"has {len(lines)} lines, more than {MOST_LINES}"
    for number, line in enumerate(lines, 1):
        if len(line) > MOST_COLUMNS:
            yield f"line {number} has {len(line)} characters"


def main():
    default = pathlib.Path(__file__).resolve().parent.parent / "examples"
    folder = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else default
    examples = sorted(path for path in folder.iterdir() if path.is_dir())
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
