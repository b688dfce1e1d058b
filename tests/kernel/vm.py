"""A running virtual machine: QEMU without KVM, a port to the shell in it, and QMP to attach QEMU's devices."""
import json
import pathlib
import queue
import socket
import subprocess
import tempfile
import threading
import time

BOOT_SECONDS = 300

QEMU = {
    "amd64": ["qemu-system-x86_64", "-machine", "pc", "-cpu", "qemu64"],
    "arm64": ["qemu-system-aarch64", "-machine", "virt", "-cpu", "cortex-a57"],
}
CONSOLE = {"amd64": "ttyS0", "arm64": "ttyAMA0"}


class Broken(Exception):
    """The machine failed; the message says how."""


def quoted(path):
    """Escapes a path for an option of QEMU, where a comma ends a value."""
    return str(path).replace(",", ",,")


class Qmp:
    """QMP, QEMU's control socket."""

    def __init__(self, connected):
        self._socket = connected
        self._file = self._socket.makefile("rw", encoding="utf-8")
        self._file.readline()
        self.command("qmp_capabilities")

    def command(self, name, **arguments):
        """Returns the reason why the command failed, or None."""
        self._file.write(json.dumps({"execute": name, "arguments": arguments}) + "\n")
        self._file.flush()
        for line in self._file:
            answer = json.loads(line)
            if "return" in answer:
                return None
            if "error" in answer:
                return answer["error"]["desc"]
        raise Broken("QEMU has ended")

    def close(self):
        self._file.close()
        self._socket.close()


class Vm:
    """Boots on construction. `lines` has the lines that the machine prints; None is its end.

    `console` is the file that gets what the kernel says there.
    """

    _all = []  # their QEMU processes, or None after end_all()
    _lock = threading.Lock()

    @classmethod
    def end_all(cls):
        """Ends every machine, whatever other threads do with it, and prevents new ones."""
        with cls._lock:
            started, cls._all = cls._all or [], None
        for qemu in started:
            qemu.kill()
            qemu.wait()

    def __init__(self, machine, console, udevd, accelerator):
        self._folder = tempfile.TemporaryDirectory(prefix="kernel-")
        folder = pathlib.Path(self._folder.name)
        append = (f"console={CONSOLE[machine.arch]} loglevel=4 panic=-1 oops=panic log_buf_len=16M mitigations=off "
                  f"audit=0 no_timer_check random.trust_cpu=on udevd={int(udevd)}")
        port = f"{folder}/port"
        control = f"{folder}/qmp"
        command = QEMU[machine.arch] + [
            "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot", "-m", "512", "-smp", "2",
            "-kernel", str(machine.kernel), "-initrd", str(machine.initrd), "-append", append,
            "-chardev", f"file,id=console,path={quoted(console)}", "-serial", "chardev:console",
            "-device", "virtio-serial-pci", "-chardev", f"socket,id=port,path={quoted(port)},server=on,wait=off",
            "-device", "virtserialport,chardev=port", "-device", "virtio-rng-pci",
            "-qmp", f"unix:{quoted(control)},server=on,wait=off", "-device", "qemu-xhci,id=xhci,p2=15,p3=4"]
        for accel in accelerator.split(":"):
            command += ["-accel", accel]
        self.udevd = udevd
        self.lines = queue.Queue()
        self._errors = open(folder / "errors", "w+")
        with Vm._lock:
            if Vm._all is None:
                raise Broken("the run was ended")
            # In its own session, so that Ctrl-C ends it only through end_all().
            self._qemu = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self._errors,
                                          stderr=self._errors, start_new_session=True)
            Vm._all.append(self._qemu)
        try:
            self._qmp = Qmp(self._connect(control))
            self._port = self._connect(port)
            threading.Thread(target=self._read, daemon=True).start()
            if self.line(time.monotonic() + BOOT_SECONDS) != "ready":
                raise Broken("the machine did not become ready")
        except BaseException:
            self.end()
            raise

    def _connect(self, path):
        """Returns a socket that is connected to QEMU's, as soon as that accepts connections."""
        connected = socket.socket(socket.AF_UNIX)
        end = time.monotonic() + BOOT_SECONDS
        while True:
            try:
                connected.connect(path)
                return connected
            except (FileNotFoundError, ConnectionRefusedError):
                if self._qemu.poll() is not None or time.monotonic() > end:
                    connected.close()
                    self._errors.seek(0)
                    raise Broken("QEMU failed to start: " + self._errors.read().strip()) from None
                time.sleep(0.02)

    def _read(self):
        """Executes a request of the machine to QEMU: a line "host COMMAND KEY=VALUE..."."""
        with self._port.makefile("r", encoding="utf-8", errors="replace") as received:
            try:
                for line in received:
                    line = line.rstrip("\r\n")
                    if not line.startswith("host "):
                        self.lines.put(line)
                        continue
                    name, *words = line.split()[1:]
                    error = self._qmp.command(name, **dict(word.split("=", 1) for word in words))
                    self.say(f"error {error}" if error else "ok")
            except (OSError, ValueError, Broken):
                pass
        self.lines.put(None)

    def say(self, line):
        self._port.sendall(line.encode() + b"\n")

    def line(self, end):
        """Returns the machine's next line. Raises Broken if it has ended, or printed nothing until `end`."""
        try:
            found = self.lines.get(timeout=max(0.0, end - time.monotonic()))
        except queue.Empty:
            raise Broken("the machine printed nothing within the time limit") from None
        if found is None:
            raise Broken("the machine ended unexpectedly")
        return found

    def ask(self, request, output, seconds):
        """Runs a command in the machine, appends its output to `output` and returns its status as a string."""
        self.say(request)
        end = time.monotonic() + seconds
        while True:
            line = self.line(end)
            if line.startswith("end "):
                return line[4:]
            output.append(line)

    def end(self):
        self._qemu.kill()
        self._qemu.wait()
        self._errors.close()
        self._folder.cleanup()
