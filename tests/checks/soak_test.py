#!/usr/bin/env python3
"""The soak tells of what goes wrong: each case does some damage, and expects to read about it.

    soak_test.py BIN-FOLDER DATA-FOLDER

It needs namespaces of its own, as the soak that it starts has none. DATA-FOLDER is what
scripts/make_data.sh makes.
"""
import os
import re
import signal
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "scripts"))
import demo_run  # noqa: E402
import soak_work  # noqa: E402

BIN = sys.argv.pop(1)
DATA = sys.argv.pop(1)
SECONDS = 9
WARM_UP = 3


class Soak:
    """A short soak, in a folder of its own."""

    def __init__(self, *arguments, environment=None):
        self.folder = tempfile.TemporaryDirectory()
        self.popen = subprocess.Popen(
            [os.path.join(ROOT, "scripts", "soak_run.py"), "--bin", BIN, "--out", self.folder.name,
             "--data", DATA,
             "--seed", "1", "--minutes", str(SECONDS / 60), "--warm-up", str(WARM_UP), *arguments],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            env={**os.environ, **(environment or {})})
        self.text = ""

    def await_line(self, wanted):
        for line in self.popen.stdout:
            self.text += line
            found = re.search(wanted, line)
            if found:
                return found
        raise AssertionError(f"no line {wanted} in:\n{self.text}")

    def end(self):
        self.text += self.popen.communicate()[0]
        self.folder.cleanup()
        return self.popen.returncode


class SoakTest(unittest.TestCase):
    def failed(self, soak, *wanted):
        """Ends the soak and looks for the problems that it is to tell of."""
        self.assertEqual(soak.end(), 1, soak.text)
        for problem in wanted:
            self.assertRegex(soak.text, r"\nproblem after [0-9.]+ s: " + problem)
        self.assertRegex(soak.text, r"\nsoak: [0-9]+ s, seed 1: FAILED\n$")

    def ended(self, name, number, status):
        soak = Soak()
        process = int(soak.await_line(rf"^{name}: pid (\d+)")[1])
        soak.await_line("^tables filled")
        os.kill(process, number)
        self.failed(soak, f"{name} ended unexpectedly, with status {status}\n")

    def test_a_killed_agent(self):
        self.ended("slice-agent", signal.SIGKILL, -9)

    def test_a_killed_onlooker(self):
        self.ended("slice-counters", signal.SIGTERM, 0)

    def test_an_update_that_the_device_refuses(self):
        soak = Soak(environment={"JX_MODEL_FAULTS": "pipe_process_plcmt_info:27000:status=4"})
        self.failed(soak, "slice-agent says: Error: ",
                    "slice-agent ended unexpectedly, with status -6\n")

    def test_an_entry_behind_the_partners_back(self):
        soak = Soak()
        soak.await_line("^tables filled")
        arguments = [os.path.join(BIN, "partner-shell"), "--json", "--device", "2",
                     "--handle-base", "50000000", "--program", soak_work.PROGRAMS["l2_switch"],
                     "--program", soak_work.PROGRAMS["router"]]
        with tempfile.TemporaryDirectory() as folder:
            other = demo_run.Process("other", arguments, os.path.join(folder, "log"))
            other.popen.stdin.write(b"add acl ipv4.src=192.0.2.1&&&255.255.255.255 -> deny "
                                    b"priority=3\n")
            other.popen.stdin.flush()
            self.assertIn('"ok":true', other.read_line(60))
            self.failed(soak, r"[a-z]+: acl: 1 differences [^\n]+:\n  too many: .*192\.0\.2\.1")
            other.end()

    def test_descriptors_that_stay_open(self):
        soak = Soak()
        soak.await_line("^warm-up over")
        with tempfile.TemporaryDirectory() as folder:
            for port in range(100, 140):
                subprocess.run([os.path.join(BIN, "switchctl"), "port-add",
                                f"{port}=pcap:,{folder}/{port}.pcap"],
                               check=True, stdout=subprocess.DEVNULL)
            self.failed(soak, r"slice-agent: open descriptors grew from \d+ in the warm-up to \d+, "
                              r"by more than 16\n")

    def test_bounds_that_nothing_keeps(self):
        soak = Soak("--memory-bound", "-1000", "--descriptor-bound", "-1000", "--thread-bound",
                    "-1000")
        self.failed(soak, *[
            rf"{process}: {what} in the warm-up to [0-9,]+"
            for process in ("slice-agent", "partner-shell", "slice-counters", "switchctl watch")
            for what in ("resident memory grew from [0-9,]+ KiB", r"open descriptors grew from \d+",
                         r"threads grew from \d+")])


if __name__ == "__main__":
    unittest.main()
