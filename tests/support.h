// What the tests of the library share: a client that records, a log that is kept, a library on a simulated
// bus.
#ifndef YUSB_TESTS_SUPPORT_H_
#define YUSB_TESTS_SUPPORT_H_

#include <YorvanCore/YLog.h>
#include <gtest/gtest.h>
#include <yusb.h>
#if __has_include(<yusb_simulator.h>)  // a Mac has none
#include <yusb_simulator.h>
#define YUSB_TESTS_HAVE_SIMULATOR
#endif

#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

inline YUsbInfoDevice make_record(unsigned short vendor, unsigned short product, const char* location,
                                  const char* path = nullptr) {
  YUsbInfoDevice record;
  record.setVendorID(vendor);
  record.setProductID(product);
  record.setRevisedID(0x0100);
  record.setLocation(location);
  record.setInstancePath(path == nullptr ? location : path);
  return record;
}

inline std::vector<std::string> listed() {
  std::vector<std::string> locations;
  yusb::device_traverse(nullptr, [&](const YUsbInfoDevice& record) {
    locations.emplace_back(record.location().data());
    return true;
  });
  return locations;
}

// Keeps events as "+0x1" and "-0x1", of an empty record as "-(empty)", and then does what the test wants.
class recorder : public yusb_device_event_interface {
 public:
  std::function<void(const YUsbInfoDevice&, _yusb_device_event)> then;

  void on_device_event(const YUsbInfoDevice& device, _yusb_device_event event) override {
    {
      const std::lock_guard<std::mutex> lock(_mutex);
      _events.push_back(event == YUSB_DEVICE_EVENT_APPEND ? "+" : "-");
      _events.back() += device.empty() ? "(empty)" : device.location().data();
    }
    if (then) then(device, event);
  }

  // What was heard since the last call.
  std::vector<std::string> take() {
    const std::lock_guard<std::mutex> lock(_mutex);
    return std::exchange(_events, {});
  }

 private:
  std::mutex _mutex;
  std::vector<std::string> _events;  // under _mutex
};

// Takes the log for as long as it lives; lines as "1 text".
class kept_log {
 public:
  kept_log() { YLog::setSink(keep, this); }
  ~kept_log() { YLog::setSink(nullptr, nullptr); }
  kept_log(const kept_log&) = delete;
  kept_log& operator=(const kept_log&) = delete;

  std::vector<std::string> take() {
    const std::lock_guard<std::mutex> lock(_mutex);
    return std::exchange(_lines, {});
  }

 private:
  static void keep(EYORVAN_LOG_LEVEL level, const char* line, std::size_t size, void* self) {
    auto& log = *static_cast<kept_log*>(self);
    const std::lock_guard<std::mutex> lock(log._mutex);
    log._lines.push_back(std::to_string(level) + " " + std::string(line, size));
  }

  std::mutex _mutex;
  std::vector<std::string> _lines;  // under _mutex
};

using strings = std::vector<std::string>;

#ifdef YUSB_TESTS_HAVE_SIMULATOR
inline yusb::simulated_device make_device(std::uint16_t vendor, std::uint16_t product,
                                          std::uint32_t location) {
  yusb::simulated_device device;
  device.vendor = vendor;
  device.product = product;
  device.release = 0x0100;
  device.location = location;
  return device;
}

// The library on a simulated bus. A test that ends leaves nothing behind.
class Library : public testing::Test {
 protected:
  void SetUp() override {
    yusb::global_initialize();
    ASSERT_TRUE(bus.settle());
    yusb::context_create(&context);
    ASSERT_NE(context, nullptr);
  }

  void TearDown() override {
    yusb::global_release();
    EXPECT_EQ(yusb::simulator::leaks(), strings());
  }

  kept_log log;
  yusb::simulator bus;
  _yusb_context* context = nullptr;
};
#endif

#endif  // YUSB_TESTS_SUPPORT_H_
