// The attached Android phones, by location. It is separate from main() so that a test can use it with a
// simulated bus.
#ifndef PHONE_SHELF_H_
#define PHONE_SHELF_H_

#include <yusb_watcher.h>

#include <chrono>
#include <map>

class phone_shelf {
 public:
  // The library must be initialised.
  phone_shelf() : _queue(yusb::device_is_android) {}

  const std::map<YString, YUsbInfoDevice>& phones() const { return _phones; }

  // Waits for the next event and applies it. Returns false if there is none within `limit`.
  bool update(std::chrono::milliseconds limit) {
    const auto event = _queue.next(limit);
    if (!event) return false;
    switch (event->kind) {
      case yusb::watch_kind::arrival:
        _phones[event->device.location()] = event->device;
        break;
      case yusb::watch_kind::removal:
        _phones.erase(event->device.location());
        break;
      case yusb::watch_kind::resync:  // the queue overflowed: replace everything
        _phones.clear();
        for (const YUsbInfoDevice& device : event->devices) _phones[device.location()] = device;
        break;
    }
    return true;
  }

 private:
  yusb::watch_queue _queue;
  std::map<YString, YUsbInfoDevice> _phones;
};

#endif  // PHONE_SHELF_H_
