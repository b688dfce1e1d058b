"""Counts the instructions, system calls and allocations of the benchmarks, and their limits."""
import os
import re
import subprocess
import sys
import tempfile

DEVICES = 100  # the difference of the two sizes of a counted start


def run(command, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False, **options)
    if done.returncode != 0:
        sys.exit(f'{" ".join(command)} ended with status {done.returncode}')
    return done.stdout


def values(output):
    """Parses lines "WHAT NAME VALUE" into {(what, name): value}."""
    return {(what, name): int(value) for what, name, value in map(str.split, output.splitlines())}


def count_instructions(program, folder):
    run(['valgrind', '--quiet', '--tool=callgrind', '--instr-atstart=no', '--trace-children=yes',
         f'--callgrind-out-file={folder}/callgrind', program, '--counts'])
    found = {}
    for file in os.listdir(folder):
        with open(os.path.join(folder, file), encoding='utf-8') as profile:
            text = profile.read()
        name = re.search(r'^desc: Trigger: Client Request: (.*)$', text, re.M)
        if name:
            found['instructions', name.group(1)] = int(re.search(r'^totals: (\d+)', text, re.M).group(1))
    return found


def count_calls(program, folder):
    trace = os.path.join(folder, 'strace')
    run(['strace', '--quiet=all', '--follow-forks', '-o', trace, program, '--counts'])
    found = {}
    with open(trace, encoding='utf-8', errors='replace') as lines:
        count = 0
        for line in lines:
            end = re.search(r'access\("/count/(begin|end/(.*?))"', line)
            if end and end.group(2):
                found['calls', end.group(2)] = count
            count = 0 if end else count + bool(re.match(r'\d+ +\w+\(', line))
    return found


def count_all(build):
    program = os.path.join(build, 'bench', 'yusb_bench')
    # Without its folder, because a space in it would end the name in LD_PRELOAD.
    heap = {'LD_PRELOAD': 'libyusb_bench_heap.so', 'LD_LIBRARY_PATH': os.path.join(build, 'bench')}
    with tempfile.TemporaryDirectory() as folder, subprocess.Popen(
            [program, '--idle'], stdout=subprocess.PIPE, text=True) as idle:
        found = values(run([program, '--counts'], env={**os.environ, **heap}))
        if not found['held', 'start/library/101']:
            sys.exit('the allocations were not counted')
        found.update(count_instructions(program, folder))
        found.update(count_calls(program, folder))
        found.update(values(idle.communicate()[0]))
    for (what, name), value in found.items():
        if what in ('instructions', 'calls', 'allocations'):
            found[what, name] = value / found['times', name]
    return found


def a_device(counts, what, program):
    first, second = (counts[what, f'start/{program}/{size}'] for size in (1, 1 + DEVICES))
    return (second - first) / DEVICES


def details(counts, what, program):
    return counts[what, f'details/{program}/each']


def core_names(counts):
    return [name[:-8] for what, name in counts if what == 'times' and name.endswith('/library')]


def core_ratio(counts, name):
    return counts['instructions', name + '/library'] / counts['instructions', name + '/baseline']


def limits(counts):
    """Yields the limited values as (name, value, limit)."""
    if not counts['umockdev', 'host']:  # its preloaded library would be counted too
        yield 'a device, instructions', a_device(counts, 'instructions', 'library'), 14500
        yield 'a device, system calls', a_device(counts, 'calls', 'library'), 18.5
        yield 'its details, instructions × baseline', details(counts, 'instructions', 'library') / details(
            counts, 'instructions', 'baseline'), 1.5
        yield 'its details, system calls − baseline', details(counts, 'calls', 'library') - details(
            counts, 'calls', 'baseline'), 0
    yield 'a device, allocations', a_device(counts, 'allocations', 'library'), 11
    yield '101 devices, KiB of heap', counts['held', 'start/library/101'] / 1024, 45
    yield 'after a stop, bytes leaked', counts['left', 'start/library/101'], 0
    yield '10 s idle, wake-ups', counts['wake-ups', 'idle'], 0
    yield '10 s idle, threads', counts['threads', 'idle'], 1
    for name in ('deliver/1x1', 'deliver/10x10', 'deliver/100x10'):
        yield name + ', × baseline', core_ratio(counts, name), 1.15
    for name in ('snapshot/100', 'snapshot/1000', 'presence/1000', 'change/1000'):
        yield name + ', × baseline', core_ratio(counts, name), 1.1
