"""TLS, certificates and access rules, with the configuration that is shipped for the broker."""
import re
import signal
import subprocess

import pytest
from lab import SHIPPED, Bus, free_port, run


def openssl(*arguments):
    subprocess.run(['openssl', *map(str, arguments)], check=True, capture_output=True)


@pytest.fixture(scope='module')
def keys(tmp_path_factory):
    """A folder with two authorities, `ca` and `other`, and certificates signed by them."""
    folder = tmp_path_factory.mktemp('keys')
    for authority in 'ca', 'other':
        openssl('req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes', '-subj', f'/CN={authority}',
                '-keyout', folder / f'{authority}.key', '-out', folder / f'{authority}.pem')
    for name, authority, subject in [('broker', 'ca', 'localhost'), ('lab1', 'ca', 'lab1'), ('stranger', 'other', 'lab1')]:
        openssl('req', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes', '-subj', f'/CN={subject}',
                '-addext', f'subjectAltName=DNS:{subject}', '-keyout', folder / f'{name}.key', '-out', folder / f'{name}.csr')
        openssl('x509', '-req', '-in', folder / f'{name}.csr', '-copy_extensions', 'copy', '-CA', folder / f'{authority}.pem',
                '-CAkey', folder / f'{authority}.key', '-CAcreateserial', '-out', folder / f'{name}.pem')
    return folder


def tls(keys):
    return f'cafile {keys}/ca.pem\ncertfile {keys}/broker.pem\nkeyfile {keys}/broker.key\n'


def certificate(keys, name):
    return ['--cert', keys / f'{name}.pem', '--key', keys / f'{name}.key']


def test_follows_a_host_over_tls_with_client_certificates(lab, bus, keys):
    lab.broker(f'{tls(keys)}require_certificate true\nuse_identity_as_username true\n', tls=True)
    bus.plug('1-1', serial='A1')
    own = ['--ca', keys / 'ca.pem', *certificate(keys, 'lab1')]
    lab.agent(bus, 'lab1', *own).line('connected to')
    assert run(*lab.command('wait', '--filter', 'serial=A1', '--timeout', '30s', *own))[0] == 0


CLOSED = 'the broker closed the connection without an answer; does it expect'


@pytest.mark.parametrize('fault, message', [
    ('another authority', 'TLS: certificate verify failed'),
    ('another host name', 'TLS: host name verification failed'),
    # The broker's alert may arrive before the end of the connection.
    ('a certificate of another authority', rf'{CLOSED} another client certificate\?|TLS: .* alert unknown ca'),
    ('no certificate', rf'{CLOSED} another client certificate\?|TLS: .* alert certificate required'),
    ('no TLS', rf'{CLOSED} mqtts://\?'),
    ('no broker', 'Connection refused')])
def test_says_what_is_wrong_with_tls(lab, bus, keys, fault, message):
    lab.broker(f'{tls(keys)}require_certificate true\n', tls=True)
    options = ['--ca', keys / ('other.pem' if fault == 'another authority' else 'ca.pem')]
    if fault != 'no certificate':
        options += certificate(keys, 'stranger' if fault.startswith('a certificate') else 'lab1')
    if fault == 'another host name':
        lab.url = lab.url.replace('localhost', '127.0.0.1')
    elif fault == 'no TLS':
        lab.url, options = lab.url.replace('mqtts', 'mqtt'), []
    elif fault == 'no broker':
        lab.url = f'mqtts://localhost:{free_port()}'
    bus.plug('1-1')
    assert re.search(message, lab.agent(bus, 'lab1', *options).line('not connected: '))
    status, printed, said = run(*lab.command('list', *options))
    assert (status, printed) == (1, '') and re.search(message, said)


def test_a_host_cannot_write_another_hosts_topics(lab, bus):
    accounts = lab.passwords(lab1='one', lab2='two', reader='all', admin='root')
    settings = (SHIPPED / 'yusb-fleet.conf').read_text()
    for name, file in [('yusb-fleet.passwords', accounts), ('yusb-fleet.acl', SHIPPED / 'yusb-fleet.acl')]:
        settings = settings.replace(f'/etc/mosquitto/{name}', str(file))
    lab.broker(settings.replace('listener 1883\n', ''))
    login = {name: ['--user', name, '--password-file', lab.file(f'password.{name}', word)]
             for name, word in [('lab1', 'one'), ('lab2', 'two'), ('reader', 'all'), ('admin', 'root')]}
    bus.plug('1-1', serial='A1')
    own = lab.agent(bus, 'lab1', *login['lab1'])
    own.line('connected to')
    seen = lab.watch(*login['reader'])
    seen.line('"A1"')

    for name in 'lab2', 'reader':
        other = Bus()
        other.plug('1-9')
        lab.agent(other, 'lab1', *login[name]).line('not connected: ', 'refuses')
        assert run(*lab.command('forget', 'lab1', *login[name]))[0] == 1
    port = lab.url.rpartition(':')[2]
    run('mosquitto_pub', '-p', port, '-u', 'lab2', '-P', 'two', '-t', 'yusb/lab1/device/0x1100000', '-r', '-n')
    bus.plug('1-2', serial='B2')
    seen.line('"B2"')
    assert '"removal"' not in seen.end(signal.SIGTERM)[1]
    own.end(signal.SIGTERM)
    assert run(*lab.command('forget', 'lab1', *login['admin']))[0] == 0
    assert run(*lab.command('list', '--json', *login['reader']))[:2] == (0, '')
