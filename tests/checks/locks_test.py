#!/usr/bin/env python3
"""Lint finds what a lock of the model guards and is used without it, and nothing else.

    locks_test.py SOURCE-DIR

clang-tidy reads the cases with the project's .clang-tidy.
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.abspath(sys.argv.pop(1))

SHARED = """
#include "model/base/mutex.h"
using namespace jxmodel;
struct Table {
  Mutex first ABSL_ACQUIRED_BEFORE(mutex);
  Mutex mutex;
  Condition changed;
  int entries ABSL_GUARDED_BY(mutex) = 0;
  SharedMutex gate;
  int devices ABSL_GUARDED_BY(gate) = 0;
  void add() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) { ++entries; }
};
"""

SOUND = """
  { const MutexLock lock(table.mutex); table.add(); }
  { const MutexLock lock(table.first); const MutexLock next(table.mutex); table.entries = 1; }
  { MutexLock lock(table.mutex); lock.unlock(); lock.lock(); table.entries = 2; }
  { const ReaderLock lock(table.gate); if (table.devices == 3) return; }
  { const WriterLock lock(table.gate); table.devices = 4; }
  const MutexLock lock(table.mutex);
  table.changed.waitFor(table.mutex, std::chrono::seconds(1));
  table.changed.wait(table.mutex, [&]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(table.mutex) {
    return table.entries == 5;
  });
"""

FAULTS = {
    "table.entries = 1;": "writing variable 'entries' requires holding mutex 'table.mutex'",
    "if (table.entries == 2) return;":
        "reading variable 'entries' requires holding mutex 'table.mutex'",
    "table.add();": "calling function 'add' requires holding mutex 'table.mutex'",
    "const ReaderLock lock(table.gate); table.devices = 3;":
        "writing variable 'devices' requires holding mutex 'table.gate' exclusively",
    "MutexLock lock(table.mutex); lock.unlock(); table.entries = 4;":
        "writing variable 'entries' requires holding mutex 'table.mutex'",
    "const MutexLock lock(table.mutex); const MutexLock again(table.mutex);":
        "acquiring mutex 'table.mutex' that is already held",
    "const MutexLock lock(table.mutex); const MutexLock next(table.first);":
        "mutex 'first' must be acquired before 'mutex'",
    "table.changed.waitFor(table.mutex, std::chrono::seconds(1));":
        "calling function 'waitFor' requires holding mutex 'table.mutex'",
    "const MutexLock lock(table.mutex); "
    "table.changed.wait(table.mutex, [&] { return table.entries == 5; });":
        "reading variable 'entries' requires holding mutex 'table.mutex'",
}


def lint(bodies):
    """The status of clang-tidy, and its findings in each of the bodies."""
    functions = [f"void use{number}(Table& table) {{ {' '.join(body.split())} }}"
                 for number, body in enumerate(bodies)]
    with tempfile.TemporaryDirectory() as folder:
        source = os.path.join(folder, "source.cpp")
        with open(source, "w", encoding="utf-8") as out:
            out.write(SHARED + "\n".join(functions) + "\n")
        done = subprocess.run(
            ["clang-tidy", "-quiet", f"--config-file={ROOT}/.clang-tidy", source, "--",
             "-std=c++17", f"-I{ROOT}/sdk"],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    findings = [[] for _ in bodies]
    for line, text in re.findall(r":(\d+):\d+: (?:error|warning): (.*)", done.stdout):
        findings[int(line) - SHARED.count("\n") - 1].append(text)
    return done.returncode, findings


class Locks(unittest.TestCase):
    def test_sound_uses_pass(self):
        self.assertEqual(lint([SOUND]), (0, [[]]))

    def test_each_fault_is_found(self):
        status, findings = lint(FAULTS)
        self.assertNotEqual(status, 0)
        for (body, text), found in zip(FAULTS.items(), findings):
            with self.subTest(body):
                self.assertEqual(len(found), 1, found)
                self.assertIn(text, found[0])
                self.assertIn("clang-diagnostic-thread-safety-analysis", found[0])


if __name__ == "__main__":
    if shutil.which("clang-tidy") is None:
        sys.exit("locks_test: clang-tidy is not installed; scripts/setup installs it")
    unittest.main()
