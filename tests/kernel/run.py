#!/usr/bin/env python3
"""Runs the scenarios of this folder on a real Linux kernel in a virtual machine."""
import argparse
import collections
import fcntl
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

sys.dont_write_bytecode = True
import machine
import vm

SCENARIOS = machine.HERE / "scenarios"
SCENARIO_SECONDS = 600
LONG_SECONDS = 30 * 60
LONG = {"a-python-script-of-a-user": ["plugs=200"], "storm": ["steps=120"], "exits-without-a-release": ["hosts=100"],
        "opening-devices-without-privilege": ["devices=1000"]}


def sentence(name):
    """Returns the description of a scenario: its first line."""
    with open(SCENARIOS / f"{name}.sh") as file:
        return file.readline().lstrip("# ").rstrip()


def has_udevd(name):
    """Returns whether a plain run includes it with udevd too."""
    return "\n# Also with udevd.\n" in (SCENARIOS / f"{name}.sh").read_text()


def parse_arguments():
    names = sorted(path.stem for path in SCENARIOS.glob("*.sh"))
    listing = "\n".join(f"  {name}\n      {sentence(name)}" for name in names)
    parser = argparse.ArgumentParser(prog="./dev check kernel", description=__doc__, epilog=f"scenarios:\n{listing}",
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kernel", choices=sorted(machine.RELEASES), default="6.1",
                        help="Debian's kernel of this version (default: %(default)s)")
    parser.add_argument("--arch", choices=sorted(machine.DEBIAN), default="amd64")
    parser.add_argument("--scenario", choices=names, metavar="NAME", action="append", help="run only this scenario; repeat for several")
    parser.add_argument("--long", action="store_true",
                        help=f"run all scenarios with udevd and without, then storms, for {LONG_SECONDS // 60} minutes in total")
    parser.add_argument("--seed", type=int, metavar="N", help="the seed of the storm (default: random)")
    parser.add_argument("--udevd", choices=["yes", "no"], help="run only with udevd, or only without")
    parser.add_argument("--mirror", metavar="URL", help="a Debian mirror (default: that of this machine's apt)")
    parser.add_argument("--machines", type=int, default=2, metavar="N", help="the number of concurrent machines (default: 2)")
    parser.add_argument("--accel", default="tcg,thread=multi", help="QEMU's accelerators, in order of preference (default: %(default)s; kvm:tcg is faster)")
    parser.add_argument("--build", type=pathlib.Path, default=machine.ROOT / "build/kernel", metavar="FOLDER",
                        help="the working folder (default: build/kernel)")
    arguments = parser.parse_args()
    if arguments.machines < 1:
        parser.error("--machines must be at least 1")
    return arguments, names


def plan(arguments, names, seed):
    """Returns the runs as tuples of scenario, with udevd or not, and variables; those without udevd first."""
    result = []
    for udevd in (False, True):
        for name in arguments.scenario or names:
            wanted = arguments.long or arguments.scenario or not udevd or has_udevd(name)
            if (udevd == (arguments.udevd == "yes")) if arguments.udevd else wanted:
                variables = [f"seed={seed}"] if name == "storm" else []
                result.append((name, udevd, variables + (LONG.get(name, []) if arguments.long else [])))
    return result


class Runner:
    """Runs the planned scenarios on the given number of concurrent machines."""

    def __init__(self, arguments, made):
        self._arguments = arguments
        self._machine = made
        self._waiting = collections.deque()
        self._begun = 0
        self._seed = 0
        self._end = 0.0
        self._print = threading.Lock()
        self.results = made.folder / "results"
        shutil.rmtree(self.results, ignore_errors=True)
        self.results.mkdir(parents=True)
        self.failed = []
        self.passed = 0
        self.counts = {"comparisons": 0, "streams": 0, "events": 0}

    def run(self, planned, seed):
        """Returns whether every scenario that was planned or started has ended, successfully or not."""
        self._waiting.extend(planned)
        self._seed = seed
        self._end = time.monotonic() + LONG_SECONDS if self._arguments.long else 0.0
        threads = [threading.Thread(target=self._work, args=[number % 2 == 1], daemon=True)
                   for number in range(self._arguments.machines)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return not self._waiting and self._begun == self.passed + len(self.failed)

    def stop(self):
        """Ends the machines. No more results are reported."""
        self._print.acquire()
        vm.Vm.end_all()

    def _next(self, udevd):
        """Machines with udevd take scenarios from the end of the queue, so that few machines are restarted."""
        with self._print:
            if not self._waiting and time.monotonic() > self._end:
                return None
            self._begun += 1
            if self._waiting:
                return self._waiting.pop() if udevd else self._waiting.popleft()
            self._seed += 1
            return "storm", udevd, [f"seed={self._seed}", *LONG["storm"]]

    def _work(self, prefers_udevd):
        running = None
        while (task := self._next(prefers_udevd)) is not None:
            name, udevd, variables = task
            title = name + (" with udevd" if udevd else "") + "".join(f" {word}" for word in variables)
            kept = self.results / re.sub("[^a-zA-Z0-9=]+", "-", title)
            output = []
            started = time.monotonic()
            try:
                if running is not None and running.udevd != udevd:
                    running.end()
                    running = None
                if running is None:
                    running = vm.Vm(self._machine, f"{kept}.console", udevd, self._arguments.accel)
                    started = time.monotonic()
                status = running.ask(" ".join([name, *variables]), output,
                                     SCENARIO_SECONDS * (3 if self._arguments.long else 1))
                reason = f"status {status}" if status != "0" else None
            except (vm.Broken, OSError) as broken:
                reason = str(broken) or type(broken).__name__
            with self._print:
                self._report(title, name, output, reason, time.monotonic() - started)
            if reason is not None:
                self._keep_log(running, f"{kept}.kernel")
                if running is not None:
                    running.end()
                running = None
        if running is not None:
            running.end()

    def _report(self, title, name, output, reason, seconds):
        for line in output:
            counted = re.match(r"compared (\d+) streams, (\d+) events", line)
            if counted:
                self.counts["comparisons"] += 1
                self.counts["streams"] += int(counted[1])
                self.counts["events"] += int(counted[2])
        if reason is None:
            self.passed += 1
            print(f"kernel: {title}: passed, {seconds:.1f} s", flush=True)
            for line in output:
                if not line.startswith("compared "):
                    print(f"    {line}")
            return
        self.failed.append(title)
        print(f"kernel: {title}: FAILED, {reason}\n    {sentence(name)}", flush=True)
        for line in output[-30:]:
            print(f"    {line}")

    def _keep_log(self, running, name):
        log = []
        try:
            if running is not None:
                running.ask("log", log, 120)
        except (vm.Broken, OSError) as broken:
            log.append(f"the rest is missing: {broken}")
        pathlib.Path(name).write_text("\n".join(log) + "\n")
        print(f"    the kernel's log: {name}; its console output: *.console in the same folder", flush=True)


def main():
    arguments, names = parse_arguments()
    seed = arguments.seed if arguments.seed is not None else int(time.time()) % 100000
    started = time.monotonic()
    for each in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(each, signal.default_int_handler)
    try:
        arguments.build.mkdir(parents=True, exist_ok=True)
        lock = open(arguments.build / "lock", "w")
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        made = machine.Machine(arguments.build, arguments.kernel, arguments.arch, arguments.mirror)
        made.make()
    except BlockingIOError:
        print(f"kernel: another run is using {arguments.build}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130
    except (machine.Failed, OSError, subprocess.SubprocessError) as failed:
        print(f"kernel: {failed}", file=sys.stderr)
        return 1
    print(f"kernel: Linux {arguments.kernel}, {arguments.arch}; the machine took {time.monotonic() - started:.0f} s",
          flush=True)
    started = time.monotonic()
    runner = Runner(arguments, made)
    try:
        complete = runner.run(plan(arguments, names, seed), seed)
    except KeyboardInterrupt:
        runner.stop()
        return 130
    print(f"kernel: {runner.passed} of {runner.passed + len(runner.failed)} passed in "
          f"{time.monotonic() - started:.0f} s; {runner.counts['comparisons']} comparisons of "
          f"{runner.counts['streams']} streams with sysfs, {runner.counts['events']} events")
    for title in runner.failed:
        print(f"kernel: failed: {title}")
    if not complete:
        print("kernel: failed: a scenario began and did not end; see above")
    return 0 if complete and not runner.failed and runner.passed > 0 else 1


sys.exit(main())
