"""run_documents.py finds blocks that nobody runs, and commands that fail, hang or are not known.

    run_documents_test.py ROOT BUILD-FOLDER     within private namespaces
"""
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import documents  # noqa: E402
import reader  # noqa: E402
import run_documents as sut  # noqa: E402

ROOT, BUILD = (pathlib.Path(sys.argv.pop(1)).resolve() for _ in range(2))
AGENT_PAGE, SHELL_PAGE = sut.PAGES[:2]


class Extraction(unittest.TestCase):
    def test_takes_indented_and_fenced_blocks_of_markdown(self):
        text = "Say:\n\n    a\n\n      b\n\nthen\n    no block\n\n```cpp\nc\n```\n"
        self.assertEqual(documents.blocks_of("x.md", text),
                         [("x.md", 3, ["a", "", "  b"]), ("x.md", 10, ["c"])])

    def test_takes_blocks_of_manual_pages_without_escapes(self):
        text = ".SH A\n.nf\n.RS\na \\-\\-b \\(aq\n.RE\n.fi\n.nf\nc\n.fi\n"
        self.assertEqual(documents.blocks_of("x.1", text),
                         [("x.1", 2, ["a --b '"]), ("x.1", 7, ["c"])])

    def test_takes_commands_with_arguments_out_of_sentences(self):
        text = "Use `ls -l`, `ls`, `rm x`, `ls\n-a` or `scripts/x y`.\n\n    not `ls here`\n"
        found = documents.spans_of("x.md", text, {"ls"})
        self.assertEqual([(span.line, span.text) for span in found],
                         [(1, "ls -l"), (1, "ls -a"), (2, "scripts/x y")])


class Check(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.world = sut.World(ROOT, BUILD, pathlib.Path(self.folder.name))

    def failures_of(self, name, change=lambda text: text):
        text = change((ROOT / name).read_text(encoding="utf-8"))
        return [f"{block}: {failure}"
                for _, block, failure, _ in sut.check(self.world, [name], {name: text})
                if failure is not None]

    def finds(self, name, change, wanted):
        failures = self.failures_of(name, change)
        self.assertEqual(len(failures), 1, failures)
        self.assertIn(wanted, failures[0])

    def test_accepts_a_page_whose_blocks_all_work(self):
        self.assertEqual(self.failures_of(sut.DESCRIPTIONS), [])

    def test_finds_a_block_that_is_neither_run_nor_listed(self):
        self.finds(sut.DESCRIPTIONS, lambda text: text + "\nTry:\n\n    slice-agent --version\n",
                   "slice-agent --version: is neither run nor listed")

    def test_finds_that_a_block_has_gone(self):
        self.finds(sut.DESCRIPTIONS, lambda text: text.replace("    router.json:", "router.json:"),
                   "stands in the check alone")

    def test_finds_output_that_is_no_longer_printed(self):
        self.finds(sut.DESCRIPTIONS, lambda text: text.replace("'lmp'", "lmp"),
                   "instead of `router.json: /tables/0/key/0/match: unknown match kind lmp`")

    def test_finds_a_command_that_fails(self):
        self.finds(AGENT_PAGE, lambda text: text.replace("2=if:veth2", "2=if:veth3"),
                   "veth3")

    def test_finds_a_line_that_the_shell_does_not_understand(self):
        self.finds(SHELL_PAGE, lambda text: text.replace("\ndump ipv4_lpm\n", "\nprint ipv4_lpm\n"),
                   "`print ipv4_lpm` is answered by error: ")

    def test_finds_an_option_that_a_program_does_not_know(self):
        self.finds(sut.DESCRIPTIONS, lambda text: text + "\nTry `slice-agent --loudly 1`.\n",
                   "slice-agent --loudly 1: slice-agent does not know --loudly")

    def test_finds_an_option_and_a_command_without_explanation(self):
        self.finds(SHELL_PAGE, lambda text: text.replace("latency", "times"),
                   "the page leaves out latency")
        self.finds(AGENT_PAGE, lambda text: text.replace("model\\-counter\\-update", ""),
                   "the page leaves out --model-counter-update")
        self.finds(AGENT_PAGE, lambda text: text.replace(".SH OPTIONS", ".SH OPTIONS\n.B --loud"),
                   "the help leaves out --loud")

    def test_finds_a_command_that_hangs(self):
        self.addCleanup(setattr, reader, "PATIENCE", reader.PATIENCE)
        reader.PATIENCE = 0.5
        with sut.Session(self.folder.name, {}) as session:
            with self.assertRaisesRegex(sut.Failure, "`exec sleep 100` does not end"):
                session.run("exec sleep 100")
            with self.assertRaisesRegex(sut.Failure, "`exec sleep 100` hangs"):
                session.start("exec sleep 100")
            session.running[-1].kill()
            session.running.clear()


if __name__ == "__main__":
    reader.require_own_world()
    unittest.main()
