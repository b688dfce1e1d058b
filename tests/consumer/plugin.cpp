#include <yusb_watcher.h>

extern "C" __attribute__((visibility("default"))) bool watch_once() {
  yusb::global_initialize();
  const bool watched = yusb::device_traverse(nullptr, [](const YUsbInfoDevice&) { return true; });
  yusb::global_release();
  return watched;
}
