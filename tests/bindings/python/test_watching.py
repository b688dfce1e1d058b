"""Watches: iteration, asyncio, threads, forks, and how they end."""
import asyncio
import gc
import os
import signal
import subprocess
import sys
import textwrap
import threading

import pytest
import yorvanusb
from yorvanusb import Arrival, Removal, Resync


def plug(bus, port, serial_number):
    return bus.plug(port, vendor=0x18D1, product=1, serial_number=serial_number)


def descriptors():
    gc.collect()  # objects of earlier tests
    return len(os.listdir('/proc/self/fd'))


def seen(event):
    return {Arrival: '+', Removal: '-'}[type(event)] + event.device.serial_number


def test_iterates_until_it_is_closed(usb_bus):
    first = plug(usb_bus, '1-1', 'A')
    with yorvanusb.watch(removals_at_close=True) as events:
        plug(usb_bus, '1-2', 'B')
        first.unplug()
        assert [seen(next(events)) for _ in range(3)] == ['+A', '+B', '-A']
        assert events.next(timeout=0) is None and events.next(timeout=0.01) is None
    assert events.closed
    assert [seen(event) for event in events] == ['-B']


def test_reports_dropped_events(usb_bus):
    events = yorvanusb.watch(capacity=1)
    plug(usb_bus, '1-1', 'A')
    plug(usb_bus, '1-2', 'B')
    event = events.next()
    assert isinstance(event, Resync) and list(event.devices) == yorvanusb.devices()


def test_tasks_share_a_watch_in_asyncio(usb_bus):
    async def follow(events):
        return [seen(event) async for event in events]

    def use():
        for i in range(100):
            plug(usb_bus, '1-1', str(i)).unplug()

    async def main():
        threads = threading.active_count()
        async with yorvanusb.watch() as events:
            tasks = [asyncio.ensure_future(follow(events)) for _ in range(3)]
            await asyncio.sleep(0)
            assert threading.active_count() == threads
            await asyncio.get_running_loop().run_in_executor(None, use)
        return sum(await asyncio.gather(*tasks), [])

    assert sorted(asyncio.run(main())) == sorted(sign + str(i) for sign in '+-' for i in range(100))


def test_a_cancelled_task_loses_no_event_and_no_descriptor(usb_bus):
    async def main():
        events = yorvanusb.watch()
        events.fileno()
        before = descriptors()
        for _ in range(3):
            with pytest.raises(asyncio.TimeoutError):
                await asyncio.wait_for(events.__anext__(), 0.01)
        assert descriptors() == before
        plug(usb_bus, '1-1', 'A')
        return seen(await events.__anext__())

    assert asyncio.run(main()) == '+A'


def test_a_signal_interrupts_a_wait(usb_bus):
    events = yorvanusb.watch()
    events.fileno()

    def interrupt(*_):
        raise KeyboardInterrupt

    previous = signal.signal(signal.SIGALRM, interrupt)
    signal.setitimer(signal.ITIMER_REAL, 0.05)
    try:
        with pytest.raises(KeyboardInterrupt):
            events.next()
    finally:
        signal.signal(signal.SIGALRM, previous)


def test_a_watch_without_a_reference_is_freed(usb_bus):
    before = descriptors()
    yorvanusb.watch().fileno()
    cycle = [yorvanusb.watch()]
    cycle[0].fileno()
    cycle.append(cycle)
    del cycle
    assert descriptors() == before


def test_a_forked_child_gets_an_exception(usb_bus):
    events = yorvanusb.watch()
    child = os.fork()
    if child == 0:
        result = 1
        try:
            for call in (yorvanusb.devices, yorvanusb.watch, events.next, events.close, yorvanusb.SimulatedBus):
                with pytest.raises(yorvanusb.ForkedError, match='forked'):
                    call()
            del events
            gc.collect()
            result = 0
        finally:
            os._exit(result)
    assert os.waitpid(child, 0)[1] == 0
    plug(usb_bus, '1-1', 'A')
    assert seen(next(events)) == '+A'


@pytest.mark.parametrize('end', ['pass', 'sys.exit(0)', 'os.kill(os.getpid(), signal.SIGINT)'])
def test_an_interpreter_that_ends_with_open_watches(end):
    script = '''
        import os, signal, sys, threading, yorvanusb
        bus = yorvanusb.SimulatedBus()
        waiting = yorvanusb.watch()
        threading.Thread(target=lambda: list(waiting), daemon=True).start()
        events = yorvanusb.watch()
        for i in range(50):
            bus.plug('1-1', vendor=1, product=1).unplug()
        print(len(list(iter(lambda: events.next(0), None))), flush=True)
    '''
    run = subprocess.run([sys.executable, '-c', textwrap.dedent(script) + end], stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, text=True, timeout=60)
    assert run.stdout == '100\n'
    assert run.returncode == (-signal.SIGINT if 'kill' in end else 0), run.stderr
    assert 'KeyboardInterrupt' in run.stderr if 'kill' in end else run.stderr == ''


def test_threads_that_wait_are_woken_when_the_bus_ends():
    for _ in range(20):
        with yorvanusb.SimulatedBus():
            events = yorvanusb.watch()
            entered = threading.Event()

            def take(events=events, entered=entered):
                entered.set()
                return list(events)

            waiting = threading.Thread(target=take)
            waiting.start()
            entered.wait()
        waiting.join()
