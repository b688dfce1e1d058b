"""Attached devices and their details."""
from __future__ import annotations

import ctypes
import dataclasses
import time

from . import _c

TAGS = {'apple': 1, 'airpods': 2, 'android': 4}


@dataclasses.dataclass(frozen=True)
class Interface:
    """An interface of the active configuration, in its alternate setting 0."""

    number: int
    class_code: int
    subclass: int = 0
    protocol: int = 0
    name: str = ''  # its string descriptor
    driver: str = ''  # the kernel driver that is bound to it


@dataclasses.dataclass(frozen=True)
class Details:
    """The details of an attached device. Unknown numbers are 0, unknown strings are empty."""

    bus: int
    address: int
    port_path: str  # '1-2.3': bus 1, port 2, and port 3 of the hub there
    device_node: str  # '/dev/bus/usb/001/005'; on Linux only
    speed: float  # in Mbit/s
    usb_version: int  # 0x0210 is USB 2.1
    class_code: int
    subclass: int
    protocol: int
    configurations: int
    active_configuration: int
    max_power: int  # in mA
    interfaces: tuple[Interface, ...]
    modes: frozenset[str]  # 'adb', 'mass-storage', ...
    manufacturer: str  # complete
    product_name: str
    serial_number: str


@dataclasses.dataclass(frozen=True)
class Device:
    """An attached device.

    Its strings hold the low byte of each UTF-16 code unit; details() returns the complete strings.
    """

    vendor: int  # idVendor
    product: int  # idProduct
    release: int  # bcdDevice
    tags: frozenset[str]  # of 'apple', 'airpods', 'android'
    location: str  # the location ID as '0x1A200000', unique among attached devices
    manufacturer: str
    product_name: str
    serial_number: str

    def details(self) -> Details:
        """Reads the device's details. Raises DeviceGoneError if another device or none is attached at its location."""
        read = ctypes.POINTER(_c.Details)()
        _c.check(_c.library().yusb_device_details(self._structure(), read))
        try:
            return _details(read.contents)
        finally:
            _c.library().yusb_details_free(read)

    def wait_openable(self, timeout: float | None = None) -> bool:
        """Waits until this process may open the device. Returns False if `timeout`, in seconds, has passed.

        Raises DeviceGoneError. A signal (Ctrl-C) is handled within half a second. In a program with an
        event loop, call it in a thread: await asyncio.to_thread(device.wait_openable, 5).
        """
        structure = self._structure()
        end = None if timeout is None else time.monotonic() + timeout
        while True:
            left = 0.5 if end is None else max(0.0, min(0.5, end - time.monotonic()))
            status = _c.library().yusb_wait_openable(structure, _c.milliseconds(left))
            if status != _c.TIMED_OUT:
                _c.check(status)
                return True
            if end is not None and time.monotonic() >= end:
                return False

    def _structure(self) -> _c.Device:
        return _c.Device(
            size=ctypes.sizeof(_c.Device),
            vendor=self.vendor,
            product=self.product,
            release=self.release,
            location=_c.optional_bytes(self.location),
            manufacturer=_c.optional_bytes(self.manufacturer),
            product_name=_c.optional_bytes(self.product_name),
            serial_number=_c.optional_bytes(self.serial_number),
        )


def _details(read: _c.Details) -> Details:
    interfaces = []
    for i in range(read.interface_count):
        each = read.interfaces[i].contents
        interfaces.append(
            Interface(each.number, each.class_code, each.subclass, each.protocol, _c.text(each.name), _c.text(each.driver)))
    return Details(
        bus=read.bus,
        address=read.address,
        port_path=_c.text(read.port_path),
        device_node=_c.text(read.device_node),
        speed=read.speed,
        usb_version=read.usb_version,
        class_code=read.class_code,
        subclass=read.subclass,
        protocol=read.protocol,
        configurations=read.configurations,
        active_configuration=read.active_configuration,
        max_power=read.max_power,
        interfaces=tuple(interfaces),
        modes=frozenset(_mode_name(mode) for mode in range(64) if read.modes >> mode & 1),
        manufacturer=_c.text(read.manufacturer),
        product_name=_c.text(read.product_name),
        serial_number=_c.text(read.serial_number),
    )


def _mode_name(mode: int) -> str:
    name = ctypes.c_char_p()
    _c.check(_c.library().yusb_mode_name(mode, name))
    return _c.text(name.value or b'')


def device_of(read: _c.Device) -> Device:
    return Device(
        read.vendor,
        read.product,
        read.release,
        frozenset(tag for tag, bit in TAGS.items() if read.tags & bit),
        read.location.decode(),
        read.manufacturer.decode(),
        read.product_name.decode(),
        read.serial_number.decode(),
    )


def devices_of(read: _c.DeviceList) -> tuple[Device, ...]:
    return tuple(device_of(read.devices[i].contents) for i in range(read.count))


def devices(timeout: float | None = 30) -> list[Device]:
    """Returns the attached devices, in order of arrival. Raises TimedOutError if listing them takes longer than `timeout`."""
    library = _c.library()
    read = ctypes.POINTER(_c.DeviceList)()
    _c.check(library.yusb_start())
    try:
        _c.check(library.yusb_settle(_c.milliseconds(timeout)))
        _c.check(library.yusb_devices(read))
        try:
            return list(devices_of(read.contents))
        finally:
            library.yusb_device_list_free(read)
    finally:
        library.yusb_stop()


def bus_present() -> bool:
    """True if the host has a USB bus that can be watched."""
    present = ctypes.c_bool()
    _c.check(_c.library().yusb_bus_present(present))
    return present.value
