"""Copies of the project in which mutants are built and tested."""
import os
import pathlib
import re
import shutil
import signal
import subprocess
import threading
import time

from lists import ROOT, Mistake

WORK = ROOT / "build" / "mutants"
LEAST_LIMIT = 60  # seconds
TIME_LIMIT = "the time limit of "  # begins the result of test() if a test did not fail but took too long


class Stopped(Exception):
    """The run was stopped: no other command is started."""


class Workspace:
    """A copy of the project. An interrupted run leaves a mutant in it, which the next update() removes."""

    running = set()  # the commands of all copies
    lock = threading.Lock()  # guards these two
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
                    shutil.copyfile(source, copy)  # with a new time stamp, so that ninja rebuilds it
                shutil.copymode(source, copy)
        for folder, folders, files in os.walk(self.root):
            if pathlib.Path(folder) == self.root and "build" in folders:
                folders.remove("build")
            for name in files:
                if pathlib.Path(folder) / name not in kept:
                    (pathlib.Path(folder) / name).unlink()

    def execute(self, command, limit=None, folder=None, **environment):
        """Returns the exit status, None if the time limit has passed. The output is in self.log."""
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
            # A mutant may leave something unused, and clients of a library need not be linked again.
            if self.execute(["cmake", "--preset", preset, "-DYORVANUSB_WARNINGS_AS_ERRORS=OFF",
                             "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]) != 0:
                return False
        return self.execute(["ninja", "-C", str(folder), "-j", str(self.processes), *targets]) == 0

    def require_build(self, preset):
        """Builds everything without a mutant."""
        if not self.build(preset):
            raise Mistake(f"{self.said()[-3000:]}\nThe sources do not build without a mutant. Where ./dev test "
                          "builds them, remove build/mutants.")

    def test(self, preset, limit, *chosen, **environment):
        """Returns the first failed test, after TIME_LIMIT if it took too long; empty if none failed."""
        command = ["ctest", "--no-tests=error", "--output-on-failure", "--stop-on-failure", "-j",
                   str(self.processes), *chosen]
        if preset == "tsan" and shutil.which("setarch"):
            command = ["setarch", "-R", *command]  # ThreadSanitizer fails if addresses are randomized over too wide a range
        status = self.execute(command, limit, self.root / "build" / preset, **environment)
        if status == 0:
            return ""
        said = self.said()
        failed = re.search(r"Test +#\d+: (\S+) .*\*\*\*(\w+)", said)
        if failed:
            return (TIME_LIMIT if failed[2] == "Timeout" else "") + failed[1]
        if status is not None:
            raise Mistake(f"ctest failed without a failed test: {said[-300:]}")
        ended = re.findall(r"Test +#\d+: (\S+) ", said)
        running = [name for name in re.findall(r"Start +\d+: (\S+)", said) if name not in ended]
        return TIME_LIMIT + " or ".join(running or ["ctest"])

    def baseline(self, preset, *chosen):
        """Checks that the tests pass without a mutant. Returns a generous time limit."""
        self.require_build(preset)
        started = time.monotonic()
        failed = self.test(preset, None, *chosen)
        if failed:
            raise Mistake(f"{failed} fails without a mutant:\n{self.said()[-3000:]}")
        return max(LEAST_LIMIT, 6 * (time.monotonic() - started))

    def judge(self, mutant, limit):
        """Builds and tests a mutant. Returns the test that killed it: empty if none, None if it does not build."""
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
            self.build(mutant.preset, targets)  # else the mutant stays in targets that the next mutant does not build
            self.log.write_text(said)


def end_session(process):
    """Kills the remaining processes of a command: ctest does not end its tests when it is terminated."""
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
