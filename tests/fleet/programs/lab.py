"""A broker, hosts with mocked USB buses, and programs, for the tests of yusb-fleet.

Python itself must run with umockdev's preloaded library, which its functions need. Of the environment, YUSB_FLEET and
YUSB are the programs, and YUSB_PRELOAD is what a program preloads that sees a mocked bus.
"""
import ctypes
import json
import os
import pathlib
import signal
import socket
import subprocess
import threading

LIMIT = 60  # seconds that anything may take
FLEET = os.environ['YUSB_FLEET']
YUSB = os.environ['YUSB']
SHIPPED = pathlib.Path(__file__).parents[3] / 'fleet'

signal.signal(signal.SIGINT, signal.default_int_handler)  # else programs ignore it if this runs in the background
_umockdev = ctypes.CDLL('libumockdev.so.0')
_umockdev.umockdev_testbed_new.restype = ctypes.c_void_p
_umockdev.umockdev_testbed_get_root_dir.restype = ctypes.c_char_p
for name, count in {'get_root_dir': 1, 'add_from_string': 3, 'uevent': 3, 'remove_device': 2}.items():
    getattr(_umockdev, f'umockdev_testbed_{name}').argtypes = [ctypes.c_void_p] + [ctypes.c_char_p] * (count - 1)


def environment(**more):
    """That of programs which see the real bus, if any."""
    without = ('LD_PRELOAD', 'UMOCKDEV_DIR', 'NOTIFY_SOCKET', 'CREDENTIALS_DIRECTORY')
    return {name: value for name, value in os.environ.items() if name not in without} | more


def free_port():
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        return probe.getsockname()[1]


class Bus:
    """A mocked USB bus. Only the program that was started last on it receives its events."""

    def __init__(self):
        self._bed = _umockdev.umockdev_testbed_new()
        self._root = _umockdev.umockdev_testbed_get_root_dir(self._bed)
        self._number = 1

    def environment(self, **more):
        return environment(LD_PRELOAD=os.environ['YUSB_PRELOAD'], UMOCKDEV_DIR=self._root.decode(), **more)

    def plug(self, port, pid=0x4EE7, interface='ff4201', **strings):
        """Attaches a device with one interface (class, subclass, protocol) and strings such as `serial`."""
        self._select()
        self._number += 1
        text = (f'P: /devices/{port}\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNUM={self._number:03}\n'
                f'E: PRODUCT=18d1/{pid:x}/100\n'
                f'H: descriptors=1201000200000040D118{pid & 0xFF:02X}{pid >> 8:02X}0001010203010902'
                f'1200010100C0320904000000{interface}00\n'
                f'A: busnum=1\\n\nA: devnum={self._number}\\n\nA: speed=480\\n\n')
        text += ''.join(f'A: {name}={value}\\n\n' for name, value in strings.items())
        assert _umockdev.umockdev_testbed_add_from_string(self._bed, f'{text}\n'.encode(), None)

    def unplug(self, port):
        self._select()
        path = f'/sys/devices/{port}'.encode()
        _umockdev.umockdev_testbed_uevent(self._bed, path, b'remove')
        _umockdev.umockdev_testbed_remove_device(self._bed, path)

    def _select(self):
        os.environ['UMOCKDEV_DIR'] = self._root.decode()  # umockdev reads it


class Program:
    """A program that runs, and what it has printed."""

    def __init__(self, *command, **options):
        self._process = subprocess.Popen([str(each) for each in command], stdin=subprocess.DEVNULL, text=True,
                                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors='replace',
                                         **{'env': environment(), **options})
        self.pid = self._process.pid
        self._changed = threading.Condition()
        self._lines = []
        self._next = 0
        self._ended = False
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        for line in self._process.stdout:
            with self._changed:
                self._lines.append(line.rstrip('\n'))
                self._changed.notify_all()
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def line(self, *parts):
        """Waits for a line with all these parts, after the one that it returned last."""
        def find():
            while self._next < len(self._lines):
                self._next += 1
                if all(part in self._lines[self._next - 1] for part in parts):
                    return self._lines[self._next - 1]
            return self._ended and 'ended'

        with self._changed:
            found = self._changed.wait_for(find, LIMIT)
            assert found and found != 'ended', f'not printed: {parts}\n' + '\n'.join(self._lines)
            return found

    def end(self, number=None):
        """Sends a signal, if any, and waits for its end: the exit status and everything that it has printed."""
        if number is not None:
            self._process.send_signal(number)
        status = self._process.wait(LIMIT)
        self._thread.join(LIMIT)
        return status, '\n'.join(self._lines)

    def kill(self):
        self._process.kill()
        self._process.wait(LIMIT)


class Lab:
    """Files in a folder, and programs that end with it."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self._programs = []
        self.url = None

    def start(self, *command, **options):
        self._programs.append(Program(*command, **options))
        return self._programs[-1]

    def close(self):
        for program in self._programs:
            program.kill()

    def file(self, name, text):
        (self.folder / name).write_text(text)
        return self.folder / name

    def broker(self, settings='allow_anonymous true\n', tls=False):
        """Starts a broker with these lines of configuration. Again: in place of one that has ended."""
        port = int(self.url.rpartition(':')[2]) if self.url else free_port()
        self.url = f'mqtt{"s" if tls else ""}://localhost:{port}'
        file = self.file('mosquitto.conf', f'user root\nlistener {port} 127.0.0.1\n{settings}')
        program = self.start('/usr/sbin/mosquitto', '-c', file)
        program.line('running')
        return program

    def passwords(self, **users):
        """A file of passwords for the broker."""
        file = self.file('passwords', ''.join(f'{name}:{password}\n' for name, password in users.items()))
        subprocess.run(['mosquitto_passwd', '-U', file], check=True)
        return file

    def command(self, name, *arguments, url=None):
        return [FLEET, name, '--broker', url or self.url, *arguments]

    def agent(self, bus, host, *arguments, **more):
        return self.start(*self.command('agent', '--host', host, *arguments), env=bus.environment(**more))

    def watch(self, *arguments):
        return self.start(*self.command('watch', '--json', *arguments))

    def topics(self):
        """A client that prints each message as TOPIC PAYLOAD."""
        return self.start('mosquitto_sub', '-L', f'{self.url}/yusb/#', '-v')

    def publish(self, topic, payload):
        subprocess.run(['mosquitto_pub', '-L', f'{self.url}/yusb/{topic}', '-r', '-m', json.dumps(payload)], check=True)


def run(*command, **options):
    """Runs a program to its end: exit status, standard output, standard error."""
    done = subprocess.run([str(each) for each in command], text=True, capture_output=True, timeout=LIMIT,
                          **{'env': environment(), 'stdin': subprocess.DEVNULL, **options})
    return done.returncode, done.stdout, done.stderr
