"""Follows the steps of its input with asyncio, and prints what it sees."""
import asyncio
import sys

import yorvanusb

BITS = {'apple': 1, 'airpods': 2, 'android': 4}


def use(bus):
    attached = {}
    for number, line in enumerate(sys.stdin):
        what, *values = line.split()
        if what == 'plug':
            attached[number] = bus.plug(values[0], vendor=int(values[1]), product=int(values[2]), serial_number=values[3])
        else:
            attached[int(values[0])].unplug()


async def follow(events):
    async for event in events:
        device = event.device
        sign = '+' if isinstance(event, yorvanusb.Arrival) else '-'
        tags = sum(BITS[tag] for tag in device.tags)
        print(f'{sign}{device.location} {device.vendor:04x}:{device.product:04x} {tags} {device.serial_number}')


async def main(bus):
    async with yorvanusb.watch(capacity=20000) as events:
        follower = asyncio.ensure_future(follow(events))
        await asyncio.get_running_loop().run_in_executor(None, use, bus)
    await follower


with yorvanusb.SimulatedBus() as simulated:
    asyncio.run(main(simulated))
