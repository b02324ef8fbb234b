#!/usr/bin/env python3
"""Soaks the system with programs that are built; see scripts/soak.sh, which calls this."""
import argparse
import collections
import os
import random
import subprocess
import sys
import threading
import time

import compare_dumps
import demo_run
import soak_work
from demo_run import DemoError

SAMPLE_SECONDS = 0.5
STOP_MARK = "Error: "
PAUSE = {"partner": 0.005, "packets": 0.2, "onlooker": 0.2}  # seconds, the longest between steps

Sample = collections.namedtuple("Sample", "seconds memory descriptors threads")


def sample_of(pid, seconds):
    """Resident memory in KiB, open descriptors and threads of a process; None if it is gone."""
    try:
        with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as status:
            fields = dict(line.split(":", 1) for line in status)
        return Sample(seconds, int(fields["VmRSS"].split()[0]),
                      len(os.listdir(f"/proc/{pid}/fd")), int(fields["Threads"]))
    except (OSError, KeyError):
        return None


class Watch:
    """Watches over the long-running processes from a thread of its own."""

    def __init__(self, began):
        self.began = began
        self.processes = []
        self.samples = {}  # name -> samples
        self.problems = []
        self.trouble = threading.Event()
        self.lock = threading.Lock()       # of the lists
        self.looking = threading.Lock()    # one look at a time
        self.read_up_to = collections.Counter()  # name -> bytes of its log

    def add(self, process):
        with self.lock:
            self.samples[process.name] = []
            self.processes.append(process)
        return process

    def report(self, problem):
        with self.lock:
            self.problems.append(f"after {time.monotonic() - self.began:.1f} s: {problem}")
        print(f"soak: {self.problems[-1]}", file=sys.stderr, flush=True)
        self.trouble.set()

    def check_in(self):
        """What a part calls that waits: leaves it when another one has failed."""
        if self.trouble.is_set():
            raise soak_work.Stopped

    def look(self):
        with self.looking:
            with self.lock:
                processes = list(self.processes)
            for process in processes:
                self.look_at(process)

    def look_at(self, process):
        status = process.popen.poll()
        self.look_for_stops(process)
        if status is not None:
            self.forget(process)
            self.report(f"{process.name} ended unexpectedly, with status {status}")
            return
        sample = sample_of(process.popen.pid, time.monotonic() - self.began)
        if sample:
            self.samples[process.name].append(sample)

    def look_for_stops(self, process):
        """Reports lines with which the library stops a process; reads each line once."""
        with open(process.log_path, "rb") as log:
            log.seek(self.read_up_to[process.name])
            for line in log:
                if not line.endswith(b"\n"):
                    break
                self.read_up_to[process.name] += len(line)
                text = line.decode(errors="replace").rstrip()
                if STOP_MARK in text:
                    self.report(f"{process.name} says: {text}")

    def forget(self, process):
        with self.lock:
            if process in self.processes:
                self.processes.remove(process)

    def end(self, process, end, wanted=0):
        """Ends a process that is meant to end now, with the status `wanted`."""
        self.forget(process)
        status = end()
        self.look_for_stops(process)
        if status != wanted:
            self.report(f"{process.name} ended with status {status}: {process.last_words()}")


class Growth:
    """How far something rose above what it was at most in the warm-up."""

    def __init__(self, samples, warm_up_end, field):
        self.before = max((getattr(sample, field) for sample in samples
                           if sample.seconds < warm_up_end), default=0)
        self.after = max((getattr(sample, field) for sample in samples
                          if sample.seconds >= warm_up_end), default=0)
        self.measured = self.before > 0 and self.after > 0

    @property
    def amount(self):
        return self.after - self.before


class Soak:
    def __init__(self, options):
        self.options = options
        self.rng = random.Random(options.seed)
        self.began = time.monotonic()
        self.watch = Watch(self.began)
        self.warm_up_end = float("inf")  # seconds after the beginning
        self.stop = threading.Event()
        self.done = collections.Counter()
        names = sorted(soak_work.PROGRAMS, key=lambda name: name != options.packets_through)
        self.programs = [word for name in names
                         for word in ("--program", soak_work.PROGRAMS[name])]
        self.devices = {part: soak_work.Device(options) for part in PAUSE}
        self.partner = None
        self.agent = None
        self.others = []

    def process(self, name, *arguments, binary=None):
        log = os.path.join(self.options.out, f"{name.replace(' ', '-')}.log")
        soak_work.remove(log)
        path = os.path.join(self.options.bin, binary or name)
        return self.watch.add(demo_run.Process(name, [path, *arguments], log))

    def start(self):
        ports = [word for port in soak_work.PORTS
                 for word in ("--port", f"{port}=pcap:{soak_work.small_capture(self.options.data)}")]
        self.agent = self.process("slice-agent", *self.programs, *ports, "--counter-update-ms",
                                  "500", "--heartbeat-ms", "1000")
        print(self.agent.await_ready())
        self.partner = self.watch.add(
            soak_work.Partner(self.options, self.programs, self.watch.check_in))
        self.partner.await_ready()
        self.others = [self.process("slice-counters", *self.programs, "--prometheus",
                                    soak_work.PROMETHEUS),
                       self.process("switchctl watch", "--json", "watch", binary="switchctl")]
        for process in (self.agent, self.partner, *self.others):
            print(f"{process.name}: pid {process.popen.pid}")
        sys.stdout.flush()

    def run(self):
        sampler = threading.Thread(target=self.sample_until_stop)
        self.start()
        sampler.start()
        seeds = {part: self.rng.randrange(1 << 32) for part in PAUSE}
        work = soak_work.PartnerWork(self.partner, random.Random(seeds["partner"]),
                                     self.options, self.compare_all)
        parts = {"partner": work,
                 "packets": soak_work.PacketWork(self.devices["packets"],
                                                 random.Random(seeds["packets"]),
                                                 self.options),
                 "onlooker": soak_work.LookingOn(self.options, self.devices["onlooker"],
                                                 random.Random(seeds["onlooker"]),
                                                 self.programs)}
        try:
            self.guarded("partner", work.fill)
            threads = [threading.Thread(target=self.repeat, args=(part, parts[part], seeds[part]))
                       for part in parts]
            threads.append(threading.Thread(target=self.count_events))
            for thread in threads:
                thread.start()
            self.wait()
            self.stop.set()
            for thread in threads[:-1]:
                thread.join()
            if not self.watch.trouble.is_set():
                self.guarded("end", lambda: self.finish(parts))
        finally:
            self.stop.set()
            sampler.join()
            self.end()
        for counted in (self.partner, *self.devices.values()):
            self.done.update(counted.done)

    def wait(self):
        """Until the time is over or something fails; begins when the tables are filled."""
        print("tables filled", flush=True)
        if self.watch.trouble.wait(self.options.warm_up):
            return
        self.warm_up_end = time.monotonic() - self.began
        print("warm-up over", flush=True)
        self.watch.trouble.wait(self.options.minutes * 60 - self.options.warm_up)

    def sample_until_stop(self):
        while not self.stop.wait(SAMPLE_SECONDS):
            self.watch.look()

    def guarded(self, part, step):
        """Whether a step of a part succeeded."""
        try:
            step()
            return True
        except soak_work.Stopped:
            return False
        except (DemoError, compare_dumps.NotADump) as error:
            problem = str(error)
        except Exception as error:  # anything else, an answer of a wrong form perhaps
            problem = f"{type(error).__name__}: {error}"
        # A process that has ended is told of first; its end is seen some time after it was felt.
        for _ in range(20):
            self.watch.look()
            if self.watch.trouble.wait(0.1):
                break
        self.watch.report(f"{part}: {problem}")
        return False

    def repeat(self, part, work, seed):
        pauses = random.Random(seed + 1)
        while not self.stop.is_set() and not self.watch.trouble.is_set():
            if not self.guarded(part, work.step):
                return
            self.stop.wait(pauses.uniform(0, PAUSE[part]))

    def count_events(self):
        """Reads what `switchctl watch` prints, as nobody else would."""
        for _ in self.others[1].popen.stdout:
            self.done["events watched"] += 1

    def finish(self, parts):
        parts["packets"].finish()
        parts["partner"].finish()
        self.watch.look()
        self.compare_all()
        self.compare_counters()
        parts["partner"].unregister()

    def compare_all(self):
        """The agent's tables against the partner's, when the agent has handled all."""
        device = self.devices["partner"]
        for name in demo_run.entries_of(device.tables()):
            paths = [os.path.join(self.options.out, f"{name}.{side}.json")
                     for side in ("virtual", "physical")]
            self.partner.dump(name, paths[0])
            device.dump(name, paths[1])
            found = []
            compared, count = compare_dumps.compare(*paths, found.append)
            self.done["entries compared"] += compared
            self.done["differences"] += count
            if count:
                shown = "\n  ".join(found[:5])
                raise DemoError(f"{name}: {count} differences between the partner's table and "
                                f"the agent's:\n  {shown}")
        self.done["comparisons of all tables"] += 1

    def compare_counters(self):
        """The chip's counts, the partner's and those of slice-counters, when no packet comes."""
        self.check_packets_counted()
        for table in soak_work.COUNTER_TABLES:
            chip = self.devices["partner"].non_zero_counters(table)
            views = {"the partner": soak_work.partner_counters_of(self.partner, table),
                     "slice-counters": soak_work.slice_counters_of(self.options, self.programs,
                                                                   table)}
            for who, view in views.items():
                wrong = sorted(index for index in chip.keys() | view.keys()
                               if chip.get(index) != view.get(index))
                if wrong:
                    raise DemoError(f"{table}: {len(wrong)} counters differ; {who} reads "
                                    f"{view.get(wrong[0])} at {wrong[0]}, the chip has "
                                    f"{chip.get(wrong[0])}")
            self.done["counters compared"] += len(chip)

    def check_packets_counted(self):
        """The switch counts each packet that it does not drop because a capture has cut it."""
        if self.options.packets_through != "l2_switch":
            return
        packets = self.devices["partner"].result("ports")["packets"]
        counters = self.devices["partner"].non_zero_counters("port_counters")
        counted = sum(count for count, _ in counters.values())
        if counted != packets["received"] - packets["dropped"]:
            raise DemoError(f"the switch counted {counted} packets, of which {packets['received']} "
                            f"came in and {packets['dropped']} were dropped")
        self.done["packets that the switch counted"] = counted

    def end(self):
        """Partner first: an agent with heartbeats would stop some seconds after it."""
        self.watch.look()
        if self.partner:
            # The shell says that a command of its input failed, as some were meant to.
            self.watch.end(self.partner, self.end_partner,
                           wanted=1 if self.partner.done[soak_work.REFUSED] else 0)
        for process in (*self.others, self.agent):
            if process:
                self.watch.end(process, process.end)

    def end_partner(self):
        self.partner.popen.stdin.close()
        try:
            return self.partner.popen.wait(timeout=600)
        except subprocess.TimeoutExpired:
            self.partner.popen.kill()
            return self.partner.popen.wait()


def growths(soak):
    """(process, what, unit, Growth in that unit, bound) of all that is bounded."""
    options = soak.options
    for name, samples in soak.watch.samples.items():
        for field, text, unit, bound in (
                ("memory", "resident memory", "KiB", options.memory_bound * 1024),
                ("descriptors", "open descriptors", "", options.descriptor_bound),
                ("threads", "threads", "", options.thread_bound)):
            yield name, text, unit, Growth(samples, soak.warm_up_end, field), bound


def judge(soak):
    """Reports each growth beyond its bound, and that nothing could be measured."""
    for name, text, unit, growth, bound in list(growths(soak)):
        unit = unit and f" {unit}"
        if not growth.measured and not soak.watch.trouble.is_set():
            soak.watch.report(f"{name}: {text} was not sampled both in and after the warm-up")
        if growth.measured and growth.amount > bound:
            soak.watch.report(f"{name}: {text} grew from {growth.before:,}{unit} in the warm-up "
                              f"to {growth.after:,}{unit}, by more than {bound:,.0f}{unit}")


def print_memory(soak):
    names = list(soak.watch.samples)
    print(f"\n{'resident memory, MiB: first last max':<40}")
    print(f"{'minute':<8}" + "".join(f"{name:>28}" for name in names))
    minutes = collections.defaultdict(lambda: collections.defaultdict(list))
    for name in names:
        for sample in soak.watch.samples[name]:
            minutes[int(sample.seconds // 60)][name].append(sample.memory / 1024)
    for minute in sorted(minutes):
        cells = []
        for name in names:
            found = minutes[minute][name]
            cells.append(f"{found[0]:>10.1f}{found[-1]:>9.1f}{max(found):>9.1f}" if found
                         else " " * 28)
        print(f"{minute:<8}" + "".join(cells))


def report(soak):
    print(f"\n{'what':<40}{'times':>14}")
    for what in sorted(soak.done):
        print(f"{what:<40}{soak.done[what]:>14,}")
    print_memory(soak)
    print(f"\n{'growth after the warm-up':<46}{'in warm-up':>12}{'after':>12}{'growth':>10}"
          f"{'bound':>10}")
    for name, text, unit, growth, bound in growths(soak):
        what = f"{name}: {text}" + (f", {unit}" if unit else "")
        print(f"{what:<46}{growth.before:>12,}{growth.after:>12,}{growth.amount:>10,}"
              f"{bound:>10,.0f}")
    problems = soak.watch.problems
    for problem in problems:
        print(f"\nproblem {problem}")
    print(f"\nlogs and dumps: {os.path.relpath(soak.options.out)}")
    print(f"soak: {time.monotonic() - soak.began:.0f} s, seed {soak.options.seed}: "
          f"{'FAILED' if problems else 'passed'}")


def parsed_options():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", required=True, help="where the programs are")
    parser.add_argument("--out", required=True, help="where logs and dumps go")
    parser.add_argument("--data", default=soak_work.DATA,
                        help="where routes and captures are (%(default)s)")
    parser.add_argument("--minutes", type=float, default=30, help="how long (%(default)s)")
    parser.add_argument("--seed", type=int, help="of all random choices; left out: any")
    parser.add_argument("--packets-through", choices=sorted(soak_work.PROGRAMS),
                        default="l2_switch", help="which program packets run through (%(default)s)")
    parser.add_argument("--warm-up", type=float, metavar="SECONDS",
                        help="part of the time; left out: a third, two minutes at most")
    parser.add_argument("--memory-bound", type=float, default=16, metavar="MIB",
                        help="growth of a process's memory after the warm-up (%(default)s)")
    parser.add_argument("--descriptor-bound", type=int, default=16, metavar="N",
                        help="growth of its open descriptors (%(default)s)")
    parser.add_argument("--thread-bound", type=int, default=16, metavar="N",
                        help="growth of its threads (%(default)s)")
    options = parser.parse_args()
    if options.seed is None:
        options.seed = random.SystemRandom().randrange(1 << 32)
    if options.warm_up is None:
        options.warm_up = min(120.0, options.minutes * 20)
    if not 0 < options.warm_up < options.minutes * 60:
        parser.error("the warm-up has to be a part of the time")
    return options


def main():
    options = parsed_options()
    os.makedirs(options.out, exist_ok=True)
    print(f"soak: {options.minutes:g} minutes, {options.warm_up:g} s of it warm-up, "
          f"seed {options.seed}", flush=True)
    soak = Soak(options)
    soak.guarded("soak", soak.run)
    judge(soak)
    report(soak)
    return 1 if soak.watch.problems else 0


if __name__ == "__main__":
    sys.exit(main())
