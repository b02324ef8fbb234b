#!/usr/bin/env python3
"""The demo with a routing table of the user's own.

    demo_routes_test.py SOURCE-FOLDER BUILD-FOLDER
"""
import gzip
import os
import subprocess
import sys
import tempfile
import unittest

SOURCE_DIR, BUILD_DIR = sys.argv.pop(1), sys.argv.pop(1)
ROUTES = "# mine\n10.0.0.0/8\n\n  2001:db8::/32\n192.0.2.0/24\n0.0.0.0/0\n2001:db8:1::/48\n"


class DemoRoutes(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.scratch = scratch.name

    def write(self, name, content, opened=open):
        with opened(os.path.join(self.scratch, name), "wt") as file:
            file.write(content)

    def demo(self, *arguments):
        """Runs it in the folder of the files, so that their names are relative ones."""
        return subprocess.run([os.path.join(SOURCE_DIR, "scripts", "demo.sh"), "--no-build",
                               "--build-dir", BUILD_DIR, *arguments], cwd=self.scratch,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              check=False)

    def loads_five(self, name):
        done = self.demo("--routes", name)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("\nroutes: 3 IPv4 and 2 IPv6 prefixes of "
                      f"{os.path.join(self.scratch, name)}\n", done.stdout)
        self.assertRegex(done.stdout, r"\nipv4_lpm +\d+ +0\n")
        self.assertTrue(done.stdout.endswith("differences: 0\n"), done.stdout)

    def test_plain(self):
        self.write("my routes.txt", ROUTES)
        self.loads_five("my routes.txt")

    def test_gzip(self):
        self.write("routes.gz", ROUTES, gzip.open)
        self.loads_five("routes.gz")

    def test_a_file_that_is_not_there(self):
        done = self.demo("--routes", "none.txt")
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertEqual(done.stderr, "demo: cannot read the file of routes 'none.txt'\n")

    def test_a_file_without_routes(self):
        self.write("empty.txt", "# none\n")
        done = self.demo("--routes", "empty.txt")
        self.assertEqual(done.returncode, 1)
        self.assertIn("has no routes: it needs one PREFIX/LENGTH per line\n", done.stderr)

    def test_a_line_that_is_no_route(self):
        self.write("wrong.txt", "10.0.0.0/8\nnonsense\n")
        done = self.demo("--routes", "wrong.txt")
        self.assertEqual(done.returncode, 1)
        self.assertIn("nonsense", done.stderr)


if __name__ == "__main__":
    unittest.main()
