// Waits until devices of a bus can be opened.
#ifndef YORVAN_PORT_BUS_NODES_H_
#define YORVAN_PORT_BUS_NODES_H_

#include <array>
#include <chrono>
#include <memory>
#include <optional>

#include <yusb_openable.h>

#include "bus/record_key.h"

namespace yusb::port {

// The devices that are waited for, by ID. Not thread-safe.
class node_watch {
 public:
  using answer = detail::node_waiter::answer;
  using clock = std::chrono::steady_clock;

  virtual ~node_watch() = default;

  virtual void add(unsigned id, const record_key& record) = 0;
  virtual void remove(unsigned id) = 0;

  // next() may have an answer when one of these is readable; -1 stands for none.
  virtual std::array<int, 2> poll_fds() const = 0;
  // next() may also have an answer at that time, even if no descriptor is readable.
  virtual std::optional<clock::time_point> due() const = 0;

  // Returns a device that is openable or gone, and removes it. Empty if there is none yet; never waits.
  virtual std::optional<answer> next() = 0;

  // Returns the current state of a device: `openable`, `gone`, or `timed_out` if neither. Does not remove it.
  virtual openability check(unsigned id) = 0;
};

// For the bus that the library watches.
std::unique_ptr<node_watch> watch_nodes();

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_NODES_H_
