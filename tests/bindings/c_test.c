// libYorvanUsbC from C: events, counted users, the log, null and other sizes, forks. What the structures
// contain is tested in Python, which calls the same library.
#define _POSIX_C_SOURCE 200809L
#include <sys/wait.h>
#include <unistd.h>

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

// Starts are counted, and each queue counts as a user.
static void counts_its_users(void) {
  yusb_device_list* list = NULL;
  yusb_simulator* second = NULL;
  yusb_queue* queue = NULL;
  REQUIRE_STATUS(yusb_devices(&list), YUSB_NOT_STARTED);
  REQUIRE_STATUS(yusb_queue_open(NULL, &queue), YUSB_NOT_STARTED);
  REQUIRE_STATUS(yusb_settle(0), YUSB_NOT_STARTED);
  start();
  REQUIRE_STATUS(yusb_simulator_create(&second), YUSB_BUSY);
  queue = open_queue(NULL);
  REQUIRE_OK(yusb_start());
  REQUIRE_OK(yusb_stop());
  REQUIRE_OK(yusb_stop());
  REQUIRE_STATUS(yusb_stop(), YUSB_NOT_STARTED);  // what is left is the queue's use
  REQUIRE_STATUS(yusb_simulator_free(bus), YUSB_BUSY);
  plug("1-1", 0x18D1, "A");
  expect(queue, YUSB_ARRIVAL, "A");
  REQUIRE_OK(yusb_queue_free(queue));
  REQUIRE_STATUS(yusb_devices(&list), YUSB_NOT_STARTED);
  REQUIRE_OK(yusb_simulator_free(bus));
  start();  // again, on another bus
  REQUIRE_OK(yusb_devices(&list));
  REQUIRE(list->count == 0);
  REQUIRE_OK(yusb_device_list_free(list));
  stop();
}

static void keeps_the_log(void) {
  yusb_log_line* line = NULL;
  REQUIRE_OK(yusb_log_keep(2));
  REQUIRE_OK(yusb_simulator_create(&bus));
  REQUIRE_OK(yusb_start());
  REQUIRE_STATUS(yusb_log_next(0, &line), YUSB_TIMED_OUT);
  plug("1-1", 0x18D1, "é");  // nine lines, the last with the product
  REQUIRE_OK(yusb_log_next(PATIENCE, &line));
  REQUIRE(line->level == YUSB_LOG_INFO && line->dropped == 7);
  REQUIRE_OK(yusb_log_line_free(line));
  REQUIRE_OK(yusb_log_next(PATIENCE, &line));
  REQUIRE(line->dropped == 0 && strstr(line->text, "café -") != NULL);
  REQUIRE_OK(yusb_log_line_free(line));
  REQUIRE_OK(yusb_log_threshold(YUSB_LOG_ERROR));
  plug("1-2", 0x18D1, "B");
  REQUIRE_STATUS(yusb_log_next(0, &line), YUSB_TIMED_OUT);
  REQUIRE_STATUS(yusb_log_threshold((yusb_log_level)6), YUSB_INVALID_ARGUMENT);
  REQUIRE_OK(yusb_log_keep(0));
  stop();
}

#define REFUSED(call) REQUIRE_STATUS(call, YUSB_INVALID_ARGUMENT)

static void refuses_null(void) {
  start();
  yusb_queue* const queue = open_queue(NULL);
  const yusb_simulated_device device = {.size = sizeof device, .port_path = "1-1"};
  const yusb_simulated_device nowhere = {.size = sizeof nowhere, .port_path = "a"};
  yusb_details* details = NULL;
  yusb_event* event = NULL;
  yusb_mode mode;
  int number = 0;
  REFUSED(yusb_bus_present(NULL));
  REFUSED(yusb_devices(NULL));
  REFUSED(yusb_queue_open(NULL, NULL));
  REFUSED(yusb_queue_next(queue, 0, NULL));
  REFUSED(yusb_queue_next(NULL, 0, &event));
  REFUSED(yusb_queue_descriptor(queue, NULL));
  REFUSED(yusb_queue_descriptor(NULL, &number));
  REFUSED(yusb_queue_close(NULL));
  REFUSED(yusb_device_details(NULL, &details));
  REFUSED(yusb_device_details(&(yusb_device){.size = sizeof(yusb_device)}, NULL));
  REFUSED(yusb_mode_name(YUSB_MODE_ADB, NULL));
  REFUSED(yusb_parse_mode(NULL, &mode));
  REFUSED(yusb_parse_mode("adb", NULL));
  REFUSED(yusb_wait_openable(NULL, 0));
  REFUSED(yusb_log_next(0, NULL));
  REFUSED(yusb_simulator_create(NULL));
  REFUSED(yusb_simulator_plug(NULL, &device, &number));
  REFUSED(yusb_simulator_plug(bus, NULL, &number));
  REFUSED(yusb_simulator_plug(bus, &device, NULL));
  REFUSED(yusb_simulator_plug(bus, &nowhere, &number));
  REFUSED(yusb_simulator_unplug(NULL, 1));
  REFUSED(yusb_simulator_open_node(NULL, 1));
  REQUIRE_OK(yusb_device_list_free(NULL));
  REQUIRE_OK(yusb_event_free(NULL));
  REQUIRE_OK(yusb_details_free(NULL));
  REQUIRE_OK(yusb_log_line_free(NULL));
  REQUIRE_OK(yusb_queue_free(NULL));
  REQUIRE_OK(yusb_simulator_free(NULL));
  REQUIRE_OK(yusb_queue_free(queue));
  stop();
}

// A structure of a caller that was built with another size, at the end of its memory.
static void* sized(const void* structure, size_t known, size_t size) {
  char* const copy = calloc(1, size);
  REQUIRE(copy != NULL);
  memcpy(copy, structure, size < known ? size : known);
  memcpy(copy, &size, sizeof size);
  return copy;
}

static void respects_the_callers_sizes(void) {
  start();
  plug("1-1", 0x18D1, "A");
  const yusb_filter filter = {.tags = YUSB_APPLE, .modes = 1};
  const size_t before_modes = offsetof(yusb_filter, modes);
  const struct {
    size_t size;
    size_t set;  // a byte of it that is not 0
    yusb_status status;
  } callers[] = {{0, 0, YUSB_INVALID_ARGUMENT},
                 {before_modes, 0, YUSB_OK},
                 {sizeof filter + 8, 0, YUSB_OK},
                 {sizeof filter + 8, sizeof filter + 7, YUSB_UNSUPPORTED}};
  for (size_t i = 0; i < sizeof callers / sizeof *callers; ++i) {
    const size_t size = callers[i].size;
    char* const given = sized(&filter, sizeof filter, size < sizeof size ? sizeof size : size);
    memcpy(given, &size, sizeof size);
    if (callers[i].set != 0) given[callers[i].set] = 1;
    yusb_queue* queue = NULL;
    const yusb_queue_options options = {.size = sizeof options, .filters = (void*)given, .filter_count = 1};
    REQUIRE_STATUS(yusb_queue_open(&options, &queue), callers[i].status);
    REQUIRE_OK(yusb_queue_free(queue));
    free(given);
  }
  // An array has the stride of its caller's structures.
  const yusb_filter android = {.tags = YUSB_ANDROID};
  char* const pair = calloc(2, before_modes);
  REQUIRE(pair != NULL);
  for (int i = 0; i < 2; ++i) {
    memcpy(pair + (size_t)i * before_modes, i == 0 ? &filter : &android, before_modes);
    memcpy(pair + (size_t)i * before_modes, &before_modes, sizeof before_modes);
  }
  expect_filtered((const yusb_filter*)(void*)pair, 2, "A");
  free(pair);

  const yusb_filter unknown = {.size = sizeof unknown, .tags = 1u << 31};
  const yusb_filter half = {.size = sizeof half, .fields = YUSB_MATCH_INTERFACE_PROTOCOL};
  const yusb_filter not_utf8 = {.size = sizeof not_utf8, .name = "\xC3"};
  yusb_queue* queue = NULL;
  yusb_queue_options options = {.size = sizeof options, .filters = &unknown, .filter_count = 1};
  REQUIRE_STATUS(yusb_queue_open(&options, &queue), YUSB_UNSUPPORTED);
  options.filters = &half;
  REQUIRE_STATUS(yusb_queue_open(&options, &queue), YUSB_INVALID_ARGUMENT);
  options.filters = &not_utf8;
  REQUIRE_STATUS(yusb_queue_open(&options, &queue), YUSB_INVALID_ARGUMENT);
  options.filter_count = SIZE_MAX;
  REQUIRE_STATUS(yusb_queue_open(&options, &queue), YUSB_OUT_OF_MEMORY);
  options.filter_count = 1;
  options.size = SIZE_MAX;
  REQUIRE_STATUS(yusb_queue_open(&options, &queue), YUSB_INVALID_ARGUMENT);
  options.size = sizeof options;
  options.filters = NULL;
  REQUIRE_STATUS(yusb_queue_open(&options, &queue), YUSB_INVALID_ARGUMENT);
  stop();
}

static void in_a_child(int (*child)(yusb_queue*), yusb_queue* queue) {
  const pid_t process = fork();
  if (process == 0) _exit(child(queue));
  int status = 0;
  REQUIRE(waitpid(process, &status, 0) == process);
  REQUIRE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// Returns the number of the first call that does not answer YUSB_FORKED.
static int child_of_a_user(yusb_queue* queue) {
  const yusb_device device = {.size = sizeof device};
  yusb_device_list* list = NULL;
  yusb_event* event = NULL;
  yusb_details* details = NULL;
  yusb_queue* another = NULL;
  int number = 0;
  const yusb_status statuses[] = {yusb_start(),
                                  yusb_stop(),
                                  yusb_settle(-1),
                                  yusb_devices(&list),
                                  yusb_queue_open(NULL, &another),
                                  yusb_queue_next(queue, -1, &event),
                                  yusb_queue_descriptor(queue, &number),
                                  yusb_queue_close(queue),
                                  yusb_queue_free(queue),
                                  yusb_device_details(&device, &details),
                                  yusb_wait_openable(&device, -1),
                                  yusb_log_keep(1),
                                  yusb_simulator_unplug(bus, 1),
                                  yusb_simulator_free(bus)};
  for (size_t i = 0; i < sizeof statuses / sizeof *statuses; ++i) {
    if (statuses[i] != YUSB_FORKED) return (int)i + 1;
  }
  return 0;
}

static int child_of_a_program_that_has_stopped(yusb_queue* queue) {
  start();
  queue = open_queue(NULL);
  plug("1-1", 0x18D1, "A");
  expect(queue, YUSB_ARRIVAL, "A");
  REQUIRE_OK(yusb_queue_free(queue));
  stop();
  return 0;
}

static void answers_in_a_forked_child(void) {
  start();
  yusb_queue* const queue = open_queue(NULL);
  in_a_child(child_of_a_user, queue);
  REQUIRE_OK(yusb_queue_free(queue));
  stop();
  in_a_child(child_of_a_program_that_has_stopped, NULL);
}

int main(int count, char** arguments) {
  const struct test_case cases[] = {
      CASE(follows_devices), CASE(counts_its_users),           CASE(keeps_the_log),
      CASE(refuses_null),    CASE(respects_the_callers_sizes), CASE(answers_in_a_forked_child)};
  return run_case(cases, sizeof cases / sizeof *cases, count, arguments);
}
