#!/usr/bin/env python3
"""Compares two dumps of one table, line by line, and tells every difference.

    scripts/compare_dumps.py [--show N] EXPECTED ACTUAL

A dump is what `switchctl entries TABLE --json` prints, or `dump TABLE` in partner-shell --json
without its closing result: one JSON object a line, in the same order whatever device it shows.
Prints how many entries were compared and how many differ. Status 1 if any does, 2 if a dump is
not one.
"""
import argparse
import itertools
import json
import sys


class NotADump(Exception):
    pass


def identity(line, place):
    """What an entry is known by, in both dumps: its key, or what it is instead of having one."""
    try:
        entry = json.loads(line)
    except ValueError as error:
        raise NotADump(f"{place}: no JSON: {error}") from error
    if not isinstance(entry, dict):
        raise NotADump(f"{place}: no object")
    for name in ("default", "fallback"):
        if entry.get(name):
            return name
    if "key" not in entry:
        raise NotADump(f"{place}: neither entry nor default nor fallback")
    return json.dumps(entry["key"], sort_keys=True)


def index(lines, name):
    """Identity -> line of the lines that are left when equal ones have been taken out."""
    entries = {}
    for line in lines:
        who = identity(line, name)
        if who in entries:
            raise NotADump(f"{name}: {who} stands there twice")
        entries[who] = line.rstrip("\n")
    return entries


def compare(expected_path, actual_path, report=lambda difference: None):
    """Returns (entries compared, differences). Calls `report` with a text for each difference.

    Equal dumps are read side by side in little memory. Lines that do not meet their like at the
    same place are gathered, and told apart by what entry they are.
    """
    compared = 0
    expected_rest, actual_rest = [], []
    with open(expected_path, encoding="utf-8") as expected, \
         open(actual_path, encoding="utf-8") as actual:
        for ours, theirs in itertools.zip_longest(expected, actual):
            if ours is not None:
                compared += 1
            if ours == theirs:
                if compared == 1:
                    identity(ours, expected_path)  # refuses two equal files of another kind
                continue
            if ours is not None:
                expected_rest.append(ours)
            if theirs is not None:
                actual_rest.append(theirs)
    wanted = index(expected_rest, expected_path)
    got = index(actual_rest, actual_path)
    differences = 0
    for who, line in wanted.items():
        other = got.pop(who, None)
        if other == line:
            continue  # the same entry, shifted by others that were missing or too many
        differences += 1
        if other is None:
            report(f"missing: {line}")
        else:
            report(f"differs: {line}\n    but is {other}")
    for line in got.values():
        differences += 1
        report(f"too many: {line}")
    return compared, differences


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("expected")
    parser.add_argument("actual")
    parser.add_argument("--show", type=int, default=20, metavar="N",
                        help="differences to print; the others are counted (default: %(default)s)")
    options = parser.parse_args()
    shown = itertools.count()

    def report(difference):
        if next(shown) < options.show:
            print(difference)

    try:
        compared, differences = compare(options.expected, options.actual, report)
    except (NotADump, OSError) as error:
        print(f"compare_dumps: {error}", file=sys.stderr)
        return 2
    print(f"{compared} entries compared, {differences} differences")
    return 1 if differences else 0


if __name__ == "__main__":
    sys.exit(main())
