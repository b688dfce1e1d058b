// Opens the library, registers on it and leaves it again; what is attached to the host does not matter.
#include <yusb.h>

#include <cstdio>

class counter : public yusb_device_event_interface {
 public:
  void on_device_event(const YUsbInfoDevice&, _yusb_device_event event) override {
    balance += event == YUSB_DEVICE_EVENT_APPEND ? 1 : -1;
  }
  int balance = 0;
};

int main() {
  yusb::common_device_append(YUsbInfoDevice());  // before the start: does nothing
  yusb::global_initialize();
  _yusb_context* context = nullptr;
  counter interface;
  const bool registered = yusb::context_create(&context) && context != nullptr &&
                          yusb::context_notify_object_append(context, &interface);
  yusb::context_release(context);
  yusb::global_release();
  std::printf("registered: %d\n", registered);
  return registered ? 0 : 1;
}
