#!/usr/bin/env python3
"""Runs the demo with programs that are built; see scripts/demo.sh, which calls this."""
import argparse
import gzip
import json
import os
import select
import subprocess
import sys
import time
import zlib

import compare_dumps

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PROGRAM = os.path.join(ROOT, "programs", "router.json")
ROUTES = os.path.join(ROOT, "build", "data", "routes", "internet.txt")  # see scripts/make_data.sh
START_DEADLINE = 600  # seconds
COMMAND_DEADLINE = 600
CATCH_UP_DEADLINE = 600
DIFFERENCES_SHOWN = 20

NEXTHOPS = 64
GROUPS = 16
GROUP_SIZE = 8
RULES = 100


class DemoError(Exception):
    pass


class Progress:
    """One line on a terminal that is written over; nothing where nobody watches."""

    def __init__(self):
        self.watched = sys.stderr.isatty()
        self.shown = False

    def show(self, text):
        if self.watched:
            print(f"\r\033[K{text}", end="", file=sys.stderr, flush=True)
            self.shown = True

    def clear(self):
        if self.shown:
            print("\r\033[K", end="", file=sys.stderr, flush=True)
        self.shown = False


class Process:
    """A program of this project, with its standard error in a log file."""

    def __init__(self, name, arguments, log_path):
        self.name = name
        self.log_path = log_path
        with open(log_path, "wb") as log:
            self.popen = subprocess.Popen(arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                          stderr=log)
        self.rest = b""

    def read_line(self, seconds, while_waiting=lambda: None):
        """The next line of standard output."""
        deadline = time.monotonic() + seconds
        while b"\n" not in self.rest:
            if time.monotonic() > deadline:
                raise DemoError(f"{self.name} said nothing for {seconds} s")
            readable, _, _ = select.select([self.popen.stdout], [], [], 0.5)
            if not readable:
                while_waiting()
                continue
            piece = os.read(self.popen.stdout.fileno(), 1 << 20)
            if not piece:
                raise DemoError(f"{self.name} ended with status {self.popen.wait()}; its log "
                                f"{self.log_path} says: {self.last_words()}")
            self.rest += piece
        line, self.rest = self.rest.split(b"\n", 1)
        return line.decode()

    def await_ready(self):
        line = self.read_line(START_DEADLINE)
        if "ready" not in line:
            raise DemoError(f"{self.name} began with: {line}")
        return line

    def last_words(self):
        with open(self.log_path, encoding="utf-8", errors="replace") as log:
            return log.read()[-2000:].strip()

    def end(self):
        """Asks for the end and returns the status."""
        if self.popen.poll() is None:
            self.popen.stdin.close()
            self.popen.terminate()
        try:
            return self.popen.wait(timeout=600)
        except subprocess.TimeoutExpired:
            self.popen.kill()
            return self.popen.wait()


class Partner(Process):
    def __init__(self, options):
        super().__init__("partner-shell",
                         [os.path.join(options.bin, "partner-shell"), "--program", PROGRAM,
                          "--json"],
                         os.path.join(options.out, "partner-shell.log"))

    def await_ready(self):
        """With --json the line stands in the log: standard output holds objects only."""
        deadline = time.monotonic() + START_DEADLINE
        while "partner-shell: ready\n" not in self.last_words() + "\n":
            if self.popen.poll() is not None or time.monotonic() > deadline:
                raise DemoError(f"{self.name} does not start; its log {self.log_path} says: "
                                f"{self.last_words()}")
            time.sleep(0.01)

    def write(self, text):
        self.popen.stdin.write(text.encode())
        self.popen.stdin.flush()

    def result(self, command, while_waiting=lambda: None):
        result = json.loads(self.read_line(COMMAND_DEADLINE, while_waiting))
        if not result["ok"]:
            raise DemoError(f"'{command}' failed: {result['error']}")
        return result

    def do(self, command, while_waiting=lambda: None):
        self.write(command + "\n")
        return self.result(command, while_waiting)

    def dump(self, table, path):
        """Writes the table's dump to a file; the result that closes it comes back."""
        self.write(f"dump {table}\n")
        with open(path, "w", encoding="utf-8") as out:
            while True:
                line = self.read_line(COMMAND_DEADLINE)
                if line.startswith('{"ok":'):
                    break
                out.write(line + "\n")
        result = json.loads(line)
        if not result["ok"]:
            raise DemoError(f"dump {table}: {result['error']}")

    def quit(self):
        self.popen.stdin.close()  # the end of input shuts the partner down
        status = self.popen.wait(timeout=600)
        if status != 0:
            raise DemoError(f"partner-shell ended with status {status}: {self.last_words()}")


class PhysicalDevice:
    """The agent's device, seen through switchctl."""

    def __init__(self, options):
        self.switchctl = [os.path.join(options.bin, "switchctl"), "--json"]

    def call(self, *arguments, **more):
        done = subprocess.run(self.switchctl + list(arguments), stderr=subprocess.PIPE,
                              check=False, **more)
        if done.returncode != 0:
            raise DemoError(f"switchctl {' '.join(arguments)}: {done.stderr.decode().strip()}")
        return done

    def tables(self):
        return json.loads(self.call("tables", stdout=subprocess.PIPE).stdout)

    def entries(self):
        return entries_of(self.tables())

    def dump(self, table, path):
        with open(path, "wb") as out:
            self.call("entries", table, stdout=out)


def entries_of(tables):
    """Name -> entries, of what both devices list; counters are not written by partners."""
    return {table["name"]: table["entries"] for table in tables if table["kind"] != "counter"}


def words(numbers):
    return ",".join(str(number) for number in numbers)


def mac(prefix, number):
    return f"02:00:{prefix:02x}:00:{number >> 8:02x}:{number & 0xFF:02x}"


# The last command of each step adds an entry: updates keep their order, so once the physical device
# holds as many entries as the virtual one, it has taken all of the step.

def forwarding_commands():
    """Next hops; groups that are built member by member, and then groups that travel whole."""
    for member in range(1, NEXTHOPS + 1):
        yield (f"member-add nexthops member={member} -> set_nexthop port={member} "
               f"dmac={mac(1, member)} smac={mac(2, member)}")
    yield "fallback ecmp_groups member=1"
    for group in sorted(range(1, GROUPS + 1), key=lambda group: group % 2):
        members = [(group * 4 + i) % NEXTHOPS + 1 for i in range(GROUP_SIZE)]
        if group % 2:
            yield (f"group-create ecmp_groups group={group} max={GROUP_SIZE} "
                   f"members={words(members)}")
            continue
        yield f"group-create ecmp_groups group={group} max={GROUP_SIZE}"
        for member in members:
            yield f"group-add ecmp_groups group={group} member={member}"
        yield f"group-deactivate ecmp_groups group={group} member={members[0]}"
        yield f"group-remove ecmp_groups group={group} member={members[1]}"


def acl_commands():
    yield "default acl -> deny"
    for rule in range(RULES):
        yield (f"add acl ipv4.src=10.{rule}.0.0&&&255.255.0.0 l4.dport={rule}..{rule + 1000} "
               f"ipv4.protocol=6 -> {'deny' if rule % 3 else 'permit'} priority={rule + 1}")


def churn_commands(prefixes):
    """Changes of what has been loaded: one modified, one deleted, one deleted and added again."""
    for number in range(0, len(prefixes) - 2, 3):
        changed, gone, back = prefixes[number:number + 3]
        yield f"modify {changed} -> group={number % GROUPS + 1}"
        yield f"delete {gone}"
        yield f"delete {back}"
        yield f"add {back} -> member={number % NEXTHOPS + 1}"
    for rule in range(0, RULES, 10):
        yield (f"move acl ipv4.src=10.{rule}.0.0&&&255.255.0.0 l4.dport={rule}..{rule + 1000} "
               f"ipv4.protocol=6 priority={rule + 5000}")
    yield f"member-modify nexthops member=7 -> set_nexthop port=70 dmac={mac(3, 7)} smac={mac(4, 7)}"
    yield "default ipv4_lpm -> member=1"
    yield "default ipv6_lpm -> group=1"
    yield f"add acl l4.dport=22 -> deny priority={RULES + 6000}"


def routes_in(path):
    """The prefixes of a plain or gzip file; empty lines and comments are none."""
    with open(path, "rb") as file:
        packed = file.read(2) == b"\x1f\x8b"
    with (gzip.open if packed else open)(path, "rt", encoding="utf-8") as lines:
        for line in lines:
            line = line.strip()
            if line and not line.startswith("#"):
                yield line


def read_routes(path, limit):
    """Table -> how many routes of the file go there; and every 1000th of them, as the key of a
    command."""
    counts = {"ipv4_lpm": 0, "ipv6_lpm": 0}
    sample = []
    try:
        for line in routes_in(path):
            family = "ipv6" if ":" in line else "ipv4"
            table = f"{family}_lpm"
            if limit and counts[table] == limit:
                continue
            counts[table] += 1
            if counts[table] % 1000 == 1:
                sample.append(f"{table} {family}.dst={line}")
    except (OSError, EOFError, UnicodeDecodeError, zlib.error) as error:
        raise DemoError(f"cannot read routes from {path}: {error}") from error
    if not sum(counts.values()):
        raise DemoError(f"{path} has no routes: it needs one PREFIX/LENGTH per line")
    return counts, sample


class Demo:
    def __init__(self, options):
        self.options = options
        self.progress = Progress()
        self.rows = []
        self.agent = Process("slice-agent",
                             [os.path.join(options.bin, "slice-agent"), "--program", PROGRAM],
                             os.path.join(options.out, "slice-agent.log"))
        self.device = PhysicalDevice(options)
        self.partner = None

    def end(self):
        self.progress.clear()
        if self.partner:
            self.partner.end()
        return self.agent.end()

    def run(self):
        print(self.agent.await_ready())
        self.partner = Partner(self.options)
        self.partner.await_ready()
        print("partner-shell: ready")
        self.step("next hops, groups", list(forwarding_commands()))
        self.step("access rules", list(acl_commands()))
        counts, sample = read_routes(self.options.routes, self.options.limit)
        print(f"routes: {counts['ipv4_lpm']:,} IPv4 and {counts['ipv6_lpm']:,} IPv6 prefixes of "
              f"{self.options.routes_name or os.path.relpath(self.options.routes)}")
        self.load("IPv4 routes", "ipv4_lpm", counts["ipv4_lpm"])
        self.load("IPv6 routes", "ipv6_lpm", counts["ipv6_lpm"])
        self.step("changes", list(churn_commands(sample)))
        differences = self.compare(self.device.entries())
        self.partner.quit()
        self.partner = None
        self.report(differences)
        return differences

    def await_same_counts(self, began):
        """Waits until both devices hold equally many entries in each table."""
        wanted = entries_of(self.partner.do("tables")["tables"])
        deadline = time.monotonic() + CATCH_UP_DEADLINE
        while True:
            entries = self.device.entries()
            if entries == wanted:
                return time.monotonic() - began
            if time.monotonic() > deadline:
                raise DemoError(f"the physical device holds {entries} instead of {wanted} after "
                                f"{CATCH_UP_DEADLINE} s")
            self.progress.show(f"the physical device holds {sum(entries.values())} of "
                               f"{sum(wanted.values())} entries")
            time.sleep(0.01)

    def step(self, what, commands):
        began = time.monotonic()
        for command in commands:
            self.partner.do(command)
        self.rows.append((what, len(commands), self.await_same_counts(began)))
        self.progress.clear()

    def load(self, what, table, routes):
        targets = (f"nexthops={words(range(1, NEXTHOPS + 1))} "
                   f"groups={words(range(1, GROUPS + 1))}")
        limit = f"limit={self.options.limit} " if self.options.limit else ""

        def show():
            if self.progress.watched:
                count = self.device.entries()[table]
                self.progress.show(f"{what}: the physical device holds {count}")

        began = time.monotonic()
        result = self.partner.do(f"load-routes {table} {self.options.routes} {limit}{targets}", show)
        if result["loaded"] != routes:
            raise DemoError(f"{result['loaded']} routes were loaded, the file has {routes}")
        self.rows.append((what, routes, self.await_same_counts(began)))
        self.progress.clear()

    def compare(self, tables):
        """Dumps and compares all tables (name -> entries); the number of differences."""
        found = {}
        for name, entries in tables.items():
            self.progress.show(f"comparing {name}")
            paths = [os.path.join(self.options.out, f"{name}.{side}.json")
                     for side in ("virtual", "physical")]
            self.partner.dump(name, paths[0])
            self.device.dump(name, paths[1])
            differences = []
            found[name] = compare_dumps.compare(*paths, differences.append)
            if found[name][0] < entries:
                raise DemoError(f"{name} has {entries} entries, {paths[0]} fewer")
            self.progress.clear()
            for difference in differences[:DIFFERENCES_SHOWN]:
                print(f"{name}: {difference}")
        self.found = found
        return sum(count for _, count in found.values())

    def report(self, differences):
        print(f"\n{'update':<20}{'updates':>12}{'seconds':>10}{'per second':>14}")
        for what, count, seconds in self.rows:
            print(f"{what:<20}{count:>12,}{seconds:>10.2f}{count / seconds:>14,.0f}")
        print(f"\n{'table':<20}{'compared':>12}{'differences':>14}")
        for name, (compared, count) in self.found.items():
            print(f"{name:<20}{compared:>12,}{count:>14,}")
        total = sum(compared for compared, _ in self.found.values())
        print(f"{'all tables':<20}{total:>12,}{differences:>14,}")
        print(f"\nlogs and dumps: {os.path.relpath(self.options.out)}")
        print(f"differences: {differences}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", required=True, help="where the programs are")
    parser.add_argument("--out", required=True, help="where logs and dumps go")
    parser.add_argument("--routes", default=ROUTES, help="file of routes (%(default)s)")
    parser.add_argument("--routes-name", help="what the file is called in messages; left out: as it "
                        "is")
    parser.add_argument("--limit", type=int, default=0, help="routes of each family; 0: all")
    options = parser.parse_args()
    os.makedirs(options.out, exist_ok=True)
    demo = Demo(options)
    differences = None
    try:
        differences = demo.run()
    except (DemoError, compare_dumps.NotADump, BrokenPipeError) as error:
        demo.progress.clear()
        print(f"demo: {error}", file=sys.stderr)
    status = demo.end()
    if status != 0:
        print(f"demo: slice-agent ended with status {status}: {demo.agent.last_words()}",
              file=sys.stderr)
    return 0 if differences == 0 and status == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
