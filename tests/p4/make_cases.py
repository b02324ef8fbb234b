#!/usr/bin/env python3
"""Writes the packet tests of compiled P4 programs: make_cases.py OUT_DIR [NAME...]

Per case NAME: NAME.json and NAME.stf, and NAME.p4info.txtpb where the case has one; a case that
must be refused has NAME.json and NAME.refused, whose first line is text of the error line. A packet
test that must fail is NAME.fails.stf; its line "# fails: TEXT" says which difference it shows.

    --list    prints the names of all cases
    --check   writes nothing, and checks the references in every program and the form of every test
"""
import argparse
import os
import sys
import threading

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import cases  # noqa: E402
import check_cases  # noqa: E402

STACK_BYTES = 512 << 20


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def write_case(folder, name):
    case = cases.make(name)
    path = os.path.join(folder, name)
    write(path + ".json", case.text + "\n")
    if case.refusal is not None:
        write(path + ".refused", case.refusal + "\n")
    if case.stf is not None:
        write(path + (".stf" if case.difference is None else ".fails.stf"), case.stf)
    if case.p4info is not None:
        write(path + ".p4info.txtpb", case.p4info)


def run():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("folder", nargs="?", metavar="OUT_DIR")
    parser.add_argument("names", nargs="*", metavar="NAME")
    arguments = parser.parse_args()
    known = cases.load()
    unknown = [name for name in arguments.names if name not in known]
    if unknown:
        parser.error(f"case {unknown[0]} does not exist; --list prints the names")
    if arguments.list:
        print("\n".join(known))
        return 0
    if arguments.check:
        return check_cases.report({name: cases.make(name) for name in known})
    if arguments.folder is None:
        parser.error("OUT_DIR is missing")
    os.makedirs(arguments.folder, exist_ok=True)
    for name in arguments.names or known:
        write_case(arguments.folder, name)
    return 0


def main():
    """Runs on a thread with a stack for programs whose JSON is nested some 10,000 levels deep."""
    status = [1]
    sys.setrecursionlimit(200_000)
    threading.stack_size(STACK_BYTES)
    thread = threading.Thread(target=lambda: status.append(exit_status()))
    thread.start()
    thread.join()
    return status[-1]


def exit_status():
    try:
        return run()
    except SystemExit as stop:
        return stop.code


if __name__ == "__main__":
    sys.exit(main())
