// When an attached device can be opened. The kernel announces a device before udev has given its node to
// users, so opening a device when it arrives often fails for want of permission. Link the bus library.
//
//   if (yusb::wait_openable(record, std::chrono::seconds(5)) == yusb::openability::openable) open(record);
//
// What it means. On Linux a device is openable when the mode and the access-control list of its node
// (usb_details::device_node) let this process open it for reading and writing, by its effective user and
// groups. A node on a file system mounted "nodev", or a security module, can still refuse. On macOS every
// attached device is openable; IOKit decides on access when a device is opened.
//
// How it waits. The process sleeps until the kernel reports a change of the node or the removal of the
// device. Where the kernel reports nothing (no uevents in this network namespace, no inotify instance left, a
// folder that cannot be read), it looks once a second. The device is not opened, so it is not woken from
// suspension.
#ifndef YUSB_OPENABLE_H_
#define YUSB_OPENABLE_H_

#include <chrono>
#include <memory>
#include <optional>

#include <yusb.h>
#include <yusb_bus.h>

namespace yusb {

enum class openability {
  openable,   // now
  gone,       // the record's device is not attached
  timed_out,  // the limit has passed; the device is attached and not openable
  refused,    // called under the library's locks: nothing was asked
};

namespace detail {

// Waits for several devices at once. Used on one thread at a time. On a simulated bus while the simulator
// lives.
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

  // Starts waiting for a device under a new ID, as long as `limit`, at most a year.
  void add(unsigned id, const YUsbInfoDevice& record, std::chrono::milliseconds limit);

  // Forgets a device, and does nothing where none has that ID.
  void remove(unsigned id) noexcept;

  // Waits for the next answer as long as `limit`, at most a year, and forgets its device. Empty when the
  // time has passed, and as soon as `descriptor` is readable (-1: there is none).
  std::optional<answer> wait(std::chrono::milliseconds limit, int descriptor);

 private:
  struct implementation;
  const std::unique_ptr<implementation> _implementation;
};

}  // namespace detail

// Waits until the record's device can be opened, is gone, or `limit` has passed; at most a year. With 0 or
// less it only asks. Whether it is the record's device that is attached is decided as device_details does.
//
// From any thread, but not under the library's locks: there it does not wait and returns `refused`, and the
// library writes a line to the log. Uses no thread. Throws std::bad_alloc.
inline openability wait_openable(const YUsbInfoDevice& record, std::chrono::milliseconds limit) {
  // Without a visitor it does nothing but tell whether it is refused.
  if (!airpods_traverse(nullptr, {})) return openability::refused;
  detail::node_waiter waiter;
  waiter.add(0, record, limit);
  return waiter.wait(std::chrono::milliseconds::max(), -1)->result;
}

}  // namespace yusb

#endif  // YUSB_OPENABLE_H_
