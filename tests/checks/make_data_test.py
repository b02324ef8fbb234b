#!/usr/bin/env python3
"""What make_data makes: the same bytes everywhere, and of the shape that data/README.md promises.

    make_data_test.py MAKE-DATA SOURCE-FOLDER
"""
import collections
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

MAKE_DATA = os.path.abspath(sys.argv.pop(1))
SOURCES = os.path.join(os.path.abspath(sys.argv.pop(1)), "data")

# How many prefixes of each length a full Internet table has.
IPV4_LENGTHS = {8: 16, 9: 13, 10: 38, 11: 103, 12: 299, 13: 581, 14: 1203, 15: 2100, 16: 13490,
                17: 8235, 18: 13798, 19: 24870, 20: 42611, 21: 50750, 22: 108623, 23: 96510,
                24: 537698, 25: 20, 26: 3, 27: 11, 28: 18, 29: 17, 30: 3, 31: 3, 32: 886}
IPV6_LENGTHS = {29: 4371, 32: 22548, 36: 5996, 40: 13418, 44: 14365, 48: 75488, 64: 184, 128: 6}
IPV6_PREFIXES = 160147
COVERED_BY_NONE_IPV4 = 444690


def sums_of(folder):
    """File name -> SHA-256 of its content."""
    sums = {}
    for where, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(where, name)
            with open(path, "rb") as file:
                sums[os.path.relpath(path, folder)] = hashlib.sha256(file.read()).hexdigest()
    return sums


def promised_sums():
    with open(os.path.join(SOURCES, "SHA256SUMS"), encoding="ascii") as lines:
        return {name: value for value, name in (line.split() for line in lines)}


def make(*arguments, program=MAKE_DATA, cwd=None, **environment):
    return subprocess.run([program, *arguments], cwd=cwd, env={**os.environ, **environment},
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)


class MakeData(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.scratch = scratch.name

    def folder(self, name):
        path = os.path.join(self.scratch, name)
        os.makedirs(path, exist_ok=True)
        return path

    def made(self, *arguments, **more):
        """The sums of what has been made in a new folder, the default of which is build/data."""
        cwd = tempfile.mkdtemp(dir=self.scratch)
        done = make(*arguments, cwd=cwd, **more)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        return sums_of(os.path.join(cwd, "build", "data"))

    def test_same_bytes_in_any_environment(self):
        wanted = promised_sums()
        self.assertEqual(self.made(LC_ALL="C", TZ="UTC"), wanted)
        self.assertEqual(self.made("--seed", "1", LC_ALL="de_DE.UTF-8", LANG="tr_TR.UTF-8",
                                   TZ="Asia/Kathmandu", MALLOC_PERTURB_="85"), wanted)

    def test_same_bytes_in_a_folder_that_is_named(self):
        folder = self.folder("some where/deep")
        done = make("--out", folder, cwd=self.scratch)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(sums_of(folder), promised_sums())

    def test_same_bytes_from_another_compiler(self):
        """Compilers evaluate arguments in different orders, which must not show."""
        if not shutil.which("clang++"):
            self.skipTest("there is no clang++")
        other = os.path.join(self.scratch, "other")
        sources = [os.path.join(SOURCES, name) for name in sorted(os.listdir(SOURCES))
                   if name.endswith(".cpp")]
        subprocess.run(["clang++", "-std=c++17", "-O1", *sources, "-o", other], check=True)
        self.assertEqual(self.made(program=other), promised_sums())

    def test_only_what_is_named(self):
        wanted = promised_sums()
        self.assertEqual(self.made("rules", "flows"),
                         {name: value for name, value in wanted.items()
                          if name.startswith(("rules/", "flows/"))})

    def test_another_seed_makes_other_files(self):
        wanted = promised_sums()
        other = self.made("--seed", "2")
        self.assertEqual(set(other), set(wanted))
        self.assertEqual([name for name in wanted if other[name] == wanted[name]], [])

    def test_wrong_command_lines(self):
        for arguments, reason in ((["--seed", "-1"], "'-1' is no seed"),
                                  (["--seed", "99999999999999999999"], "is no seed"),
                                  (["--seed"], "--seed needs a value"),
                                  (["captures"], "'captures' is neither an option nor a kind")):
            done = make(*arguments, cwd=self.scratch)
            self.assertEqual(done.returncode, 2)
            self.assertRegex(done.stderr, "^make_data: .*" + re.escape(reason))
        self.assertEqual(os.listdir(self.scratch), [])

    def test_a_folder_that_cannot_be_made(self):
        file = os.path.join(self.scratch, "file")
        with open(file, "w", encoding="ascii"):
            pass
        done = make("--out", os.path.join(file, "data"), "flows")
        self.assertEqual(done.returncode, 1)
        self.assertIn(file, done.stderr)

    # ---- the shape of the routing table

    def routes(self):
        folder = self.folder("routes")
        self.assertEqual(make("--out", folder, "routes").returncode, 0)
        with open(os.path.join(folder, "routes", "internet.txt"), encoding="ascii") as lines:
            return [line.rstrip("\n") for line in lines]

    @staticmethod
    def number_of(address):
        """An address of either family, read without the help of who wrote it."""
        if "." in address:
            number = 0
            for part in address.split("."):
                number = number << 8 | int(part)
            return number
        front, gap, back = address.partition("::")
        groups = [int(group, 16) for group in front.split(":") if group]
        last = [int(group, 16) for group in back.split(":") if group]
        if gap:
            groups += [0] * (8 - len(groups) - len(last))
        number = 0
        for group in groups + last:
            number = number << 16 | group
        return number

    def test_routing_table(self):
        lines = self.routes()
        families = [":" in line for line in lines]
        self.assertEqual(families, sorted(families))  # IPv4 first
        for ipv6, bits, most_covering in ((False, 32, 8), (True, 128, 6)):
            prefixes = []
            for line in lines:
                if (":" in line) == ipv6:
                    address, length = line.split("/")
                    prefixes.append((self.number_of(address), int(length)))
            self.assertEqual(prefixes, sorted(set(prefixes)))  # no duplicates either
            lengths = collections.Counter(length for _, length in prefixes)
            if ipv6:
                self.assertEqual(len(prefixes), IPV6_PREFIXES)
                self.assertEqual({length: lengths[length] for length in IPV6_LENGTHS},
                                 IPV6_LENGTHS)
                self.assertEqual((min(lengths), max(lengths)), (16, 128))
            else:
                self.assertEqual(dict(lengths), IPV4_LENGTHS)
            covering = collections.Counter()
            around = []  # those that cover the place that the walk has reached
            for number, length in prefixes:
                self.assertEqual(number & ((1 << (bits - length)) - 1), 0)  # no host bits
                while around and number >> (bits - around[-1][1]) != around[-1][0]:
                    around.pop()
                covering[len(around)] += 1
                around.append((number >> (bits - length), length))
            self.assertEqual(max(covering), most_covering)
            if ipv6:
                self.assertTrue(0.4 < covering[0] / len(prefixes) < 0.6, covering)
            else:
                self.assertEqual(covering[0], COVERED_BY_NONE_IPV4)

    # ---- rules

    def test_rule_sets(self):
        folder = self.folder("rules")
        self.assertEqual(make("--out", folder, "rules").returncode, 0)
        counts = {"acl_1k.txt": 1000, "fw_1k.txt": 1000, "acl_10k.txt": 10000}
        self.assertEqual(sorted(os.listdir(os.path.join(folder, "rules"))), sorted(counts))
        for name, count in counts.items():
            with open(os.path.join(folder, "rules", name), encoding="ascii") as lines:
                rules = [line.rstrip("\n").split("\t") for line in lines]
            self.assertEqual(len({tuple(rule) for rule in rules}), count)
            self.assertEqual(len(rules), count)
            masks = collections.Counter(rule[4].split("/")[1] for rule in rules)
            self.assertGreater(len(masks), 2, masks)  # any, one protocol, groups of protocols
            ranges = [[port for port in rule[2:4] if len(set(port.split(" : "))) == 2
                       and port != "0 : 65535"] for rule in rules]
            self.assertGreater(sum(map(bool, ranges)), count // 20)
            # Some differ in TCP flags only, some prefixes lie in others.
            self.assertTrue(any(rule[5] != "0x0000/0x0000" for rule in rules))
            lengths = {rule[0].split("/")[1] for rule in rules}
            self.assertGreater(len(lengths), 10, lengths)


if __name__ == "__main__":
    unittest.main()
