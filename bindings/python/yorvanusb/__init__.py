"""Which USB devices are attached, and every one that is attached or detached.

    import yorvanusb

    for event in yorvanusb.watch():
        if isinstance(event, yorvanusb.Arrival):
            print(event.device.location, event.device.product_name)

A call of the library that fails raises a subclass of Error. Every function may be called on any thread. The library's log
goes to standard error, from warnings on.
"""
from .devices import Details, Device, Interface, bus_present, devices
from .errors import BusyError, DeviceGoneError, Error, ForkedError, InvalidArgumentError, OutOfMemoryError
from .errors import TimedOutError, UnsupportedError
from .filters import Filter
from .simulated import SimulatedBus, SimulatedDevice
from .watching import Arrival, Event, Removal, Resync, Watch, watch

__all__ = [
    'Arrival', 'BusyError', 'Details', 'Device', 'DeviceGoneError', 'Error', 'Event', 'Filter', 'ForkedError', 'Interface',
    'InvalidArgumentError', 'OutOfMemoryError', 'Removal', 'Resync', 'SimulatedBus', 'SimulatedDevice', 'TimedOutError',
    'UnsupportedError', 'Watch', 'bus_present', 'devices', 'watch'
]
