// The picture of all hosts, from what their agents publish.
#ifndef YUSB_FLEET_READER_H_
#define YUSB_FLEET_READER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "connection.h"
#include "loop.h"
#include "payload.h"
#include "topic.h"

namespace yusb::fleet {

enum class host_state {
  unknown,  // not back since the broker restarted: there is no status, or the agent restores its topics
  online,
  stale,      // online, but without a sign of life for three heartbeats
  offline,    // its agent has ended or lost its connection; its devices are as last known
  forgotten,  // its topics were cleared; reported once, then the reader has no such host
};
const char* to_string(host_state state);

struct shown_device {
  std::string payload;
  std::uint64_t digest;
  format::known_device device;
};

// Devices by the level of their topics.
using device_map = std::map<std::string, std::shared_ptr<const shown_device>>;

struct host {
  std::string name;
  host_state state = host_state::unknown;
  std::optional<fleet::status> status;
  std::optional<fleet::inventory> inventory;
  device_map
      devices;  // the last picture that was whole; else what the broker has of a host that is not online
  bool incomplete =
      false;  // online, and its topics still differ from its inventory after they were read again
  // When the last status or inventory was published, according to the broker; for an offline host, since when
  // it has been offline.
  format::time_point last_sign() const;

 private:
  friend class reader;
  device_map received;       // may be between two pictures
  std::uint64_t digest = 0;  // the sum of those
  bool reported = false;
  bool outdated = false;  // the broker has an old database: what it retains is older than `devices`
  bool accepted = false;  // differs from its inventory, and no agent is connected that could change this
  format::time_point shown_at;  // when the agent made the inventory of `devices`
  unsigned repairs = 0;         // without success
  std::uint64_t repaired = 0;   // the digest after the last one
  loop::timer repair = 0;
  bool repairing = false;  // the broker has not sent everything again yet
  loop::clock::time_point alive;
};

enum class device_news { arrival, removal, change };

// A host's devices are updated only when the picture of the host is whole: when number and digest of the
// devices that were received equal those in the inventory. So a removal is reported only if the agent has
// published it, even while the broker restarts or drops messages. If they differ, the host's topics are read
// again, for about five seconds. If they still differ, an online host is reported as incomplete, and is read
// again with its next inventory. Any other host counts as complete as soon as the broker has sent the same
// devices twice: its agent was interrupted, and the devices are the last known ones.
class reader {
 public:
  struct handlers {
    std::function<void(const host&, device_news, const shown_device&)> device;
    std::function<void(const host&)> state;                   // a new host, or another state
    std::function<void()> complete;                           // every host is whole; once per connection
    std::function<void(const std::string& host)> incomplete;  // its picture stays incomplete
    std::function<void(const std::string& line)> log;
    std::function<void(const std::string& reason)> lost;
    std::function<void()> published = {};  // the broker has accepted a publication through broker()
  };

  // `only` is one host, as a level of a topic. If it is empty, all hosts are read.
  reader(loop& loop, connection_options options, std::string prefix, std::string only, handlers handlers);
  ~reader();

  void start() { _connection.start(); }
  // By the level of their topics.
  const std::map<std::string, host>& hosts() const { return _hosts; }
  bool complete() const { return _complete; }
  // True if the picture of every host is whole now.
  bool whole() const;
  // True if every host is whole or was reported as incomplete.
  bool settled() const;
  connection& broker() { return _connection; }
  // The topics of a host that the broker retains, even if their payloads are not an agent's.
  std::set<std::string> topics(const std::string& level) const;

 private:
  void on_connected();
  void on_lost(const std::string& reason);
  void on_subscribed(int id);
  void on_message(const message& received);
  void on_cleared(const topic& cleared, bool live);
  void on_device(host& from, const std::string& name, const message& received);
  void on_status(host& from, fleet::status made, const message& received);
  void on_inventory(host& from, const fleet::inventory& made, const message& received);
  bool remove_received(host& from, const std::string& name);
  host& known(const topic& of);
  bool whole(const host& each) const;
  void check(const std::string& level, host& each);
  void show(host& each);
  void accept(host& each);
  void repair(const std::string& level);
  void check_complete();
  void update_state(host& each);
  void update_states();
  void skip(const message& received);

  loop& _loop;
  const std::string _prefix;
  const std::string _only;
  const handlers _handlers;
  std::map<std::string, host> _hosts;
  std::set<std::string> _skipped;
  std::map<int, std::string> _repairs;  // hosts by the ID of the subscription that ends the repair
  int _first = 0;                       // subscriptions: of states,
  int _last = 0;                        // and the one after those of devices
  bool _listed = false;                 // everything retained was received or dropped
  bool _complete = false;
  loop::timer _tick = 0;
  connection _connection;
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_READER_H_
