#ifndef YUSB_TOOLS_KNOWN_DEVICES_H_
#define YUSB_TOOLS_KNOWN_DEVICES_H_

#include <cstddef>
#include <deque>
#include <mutex>
#include <vector>

#include <yusb_openable_queue.h>

#include "format/known_device.h"

namespace yusb::tool {

// The devices that a queue has reported, to give each event what is known of its device, and to translate a
// resync into arrivals and removals. A removal has the details of its arrival.
class known_devices {
 public:
  // Keeps what was known of a device when it arrived, until its arrival is taken from the queue. Thread-safe;
  // for the library's threads.
  void arrived(format::known_device device);

  // The changes that an event of the queue stands for, each with the time `when`. `initial`: whether arrivals
  // are of devices that were attached when the program began. A resync gives its removals first, the device
  // that arrived last before all others.
  std::vector<format::event> apply(const openable_event& event, format::time_point when, bool initial);

  std::size_t size() const { return _devices.size(); }

 private:
  struct entry {
    format::known_device device;
    bool initial;
  };

  std::vector<format::event> resync(const std::vector<YUsbInfoDevice>& attached, format::time_point when,
                                    bool initial);
  format::known_device take_arrived(const YUsbInfoDevice& record);

  std::vector<entry> _devices;
  std::mutex _mutex;
  std::deque<format::known_device> _arrived;  // under _mutex; in order of arrival
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_KNOWN_DEVICES_H_
