#!/usr/bin/env python3
"""Each run of scripts/soak.sh has a folder of its own, and the last ones stay.

    soak_folder_test.py SOURCE-FOLDER

No agent is started: the runs end at an option that soak_run.py refuses.
"""
import fcntl
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(sys.argv.pop(1)).resolve()
KEPT = 8


class SoakFolder(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.build = pathlib.Path(scratch.name)
        self.soaks = self.build / "soak"

    def run_soak(self):
        """The folder that a run says it writes to."""
        done = subprocess.run([SOURCE / "scripts/soak.sh", "--no-build", "--build-dir", self.build,
                               "--data", self.build, "--minutes", "1", "--warm-up", "100"],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              check=False)
        self.assertIn("the warm-up has to be a part of the time", done.stderr)
        said = done.stdout.splitlines()[0]
        self.assertTrue(said.startswith("soak: logs and dumps go to "), said)
        return pathlib.Path(said.split(" go to ")[1])

    def earlier_run(self, age):
        """The folder of a run that began `age` seconds ago."""
        folder = self.soaks / f"earlier{age}"
        folder.mkdir(parents=True)
        (folder / "lock").touch()
        then = folder.stat().st_mtime - age
        os.utime(folder, (then, then))
        return folder

    def test_two_runs_have_two_folders(self):
        first, second = self.run_soak(), self.run_soak()
        self.assertNotEqual(first, second)
        self.assertTrue(first.is_dir() and second.is_dir())

    def test_the_last_ones_stay(self):
        earlier = [self.earlier_run(age) for age in range(1000, 1000 + KEPT + 2)]
        latest = self.run_soak()
        self.assertEqual(set(self.soaks.iterdir()), {latest, *earlier[:KEPT - 1]})

    def test_a_run_that_goes_on_keeps_its_folder(self):
        earlier = [self.earlier_run(age) for age in range(1000, 1000 + KEPT + 2)]
        with open(earlier[-1] / "lock", "w", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            self.run_soak()
        self.assertTrue(earlier[-1].is_dir())
        self.assertFalse(earlier[-2].exists())


if __name__ == "__main__":
    unittest.main()
