#!/usr/bin/env python3
"""Tests of private worlds where they are hard to make: in a chroot whose root is no mount point,
without /proc, and without the right to make namespaces.

Runs in a private world itself. The argument is the build folder.
"""
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
WORLD = os.path.join(ROOT, "scripts", "in-private-namespaces")
RUN_TESTS = os.path.join(ROOT, "scripts", "run_tests.py")
BUILD = sys.argv.pop(1)
WITHOUT_RIGHTS = ["setpriv", "--bounding-set", "-sys_admin"]
HANG = 300  # seconds


def mount(*arguments):
    subprocess.run(["mount", "-n", *arguments], check=True)


class Chroot:
    """A root directory with this system in it that is no mount point itself."""

    def __init__(self):
        # The mount around it is shared: what is mounted within must not be seen outside.
        self.base = tempfile.mkdtemp()
        mount("-t", "tmpfs", "chroot", self.base)
        mount("--make-shared", self.base)
        self.root = os.path.join(self.base, "root")
        for name in ("proc", "dev/pts", "tmp"):
            os.makedirs(os.path.join(self.root, name))
        os.chmod(self.inside("/tmp"), 0o1777)
        for name in ("bin", "sbin", "lib", "lib32", "lib64", "libx32", "usr", "etc", "var"):
            self.add("/" + name)
        for device in ("null", "zero", "random", "urandom", "ptmx"):
            with open(self.inside("/dev/" + device), "w", encoding="ascii"):
                mount("--bind", "/dev/" + device, self.inside("/dev/" + device))
        self.add(ROOT)
        if not BUILD.startswith(ROOT + "/"):
            self.add(BUILD)

    def inside(self, path):
        return self.root + path

    def add(self, path):
        if os.path.islink(path):
            os.symlink(os.readlink(path), self.inside(path))
        elif os.path.isdir(path):
            os.makedirs(self.inside(path), exist_ok=True)
            mount("--rbind", path, self.inside(path))

    def add_proc(self):
        mount("--rbind", "/proc", self.inside("/proc"))

    def start(self, command, before=()):
        return subprocess.Popen(["chroot", self.root, *before, *command], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def run(self, command, before=()):
        process = self.start(command, before)
        out, err = process.communicate(timeout=HANG)
        return process.returncode, out, err

    def remove(self):
        subprocess.run(["umount", "-n", "-l", self.base], check=True)
        os.rmdir(self.base)


def mounts():
    with open("/proc/self/mountinfo", encoding="utf-8") as lines:
        return lines.read()


def program(name):
    return os.path.join(BUILD, "bin", name)


class InAChroot(unittest.TestCase):
    def setUp(self):
        self.chroot = Chroot()
        self.addCleanup(self.chroot.remove)
        with open(self.chroot.inside("/tmp/outside"), "w", encoding="ascii"):
            pass

    def check_world(self):
        before = mounts()
        status, out, err = self.chroot.run(
            [WORLD, "sh", "-c", "touch /tmp/mark && ls /tmp /dev/shm && ls -d /proc/self/exe && "
                                "ip -brief address show up && test -e /dev/pts/ptmx"])
        self.assertEqual(status, 0, err)
        self.assertIn("/tmp:\nmark\n", out)
        self.assertNotIn("outside", out)
        self.assertIn("127.0.0.1/8", out)
        self.assertEqual(os.listdir(self.chroot.inside("/tmp")), ["outside"])
        self.assertEqual(mounts(), before)

    def check_test_program(self):
        status, out, err = self.chroot.run(
            [program("socket_test"),
             "--gtest_filter=PartnerSocket.RecvWithTimeoutStopsOnADeadSocket"])
        self.assertEqual(status, 0, out + err)
        self.assertIn("[  PASSED  ] 1 test.", out)
        self.assertNotIn("no private world", err)

    def test_a_world_is_made(self):
        self.chroot.add_proc()
        self.check_world()

    def test_a_world_is_made_without_proc(self):
        if subprocess.run(["mount", "-n", "-t", "proc", "proc", self.chroot.inside("/proc")],
                          stderr=subprocess.DEVNULL, check=False).returncode != 0:
            self.skipTest("this user may not mount /proc")
        subprocess.run(["umount", "-n", self.chroot.inside("/proc")], check=True)
        self.check_world()

    def test_a_test_program_starts_itself(self):
        self.chroot.add_proc()
        self.check_test_program()


class WithoutRights(unittest.TestCase):
    """In a chroot, where the kernel lets nobody make user namespaces."""

    def setUp(self):
        self.chroot = Chroot()
        self.addCleanup(self.chroot.remove)
        self.chroot.add_proc()

    def run_without(self, *command):
        return self.chroot.run(command, WITHOUT_RIGHTS)

    def test_a_command_is_refused(self):
        status, out, err = self.run_without(WORLD, "echo", "ran")
        self.assertEqual((status, out), (125, ""))
        self.assertEqual(err, "in-private-namespaces: no private world can be made here: "
                              "new namespaces: Operation not permitted\n")

    def test_a_command_may_run_in_the_open(self):
        status, out, err = self.run_without(WORLD, "--or-alone", "ls", "/tmp")
        self.assertEqual(status, 0)
        self.assertEqual(out, "jex-tests.lock\n")
        self.assertIn("no private world can be made here: new namespaces: ", err)

    def test_an_attempt_that_fails_half_way_leaves_nothing(self):
        before = mounts()
        status, out, err = self.chroot.run([WORLD, "--or-alone", "ls", "/tmp"],
                                           ["setpriv", "--bounding-set", "-sys_chroot"])
        self.assertEqual((status, out), (0, "jex-tests.lock\n"))
        self.assertIn("no private world can be made here: chroot: Operation not permitted", err)
        self.assertEqual(mounts(), before)

    def test_one_waits_for_the_other(self):
        first = self.chroot.start([WORLD, "--or-alone", "sh", "-c", "echo first; read end"],
                                  WITHOUT_RIGHTS)
        self.assertEqual(first.stdout.readline(), "first\n")
        second = self.chroot.start([WORLD, "--or-alone", "echo", "second"], WITHOUT_RIGHTS)
        waits = re.compile(rf"-> FLOCK .* {second.pid} ")
        deadline = time.monotonic() + HANG
        while second.poll() is None and time.monotonic() < deadline:
            with open("/proc/locks", encoding="ascii") as locks:
                if waits.search(locks.read()):
                    break
        self.assertIsNone(second.poll(), "the second one does not wait")
        first.communicate("\n", timeout=HANG)
        self.assertEqual(second.communicate(timeout=HANG)[0], "second\n")

    def test_nothing_runs_beside_an_agent(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as agent:
            agent.bind(self.chroot.inside("/tmp/Partner0"))
            agent.listen()
            status, out, err = self.run_without(WORLD, "--or-alone", "echo", "ran")
            self.assertEqual((status, out), (125, ""))
            self.assertIn("an agent serves on /tmp/Partner0; not running beside it\n", err)
            status, out, err = self.run_without(program("nanomsg_facts_test"))
            self.assertEqual((status, out), (2, ""))
            self.assertIn("an agent serves on /tmp/Partner0; not running beside it\n", err)

    def test_tests_run_and_those_of_networks_are_skipped(self):
        status, out, err = self.run_without(program("nanomsg_facts_test"))
        self.assertEqual(status, 0, out + err)
        self.assertIn("no private world can be made here", err)
        for name, wanted in (("endtoend_packets_test", "*HostsOnALan*/2"),
                             ("endtoend_learning_test", "L2Learning.FollowsAHostToAnotherPort"),
                             ("port_test", "InterfaceTest.LinkFollowsTheInterface")):
            status, out, err = self.run_without(program(name), "--gtest_filter=" + wanted)
            self.assertEqual(status, 0, out + err)
            self.assertIn("\nnetwork namespaces are needed, and cannot be made here: "
                          "new namespaces: Operation not permitted\n", out)
            self.assertIn("[  SKIPPED ]", out)

    def test_a_run_says_so_in_its_first_and_last_lines(self):
        folder = self.chroot.inside("/tmp/suite")
        os.mkdir(folder)
        with open(os.path.join(folder, "CTestTestfile.cmake"), "w", encoding="ascii") as suite:
            suite.write('add_test(good true)\n'
                        'add_test(bad false)\n'
                        f'add_test(hosts {program("endtoend_packets_test")}'
                        ' --gtest_filter=*HostsOnALan.Reach*/2)\n'
                        'set_tests_properties(hosts PROPERTIES'
                        ' SKIP_REGULAR_EXPRESSION "\\\\[  SKIPPED \\\\]")\n')
        status, out, _ = self.run_without(RUN_TESTS, "--test-dir", "/tmp/suite")
        lines = out.splitlines()
        self.assertNotEqual(status, 0)
        self.assertEqual(lines[0], "tests: one at a time, in the open: no private world can be "
                                   "made here: new namespaces: Operation not permitted")
        self.assertEqual(lines[-3:], [
            "tests: 1 passed, 1 failed, 1 skipped",
            "tests: 1 skipped: network namespaces are needed, and cannot be made here: "
            "new namespaces: Operation not permitted",
            lines[0]])


if __name__ == "__main__":
    if shutil.which("setpriv") is None:
        sys.exit("setpriv is missing: scripts/setup")
    unittest.main()
