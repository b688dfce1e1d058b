// libYorvanUsbC beside C++ code in one process, and on several threads.
#include <yusb_c.h>
#include <yusb_c_simulator.h>

#include "support.h"

namespace {

// The number of devices, one after the other.
void plug_and_unplug(yusb_simulator* bus, int times) {
  for (int i = 0; i < times; ++i) {
    yusb_simulated_device device = {};
    device.size = sizeof device;
    device.vendor = 0x18D1;
    device.product = 0x4EE7;
    device.location = 0x01100000 + static_cast<std::uint32_t>(i);
    int id = 0;
    EXPECT_EQ(yusb_simulator_plug(bus, &device, &id), YUSB_OK);
    EXPECT_EQ(yusb_settle(60'000), YUSB_OK);
    EXPECT_EQ(yusb_simulator_unplug(bus, id), YUSB_OK);
  }
}

std::string listed_in_c() {
  yusb_device_list* list = nullptr;
  if (const yusb_status status = yusb_devices(&list)) return yusb_status_text(status);
  std::string locations;
  for (std::size_t i = 0; i < list->count; ++i) locations += list->devices[i]->location;
  yusb_device_list_free(list);
  return locations;
}

}  // namespace

TEST_F(Library, OfAHostIsSharedWithCAndLeftRunning) {
  bus.plug(make_device(1, 2, 0x100));
  settle();
  EXPECT_EQ(yusb_start(), YUSB_OK);
  EXPECT_EQ(listed_in_c(), "0x100");
  EXPECT_EQ(yusb_stop(), YUSB_OK);
  EXPECT_EQ(listed_in_c(), yusb_status_text(YUSB_NOT_STARTED));
  listen();
  EXPECT_EQ(client.take(), "+0x100");
}

TEST_F(Library, RefusesAHandlerThatCallsC) {
  yusb_queue* queue = nullptr;
  yusb_queue* second = nullptr;
  ASSERT_EQ(yusb_start(), YUSB_OK);
  ASSERT_EQ(yusb_queue_open(nullptr, &queue), YUSB_OK);
  std::vector<yusb_status> statuses;
  client.then = [&](const YUsbInfoDevice&, _yusb_device_event) {
    yusb_device_list* list = nullptr;
    yusb_device device = {};
    device.size = sizeof device;
    statuses = {yusb_start(),
                yusb_stop(),
                yusb_settle(-1),
                yusb_devices(&list),
                yusb_queue_free(queue),
                yusb_queue_open(nullptr, &second),
                yusb_queue_close(queue),
                yusb_wait_openable(&device, -1)};
  };
  listen();
  append({"0x1"});
  EXPECT_EQ(statuses, std::vector<yusb_status>(8, YUSB_REFUSED));
  client.then = nullptr;
  EXPECT_EQ(yusb_queue_free(queue), YUSB_OK);
  EXPECT_EQ(yusb_stop(), YUSB_OK);
}

TEST(C, UsersOnManyThreadsStartAndStopTheLibraryAtAnyTime) {
  yusb_log_threshold(YUSB_LOG_ERROR);
  yusb_simulator* bus = nullptr;
  ASSERT_EQ(yusb_simulator_create(&bus), YUSB_OK);
  const auto user = [&](bool plugs) {
    for (int round = 0; round < 20; ++round) {
      yusb_queue* queue = nullptr;
      yusb_event* event = nullptr;
      EXPECT_EQ(yusb_start(), YUSB_OK);
      EXPECT_EQ(yusb_queue_open(nullptr, &queue), YUSB_OK);
      EXPECT_EQ(yusb_stop(), YUSB_OK);  // the queue keeps it
      if (plugs) plug_and_unplug(bus, 5);
      listed_in_c();
      while (yusb_queue_next(queue, 0, &event) == YUSB_OK) yusb_event_free(event);
      EXPECT_EQ(yusb_queue_free(queue), YUSB_OK);
    }
  };
  std::vector<std::thread> users;
  for (int i = 0; i < 4; ++i) users.emplace_back(user, i == 0);
  for (std::thread& each : users) each.join();
  EXPECT_EQ(yusb_stop(), YUSB_NOT_STARTED);
  EXPECT_EQ(yusb_simulator_free(bus), YUSB_OK);
  EXPECT_EQ(yusb::simulator::leaks(), strings());
}
