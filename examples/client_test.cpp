// Tests the client with phones on a simulated bus. Needs no root access and no hardware.
#include <yusb_simulator.h>

#include <cstdio>
#include <cstdlib>

#include "phone_shelf.h"

namespace {

void expect(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "failed: %s\n", what);
  std::exit(1);
}

yusb::simulated_device make_device(unsigned short vendor, unsigned location) {
  yusb::simulated_device device;
  device.vendor = vendor;
  device.product = 0x0001;
  device.location = location;
  return device;
}

// Lets the shelf handle every event so far.
void update(yusb::simulator& bus, phone_shelf& shelf) {
  expect(bus.settle(), "the library has handled every change");
  while (shelf.update(std::chrono::milliseconds(0))) continue;
}

}  // namespace

int main() {
  yusb::simulator bus;
  const int phone = bus.plug(make_device(0x18D1, 0x01100000));
  yusb::global_initialize();
  {
    phone_shelf shelf;
    update(bus, shelf);
    expect(shelf.phones().size() == 1, "a phone that was attached before the start is on the shelf");

    bus.plug(make_device(0x046D, 0x01200000));
    bus.plug(make_device(0x04E8, 0x01300000));
    update(bus, shelf);
    expect(shelf.phones().size() == 2, "a second phone is added, a keyboard is not");

    bus.unplug(phone);
    update(bus, shelf);
    expect(shelf.phones().size() == 1 && shelf.phones().count("0x1300000") == 1,
           "the first phone is removed");
  }
  yusb::global_release();
  expect(yusb::simulator::leaks().empty(), "the library has released everything");
  std::puts("passed");
}
