"""The samples of the documents: tests pass, and programs print a phone that is attached and end with their watches."""
import pathlib
import re
import threading

import pytest
import yorvanusb

ROOT = pathlib.Path(__file__).parents[3]
SAMPLES = [(f'{document}, line {text[:match.start()].count(chr(10)) + 2}', match.group(1))
           for document in ('README.md', 'docs/python.md')
           for text in [(ROOT / document).read_text(encoding='utf-8')]
           for match in re.finditer(r'^```python\n(.*?)^```$', text, re.M | re.S)]


@pytest.mark.parametrize('where, sample', SAMPLES, ids=[where for where, _ in SAMPLES])
def test_sample(usb_bus, where, sample):
    code = compile(sample, where, 'exec')
    if 'def test_' in sample:
        names = {}
        exec(code, names)
        for function in [value for name, value in names.items() if name.startswith('test_')]:
            function(usb_bus)
        return

    phone = usb_bus.plug('1-2', vendor=0x18D1, product=0x4EE7, product_name='Phone', serial_number='0A1B2C',
                         interfaces=[yorvanusb.Interface(0, 0xFF, 0x42, 1)])
    printed = threading.Event()
    lines = []

    def show(*values):
        lines.append(' '.join(map(str, values)))
        printed.set()

    def end_watches():
        assert printed.wait(60)
        phone.unplug()
        yorvanusb.watching.close_all()

    ender = threading.Thread(target=end_watches)
    ender.start()
    exec(code, {'print': show})
    ender.join()
    assert re.search('Phone|0A1B2C', lines[0])
