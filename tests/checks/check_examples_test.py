"""check_examples.py finds examples that have grown, and no examples at all."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "check_examples.py"


PLUMBING = ["// ---- plumbing -----", "// ---- the example -----"]


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

    def test_takes_299_lines_of_100_characters(self):
        self.example("small", PLUMBING + ["x" * 100] * 297)
        self.assertEqual(self.check(), (0, "1 examples, 0 faults\n"))

    def test_takes_a_source_in_c(self):
        self.example("small", [f"/* {line[3:]} */" for line in PLUMBING], "main.c")
        self.assertEqual(self.check(), (0, "1 examples, 0 faults\n"))

    def test_finds_a_300th_line(self):
        self.example("small", PLUMBING)
        self.example("big", PLUMBING + ["x"] * 298)
        status, text = self.check()
        self.assertEqual(status, 1)
        self.assertIn("big: has 300 lines, more than 299\n2 examples, 1 faults\n", text)

    def test_finds_a_long_line(self):
        self.example("wide", PLUMBING + ["x" * 101])
        status, text = self.check()
        self.assertEqual(status, 1)
        self.assertIn("wide: line 3 has 101 characters\n", text)

    def test_finds_more_than_a_screen_of_plumbing(self):
        self.example("some", PLUMBING[:1] + ["x"] * 60 + PLUMBING[1:])
        self.example("much", PLUMBING[:1] + ["x"] * 61 + PLUMBING[1:])
        self.example("none", ["x"])
        status, text = self.check()
        self.assertEqual(status, 1)
        self.assertEqual(text, "much: has 61 lines of plumbing, more than 60\n"
                               "none: has no section of plumbing\n3 examples, 2 faults\n")

    def test_finds_a_second_source(self):
        self.example("split", PLUMBING)
        self.example("split", ["x"], "more.cpp")
        self.example("twins", PLUMBING)
        self.example("twins", PLUMBING, "main.c")
        status, text = self.check()
        self.assertEqual(status, 1)
        self.assertIn("split: has more than its main.cpp: more.cpp\n", text)
        self.assertIn("twins: has more than its main.c: main.cpp\n", text)

    def test_passes_over_p4_programs(self):
        self.example("small", PLUMBING)
        self.example("p4", ["x"], "bridge.p4")
        self.assertEqual(self.check(), (0, "1 examples, 0 faults\n"))

    def test_finds_that_there_is_nothing(self):
        self.assertEqual(self.check()[0], 1)
        (self.root / "empty").mkdir()
        status, text = self.check()
        self.assertEqual(status, 1)
        self.assertIn("empty: has no main.cpp or main.c\n", text)


if __name__ == "__main__":
    unittest.main()
