// Follows the steps of its input, waiting with poll, and prints what it sees.
#include <inttypes.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <yusb_c_simulator.h>

static void require(yusb_status status) {
  if (status == YUSB_OK) return;
  fprintf(stderr, "%s\n", yusb_status_text(status));
  exit(1);
}

static void print_next(yusb_queue* queue) {
  struct pollfd waited = {.events = POLLIN};
  yusb_event* event = NULL;
  require(yusb_queue_descriptor(queue, &waited.fd));
  if (poll(&waited, 1, 60000) != 1) exit(1);
  require(yusb_queue_next(queue, 0, &event));
  const yusb_device* device = event->device;
  printf("%c%s %04" PRIx16 ":%04" PRIx16 " %" PRIu32 " %s\n", event->kind == YUSB_ARRIVAL ? '+' : '-',
         device->location, device->vendor, device->product, device->tags, device->serial_number);
  require(yusb_event_free(event));
}

int main(void) {
  static int ids[10000];
  yusb_simulator* bus = NULL;
  yusb_queue* queue = NULL;
  char what[8], port[24], serial_number[24];
  unsigned vendor = 0, product = 0;
  require(yusb_log_threshold(YUSB_LOG_ERROR));
  require(yusb_simulator_create(&bus));
  require(yusb_start());
  require(yusb_queue_open(NULL, &queue));
  for (int step = 0; scanf("%7s %23s", what, port) == 2; ++step) {
    if (strcmp(what, "plug") == 0) {
      if (scanf("%u %u %23s", &vendor, &product, serial_number) != 3) return 1;
      const yusb_simulated_device device = {.size = sizeof device,
                                            .vendor = (uint16_t)vendor,
                                            .product = (uint16_t)product,
                                            .port_path = port,
                                            .serial_number = serial_number};
      require(yusb_simulator_plug(bus, &device, &ids[step]));
    } else {
      require(yusb_simulator_unplug(bus, ids[atoi(port)]));
    }
    require(yusb_settle(60000));
    if (step % 100 == 99) {  // a hundred are queued
      for (int i = 0; i < 100; ++i) print_next(queue);
    }
  }
  require(yusb_queue_free(queue));
  require(yusb_stop());
  require(yusb_simulator_free(bus));
  return 0;
}
