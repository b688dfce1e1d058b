// The devices of this host's USB bus, for an agent.
#ifndef YUSB_FLEET_BUS_SOURCE_H_
#define YUSB_FLEET_BUS_SOURCE_H_

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <yusb_openable_queue.h>

#include "agent.h"
#include "format/filter.h"

namespace yusb::fleet {

// Reads the devices on its own thread, because a device that does not respond can take seconds. The library
// must be initialised while the source exists.
class bus_source final : public device_source {
 public:
  // `unreadable` is called on the source's thread if the bus has reported nothing for 30 seconds. The source
  // then has no change: a list without devices would have the agent clear what is attached. Throws
  // std::system_error, and what yusb::openable_queue throws.
  bus_source(format::filter filter, std::function<void()> unreadable);
  ~bus_source() override;

  int descriptor() override { return _ready; }
  std::optional<device_change> next() override;

 private:
  void run();
  void handle(const openable_event& event);
  // Adds the device to `devices` if it passes the filter.
  void add(const YUsbInfoDevice& record, std::map<std::string, std::string>* devices) const;
  void report(device_change change);

  const format::filter _filter;
  const std::function<void()> _unreadable;
  const int _ready;  // an eventfd
  openable_queue _queue;
  std::map<std::string, std::string> _known;  // reported; of the thread

  std::mutex _mutex;  // guards _changes
  std::deque<device_change> _changes;
  std::thread _thread;
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_BUS_SOURCE_H_
