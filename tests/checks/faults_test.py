"""faults.py finds faults that do not fit, and counts only what ctest calls failed as caught."""
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
import faults  # noqa: E402  after its folder is in the path

SOURCE = "JexHybridSlice/Some.cpp"
ENTRY = {"id": "some-fault", "fault": "Something goes wrong.", "find": "one();", "replace": "two();",
         "tests": "Some", "preset": "release"}


def toml(entries):
    lines = [f'source = "{SOURCE}"']
    for entry in entries:
        lines += ["[[fault]]"] + [f"{key} = '{value}'" for key, value in entry.items()]
    return "\n".join(lines)


class Faults(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        (self.root / "JexHybridSlice").mkdir()
        (self.root / "tests" / "faults").mkdir(parents=True)
        self.source("one(); three();")

    def source(self, text):
        (self.root / SOURCE).write_text(text)

    def violations(self, *entries):
        (self.root / "tests/faults/some.toml").write_text(toml(entries))
        found = faults.violations(self.root, faults.load(self.root))
        return [line for line in found if not line.startswith("the list has")]

    def test_takes_what_fits(self):
        self.assertEqual(self.violations(ENTRY), [])

    def test_finds_a_text_that_is_gone(self):
        self.source("three();")
        self.assertEqual(self.violations(ENTRY),
                         [f"some-fault: its text occurs 0 times in {SOURCE}, not once"])

    def test_finds_a_text_that_is_there_twice(self):
        self.source("one(); one();")
        self.assertEqual(self.violations(ENTRY),
                         [f"some-fault: its text occurs 2 times in {SOURCE}, not once"])

    def test_finds_a_fault_that_changes_nothing(self):
        self.assertEqual(self.violations({**ENTRY, "replace": "one();"}),
                         ["some-fault: it changes nothing"])

    def test_finds_two_of_an_id(self):
        self.assertEqual(self.violations(ENTRY, ENTRY), ["some-fault: there are two of this id"])

    def test_finds_an_unknown_preset_and_a_wrong_pattern(self):
        found = self.violations({**ENTRY, "preset": "fast", "tests": "("})
        self.assertEqual(found[0], "some-fault: there is no preset fast")
        self.assertIn("some-fault: its tests are no regular expression: ", found[1])

    def test_finds_a_source_without_faults(self):
        (self.root / "JexHybridSlice/Other.cpp").write_text("")
        self.assertEqual(self.violations(ENTRY),
                         ["JexHybridSlice/Other.cpp: no fault changes it"])

    def test_finds_a_list_that_is_too_short(self):
        (self.root / "tests/faults/some.toml").write_text(toml([ENTRY]))
        self.assertIn("the list has 1 faults, fewer than 120",
                      faults.violations(self.root, faults.load(self.root)))

    def test_refuses_an_entry_that_lacks_something(self):
        entry = {key: value for key, value in ENTRY.items() if key != "tests"}
        with self.assertRaisesRegex(faults.ListError, "some.toml: some-fault: lacks tests"):
            self.violations(entry)

    def failed(self, cases):
        path = self.root / "results.xml"
        path.write_text(f"<testsuite>{cases}</testsuite>")
        return faults.failed_tests(path)

    def test_counts_failed_tests_only(self):
        cases = ('<testcase name="a" status="run"/><testcase name="b" status="fail"/>'
                 '<testcase name="c" status="disabled"/><testcase name="d" status="notrun"/>')
        self.assertEqual(self.failed(cases), (["b"], 2))

    def test_takes_a_missing_result_for_no_catch(self):
        self.assertEqual(faults.failed_tests(self.root / "none.xml"), ([], 0))


if __name__ == "__main__":
    unittest.main()
