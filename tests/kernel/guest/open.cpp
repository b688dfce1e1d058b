// usb-open MILLISECONDS: takes the events of a yusb::openable_queue with that limit, and opens each device
// that is reported as openable. Prints one line per event: "arrival SERIAL MODE...", "openable SERIAL" or, if
// the open failed, "refused SERIAL REASON", "timed-out SERIAL", "removal SERIAL". Runs until it is
// terminated.
#include <fcntl.h>
#include <unistd.h>
#include <yusb_details.h>
#include <yusb_openable_queue.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include <YorvanCore/YLog.h>

namespace {

std::string modes(const YUsbInfoDevice& device) {
  std::string text;
  if (const auto details = yusb::device_details(device)) {
    for (const yusb::device_mode mode : yusb::device_modes(*details).list())
      text += std::string(" ") + yusb::to_string(mode);
  }
  return text;
}

std::string try_to_open(const YUsbInfoDevice& device) {
  const auto details = yusb::device_details(device);
  if (!details.has_value()) return "gone";
  const int node = open(details->device_node.c_str(), O_RDWR | O_CLOEXEC);
  if (node < 0) return std::strerror(errno);
  close(node);
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return std::cerr << "usage: usb-open MILLISECONDS\n", 2;
  YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR);
  yusb::global_initialize();
  yusb::openable_queue queue(std::chrono::milliseconds(std::atol(argv[1])), {}, 100'000);
  std::cout << "ready" << std::endl;
  for (;;) {
    const auto event = queue.next(std::chrono::hours(1));
    if (!event.has_value()) continue;
    const std::string serial = event->device.serialNumber().data();
    switch (event->kind) {
      case yusb::openable_kind::arrival:
        std::cout << "arrival " << serial << modes(event->device) << std::endl;
        break;
      case yusb::openable_kind::openable: {
        const std::string reason = try_to_open(event->device);
        std::cout << (reason.empty() ? "openable " : "refused ") << serial << ' ' << reason << std::endl;
        break;
      }
      case yusb::openable_kind::timed_out:
        std::cout << "timed-out " << serial << std::endl;
        break;
      case yusb::openable_kind::removal:
        std::cout << "removal " << serial << std::endl;
        break;
      case yusb::openable_kind::resync:
        std::cout << "resync" << std::endl;
        break;
    }
  }
}
