// A shelf of Android phones: which are on it, by location. It is a client of the exact watcher, kept apart
// from main() so that a test can plug phones into a simulated bus.
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

  // Waits for the next change and takes it in. False if there is none for as long as `limit`.
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
      case yusb::watch_kind::resync:  // we were too slow for the queue: start afresh from what is there
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
