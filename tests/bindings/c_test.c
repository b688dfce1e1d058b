// libYorvanUsbC from C: lifetimes, counted users, the log, sizes, forks. What the structures contain, and the
// descriptor of a queue, is tested in Python, which calls the same library.
#define _POSIX_C_SOURCE 200809L
#include <sys/wait.h>
#include <unistd.h>

#include "c_support.h"

static void keeps_an_event_after_its_queue_and_the_library(void) {
  start();
  const int id = plug("1-2", 0x18D1, "A");
  yusb_queue* const queue = open_queue(NULL);
  yusb_event* const arrival = next(queue);
  REQUIRE_OK(yusb_simulator_unplug(bus, id));
  expect(queue, YUSB_REMOVAL, "A");
  REQUIRE_OK(yusb_queue_free(queue));
  stop();
  REQUIRE(arrival->kind == YUSB_ARRIVAL && YUSB_HAS(yusb_device, serial_number, arrival->device));
  REQUIRE(arrival->device->vendor == 0x18D1 && arrival->device->tags == YUSB_ANDROID);
  REQUIRE_TEXT(arrival->device->location, "0x1200000");
  REQUIRE_TEXT(arrival->device->serial_number, "A");
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
}

static void keeps_the_log(void) {
  yusb_log_line* line = NULL;
  REQUIRE_OK(yusb_log_keep(2));
  REQUIRE_OK(yusb_simulator_create(&bus));
  REQUIRE_OK(yusb_start());
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
  REQUIRE_OK(yusb_log_keep(0));
  stop();
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
    // Allocated without what is behind it.
    const size_t allocated = size < sizeof size ? sizeof size : size;
    char* const given = calloc(1, allocated);
    REQUIRE(given != NULL);
    memcpy(given, &filter, allocated < sizeof filter ? allocated : sizeof filter);
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
  yusb_queue_options options = {
      .size = sizeof options, .filters = (const yusb_filter*)(void*)pair, .filter_count = 2};
  yusb_queue* queue = open_queue(&options);
  expect(queue, YUSB_ARRIVAL, "A");
  REQUIRE_OK(yusb_queue_free(queue));
  free(pair);

  const yusb_filter not_utf8 = {.size = sizeof not_utf8, .name = "\xC3"};
  options.filters = &not_utf8;
  options.filter_count = 1;
  REQUIRE_STATUS(yusb_queue_open(&options, &queue), YUSB_INVALID_ARGUMENT);
  options.size = SIZE_MAX;  // not initialised
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
  const struct test_case cases[] = {CASE(keeps_an_event_after_its_queue_and_the_library),
                                    CASE(counts_its_users), CASE(keeps_the_log),
                                    CASE(respects_the_callers_sizes), CASE(answers_in_a_forked_child)};
  return run_case(cases, sizeof cases / sizeof *cases, count, arguments);
}
