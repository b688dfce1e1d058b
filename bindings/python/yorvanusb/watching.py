"""Arrivals and removals, as an iterator or an async iterator."""
from __future__ import annotations

import asyncio
import contextlib
import ctypes
import dataclasses
import os
import select
import sys
import threading
import time
import weakref
from typing import Iterator, Union

from . import _c
from .devices import Device, device_of, devices_of
from .filters import Filter, structures


@dataclasses.dataclass(frozen=True)
class Arrival:
    """`device` was attached, or was already attached when the watch started."""

    device: Device


@dataclasses.dataclass(frozen=True)
class Removal:
    """`device` was detached. It equals the device of its arrival."""

    device: Device


@dataclasses.dataclass(frozen=True)
class Resync:
    """The watch overflowed and dropped its events; `devices` are those attached now."""

    devices: tuple[Device, ...]


Event = Union[Arrival, Removal, Resync]


def _event_of(read: _c.Event) -> Event:
    if read.kind == 2:
        return Resync(devices_of(read.devices.contents))
    device = device_of(read.device.contents)
    return Arrival(device) if read.kind == 0 else Removal(device)


class _Queue:
    """A yusb_queue that is freed when it is closed and the last call on it has returned."""

    def __init__(self, filters: tuple[Filter, ...], capacity: int, removals_at_close: bool) -> None:
        if not 0 < capacity <= sys.maxsize:
            raise ValueError(f'capacity is out of range: {capacity}')
        given = structures(filters)
        options = _c.QueueOptions(
            size=ctypes.sizeof(_c.QueueOptions),
            filters=given,
            filter_count=len(given),
            capacity=capacity,
            removals_at_close=removals_at_close,
        )
        self._library = _c.library()
        self._process = os.getpid()  # in a forked child the lock may stay locked forever
        # Guards what follows; notified when the queue is freed. A signal handler may close a watch of its own thread.
        self._lock = threading.Condition(threading.RLock())
        self._queue: ctypes.c_void_p | None = ctypes.c_void_p()
        self._calls = 0
        self._abandoned = False
        _c.check(self._library.yusb_start())
        try:
            _c.check(self._library.yusb_queue_open(options, self._queue))
        finally:
            self._library.yusb_stop()  # the queue keeps the library started

    @contextlib.contextmanager
    def used(self) -> Iterator[ctypes.c_void_p | None]:
        """Yields the queue, which is not freed before the end of the block; None if it has been freed."""
        self._check_process()
        with self._lock:
            queue = self._queue
            self._calls += 1
        try:
            yield queue
        finally:
            with self._lock:
                self._calls -= 1
                self._free_if_unused()

    def close(self) -> None:
        self._check_process()
        with self._lock:
            if self._queue is not None:
                _c.check(self._library.yusb_queue_close(self._queue))

    def abandon(self) -> None:
        """Closes the queue, and frees it when no call is running."""
        if self._process != os.getpid():
            return
        with self._lock:
            if self._queue is not None:
                self._library.yusb_queue_close(self._queue)
            self._abandoned = True
            self._free_if_unused()

    def _check_process(self) -> None:
        if self._process != os.getpid():
            raise _c.make_error(_c.FORKED)

    def _free_if_unused(self) -> None:
        if self._abandoned and self._calls == 0 and self._queue is not None:
            self._library.yusb_queue_free(self._queue)
            self._queue = None
            self._lock.notify_all()

    def wait_until_freed(self, timeout: float) -> None:
        with self._lock:
            self._lock.wait_for(lambda: self._queue is None, timeout)


class Watch:
    """Stores events until they are taken by next(), `for` or `async for`.

    Arrivals and removals of a device strictly alternate, an arrival first. Iteration ends when the watch is closed
    and its events are taken. Several threads, or tasks, may iterate over one watch; each event goes to one of them.
    A watch that is no longer referenced is closed.
    """

    def __init__(self, filters: tuple[Filter, ...], capacity: int, removals_at_close: bool) -> None:
        self._queue = _Queue(filters, capacity, removals_at_close)
        self._end = weakref.finalize(self, self._queue.abandon)
        self._closed = False
        with _watches_lock:
            _watches.add(self)

    def next(self, timeout: float | None = None) -> Event | None:
        """Takes the next event. Waits for one for `timeout` seconds; None waits forever.

        Returns None if there was none in that time, or if the watch is closed and empty.
        """
        try:
            return self._next(None if timeout is None else time.monotonic() + timeout)
        except StopIteration:
            return None

    def fileno(self) -> int:
        """Returns a file descriptor that is readable while there is an event, and after the watch is closed.

        Do not read or close it. It is closed with the watch.
        """
        with self._queue.used() as queue:
            if queue is None:
                raise _c.make_error(_c.CLOSED)
            return self._descriptor(queue)

    def close(self) -> None:
        """Stops watching. Iterators take the remaining events and end. A second call does nothing."""
        self._queue.close()
        self._closed = True

    @property
    def closed(self) -> bool:
        return self._closed

    def __iter__(self) -> Watch:
        return self

    def __next__(self) -> Event:
        event = self._next(None)
        assert event is not None
        return event

    def __aiter__(self) -> Watch:
        return self

    async def __anext__(self) -> Event:
        with self._queue.used() as queue:
            while True:
                try:
                    event = self._take(queue)
                except StopIteration:
                    raise StopAsyncIteration from None
                if event is not None:
                    return event
                assert queue is not None
                await _readable(self._descriptor(queue))

    def __enter__(self) -> Watch:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    async def __aenter__(self) -> Watch:
        return self

    async def __aexit__(self, *_: object) -> None:
        self.close()

    def _next(self, end: float | None) -> Event | None:
        with self._queue.used() as queue:
            while True:
                event = self._take(queue)
                if event is not None:
                    return event
                left = None if end is None else end - time.monotonic()
                if left is not None and left <= 0:
                    return None
                assert queue is not None
                # Here, unlike in the library, Python handles signals.
                poll = select.poll()
                poll.register(self._descriptor(queue), select.POLLIN)
                poll.poll(None if left is None else min(_c.milliseconds(left), 2**31 - 1))

    @staticmethod
    def _take(queue: ctypes.c_void_p | None) -> Event | None:
        if queue is None:
            raise StopIteration
        library = _c.library()
        read = ctypes.POINTER(_c.Event)()
        status = library.yusb_queue_next(queue, 0, read)
        if status == _c.OK:
            try:
                return _event_of(read.contents)
            finally:
                library.yusb_event_free(read)
        if status == _c.CLOSED:
            raise StopIteration
        if status != _c.TIMED_OUT:
            raise _c.make_error(status)
        return None

    @staticmethod
    def _descriptor(queue: ctypes.c_void_p) -> int:
        descriptor = ctypes.c_int()
        _c.check(_c.library().yusb_queue_descriptor(queue, descriptor))
        return descriptor.value


async def _readable(descriptor: int) -> None:
    loop = asyncio.get_running_loop()
    ready = loop.create_future()

    def wake() -> None:
        if not ready.done():
            ready.set_result(None)

    own = os.dup(descriptor)  # a loop has one reader for each descriptor, and several tasks may wait
    try:
        loop.add_reader(own, wake)
        try:
            await ready
        finally:
            loop.remove_reader(own)
    finally:
        os.close(own)


_watches: weakref.WeakSet[Watch] = weakref.WeakSet()
_watches_lock = threading.Lock()


def close_all() -> None:
    """Closes and frees all watches. Waits, a few seconds at most, for threads whose calls on them are returning."""
    with _watches_lock:
        watches = list(_watches)
    for each in watches:
        each.close()
        each._end()
    for each in watches:
        each._queue.wait_until_freed(5)


def watch(*filters: Filter, capacity: int = 1024, removals_at_close: bool = False) -> Watch:
    """Watches the devices that pass one of the filters, or all devices, starting with those that are attached.

    The watch holds `capacity` events; if it overflows, the next event is a Resync. With `removals_at_close`, closing
    it adds a Removal for each attached device.
    """
    return Watch(filters, capacity, removals_at_close)
