#include "reader.h"

#include <algorithm>
#include <random>
#include <utility>

#include "topic.h"

namespace yusb::fleet {

namespace {

constexpr unsigned most_repairs = 5;
constexpr std::chrono::milliseconds repair_delay(
    300);                                // longer than an agent takes between device and inventory
constexpr std::size_t most_at_once = 8;  // hosts, so that the answers fit into the broker's queue
constexpr int missed_heartbeats = 3;

connection_options with_id(connection_options options) {
  options.client_id =
      "yusb-reader-" + hex((std::uint64_t{std::random_device()()} << 32U) | std::random_device()());
  return options;
}

bool same_attachment(const format::known_device& a, const format::known_device& b) {
  return a.record.vendorID() == b.record.vendorID() && a.record.productID() == b.record.productID() &&
         a.details->serial_number == b.details->serial_number && a.details->address == b.details->address;
}

// By this host's clock. The age of what was retained is known by the two wall clocks alone.
loop::clock::time_point sent_at(const message& received, format::time_point when) {
  const auto now = loop::clock::now();
  const auto age = std::chrono::system_clock::now() - when;
  return received.retained && age.count() > 0 ? now - age : now;
}

}  // namespace

const char* to_string(host_state state) {
  switch (state) {
    case host_state::unknown:
      return "unknown";
    case host_state::online:
      return "online";
    case host_state::stale:
      return "stale";
    case host_state::offline:
      return "offline";
  }
  return "";
}

format::time_point host::last_sign() const {
  const auto said = status ? status->when : format::time_point();
  return inventory ? std::max(said, inventory->when) : said;
}

reader::reader(loop& loop, connection_options options, std::string prefix, std::string only,
               handlers handlers)
    : _loop(loop),
      _prefix(std::move(prefix)),
      _only(only.empty() ? "+" : std::move(only)),
      _handlers(std::move(handlers)),
      _connection(loop, with_id(std::move(options)),
                  {[this] { on_connected(); },
                   [this](const std::string& reason) { on_lost(reason); },
                   [this](const message& received) { on_message(received); },
                   [this](int id, bool granted) {
                     granted ? on_subscribed(id)
                             : _connection.fail("the broker refuses to let this user read " + _prefix + "/#");
                   },
                   [this](int, const std::string& refusal) {
                     if (!refusal.empty())
                       _connection.fail("the broker refuses to let this user publish: " + refusal);
                   },
                   {}}) {
  _tick = _loop.after(std::chrono::seconds(1), [this] { update_states(); });
}

reader::~reader() {
  _loop.cancel(_tick);
  for (auto& [level, each] : _hosts) _loop.cancel(each.repair);
}

void reader::on_connected() {
  for (auto& [level, each] : _hosts) {
    each.status.reset();
    each.inventory.reset();
    each.outdated = false;
    each.received.clear();
    each.digest = 0;
    each.repairs = 0;
  }
  _first =
      _connection.subscribe({_prefix + "/" + _only + "/status", _prefix + "/" + _only + "/inventory"}, false);
}

void reader::on_lost(const std::string& reason) {
  _listed = _complete = false;
  _repairs.clear();
  for (auto& [level, each] : _hosts) _loop.cancel(std::exchange(each.repair, 0));
  _handlers.lost(reason);
}

void reader::on_subscribed(int id) {
  if (id == _first) {
    _connection.subscribe({_prefix + "/" + _only + "/device/+"}, false);
    // Brokers answer this one when they have sent what they retain of the one before. If one does not, hosts
    // are read again.
    _last = _connection.subscribe({_prefix + "/+/end"}, false);
  } else if (id == _last) {
    _listed = true;
    for (auto& [level, each] : _hosts) check(level, each);
    update_states();
    check_complete();
  }
  const auto repaired = _repairs.find(id);
  if (repaired == _repairs.end()) return;
  const std::string level = repaired->second;
  _repairs.erase(repaired);
  for (const char* const what : {"/inventory", "/device/+", "/end"})
    _connection.unsubscribe(_prefix + "/" + level + what);
  check(level, _hosts[level]);
  check_complete();
}

void reader::skip(const message& received) {
  if (_skipped.size() < 1000 && _skipped.insert(received.topic).second)
    _handlers.log("not a payload of an agent, skipped: " + received.topic);
}

void reader::on_message(const message& received) {
  const auto parsed = parse_topic(_prefix, received.topic);
  if (!parsed) return skip(received);
  if (received.payload.empty() && _hosts.find(parsed->host) == _hosts.end()) return;
  host& from = _hosts[parsed->host];
  if (from.name.empty()) from.name = name_of(parsed->host);
  if (parsed->what == "device") {
    on_device(from, parsed->device, received);
  } else if (parsed->what == "status") {
    const auto made = parse_status(received.payload);
    if (!made && !received.payload.empty()) return skip(received);
    // The last will of an earlier agent says nothing of the one that has taken over.
    const bool old =
        made && !made->online && from.status && from.status->online && made->start != from.status->start;
    if (old) return;
    from.status = made;
    if (made && level(made->host) == parsed->host) from.name = made->host;
    if (made) from.alive = std::max(from.alive, sent_at(received, made->when));
  } else if (parsed->what == "inventory") {
    on_inventory(from, received);
  }
  if (_listed) update_state(from);
  check(parsed->host, from);
}

void reader::on_device(host& from, const std::string& name, const message& received) {
  std::optional<format::known_device> device;
  if (!received.payload.empty()) {
    device = parse_device(received.payload);
    if (!device) return skip(received);
  }
  const auto found = from.received.find(name);
  if (found != from.received.end()) {
    from.digest -= found->second.digest;
    from.received.erase(found);
  }
  if (!device) return;
  const std::uint64_t part = digest(name, received.payload);
  from.digest += part;
  from.received.emplace(name, shown_device{received.payload, part, std::move(*device)});
}

void reader::on_inventory(host& from, const message& received) {
  const auto made = parse_inventory(received.payload);
  if (!made && !received.payload.empty()) return skip(received);
  from.outdated = made && received.retained && made->when < from.shown_at;
  from.inventory = made;
  if (made) from.alive = std::max(from.alive, sent_at(received, made->when));
}

bool reader::whole(const host& each) const {
  if (each.outdated) return true;  // its agent will tell
  if (!each.inventory) return each.received.empty();
  return each.inventory->devices == each.received.size() && each.inventory->digest == each.digest;
}

void reader::check(const std::string& level, host& each) {
  if (whole(each)) {
    _loop.cancel(std::exchange(each.repair, 0));
    each.repairs = 0;
    // Without an inventory nothing is known. A status comes before the end of the list, if there is one.
    if (each.inventory && !each.outdated && (each.status || _listed)) commit(each);
    if (_listed && !_complete) check_complete();
  } else if (_listed && each.repair == 0 && each.repairs < most_repairs) {
    // Longer each time: the agent may be busy bringing its topics up to date.
    each.repair = _loop.after(repair_delay * (1U << each.repairs), [this, level] { repair(level); });
  }
}

void reader::commit(host& each) {
  if (!each.reported) update_state(each);
  each.shown_at = each.inventory->when;
  for (auto at = each.devices.begin(); at != each.devices.end();) {
    const auto now = each.received.find(at->first);
    const bool gone = now == each.received.end() || !same_attachment(now->second.device, at->second.device);
    if (!gone) {
      ++at;
      continue;
    }
    const shown_device device = std::move(at->second);
    at = each.devices.erase(at);
    _handlers.device(each, device_news::removal, device);
  }
  for (const auto& [name, now] : each.received) {
    const auto before = each.devices.find(name);
    if (before != each.devices.end() && before->second.digest == now.digest) continue;
    const device_news news = before == each.devices.end() ? device_news::arrival : device_news::change;
    each.devices.insert_or_assign(name, now);
    _handlers.device(each, news, now);
  }
}

void reader::repair(const std::string& level) {
  host& each = _hosts[level];
  each.repair = 0;
  if (whole(each)) return;
  if (_repairs.size() >= most_at_once) {
    each.repair = _loop.after(repair_delay, [this, level] { this->repair(level); });
    return;
  }
  if (++each.repairs >= most_repairs) return _handlers.incomplete(each.name);
  // Subscribing again makes the broker send what it retains again; what it does not send is gone.
  each.received.clear();
  each.digest = 0;
  const std::string root = _prefix + "/" + level;
  _connection.subscribe({root + "/inventory", root + "/device/+"}, false);
  _repairs[_connection.subscribe({root + "/end"}, false)] = level;
}

void reader::check_complete() {
  const bool now = _listed && std::all_of(_hosts.begin(), _hosts.end(),
                                          [this](const auto& each) { return whole(each.second); });
  if (now && !std::exchange(_complete, true)) _handlers.complete();
}

void reader::update_state(host& each) {
  host_state now = host_state::unknown;
  if (each.status) {
    const auto limit = std::chrono::seconds(std::max(each.status->heartbeat, 1)) * missed_heartbeats;
    const bool silent = loop::clock::now() - each.alive > limit;
    now = !each.status->online ? host_state::offline : silent ? host_state::stale : host_state::online;
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
