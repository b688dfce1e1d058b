#!/usr/bin/env python3
"""Runs the benchmarks, prints the results as tables, and compares the counts with their limits.

    report.py BUILD_FOLDER                  everything
    report.py BUILD_FOLDER --limits          the counts and their limits only; no time is measured
    report.py BUILD_FOLDER --record DOCS    everything, and writes DOCS/performance.md's tables and DOCS/*.svg
"""
import argparse
import json
import os
import platform
import re
import shutil
import sys

from counts import DEVICES, a_device, core_names, core_ratio, count_all, details, limits, run

PROGRAMS = ['baseline', 'libudev', 'libusb', 'library']


# ---- Times ----


def measure_times(build):
    """Returns Google Benchmark's results by name, without the suffixes for its settings."""
    program = os.path.join(build, 'bench', 'yusb_bench')
    print('report.py: measuring times, for a few minutes', file=sys.stderr)
    # Benchmarks take turns, so that other load affects all of them alike.
    results = json.loads(run([program, '--benchmark_format=json', '--benchmark_min_time=0.05',
                              '--benchmark_repetitions=5', '--benchmark_enable_random_interleaving=true',
                              '--benchmark_report_aggregates_only=true']))['benchmarks']
    return {re.sub(r'/(iterations:|manual_time|real_time|min_time:).*', '', result['run_name']): result
            for result in results if result['aggregate_name'] == 'median'}


def measure_python(build):
    """Nanoseconds that an event costs a program in Python."""
    here = os.path.dirname(os.path.abspath(__file__))
    environment = {**os.environ, 'PYTHONPATH': os.path.join(here, '..', 'bindings', 'python'),
                   'PYTHONDONTWRITEBYTECODE': '1', 'LD_LIBRARY_PATH': os.path.join(build, 'bindings', 'c')}
    return float(run([sys.executable, os.path.join(here, 'languages.py')], env=environment))


# ---- Tables and plots ----


def number(value):
    if abs(value) >= 100:
        return f'{value:,.0f}'
    return f'{value:.1f}' if abs(value) >= 10 else f'{value:.2f}'.rstrip('0').rstrip('.')


def table(header, rows):
    lines = [header, ['---'] + ['--:'] * (len(header) - 1)]
    lines += [[cell if isinstance(cell, str) else number(cell) for cell in row] for row in rows]
    return '\n'.join('| ' + ' | '.join(line) + ' |' for line in lines)


def limits_table(counts):
    return table(['what', 'value', 'limit'], limits(counts))


def peers_table(counts, times):
    def row(name, value):
        of = [value(program) for program in PROGRAMS]
        return [name, *of, of[3] / of[0] if of[0] else '']

    def p50(what):
        return lambda program: times[what.format(program)]['p50']

    def time_of_a_device(program):
        return (p50('start/{}/101')(program) - p50('start/{}/1')(program)) / DEVICES

    return table(['what', *PROGRAMS, 'library / baseline'], [
        row('one more device at the start, µs', time_of_a_device),
        row('the same, instructions', lambda program: a_device(counts, 'instructions', program)),
        row('the same, system calls', lambda program: a_device(counts, 'calls', program)),
        row('the same, allocations', lambda program: a_device(counts, 'allocations', program)),
        row('the details of a device, µs', lambda program: times[f'details/{program}/each']['each'] * 1e6),
        row('the same, instructions', lambda program: details(counts, 'instructions', program)),
        row('the same, system calls', lambda program: details(counts, 'calls', program)),
        row('the same, allocations', lambda program: details(counts, 'allocations', program)),
        row('start to the last of 101 devices, µs', p50('start/{}/101')),
        row('arrival, µs', p50('arrival/{}')),
        row('removal, µs', p50('removal/{}')),
        row('stop, µs', p50('stop/{}')),
        row('stop, 99th percentile, µs', lambda program: times[f'stop/{program}']['p99']),
        row('heap with 101 devices, KiB', lambda program: counts['held', f'start/{program}/101'] / 1024),
        row('leaked after a second stop, bytes', lambda program: counts['left', f'start/{program}/101']),
    ])


def core_table(counts, times):
    return table(['what', 'baseline, instructions', 'library', '× baseline', 'baseline, ns', 'library, ns'], [
        [name, counts['instructions', name + '/baseline'], counts['instructions', name + '/library'],
         core_ratio(counts, name), times[name + '/baseline']['cpu_time'], times[name + '/library']['cpu_time']]
        for name in sorted(core_names(counts), key=lambda name: name.split('/')[0])])


def scaling_tables(times):
    starts = table(['devices', *(f'{program}, µs each' for program in PROGRAMS)], [
        [f'{devices:,}', *(times[f'start/{program}/{devices}']['p50'] / devices for program in PROGRAMS)]
        for devices in (11, 101, 1001, 5001)])
    storms = table(['reading threads', 'events a second', 'walks of 100 records a second'], [
        [name.split('/')[1], result['items_per_second'], result['walks']]
        for name, result in sorted(times.items(), key=lambda item: item[1]['family_index'] * 1000
                                   + item[1]['per_family_instance_index']) if name.startswith('storm/')])
    flood, burst = times['flood'], times['burst/5000']
    rest = table(['what', 'result'], [
        ['100,000 arrivals and as many removals on a simulated bus, events a second', flood['items_per_second']],
        ['5,000 devices announced without a pause, ms until the last is delivered', burst['p50'] / 1000],
        ['the same, overflows of the receive buffer', burst['losses']],
        *([f'uevents that the receive buffer holds, {who}', times[name]['length']]
          for who, name in (('as root', 'queue/1'), ('unprivileged', 'queue/0')) if name in times),
    ])
    return '\n\n'.join((starts, storms, rest))


def languages_table(times, python):
    costs = {'C++': times['next/C++']['cpu_time'], 'C': times['next/C']['cpu_time'], 'Python': python}
    return table(['an event from a queue', 'ns', '× C++'],
                 [[language, cost, cost / costs['C++']] for language, cost in costs.items()])


def machine():
    with open('/proc/cpuinfo', encoding='utf-8') as lines:
        model = re.search(r'^model name\s*: (.*)$', lines.read(), re.M)
    kernel = re.match(r'[\d.]+', platform.release()).group(0)
    return f'{model.group(1) if model else platform.machine()}, {os.cpu_count()} cores, Linux {kernel}.'


def bars(title, groups, alike):
    """Returns an SVG of horizontal bars, {group: {name: value}}; with `alike` all groups have one scale."""
    colours = {'baseline': '#9aa5b1', 'libudev': '#d9a441', 'libusb': '#c96b4b', 'library': '#2f6fb0'}
    shown = {'library': 'libYorvanUsb'}
    body, y = [f'<text x="16" y="28" font-size="16" font-weight="bold">{title}</text>'], 44
    for group, members in groups.items():
        body.append(f'<text x="16" y="{y + 14}" font-weight="bold">{group}</text>')
        y += 22
        most = max(max(other.values()) for other in (groups.values() if alike else [members]))
        for name, value in members.items():
            width = max(1, 440 * value / most)
            body.append(f'<text x="110" y="{y + 13}" text-anchor="end">{shown.get(name, name)}</text>'
                        f'<rect x="118" y="{y}" width="{width:.1f}" height="17" fill="{colours[name]}"/>'
                        f'<text x="{124 + width:.1f}" y="{y + 13}">{number(value)}</text>')
            y += 22
        y += 8
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="640" height="{y}" font-family="sans-serif" font-size="13">'
            f'<rect width="640" height="{y}" fill="#fff"/><g fill="#222">{"".join(body)}</g></svg>\n')


def write_documents(folder, tables, counts, times):
    path = os.path.join(folder, 'performance.md')
    with open(path, encoding='utf-8') as file:
        text = file.read()
    for name, content in tables.items():
        text, found = re.subn(rf'(<!-- {name} -->\n)[^<]*(<!-- end -->)',
                              lambda match, new=content: f'{match.group(1)}{new}\n{match.group(2)}', text)
        if not found:
            sys.exit(f'report.py: {path} has no place for the table "{name}"')
    plots = {
        'cost-per-device.svg': bars('To list one USB device', {
            title: {name: a_device(counts, what, name) for name in PROGRAMS}
            for what, title in (('instructions', 'instructions'), ('calls', 'system calls'),
                                ('allocations', 'allocations'))}, alike=False),
        'latency.svg': bars('From the kernel\'s announcement to the handler, in µs', {
            what: {name: times[f'{what}/{name}']['p50'] for name in PROGRAMS} for what in ('arrival', 'removal')},
            alike=True),
        'performance.md': text,
    }
    for name, content in plots.items():
        with open(os.path.join(folder, name), 'w', encoding='utf-8') as file:
            file.write(content)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('build', help='the build folder')
    parser.add_argument('--limits', action='store_true', help='only count, and compare with the limits')
    parser.add_argument('--record', metavar='DOCS', help='write the tables and plots into this folder')
    arguments = parser.parse_args()
    if arguments.record and arguments.limits:
        parser.error('--record needs the times that --limits leaves out')
    if arguments.record and not os.path.isfile(os.path.join(arguments.record, 'performance.md')):
        parser.error(f'there is no performance.md in {arguments.record}')
    missing = [tool for tool in ('valgrind', 'strace') if not shutil.which(tool)]
    if missing:
        print(f'report.py: SKIPPED, nothing was counted: {" and ".join(missing)} not found')
        return 0

    counts = count_all(arguments.build)
    tables = {'limits': limits_table(counts)}
    if not arguments.limits:
        times = measure_times(arguments.build)
        tables.update(machine=machine(), peers=peers_table(counts, times), core=core_table(counts, times),
                      scaling=scaling_tables(times), languages=languages_table(times, measure_python(arguments.build)))
    print('\n\n'.join(tables.values()))
    if counts['umockdev', 'host']:
        print('report.py: the instructions and system calls of a device were not compared with their limits',
              file=sys.stderr)
    if arguments.record:
        write_documents(arguments.record, tables, counts, times)
    exceeded = [name for name, value, limit in limits(counts) if value > limit]
    if exceeded:
        print(f'report.py: above the limit: {"; ".join(exceeded)}', file=sys.stderr)
    return 1 if exceeded else 0


if __name__ == '__main__':
    sys.exit(main())
