// The devices of this host's USB bus, for an agent.
#ifndef YUSB_FLEET_BUS_SOURCE_H_
#define YUSB_FLEET_BUS_SOURCE_H_

#include <condition_variable>
#include <deque>
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
  // Throws std::system_error, and what yusb::openable_queue throws.
  explicit bus_source(format::filter filter);
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
  const int _ready;  // an eventfd
  openable_queue _queue;
  std::map<std::string, std::string> _known;  // reported; of the thread

  std::mutex _mutex;  // guards _changes
  std::deque<device_change> _changes;
  std::thread _thread;
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_BUS_SOURCE_H_
