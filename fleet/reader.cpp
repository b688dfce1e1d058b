#include "reader.h"

#include <algorithm>
#include <random>
#include <utility>

#include "topic.h"

namespace yusb::fleet {

namespace {

connection_options with_id(connection_options options) {
  options.client_id =
      "yusb-reader-" + hex((std::uint64_t{std::random_device()()} << 32U) | std::random_device()());
  return options;
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
    case host_state::forgotten:
      return "forgotten";
  }
  return "";
}

format::time_point host::last_sign() const {
  const auto ago = std::chrono::duration_cast<format::time_point::duration>(loop::clock::now() - alive);
  return std::chrono::system_clock::now() - ago;
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
                     else if (_handlers.published)
                       _handlers.published();
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
    each.outdated = each.accepted = each.incomplete = false;
    each.received.clear();
    each.digest = 0;
    each.repairs = 0;
    each.repairing = false;
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
    // Brokers acknowledge this subscription after they have sent the retained messages of the previous one.
    // If a broker does not, hosts are read again.
    _last = _connection.subscribe({_prefix + "/+/end"}, false);
  } else if (id == _last) {
    _listed = true;
    _connection.settled();
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
  const auto found = _hosts.find(level);
  if (found == _hosts.end()) return;
  host& each = found->second;
  each.repairing = false;
  const bool same = each.repairs > 1 && each.repaired == each.digest;
  each.repaired = each.digest;
  if (same && each.state != host_state::online && !whole(each)) accept(each);
  check(level, each);
  check_complete();
}

void reader::skip(const message& received) {
  if (_skipped.size() < 1000 && _skipped.insert(received.topic).second)
    _handlers.log("not a payload of an agent, skipped: " + received.topic);
}

std::set<std::string> reader::topics(const std::string& level) const {
  const std::string root = _prefix + "/" + level + "/";
  std::set<std::string> made;
  for (const std::string& each : _skipped) {
    if (each.compare(0, root.size(), root) == 0) made.insert(each);
  }
  const auto found = _hosts.find(level);
  if (found == _hosts.end()) return made;
  for (const auto& [name, device] : found->second.received) made.insert(root + "device/" + name);
  if (found->second.inventory) made.insert(root + "inventory");
  if (found->second.status) made.insert(root + "status");
  return made;
}

host& reader::known(const topic& of) {
  host& found = _hosts[of.host];
  if (found.name.empty()) found.name = name_of(of.host);
  return found;
}

void reader::on_message(const message& received) {
  const auto parsed = parse_topic(_prefix, received.topic);
  if (!parsed) return skip(received);
  if (received.payload.empty()) {
    _skipped.erase(received.topic);
    return on_cleared(*parsed, !received.retained);
  }
  if (parsed->what == "device") {
    if (!parse_device(received.payload)) return skip(received);
    on_device(known(*parsed), parsed->device, received);
  } else if (parsed->what == "status") {
    auto made = parse_status(received.payload);
    if (!made) return skip(received);
    if (level(made->host) == parsed->host) known(*parsed).name = made->host;
    on_status(known(*parsed), std::move(*made), received);
  } else if (parsed->what == "inventory") {
    const auto made = parse_inventory(received.payload);
    if (!made) return skip(received);
    on_inventory(known(*parsed), *made, received);
  } else {
    return;
  }
  host& from = known(*parsed);
  from.accepted = false;
  if (_listed) update_state(from);
  check(parsed->host, from);
  check_complete();
}

void reader::on_cleared(const topic& cleared, bool live) {
  const auto found = _hosts.find(cleared.host);
  if (found == _hosts.end()) return;
  host& from = found->second;
  from.accepted = false;
  if (cleared.what == "device") remove_received(from, cleared.device);
  if (cleared.what == "status") from.status.reset();
  if (cleared.what == "inventory") from.inventory.reset();
  // The host was forgotten: an agent never clears these, and a broker that lost its database sends nothing.
  if (live && cleared.what != "device" && !from.status && !from.inventory && from.received.empty()) {
    _loop.cancel(from.repair);
    from.state = host_state::forgotten;
    _handlers.state(from);
    _hosts.erase(found);
    return check_complete();
  }
  if (_listed) update_state(from);
  check(cleared.host, from);
  check_complete();
}

void reader::on_status(host& from, fleet::status made, const message& received) {
  // This is the last will of an earlier agent, and another one has taken over.
  const bool offline = made.state == presence::offline;
  const bool replaced =
      from.status && from.status->state != presence::offline && made.start != from.status->start;
  if (offline && replaced) return;
  const auto sent = loop::clock::now() - received.age;
  from.alive = offline ? sent : std::max(from.alive, sent);
  from.status = std::move(made);
}

void reader::on_inventory(host& from, const fleet::inventory& made, const message& received) {
  if (from.incomplete && !received.retained) from.repairs = 0;
  from.outdated = received.retained && made.when < from.shown_at;
  from.inventory = made;
  from.alive = std::max(from.alive, loop::clock::now() - received.age);
}

bool reader::remove_received(host& from, const std::string& name) {
  const auto found = from.received.find(name);
  if (found == from.received.end()) return false;
  from.digest -= found->second->digest;
  from.received.erase(found);
  return true;
}

void reader::on_device(host& from, const std::string& name, const message& received) {
  remove_received(from, name);
  const std::uint64_t part = digest(name, received.payload);
  from.digest += part;
  from.received.emplace(name, std::make_shared<shown_device>(
                                  shown_device{received.payload, part, *parse_device(received.payload)}));
}

}  // namespace yusb::fleet
