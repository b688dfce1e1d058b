// Waits until an attached device can be opened. The kernel announces a device before udev gives users access
// to its node, so a program that opens a device on its arrival often gets "permission denied". Link the bus
// library.
//
//   if (yusb::wait_openable(record, std::chrono::seconds(5)) == yusb::openability::openable) open(record);
//
// Meaning. On Linux a device is openable if the mode and the access-control list of its node
// (usb_details::device_node) let this process open it for reading and writing, by its effective user and
// groups. A file system mounted "nodev" or a security module can still refuse an open. On macOS every
// attached device is openable; IOKit decides when a device is opened.
//
// Waiting. The process sleeps until the kernel reports a change of the node or the removal of the device. If
// the kernel reports nothing (no uevents in this network namespace, no inotify instance left, an unreadable
// folder), it checks once a second. The device is not opened, so it is not resumed from suspend.
#ifndef YUSB_OPENABLE_H_
#define YUSB_OPENABLE_H_

#include <chrono>
#include <memory>
#include <optional>

#include <yusb.h>
#include <yusb_bus.h>

namespace yusb {

// Whether a device can be opened.
enum class openability {
  openable,   // the device can be opened now
  gone,       // the record's device is not attached
  timed_out,  // the limit has passed; the device is attached and not openable
  refused,    // called under the library's locks: nothing was tested
};

namespace detail {

// Waits for several devices at once. Not thread-safe. On a simulated bus it may be used only while the
// simulator exists.
class YUSB_BUS_EXPORT node_waiter {
 public:
  struct answer {
    unsigned id;
    openability result;  // not refused
  };

  node_waiter();
  ~node_waiter();
  node_waiter(const node_waiter&) = delete;
  node_waiter& operator=(const node_waiter&) = delete;

  // Starts waiting for a device, under a new ID, for `limit`, at most a year.
  void add(unsigned id, const YUsbInfoDevice& record, std::chrono::milliseconds limit);

  // Stops waiting for a device. Does nothing if no device has that ID.
  void remove(unsigned id) noexcept;

  // Waits for the next answer for `limit`, at most a year, and removes its device. Empty if the time has
  // passed, and as soon as `descriptor` is readable (-1: none).
  std::optional<answer> wait(std::chrono::milliseconds limit, int descriptor);

 private:
  struct implementation;
  const std::unique_ptr<implementation> _implementation;
};

}  // namespace detail

// Waits until the record's device can be opened, is gone, or the limit has passed. `record` is the device's
// record. `limit` is at most a year; with 0 or less it only tests. The record's device is found as by
// device_details.
//
// May be called from any thread, but not under the library's locks: there it does not wait, returns
// `refused`, and the library writes a line to the log. It starts no thread. Throws std::bad_alloc.
inline openability wait_openable(const YUsbInfoDevice& record, std::chrono::milliseconds limit) {
  // Without a visitor this call does nothing; its result says whether it was refused.
  if (!airpods_traverse(nullptr, {})) return openability::refused;
  detail::node_waiter waiter;
  waiter.add(0, record, limit);
  return waiter.wait(std::chrono::milliseconds::max(), -1)->result;
}

}  // namespace yusb

#endif  // YUSB_OPENABLE_H_
