#!/usr/bin/env python3
"""Mutation testing: applies each mutant of mutants/*.txt to a copy of the sources, builds the copy and runs its tests.

The lists are explained in mutants/lists.py.
"""
import argparse
import fcntl
import os
import queue
import signal
import sys
import threading
import time

from lists import Mistake, check, choose, read_lists
from workspace import TIME_LIMIT, WORK, Stopped, Workspace, end_session


def verdict(mutant, noticed):
    """Returns the result to print, and whether it agrees with the list."""
    if noticed is None:
        return "does not build", False
    if noticed and mutant.survives:
        return f"KILLED by {noticed}, though the list says that it survives", False
    if noticed:
        return f"killed by {noticed}", True
    return ("survives, as the list explains", True) if mutant.survives else ("SURVIVES", False)


def run(mutants, jobs):
    WORK.mkdir(parents=True, exist_ok=True)
    lock = open(WORK / "lock", "w")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        raise Mistake("another run is using build/mutants") from None

    processes = max(1, (os.cpu_count() or 2) // jobs)
    counts = {}
    failures = []
    printing = threading.Lock()
    width = max(len(mutant.name) for mutant in mutants)

    def work(space, waiting, limit):
        while True:
            try:
                mutant = waiting.get_nowait()
            except queue.Empty:
                return
            started = time.monotonic()
            try:
                noticed = space.judge(mutant, limit)
                text, good = verdict(mutant, noticed)
            except Stopped:
                return
            except Exception as error:  # otherwise the thread's exception would be lost
                noticed, text, good = None, f"error: {error}", False
            with printing:
                if noticed is None:
                    kind = "do not build"
                elif noticed:
                    kind = "timed out" if noticed.startswith(TIME_LIMIT) else "killed"
                else:
                    kind = "survive, explained" if mutant.survives else "survive"
                counts[kind] = counts.get(kind, 0) + 1
                print(f"{mutant.name:<{width}}  {time.monotonic() - started:4.0f} s  {text}", flush=True)
                if not good:
                    failures.append(mutant.name)
                    if noticed is None:
                        print(space.said()[-1500:], file=sys.stderr)

    def work_all(chosen, spaces, limit):
        waiting = queue.Queue()
        for mutant in chosen:
            waiting.put(mutant)
        threads = [threading.Thread(target=work, args=(space, waiting, limit), daemon=True) for space in spaces]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    first = Workspace(1, processes)
    plain = [mutant for mutant in mutants if mutant.preset == "dev"]
    if plain:
        limit = first.baseline("dev")
        spaces = [first, *(Workspace(number, processes) for number in range(2, min(jobs, len(plain)) + 1))]
        for space in spaces:
            space.require_build("dev")  # everything, because a mutant builds only its targets
        work_all(plain, spaces, limit)
    checked = [mutant for mutant in mutants if mutant.preset == "tsan"]
    if checked:
        limit = first.baseline("tsan", "-R", "|".join(sorted({mutant.tests for mutant in checked})))
        work_all(checked, [first], limit)

    print(f"{len(mutants)} mutants: " + ", ".join(f"{count} {kind}" for kind, count in sorted(counts.items())))
    if failures:
        print("different from the list: " + " ".join(failures))
    return not failures


def main():
    parser = argparse.ArgumentParser(prog="dev mutants", description="Mutation testing; see mutants/run.py.")
    parser.add_argument("wanted", nargs="*", metavar="NAME", help="a mutant, or a source file or folder")
    parser.add_argument("--check", action="store_true", help="only check that every mutant applies")
    parser.add_argument("--list", action="store_true", help="only list the mutants")
    parser.add_argument("--jobs", type=int, default=1, metavar="N", help="use N copies of the sources concurrently")
    given = parser.parse_args()
    if given.jobs < 1:
        parser.error("--jobs must be at least 1")
    try:
        mutants = read_lists()
        try:
            chosen = choose(mutants, given.wanted)
        except Mistake as mistake:
            parser.error(str(mistake))
        if given.list:
            for mutant in chosen:
                print(f"{mutant.name}: {mutant.file}: {mutant.why}")
            return 0
        if not check(chosen):
            return 1
        if given.check:
            explained = sum(mutant.survives is not None for mutant in chosen)
            print(f"{len(chosen)} mutants apply, {explained} of them with a reason why they survive")
            return 0
        for each in (signal.SIGTERM, signal.SIGHUP):
            signal.signal(each, signal.default_int_handler)
        return 0 if run(chosen, given.jobs) else 1
    except Mistake as mistake:
        print(f"mutants: {mistake}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        with Workspace.lock:
            Workspace.stopped = True
            running = list(Workspace.running)
        for process in running:
            end_session(process)
        return 130


if __name__ == "__main__":
    sys.exit(main())
