"""What the soak does to the system, over and over: the partner's, the packets' and the onlooker's
part, each in a thread of its own. See scripts/soak.sh."""
import collections
import contextlib
import json
import os
import signal
import subprocess
import urllib.request

import demo_run
from demo_run import DemoError, mac, words

ROOT = demo_run.ROOT
PROGRAMS = {name: os.path.join(ROOT, "programs", f"{name}.json")
            for name in ("l2_switch", "router")}
DATA = os.path.join(ROOT, "build", "data")  # see scripts/make_data.sh
SMALL_CAPTURE = "odd-mix.pcap"
PORTS = (1, 2, 3, 4)     # stay; what is sent there is thrown away
CAPTURE_PORT = 5         # comes and goes
PROMETHEUS = "127.0.0.1:9101"
COUNTER_TABLES = ("port_counters", "route_counters", "acl_counters")

EVERY_NTH_ROUTE = 15     # of the file: 70,000 in all, of which at most
MOST_ROUTES = {"ipv4_lpm": 20000, "ipv6_lpm": 5000}
MEMBERS = 64             # that routes refer to; they stay
GROUPS = 16
SPARE_MEMBERS = range(101, 133)
SPARE_GROUPS = range(101, 109)
RULES = 2000
PIPELINED = 200          # commands that are written before the first answer is read
REFUSED = "refused by the partner's device"


class Stopped(Exception):
    """Something else has failed: there is no point in going on."""


class Pool:
    """Numbers or names that are either free or held; takes and drops random ones."""

    def __init__(self, names):
        self.free = list(names)
        self.held = []

    @staticmethod
    def pick(rng, names):
        place = rng.randrange(len(names))
        names[place], names[-1] = names[-1], names[place]
        return names.pop()

    def take(self, rng):
        self.held.append(self.pick(rng, self.free))
        return self.held[-1]

    def drop(self, rng):
        self.free.append(self.pick(rng, self.held))
        return self.free[-1]


class Partner(demo_run.Partner):
    """partner-shell with all programs; gives up waiting as soon as anything has failed."""

    def __init__(self, options, programs, stopped):
        arguments = [os.path.join(options.bin, "partner-shell"), "--json", *programs]
        demo_run.Process.__init__(self, "partner-shell", arguments,
                                  os.path.join(options.out, "partner-shell.log"))
        self.stopped = stopped
        self.done = collections.Counter()

    def read_line(self, seconds, while_waiting=None):
        return super().read_line(seconds, while_waiting or self.stopped)

    def answer(self, command):
        """The listed objects and the result that closes them."""
        listed = []
        while True:
            found = json.loads(self.read_line(demo_run.COMMAND_DEADLINE))
            if "ok" in found:
                break
            listed.append(found)
        self.done[command.split(" ", 1)[0]] += 1
        return listed, found

    def ask(self, command):
        self.write(command + "\n")
        listed, result = self.answer(command)
        if not result["ok"]:
            raise DemoError(f"'{command}' failed: {result['error']}")
        return listed, result

    def do_all(self, commands):
        for first in range(0, len(commands), PIPELINED):
            some = commands[first:first + PIPELINED]
            self.write("".join(command + "\n" for command in some))
            for command in some:
                _, result = self.answer(command)
                if not result["ok"]:
                    raise DemoError(f"'{command}' failed: {result['error']}")

    def refused(self, command):
        """A command that the partner's own device has to refuse."""
        self.write(command + "\n")
        _, result = self.answer(command)
        if result["ok"]:
            raise DemoError(f"'{command}' was not refused")
        self.done[REFUSED] += 1


def small_capture(data):
    return os.path.join(data, "pcap", SMALL_CAPTURE)


def captures(data):
    """Paths of all captures, sorted."""
    folder = os.path.join(data, "pcap")
    return [os.path.join(folder, name) for name in sorted(os.listdir(folder))]


def read_routes(data):
    """Table -> Pool of prefixes."""
    routes = {"ipv4_lpm": [], "ipv6_lpm": []}
    path = os.path.join(data, "routes", "internet.txt")
    for number, prefix in enumerate(demo_run.routes_in(path)):
        if number % EVERY_NTH_ROUTE == 0:
            routes["ipv6_lpm" if ":" in prefix else "ipv4_lpm"].append(prefix)
    return {table: Pool(prefixes) for table, prefixes in routes.items()}


def route_key(table, prefix):
    return f"{table} {table[:4]}.dst={prefix}"


def rule_key(rule):
    return (f"acl ipv4.src=10.{rule >> 8}.{rule & 255}.0&&&255.255.255.0 "
            f"l4.dport={rule}..{rule + 1000} ipv4.protocol=6")


class PartnerWork:
    """A random walk of what a partner does. It knows what its tables hold, so that each command
    but those that are meant to be refused succeeds; once filled, the tables stay about as full."""

    def __init__(self, partner, rng, options, compare):
        self.partner = partner
        self.rng = rng
        self.compare = compare
        self.routes_file = os.path.join(options.out, "routes.txt")
        self.routes = read_routes(options.data)
        self.rules = Pool(range(RULES))
        self.spare_members = Pool(SPARE_MEMBERS)
        self.spare_groups = Pool(SPARE_GROUPS)
        self.in_group = {}   # group -> member -> whether it takes traffic
        self.learned = {}    # (address, port) of smac entries
        self.forwarded = {}  # address -> port, dmac entries
        self.counted = set()
        self.queues = 0
        self.actions = [(self.learn, 20), (self.change_routes, 20), (self.reload_routes, 4),
                        (self.change_rules, 10), (self.change_group, 10), (self.spares, 8),
                        (self.change_defaults, 3), (self.barrier, 10), (self.counters, 5),
                        (self.toggle_counters, 2), (self.queue, 3), (self.refusals, 3),
                        (self.look, 2), (self.compare_all, 0.1)]

    def step(self):
        action = self.rng.choices([action for action, _ in self.actions],
                                  [weight for _, weight in self.actions])[0]
        action()

    def fill(self):
        """Brings all tables to where the walk keeps them."""
        ask = self.partner.ask
        self.partner.do_all([f"member-add nexthops member={member} -> {self.nexthop()}"
                             for member in range(1, MEMBERS + 1)])
        for group in range(1, GROUPS + 1):
            members = self.rng.sample(range(1, MEMBERS + 1), 8)
            self.in_group[group] = dict.fromkeys(members, True)
            ask(f"group-create ecmp_groups group={group} max=32 members={words(members)}")
        while len(self.rules.held) < RULES // 2:
            self.add_rule()
        for table, most in MOST_ROUTES.items():
            self.load(table, most)
        ask("queue-create learned 1000")
        ask("queue-create aged 1000")
        ask("digest-register mac_learn learned")
        ask("idle-register smac aged ttl-query=200 max-ttl=0 min-ttl=0")
        for table in COUNTER_TABLES:
            self.start_counters(table)

    def finish(self):
        """All that is counted is synced, and nothing is registered any more."""
        self.learn()
        for table in COUNTER_TABLES:
            if table not in self.counted:
                self.start_counters(table)
            self.partner.ask(f"barrier {table} double timeout=600000")

    def unregister(self):
        self.partner.ask("digest-deregister mac_learn")
        self.partner.ask("idle-deregister smac")
        self.learn(apply=False)

    # Routes, next hops and groups.

    def nexthop(self):
        number = self.rng.randrange(1000)
        return (f"set_nexthop port={number % 9} dmac={mac(1, number)} smac={mac(2, number)} "
                f"counter={number}")

    def target(self):
        if self.rng.random() < 0.5:
            return f"group={self.rng.randint(1, GROUPS)}"
        return f"member={self.rng.randint(1, MEMBERS)}"

    def load(self, table, count):
        prefixes = [self.routes[table].take(self.rng) for _ in range(count)]
        with open(self.routes_file, "w", encoding="utf-8") as out:
            out.write("".join(prefix + "\n" for prefix in prefixes))
        members = words(self.rng.sample(range(1, MEMBERS + 1), 8))
        groups = words(self.rng.sample(range(1, GROUPS + 1), 4))
        _, result = self.partner.ask(
            f"load-routes {table} {self.routes_file} nexthops={members} groups={groups}")
        if result["loaded"] != count:
            raise DemoError(f"load-routes {table}: {result['loaded']} of {count} routes loaded")
        self.partner.done["routes loaded"] += count

    def delete_routes(self, table, count):
        routes = self.routes[table]
        self.partner.do_all([f"delete {route_key(table, routes.drop(self.rng))}"
                             for _ in range(count)])

    def reload_routes(self):
        table = self.rng.choice(sorted(MOST_ROUTES))
        count = self.rng.randint(200, 2000)
        self.delete_routes(table, count)
        self.load(table, count)

    def change_routes(self):
        table = self.rng.choice(sorted(MOST_ROUTES))
        routes = self.routes[table]
        count = self.rng.randint(1, 50)
        self.delete_routes(table, count)
        added = [routes.take(self.rng) for _ in range(count)]
        commands = [f"add {route_key(table, prefix)} -> {self.target()}" for prefix in added]
        commands += [f"modify {route_key(table, self.rng.choice(routes.held))} -> {self.target()}"
                     for _ in range(count)]
        self.partner.do_all(commands)

    def change_group(self):
        group = self.rng.randint(1, GROUPS)
        members = self.in_group[group]
        member = self.rng.randint(1, MEMBERS)
        if self.rng.random() < 0.6:
            member = self.rng.choice(sorted(members))
        if member not in members:
            verb = "group-add"
            members[member] = True
        elif self.rng.random() < 0.5 or len(members) < 4:
            members[member] = not members[member]
            verb = "group-activate" if members[member] else "group-deactivate"
        else:
            verb = "group-remove"
            del members[member]
        if len(members) > 20:
            self.partner.ask(f"{verb} ecmp_groups group={group} member={member}")
            verb, member = "group-remove", self.rng.choice(sorted(members))
            del members[member]
        self.partner.ask(f"{verb} ecmp_groups group={group} member={member}")

    def spares(self):
        """Members and groups that no route refers to come, change and go."""
        for pool, add, delete in (
                (self.spare_members, "member-add nexthops member={} -> " + self.nexthop(),
                 "member-delete nexthops member={}"),
                (self.spare_groups, f"group-create ecmp_groups group={{}} max=8 members="
                 f"{words(self.rng.sample(range(1, MEMBERS + 1), 3))}",
                 "group-destroy ecmp_groups group={}")):
            if pool.free and (not pool.held or self.rng.random() < 0.5):
                self.partner.ask(add.format(pool.take(self.rng)))
            else:
                self.partner.ask(delete.format(pool.drop(self.rng)))
        member = self.rng.randint(1, MEMBERS)
        self.partner.ask(f"member-modify nexthops member={member} -> {self.nexthop()}")

    # Access rules and defaults.

    def verdict(self):
        return f"{self.rng.choice(('permit', 'deny'))} counter={self.rng.randrange(1000)}"

    def add_rule(self):
        rule = self.rules.take(self.rng)
        self.partner.ask(f"add {rule_key(rule)} -> {self.verdict()} "
                         f"priority={self.rng.randint(1, 9999)}")

    def change_rules(self):
        self.partner.ask(f"delete {rule_key(self.rules.drop(self.rng))}")
        self.add_rule()
        self.partner.ask(f"modify {rule_key(self.rng.choice(self.rules.held))} -> "
                         f"{self.verdict()}")
        self.partner.ask(f"move {rule_key(self.rng.choice(self.rules.held))} "
                         f"priority={self.rng.randint(1, 9999)}")

    def change_defaults(self):
        for set_it, clear in ((f"default acl -> {self.verdict()}", "clear-default acl"),
                              (f"default ipv4_lpm -> {self.target()}", "clear-default ipv4_lpm"),
                              (f"fallback ecmp_groups member={self.rng.randint(1, MEMBERS)}",
                               "clear-fallback ecmp_groups")):
            self.partner.ask(set_it)
            if self.rng.random() < 0.5:
                self.partner.ask(clear)

    # Learning of addresses, as a control plane does it.

    def drain(self, queue):
        found, _ = self.partner.ask(f"drain {queue}")
        self.partner.done["notifications drained"] += len(found)
        return found

    def learn(self, apply=True):
        seen, aged = self.drain("learned"), self.drain("aged")
        if not apply:
            return
        for note in seen:
            fields = note["fields"]
            self.remember(fields["ethernet.src"], fields["meta.ingress_port"])
        for note in aged:
            if note["key"]:
                self.forget(note["key"]["ethernet.src"], note["key"]["meta.ingress_port"])

    def remember(self, address, port):
        if (address, port) in self.learned:
            return
        self.learned[address, port] = True
        ttl = self.rng.randint(1000, 8000)
        self.partner.ask(f"add smac ethernet.src={address} meta.ingress_port={port} ttl={ttl} "
                         f"-> known")
        verb = "modify" if address in self.forwarded else "add"
        self.forwarded[address] = port
        self.partner.ask(f"{verb} dmac ethernet.dst={address} -> forward port={port}")
        self.partner.done["addresses learned"] += 1

    def forget(self, address, port):
        if self.learned.pop((address, port), None) is None:
            return  # it has aged more than once before it was drained
        self.partner.ask(f"delete smac ethernet.src={address} meta.ingress_port={port}")
        if self.forwarded.get(address) == port:
            del self.forwarded[address]
            self.partner.ask(f"delete dmac ethernet.dst={address}")
        self.partner.done["addresses forgotten"] += 1

    # Barriers, counters and queues.

    def barrier(self):
        self.partner.ask("barrier timeout=600000")

    def start_counters(self, table):
        self.partner.ask(f"counters-start {table}")
        self.counted.add(table)

    def toggle_counters(self):
        table = self.rng.choice(COUNTER_TABLES)
        if table in self.counted:
            self.counted.remove(table)
            self.partner.ask(f"counters-stop {table}")
        else:
            self.start_counters(table)

    def counters(self):
        if not self.counted:
            return
        table = self.rng.choice(sorted(self.counted))
        double = " double" if self.rng.random() < 0.2 else ""
        self.partner.ask(f"barrier {table}{double} timeout=600000")
        self.partner.done[f"barriers with a sync{' (double)' if double else ''}"] += 1
        self.partner.ask(f"counters-read {table} {self.rng.randrange(400)} 100")

    def queue(self):
        self.queues += 1
        self.partner.ask(f"queue-create queue{self.queues} {self.rng.randint(1, 100000)}")
        self.partner.ask(f"queue-destroy queue{self.queues}")

    # Looking, and being refused.

    def refusals(self):
        rule = self.rules
        self.partner.refused(f"add {rule_key(self.rng.choice(rule.held))} -> deny priority=7")
        self.partner.refused(f"delete {rule_key(self.rng.choice(rule.free))}")
        self.partner.refused("digest-register mac_learn learned")
        self.partner.refused("group-create ecmp_groups group=1 max=8")

    def look(self):
        self.partner.ask(self.rng.choice(("tables", "latency", "count ipv4_lpm", "dump nexthops",
                                          "dump ecmp_groups", "help")))

    def compare_all(self):
        self.barrier()
        self.compare()


class PacketWork:
    """Captures that come in, at ports that stay and at one that comes and goes."""

    def __init__(self, device, rng, options):
        self.device = device
        self.rng = rng
        self.captures = captures(options.data)
        self.sent = os.path.join(options.out, "sent.pcap")
        self.attached = False
        self.actions = [(self.inject, 10), (self.attach, 3), (self.bounce, 2)]

    def step(self):
        self.rng.choices([action for action, _ in self.actions],
                         [weight for _, weight in self.actions])[0]()

    def inject(self):
        result = self.device.result("inject", "--port", str(self.rng.choice(PORTS)),
                                    self.rng.choice(self.captures))
        self.device.done["packets injected"] += result["packets"]

    def attach(self):
        """A port with an input and an output capture; the next time it is taken away again."""
        if self.attached:
            result = self.device.result("port-delete", str(CAPTURE_PORT))
            self.device.done["packets read from captures"] += result["packets_in"]
        else:
            self.device.result("port-add", f"{CAPTURE_PORT}=pcap:{self.rng.choice(self.captures)},"
                                           f"{self.sent}")
        self.attached = not self.attached

    def finish(self):
        if self.attached:
            self.attach()

    def bounce(self):
        port = str(self.rng.choice(PORTS))
        self.device.result("port-down", port)
        self.inject()
        self.device.result("port-up", port)


class LookingOn:
    """People and scripts that look: switchctl, slice-counters, a scrape."""

    def __init__(self, options, device, rng, programs):
        self.device = device
        self.rng = rng
        self.out = options.out
        self.small_capture = small_capture(options.data)
        self.slice_counters = [os.path.join(options.bin, "slice-counters"), *programs]
        self.actions = [(self.ask, 12), (self.trace, 2), (self.capture, 1), (self.scrape, 6),
                        (self.read_counters, 4)]

    def step(self):
        self.rng.choices([action for action, _ in self.actions],
                         [weight for _, weight in self.actions])[0]()

    def ask(self):
        self.device.call(*self.rng.choice((
            ["health"], ["programs"], ["tables"], ["ports"], ["count", "ipv4_lpm"],
            ["entries", "acl"], ["entries", "nexthops"], ["entries", "ecmp_groups"],
            ["entries", "smac"], ["entries", "port_counters", "--non-zero"])),
            stdout=subprocess.DEVNULL)

    def trace(self):
        self.device.call("trace", "--port", str(self.rng.choice(PORTS)), self.small_capture,
                         stdout=subprocess.DEVNULL)

    def capture(self):
        """Follows a port for a moment; packets may come meanwhile or not."""
        arguments = self.device.switchctl + ["capture", "--port", str(self.rng.choice(PORTS)),
                                             "--count", "500", os.path.join(self.out, "seen.pcap")]
        with subprocess.Popen(arguments, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL) as capture:
            try:
                capture.wait(timeout=self.rng.uniform(0.1, 1))
            except subprocess.TimeoutExpired:
                capture.send_signal(signal.SIGINT if self.rng.random() < 0.7 else signal.SIGKILL)
        self.device.done["switchctl capture"] += 1

    def scrape(self):
        with urllib.request.urlopen(f"http://{PROMETHEUS}/metrics", timeout=600) as page:
            if b"jex_counters_segment_present 1" not in page.read():
                raise DemoError("the scrape shows no segment of counters")
        self.device.done["scrapes of the metrics"] += 1

    def read_counters(self):
        more = self.rng.choice(([], ["--all"], ["--watch", "100ms", "--count", "3"]))
        done = subprocess.run(self.slice_counters + ["--json", *more], check=False,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=600)
        if done.returncode != 0:
            raise DemoError(f"slice-counters {words(more)}: {done.stderr.decode().strip()}")
        self.device.done["slice-counters"] += 1


class Device(demo_run.PhysicalDevice):
    """switchctl, with what was asked how often."""

    def __init__(self, options):
        super().__init__(options)
        self.done = collections.Counter()

    def call(self, *arguments, **more):
        done = super().call(*arguments, timeout=600, **more)
        self.done[f"switchctl {arguments[0]}"] += 1
        return done

    def result(self, *arguments):
        return json.loads(self.call(*arguments, stdout=subprocess.PIPE).stdout)

    def non_zero_counters(self, table):
        lines = self.call("entries", table, "--non-zero", stdout=subprocess.PIPE).stdout
        return {int(entry["key"]["$COUNTER_INDEX"]): (entry["packets"], entry["bytes"])
                for entry in map(json.loads, lines.splitlines()) if "key" in entry}


def slice_counters_of(options, programs, table):
    arguments = [os.path.join(options.bin, "slice-counters"), *programs, "--json", table]
    found = json.loads(subprocess.run(arguments, check=True, stdout=subprocess.PIPE,
                                      timeout=600).stdout)
    return {entry["index"]: (entry["packets"], entry["bytes"]) for entry in found[0]["counters"]}


def partner_counters_of(partner, table):
    listed, _ = partner.ask(f"counters-read {table}")
    return {entry["index"]: (entry["packets"], entry["bytes"]) for entry in listed
            if entry["packets"] or entry["bytes"]}


def remove(path):
    with contextlib.suppress(FileNotFoundError):
        os.remove(path)
