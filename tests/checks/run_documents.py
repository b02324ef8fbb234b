#!/usr/bin/env python3
"""Runs what README, manual pages and three pages of docs/ tell their readers to run, word for word.

    run_documents.py ROOT BUILD-FOLDER [DOCUMENT]...      within private namespaces

Each block of a document is claimed by one of the functions below, which runs it, or by the list of
what is not run, with the reason. A block that nobody claims fails the check, and so does a claim
whose block has gone. Commands within sentences are run, or their options are looked up in --help.
"""
import contextlib
import gzip
import json
import os
import pathlib
import re
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time
import urllib.request

sys.dont_write_bytecode = True
import documents  # noqa: E402
from reader import PATIENCE, PROGRAMS, Failure, Running, Session  # noqa: E402
from reader import program_of, require, require_own_world, runs_until_ended, wait_until  # noqa: E402

ADD_A_MEMBER = ("member-add nexthops member=1 -> set_nexthop port=2 dmac=02:00:00:00:00:01 "
                "smac=02:00:00:00:00:02")
README, OPERATIONS, PROGRAM_PAGE = "README.md", "docs/operations.md", "docs/programs.md"
DESCRIPTIONS = "docs/descriptions.md"
PAGES = [f"packaging/man/{name}.1" for name in PROGRAMS[:4]]
DOCUMENTS = [README, OPERATIONS, PROGRAM_PAGE, DESCRIPTIONS, *PAGES]

# What is not run: document, how the block begins, the reason.
BLOCKS_NOT_RUN = (
    (PAGES[2], "packet PORT HEX...", "the forms of commands of packet tests"),
    (PAGES[2], "add TABLE [PRIORITY]", "the forms of commands that set something up"),
    (README, "scripts/demo.sh", "builds, and runs this test; checks.demo runs the demo"),
    (PROGRAM_PAGE, "p4c-bm2-ss", "is the P4 compiler, which Debian does not have"),
    (DESCRIPTIONS, '"entries": [{', "is part of a description; unit/program/entries_test.cpp reads it"),
    (PAGES[1], "exact      V", "is a table of notations; unit/apps/value_test.cpp reads each"),
    (PAGES[1], "idle smac #7", "is output; endtoend.PartnerEvents compares it"),
)
# Document, span, the reason.
SPANS_NOT_RUN = (
    (README, "scripts/in-private-namespaces bash", "is interactive; this check itself runs in one"),
    (README, "(cd build/release && cpack)", "packs for half a minute; .ci/run package does it"),
    (README, "cmake -DJEX_SDK_ROOT=DIR", "builds all anew; checks.sdk_from_elsewhere does it"),
    (README, "cmake --install", "stands with its arguments in a block, which is run"),
    (PROGRAM_PAGE, "switchctl port-add", "stands with its arguments in a block of the README"),
    (PROGRAM_PAGE, "switchctl trace", "stands with its arguments in a block, which is run"),
    (PROGRAM_PAGE, "switchctl stf FILE --program PROGRAM", "is run in the walk"),
    (PROGRAM_PAGE, "switchctl configure FILE", "is a form; endtoend/cli_stf_test.cpp runs it"),
    (PROGRAM_PAGE, "switchctl set COMMAND", "is a form; endtoend/cli_stf_test.cpp runs it"),
)


class World:
    """What all documents share: the checkout, the build, and a folder for each document."""

    def __init__(self, root, build, scratch):
        self.root, self.build, self.scratch = root, build, scratch
        self.count = 0
        self.walk = None  # that goes on from block to block
        self.env = {**os.environ, "PATH": f"{build}/bin:{os.environ['PATH']}"}
        self.checkout = scratch / "checkout"
        (self.checkout / "build").mkdir(parents=True)
        for name in ("programs", "scripts", "examples", "docs"):
            (self.checkout / name).symlink_to(root / name)
        (self.checkout / "build/release").symlink_to(build)
        (self.checkout / "build/data").symlink_to(root / "build/data")

    def in_checkout(self, env=None):
        return Session(self.checkout, env or self.env)

    def beside_programs(self, **env):
        """In a folder that has the program descriptions, as pages expect it."""
        self.count += 1
        folder = self.scratch / f"pages{self.count}"
        shutil.copytree(self.root / "programs", folder)
        return Session(folder, {**self.env, **env})


def must(*command):
    subprocess.run(command, check=True)


@contextlib.contextmanager
def interfaces(*names):
    """Network interfaces with a host behind each; gives what lets host NUMBER send a frame."""
    made = []
    for number, name in enumerate(names, 1):
        peer = f"host{number}"
        must("ip", "link", "add", name, "type", "veth", "peer", "name", peer)
        for end in (name, peer):
            must("ip", "link", "set", end, "addrgenmode", "none", "up")
        made.append(peer)

    def speak(number):
        with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as wire:
            wire.bind((made[number - 1], 0))
            wire.send(frame_from(number))
    try:
        yield speak
    finally:
        for name in names:
            must("ip", "link", "delete", name)


def frame_from(host):
    """A broadcast frame of host 02:00:00:00:00:HOST."""
    return b"\xff" * 6 + bytes([2, 0, 0, 0, 0, host]) + b"\x88\xb5" + bytes(46)


def write_capture(path, frames):
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, 1))
        for second, frame in enumerate(frames):
            file.write(struct.pack("<IIII", 1_600_000_000 + second, 0, len(frame), len(frame)))
            file.write(frame)


def write_routes(path, opener=open):
    with opener(path, "wt") as file:
        file.writelines(f"10.{number}.0.0/16\n" for number in range(20))


# ---- what runs the blocks ----------------------------------------------------------------------

CLAIMS = []  # document, how the block begins, function


def runs(document, prefix):
    def register(function):
        CLAIMS.append((document, prefix, function))
        return function
    return register


@runs(README, "export PATH=")
def _(world, block):
    """Three shells; later blocks go on in the second."""
    env = {**world.env, "PATH": os.environ["PATH"]}
    with Session(world.checkout, env) as session:
        session.env["PATH"] = session.run(block.lines[0] + "\necho \"$PATH\"")
        agent, _, tables = session.lines(block._replace(lines=block.lines[1:]))
        require("ipv4_lpm" in tables, "no tables of the router:", tables)
        require("7 tables" in agent.lines[0], agent.lines[0])


@runs(README, "scripts/make_data.sh")
def _(world, block):
    with world.in_checkout() as session:
        session.lines(block)
    require(list((world.root / "build/data").glob("routes/*")), "no routes were made")


@runs(README, "member-add nexthops")
def _(world, block):
    with world.in_checkout() as session:
        session.start("slice-agent --program programs/router.json")
        shell = session.start("partner-shell --program programs/router.json")
        for line in block.lines[:-1]:
            shell.type(line)
        wait_until("the agent's routes", lambda: session.run("switchctl count ipv4_lpm") == "1001")
        shell.popen.stdin.write(block.lines[-1] + "\n")
        shell.popen.stdin.flush()
        shell.finish()


@runs(README, "switchctl stf examples/p4/l2_learn.stf")
def _(world, block):
    with world.in_checkout() as session:
        said = session.run(block.lines[0])
        require("as expected" in said, said)


@runs(README, "cmake --install build/release --prefix DIR")
def _(world, block):
    with world.in_checkout() as session:
        session.run(block.lines[0].replace("DIR", str(world.scratch / "prefix")))
        for name in ("bin/slice-agent", "lib/libdriver.so", "include/jxsdk/rt.h"):
            require((world.scratch / "prefix" / name).exists(), name, "is not installed")


@runs(README, "#include <JexHybridSlice/JexPartnerLib.h>")
def _(world, block):
    """As it stands, by both compilers and in both languages, without a warning."""
    folder = world.scratch / "my_partner"
    folder.mkdir(exist_ok=True)
    (folder / "main.cpp").write_text("\n".join(block.lines) + "\n")
    shutil.copy(world.root / "programs/router.json", folder)
    with Session(folder, world.env) as session:
        for compiler in ("g++", "clang++"):
            for standard in ("c++17", "c++20"):
                session.run(f"{compiler} -std={standard} -Wall -Wextra -pedantic -Werror "
                            f"-I{world.scratch}/prefix/include -fsyntax-only main.cpp")


@runs(README, "cmake_minimum_required(VERSION")
def _(world, block):
    text = "\n".join(block.lines) + "\n"
    (world.scratch / "my_partner/CMakeLists.txt").write_text(text)


@runs(README, "cmake -S . -B build")
def _(world, block):
    """my_partner, and the installed examples in the same way."""
    prefix = str(world.scratch / "prefix")
    examples = world.scratch / "prefix/share/doc/jexhybridslice/examples"
    for folder, last in ((world.scratch / "my_partner", 3), (examples, 2)):
        with Session(folder, world.env) as session:
            session.start(f"{prefix}/bin/slice-agent --program {world.root}/programs/router.json")
            for line in block.lines[:last]:
                session.run(line.replace("DIR", prefix))
    for name in ("l2_learning", "static_address"):
        require((examples / "build" / name).exists(), name, "was not built")


@runs(README, "slice-agent --program programs/l2_switch.json\n")
def _(world, block):
    with world.in_checkout() as session:
        session.lines(block)
        entries = session.run("switchctl entries dmac")
        require("02:00:00:00:00:01 -> forward port=2" in entries, entries)


@runs(README, "slice-agent --program programs/l2_switch.json --port 1=if:eth1")
def _(world, block):
    with world.in_checkout() as session, interfaces("eth1", "eth2") as speak:
        _, learner = session.lines(block._replace(lines=block.lines[:2]))
        for host in (1, 2):
            # The agent may still be about to take the registration.
            wait_until(f"host {host}", lambda host=host: speak(host) or
                       f"learned 02:00:00:00:00:0{host} on port {host}" in learner.lines)
        wait_until("both addresses", lambda: session.run("switchctl count dmac") == "2")
        entries = session.run(block.lines[2])
        for host in (1, 2):
            require(f"02:00:00:00:00:0{host} -> forward port={host}" in entries, entries)


@runs(README, "slice-agent --program programs/l2_switch.json --clock capture")
def _(world, block):
    """What goes before and after is endtoend.L2LearningClocks'."""
    captures = sorted((world.root / "build/data/pcap").glob("*.pcap*"))
    require(captures, "no captures in build/data/pcap")
    with world.in_checkout() as session:
        _, learner = session.lines(block._replace(lines=block.lines[:2]))
        session.run(block.lines[2].replace("FILE", str(captures[0])))
        learner.await_line("learned")


def show_counters(world, block):
    with world.beside_programs() as session:
        session.start("slice-agent --program router.json")
        shell = session.start("partner-shell --program router.json")
        shell.type("counters-start route_counters")
        shell.type("barrier route_counters")
        listed, watched, served = session.lines(block)
        require("route_counters" in listed, listed)
        watched.await_line("route_counters")
        found = re.search(r"--prometheus (\S+)", served.command).group(1)
        with urllib.request.urlopen(f"http://{found}/metrics", timeout=PATIENCE) as answer:
            require(b"jex_counters_entries{" in answer.read(), "no metrics from", found)


runs(OPERATIONS, "slice-counters --program router.json")(show_counters)
runs(PAGES[3], "slice-counters --program router.json")(show_counters)


@runs(DESCRIPTIONS, "router.json: /tables/0/key/0/match")
def _(world, block):
    """Each line is what an agent says of a description that is wrong in this way."""
    with world.beside_programs() as session:
        description = session.folder / "router.json"
        text = description.read_text()
        wrong = {
            "unknown match kind": lambda: with_match_kind(text, "lmp"),
            "syntax error": lambda: "{\"a\": 1," + "\n" * 13 + "      }",
            "cannot be read": lambda: None,
        }
        for line in block.lines:
            make = next(make for part, make in wrong.items() if part in line)
            description.unlink(missing_ok=True)
            if make() is not None:
                description.write_text(make())
            require_refusal(session, "router.json", line)


def require_refusal(session, program, line):
    """An agent does not start with this program, and says this line or more of it."""
    said = subprocess.run(["slice-agent", "--program", program], cwd=session.folder,
                          env=session.env, capture_output=True, text=True, timeout=PATIENCE,
                          check=False)
    require(said.returncode == 1 and line.removesuffix(" ...") in said.stderr,
            f"instead of `{line}`:", said.stderr)


def with_match_kind(text, kind):
    """The description with another match kind in the first key field of its first table."""
    description = json.loads(text)
    description["tables"][0]["key"][0]["match"] = kind
    return json.dumps(description)


# ---- the walk with a P4 program ----------------------------------------------------------------

ANSWERS_THAT_DIFFER = (r"age=\d+ms", r"barrier \d+, round trip [\d.]+ ms", r"synced \d+ ms ago")


class Walk:
    """The blocks of the walk, one after the other, in one session that the last one ends.

    `$` stands before a line of a shell, `>` before one of the partner shell; the others are their
    output, which ends at `...` if not all of it is shown.
    """

    def __init__(self, world):
        folder = world.scratch / "walk"
        shutil.copytree(world.root / "examples/p4", folder)
        self.session = Session(folder, world.env)
        self.shell = None

    def run(self, block):
        at = 0
        while at < len(block.lines):
            typed, at = block.lines[at], at + 1
            shown = []
            while at < len(block.lines) and block.lines[at][:2] not in ("$ ", "> "):
                shown.append(block.lines[at])
                at += 1
            said = self.answer(typed)
            if shown and shown[-1].strip() == "...":
                said = said[:len(shown) - 1]
                shown.pop()
            require([unified(line) for line in said] == [unified(line) for line in shown],
                    f"`{typed}` says", said)

    def answer(self, typed):
        if typed.startswith("> "):
            return self.shell.type(typed[2:])
        require(typed.startswith("$ "), f"nobody types `{typed}`")
        command = typed[2:]
        if not runs_until_ended(command):
            return self.session.run(command).splitlines()
        started = self.session.start(command)
        if program_of(command) == "partner-shell":
            self.shell = started
        return list(started.lines)


def unified(line):
    for pattern in ANSWERS_THAT_DIFFER:
        line = re.sub(pattern, "#", line)
    return line


def walks(prefix, first=False, last=False):
    def step(world, block):
        if first:
            world.walk = Walk(world)
        walk, world.walk = world.walk, None
        require(walk, "the walk has ended before")
        with contextlib.ExitStack() as at_failure:
            at_failure.enter_context(walk.session)
            walk.run(block)
            if not last:
                at_failure.pop_all()
                world.walk = walk
    runs(PROGRAM_PAGE, prefix)(step)


walks("$ switchctl stf l2_learn.stf --program", first=True)
walks("$ slice-agent --program l2_learn.json --configure")
walks("$ switchctl tables")
walks("$ partner-shell --program l2_learn.json")
walks("$ switchctl trace --port 1")


@runs(PROGRAM_PAGE, "packet 1 ffffffffffff 02000000000a 88b5 0001\n")
def _(world, block):
    """The file that the next block runs."""
    require(world.walk, "the walk has ended before")
    (world.walk.session.folder / "first.stf").write_text("\n".join(block.lines) + "\n")


walks("$ switchctl stf first.stf")
walks("> idle-register")
walks("$ switchctl ports", last=True)


@runs(PROGRAM_PAGE, "packet 1 ffffffffffff 02000000000a 88b5 0001      #")
def _(world, block):
    """Behind the example's set-up and entries for its VLAN."""
    folder = world.scratch / "test"
    shutil.copytree(world.root / "examples/p4", folder)
    set_up = (folder / "l2_learn.stf").read_text().partition("packet ")[0]
    # Port 3, which the block leaves out, has no part in the VLAN.
    set_up = "\n".join(line for line in set_up.splitlines() if not line.startswith("add egress_tag port:3"))
    (folder / "test.stf").write_text(set_up + "\n" + "\n".join(block.lines) + "\n")
    with Session(folder, world.env) as session:
        said = session.run("switchctl stf test.stf --program l2_learn.json")
        require("as expected, 1 packets in, 1 out" in said, said)


@runs(PROGRAM_PAGE, "l2_learn.json: /__meta__/version")
def _(world, block):
    """Each line is what an agent says of a program that is wrong in this way."""
    folder = world.scratch / "wrong"
    shutil.copytree(world.root / "examples/p4", folder)
    compiled = (folder / "l2_learn.json").read_text()
    wrong = {
        "version 3.0": lambda program: program["__meta__"].update(version=[3, 0]),
        "extern x": lambda program: program["extern_instances"].append({"name": "x", "type": "y"}),
        "teleport": lambda program: program["actions"][2]["primitives"][0].update(op="teleport"),
        "is exact but": lambda program: program["pipelines"][0]["tables"][3]["key"][0].update(
            match_type="ternary"),
        "is P4 source": lambda program: None,
    }
    with Session(folder, world.env) as session:
        for line in block.lines:
            program = json.loads(compiled)
            next(change for part, change in wrong.items() if part in line)(program)
            (folder / "l2_learn.json").write_text(json.dumps(program))
            require_refusal(session, line.partition(":")[0], line)


@runs(PAGES[1], "partner-shell --program router.json")
def _(world, block):
    with world.beside_programs() as session:
        session.start("slice-agent --program router.json")
        (session.folder / "routes.txt").write_text("tables\ndump ipv4_lpm\n")
        for line in block.lines:
            session.lines(block._replace(lines=[line]))
            for process in session.running[1:]:
                process.end()


@runs(PAGES[1], "member-add nexthops")
def _(world, block):
    with world.beside_programs() as session:
        write_routes(session.folder / "routes.txt.gz", gzip.open)
        session.start("slice-agent --program router.json")
        shell = session.start("partner-shell --program router.json")
        for line in block.lines:
            shell.type(line)


@runs(PAGES[0], "slice-agent: ready")
def _(world, block):
    with world.beside_programs() as session:
        agent = session.start("slice-agent --program router.json")
        require(agent.lines == block.lines, agent.lines, "is not", block.lines)


@runs(PAGES[0], "slice-agent --program l2_switch.json --port 1=if:veth1")
def _(world, block):
    with world.beside_programs() as session, interfaces("veth1", "veth2"):
        session.lines(block)
        ports = session.run("switchctl ports")
        require("if:veth1" in ports and "if:veth2" in ports, ports)


@runs(PAGES[0], "slice-agent --program router.json --port 2=pcap:,out.pcap")
def _(world, block):
    """As one script: it runs its agent in the background."""
    with world.beside_programs() as session:
        (session.folder / "routes").write_text(
            f"{ADD_A_MEMBER}\nadd ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=1\n")
        write_capture(session.folder / "in.pcap", [frame_from(1)])
        script = "\n".join(["set -e", *block.lines, "read", "kill $!", "wait $!"])
        agent = Running(script, session.folder, session.env)
        session.running.append(agent)
        agent.await_line('"input"')
        wait_until("the capture", lambda: '"exhausted"' in session.run("switchctl ports --json"))
        agent.popen.stdin.write("\n")
        agent.popen.stdin.flush()
        agent.finish()
        require((session.folder / "out.pcap").stat().st_size >= 24, "out.pcap is no capture")


@runs(PAGES[2], "switchctl entries ipv4_lpm --json > agent")
def _(world, block):
    with world.beside_programs(JEXPARTNER_TEST="true") as session:
        write_routes(session.folder / "routes.txt")
        session.start("slice-agent --program router.json")
        shell = session.start("partner-shell --program router.json")
        shell.type(ADD_A_MEMBER)
        shell.type("load-routes ipv4_lpm routes.txt")
        shell.type("barrier")
        session.lines(block)
        require((session.folder / "agent").read_text().count("\n") == 20, "not 20 routes")


@runs(PAGES[2], "grep -m1")
def _(world, block):
    """The address ages again and again, as the watch may begin late."""
    with world.beside_programs() as session:
        session.start("slice-agent --program l2_switch.json")
        shell = session.start("partner-shell --program l2_switch.json")
        shell.type("queue-create silences 16")
        shell.type("idle-register smac silences ttl-query=10 max-ttl=0 min-ttl=0")
        waiting = Running(block.lines[0], session.folder, session.env)
        session.running.append(waiting)
        key = "smac ethernet.src=02:00:00:00:00:01 meta.ingress_port=1"
        def age():
            shell.type(f"add {key} -> known ttl=10")
            shell.type("drain silences wait=5000")
            shell.type(f"delete {key}")
            return waiting.lines
        wait_until(block.lines[0], age)
        waiting.finish()
        require("02:00:00:00:00:01" in waiting.lines[0], waiting.lines)


@runs(PAGES[2], "switchctl trace --port 1")
def _(world, block):
    with world.beside_programs() as session:
        session.start("slice-agent --program l2_switch.json")
        traced = session.run(block.lines[0])
        require("dmac: miss" in traced and "flooded" in traced, traced)


# ---- commands within sentences -----------------------------------------------------------------


def shell_commands(world):
    """The names of partner-shell's commands."""
    with world.beside_programs() as session:
        session.start("slice-agent --program router.json")
        shell = session.start("partner-shell --program router.json")
        lines = shell.type("help")[:-1]
        return {line.split()[0] for line in lines if re.match(r"\s*[a-z]", line)}


def options_are_known(session, span):
    """The span's options stand in the help of its program."""
    help_text = session.run(f"{program_of(span)} --help")
    for option in re.findall(r"--[a-z-]+", span):
        require(re.search(rf"{option}\b", help_text), f"{program_of(span)} does not know {option}")


def run_spans(world, spans, commands):
    """Runs them beside an agent and a partner that counts; yields span and failure."""
    values = {"TABLE": "route_counters", "N": "100"}
    with world.beside_programs(JEXPARTNER_TEST="true") as session:
        session.start("slice-agent --program router.json")
        shell = session.start("partner-shell --program router.json")
        shell.type("counters-start route_counters")
        for span in spans:
            words = [values.get(word, word) for word in span.text.split()]
            if words[0] in ("dump", "count", "entries"):
                words = ["ipv4_lpm" if word == values["TABLE"] else word for word in words]
            command = " ".join(words)
            try:
                if words[0] in commands:
                    shell.type(command)
                elif words[0] == "switchctl":
                    session.lines(documents.Block(None, None, [command]))
                else:
                    options_are_known(session, command)
                yield span, None
            except Failure as failure:
                yield span, failure


# ---- manual pages and help -----------------------------------------------------------------------

OPTION = r"(?<![\w-])--[a-z][a-z-]*"


def check_manual(world, page, text, commands):
    """The page and the help of its program have the same options, the shell's the same commands."""
    name = pathlib.Path(page).stem
    text = documents.plain(text)
    with world.in_checkout() as session:
        help_text = session.run(f"{name} --help")
        subcommands = help_text.partition("Subcommands:")[2]
        for command in re.findall(r"^  ([a-z-]+) {2,}", subcommands, re.M):
            help_text += session.run(f"{name} {command} --help")
    explained = text.partition(".SH OPTIONS")[2].partition("\n.SH ")[0]
    only_there = set(re.findall(OPTION, explained)) - set(re.findall(OPTION, help_text))
    require(not only_there, "the help leaves out", *sorted(only_there))
    left_out = set(re.findall(OPTION, help_text)) - set(re.findall(OPTION, text))
    if name == "partner-shell":
        left_out |= {command for command in commands
                     if not re.search(rf"(?<![\w-]){command}(?![\w-])", text)}
    require(not left_out, "the page leaves out", *sorted(left_out))


# ---- all of it ---------------------------------------------------------------------------------


def claim_of(claims, block):
    text = "\n".join(block.lines) + "\n"
    return [claim for claim in claims if claim[0] == block.document and text.startswith(claim[1])]


def check(world, names, texts):
    """Runs the documents; yields place, text, failure or None, reason why it is not run or None."""
    blocks = [block for name in names for block in documents.blocks_of(name, texts[name])]
    claimed = set()
    for block in blocks:
        place = f"{block.document}:{block.line}"
        not_run = claim_of(BLOCKS_NOT_RUN, block)
        found = claim_of(CLAIMS, block)
        claimed.update(not_run + found)
        if not_run:
            yield place, block.lines[0], None, not_run[0][2]
        elif len(found) != 1:
            yield place, block.lines[0], Failure("is neither run nor listed"), None
        else:
            try:
                found[0][2](world, block)
                yield place, block.lines[0], None, None
            except Exception as failure:  # whatever is wrong, the other blocks are run
                yield place, block.lines[0], failure, None
    commands = shell_commands(world)
    for page in (name for name in names if name.endswith(".1")):
        try:
            check_manual(world, page, texts[page], commands)
            yield page, "options and commands", None, None
        except Failure as failure:
            yield page, "options and commands", failure, None
    first_words = {*PROGRAMS, *commands, "cmake", "cpack", "cd"}
    spans = [span for name in names if not name.endswith(".1")
             for span in documents.spans_of(name, texts[name], first_words)]
    for span in [*spans]:
        not_run = [entry for entry in SPANS_NOT_RUN if entry[:2] == (span.document, span.text)]
        claimed.update(not_run)
        if not_run:
            spans.remove(span)
            yield f"{span.document}:{span.line}", span.text, None, not_run[0][2]
    for span, failure in run_spans(world, spans, commands):
        yield f"{span.document}:{span.line}", span.text, failure, None
    for claim in [*BLOCKS_NOT_RUN, *SPANS_NOT_RUN, *CLAIMS]:
        if claim[0] in names and claim not in claimed:
            yield claim[0], claim[1].rstrip("\n"), Failure("stands in the check alone"), None


def main():
    root, build = (pathlib.Path(name).resolve() for name in sys.argv[1:3])
    names = sys.argv[3:] or DOCUMENTS
    require_own_world()
    texts = {name: (root / name).read_text(encoding="utf-8") for name in names}
    failures = 0
    with tempfile.TemporaryDirectory() as scratch:
        world = World(root, build, pathlib.Path(scratch))
        for place, text, failure, reason in check(world, names, texts):
            failures += failure is not None
            verdict = "ok" if reason is None else f"not run: {reason}"
            if failure is not None:
                verdict = f"FAILED: {type(failure).__name__}: {failure}"
            print(f"{place}: {text}: {verdict}", flush=True)
    print(f"{failures} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
