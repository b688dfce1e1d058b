"""What a program in Python pays to take an event from a watch: prints nanoseconds, the median of 11 rounds."""
import statistics
import time

import yorvanusb

DEVICES = 1000
with yorvanusb.SimulatedBus() as bus:
    for i in range(DEVICES):
        bus.plug(f'1-{i % 15 + 1}.{i // 15 % 15 + 1}.{i // 225 + 1}', vendor=0x1234, product=0x5678,
                 manufacturer='Northwind Instruments Ltd.', product_name='Precision Logic Analyzer',
                 serial_number=f'NW-2024-{i}-A7F3')
    rounds = []
    for _ in range(11):
        watch = yorvanusb.watch()
        started = time.perf_counter_ns()
        for _ in range(DEVICES):
            next(watch)
        rounds.append((time.perf_counter_ns() - started) / DEVICES)
        watch.close()
    print(statistics.median(rounds))
