#include <poll.h>

#include <algorithm>
#include <vector>

#include <yusb_openable.h>

#include "bus/nodes.h"

namespace yusb::detail {

namespace {

using port::node_watch;
using clock = node_watch::clock;

bool is_readable(int descriptor) {
  pollfd asked = {descriptor, POLLIN, 0};
  return descriptor >= 0 && poll(&asked, 1, 0) > 0;
}

clock::time_point after(std::chrono::milliseconds limit) {
  constexpr std::chrono::milliseconds year = std::chrono::hours(24 * 365);
  return clock::now() + std::clamp(limit, limit.zero(), year);
}

// In milliseconds, rounded up so that poll does not return early.
int until(clock::time_point end) {
  const auto left = std::min<clock::duration>(end - clock::now(), std::chrono::hours(1));
  return std::max(0, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count()));
}

}  // namespace

struct node_waiter::implementation {
  struct entry {
    unsigned id;
    clock::time_point end;
  };

  void forget(unsigned id) {
    entries.erase(
        std::remove_if(entries.begin(), entries.end(), [id](const entry& each) { return each.id == id; }),
        entries.end());
  }

  // A device whose limit has passed.
  std::optional<answer> expire(clock::time_point now) {
    const auto over =
        std::find_if(entries.begin(), entries.end(), [now](const entry& each) { return each.end <= now; });
    if (over == entries.end()) return std::nullopt;
    const unsigned id = over->id;
    const openability result = nodes->check(id);
    nodes->remove(id);
    forget(id);
    return answer{id, result};
  }

  clock::time_point wake_up(clock::time_point end) const {
    for (const entry& each : entries) end = std::min(end, each.end);
    return std::min(end, nodes->due().value_or(end));
  }

  std::unique_ptr<port::node_watch> nodes = port::watch_nodes();
  std::vector<entry> entries;
};

node_waiter::node_waiter() : _implementation(std::make_unique<implementation>()) {}

node_waiter::~node_waiter() = default;

void node_waiter::add(unsigned id, const YUsbInfoDevice& record, std::chrono::milliseconds limit) {
  try {
    _implementation->nodes->add(id, port::record_key(record));
    _implementation->entries.push_back({id, after(limit)});
  } catch (...) {
    remove(id);
    throw;
  }
}

void node_waiter::remove(unsigned id) noexcept {
  _implementation->nodes->remove(id);
  _implementation->forget(id);
}

std::optional<node_waiter::answer> node_waiter::wait(std::chrono::milliseconds limit, int descriptor) {
  const clock::time_point end = after(limit);
  implementation& self = *_implementation;
  for (;;) {
    if (is_readable(descriptor)) return std::nullopt;
    if (const std::optional<answer> found = self.nodes->next()) {
      self.forget(found->id);
      return found;
    }
    const clock::time_point now = clock::now();
    if (const std::optional<answer> expired = self.expire(now)) return expired;
    if (now >= end) return std::nullopt;
    const auto [first, second] = self.nodes->poll_fds();
    pollfd waited[] = {{descriptor, POLLIN, 0}, {first, POLLIN, 0}, {second, POLLIN, 0}};
    poll(waited, 3, until(self.wake_up(end)));
  }
}

}  // namespace yusb::detail
