@import YorvanUsbC;
@import YorvanUsbC.Simulator;

yusb_status free_both(yusb_queue* queue, yusb_simulator* bus) {
  const yusb_status status = yusb_queue_free(queue);
  return status == YUSB_OK ? yusb_simulator_free(bus) : status;
}
