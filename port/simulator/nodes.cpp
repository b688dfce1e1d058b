#include "simulator/nodes.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace yusb::port {

simulated_nodes::simulated_nodes(finder find)
    : _find(std::move(find)), _changed(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (_changed < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

simulated_nodes::~simulated_nodes() {
  while (!_waited.empty()) remove(_waited.begin()->first);
  close(_changed);
}

void simulated_nodes::add(unsigned id, const record_key& record) {
  const std::shared_ptr<attachment>& added = _waited.emplace(id, _find(record)).first->second;
  if (added != nullptr) added->notify(_changed);
}

void simulated_nodes::remove(unsigned id) {
  const auto found = _waited.find(id);
  if (found == _waited.end()) return;
  if (found->second != nullptr) found->second->forget(_changed);
  _waited.erase(found);
}

std::optional<simulated_nodes::clock::time_point> simulated_nodes::due() const {
  std::optional<clock::time_point> first;
  for (const auto& [id, device] : _waited) {
    if (device != nullptr) first = std::min(first.value_or(clock::time_point::max()), device->opens_at());
  }
  return first;
}

std::optional<simulated_nodes::answer> simulated_nodes::next() {
  eventfd_t count;
  eventfd_read(_changed, &count);  // reset before the devices are tested, so that no change is missed
  for (const auto& [id, device] : _waited) {
    const answer found = {id, check(id)};
    if (found.result == openability::timed_out) continue;
    remove(found.id);
    return found;
  }
  return std::nullopt;
}

openability simulated_nodes::check(unsigned id) {
  const auto found = _waited.find(id);
  return found == _waited.end() || found->second == nullptr ? openability::gone : found->second->node();
}

}  // namespace yusb::port
