"""The exceptions. Their messages are the meanings of the C library's statuses."""
from __future__ import annotations


class Error(Exception):
    """A call of the library failed."""


class DeviceGoneError(Error):
    """The device is not attached."""


class TimedOutError(Error, TimeoutError):
    """The time limit has passed."""


class InvalidArgumentError(Error, ValueError):
    """An argument is invalid."""


class OutOfMemoryError(Error, MemoryError):
    """An allocation failed."""


class ForkedError(Error):
    """The process was forked while its parent used the library. Use the start method spawn."""


class BusyError(Error):
    """Another object must be closed first."""


class UnsupportedError(Error, NotImplementedError):
    """The platform, or this version of the C library, does not support the call."""


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
