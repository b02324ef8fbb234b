#!/usr/bin/env python3
"""Compares what a shared library exports with a checked-in list; writes the list with --update.

    scripts/check_exports.py [--update] LIBRARY LIST

The list has one demangled name a line, sorted; lines that begin with # are comments. Left out on
both sides are weak symbols of the libraries whose templates and inline functions a library
instantiates: the compiler decides about them, not we.
"""
import argparse
import re
import subprocess
import sys

# Mangled names (also of their type information) in namespaces of other libraries.
FOREIGN = re.compile(r"_Z(TI|TS|TV|TT|GV|GR|Z)?N?[VK]*(St|S[absiod]|9__gnu_cxx|4absl|4grpc|9grpc_impl|"
                     r"6google|8nlohmann|5boost)")
WEAK = "WVuvw"


def exported(library):
    listing = subprocess.run(["nm", "-D", "--defined-only", library], check=True,
                             stdout=subprocess.PIPE, text=True).stdout
    mangled = []
    for line in listing.splitlines():
        kind, name = line.split()[-2:]
        if kind in WEAK and FOREIGN.match(name):
            continue
        mangled.append(name.split("@")[0])
    demangled = subprocess.run(["c++filt"], input="\n".join(mangled), check=True,
                               stdout=subprocess.PIPE, text=True).stdout
    return set(demangled.splitlines())


def read_list(path):
    with open(path, encoding="utf-8") as lines:
        return {line.rstrip("\n") for line in lines if line.strip() and not line.startswith("#")}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--update", action="store_true", help="write the list")
    parser.add_argument("library")
    parser.add_argument("list")
    options = parser.parse_args()
    actual = exported(options.library)
    if not actual:
        print(f"{options.library} exports nothing at all", file=sys.stderr)
        return 1
    if options.update:
        with open(options.list, "w", encoding="utf-8") as out:
            out.write("# Every name that the library exports; scripts/check_exports.py --update "
                      "writes this.\n")
            out.writelines(name + "\n" for name in sorted(actual))
        return 0
    wanted = read_list(options.list)
    for name in sorted(actual - wanted):
        print(f"exported, not listed: {name}")
    for name in sorted(wanted - actual):
        print(f"listed, not exported: {name}")
    if actual != wanted:
        return 1
    print(f"{len(actual)} names, as listed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
