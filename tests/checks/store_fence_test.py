#!/usr/bin/env python3
"""What the compiler makes of storeFenced(): a plain store with a full fence behind it.

    store_fence_test.py SOURCE_DIR CXX

No test that runs notices a fence that is missing, or a store that is sequentially consistent and no
more: x86-64 makes an exchange of that, which is as strong as a fence there and not elsewhere. So
this reads the instructions. It knows those of x86-64 and exits with 125, skipped, elsewhere.
"""
import platform
import re
import subprocess
import sys
import unittest

SKIPPED = 125
SOURCE = r"""
#include "JexHybridSlice/JexPartnerLibServer.h"

extern "C" {
void fenced(uint64_t* word, uint64_t value) { PartnerLib::storeFenced(*word, value); }
void unfenced(uint64_t* word, uint64_t value) { __atomic_store_n(word, value, __ATOMIC_RELEASE); }
void sequential(uint64_t* word, uint64_t value) { __atomic_store_n(word, value, __ATOMIC_SEQ_CST); }
void before(uint64_t* word, uint64_t value) {
  __atomic_thread_fence(__ATOMIC_SEQ_CST);
  __atomic_store_n(word, value, __ATOMIC_RELEASE);
}
}
"""
STORE = re.compile(r"movq\s+%rsi, \(%rdi\)$")
FENCE = re.compile(r"mfence$|lock[;\s]+or[lq]\s+\$0, .*\(%rsp\)$")


def assembly():
    folder, compiler = sys.argv[1:3]
    return subprocess.run(
        [compiler, "-std=c++17", "-O2", "-S", f"-I{folder}", f"-I{folder}/sdk/include",
         f"-I{folder}/JexHybridSlice", "-x", "c++", "-", "-o", "-"],
        input=SOURCE, check=True, stdout=subprocess.PIPE, text=True).stdout


def instructions(text, function):
    body = text.split(f"\n{function}:", 1)[1].split(f".size\t{function},", 1)[0]
    lines = [line.split("#")[0].strip() for line in body.splitlines()]
    return [line for line in lines if line and not re.match(r"\.|\S+:$", line)]


def has_fence_behind_store(lines):
    stores = [i for i, line in enumerate(lines) if STORE.match(line)]
    return len(stores) == 1 and any(FENCE.match(line) for line in lines[stores[0] + 1:])


class StoreFenceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.text = assembly()

    def fence_behind_store(self, function):
        return has_fence_behind_store(instructions(self.text, function))

    def test_the_librarys_store_has_its_fence(self):
        self.assertTrue(self.fence_behind_store("fenced"), instructions(self.text, "fenced"))

    def test_other_stores_are_told_apart(self):
        for function in ["unfenced", "sequential", "before"]:
            with self.subTest(function):
                self.assertFalse(self.fence_behind_store(function),
                                 instructions(self.text, function))


if __name__ == "__main__":
    if platform.machine() != "x86_64":
        print(f"skipped: the instructions of {platform.machine()} are not known here")
        sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
