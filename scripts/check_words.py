#!/usr/bin/env python3
"""Checks that no file of the checkout names a place or host that only its authors have.

Prints each place where one does; status 1 if there is any.
"""
import os
import re
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# Written in pieces, so that this file does not name them either.
FORBIDDEN = [
    "/work" + "/",                          # places of a developer's machine
    r"\bspec" + r"\.md\b",
    r"\bPart [0-9]" + r"\.[0-9]\b",
    r"\b(deb|snapshot|ftp[.a-z]*)\." + r"debian\.org\b",  # hosts that serve packages
    r"\bregistry\." + r"(npmjs|yarnpkg)\.",
    r"\b(files\.)?" + r"(pypi|pythonhosted)\.org\b",
    r"\b(proxy|sum)\.go" + r"lang\.org\b",
    r"\b(static\.)?crates" + r"\.io\b",
]
PATTERN = re.compile("|".join(f"(?:{word})" for word in FORBIDDEN).encode())


def files():
    """What git tracks, or everything where this is no checkout."""
    git = subprocess.run(["git", "-C", ROOT, "ls-files", "-z"], stdout=subprocess.PIPE,
                         stderr=subprocess.DEVNULL, check=False)
    if git.returncode == 0:
        return [name for name in git.stdout.decode().split("\0") if name]
    found = []
    for folder, folders, names in os.walk(ROOT):
        folders[:] = [name for name in folders if name not in (".git", "build")]
        found += [os.path.relpath(os.path.join(folder, name), ROOT) for name in names]
    return found


def main():
    names = files()
    if not names:
        print("check_words: no files to look at", file=sys.stderr)
        return 2
    wrong = 0
    for name in sorted(names):
        path = os.path.join(ROOT, name)
        if PATTERN.search(name.encode()):
            print(f"{name}: the name itself")
            wrong += 1
        if not os.path.isfile(path):
            continue
        with open(path, "rb") as lines:
            if name.endswith(".gz"):
                continue
            for number, line in enumerate(lines, 1):
                if PATTERN.search(line):
                    print(f"{name}:{number}: {line.decode(errors='replace').strip()}")
                    wrong += 1
    print(f"{len(names)} files, {wrong} places that must not be named")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
