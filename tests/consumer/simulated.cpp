// A client's own test: a device is plugged into a simulated bus, and the client sees it.
#include <yusb.h>
#include <yusb_simulator.h>

#include <cstdio>
#include <string>

int main() {
  yusb::simulator bus;
  yusb::global_initialize();
  yusb::simulated_device phone;
  phone.vendor = 0x18D1;
  phone.product = 0x4EE7;
  phone.location = 0x01200000;
  phone.serial_number = "0A1B2C";
  bus.plug(phone);
  bool seen = false;
  const bool settled = bus.settle();
  yusb::device_traverse(nullptr, [&](const YUsbInfoDevice& device) {
    seen = device.location() == YString("0x1200000") && device.serialNumber() == YString("0A1B2C");
    return false;
  });
  yusb::global_release();
  std::printf("settled: %d, seen: %d, leaks: %zu\n", settled, seen, yusb::simulator::leaks().size());
  return settled && seen && yusb::simulator::leaks().empty() ? 0 : 1;
}
