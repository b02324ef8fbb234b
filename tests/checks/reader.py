"""A reader of the documents, who types commands and waits for what they say.

Every wait has an end, beyond which a command hangs: nothing else depends on the time.
"""
import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

PATIENCE = 120  # seconds
PROGRAMS = ("slice-agent", "partner-shell", "switchctl", "slice-counters", "l2_learning",
            "static_address")


CANNOT = 125  # status of a process that cannot have a world of its own


def require_own_world():
    """Ends the process where another agent's files are, or where no interfaces can be made."""
    if any(pathlib.Path("/tmp").glob("Partner*")) or any(pathlib.Path("/dev/shm").glob("PARTNER*")):
        print("not run: an agent or a partner has files in /tmp or /dev/shm")
        sys.exit(CANNOT)
    for words in ("add probe1 type veth peer name probe2", "delete probe1"):
        command = ["ip", "link", *words.split()]
        if subprocess.run(command, capture_output=True, check=False).returncode != 0:
            print("not run: this user cannot make network interfaces here")
            sys.exit(CANNOT)


class Failure(Exception):
    pass


def require(condition, *text):
    if not condition:
        raise Failure(" ".join(str(part) for part in text))


def wait_until(what, condition):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        require(time.monotonic() < deadline, "waits in vain:", what)
        time.sleep(0.01)


class Running:
    """A command that runs until it is ended; its output is read line by line."""

    def __init__(self, command, folder, env):
        self.command = command
        self.lines = []
        self.error = tempfile.TemporaryFile("w+")
        self.popen = subprocess.Popen(["bash", "-c", command], cwd=folder, env=env, text=True,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                      stderr=self.error, start_new_session=True)
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in self.popen.stdout:
            self.lines.append(line.rstrip("\n"))

    def said(self):
        self.error.seek(0)
        return "\n".join(self.lines[-20:]) + "\n" + self.error.read()

    def await_line(self, pattern, begin=0):
        """Index of the first line from `begin` on that has the pattern."""
        deadline = time.monotonic() + PATIENCE
        at = begin
        while True:
            if at < len(self.lines):
                if re.search(pattern, self.lines[at]):
                    return at
                at += 1
                continue
            require(self.reader.is_alive() or at < len(self.lines),
                    f"`{self.command}` ended without {pattern}:", self.said())
            require(time.monotonic() < deadline, f"`{self.command}` hangs:", self.said())
            time.sleep(0.01)

    def type(self, line):
        """Types a line into a partner shell; its answer has to be ok."""
        begin = len(self.lines)
        self.popen.stdin.write(line + "\n")
        self.popen.stdin.flush()
        at = self.await_line(r"^(ok|error:)", begin)
        require(self.lines[at].startswith("ok"), f"`{line}` is answered by {self.lines[at]}")
        return self.lines[begin:at + 1]

    def end(self, signal_number=signal.SIGINT):
        """Ends it with a signal, as Ctrl-C does; its status has to be 0."""
        if self.popen.poll() is None:
            os.killpg(self.popen.pid, signal_number)
        self.finish()

    def finish(self):
        try:
            status = self.popen.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            raise Failure(f"`{self.command}` does not end:", self.said()) from None
        self.reader.join(PATIENCE)
        require(status == 0, f"`{self.command}` ends with {status}:", self.said())

    def kill(self):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.popen.pid, signal.SIGKILL)
        self.popen.wait()
        self.reader.join(PATIENCE)
        for file in (self.popen.stdin, self.popen.stdout, self.error):
            with contextlib.suppress(BrokenPipeError):
                file.close()


def program_of(command):
    return command.split()[0]


def runs_until_ended(command):
    if program_of(command) == "slice-counters":
        return "--prometheus" in command or "--watch" in command and "--count" not in command
    if program_of(command) == "partner-shell":
        return "--script" not in command and "<" not in command
    if re.search(r"\bswitchctl\b.*\bwatch\b", command):
        return not re.search(r"[|<]", command)
    return program_of(command) in ("slice-agent", "l2_learning", "static_address")


class Session:
    """A folder with what a document expects there, and the processes that its commands start."""

    def __init__(self, folder, env):
        self.folder = pathlib.Path(folder)
        self.env = dict(env)
        self.running = []

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        try:
            if kind is None:
                for process in reversed(self.running):
                    if process.popen.poll() is None:
                        process.end()
        finally:
            for process in self.running:
                process.kill()
            for left in [*pathlib.Path("/tmp").glob("Partner*"),
                         *pathlib.Path("/dev/shm").glob("PARTNERLIB*")]:
                left.unlink()

    def start(self, command):
        process = Running(command, self.folder, self.env)
        self.running.append(process)
        ready = ": ready" if program_of(command) in PROGRAMS[:2] + PROGRAMS[4:] else "."
        process.await_line(ready)
        return process

    def run(self, command):
        """Runs a command or a script to its end and returns its output."""
        done = Running(command, self.folder, self.env)
        self.running.append(done)
        done.popen.stdin.close()
        done.finish()
        self.running.remove(done)
        done.kill()
        return "\n".join(done.lines)

    def lines(self, block):
        """Runs a block line by line; returns the processes that go on."""
        return [self.start(line) if runs_until_ended(line) else self.run(line)
                for line in block.lines if line.strip()]
