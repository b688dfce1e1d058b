// When the reader shows what it has received of a host, and when it reads it again.
#include <algorithm>
#include <utility>

#include "reader.h"

namespace yusb::fleet {

namespace {

constexpr unsigned most_repairs = 4;  // after 0.3, 0.9, 2.1 and 4.5 s
// Longer than the time between an agent's messages about a device and about its inventory.
constexpr std::chrono::milliseconds repair_delay(300);
constexpr std::size_t most_at_once = 8;  // hosts, so that the answers fit into the broker's queue
constexpr int missed_heartbeats = 3;

}  // namespace

bool reader::whole(const host& each) const {
  if (each.outdated || each.accepted) return true;  // until its agent publishes
  if (!each.inventory) return each.received.empty();
  return each.inventory->devices == each.received.size() && each.inventory->digest == each.digest;
}

void reader::check(const std::string& level, host& each) {
  if (whole(each)) {
    _loop.cancel(std::exchange(each.repair, 0));
    each.repairs = 0;
    each.incomplete = false;
    // Without an inventory, the devices are not known. If there is a status, it arrives before _listed is
    // set.
    if (each.inventory && !each.outdated && !each.accepted && (each.status || _listed)) {
      each.shown_at = each.inventory->when;
      show(each);
    }
  } else if (_listed && each.repair == 0 && !each.repairing && each.repairs < most_repairs) {
    // The delay doubles each time, because messages may still be on their way.
    each.repair = _loop.after(repair_delay * (1U << each.repairs), [this, level] { repair(level); });
  }
}

void reader::show(host& each) {
  if (!each.reported) update_state(each);
  for (auto at = each.devices.begin(); at != each.devices.end();) {
    const auto now = each.received.find(at->first);
    const bool gone = now == each.received.end() || !same_attachment(now->second->device, at->second->device);
    if (!gone) {
      ++at;
      continue;
    }
    const auto device = std::move(at->second);
    at = each.devices.erase(at);
    _handlers.device(each, device_news::removal, *device);
  }
  for (const auto& [name, now] : each.received) {
    const auto before = each.devices.find(name);
    if (before != each.devices.end() && before->second->digest == now->digest) continue;
    const device_news news = before == each.devices.end() ? device_news::arrival : device_news::change;
    each.devices.insert_or_assign(name, now);
    _handlers.device(each, news, *now);
  }
}

void reader::accept(host& each) {
  each.accepted = true;
  if (each.devices.empty()) show(each);
}

void reader::repair(const std::string& level) {
  host& each = _hosts.at(level);
  each.repair = 0;
  if (whole(each)) return;
  if (_repairs.size() >= most_at_once) {
    each.repair = _loop.after(repair_delay, [this, level] { this->repair(level); });
    return;
  }
  if (++each.repairs >= most_repairs) {
    if (each.state == host_state::online) {
      if (!std::exchange(each.incomplete, true)) _handlers.incomplete(each.name);
      return;
    }
    accept(each);
    return check_complete();
  }
  // After a second subscription the broker sends its retained messages again. What it does not send is gone.
  each.repairing = true;
  each.received.clear();
  each.digest = 0;
  const std::string root = _prefix + "/" + level;
  _connection.subscribe({root + "/inventory", root + "/device/+"}, false);
  _repairs[_connection.subscribe({root + "/end"}, false)] = level;
}

bool reader::whole() const {
  return _listed &&
         std::all_of(_hosts.begin(), _hosts.end(), [this](const auto& each) { return whole(each.second); });
}

bool reader::settled() const {
  return _listed && std::all_of(_hosts.begin(), _hosts.end(), [this](const auto& each) {
           return each.second.incomplete || whole(each.second);
         });
}

void reader::check_complete() {
  if (_complete) return;
  _complete = whole();
  if (_complete) _handlers.complete();
}

void reader::update_state(host& each) {
  host_state now = host_state::unknown;
  if (each.status && each.status->state == presence::offline) now = host_state::offline;
  if (each.status && each.status->state == presence::online) {
    const auto limit = std::chrono::seconds(std::max(each.status->heartbeat, 1)) * missed_heartbeats;
    now = loop::clock::now() - each.alive > limit ? host_state::stale : host_state::online;
  }
  if (each.reported && now == each.state) return;
  each.state = now;
  each.reported = true;
  _handlers.state(each);
}

void reader::update_states() {
  if (_listed) {
    for (auto& [level, each] : _hosts) update_state(each);
  }
  _loop.cancel(_tick);
  _tick = _loop.after(std::chrono::seconds(1), [this] { update_states(); });
}

}  // namespace yusb::fleet
