"""The fixture usb_bus: a simulated bus for one test. pytest finds it in the installed package."""
from __future__ import annotations

from typing import Iterator

import pytest

from .simulated import SimulatedBus


@pytest.fixture
def usb_bus() -> Iterator[SimulatedBus]:
    with SimulatedBus() as bus:
        yield bus
