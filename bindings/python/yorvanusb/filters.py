"""Filters select the devices that a watch reports."""
from __future__ import annotations

import ctypes
import dataclasses
from typing import Collection, Sequence

from . import _c
from .devices import TAGS

# The bits of yusb_filter.fields.
_FIELDS = {
    'vendor': 1,
    'product': 2,
    'class_code': 4,
    'interface_class': 8,
    'interface_subclass': 16,
    'interface_protocol': 32,
}


@dataclasses.dataclass(frozen=True)
class Filter:
    """A device passes if it matches all criteria that are set.

    `modes`, `port_path`, `name` and the classes are read from the bus if the device matches the other criteria.
    """

    vendor: int | None = None  # idVendor
    product: int | None = None  # idProduct
    tags: Collection[str] = ()  # the device has all of them: 'apple', 'airpods', 'android'
    serial_number: str | None = None  # the whole string
    location: str | None = None  # as in Device
    class_code: int | None = None  # of the device or of one of its interfaces
    interface_class: int | None = None  # this and the next two are compared with one interface at a time
    interface_subclass: int | None = None
    interface_protocol: int | None = None
    modes: Collection[str] = ()  # the device is in all of them: 'adb', 'mass-storage', ...
    port_path: str | None = None  # the whole path: '1-2.3'
    name: str | None = None  # a part of the manufacturer or product string; A to Z match in either case
    exclude: bool = False  # inverts the filter


def _bits_of_tags(tags: Collection[str]) -> int:
    if isinstance(tags, str) or not set(tags) <= set(TAGS):
        raise ValueError(f'tags are a collection of {", ".join(TAGS)}, not {tags!r}')
    return sum(TAGS[tag] for tag in set(tags))


def _bits_of_modes(modes: Collection[str]) -> int:
    if isinstance(modes, str):
        raise ValueError(f'modes are a collection of names, not {modes!r}')
    bits = 0
    for name in modes:
        mode = ctypes.c_int()
        if _c.library().yusb_parse_mode(_c.optional_bytes(name), mode) != _c.OK:
            raise ValueError(f'{name!r} is not the name of a mode')
        bits |= 1 << mode.value
    return bits


def structures(filters: Sequence[Filter]) -> ctypes.Array[_c.Filter]:
    made = (_c.Filter * len(filters))()
    for structure, each in zip(made, filters):
        structure.size = ctypes.sizeof(_c.Filter)
        for field, bit in _FIELDS.items():
            value = getattr(each, field)
            if value is None:
                continue
            setattr(structure, field, value)
            if getattr(structure, field) != value:
                raise ValueError(f'{field} is too large: {value}')
            structure.fields |= bit
        for field in ('serial_number', 'location', 'port_path', 'name'):
            setattr(structure, field, _c.optional_bytes(getattr(each, field)))
        structure.tags = _bits_of_tags(each.tags)
        structure.modes = _bits_of_modes(each.modes)
        structure.except_ = each.exclude
    return made
