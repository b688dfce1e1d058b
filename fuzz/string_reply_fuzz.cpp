// Fuzzes the reply of a device to a string request, read by the whole library.
//
// Input: the string's index, the status, the transferred size that the device claims (its low two bytes), and
// the bytes that it sends.
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include <YorvanCore/YLog.h>
#include <yusb.h>
#include <yusb_bus.h>

#include "bus/bus.h"
#include "bus/settle.h"
#include "require.h"

namespace {

using namespace yusb::port;

constexpr std::size_t kHeader = 4;

class answering_device : public device {
 public:
  answering_device(const std::uint8_t* data, std::size_t size) : _data(data), _size(size) {}

  status read(device_field field, std::uint32_t* value) override {
    *value = field == device_field::product_index         ? _data[0]
             : field == device_field::manufacturer_index  ? 0
             : field == device_field::serial_number_index ? 0
                                                          : 1;
    return status_ok;
  }

  status control(control_request& request) override {
    require(request.value == (0x0300 | _data[0]) && request.length == 255, "asks for the string");
    request.transferred = static_cast<std::uint32_t>(_data[2] | _data[3] << 8);
    std::memcpy(request.data, _data + kHeader, std::min<std::size_t>(_size - kHeader, request.length));
    return _data[1] == 0 ? status_ok : status_stalled;
  }

  std::optional<std::uint32_t> registry_location() override { return 1; }

 private:
  const std::uint8_t* const _data;
  const std::size_t _size;
};

// Holds the next change for the only session.
class fuzzed_bus : public bus {
 public:
  void tell(const change& next) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _next = next;
    eventfd_write(_readable, 1);
    mark_busy();
  }

  std::unique_ptr<session> open() override { return std::make_unique<watch>(*this); }
  std::optional<yusb::usb_details> details(const record_key&, std::error_code&) override {
    return std::nullopt;
  }
  std::unique_ptr<node_watch> watch_nodes() override { return nullptr; }

 private:
  class watch : public session {
   public:
    explicit watch(fuzzed_bus& watched) : _bus(watched) {}
    std::array<int, 2> poll_fds() const override { return {_bus._readable, -1}; }
    std::optional<change> next() override {
      const std::lock_guard<std::mutex> lock(_bus._mutex);
      return std::exchange(_bus._next, std::nullopt);
    }
    void idle() override {
      const std::lock_guard<std::mutex> lock(_bus._mutex);
      if (_bus._next.has_value()) return;
      eventfd_t count;
      eventfd_read(_bus._readable, &count);
      mark_idle();
    }

   private:
    fuzzed_bus& _bus;
  };

  const int _readable = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  std::mutex _mutex;
  std::optional<change> _next;  // under _mutex
};

// The library, which watches that bus until the process ends.
struct host {
  host() {
    YLog::setSink([](auto, auto*, auto, auto*) {}, nullptr);
    set_bus(&bus);
    yusb::global_initialize();
    require(yusb::bus_settle(), "starts");
  }
  ~host() { yusb::global_release(); }
  fuzzed_bus bus;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHeader) return -1;
  static host library;
  const auto plugged = std::make_shared<answering_device>(data, size);
  library.bus.tell({true, plugged});
  require(yusb::bus_settle(), "reads the device");

  std::string expected;
  if (data[0] != 0 && data[1] == 0) {
    const std::size_t sent = std::min<std::size_t>(255, data[2] | data[3] << 8);
    for (std::size_t at = 2; at < sent; at += 2)
      expected += at + kHeader < size ? static_cast<char>(data[at + kHeader]) : '\0';
    expected.resize(std::strlen(expected.c_str()));
  }
  int devices = 0;
  yusb::device_traverse(nullptr, [&](const YUsbInfoDevice& record) {
    const YString& text = record.describe();
    require(text.size() <= 127, "is no longer than a descriptor");
    require(std::memchr(text.data(), 0, text.size()) == nullptr, "holds no zero");
    require(text == YString(expected.data(), expected.size()), "is the low bytes up to the first zero");
    yusb::device_is_android(record);
    return ++devices != 0;
  });
  require(devices == 1, "lists the device whatever it answers");
  library.bus.tell({false, plugged});
  require(yusb::bus_settle(), "sees it leave");
  return 0;
}
