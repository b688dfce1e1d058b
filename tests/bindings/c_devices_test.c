// Devices and events through libYorvanUsbC.
#include <poll.h>

#include "c_support.h"

static void follows_devices(void) {
  start();
  const int first = plug("1-2", 0x18D1, "A");
  yusb_queue* const queue = open_queue(NULL);
  const int second = plug("1-2.3", 0x05AC, "B");
  REQUIRE_OK(yusb_simulator_unplug(bus, first));
  REQUIRE_STATUS(yusb_simulator_unplug(bus, first), YUSB_GONE);

  yusb_event* const arrival = next(queue);
  const yusb_device* const device = arrival->device;
  REQUIRE(arrival->size == sizeof *arrival && YUSB_HAS(yusb_device, serial_number, device));
  REQUIRE(arrival->kind == YUSB_ARRIVAL && device->vendor == 0x18D1 && device->product == 0x4EE7);
  REQUIRE(device->release == 0x0440 && device->tags == YUSB_ANDROID);
  REQUIRE_TEXT(device->location, "0x1200000");
  REQUIRE_TEXT(device->manufacturer, "Maker");
  REQUIRE_TEXT(device->product_name, "café -");  // the low bytes
  REQUIRE_TEXT(device->serial_number, "A");
  expect(queue, YUSB_ARRIVAL, "B");
  expect(queue, YUSB_REMOVAL, "A");

  yusb_device_list* list = NULL;
  REQUIRE_OK(yusb_devices(&list));
  REQUIRE(list->count == 1 && list->devices[0]->tags == YUSB_APPLE);
  REQUIRE_TEXT(list->devices[0]->serial_number, "B");
  REQUIRE_OK(yusb_device_list_free(list));

  // An event outlives its queue, and the library.
  REQUIRE_OK(yusb_simulator_unplug(bus, second));
  expect(queue, YUSB_REMOVAL, "B");
  expect_nothing(queue);
  stop();
  REQUIRE_TEXT(device->serial_number, "A");
  REQUIRE_OK(yusb_event_free(arrival));
}

static void has_a_descriptor(void) {
  start();
  yusb_queue* const queue = open_queue(NULL);
  struct pollfd waited = {.events = POLLIN};
  int again = -1;
  REQUIRE_OK(yusb_queue_descriptor(queue, &waited.fd));
  REQUIRE_OK(yusb_queue_descriptor(queue, &again));
  REQUIRE(again == waited.fd && poll(&waited, 1, 0) == 0);
  plug("1-2", 0x18D1, "A");
  REQUIRE(poll(&waited, 1, PATIENCE) == 1);
  expect(queue, YUSB_ARRIVAL, "A");
  REQUIRE(poll(&waited, 1, 0) == 0);
  REQUIRE_OK(yusb_queue_close(queue));
  REQUIRE(poll(&waited, 1, 0) == 1);
  REQUIRE_OK(yusb_queue_free(queue));
  stop();
}

static void resynchronises(void) {
  start();
  yusb_queue* const queue = open_queue(
      &(yusb_queue_options){.size = sizeof(yusb_queue_options), .capacity = 1, .removals_at_close = true});
  plug("1-1", 0x18D1, "A");
  plug("1-2", 0x18D1, "B");
  yusb_event* const event = next(queue);
  REQUIRE(event->kind == YUSB_RESYNC && event->device == NULL && event->devices->count == 2);
  REQUIRE_TEXT(event->devices->devices[1]->serial_number, "B");
  REQUIRE_OK(yusb_event_free(event));
  REQUIRE_OK(yusb_queue_close(queue));  // two removals do not fit either
  yusb_event* const last = next(queue);
  REQUIRE(last->kind == YUSB_RESYNC && last->devices->count == 0);
  REQUIRE_OK(yusb_event_free(last));
  REQUIRE_OK(yusb_queue_free(queue));
  stop();
}

static void filters(void) {
  start();
  const yusb_interface interfaces[] = {
      {.size = sizeof(yusb_interface), .class_code = 0xFF, .subclass = 0x42, .protocol = 1},
      {.size = sizeof(yusb_interface), .number = 1, .class_code = 8, .protocol = 0x50}};
  const yusb_simulated_device phone = {.size = sizeof phone,
                                       .vendor = 0x18D1,
                                       .product = 1,
                                       .port_path = "1-4",
                                       .product_name = "Télé Phone",
                                       .serial_number = "P",
                                       .interface_count = 2,
                                       .interfaces = interfaces};
  int id = 0;
  REQUIRE_OK(yusb_simulator_plug(bus, &phone, &id));
  plug("1-5", 0x05AC, "Q");
  plug("1-6", 0x1209, "R");
  EXPECT_FILTERED("PQ", .port_path = "1-6", .except = true);
  EXPECT_FILTERED("P", .fields = YUSB_MATCH_VENDOR, .vendor = 0x18D1);
  EXPECT_FILTERED("Q", .fields = YUSB_MATCH_PRODUCT, .product = 0x4EE7, .tags = YUSB_APPLE);
  EXPECT_FILTERED("P", .fields = YUSB_MATCH_CLASS, .class_code = 8);
  EXPECT_FILTERED("P", .fields = YUSB_MATCH_INTERFACE_CLASS | YUSB_MATCH_INTERFACE_PROTOCOL,
                  .interface_class = 8, .interface_protocol = 0x50);
  EXPECT_FILTERED("", .fields = YUSB_MATCH_INTERFACE_CLASS | YUSB_MATCH_INTERFACE_SUBCLASS,
                  .interface_class = 8, .interface_subclass = 0x42);
  EXPECT_FILTERED("P", .modes = 1u << YUSB_MODE_ADB | 1u << YUSB_MODE_MASS_STORAGE);
  EXPECT_FILTERED("", .modes = 1u << YUSB_MODE_ADB | 1u << YUSB_MODE_FASTBOOT);
  EXPECT_FILTERED("P", .name = "pHONE");
  EXPECT_FILTERED("Q", .location = "0x1500000");
  EXPECT_FILTERED("R", .serial_number = "R");
  const yusb_filter either[] = {{.size = sizeof(yusb_filter), .serial_number = "Q"},
                                {.size = sizeof(yusb_filter), .tags = YUSB_ANDROID}};
  expect_filtered(either, 2, "PQ");
  expect_filtered(NULL, 0, "PQR");
  stop();
}

static void reads_details(void) {
  start();
  const yusb_interface adb = {.size = sizeof adb,
                              .class_code = 0xFF,
                              .subclass = 0x42,
                              .protocol = 1,
                              .name = "ADB",
                              .driver = "usbfs"};
  const yusb_simulated_device phone = {.size = sizeof phone,
                                       .vendor = 0x18D1,
                                       .product = 1,
                                       .port_path = "1-4",
                                       .product_name = "電話",
                                       .speed = 5000,
                                       .interface_count = 1,
                                       .interfaces = &adb,
                                       .openable_after = -1};
  int id = 0;
  REQUIRE_OK(yusb_simulator_plug(bus, &phone, &id));
  yusb_queue* const queue = open_queue(NULL);
  yusb_event* const event = next(queue);
  yusb_details* details = NULL;
  REQUIRE_OK(yusb_device_details(event->device, &details));
  REQUIRE(details->bus == 1 && details->speed == 5000 && details->usb_version == 0x0200 &&
          details->max_power == 500);
  REQUIRE_TEXT(details->port_path, "1-4");
  REQUIRE_TEXT(details->product_name, "電話");
  REQUIRE_TEXT(details->manufacturer, "");
  REQUIRE(details->interface_count == 1 && details->interfaces[0]->subclass == 0x42);
  REQUIRE_TEXT(details->interfaces[0]->name, "ADB");
  REQUIRE_TEXT(details->interfaces[0]->driver, "usbfs");
  REQUIRE(details->modes == 1u << YUSB_MODE_ADB);
  REQUIRE_OK(yusb_details_free(details));

  const char* name = NULL;
  yusb_mode mode = YUSB_MODE_ADB;
  REQUIRE_OK(yusb_mode_name(YUSB_MODE_SMART_CARD, &name));
  REQUIRE_OK(yusb_parse_mode(name, &mode));
  REQUIRE(mode == YUSB_MODE_SMART_CARD);
  REQUIRE_STATUS(yusb_mode_name((yusb_mode)22, &name), YUSB_UNSUPPORTED);
  REQUIRE_STATUS(yusb_parse_mode("nonsense", &mode), YUSB_UNSUPPORTED);

  REQUIRE_STATUS(yusb_wait_openable(event->device, 0), YUSB_TIMED_OUT);
  REQUIRE_OK(yusb_simulator_open_node(bus, id));
  REQUIRE_OK(yusb_wait_openable(event->device, PATIENCE));
  REQUIRE_OK(yusb_simulator_unplug(bus, id));
  REQUIRE_STATUS(yusb_wait_openable(event->device, -1), YUSB_GONE);
  REQUIRE_STATUS(yusb_device_details(event->device, &details), YUSB_GONE);
  REQUIRE_OK(yusb_event_free(event));
  REQUIRE_OK(yusb_queue_free(queue));
  stop();
}

int main(int count, char** arguments) {
  const struct test_case cases[] = {CASE(follows_devices), CASE(has_a_descriptor), CASE(resynchronises),
                                    CASE(filters), CASE(reads_details)};
  return run_case(cases, sizeof cases / sizeof *cases, count, arguments);
}
