"""The agent as the service manager and the broker see it."""
import json
import signal
import socket

import pytest
from lab import FLEET, LIMIT, run


def payload(line):
    return json.loads(line.partition(' ')[2])


def test_publishes_its_bus_as_a_service(lab, bus):
    lab.broker()
    topics = lab.topics()
    bus.plug('usb1', pid=2, interface='090000')
    bus.plug('1-1', serial='A1', product='Pixel 7')
    manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    manager.settimeout(LIMIT)
    manager.bind(str(lab.folder / 'notify'))

    def told(state):
        while (said := manager.recv(1000).decode()) != state:
            pass
        return said

    agent = lab.agent(bus, 'lab/1', '--filter', 'not:mode=hub', NOTIFY_SOCKET=str(lab.folder / 'notify'),
                      WATCHDOG_USEC='300000')
    assert told('READY=1')
    device = payload(topics.line('yusb/lab%2F1/device/0x1100000 '))
    assert device['port'] == '1-1' and device['serial_number'] == 'A1' and device['product'] == 'Pixel 7'
    assert device['modes'] == ['adb'] and device['interfaces'][0]['class'] == 'ff'
    assert device['openable'] is False, 'the mocked /dev has no node'
    status = payload(topics.line('yusb/lab%2F1/status '))
    assert (status['host'], status['state']) == ('lab/1', 'online')

    bus.plug('1-2', serial='B2')
    topics.line('device/0x1200000 ', '"B2"')
    bus.unplug('1-1')
    assert topics.line('device/0x1100000').endswith('0x1100000 (null)')
    assert payload(topics.line('inventory '))['removals'] == 1
    for _ in range(3):
        assert told('WATCHDOG=1')

    status, said = agent.end(signal.SIGTERM)
    assert status == 0 and said.startswith('yusb-fleet: connected to localhost as host lab/1 of machine ')
    assert told('STOPPING=1')
    assert payload(topics.line('status '))['state'] == 'offline'
    assert 'device/0x1000000' not in topics.end(signal.SIGTERM)[1], 'the filter leaves out hubs'


def test_does_not_fail_when_a_newer_agent_replaces_it(lab, bus):
    lab.broker()
    bus.plug('1-1')
    older = lab.agent(bus, 'lab1')
    older.line('connected to')
    newer = lab.agent(bus, 'lab1')
    newer.line('connected to')
    status, said = older.end()
    assert 'a newer agent of this machine has taken over' in said
    assert status == 0, 'else the service manager would restart it'
    assert newer.end(signal.SIGINT)[0] == 0


@pytest.mark.parametrize('place', ['file', 'credentials'])
def test_keeps_its_password_to_itself(lab, bus, place):
    bus.plug('1-1')
    accounts = lab.passwords(lab1='s3cret')
    lab.broker(f'allow_anonymous false\npassword_file {accounts}\nlog_type all\n')
    good = lab.file('mqtt-password', 's3cret\n')
    bad = lab.file('wrong', 'wr0ng\n')
    more = {'CREDENTIALS_DIRECTORY': str(lab.folder)} if place == 'credentials' else {}
    given = ['--user', 'lab1'] + (['--password-file', good] if place == 'file' else [])
    agent = lab.agent(bus, 'lab1', *given, **more)
    agent.line('connected to')
    shown = open(f'/proc/{agent.pid}/cmdline').read() + open(f'/proc/{agent.pid}/environ').read()
    assert 's3cret' not in shown + agent.end(signal.SIGTERM)[1]
    refused = lab.agent(bus, 'lab1', '--user', 'lab1', '--password-file', bad)
    refused.line('not connected: ', 'authori')
    assert 'wr0ng' not in refused.end(signal.SIGTERM)[1]


@pytest.mark.parametrize('arguments, message', [
    (['agent', '--broker', 'http://x'], "'http://x' is not mqtt"),
    (['agent', '--broker', 'mqtt://lab1:s3cret@x'], "an address with '@' is not mqtt"),
    (['agent', '--broker', 'mqtt://x', '--filter', 'mode=nonsense'], 'nonsense'),
    (['agent', '--broker', 'mqtt://x', '--heartbeat', '0s'], 'from 1s to 60m'),
    (['agent', '--broker', 'mqtt://x', '--prefix', 'a/#'], 'cannot begin a topic'),
    (['agent', '--broker', 'mqtt://x', '--password', 'secret'], '--password'),
    (['agent', '--broker', 'mqtt://x', '--user', 'u', '--password-file', '/nonexistent'], '/nonexistent'),
    (['agent', '--broker', 'mqtt://x', '--ca', '/dev/null'], 'mqtts://'),
    (['agent', '--broker', 'mqtts://x', '--cert', '/dev/null'], '--key'),
    (['agent', '--broker', 'mqtts://x', '--ca', '/nonexistent'], '/nonexistent'),
    (['wait', '--broker', 'mqtt://x', '--timeout', 'soon'], "'soon' is not a duration"),
])
def test_rejects_a_wrong_command_line(arguments, message):
    status, printed, said = run(FLEET, *arguments)
    assert (status, printed) == (2, '') and message in said and '--help' in said
    assert 's3cret' not in said
