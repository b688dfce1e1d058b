"""Lists the attached USB devices and reports every device that is attached or detached.

    import yorvanusb

    for event in yorvanusb.watch():
        if isinstance(event, yorvanusb.Arrival):
            print(event.device.location, event.device.product_name)

A failed call raises a subclass of Error. All functions are thread-safe. The library's log goes to standard error, with
warnings and errors only.
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
