#!/usr/bin/env python3
"""Runs ctest, and says in its first and last lines how the tests ran.

    scripts/run_tests.py CTEST-ARGUMENT...

Tests run beside each other where each can have a private world. Where that cannot be, for whatever
reason, they run one at a time. What was skipped is listed by its reason at the end. The status is
that of ctest.
"""
import collections
import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
REASON = re.compile(r": Skipped\n(.+)|^skipped: (.+)", re.MULTILINE)


def say(text):
    print(f"tests: {text}", flush=True)


def why_alone():
    """Why no private world can be made; empty where one can."""
    tried = subprocess.run([os.path.join(ROOT, "scripts", "in-private-namespaces"), "true"],
                           stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                           check=False)
    if tried.returncode == 0:
        return ""
    said = tried.stderr.strip().splitlines() or ["no reason given"]
    return said[-1].split(": ", 1)[-1]


def manner():
    """The number of tests at a time, and the line that says why."""
    reason = why_alone()
    if reason:
        return 1, f"one at a time, in the open: {reason}"
    # Tests wait for processes and for the kernel most of their time.
    parallel = 3 * (os.cpu_count() or 1)
    return parallel, f"{parallel} at a time, each in a private world"


def reason_of(case):
    found = REASON.search(case.findtext("system-out") or "")
    if found is None:
        return "no reason given"
    return (found.group(1) or found.group(2)).strip()


def summaries(results):
    """Lines about the test cases of a JUnit file."""
    cases = list(xml.etree.ElementTree.parse(results).getroot().iter("testcase"))
    skipped = [case for case in cases if case.get("status") == "notrun"]
    failed = [case for case in cases if case.get("status") == "fail"]
    yield (f"{len(cases) - len(skipped) - len(failed)} passed, {len(failed)} failed, "
           f"{len(skipped)} skipped")
    for reason, count in collections.Counter(map(reason_of, skipped)).most_common():
        yield f"{count} skipped: {reason}"


def main():
    parallel, how = manner()
    say(how)
    with tempfile.TemporaryDirectory() as folder:
        results = os.path.join(folder, "results.xml")
        status = subprocess.run(["ctest", "--parallel", str(parallel), "--output-junit", results]
                                + sys.argv[1:], check=False).returncode
        if os.path.exists(results):
            for line in summaries(results):
                say(line)
    say(how)
    return status


if __name__ == "__main__":
    sys.exit(main())
