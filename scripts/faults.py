#!/usr/bin/env python3
"""Seeds one small fault at a time into the library, and shows which tests notice.

    scripts/faults.py [--only ID...] [--preset PRESET] [--jobs N] [--again]
    scripts/faults.py --list | --check | --table

The faults stand in tests/faults/*.toml. Each names a text of a source, which occurs there exactly
once, what stands there instead, the tests that should notice, and the preset in which they run.
For each fault the script changes a copy of the tree under build/faults, builds the library and the
affected tests, and runs these. When they all pass it builds and runs all wire tests of the preset;
when those pass too, the fault has survived. Before that the same tests must pass without a fault.

Only a test that ctest reports as failed counts. A fault that does not compile is an error of the
list. Results are kept in build/faults/results.json, and a later run goes on from there: a result
stands until the fault, the library or the tests change. --again judges once more.

The exit status is 0 if at least 95 % of the faults were caught and none is in error.
"""
import argparse
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import tomllib
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[1]
SOURCES = "JexHybridSlice"
FOLDER = "tests/faults"
LIBRARY_TARGETS = ["jex_partner_static", "JexPartnerAgentLib"]
PRESETS = ["release", "asan", "tsan"]
WIRE_TESTS = r"^wire\."
LEAST_FAULTS = 120
LEAST_SHARE = 0.95
RUN_SECONDS = 1800  # of one run of ctest
# Of one wire test in the copy, in place of the limit in its list: a fault that makes a test hang is
# caught, and need not be waited for as long as a slow machine may need.
TEST_SECONDS = 120
WIRE_LIST = "tests/wire/CMakeLists.txt"
CAUGHT, SURVIVED, ERROR = "caught", "SURVIVED", "ERROR"
KEYS = {"id", "fault", "find", "replace", "tests", "preset", "also"}


class ListError(Exception):
    """Something is wrong with the list or the tree, not with the tests."""


# ---- the list

def load(root):
    """All faults of the list, each with the source that it changes and its edits."""
    faults = []
    for path in sorted((root / FOLDER).glob("*.toml")):
        try:
            document = tomllib.loads(path.read_text(encoding="utf-8"))
        except tomllib.TOMLDecodeError as error:
            raise ListError(f"{path.name}: {error}") from error
        for entry in document.get("fault", []):
            name = f"{path.name}: {entry.get('id', 'a fault without id')}"
            missing = KEYS - {"preset", "also"} - entry.keys()
            if missing or entry.keys() - KEYS:
                wrong = sorted(missing or entry.keys() - KEYS)
                raise ListError(f"{name}: {'lacks' if missing else 'has unknown'} {', '.join(wrong)}")
            edits = [{"file": document["source"], "find": entry["find"],
                      "replace": entry["replace"]}]
            edits += [{"file": document["source"], **more} for more in entry.get("also", [])]
            faults.append({"id": entry["id"], "fault": entry["fault"], "file": document["source"],
                           "edits": edits, "tests": entry["tests"],
                           "preset": entry.get("preset", "release")})
    return faults


def changed(text, edits):
    """`text` with all edits made. Each edit's text must occur exactly once."""
    for edit in edits:
        count = text.count(edit["find"])
        if count != 1:
            raise ListError(f"its text occurs {count} times in {edit['file']}, not once")
        if edit["find"] == edit["replace"]:
            raise ListError("it changes nothing")
        text = text.replace(edit["find"], edit["replace"])
    return text


def edits_by_file(fault):
    files = {}
    for edit in fault["edits"]:
        files.setdefault(edit["file"], []).append(edit)
    return files


def violations(root, faults):
    """What is wrong with the list: one line per finding."""
    found = []
    seen = set()
    for fault in faults:
        name = fault["id"]
        if name in seen:
            found.append(f"{name}: there are two of this id")
        seen.add(name)
        if fault["preset"] not in PRESETS:
            found.append(f"{name}: there is no preset {fault['preset']}")
        try:
            re.compile(fault["tests"])
        except re.error as error:
            found.append(f"{name}: its tests are no regular expression: {error}")
        for file, edits in edits_by_file(fault).items():
            try:
                changed((root / file).read_text(encoding="utf-8"), edits)
            except FileNotFoundError:
                found.append(f"{name}: {file} does not exist")
            except ListError as error:
                found.append(f"{name}: {error}")
    for source in sorted((root / SOURCES).glob("*.cpp")):
        if not any(fault["file"] == f"{SOURCES}/{source.name}" for fault in faults):
            found.append(f"{SOURCES}/{source.name}: no fault changes it")
    if len(faults) < LEAST_FAULTS:
        found.append(f"the list has {len(faults)} faults, fewer than {LEAST_FAULTS}")
    return found


# ---- the copy of the tree

def tracked_files(root):
    listing = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                             cwd=root, check=True, stdout=subprocess.PIPE).stdout
    return sorted(name for name in listing.decode().split("\0") if name and (root / name).is_file())


class Tree:
    """A copy of the checkout with builds of its own. What is equal is not written again."""

    def __init__(self, folder, jobs):
        self.folder = folder
        self.jobs = jobs
        self.log = folder.parent / "log"
        self.configured = set()
        self.listed = {}

    def update(self):
        wanted = set(tracked_files(ROOT))
        for name in wanted:
            source, target = ROOT / name, self.folder / name
            if not target.exists() or source.read_bytes() != target.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)
        for path in self.folder.rglob("*"):
            name = path.relative_to(self.folder)
            if name.parts[0] != "build" and path.is_file() and str(name) not in wanted:
                path.unlink()

        limited, count = re.subn(r"(?<!DISCOVERY_)TIMEOUT \d+", f"TIMEOUT {TEST_SECONDS}",
                                 (ROOT / WIRE_LIST).read_text(encoding="utf-8"))
        if count == 0:
            raise ListError(f"{WIRE_LIST}: no limit of a test")
        self.write(WIRE_LIST, limited)

    def write(self, name, text):
        (self.folder / name).write_text(text, encoding="utf-8")

    def run(self, command, seconds=None):
        """The exit status of a command, and the end of its output; None if it took too long."""
        with open(self.log, "w", encoding="utf-8") as log:
            try:
                status = subprocess.run(command, cwd=self.folder, stdin=subprocess.DEVNULL,
                                        stdout=log, stderr=log, timeout=seconds,
                                        check=False).returncode
            except subprocess.TimeoutExpired:
                status = None
        return status, self.log.read_text(encoding="utf-8", errors="replace")[-3000:]

    def configure(self, preset):
        if preset in self.configured:
            return
        status, output = self.run(["scripts/configure", preset])
        if status != 0:
            raise ListError(f"the tree cannot be configured for {preset}:\n{output}")
        self.configured.add(preset)

    def build(self, preset, targets):
        """Null, or why it does not build."""
        self.configure(preset)
        status, output = self.run(["cmake", "--build", f"build/{preset}", "--target", *targets,
                                   "--", f"-j{self.jobs}"])
        return None if status == 0 else output

    def all_tests(self, preset):
        """All tests that have been built: name, number and executable. Faults do not change them."""
        if preset in self.listed:
            return self.listed[preset]

        def ctest(*arguments):
            return subprocess.run(["ctest", "--preset", preset, *arguments], cwd=self.folder,
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                                  check=True).stdout
        commands = {test["name"]: test.get("command", [""])[0]
                    for test in json.loads(ctest("--show-only=json-v1"))["tests"]}
        self.listed[preset] = [
            (name, number, pathlib.Path(commands.get(name, "")).name)
            for number, name in re.findall(r"^ *Test +#(\d+): (.+)$", ctest("-N"), re.MULTILINE)]
        return self.listed[preset]

    def tests(self, preset, pattern):
        """The tests whose names match, without those that CI leaves out."""
        left_out = not_for_tsan(self.folder) if preset == "tsan" else r"$^"
        return [test for test in self.all_tests(preset)
                if re.search(pattern, test[0]) and not re.search(left_out, test[0])]

    def test(self, preset, pattern):
        """Runs tests up to the first that fails. The names of those that failed, and how many ran.

        They are chosen by number: ctest's own regular expressions know too few parentheses."""
        numbers = [number for _, number, _ in self.tests(preset, pattern)]
        if not numbers:
            return [], 0
        results = self.folder / "build" / preset / "faults.xml"
        results.unlink(missing_ok=True)
        self.run(["ctest", "--preset", preset, "-I", f"0,0,0,{','.join(numbers)}",
                  "--stop-on-failure", "-j", str(self.jobs), "--output-junit", str(results)],
                 RUN_SECONDS)
        return failed_tests(results)

    def executables(self, preset, pattern):
        """Targets of the executables whose tests match."""
        return sorted({executable for _, _, executable in self.tests(preset, pattern)})


def failed_tests(results):
    """The tests that a JUnit file calls failed, and the number of those that ran."""
    if not results.exists():
        return [], 0
    failed, ran = [], 0
    for case in xml.etree.ElementTree.parse(results).getroot().iter("testcase"):
        status = case.get("status")
        if status in ("run", "fail"):
            ran += 1
        if status == "fail":
            failed.append(case.get("name"))
    return failed, ran


def not_for_tsan(root):
    """The tests that .ci/run leaves out under the thread sanitizer."""
    text = (root / ".ci/run").read_text(encoding="utf-8")
    return "".join(re.findall(r"^not_for_tsan\+?='([^']*)'", text, re.MULTILINE))


# ---- the run

class Run:
    def __init__(self, tree, results_file, again):
        self.tree = tree
        self.results_file = results_file
        self.results = json.loads(results_file.read_text()) if results_file.exists() else {}
        self.baselines_file = results_file.with_name("baselines.json")
        self.baselines = json.loads(self.baselines_file.read_text()) \
            if self.baselines_file.exists() else {}
        self.again = again
        self.whole_wire_passes = set()
        state = hashlib.sha256()
        for name in tracked_files(ROOT):
            if name.startswith((SOURCES + "/", "tests/wire/", "tests/support/", "sdk/")):
                state.update(name.encode() + b"\0" + (ROOT / name).read_bytes())
        self.state = state.hexdigest()

    def key(self, fault):
        return hashlib.sha256((self.state + json.dumps(fault, sort_keys=True)).encode()).hexdigest()

    def known(self, fault):
        result = self.results.get(fault["id"])
        return result is not None and result["key"] == self.key(fault) and not self.again \
            and result["outcome"] != ERROR

    def require_pass(self, preset, pattern):
        failed, ran = self.tree.test(preset, pattern)
        if failed or not ran:
            raise ListError(f"without a fault, {preset}: "
                            + (f"{', '.join(failed)} failed" if failed else "no test ran"))

    def baseline(self, faults):
        """Builds all wire tests; the affected ones pass without a fault."""
        for preset in sorted({fault["preset"] for fault in faults}):
            say(f"without a fault, {preset}: building")
            why = self.tree.build(preset, LIBRARY_TARGETS + ["tests/wire/all"])
            if why is not None:
                raise ListError(f"the tree does not build for {preset}:\n{why}")
            self.tree.listed.pop(preset, None)
            patterns = sorted({fault["tests"] for fault in faults if fault["preset"] == preset})
            passed = self.baselines.get(preset, {})
            if passed.get("state") == self.state and passed.get("seconds") == TEST_SECONDS \
                    and set(patterns) <= set(passed["patterns"]):
                continue
            say(f"without a fault, {preset}: testing")
            self.require_pass(preset, "|".join(patterns))
            self.baselines[preset] = {"state": self.state, "seconds": TEST_SECONDS,
                                      "patterns": patterns}
            self.baselines_file.write_text(json.dumps(self.baselines, indent=1) + "\n")

    def judge(self, fault):
        """How a fault ends: the outcome and by what."""
        preset = fault["preset"]
        affected = self.tree.executables(preset, fault["tests"])
        if not affected:
            return ERROR, f"no test of {preset} matches {fault['tests']}"
        originals = {}
        try:
            for file, edits in edits_by_file(fault).items():
                originals[file] = (ROOT / file).read_text(encoding="utf-8")
                self.tree.write(file, changed(originals[file], edits))
            why = self.tree.build(preset, affected)
            if why is not None:
                return ERROR, f"does not build:\n{why}"
            failed, ran = self.tree.test(preset, fault["tests"])
            if failed:
                return CAUGHT, failed[0]
            if not ran:
                return ERROR, "no test ran"
            why = self.tree.build(preset, ["tests/wire/all"])
            if why is not None:
                return ERROR, f"does not build:\n{why}"
            failed, _ = self.tree.test(preset, WIRE_TESTS)
        finally:
            for file, text in originals.items():
                self.tree.write(file, text)
        if not failed:
            return SURVIVED, ""
        self.confirm_whole_wire(preset)
        return CAUGHT, failed[0]

    def confirm_whole_wire(self, preset):
        if preset in self.whole_wire_passes:
            return
        why = self.tree.build(preset, ["tests/wire/all"])
        if why is not None:
            raise ListError(f"the tree does not build for {preset}:\n{why}")
        say(f"without a fault, {preset}: testing all of wire")
        self.require_pass(preset, WIRE_TESTS)
        self.whole_wire_passes.add(preset)

    def run(self, faults):
        todo = [fault for fault in faults if not self.known(fault)]
        say(f"{len(faults)} faults, {len(faults) - len(todo)} judged before")
        if todo:
            self.tree.update()
            self.baseline(todo)
        for number, fault in enumerate(todo, 1):
            began = time.monotonic()
            outcome, by = self.judge(fault)
            self.results[fault["id"]] = {
                "key": self.key(fault), "outcome": outcome, "by": by, "preset": fault["preset"],
                "seconds": round(time.monotonic() - began)}
            self.results_file.write_text(json.dumps(self.results, indent=1, sort_keys=True) + "\n")
            say(f"{number}/{len(todo)} {fault['id']}: {outcome} {by}")


def say(text):
    print(f"faults: {text}", file=sys.stderr, flush=True)


def print_table(faults, results):
    """One row per fault, then the share; true if that is enough."""
    counts = {CAUGHT: 0, SURVIVED: 0, ERROR: 0}
    for fault in faults:
        result = results.get(fault["id"])
        if result is None:
            print(f"{fault['id']:<44} not judged")
            continue
        counts[result["outcome"]] += 1
        by = f"{result['preset']}: {result['by'].splitlines()[0]}" if result["by"] else ""
        print(f"{fault['id']:<44} {result['outcome']:<8} {result['seconds']:>4} s  {by}")
        print(f"    {pathlib.Path(fault['file']).name}: {fault['fault']}")
    judged = counts[CAUGHT] + counts[SURVIVED]
    share = counts[CAUGHT] / judged if judged else 0
    print(f"{len(faults)} faults: {counts[CAUGHT]} caught, {counts[SURVIVED]} survived, "
          f"{counts[ERROR]} in error, {len(faults) - judged - counts[ERROR]} not judged; "
          f"{100 * share:.1f} % of the judged ones caught")
    return judged == len(faults) and share >= LEAST_SHARE


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", nargs="+", metavar="ID", help="judge these faults")
    parser.add_argument("--preset", choices=PRESETS, help="judge the faults of this preset")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N",
                        help="compile and test N at a time (default: the number of cores)")
    parser.add_argument("--again", action="store_true", help="judge again what has a result")
    parser.add_argument("--list", action="store_true", help="list the faults")
    parser.add_argument("--check", action="store_true",
                        help="check that every fault fits the sources; builds nothing")
    parser.add_argument("--table", action="store_true", help="print the results that there are")
    parser.add_argument("--root", type=pathlib.Path, default=ROOT, help=argparse.SUPPRESS)
    options = parser.parse_args()
    try:
        faults = load(options.root)
        found = violations(options.root, faults)
        if options.check:
            print("\n".join(found + [f"{len(faults)} faults, {len(found)} do not fit"]))
            return 1 if found else 0
        unknown = set(options.only or []) - {fault["id"] for fault in faults}
        if unknown:
            raise ListError(f"there is no fault {', '.join(sorted(unknown))}; --list names them")
        faults = [fault for fault in faults
                  if (not options.only or fault["id"] in options.only)
                  and options.preset in (None, fault["preset"])]
        if options.list:
            for fault in faults:
                print(f"{fault['id']:<44} {fault['preset']:<8} {fault['fault']}")
            return 0
        folder = ROOT / "build" / "faults"
        (folder / "tree").mkdir(parents=True, exist_ok=True)
        run = Run(Tree(folder / "tree", options.jobs), folder / "results.json", options.again)
        if not options.table:
            unfit = [line for line in found if line.split(":")[0] in {f["id"] for f in faults}]
            if unfit:
                raise ListError("\n".join(unfit))
            run.run(faults)
        return 0 if print_table(faults, run.results) else 1
    except ListError as error:
        print(f"faults: {error}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
