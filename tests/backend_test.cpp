// The backend on a simulated bus: what a device's answers become, what the handlers do with faults, and how
// the monitor thread starts and stops.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "platform/darwin/context.h"
#include "support.h"

namespace {

using bytes = std::vector<std::uint8_t>;

bytes utf16(std::initializer_list<int> units) {
  bytes reply = {0, 0};  // the header is not looked at
  for (const int unit : units) {
    reply.push_back(static_cast<std::uint8_t>(unit & 0xFF));
    reply.push_back(static_cast<std::uint8_t>(unit >> 8));
  }
  return reply;
}

YUsbInfoDevice only_record() {
  YUsbInfoDevice only;
  int count = 0;
  yusb::device_traverse(nullptr, [&](const YUsbInfoDevice& record) {
    only = record;
    return ++count != 0;
  });
  EXPECT_EQ(count, 1);
  return only;
}

strings at_level_4(const strings& lines) {
  strings found;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
               [](auto& line) { return line[0] == '4'; });
  return found;
}

}  // namespace

TEST_F(Library, FillsARecordFromADevice) {
  yusb::simulated_device device = make_device(0x05AC, 0x1393, 0xFD130000);
  device.release = 0x0216;
  device.manufacturer = "Appl\u00E9, Inc.";
  device.serial_number = "\u4E2D\u20AC";
  const int id = bus.plug(device);
  ASSERT_TRUE(bus.settle());
  const YUsbInfoDevice record = only_record();
  EXPECT_EQ(record.vendorID(), 0x05AC);
  EXPECT_EQ(record.productID(), 0x1393);
  EXPECT_EQ(record.revisedID(), 0x0216);
  EXPECT_STREQ(record.factory().data(), "Appl\xE9, Inc.");
  EXPECT_STREQ(record.describe().data(), "");
  EXPECT_STREQ(record.serialNumber().data(), "\x2D\xAC");
  EXPECT_STREQ(record.location().data(), "0xFD130000");
  EXPECT_STREQ(record.instancePath().data(), "0xFD130000");

  const auto requests = bus.requests(id);  // none for the product, which has no string
  ASSERT_EQ(requests.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(requests[i].request_type, 0x80);
    EXPECT_EQ(requests[i].request, 6);
    EXPECT_EQ(requests[i].value, i == 0 ? 0x0301 : 0x0303);
    EXPECT_EQ(requests[i].index, 0x0409);
    EXPECT_EQ(requests[i].length, 255);
  }
  EXPECT_TRUE(bus.unplug(id));
  ASSERT_TRUE(bus.settle());
  EXPECT_EQ(listed(), strings());
}

TEST_F(Library, TakesTheLowBytesOfAStringReply) {
  const bytes full(255, 'x');
  const struct {
    yusb::simulated_reply reply;
    std::string text;
  } cases[] = {
      {{0, {}, {}}, ""},
      {{0, {4}, {}}, ""},
      {{0, {4, 3}, {}}, ""},
      {{0, {4, 3, 'a'}, {}}, "a"},
      {{0, {4, 3, 'a', 0, 'b'}, {}}, "ab"},
      {{0, utf16({'a', 0x4E2D, 0x00E9, 0xD83D}), {}}, "a\x2D\xE9\x3D"},
      {{0, utf16({'a', 0x0100, 'b'}), {}}, "a"},
      {{0, utf16({' ', '\n', 'b', ' '}), {}}, " \nb "},
      {{0, full, {}}, std::string(127, 'x')},
      {{0, bytes(300, 'x'), {}}, std::string(127, 'x')},
      {{static_cast<std::int32_t>(0xe000404f), utf16({'a'}), {}}, ""},
  };
  for (const auto& each : cases) {
    yusb::simulated_device device = make_device(1, 2, 0x100);
    device.product_name = "replaced";
    device.replies[2] = each.reply;
    const int id = bus.plug(device);
    ASSERT_TRUE(bus.settle());
    EXPECT_EQ(only_record().describe(), YString(each.text.c_str())) << &each - cases;
    bus.unplug(id);
    ASSERT_TRUE(bus.settle());
  }
}

TEST_F(Library, LeavesOutWhatCannotBeReadAndGoesOn) {
  recorder client;
  yusb::context_notify_object_append(context, &client);
  std::vector<yusb::simulated_device> faulty(8, make_device(1, 2, 0));
  for (std::size_t i = 0; i < faulty.size(); ++i) faulty[i].location = static_cast<std::uint32_t>(0x10 + i);
  faulty[0].plugin_status = static_cast<std::int32_t>(0xe00002be);
  faulty[1].plugin_missing = true;
  faulty[2].interface_status = static_cast<std::int32_t>(0x80000004);
  faulty[3].interface_missing = true;
  faulty[4].failing = {yusb::simulated_number::vendor};
  faulty[5].failing = {yusb::simulated_number::product};
  faulty[6].failing = {yusb::simulated_number::release, yusb::simulated_number::location,
                       yusb::simulated_number::serial_number_index};
  faulty[6].serial_number = "unseen";
  faulty[7].location_property = false;
  bus.plug(make_device(1, 1, 0x1));
  std::vector<int> ids;
  for (const auto& each : faulty) ids.push_back(bus.plug(each));
  bus.plug(make_device(1, 1, 0x2));
  ASSERT_TRUE(bus.settle());
  EXPECT_EQ(client.take(), (strings{"+0x1", "+0x0", "+0x17", "+0x2"}));
  EXPECT_EQ(at_level_4(log.take()),
            (strings{
                "4 [ darwin_handle_device_append : 119 ] Unable to create a plug-in (e00002be)",
                "4 [ darwin_handle_device_append : 119 ] Unable to create a plug-in (00000000)",
                "4 [ darwin_handle_device_append : 128 ] Couldn't create a device interface (80000004)",
                "4 [ darwin_handle_device_append : 128 ] Couldn't create a device interface (00000000)",
            }));
  for (const int id : ids) bus.unplug(id);
  ASSERT_TRUE(bus.settle());
  // One removal a device, unknown ones empty, but none where the location is not known.
  EXPECT_EQ(client.take(), strings(7, "-(empty)"));
  EXPECT_EQ(listed(), (strings{"0x1", "0x0", "0x17", "0x2"}));
}

TEST(Monitor, RefusesASecondStartAndForgetsNothing) {
  yusb::simulator bus;
  EXPECT_FALSE(yusb::platform_hotplug_start(nullptr));
  _yusb_platform_context own;
  _yusb_platform_context* const context = &own;
  EXPECT_TRUE(yusb::platform_hotplug_stop(context));  // never started
  EXPECT_TRUE(context->stopRequested);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(yusb::platform_hotplug_start(context));
    EXPECT_FALSE(yusb::platform_hotplug_start(context));  // also when the thread has not begun
    ASSERT_TRUE(bus.settle());
    EXPECT_NE(context->runLoop, nullptr);
    EXPECT_TRUE(context->running);
    EXPECT_FALSE(yusb::platform_hotplug_start(context));
    EXPECT_TRUE(yusb::platform_hotplug_stop(context));
    EXPECT_EQ(context->runLoop, nullptr);
    EXPECT_FALSE(context->running);
    EXPECT_EQ(yusb::simulator::leaks(), strings());
  }
}

// A stop that arrives while the monitor thread is at a given call, or has not begun.
TEST(Monitor, StopsFromEveryWindowOfTheStart) {
  for (const char* window : {"", "IONotificationPortCreate", "IOServiceMatching", "CFRunLoopAddSource",
                             "IOServiceAddMatchingNotification", "CFRunLoopRun"}) {
    for (const bool with_devices : {false, true}) {
      SCOPED_TRACE(window);
      kept_log log;
      yusb::simulator bus;
      if (with_devices) bus.plug(make_device(1, 2, 3));
      std::atomic<bool> reached{*window == '\0'};
      std::atomic<bool> stopping{false};
      const std::thread::id host = std::this_thread::get_id();
      bus.before_calls([&](const char* call) {
        if (std::string(call) == window && std::this_thread::get_id() != host) {
          reached = true;
          yusb::global_release();  // refused here, where it would wait for itself
          while (!stopping) std::this_thread::yield();
          std::this_thread::sleep_for(
              std::chrono::milliseconds(5));  // the delay under test: the stop polls meanwhile
        }
        return true;
      });
      yusb::global_initialize();
      while (!reached) std::this_thread::yield();
      stopping = true;
      yusb::global_release();
      EXPECT_EQ(yusb::simulator::leaks(), strings());
    }
  }
}

TEST(Monitor, SurvivesASystemThatRefuses) {
  for (const char* refused : {"IONotificationPortCreate", "IONotificationPortGetRunLoopSource",
                              "IOServiceMatching", "IOServiceAddMatchingNotification"}) {
    SCOPED_TRACE(refused);
    kept_log log;
    yusb::simulator bus;
    bus.plug(make_device(1, 2, 3));
    bus.before_calls([&](const char* call) { return std::string(call) != refused; });
    yusb::global_initialize();
    strings errors;
    while (errors.empty()) errors = at_level_4(log.take());
    EXPECT_NE(errors[0].find("[ darwin_create_device_notify_thread : "), std::string::npos) << errors[0];
    EXPECT_EQ(listed(), strings());
    yusb::global_release();
    EXPECT_EQ(yusb::simulator::leaks(), strings());
  }
}
