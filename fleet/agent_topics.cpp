// How an agent publishes the changes of its devices.
#include <utility>

#include "agent.h"
#include "topic.h"

namespace yusb::fleet {

namespace {

constexpr std::size_t window = 20;                         // publications in flight: the broker's default
constexpr std::size_t most_events = 1000;                  // that wait
constexpr std::chrono::milliseconds inventory_pause(100);  // in a storm

bool replaced(const std::string& before, const std::string& now) {
  const auto old = parse_device(before);
  const auto fresh = parse_device(now);
  return !old || !fresh || !same_attachment(*old, *fresh);
}

}  // namespace

void agent::take_changes() {
  while (auto change = _source.next()) take(std::move(*change));
  pump();
}

void agent::take(device_change change) {
  if (change.what == device_change::kind::set) return set(level(change.name), change.payload, true);
  if (change.what == device_change::kind::removal) return remove(level(change.name));
  std::map<std::string, std::string> now;
  for (auto& [name, payload] : change.devices) now.emplace(level(name), std::move(payload));
  for (auto each = _devices.begin(); each != _devices.end();) {
    const auto [name, before] = *each++;
    const auto attached = now.find(name);
    if (attached == now.end() || replaced(before.payload, attached->second)) remove(name);
  }
  for (const auto& [name, payload] : now) set(name, payload, _started);
  // Not earlier: the topics of devices that the source has not reported yet would be cleared.
  if (!std::exchange(_started, true)) _connection.start();
}

void agent::set(const std::string& name, const std::string& payload, bool counted) {
  const bool known = _devices.find(name) != _devices.end();
  _devices[name] = {payload, digest(name, payload)};
  _dirty.insert(name);
  if (known || !counted) return;
  ++_arrivals;
  tell(payload, true);
}

void agent::remove(const std::string& name) {
  const auto found = _devices.find(name);
  if (found == _devices.end()) return;
  ++_removals;
  tell(found->second.payload, false);
  _devices.erase(found);
  _dirty.insert(name);
}

void agent::tell(const std::string& payload, bool arrived) {
  ++_sequence;
  if (!_synced) return;
  _events.push_back(event_payload(payload, arrived, _options.start, _sequence));
  if (_events.size() > most_events) _events.pop_front();
}

void agent::on_acknowledged(int id, const std::string& refusal) {
  _in_flight.erase(id);
  if (!refusal.empty())
    return _connection.fail("the broker refuses to let this agent publish to " + _root + "#: " + refusal);
  if (_stopping && _in_flight.empty()) return end(agent_end::stopped);
  pump();
  // Not earlier: an agent that the broker forbids to publish would otherwise reconnect without a delay.
  if (settled()) _connection.settled();
}

void agent::publish(const std::string& what, std::string payload, bool retained) {
  const int id = _connection.publish({_root + what, std::move(payload), retained});
  if (id != 0) _in_flight.insert(id);
  ++_count;
}

void agent::pump() {
  if (!_synced || _stopping) return;
  while (_in_flight.size() < window && !_dirty.empty())
    publish_device(_dirty.extract(_dirty.begin()).value());
  while (_in_flight.size() < window && !_events.empty()) {
    publish("event", std::move(_events.front()), false);
    _events.pop_front();
  }
  const bool counted =
      _announced && _announced->devices == _published.size() && _announced->digest == _digest;
  _restoring = _restoring && !_dirty.empty();
  if (!counted && !_restoring && _inventory == 0) {
    const auto due = _announced_at + inventory_pause - loop::clock::now();
    if (_dirty.empty() || due.count() <= 0) {
      publish_inventory();
    } else {
      _inventory =
          _loop.after(std::chrono::ceil<std::chrono::milliseconds>(due), [this] { publish_inventory(); });
    }
  }
  if (_status_due && _dirty.empty()) publish_status(presence::online);
}

bool agent::differs(const std::string& name) const {
  const auto wanted = _devices.find(name);
  const auto there = _published.find(name);
  if (wanted == _devices.end() || there == _published.end())
    return (wanted == _devices.end()) != (there == _published.end());
  return wanted->second.digest != there->second;
}

void agent::publish_device(const std::string& name) {
  if (!differs(name)) return;
  const auto wanted = _devices.find(name);
  const auto there = _published.find(name);
  if (wanted == _devices.end()) {
    _digest -= there->second;
    _published.erase(there);
    return publish("device/" + name, "", true);
  }
  const std::uint64_t now = wanted->second.digest;
  _digest += now - (there == _published.end() ? 0 : there->second);
  _published[name] = now;
  publish("device/" + name, wanted->second.payload, true);
}

void agent::publish_inventory() {
  _loop.cancel(std::exchange(_inventory, 0));
  _announced = inventory{std::chrono::system_clock::now(), _published.size(), _digest, _arrivals, _removals};
  _announced_at = loop::clock::now();
  publish("inventory", to_payload(*_announced), true);
}

void agent::publish_status(presence state) {
  _status_due = state == presence::restoring;
  publish("status", to_payload(made_status(state)), true);
}

}  // namespace yusb::fleet
