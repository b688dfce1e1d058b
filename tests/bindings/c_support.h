// Helpers of the tests in C. Each case runs in its own process.
#ifndef YUSB_TESTS_BINDINGS_C_SUPPORT_H_
#define YUSB_TESTS_BINDINGS_C_SUPPORT_H_

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <yusb_c.h>
#include <yusb_c_simulator.h>

#define REQUIRE(condition)                                            \
  do {                                                                \
    if (!(condition)) {                                               \
      fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
      exit(1);                                                        \
    }                                                                 \
  } while (0)
#define REQUIRE_STATUS(call, expected)                                                          \
  do {                                                                                          \
    const yusb_status status_ = (call);                                                         \
    if (status_ != (expected)) {                                                                \
      fprintf(stderr, "%s:%d: %s: %s\n", __FILE__, __LINE__, #call, yusb_status_text(status_)); \
      exit(1);                                                                                  \
    }                                                                                           \
  } while (0)
#define REQUIRE_OK(call) REQUIRE_STATUS(call, YUSB_OK)
#define REQUIRE_TEXT(text, expected) REQUIRE(strcmp(text, expected) == 0)

enum { PATIENCE = 60000 };

static yusb_simulator* bus;  // made by start()

static inline void start(void) {
  REQUIRE_OK(yusb_log_threshold(YUSB_LOG_ERROR));
  REQUIRE_OK(yusb_simulator_create(&bus));
  REQUIRE_OK(yusb_start());
}

static inline void stop(void) {
  REQUIRE_OK(yusb_stop());
  REQUIRE_STATUS(yusb_stop(), YUSB_NOT_STARTED);
  REQUIRE_OK(yusb_simulator_free(bus));
}

static inline int plug(const char* port, uint16_t vendor, const char* serial_number) {
  const yusb_simulated_device device = {.size = sizeof device,
                                        .vendor = vendor,
                                        .product = 0x4EE7,
                                        .port_path = port,
                                        .product_name = "café 中",
                                        .serial_number = serial_number};
  int id = 0;
  REQUIRE_OK(yusb_simulator_plug(bus, &device, &id));
  REQUIRE_OK(yusb_settle(PATIENCE));
  return id;
}

static inline yusb_queue* open_queue(const yusb_queue_options* options) {
  yusb_queue* queue = NULL;
  REQUIRE_OK(yusb_queue_open(options, &queue));
  return queue;
}

static inline yusb_event* next(yusb_queue* queue) {
  yusb_event* event = NULL;
  REQUIRE_OK(yusb_queue_next(queue, PATIENCE, &event));
  return event;
}

// Requires that the queue's next event is of the device with this serial number.
static inline void expect(yusb_queue* queue, yusb_event_kind kind, const char* serial_number) {
  yusb_event* const event = next(queue);
  REQUIRE(event->kind == kind && event->devices == NULL);
  REQUIRE_TEXT(event->device->serial_number, serial_number);
  REQUIRE_OK(yusb_event_free(event));
}

struct test_case {
  const char* name;
  void (*run)(void);
};
#define CASE(name) \
  { #name, name }

// Runs the case that the program's argument names.
static inline int run_case(const struct test_case* cases, size_t count, int argument_count,
                           char** arguments) {
  for (size_t i = 0; argument_count == 2 && i < count; ++i) {
    if (strcmp(arguments[1], cases[i].name) == 0) {
      cases[i].run();
      return 0;
    }
  }
  return 2;
}

#endif  // YUSB_TESTS_BINDINGS_C_SUPPORT_H_
