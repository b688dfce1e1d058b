#!/usr/bin/env python3
"""Mutation testing: applies each mutant of mutants/*.txt to a copy of the sources, builds the copy and runs its tests.

A list has a line for each field, "FIELD: VALUE"; an indented line continues the value of the field before. Lines that
begin with "#" are comments.

  file      the source file of the mutants that follow
  targets   what is built first for the mutants that follow
  tests     the tests that are run first (ctest -R) for the mutants that follow. If these pass, everything is built,
            and all tests run.
  mutant    begins a mutant: its name
  why       locking, lifetime, order, logic or errors; then what goes wrong, and so why the fault is plausible
  old, new  the text to replace and its replacement; a mutant may have several pairs. White space in "old" does not
            count. The text must occur exactly once in the file.
  first     the tests to run first instead of those of "tests", for this mutant alone
  with      tsan: build with ThreadSanitizer and run only the tests that are named
  survives  why no test can notice the mutant; without it, a mutant that survives is an error
"""
import argparse
import fcntl
import os
import pathlib
import queue
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutants"
KINDS = ("locking", "lifetime", "order", "logic", "errors")
MUTANT_FIELDS = ("why", "old", "new", "first", "with", "survives")
LEAST_LIMIT = 60  # seconds


class Mistake(Exception):
    """What is wrong with the lists or with the command line."""


class Stopped(Exception):
    """The run is ended from outside: no other command is started."""


# ---- The lists ----


class Mutant:
    def __init__(self, name, where, file, targets, tests):
        self.name, self.where, self.file, self.targets, self.tests = name, where, file, targets.split(), tests
        self.why = self.preset = self.survives = None
        self.edits = []

    def complete(self):
        if not (self.file and self.targets and self.tests):
            raise Mistake(f"{self.where}: {self.name} needs 'file', 'targets' and 'tests' before it")
        if self.why is None or self.why.split(":")[0] not in KINDS:
            raise Mistake(f"{self.where}: {self.name} needs 'why: KIND: ...', KIND one of {', '.join(KINDS)}")
        if not self.edits or not all(old and new is not None for old, new in self.edits):
            raise Mistake(f"{self.where}: {self.name} needs 'old' and 'new', in pairs")
        if self.preset not in (None, "tsan"):
            raise Mistake(f"{self.where}: {self.name}: 'with' is 'tsan' or left out")
        self.preset = self.preset or "dev"

    def set(self, field, value):
        if field == "old":
            self.edits.append([value, None])
        elif field == "new" and self.edits and self.edits[-1][1] is None:
            self.edits[-1][1] = value
        elif field == "new":
            raise Mistake(f"{self.where}: {self.name}: 'new' without its 'old'")
        else:
            setattr(self, {"with": "preset", "first": "tests"}.get(field, field), value)

    def apply(self, text):
        """The text of the file with the fault in it."""
        for old, new in self.edits:
            found = occurrences(text, old)
            if len(found) != 1:
                count = "does not occur" if not found else f"occurs {len(found)} times"
                raise Mistake(f"{self.where}: {self.name}: 'old' {count} in {self.file}: {old}")
            start, end = found[0]
            text = text[:start] + new + text[end:]
        return text


def occurrences(text, old):
    """Where `old` stands in `text`, apart from white space."""
    places = [at for at, c in enumerate(text) if not c.isspace()]
    dense = "".join(text[at] for at in places)
    wanted = "".join(old.split())
    return [(places[m.start()], places[m.start() + len(wanted) - 1] + 1)
            for m in re.finditer(f"(?={re.escape(wanted)})", dense)]


def fields_of(path):
    """The fields of a list, as (line number, field, value)."""
    field = None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line.startswith("#") or not line.strip():
            continue
        if line[0].isspace():
            if field is None:
                raise Mistake(f"{path.name}:{number}: continues nothing")
            field[2] += "\n" + line
            continue
        if field:
            yield field
        name, colon, value = line.partition(":")
        if not colon:
            raise Mistake(f"{path.name}:{number}: not 'FIELD: VALUE': {line}")
        field = [number, name, value.strip()]
    if field:
        yield field


def read_list(path):
    mutants = []
    headings = {"file": "", "targets": "", "tests": ""}
    for number, name, value in fields_of(path):
        if name == "mutant":
            mutants.append(Mutant(value, f"{path.name}:{number}", **headings))
        elif name in headings:
            headings[name] = value
        elif name in MUTANT_FIELDS and mutants:
            mutants[-1].set(name, value)
        else:
            raise Mistake(f"{path.name}:{number}: '{name}' is not expected here")
    return mutants


def read_lists():
    mutants = [mutant for path in sorted((ROOT / "mutants").glob("*.txt")) for mutant in read_list(path)]
    names = set()
    for mutant in mutants:
        mutant.complete()
        if mutant.name in names:
            raise Mistake(f"{mutant.where}: there are two mutants {mutant.name}")
        names.add(mutant.name)
    return mutants


def check(mutants):
    """Whether every mutant applies to the sources."""
    wrong = 0
    for mutant in mutants:
        try:
            path = ROOT / mutant.file
            if not path.is_file():
                raise Mistake(f"{mutant.where}: {mutant.name}: there is no file {mutant.file}")
            text = path.read_text()
            if mutant.apply(text) == text:
                raise Mistake(f"{mutant.where}: {mutant.name} changes nothing")
        except Mistake as mistake:
            print(f"mutants: {mistake}", file=sys.stderr)
            wrong += 1
    return wrong == 0


def choose(mutants, wanted):
    """The mutants with these names, or in files at or below these paths."""
    chosen = []
    for word in wanted:
        path = word.rstrip("/")
        found = [m for m in mutants if m.name == word or m.file == path or m.file.startswith(path + "/")]
        if not found:
            raise Mistake(f"'{word}' is no mutant's name, and no mutant is in a file or folder of that name")
        chosen += found
    return [m for m in mutants if m in chosen] if wanted else mutants


# ---- Building and testing ----


class Workspace:
    """A copy of the project. A run that is cut short leaves a fault in it, which the next update() takes away."""

    running = set()  # commands, of all copies
    lock = threading.Lock()  # of these two
    stopped = False

    def __init__(self, number, processes):
        self.root = WORK / str(number)
        self.processes = processes
        self.log = WORK / f"{number}.log"
        self.environment = dict(os.environ, CCACHE_BASEDIR=str(self.root), TSAN_OPTIONS="second_deadlock_stack=1")
        self.update()

    def update(self):
        kept = set()
        for folder, folders, files in os.walk(ROOT):
            if pathlib.Path(folder) == ROOT:
                folders[:] = [name for name in folders if name != ".git" and not name.startswith("build")]
                files = [name for name in files if name != ".git"]
            folders[:] = [name for name in folders if name != "__pycache__"]
            for name in files:
                source = pathlib.Path(folder) / name
                copy = self.root / source.relative_to(ROOT)
                kept.add(copy)
                if not copy.is_file() or copy.read_bytes() != source.read_bytes():
                    copy.parent.mkdir(parents=True, exist_ok=True)
                    shutil.copyfile(source, copy)  # its time is now, so that ninja sees it
                shutil.copymode(source, copy)
        for folder, folders, files in os.walk(self.root):
            if pathlib.Path(folder) == self.root and "build" in folders:
                folders.remove("build")
            for name in files:
                if pathlib.Path(folder) / name not in kept:
                    (pathlib.Path(folder) / name).unlink()

    def execute(self, command, limit=None, folder=None, **environment):
        """The exit status, None if the time limit has passed; what it prints is in self.log."""
        with open(self.log, "wb") as log:
            with Workspace.lock:
                if Workspace.stopped:
                    raise Stopped
                process = subprocess.Popen(command, cwd=folder or self.root, env=dict(self.environment, **environment),
                                           stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
                Workspace.running.add(process)
            try:
                return process.wait(limit)
            except subprocess.TimeoutExpired:
                return None
            finally:
                end_session(process)
                with Workspace.lock:
                    Workspace.running.discard(process)

    def said(self):
        return self.log.read_text(errors="replace")

    def build(self, preset, targets=()):
        folder = self.root / "build" / preset
        if not (folder / "build.ninja").exists():
            # A fault may leave something unused, and what links a library need not be linked again.
            if self.execute(["cmake", "--preset", preset, "-DYORVANUSB_WARNINGS_AS_ERRORS=OFF",
                             "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]) != 0:
                return False
        return self.execute(["ninja", "-C", str(folder), "-j", str(self.processes), *targets]) == 0

    def require_build(self, preset):
        """Builds everything, without a mutant."""
        if not self.build(preset):
            raise Mistake(f"{self.said()[-3000:]}\nThe sources do not build without a mutant. Where ./dev test "
                          "builds them, remove build/mutants.")

    def test(self, preset, limit, *chosen, **environment):
        """What failed first, empty if nothing did."""
        command = ["ctest", "--no-tests=error", "--output-on-failure", "--stop-on-failure", "-j",
                   str(self.processes), *chosen]
        if preset == "tsan" and shutil.which("setarch"):
            command = ["setarch", "-R", *command]  # it does not start where addresses are randomized too widely
        status = self.execute(command, limit, self.root / "build" / preset, **environment)
        if status == 0:
            return ""
        said = self.said()
        failed = re.findall(r"Test +#\d+: (\S+) .*\*\*\*", said)
        if failed:
            return failed[0]
        if status is not None:
            raise Mistake(f"ctest fails, and no test: {said[-300:]}")
        ended = re.findall(r"Test +#\d+: (\S+) ", said)
        running = [name for name in re.findall(r"Start +\d+: (\S+)", said) if name not in ended]
        return "the time limit: " + " or ".join(running or ["ctest"])

    def baseline(self, preset, *chosen):
        """The tests must pass without a mutant. Returns a generous time limit."""
        self.require_build(preset)
        started = time.monotonic()
        failed = self.test(preset, None, *chosen)
        if failed:
            raise Mistake(f"{failed} fails without a mutant:\n{self.said()[-3000:]}")
        return max(LEAST_LIMIT, 6 * (time.monotonic() - started))

    def judge(self, mutant, limit):
        """Builds and tests with the fault. Returns what noticed it: empty if nothing, None if it does not build."""
        path = self.root / mutant.file
        whole = path.read_text()
        path.write_text(mutant.apply(whole))
        targets = mutant.targets
        try:
            if not self.build(mutant.preset, targets):
                return None
            noticed = self.test(mutant.preset, max(LEAST_LIMIT, limit / 3), "-R", mutant.tests, YUSB_STEPS="20000")
            if noticed or mutant.preset != "dev":
                return noticed
            targets = []
            return self.test(mutant.preset, limit) if self.build(mutant.preset) else None
        finally:
            said = self.said()
            path.write_text(whole)
            self.build(mutant.preset, targets)  # or the fault stays in what the next mutant does not build
            self.log.write_text(said)


def end_session(process):
    """Kills what is left of a command: ctest does not end the tests that it runs when it is ended itself."""
    for _ in range(100):
        left = subprocess.run(["ps", "-o", "pid=", "-s", str(process.pid)], capture_output=True, text=True).stdout.split()
        if not left:
            break
        for pid in left:
            try:
                os.kill(int(pid), signal.SIGKILL)
            except ProcessLookupError:
                pass
        process.poll()
        time.sleep(0.05)


# ---- The report ----


def verdict(mutant, noticed):
    """What to print, and whether it is as the list says."""
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
            except Exception as error:  # a thread's exception would be lost
                noticed, text, good = None, f"error: {error}", False
            with printing:
                kind = "do not build" if noticed is None else "killed" if noticed else \
                    "survive, explained" if mutant.survives else "survive"
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
            space.require_build("dev")  # all of it, for a mutant builds only its targets
        work_all(plain, spaces, limit)
    checked = [mutant for mutant in mutants if mutant.preset == "tsan"]
    if checked:
        limit = first.baseline("tsan", "-R", "|".join(sorted({mutant.tests for mutant in checked})))
        work_all(checked, [first], limit)

    print(f"{len(mutants)} mutants: " + ", ".join(f"{count} {kind}" for kind, count in sorted(counts.items())))
    if failures:
        print("not as the list says: " + " ".join(failures))
    return not failures


def main():
    parser = argparse.ArgumentParser(prog="dev mutants", description="Mutation testing; see mutants/run.py.")
    parser.add_argument("wanted", nargs="*", metavar="NAME", help="a mutant, or a source file or folder")
    parser.add_argument("--check", action="store_true", help="only check that every mutant applies")
    parser.add_argument("--list", action="store_true", help="only list the mutants")
    parser.add_argument("--jobs", type=int, default=1, metavar="N", help="work on N copies of the sources at once")
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
            print(f"{len(chosen)} mutants apply, {explained} of them with the reason why they survive")
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
