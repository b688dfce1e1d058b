"""libYorvanUsbC through ctypes. Names and layouts are those of yusb_c.h and yusb_c_simulator.h."""
from __future__ import annotations

import ctypes
import functools
import sys
from ctypes import POINTER, c_bool, c_char_p, c_double, c_int, c_int64, c_size_t, c_uint8, c_uint16, c_uint32, c_uint64
from ctypes import c_void_p
from typing import Any

from .errors import Error, error_class

OK, TIMED_OUT, CLOSED, GONE, INVALID_ARGUMENT, NOT_STARTED = range(6)
FORKED, BUSY = 9, 10


class Device(ctypes.Structure):
    _fields_ = [
        ('size', c_size_t),
        ('vendor', c_uint16),
        ('product', c_uint16),
        ('release', c_uint16),
        ('tags', c_uint32),
        ('location', c_char_p),
        ('manufacturer', c_char_p),
        ('product_name', c_char_p),
        ('serial_number', c_char_p),
    ]


class DeviceList(ctypes.Structure):
    _fields_ = [('size', c_size_t), ('count', c_size_t), ('devices', POINTER(POINTER(Device)))]


class Filter(ctypes.Structure):
    _fields_ = [
        ('size', c_size_t),
        ('fields', c_uint32),
        ('tags', c_uint32),
        ('vendor', c_uint16),
        ('product', c_uint16),
        ('class_code', c_uint8),
        ('interface_class', c_uint8),
        ('interface_subclass', c_uint8),
        ('interface_protocol', c_uint8),
        ('except_', c_bool),
        ('serial_number', c_char_p),
        ('location', c_char_p),
        ('modes', c_uint64),
        ('port_path', c_char_p),
        ('name', c_char_p),
    ]


class QueueOptions(ctypes.Structure):
    _fields_ = [
        ('size', c_size_t),
        ('filters', POINTER(Filter)),
        ('filter_count', c_size_t),
        ('capacity', c_size_t),
        ('removals_at_close', c_bool),
    ]


class Event(ctypes.Structure):
    _fields_ = [
        ('size', c_size_t),
        ('kind', c_int),
        ('device', POINTER(Device)),
        ('devices', POINTER(DeviceList)),
    ]


class Interface(ctypes.Structure):
    _fields_ = [
        ('size', c_size_t),
        ('number', c_uint8),
        ('class_code', c_uint8),
        ('subclass', c_uint8),
        ('protocol', c_uint8),
        ('name', c_char_p),
        ('driver', c_char_p),
    ]


class Details(ctypes.Structure):
    _fields_ = [
        ('size', c_size_t),
        ('bus', c_uint32),
        ('address', c_uint32),
        ('port_path', c_char_p),
        ('device_node', c_char_p),
        ('speed', c_double),
        ('usb_version', c_uint16),
        ('class_code', c_uint8),
        ('subclass', c_uint8),
        ('protocol', c_uint8),
        ('configurations', c_uint8),
        ('active_configuration', c_uint8),
        ('max_power', c_uint16),
        ('interface_count', c_size_t),
        ('interfaces', POINTER(POINTER(Interface))),
        ('modes', c_uint64),
        ('manufacturer', c_char_p),
        ('product_name', c_char_p),
        ('serial_number', c_char_p),
    ]


class SimulatedDevice(ctypes.Structure):
    _fields_ = [
        ('size', c_size_t),
        ('vendor', c_uint16),
        ('product', c_uint16),
        ('release', c_uint16),
        ('location', c_uint32),
        ('port_path', c_char_p),
        ('manufacturer', c_char_p),
        ('product_name', c_char_p),
        ('serial_number', c_char_p),
        ('speed', c_double),
        ('usb_version', c_uint16),
        ('class_code', c_uint8),
        ('subclass', c_uint8),
        ('protocol', c_uint8),
        ('max_power', c_uint16),
        ('interface_count', c_size_t),
        ('interfaces', POINTER(Interface)),
        ('openable_after', c_int64),
    ]


_FUNCTIONS: dict[str, list[Any]] = {
    'yusb_start': [],
    'yusb_stop': [],
    'yusb_settle': [c_int64],
    'yusb_bus_present': [POINTER(c_bool)],
    'yusb_devices': [POINTER(POINTER(DeviceList))],
    'yusb_device_list_free': [POINTER(DeviceList)],
    'yusb_queue_open': [POINTER(QueueOptions), POINTER(c_void_p)],
    'yusb_queue_next': [c_void_p, c_int64, POINTER(POINTER(Event))],
    'yusb_event_free': [POINTER(Event)],
    'yusb_queue_descriptor': [c_void_p, POINTER(c_int)],
    'yusb_queue_close': [c_void_p],
    'yusb_queue_free': [c_void_p],
    'yusb_device_details': [POINTER(Device), POINTER(POINTER(Details))],
    'yusb_details_free': [POINTER(Details)],
    'yusb_mode_name': [c_int, POINTER(c_char_p)],
    'yusb_parse_mode': [c_char_p, POINTER(c_int)],
    'yusb_wait_openable': [POINTER(Device), c_int64],
    'yusb_log_threshold': [c_int],
    'yusb_simulator_create': [POINTER(c_void_p)],
    'yusb_simulator_free': [c_void_p],
    'yusb_simulator_plug': [c_void_p, POINTER(SimulatedDevice), POINTER(c_int)],
    'yusb_simulator_unplug': [c_void_p, c_int],
    'yusb_simulator_open_node': [c_void_p, c_int],
}

_LOG_WARNING = 3


@functools.lru_cache(maxsize=None)
def library() -> ctypes.CDLL:
    """Returns the C library. It is loaded by the first call, so that the package can be imported without it."""
    name = 'libYorvanUsbC.1.dylib' if sys.platform == 'darwin' else 'libYorvanUsbC.so.1'
    try:
        loaded = ctypes.CDLL(name)
    except OSError as error:
        raise ImportError(f'the C library of YorvanUsb is not installed: {error}') from error
    for function, arguments in _FUNCTIONS.items():
        getattr(loaded, function).argtypes = arguments
    loaded.yusb_status_text.restype = c_char_p
    loaded.yusb_log_threshold(_LOG_WARNING)
    return loaded


def make_error(status: int) -> Error:
    return error_class(status)(text(library().yusb_status_text(status)))


def check(status: int) -> None:
    if status != OK:
        raise make_error(status)


def milliseconds(seconds: float | None) -> int:
    """Converts seconds to a time limit of the C interface, rounded up; None waits forever."""
    return -1 if seconds is None else max(0, -int(-min(seconds, 1e9) * 1000 // 1))


def text(value: bytes) -> str:
    return value.decode()


def optional_bytes(value: str | None) -> bytes | None:
    if value is not None and '\0' in value:
        raise ValueError('a string for USB cannot contain a null character')
    return None if value is None else value.encode()
