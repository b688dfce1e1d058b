// usb-watch FOLDER: writes the events of a yusb::watcher to FOLDER/watcher.stream and those of a
// yusb::watch_queue to FOLDER/queue.stream, as JSON lines with the fields of "yusb watch --json". SIGTERM
// ends it; SIGUSR1 makes it exit without releasing the library. The library's log goes to standard error.
#include <pthread.h>
#include <yusb.h>
#include <yusb_watcher.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include <nlohmann/json.hpp>

namespace {

// Strings of records have one byte per UTF-16 code unit.
std::string utf8(const YString& text) {
  std::string result;
  for (const char* at = text.data(); *at != '\0'; ++at) {
    const auto byte = static_cast<unsigned char>(*at);
    if (byte >= 0x80) result += static_cast<char>(0xC0 | byte >> 6);
    result += static_cast<char>(byte >= 0x80 ? 0x80 | (byte & 0x3F) : byte);
  }
  return result;
}

std::string hexadecimal(const char* format, unsigned high, unsigned low = 0) {
  char text[16];
  std::snprintf(text, sizeof text, format, high, low);
  return text;
}

nlohmann::json fields(const char* event, const YUsbInfoDevice& device) {
  return {{"event", event},
          {"location", device.location().data()},
          {"vendor_id", hexadecimal("%04x", device.vendorID())},
          {"product_id", hexadecimal("%04x", device.productID())},
          {"release", hexadecimal("%x.%02x", device.revisedID() >> 8, device.revisedID() & 0xFFu)},
          {"manufacturer", utf8(device.factory())},
          {"product", utf8(device.describe())},
          {"serial_number", utf8(device.serialNumber())}};
}

void write(std::ofstream& stream, const nlohmann::json& line) { stream << line.dump() + '\n' << std::flush; }

void write_queue(yusb::watch_queue& queue, std::ofstream& stream) {
  while (!queue.closed()) {
    const auto event = queue.next(std::chrono::hours(1));
    if (!event.has_value()) continue;
    if (event->kind == yusb::watch_kind::resync) {
      write(stream, {{"event", "resync"}});
      for (const auto& device : event->devices) write(stream, fields("arrival", device));
    } else {
      write(stream, fields(event->kind == yusb::watch_kind::arrival ? "arrival" : "removal", event->device));
    }
  }
}

}  // namespace

int main(int, char** argv) {
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGTERM);
  sigaddset(&ending, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);

  const std::string folder = argv[1];
  std::ofstream watcher_stream(folder + "/watcher.stream");
  std::ofstream queue_stream(folder + "/queue.stream");
  yusb::global_initialize();
  {
    yusb::watcher watcher([&](const YUsbInfoDevice& device, _yusb_device_event event) {
      write(watcher_stream, fields(event == YUSB_DEVICE_EVENT_APPEND ? "arrival" : "removal", device));
    });
    yusb::watch_queue queue;
    std::thread taker([&] { write_queue(queue, queue_stream); });
    int signal;
    sigwait(&ending, &signal);
    if (signal == SIGUSR1) std::exit(0);
    queue.close();
    taker.join();
  }
  yusb::global_release();
}
