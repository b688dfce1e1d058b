// The functions of libYorvanUsbC when out of memory.
#include <yusb_c.h>
#include <yusb_c_simulator.h>

#include "failing_memory.h"
#include "support.h"

namespace {

// Calls `function` with each of its allocations failing in turn. Each time it must return YUSB_OUT_OF_MEMORY;
// what it returns when none has failed is the result.
template <typename Function>
yusb_status when_each_allocation_fails(const char* name, Function function) {
  for (int which = 1;; ++which) {
    begin_failing(on::this_thread, which, false);
    const yusb_status status = function();
    if (!end_failing()) return status;
    EXPECT_EQ(status, YUSB_OUT_OF_MEMORY) << name << ", allocation " << which;
    if (status != YUSB_OUT_OF_MEMORY) return status;
  }
}

yusb_simulated_device phone() {
  static const yusb_interface adb = {sizeof adb,       0, 0xFF, 0x42, 1, "an interface with a name",
                                     "a kernel driver"};
  yusb_simulated_device made = {};
  made.size = sizeof made;
  made.vendor = 0x18D1;
  made.product = 0x4EE7;
  made.port_path = "1-2";
  made.manufacturer = "a manufacturer whose name is not short";
  made.product_name = "a product whose name is not short";
  made.interfaces = &adb;
  made.interface_count = 1;
  return made;
}

}  // namespace

TEST(COutOfMemory, IsAStatusAndNoEventIsLost) {
  yusb_log_threshold(YUSB_LOG_ERROR);
  yusb_simulator* bus = nullptr;
  int id = 0;
  EXPECT_EQ(when_each_allocation_fails("create", [&] { return yusb_simulator_create(&bus); }), YUSB_OK);
  ASSERT_EQ(yusb_start(), YUSB_OK);
  const yusb_simulated_device device = phone();
  ASSERT_EQ(yusb_simulator_plug(bus, &device, &id), YUSB_OK);
  ASSERT_EQ(yusb_settle(60'000), YUSB_OK);

  yusb_device_list* list = nullptr;
  yusb_details* details = nullptr;
  yusb_queue *queue = nullptr, *overflowed = nullptr;
  yusb_event* event = nullptr;
  yusb_queue_options options = {};
  options.size = sizeof options;
  ASSERT_EQ(yusb_queue_open(&options, &queue), YUSB_OK);
  options.capacity = 1;
  ASSERT_EQ(yusb_queue_open(&options, &overflowed), YUSB_OK);
  EXPECT_EQ(yusb_simulator_unplug(bus, id), YUSB_OK);
  EXPECT_EQ(yusb_simulator_plug(bus, &device, &id), YUSB_OK);
  ASSERT_EQ(yusb_settle(60'000), YUSB_OK);

  ASSERT_EQ(yusb_devices(&list), YUSB_OK);
  const yusb_device* const listed = list->devices[0];
  EXPECT_EQ(when_each_allocation_fails("details", [&] { return yusb_device_details(listed, &details); }),
            YUSB_OK);
  EXPECT_EQ(when_each_allocation_fails("openable", [&] { return yusb_wait_openable(listed, -1); }), YUSB_OK);
  for (const yusb_event_kind kind : {YUSB_ARRIVAL, YUSB_REMOVAL, YUSB_ARRIVAL}) {
    ASSERT_EQ(when_each_allocation_fails("next", [&] { return yusb_queue_next(queue, 0, &event); }), YUSB_OK);
    EXPECT_EQ(event->kind, kind);
    yusb_event_free(event);
  }
  ASSERT_EQ(when_each_allocation_fails("resync", [&] { return yusb_queue_next(overflowed, 0, &event); }),
            YUSB_OK);
  EXPECT_EQ(event->devices->count, 1u);
  yusb_event_free(event);

  yusb_filter filter = {};
  filter.size = sizeof filter;
  filter.name = "a product whose name is not short";
  filter.fields = YUSB_MATCH_VENDOR | YUSB_MATCH_INTERFACE_CLASS;
  filter.modes = 1;
  yusb_filter unknown = filter;
  unknown.tags = 1u << 31;  // ends the call before the queue registers
  const yusb_filter pair[] = {filter, unknown};
  options.filters = pair;
  options.filter_count = 2;
  EXPECT_EQ(when_each_allocation_fails("filter",
                                       [&] {
                                         yusb_queue* made = nullptr;
                                         return yusb_queue_open(&options, &made);
                                       }),
            YUSB_UNSUPPORTED);

  yusb_log_line* line = nullptr;
  EXPECT_EQ(when_each_allocation_fails("log", [&] { return yusb_log_keep(1); }), YUSB_OK);
  YLog::output(EYORVAN_LOG_LEVEL_ERROR, "a line that is longer than a short string");
  EXPECT_EQ(when_each_allocation_fails("line", [&] { return yusb_log_next(0, &line); }), YUSB_OK);
  yusb_log_line_free(line);
  begin_failing(on::this_thread, 1, false);
  YLog::output(EYORVAN_LOG_LEVEL_ERROR, "a line that cannot be kept");
  EXPECT_TRUE(end_failing());
  EXPECT_EQ(yusb_log_next(0, &line), YUSB_TIMED_OUT);
  YLog::output(EYORVAN_LOG_LEVEL_ERROR, "a line");
  ASSERT_EQ(yusb_log_next(0, &line), YUSB_OK);
  EXPECT_EQ(line->dropped, 1u);
  yusb_log_line_free(line);
  yusb_log_keep(0);

  yusb_details_free(details);
  yusb_device_list_free(list);
  EXPECT_EQ(yusb_queue_free(queue), YUSB_OK);
  EXPECT_EQ(yusb_queue_free(overflowed), YUSB_OK);
  EXPECT_EQ(yusb_stop(), YUSB_OK);
  EXPECT_EQ(yusb_simulator_free(bus), YUSB_OK);
}
