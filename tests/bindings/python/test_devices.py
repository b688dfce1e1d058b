"""The list, details and filters, on the simulated bus."""
import pytest
import yorvanusb
from yorvanusb import Filter, Interface

ADB = Interface(0, 0xFF, 0x42, 1, 'ADB', 'usbfs')
STORAGE = Interface(1, 8, 6, 0x50)


def plug_phone(bus, **others):
    return bus.plug('1-2.3', vendor=0x18D1, product=0x4EE7, release=0x0440, manufacturer='Maker', product_name='Télé 電話',
                    serial_number='A', speed=5000, interfaces=[ADB, STORAGE], **others)


def test_lists_devices_and_their_details(usb_bus):
    phone = plug_phone(usb_bus)
    usb_bus.plug('1-4', vendor=0x05AC, product=1)
    device, other = yorvanusb.devices()
    assert device == yorvanusb.Device(0x18D1, 0x4EE7, 0x0440, frozenset({'android'}), '0x1230000', 'Maker',
                                      'Télé ûq', 'A')  # the low bytes of the characters
    assert other.tags == {'apple'} and other.serial_number == ''
    details = device.details()
    assert (details.port_path, details.speed, details.product_name) == ('1-2.3', 5000, 'Télé 電話')
    assert details.interfaces == (ADB, STORAGE)
    assert details.modes == {'adb', 'mass-storage'}
    assert (details.bus, details.usb_version, details.max_power) == (1, 0x0200, 500)
    phone.unplug()
    with pytest.raises(yorvanusb.DeviceGoneError, match='^the device is not attached$'):
        device.details()
    with pytest.raises(yorvanusb.DeviceGoneError):
        phone.unplug()


def test_waits_until_a_device_can_be_opened(usb_bus):
    phone = plug_phone(usb_bus, openable_after=None)
    device, = yorvanusb.devices()
    assert not device.wait_openable(timeout=0.01)
    phone.allow_open()
    assert device.wait_openable()
    phone.unplug()
    with pytest.raises(yorvanusb.DeviceGoneError):
        device.wait_openable()


@pytest.mark.parametrize('filters, expected', [
    ([], 'ABC'),
    ([Filter(vendor=0x18D1, product=0x4EE7)], 'A'),
    ([Filter(vendor=0)], ''),
    ([Filter(tags={'apple'}), Filter(serial_number='C')], 'BC'),
    ([Filter(modes=['adb', 'mass-storage'], interface_class=8, interface_protocol=0x50)], 'A'),
    ([Filter(class_code=9)], 'C'),
    ([Filter(port_path='1-4'), Filter(location='0x1230000')], 'AB'),
    ([Filter(name='tél')], 'A'),
    ([Filter(name='maker', exclude=True)], 'BC'),
])
def test_filters(usb_bus, filters, expected):
    plug_phone(usb_bus)
    usb_bus.plug('1-4', vendor=0x05AC, product=1, serial_number='B')
    usb_bus.plug('1-5', vendor=1, product=1, serial_number='C', class_code=9)
    with yorvanusb.watch(*filters) as events:
        assert ''.join(event.device.serial_number for event in iter(lambda: events.next(0), None)) == expected


@pytest.mark.parametrize('wrong', [
    Filter(vendor=0x10000),
    Filter(tags='apple'),
    Filter(tags={'banana'}),
    Filter(modes={'nonsense'}),
    Filter(name='a\0b'),
    Filter(interface_protocol=1),
])
def test_refuses_a_filter_that_means_nothing(usb_bus, wrong):
    with pytest.raises(ValueError):
        yorvanusb.watch(wrong)


def test_without_the_c_library_the_import_works_and_a_call_says_what_is_missing(monkeypatch):
    def find_nothing(name):
        raise OSError(f'{name}: cannot open shared object file')

    yorvanusb._c.library.cache_clear()
    monkeypatch.setattr('ctypes.CDLL', find_nothing)
    with pytest.raises(ImportError, match='libYorvanUsbC.so.1: cannot open'):
        yorvanusb.devices()
