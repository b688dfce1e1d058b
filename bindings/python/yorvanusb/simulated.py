"""A simulated bus, for tests without hardware."""
from __future__ import annotations

import ctypes
from typing import Sequence

from . import _c
from .devices import Interface
from .watching import close_all


class SimulatedDevice:
    """A device on a simulated bus. unplug() returns when the change is in the device list and in every watch."""

    def __init__(self, bus: SimulatedBus, number: int) -> None:
        self._bus = bus
        self._number = number

    def unplug(self) -> None:
        """Detaches the device. Raises DeviceGoneError if it is not attached."""
        _c.check(_c.library().yusb_simulator_unplug(self._bus._pointer(), self._number))
        self._bus.settle()

    def allow_open(self) -> None:
        """Makes the device openable. Raises DeviceGoneError if it is not attached."""
        _c.check(_c.library().yusb_simulator_open_node(self._bus._pointer(), self._number))


class SimulatedBus:
    """Replaces the host's bus while it exists. Only one may exist, and it cannot be created while a watch is open.

    close(), or the end of a `with` block, closes all watches and restores the host's bus.
    """

    def __init__(self) -> None:
        self._simulator = ctypes.c_void_p()
        self._started = False
        library = _c.library()
        if library.yusb_settle(0) in (_c.OK, _c.TIMED_OUT):
            raise _c.make_error(_c.BUSY)  # the library is already running on another bus
        _c.check(library.yusb_simulator_create(self._simulator))
        status = library.yusb_start()
        if status != _c.OK:
            library.yusb_simulator_free(self._simulator)
            raise _c.make_error(status)
        self._started = True

    def plug(
        self,
        port_path: str,
        *,
        vendor: int,
        product: int,
        release: int = 0,
        manufacturer: str | None = None,
        product_name: str | None = None,
        serial_number: str | None = None,
        speed: float = 480,
        usb_version: int = 0x0200,
        class_code: int = 0,
        subclass: int = 0,
        protocol: int = 0,
        max_power: int = 500,
        interfaces: Sequence[Interface] = (),
        openable_after: float | None = 0,
    ) -> SimulatedDevice:
        """Attaches a device; the library lists it unless `vendor` or `product` is 0.

        It can be opened `openable_after` seconds later, or after allow_open() if that is None. Returns when the
        device is in the device list and in every watch.
        """
        made = (_c.Interface * len(interfaces))()
        for structure, each in zip(made, interfaces):
            structure.size = ctypes.sizeof(_c.Interface)
            structure.number = each.number
            structure.class_code = each.class_code
            structure.subclass = each.subclass
            structure.protocol = each.protocol
            structure.name = _c.optional_bytes(each.name)
            structure.driver = _c.optional_bytes(each.driver)
        device = _c.SimulatedDevice(
            size=ctypes.sizeof(_c.SimulatedDevice),
            vendor=vendor,
            product=product,
            release=release,
            port_path=_c.optional_bytes(port_path),
            manufacturer=_c.optional_bytes(manufacturer),
            product_name=_c.optional_bytes(product_name),
            serial_number=_c.optional_bytes(serial_number),
            speed=speed,
            usb_version=usb_version,
            class_code=class_code,
            subclass=subclass,
            protocol=protocol,
            max_power=max_power,
            interface_count=len(made),
            interfaces=made,
            openable_after=_c.milliseconds(openable_after),
        )
        numbers = ('vendor', 'product', 'release', 'usb_version', 'class_code', 'subclass', 'protocol', 'max_power')
        given = (vendor, product, release, usb_version, class_code, subclass, protocol, max_power)
        for name, value in zip(numbers, given):
            if getattr(device, name) != value:  # ctypes keeps the low bits
                raise ValueError(f'{name} is out of range: {value}')
        if not (speed and usb_version and max_power):
            raise ValueError('speed, usb_version and max_power must not be 0')
        number = ctypes.c_int()
        _c.check(_c.library().yusb_simulator_plug(self._pointer(), device, number))
        self.settle()
        return SimulatedDevice(self, number.value)

    def settle(self, timeout: float = 30) -> None:
        """Waits until all changes are in the device list and in every watch."""
        _c.check(_c.library().yusb_settle(_c.milliseconds(timeout)))

    def close(self) -> None:
        """Closes all watches and restores the host's bus. A second call does nothing.

        Waits a few seconds for calls on watches that run on other threads. Raises BusyError if one still runs; then call
        it again.
        """
        if not self._simulator:
            return
        close_all()
        library = _c.library()
        if self._started:
            _c.check(library.yusb_stop())
            self._started = False
        _c.check(library.yusb_simulator_free(self._simulator))
        self._simulator = ctypes.c_void_p()

    def _pointer(self) -> ctypes.c_void_p:
        if not self._simulator:
            raise ValueError('the simulated bus is closed')
        return self._simulator

    def __enter__(self) -> SimulatedBus:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

