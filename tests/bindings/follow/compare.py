#!/usr/bin/env python3
"""compare.py PROGRAM...: gives each program the same 10,000 random steps of a simulated bus as lines of its input, and
fails unless each reports, in order, exactly the events that these steps are. A program may be "python3 FILE"."""
import random
import subprocess
import sys

SEED, STEPS = 20, 10_000
MAKERS = {0x05AC: 1, 0x18D1: 4, 0x046D: 0}  # the tags of their devices


def scenario():
    """The steps and the events: "plug PORT VENDOR PRODUCT SERIAL" or "unplug STEP", and "+" or "-" with a device."""
    chance = random.Random(SEED)
    attached, steps, events = {}, [], []
    for number in range(STEPS):
        if attached and (len(attached) == 50 or chance.random() < 0.5):
            port = chance.choice(sorted(attached))
            plugged, device = attached.pop(port)
            steps.append(f'unplug {plugged}')
            events.append('-' + device)
            continue
        ports = [chance.randint(1, 15) for _ in range(chance.randint(1, 6))]
        port = '1-' + '.'.join(map(str, ports))
        if port in attached:
            port = next(f'2-{i}' for i in range(1, 16) if f'2-{i}' not in attached)
            ports = [int(port[2:])]
        vendor, product = chance.choice(sorted(MAKERS)), chance.randint(1, 0x1300)
        serial = f'S{number}é'
        location = f'0x{int(port[0]) << 24 | sum(digit << 20 - 4 * i for i, digit in enumerate(ports)):X}'
        device = f'{location} {vendor:04x}:{product:04x} {MAKERS[vendor]} {serial}'
        steps.append(f'plug {port} {vendor} {product} {serial}')
        attached[port] = (number, device)
        events.append('+' + device)
    return steps, events


steps, events = scenario()
for program in sys.argv[1:]:
    seen = subprocess.run(program.split(), input='\n'.join(steps) + '\n', stdout=subprocess.PIPE, text=True, check=True,
                          timeout=300).stdout.splitlines()
    if seen != events:
        differs = next((i for i, pair in enumerate(zip(seen, events)) if pair[0] != pair[1]), min(len(seen), len(events)))
        print(f'{program}: {len(seen)} events, not {len(events)}; they differ from event {differs} on:')
        print('\n'.join(seen[differs:differs + 3] + ['instead of'] + events[differs:differs + 3]))
        sys.exit(1)
    print(f'{program}: the {len(events)} events')
