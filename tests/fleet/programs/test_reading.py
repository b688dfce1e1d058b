"""list, watch, wait, forget and metrics over several hosts."""
import contextlib
import json
import os
import shutil
import signal
import subprocess

import pytest
from lab import LIMIT, YUSB, Bus, environment, run


class Fleet:
    """Three hosts: lab1 with a root hub and a phone, lab2 with a phone in fastboot, lab3 with a hub that its filter leaves out."""

    def __init__(self, lab):
        self.broker = lab.broker()
        self.buses = {name: Bus() for name in ('lab1', 'lab2', 'lab3')}
        self.buses['lab1'].plug('usb1', pid=2, interface='090000', product='Root hub')
        self.buses['lab1'].plug('1-1', serial='A1', manufacturer='Google', product='Pixel 7')
        self.buses['lab2'].plug('1-4', pid=0x4EE0, interface='ff4203', serial='B2')
        self.buses['lab3'].plug('usb1', pid=2, interface='090000')
        only = {'lab3': ['--filter', 'not:mode=hub']}
        self.agents = {name: lab.agent(bus, name, *only.get(name, [])) for name, bus in self.buses.items()}
        lab.watch().line('"lab3"', '"online"')
        for serial in 'A1', 'B2':
            assert run(*lab.command('wait', '--filter', f'serial={serial}', '--timeout', '60s'))[0] == 0


@pytest.fixture
def fleet(lab):
    return Fleet(lab)


def objects(text):
    return [json.loads(line) for line in text.splitlines() if line.startswith('{')]


def test_list_shows_what_yusb_shows_on_each_host(lab, fleet):
    status, printed, said = run(*lab.command('list', '--json'))
    assert (status, said) == (0, '')
    for host in 'lab1', 'lab2':
        local = objects(run(YUSB, 'list', '--json', env=fleet.buses[host].environment())[1])
        remote = [each for each in objects(printed) if each['host'] == host and each['event'] != 'host']
        for each in local + remote:
            del each['time']
        for each in remote:
            assert [each.pop(name) for name in ('host', 'host_state', 'openable')] == [host, 'online', False]
        assert remote == local != []
    heading, *rows = [line.split() for line in run(*lab.command('list'))[1].splitlines()]
    assert heading == 'HOST STATE PORT ID SPEED MANUFACTURER PRODUCT SERIAL WHAT'.split()
    assert [row[:3] for row in rows] == [['lab1', 'online', 'usb1'], ['lab1', 'online', '1-1'],
                                         ['lab2', 'online', '1-4'], ['lab3', 'online', '-']]
    rows = run(*lab.command('list', '--filter', 'not:mode=hub', '--filter', 'mode=fastboot'))[1].splitlines()
    assert len(rows) == 2 and rows[1].startswith('lab2 ') and rows[1].endswith('B2            android,fastboot')


def test_watch_and_wait_follow_a_phone_from_host_to_host(lab, fleet):
    watch = lab.watch('--filter', 'not:mode=hub')
    watch.line('"lab2"', '"arrival"', '"initial":true')
    gone = lab.start(*lab.command('wait', '--gone', '--filter', 'serial=A1'))
    fleet.buses['lab1'].unplug('1-1')
    watch.line('"lab1"', '"removal"', '"A1"')
    assert gone.end() == (0, '')
    assert run(*lab.command('wait', '--filter', 'serial=A1', '--timeout', '100ms')) == (3, '', '')
    back = lab.start(*lab.command('wait', '--filter', 'port=1-7', '--json'))
    fleet.buses['lab3'].plug('1-7', serial='A1')
    status, printed = back.end()
    assert (status, json.loads(printed)['host'], json.loads(printed)['serial_number']) == (0, 'lab3', 'A1')
    watch.line('"lab3"', '"arrival"', '"initial":false')
    assert watch.end(signal.SIGINT)[0] == 0
    lab.publish('lab4/status', {'schema': 1, 'host': 'lab4', 'state': 'restoring', 'start': '1'})
    assert run(*lab.command('wait', '--gone', '--filter', 'serial=A2', '--timeout', '1s'))[0] == 3, 'it may be at lab4'


def test_tells_the_states_of_hosts_apart(lab, fleet):
    watch = lab.watch()
    watch.line('"lab2"', '"online"')
    fleet.agents['lab2'].kill()
    watch.line('"event":"host"', '"lab2"', '"offline"')
    row = next(line for line in run(*lab.command('list'))[1].splitlines() if 'B2' in line)
    assert row.split()[1] == 'offline', 'its devices are as last known'
    assert run(*lab.command('wait', '--filter', 'serial=B2', '--timeout', '100ms'))[0] == 3, 'only where it is online'
    assert run(*lab.command('wait', '--gone', '--filter', 'serial=B2', '--timeout', '100ms'))[0] == 3, 'not known to be gone'

    status, _, said = run(*lab.command('forget', 'lab1'))
    assert status == 1 and 'online' in said
    assert run(*lab.command('forget', 'lab9'))[0] == 1
    lab.publish('lab2/device/x', {'not': 'of an agent'})
    assert run(*lab.command('forget', 'lab2'))[0] == 0
    assert 'lab2' not in ''.join(run(*lab.command('list'))[1:])

    fleet.broker.kill()
    status, printed, said = run(*lab.command('list'))
    assert (status, printed) == (1, '') and 'Connection refused' in said
    fleet.agents['lab3'].kill()
    lab.broker()  # without a database
    watch.line('"lab3"', '"unknown"')
    assert '"removal"' not in watch.end(signal.SIGTERM)[1]


def test_reports_the_host_whose_devices_the_broker_does_not_send(lab):
    lab.broker()
    # The agents of the first two were killed between two messages.
    for host, state in ('lab1', 'offline'), ('lab2', 'restoring'), ('lab3', 'online'):
        lab.publish(f'{host}/status', {'schema': 1, 'host': host, 'state': state, 'start': '1', 'heartbeat': 60})
        lab.publish(f'{host}/inventory', {'schema': 1, 'devices': 2, 'digest': '0' * 16})
        lab.publish(f'{host}/device/0x1', {'schema': 1, 'vendor_id': '18d1', 'product_id': '4ee7', 'location': '0x1'})
    status, printed, said = run(*lab.command('list', '--json'))
    assert status == 1 and said.count('incomplete') == 1 and 'host lab3 is incomplete' in said
    assert {each['host'] for each in objects(printed) if 'location' in each} == {'lab1', 'lab2'}
    status, _, said = run(*lab.command('forget', 'lab3'))
    assert status == 1 and 'lab3 is online' in said
    metrics = lab.folder / 'yusb.prom'
    assert run(*lab.command('metrics', metrics, '--once'))[0] == 1
    assert 'yusb_fleet_complete{host="lab3"} 0' in metrics.read_text()
    assert 'yusb_fleet_devices{host="lab3"}' not in metrics.read_text()


def test_ends_at_a_signal_and_when_nothing_reads_its_output(lab, fleet):
    def started(output, name, *arguments):
        return subprocess.Popen(lab.command(name, *arguments), stdout=output, env=environment())

    _, full = os.pipe()
    os.set_blocking(full, False)
    with contextlib.suppress(BlockingIOError):
        while True:
            os.write(full, bytes(4096))
    os.set_blocking(full, True)
    stuck = started(full, 'watch')
    waiting = started(None, 'wait', '--filter', 'serial=none')
    quiet = started(subprocess.PIPE, 'watch', '--filter', 'serial=none')
    for _ in fleet.agents:
        quiet.stdout.readline()
    quiet.stdout.close()
    assert quiet.wait(LIMIT) == 0, 'although it has nothing more to write'
    for program, status in (stuck, 0), (waiting, -signal.SIGTERM):
        program.terminate()
        assert program.wait(LIMIT) == status


def test_writes_metrics_for_prometheus(lab, fleet):
    odd = Bus()
    odd.plug('1-1')
    lab.agent(odd, 'a "quoted" \\ host').line('connected to')
    assert run(*lab.command('wait', '--filter', 'port=1-1', '--timeout', '60s'))[0] == 0
    file = lab.file('yusb.prom', 'old')
    before = file.stat().st_ino
    assert run(*lab.command('metrics', file, '--once')) == (0, '', '')
    assert file.stat().st_ino != before, 'replaced, not written in place'
    text = file.read_text()
    for line in ('yusb_fleet_agent_up{host="a \\"quoted\\" \\\\ host"} 1', 'yusb_fleet_devices{host="lab1"} 2',
                 'yusb_fleet_devices_by_class{host="lab1",class="09"} 1', 'yusb_fleet_devices_by_mode{host="lab2",mode="fastboot"} 1',
                 'yusb_fleet_devices{host="lab3"} 0', 'yusb_fleet_arrivals_total{host="lab1"} 0'):
        assert line in text.splitlines()
    device = lab.folder / 'yusb.prom.device'
    os.mkfifo(device)
    assert run(*lab.command('metrics', device, '--once'))[0] == 1 and device.is_fifo(), 'it would replace /dev/stdout'
    device.unlink()
    assert not list(lab.folder.glob('yusb.prom?*'))
    if not shutil.which('promtool'):
        pytest.skip('promtool is not installed: the format is not checked')
    with file.open() as stream:
        checked = run('promtool', 'check', 'metrics', stdin=stream)
    assert checked == (0, '', '')
