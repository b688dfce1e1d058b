#include "agent.h"

#include <sys/epoll.h>

#include <algorithm>
#include <random>
#include <utility>

#include "topic.h"

namespace yusb::fleet {

namespace {

std::string made_start() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto time = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  return hex(static_cast<std::uint64_t>(time)) + "-" + hex(std::random_device()()).substr(8);
}

agent_options completed(agent_options options) {
  if (options.start.empty()) options.start = made_start();
  // Different in each run: a broker disconnects a client when another one connects with the same ID.
  options.connection.client_id =
      "yusb-agent-" + hex(hash(options.prefix + "/" + options.host)) + "-" + options.start;
  return options;
}

}  // namespace

agent::agent(loop& loop, agent_options options, device_source& source, handlers handlers)
    : _loop(loop),
      _options(completed(std::move(options))),
      _root(_options.prefix + "/" + level(_options.host) + "/"),
      _source(source),
      _handlers(std::move(handlers)),
      _connection(loop, _options.connection,
                  {[this] { on_connected(); }, [this](const std::string& reason) { on_lost(reason); },
                   [this](const message& received) { on_message(received); },
                   [this](int id, bool granted) {
                     if (!granted)
                       return _connection.fail("the broker refuses to let this agent read " + _root + "#");
                     if (id == _subscription) claim_name();
                   },
                   [this](int id, const std::string& refusal) { on_acknowledged(id, refusal); },
                   [this] {
                     return message{_root + "status", to_payload(made_status(presence::offline)), true};
                   }}) {}

agent::~agent() {
  if (!_ended) release();
}

void agent::start() {
  _loop.watch(_source.descriptor(), EPOLLIN, [this](std::uint32_t) { take_changes(); });
  take_changes();
}

void agent::stop() {
  if (_ended || _stopping) return;
  _stopping = true;
  if (!_synced) return end(agent_end::stopped);
  _in_flight.clear();
  publish_status(presence::offline);
  _wait = _loop.after(std::chrono::seconds(2), [this] { end(agent_end::stopped); });
}

bool agent::settled() const {
  return _synced && _in_flight.empty() && _dirty.empty() && _events.empty() && !_status_due &&
         _inventory == 0;
}

void agent::end(agent_end why, const std::string& reason) {
  release();
  if (_handlers.ended) _loop.post([ended = _handlers.ended, why, reason] { ended(why, reason); });
}

void agent::release() {
  _ended = true;
  _synced = false;
  _loop.unwatch(_source.descriptor());
  for (const loop::timer each : {_beat, _wait, _inventory}) _loop.cancel(each);
  _connection.stop();
}

status agent::made_status(presence state) const {
  return {std::chrono::system_clock::now(),
          state,
          _options.host,
          _options.start,
          _options.machine,
          _options.version,
          static_cast<int>(_options.heartbeat.count())};
}

void agent::on_connected() {
  _published.clear();
  _digest = 0;
  _announced.reset();
  _retained.reset();
  _connection.subscribe({_root + "device/+", _root + "inventory"}, true);
  // The broker sends the retained messages of the subscription above before it echoes a message that is
  // published to one of these topics.
  _subscription = _connection.subscribe({_root + "status", _root + "sync"}, false);
}

void agent::on_lost(const std::string& reason) {
  if (_stopping) return end(agent_end::stopped);
  _synced = false;
  _in_flight.clear();
  _events.clear();
  for (loop::timer* each : {&_beat, &_wait, &_inventory}) _loop.cancel(std::exchange(*each, 0));
  if (reason != _last_loss) _handlers.log("not connected: " + reason);
  _last_loss = reason;
}

void agent::on_message(const message& received) {
  const auto parsed = parse_topic(_options.prefix, received.topic);
  if (_ended || !parsed) return;
  if (parsed->what == "device") on_own_device(parsed->device, received);
  if (parsed->what == "inventory") {
    // A later one was published by another client. It is replaced.
    _announced = _synced ? std::nullopt : parse_inventory(received.payload);
    pump();
  }
  if (parsed->what == "status") on_status(received);
  // No agent has a claim retained. One that is would end every agent of this name.
  if (parsed->what == "sync" && !received.retained) on_claim(received.payload);
}

// A message on one of this host's device topics: a retained one, or one that another client has published
// now.
void agent::on_own_device(const std::string& name, const message& received) {
  const auto found = _published.find(name);
  if (found != _published.end()) {
    _digest -= found->second;
    _published.erase(found);
  }
  if (!received.payload.empty()) {
    const std::uint64_t there = digest(name, received.payload);
    _published[name] = there;
    _digest += there;
  }
  _dirty.insert(name);
  pump();
}

void agent::on_status(const message& received) {
  const auto other = parse_status(received.payload);
  const bool gone = !other || other->state == presence::offline;
  const bool own = other && other->start == _options.start;
  if (!_synced && received.retained) {
    _retained = other;
    return;
  }
  if (own && !gone) return;
  if (!gone) {
    const bool newer = other->start > _options.start;
    if (other->machine == _options.machine) {
      if (newer) return end(agent_end::replaced, "a newer agent of this machine has taken over");
    } else if (!newer || !(_synced || _established)) {
      return end_taken(other->machine);
    }
  }
  // The status was cleared, is not an agent's, or is another agent's: one that has not received this one's
  // claim yet, or one whose last will the broker sends only now. Publish the own status again.
  _status_due = _status_due || _synced;
  pump();
}

void agent::end_taken(const std::string& machine) {
  end(agent_end::name_taken, "the host name " + _options.host + " is in use by machine " + machine +
                                 "; this is machine " + _options.machine);
}

void agent::claim_name() {
  publish("sync", to_payload(claim{_options.start, _options.machine, _established}), false);
}

void agent::on_claim(const std::string& payload) {
  const auto other = parse_claim(payload);
  if (!other) return;
  const bool same = other->machine == _options.machine;
  const bool newer = other->start > _options.start;
  if (other->start != _options.start) {
    if (same && newer) return end(agent_end::replaced, "a newer agent of this machine has taken over");
    if (!same && (other->established == _established ? !newer : other->established))
      return end_taken(other->machine);
    if (_synced) {
      _status_due = true;
      pump();
    } else if (_wait != 0) {
      claim_name();  // the other agent has subscribed too late to receive the first
    }
    return;
  }
  if (_synced || _wait != 0) return;
  // If another agent has the name, it answers this claim.
  const bool rival = _retained && _retained->state != presence::offline &&
                     (_retained->machine != _options.machine || _retained->start > _options.start);
  const bool known = _established || (_retained && _retained->machine == _options.machine);
  if (!rival && known) return establish();
  _wait = _loop.after(rival ? _options.rival_limit : _options.newcomer_limit, [this] {
    _wait = 0;
    establish();
  });
}

void agent::establish() {
  _handlers.log("connected to " + _options.connection.broker.host + " as host " + _options.host +
                " of machine " + _options.machine);
  _last_loss.clear();
  _synced = _established = _restoring = _status_due = true;
  for (const auto& [name, each] : _devices) _dirty.insert(name);
  for (const auto& [name, each] : _published) _dirty.insert(name);
  const bool equal =
      std::none_of(_dirty.begin(), _dirty.end(), [this](const std::string& name) { return differs(name); });
  if (!equal && _retained && _retained->state == presence::online) publish_status(presence::restoring);
  pump();
  beat();
}

void agent::beat() {
  _beat = _loop.after(_options.heartbeat, [this] {
    if (!_restoring) publish_inventory();
    beat();
  });
}

}  // namespace yusb::fleet
