"""check_examples.py finds examples that have grown, and no examples at all."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "check_examples.py"


class CheckExamples(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = pathlib.Path(self.folder.name)

    def example(self, name, lines, source="main.cpp"):
        folder = self.root / name
        folder.mkdir(exist_ok=True)
        (folder / source).write_text("".join(line + "\n" for line in lines))

    def check(self):
        run = subprocess.run([sys.executable, str(CHECK), str(self.root)], capture_output=True,
                             text=True, check=False)
        return run.returncode, run.stdout

    def test_takes_249_lines_of_100_characters(self):
        self.example("small", ["x" * 100] * 249)
        self.assertEqual(self.check(), (0, "1 examples, 0 faults\n"))

    def test_finds_a_250th_line(self):
        self.example("small", ["x"])
        self.example("big", ["x"] * 250)
        status, text = self.check()
        self.assertEqual(status, 1)
        self.assertIn("big: has 250 lines, more than 249\n", text)

    def test_finds_a_long_line(self):
        self.example("wide", ["x", "x" * 101])
        status, text = self.check()
        self.assertEqual(status, 1)
        self.assertIn("wide: line 2 has 101 characters\n", text)

    def test_finds_a_second_source(self):
        self.example("split", ["x"])
        self.example("split", ["x"], "more.cpp")
        status, text = self.check()
        self.assertEqual(status, 1)
        self.assertIn("split: has more than its main.cpp: more.cpp\n", text)

    def test_finds_that_there_is_nothing(self):
        self.assertEqual(self.check()[0], 1)
        (self.root / "empty").mkdir()
        status, text = self.check()
        self.assertEqual(status, 1)
        self.assertIn("empty: has no main.cpp\n", text)


if __name__ == "__main__":
    unittest.main()
