"""What goes wrong, as exceptions. The message of each is the text of the C library's status."""
from __future__ import annotations


class Error(Exception):
    """A call of the library failed."""


class DeviceGoneError(Error):
    """The device is not attached."""


class TimedOutError(Error, TimeoutError):
    """The time limit has passed."""


class InvalidArgumentError(Error, ValueError):
    """An argument is not what the library takes."""


class OutOfMemoryError(Error, MemoryError):
    """An allocation failed."""


class ForkedError(Error):
    """The process was forked while its parent used the library. Start it with spawn instead."""


class BusyError(Error):
    """What must end first is still in use."""


class UnsupportedError(Error, NotImplementedError):
    """The platform, or this version of the C library, does not have it."""


_CLASSES: dict[int, type[Error]] = {
    1: TimedOutError,
    3: DeviceGoneError,
    4: InvalidArgumentError,
    6: OutOfMemoryError,
    9: ForkedError,
    10: BusyError,
    11: UnsupportedError,
}


def error_class(status: int) -> type[Error]:
    return _CLASSES.get(status, Error)
