#!/usr/bin/env python3
"""Runs the scenarios of this folder on a real Linux kernel in a virtual machine."""
import argparse
import pathlib
import queue
import re
import shutil
import sys
import threading
import time

sys.dont_write_bytecode = True
import machine
import vm

SCENARIOS = machine.HERE / "scenarios"
SCENARIO_SECONDS = 600


def sentence(name):
    """What a scenario is about: its first line."""
    with open(SCENARIOS / f"{name}.sh") as file:
        return file.readline().lstrip("# ").rstrip()


def parse_arguments():
    names = sorted(path.stem for path in SCENARIOS.glob("*.sh"))
    listing = "\n".join(f"  {name}\n      {sentence(name)}" for name in names)
    parser = argparse.ArgumentParser(prog="./dev check kernel", description=__doc__, epilog=f"scenarios:\n{listing}",
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kernel", choices=sorted(machine.RELEASES), default="6.1",
                        help="Debian's kernel of this version (default: %(default)s)")
    parser.add_argument("--arch", choices=sorted(machine.DEBIAN), default="amd64")
    parser.add_argument("--scenario", choices=names, metavar="NAME", action="append", help="only this; again for more")
    parser.add_argument("--long", action="store_true", help="everything, for half an hour")
    parser.add_argument("--seed", type=int, metavar="N", help="of the storm (default: another each time)")
    parser.add_argument("--udevd", choices=["yes", "no", "both"], default="both")
    parser.add_argument("--mirror", metavar="URL", help="a Debian mirror in place of this machine's")
    parser.add_argument("--machines", type=int, default=2, metavar="N", help="how many run at once (default: 2)")
    parser.add_argument("--accel", default="tcg,thread=multi", help="QEMU's accelerators, the first that works (default: %(default)s; kvm:tcg is faster)")
    parser.add_argument("--build", type=pathlib.Path, default=machine.ROOT / "build/kernel", metavar="FOLDER",
                        help="where everything is kept (default: build/kernel)")
    return parser.parse_args(), names


class Runner:
    """Takes (scenario, udevd) pairs off a queue, as many machines at once as it is told to have."""

    def __init__(self, arguments, made):
        self._arguments = arguments
        self._machine = made
        self._waiting = queue.Queue()
        self._print = threading.Lock()
        self.results = arguments.build / "results"
        shutil.rmtree(self.results, ignore_errors=True)
        self.results.mkdir(parents=True)
        self.failed = []
        self.passed = 0
        self.counts = {"comparisons": 0, "streams": 0, "events": 0}

    def run(self, pairs, machines):
        for pair in pairs:
            self._waiting.put(pair)
        threads = [threading.Thread(target=self._work) for _ in range(min(machines, len(pairs)))]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def _work(self):
        running = None
        while True:
            try:
                name, udevd, variables = self._waiting.get_nowait()
            except queue.Empty:
                break
            title = name + (" with udevd" if udevd else "") + "".join(f" {word}" for word in variables)
            started = time.monotonic()
            output = []
            try:
                if running is not None and running.udevd != udevd:
                    running.end()
                    running = None
                if running is None:
                    console = self.results / f"{re.sub('[^a-zA-Z0-9=]+', '-', title)}.console"
                    running = vm.Vm(self._machine, console, udevd, self._arguments.accel)
                started = time.monotonic()
                status = running.ask(" ".join([name, *variables]), output, SCENARIO_SECONDS)
                reason = f"status {status}" if status != "0" else None
            except vm.Broken as broken:
                reason = str(broken)
            with self._print:
                self._report(title, name, output, reason, time.monotonic() - started)
            if reason is not None and running is not None:
                self._keep_log(running, title)
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

    def _keep_log(self, running, title):
        kept = self.results / f"{re.sub('[^a-zA-Z0-9=]+', '-', title)}.kernel"
        log = []
        try:
            running.ask("log", log, 120)
        except (vm.Broken, OSError) as broken:
            log.append(f"the rest is missing: {broken}")
        kept.write_text("\n".join(log) + "\n")
        print(f"    the kernel's log: {kept}, the console beside it", flush=True)


def main():
    arguments, names = parse_arguments()
    chosen = arguments.scenario or names
    modes = {"no": [False], "yes": [True], "both": [False, True]}[arguments.udevd]
    seed = arguments.seed if arguments.seed is not None else int(time.time()) % 100000
    pairs = [(name, udevd, [f"seed={seed}"] if name == "storm" else []) for udevd in modes for name in chosen]
    started = time.monotonic()
    try:
        made = machine.Machine(arguments.build, arguments.kernel, arguments.arch, arguments.mirror)
        made.make()
    except (machine.Failed, OSError) as failed:
        print(f"kernel: {failed}", file=sys.stderr)
        return 1
    print(f"kernel: Linux {arguments.kernel}, {arguments.arch}; the machine took {time.monotonic() - started:.0f} s",
          flush=True)
    started = time.monotonic()
    runner = Runner(arguments, made)
    runner.run(pairs, arguments.machines)
    print(f"kernel: {runner.passed} of {len(pairs)} passed in {time.monotonic() - started:.0f} s; "
          f"{runner.counts['comparisons']} comparisons of {runner.counts['streams']} streams' pictures, "
          f"{runner.counts['events']} events")
    for title in runner.failed:
        print(f"kernel: failed: {title}")
    return 1 if runner.failed or runner.passed != len(pairs) else 0


sys.exit(main())
