#!/usr/bin/env python3
"""Runs packet tests of compiled P4 programs: run_cases.py SWITCHCTL [--part K/N] [NAME...]

Runs those of make_cases.py and those in programs/, each on a device of its own. A packet test
passes, one that must fail shows a difference, and a program that must be refused is refused with
its text. Prints a line for each that does otherwise, and what was run; status 1 if there was one.
"""
import argparse
import concurrent.futures
import os
import re
import subprocess
import sys
import tempfile

FOLDER = os.path.dirname(os.path.abspath(__file__))
SECONDS = 300  # of one test; ends a hang only


def run(command):
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, errors="replace",
                              timeout=SECONDS, check=False)
    except subprocess.TimeoutExpired:
        return None, "does not end"
    return done.returncode, done.stdout


def first_line(path):
    with open(path, encoding="utf-8") as file:
        return file.readline().strip()


class Test:
    """A test by its file: NAME.stf, NAME.fails.stf or NAME.refused."""

    def __init__(self, path):
        self.path = path
        self.name = os.path.basename(path)
        self.base = os.path.join(os.path.dirname(path), self.name.split(".", 1)[0])

    def defect(self, switchctl):
        """What is wrong; None if nothing is."""
        program = ["--program", self.base + ".json"]
        if self.name.endswith(".refused"):
            status, output = run([switchctl, "stf", os.devnull, *program])
            wanted = first_line(self.path)
            if status == 2 and wanted in output:
                return None
            return f"status {status}, not 2 with '{wanted}'\n{output}"
        status, output = run([switchctl, "stf", self.path, *program])
        if not self.name.endswith(".fails.stf"):
            return None if status == 0 else f"status {status}, not 0\n{output}"
        # It differs, or a line of it cannot be carried out.
        if status in (1, 2) and re.search(re.escape(self.path) + r":\d+: ", output):
            return None
        return f"status {status}, and no line of the test is named\n{output}"


def tests_in(folder):
    return sorted(os.path.join(folder, name) for name in os.listdir(folder)
                  if name.endswith((".stf", ".refused")))


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("switchctl")
    parser.add_argument("--part", default="1/1", metavar="K/N", help="every N-th from the K-th")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("names", nargs="*", metavar="NAME")
    options = parser.parse_args()
    part, parts = (int(number) for number in options.part.split("/"))
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([sys.executable, os.path.join(FOLDER, "make_cases.py"), folder], check=True)
        tests = [Test(path) for path in tests_in(os.path.join(FOLDER, "programs")) +
                 tests_in(folder)][part - 1::parts]
        if options.names:
            tests = [test for test in tests if test.name.split(".", 1)[0] in options.names]
        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            defects = list(pool.map(lambda test: test.defect(options.switchctl), tests))
    wrong = [(test, defect) for test, defect in zip(tests, defects) if defect is not None]
    for test, defect in wrong:
        print(f"{test.name}: {defect.rstrip()}")
    print(f"{len(tests)} run, {len(wrong)} wrong")
    return 1 if wrong or not tests else 0


if __name__ == "__main__":
    sys.exit(main())
