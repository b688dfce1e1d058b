// Follows the steps of its input on a thread of its own, and prints what it sees.
#include <YorvanCore/YLog.h>
#include <yusb_location.h>
#include <yusb_simulator.h>
#include <yusb_watcher.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <string>
#include <thread>

namespace {

// A record's bytes are characters of Latin-1.
std::string utf8(const YString& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text.data()[i]);
    if (byte >= 0x80) result += static_cast<char>(0xC0 | byte >> 6);
    result += static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3F));
  }
  return result;
}

void print(const yusb::watch_event& event) {
  const YUsbInfoDevice& device = event.device;
  const int tags = yusb::device_is_apple(device) | yusb::device_is_airpods(device) << 1 |
                   yusb::device_is_android(device) << 2;
  std::printf("%c%s %04x:%04x %d %s\n", event.kind == yusb::watch_kind::arrival ? '+' : '-',
              device.location().data(), unsigned{device.vendorID()}, unsigned{device.productID()}, tags,
              utf8(device.serialNumber()).c_str());
}

}  // namespace

int main() {
  YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR);
  yusb::simulator bus;
  yusb::global_initialize();
  {
    yusb::watch_queue queue({}, 20000);
    std::thread follower([&] {
      while (const auto event = queue.next(std::chrono::minutes(1))) print(*event);
    });
    std::map<std::string, int> ids;
    std::string what, port;
    for (int step = 0; std::cin >> what >> port; ++step) {
      if (what == "plug") {
        yusb::simulated_device device;
        std::string serial_number;
        std::cin >> device.vendor >> device.product >> serial_number;
        device.location = yusb::location_of_path(port).value();
        device.serial_number = serial_number;
        ids[std::to_string(step)] = bus.plug(device);
      } else {
        bus.unplug(ids.at(port));
      }
      bus.settle();
    }
    queue.close();
    follower.join();
  }
  yusb::global_release();
}
