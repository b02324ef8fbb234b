#!/usr/bin/env python3
"""The comparison of dumps tells every difference, and only those."""
import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts"))
import compare_dumps  # noqa: E402


def entry(handle, key):
    return f'{{"handle":{handle},"key":{{"f":"{key}"}}}}\n'


class CompareDumpsTest(unittest.TestCase):
    def compare(self, expected, actual):
        with tempfile.TemporaryDirectory() as folder:
            paths = []
            for name, lines in (("expected", expected), ("actual", actual)):
                paths.append(os.path.join(folder, name))
                with open(paths[-1], "w", encoding="utf-8") as out:
                    out.writelines(lines)
            reports = []
            return compare_dumps.compare(*paths, reports.append) + (reports,)

    def test_equal(self):
        lines = [entry(1, "a"), entry(2, "b"), '{"default":true,"action":"x"}\n']
        self.assertEqual(self.compare(lines, lines), (3, 0, []))

    def test_empty(self):
        self.assertEqual(self.compare([], []), (0, 0, []))

    def test_missing_in_the_middle_is_one_difference(self):
        lines = [entry(n, n) for n in range(9)]
        compared, differences, reports = self.compare(lines, lines[:4] + lines[5:])
        self.assertEqual((compared, differences), (9, 1))
        self.assertEqual(reports, ["missing: " + lines[4].strip()])

    def test_missing_at_the_end(self):
        lines = [entry(n, n) for n in range(9)]
        self.assertEqual(self.compare(lines, lines[:-1])[1], 1)

    def test_too_many(self):
        lines = [entry(n, n) for n in range(9)]
        compared, differences, reports = self.compare(lines[1:], lines)
        self.assertEqual((compared, differences), (8, 1))
        self.assertEqual(reports, ["too many: " + lines[0].strip()])

    def test_another_value_of_the_same_entry(self):
        compared, differences, reports = self.compare([entry(1, "a")], [entry(2, "a")])
        self.assertEqual((compared, differences), (1, 1))
        self.assertTrue(reports[0].startswith("differs: "))

    def test_another_default(self):
        self.assertEqual(self.compare(['{"default":true,"action":"x"}\n'],
                                      ['{"default":true,"action":"y"}\n'])[1], 1)

    def test_no_dump_is_refused(self):
        for line in ("hello\n", "[]\n", '{"ok":true}\n'):
            with self.assertRaises(compare_dumps.NotADump):
                self.compare([line], [line])

    def test_same_entry_twice_is_refused(self):
        with self.assertRaises(compare_dumps.NotADump):
            self.compare([entry(1, "a")], [entry(2, "b"), entry(3, "b")])


if __name__ == "__main__":
    unittest.main()
