#!/usr/bin/env python3
"""Two hosts and a broker in network namespaces: a phone moves from host to host, and a link fails.

Prints what the reader prints. Needs root. Exit status 77: network namespaces cannot be made here. The environment is
that of the tests (lab.py).
"""
import json
import os
import signal
import subprocess
import sys
import tempfile

import lab
from lab import FLEET, Bus, Lab

lab.LIMIT = 180  # the broker notices a lost host after 45 s
BROKER, LAB1, LAB2 = names = [f'yusb-{os.getpid()}-{name}' for name in ('broker', 'lab1', 'lab2')]


def ip(*words, **options):
    return subprocess.run(['ip', *words], check=True, env=lab.environment(), **options)


def inside(namespace, *command):
    return ['nsenter', f'--net=/run/netns/{namespace}', *command]


def make_network():
    for name in names:
        ip('netns', 'add', name)
        ip('-n', name, 'link', 'set', 'lo', 'up')
    for number, name in enumerate((LAB1, LAB2), 1):
        ip('-n', name, 'link', 'add', 'eth0', 'type', 'veth', 'peer', 'name', f'lab{number}', 'netns', BROKER)
        for where, device, last in (name, 'eth0', 2), (BROKER, f'lab{number}', 1):
            ip('-n', where, 'address', 'add', f'10.77.{number}.{last}/24', 'dev', device)
            ip('-n', where, 'link', 'set', device, 'up')


def scenario(folder):
    here = Lab(folder)
    try:
        settings = here.file('mosquitto.conf', 'user root\nlistener 1883\nallow_anonymous true\n')
        here.start(*inside(BROKER, '/usr/sbin/mosquitto', '-c', settings)).line('running')
        buses = Bus(), Bus()
        for number, (bus, name) in enumerate(zip(buses, (LAB1, LAB2)), 1):
            bus.plug('usb1', pid=2, interface='090000')
            here.start(*inside(name, FLEET, 'agent', '--broker', f'mqtt://10.77.{number}.1', '--host', f'lab{number}',
                               '--heartbeat', '3s', '--filter', 'not:mode=hub'), env=bus.environment()).line('connected')
        reader = here.start(*inside(BROKER, FLEET, 'watch', '--broker', 'mqtt://10.77.1.1', '--json'))

        def sees(*parts):
            seen = json.loads(reader.line(*[f'"{part}"' for part in parts]))
            print(seen['time'][11:19], seen['host'], seen['event'], seen['host_state'], seen.get('serial_number', ''),
                  flush=True)

        sees('lab1', 'online')
        sees('lab2', 'online')
        buses[0].plug('1-1', serial='PHONE')
        sees('lab1', 'arrival', 'PHONE')
        buses[0].unplug('1-1')
        sees('lab1', 'removal', 'PHONE')
        buses[1].plug('1-4', serial='PHONE')
        sees('lab2', 'arrival', 'PHONE')
        print('the link of lab2 goes down')
        ip('-n', LAB2, 'link', 'set', 'eth0', 'down')
        buses[1].unplug('1-4')
        buses[1].plug('1-5', serial='OTHER')
        sees('host', 'lab2', 'stale')
        sees('host', 'lab2', 'offline')
        buses[0].plug('1-2', serial='MEANWHILE')
        sees('lab1', 'arrival', 'MEANWHILE')
        print('the link of lab2 comes up')
        ip('-n', LAB2, 'link', 'set', 'eth0', 'up')
        sees('lab2', 'removal', 'PHONE')
        sees('lab2', 'arrival', 'OTHER')
        sees('host', 'lab2', 'online')
        buses[1].unplug('1-5')
        sees('lab2', 'removal', 'OTHER')
        lines = [json.loads(line) for line in reader.end(signal.SIGTERM)[1].splitlines() if line.startswith('{')]
        told = [(each['host'], each['event'], each['serial_number']) for each in lines if 'serial_number' in each]
        assert told == [('lab1', 'arrival', 'PHONE'), ('lab1', 'removal', 'PHONE'), ('lab2', 'arrival', 'PHONE'),
                        ('lab1', 'arrival', 'MEANWHILE'), ('lab2', 'removal', 'PHONE'), ('lab2', 'arrival', 'OTHER'),
                        ('lab2', 'removal', 'OTHER')], told
        print('nothing missing, nothing extra')
    finally:
        here.close()


def main():
    possible = os.geteuid() == 0 and subprocess.run(['unshare', '--net', 'true'], stderr=subprocess.DEVNULL).returncode == 0
    if not possible:
        print('skipped: network namespaces cannot be made here (this needs root)')
        return 77
    try:
        make_network()
        with tempfile.TemporaryDirectory() as folder:
            scenario(folder)
    finally:
        for name in names:
            subprocess.run(['ip', 'netns', 'delete', name], check=False, stderr=subprocess.DEVNULL)
    return 0


sys.exit(main())
