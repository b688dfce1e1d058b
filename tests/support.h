// Helpers of the library's tests: a recording client, a recorded log, a library on a simulated bus. Events
// and lists are strings, so that a test shows them in order.
#ifndef YUSB_TESTS_SUPPORT_H_
#define YUSB_TESTS_SUPPORT_H_

#include <YorvanCore/YLog.h>
#include <gtest/gtest.h>
#include <yusb.h>
#if __has_include(<yusb_simulator.h>)  // not on macOS
#include <yusb_simulator.h>
#define YUSB_TESTS_HAVE_SIMULATOR
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using strings = std::vector<std::string>;

// Returns the number in an environment variable, or a default.
inline unsigned long env_or(const char* variable, unsigned long fallback) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? fallback : std::strtoul(text, nullptr, 10);
}

// Returns the number of entries of a folder; those of /proc/self/fd are the open descriptors.
inline auto entries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

constexpr std::chrono::minutes kPatience(1);  // the limit for conditions that normally hold at once

// Blocks threads until it is opened.
class gate {
 public:
  void open() {
    const std::lock_guard<std::mutex> lock(_mutex);
    _is_open = true;
    _opened.notify_all();
  }
  void wait() {
    std::unique_lock<std::mutex> lock(_mutex);
    EXPECT_TRUE(_opened.wait_for(lock, kPatience, [this] { return _is_open; }));
  }

 private:
  std::mutex _mutex;
  std::condition_variable _opened;
  bool _is_open = false;  // under _mutex
};

// Polls for a condition that no event announces.
template <typename Condition>
bool comes_true(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition() && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return condition();
}

struct device_texts {
  YString factory, describe, serial;
};

inline YUsbInfoDevice make_record(unsigned short vendor, unsigned short product, const YString& location,
                                  const char* path = nullptr, const device_texts& texts = {}) {
  YUsbInfoDevice record;
  record.setVendorID(vendor);
  record.setProductID(product);
  record.setRevisedID(0x0100);
  record.setLocation(location);
  record.setInstancePath(path == nullptr ? location : path);
  record.setFactory(texts.factory);
  record.setDescribe(texts.describe);
  record.setSerialNumber(texts.serial);
  return record;
}

// Returns every field of a record: "05ac:1393 0100 location path factory describe serial".
inline std::string to_string(const YUsbInfoDevice& record) {
  return YString::format("%04x:%04x %04x %s %s %s %s %s", record.vendorID(), record.productID(),
                         record.revisedID(), record.location().data(), record.instancePath().data(),
                         record.factory().data(), record.describe().data(), record.serialNumber().data())
      .data();
}

// Returns the locations of the list: "0x1 0x2".
inline std::string listed() {
  std::string locations;
  yusb::device_traverse(nullptr, [&](const YUsbInfoDevice& record) {
    locations += (locations.empty() ? "" : " ") + std::string(record.location().data());
    return true;
  });
  return locations;
}

// Lists devices that are not on the bus.
inline void append(const strings& locations) {
  for (const auto& each : locations) yusb::common_device_append(make_record(1, 1, each.c_str()));
}

// Records events as "+0x1 -0x1", "-(empty)" for an empty record, and then runs a function of the test.
class recorder : public yusb_device_event_interface {
 public:
  std::function<void(const YUsbInfoDevice&, _yusb_device_event)> then;

  void on_device_event(const YUsbInfoDevice& device, _yusb_device_event event) override {
    {
      const std::lock_guard<std::mutex> lock(_mutex);
      _heard += _heard.empty() ? "" : " ";
      _heard += "+-"[event] + std::string(device.empty() ? "(empty)" : device.location().data());
    }
    if (then) then(device, event);
  }

  // Returns the events since the last call.
  std::string take() {
    const std::lock_guard<std::mutex> lock(_mutex);
    return std::exchange(_heard, {});
  }

 private:
  std::mutex _mutex;
  std::string _heard;  // under _mutex
};

// Receives the log while it exists, as lines "1 text".
class log_capture {
 public:
  log_capture() { YLog::setSink(keep, this); }
  ~log_capture() { YLog::setSink(nullptr, nullptr); }

  // Returns the lines since the last call, at this level or above.
  strings take(char level = '0') {
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto below = [level](const std::string& line) { return line[0] < level; };
    _lines.erase(std::remove_if(_lines.begin(), _lines.end(), below), _lines.end());
    return std::exchange(_lines, {});
  }

 private:
  static void keep(EYORVAN_LOG_LEVEL level, const char* line, std::size_t size, void* self) {
    const std::lock_guard<std::mutex> lock(static_cast<log_capture*>(self)->_mutex);
    static_cast<log_capture*>(self)->_lines.push_back(std::to_string(level) + " " + std::string(line, size));
  }

  std::mutex _mutex;
  strings _lines;  // under _mutex
};

#ifdef YUSB_TESTS_HAVE_SIMULATOR
inline yusb::simulated_device make_device(std::uint16_t vendor, std::uint16_t product,
                                          std::uint32_t location) {
  yusb::simulated_device device;
  device.vendor = vendor;
  device.product = product;
  device.location = location;
  return device;
}

// The library on a simulated bus. The end of a test checks that nothing is leaked.
struct Library : testing::Test {
  void SetUp() override {
    yusb::global_initialize();
    settle();
    yusb::context_create(&context);
    ASSERT_NE(context, nullptr);
  }

  void TearDown() override {
    yusb::global_release();
    EXPECT_EQ(yusb::simulator::leaks(), strings());
  }

  void settle() { ASSERT_TRUE(bus.settle()); }
  void listen() { ASSERT_TRUE(yusb::context_notify_object_append(context, &client)); }

  // Attaches a device to the bus, as `id`, and returns its record.
  YUsbInfoDevice attach(const yusb::simulated_device& device) {
    id = bus.plug(device);
    settle();
    YUsbInfoDevice last;
    yusb::device_traverse(nullptr, [&](const YUsbInfoDevice& record) {
      last = record;
      return true;
    });
    return last;
  }

  log_capture log;
  yusb::simulator bus;
  recorder client;
  _yusb_context* context = nullptr;
  int id = 0;  // of the device that attach() attached last
};
#endif

#endif  // YUSB_TESTS_SUPPORT_H_
