// Plugs phones into a simulated bus and looks at what the client makes of them. No root, no hardware.
#include <yusb_simulator.h>

#include <cstdio>
#include <cstdlib>

#include "phone_shelf.h"

namespace {

void expect(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::exit(1);
}

yusb::simulated_device make_device(unsigned short vendor, unsigned location) {
  yusb::simulated_device device;
  device.vendor = vendor;
  device.product = 0x0001;
  device.location = location;
  return device;
}

// Takes in all that has happened so far.
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
    expect(shelf.phones().size() == 1, "a phone that was there before is on the shelf");

    bus.plug(make_device(0x046D, 0x01200000));
    bus.plug(make_device(0x04E8, 0x01300000));
    update(bus, shelf);
    expect(shelf.phones().size() == 2, "another phone joins it, a keyboard does not");

    bus.unplug(phone);
    update(bus, shelf);
    expect(shelf.phones().size() == 1 && shelf.phones().count("0x1300000") == 1, "the first one has left");
  }
  yusb::global_release();
  expect(yusb::simulator::leaks().empty(), "everything was given back");
  std::puts("passed");
}
