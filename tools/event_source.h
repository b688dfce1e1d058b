#ifndef YUSB_TOOLS_EVENT_SOURCE_H_
#define YUSB_TOOLS_EVENT_SOURCE_H_

#include <chrono>
#include <optional>
#include <vector>

#include <yusb_openable_queue.h>
#include <yusb_watcher.h>

#include "format/filter.h"
#include "format/known_device.h"
#include "known_devices.h"

namespace yusb::tool {

// The events of the devices that a filter keeps, from the library's queue. Construct it after
// yusb::global_initialize. One thread calls everything but close.
class event_source {
 public:
  struct settings {
    format::filter filter;                                // asked once a device, when it arrives
    std::optional<std::chrono::milliseconds> open_limit;  // reports when each device can be opened
    std::chrono::milliseconds collect{20};  // how long the first call waits for the first enumeration
  };

  explicit event_source(settings chosen);

  // Waits for events as long as `limit` and takes those that are queued. Empty when the time has passed,
  // when the source is closed, or when the first enumeration is over and its events are taken.
  std::vector<format::event> next(std::chrono::milliseconds limit);

  // The first enumeration is over: what was attached when the program began has been taken.
  bool listed() const { return _listed; }

  // The number of selected devices that are attached.
  std::size_t devices() const { return _known.size(); }

  // Wakes next, which then takes what is queued. From any thread.
  void close() noexcept;
  bool closed() const noexcept;

 private:
  std::optional<openable_event> take(std::chrono::milliseconds limit);
  std::vector<format::event> take_all(std::chrono::milliseconds limit);

  const format::filter _filter;
  std::chrono::milliseconds _collect;
  bool _settled = false;
  bool _listed = false;
  known_devices _known;
  std::optional<watch_queue> _plain;  // one of these two; they refer to what is above
  std::optional<openable_queue> _openable;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_EVENT_SOURCE_H_
