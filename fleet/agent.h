// The part of an agent that publishes one host's devices.
#ifndef YUSB_FLEET_AGENT_H_
#define YUSB_FLEET_AGENT_H_

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "connection.h"
#include "loop.h"
#include "payload.h"

namespace yusb::fleet {

struct device_change {
  enum class kind { set, removal, reset };
  kind what = kind::set;
  std::string name;                            // not of a reset
  std::string payload;                         // of a set
  std::map<std::string, std::string> devices;  // of a reset: what is attached, payloads by name
};

// Where an agent gets its devices from. The first change is a reset.
class device_source {
 public:
  virtual ~device_source() = default;
  // Readable while next() has a change. The source owns it.
  virtual int descriptor() = 0;
  virtual std::optional<device_change> next() = 0;
};

struct agent_options {
  connection_options connection;  // client_id is made from the rest
  std::string prefix = "yusb";
  std::string host;
  std::string machine;  // the same for every agent of a machine
  std::string start;    // empty: made from the time
  std::string version;
  std::chrono::seconds heartbeat{30};
  // How long to wait for the answer of another agent if the broker has the status of one that is online.
  std::chrono::milliseconds rival_limit{3000};
  // How long to wait otherwise: another agent may be connecting at this moment, without a status yet.
  std::chrono::milliseconds newcomer_limit{500};
};

enum class agent_end {
  stopped,     // by stop()
  replaced,    // by a newer agent of this machine
  name_taken,  // by another machine's agent
};

// Keeps the retained topics of its host equal to what the source reports:
//
//   PREFIX/HOST/device/NAME  one for each attached device
//   PREFIX/HOST/inventory    the number and the digest of these, after each change and once per heartbeat
//   PREFIX/HOST/status       online; the last will sets it to offline
//
// Each time it connects, it reads these topics from the broker, clears or publishes those that differ, then
// publishes the inventory, then the status. If devices differ while the broker has the status online, it
// first publishes the status restoring. While it is disconnected, it keeps only the current state; the
// sequence numbers in PREFIX/HOST/event then have a gap.
//
// If two agents on one machine have the same host name, the one that started later continues; on different
// machines, the one that published first. An agent that detects another one publishes only its claim until it
// is decided which one continues.
class agent {
 public:
  struct handlers {
    std::function<void(const std::string& line)> log;
    // The agent has stopped, and does nothing more.
    std::function<void(agent_end why, const std::string& reason)> ended;
  };

  agent(loop& loop, agent_options options, device_source& source, handlers handlers);
  ~agent();

  void start();

  // Publishes that the host is offline, if the broker can be reached within 2 seconds.
  void stop();

  // True if the broker has acknowledged everything that there is to publish.
  bool settled() const;
  // The number of publications so far.
  std::uint64_t published() const { return _count; }

 private:
  struct device {
    std::string payload;
    std::uint64_t digest;
  };

  void on_connected();
  void on_lost(const std::string& reason);
  void on_message(const message& received);
  void on_acknowledged(int id, const std::string& refusal);
  void on_own_device(const std::string& name, const message& received);
  void on_claim(const std::string& payload);
  void on_status(const message& received);
  void end_taken(const std::string& machine);
  void take_changes();
  void take(device_change change);
  void set(const std::string& name, const std::string& payload, bool counted);
  void remove(const std::string& name);
  void tell(const std::string& payload, bool arrived);
  void claim_name();
  void establish();
  bool differs(const std::string& name) const;
  void pump();
  void publish_device(const std::string& name);
  void publish_inventory();
  void publish_status(presence state);
  void publish(const std::string& what, std::string payload, bool retained);
  void beat();
  void end(agent_end why, const std::string& reason = "");
  void release();
  status made_status(presence state) const;

  loop& _loop;
  const agent_options _options;
  const std::string _root;  // PREFIX/HOST/
  device_source& _source;
  const handlers _handlers;

  std::map<std::string, device> _devices;           // attached
  std::map<std::string, std::uint64_t> _published;  // digests by name of what the broker has
  std::uint64_t _digest = 0;                        // the sum of those
  std::set<std::string> _dirty;                     // names whose topics may differ
  std::deque<std::string> _events;
  std::uint64_t _sequence = 0;
  std::uint64_t _arrivals = 0;
  std::uint64_t _removals = 0;
  std::optional<inventory> _announced;  // the last one that the broker has
  loop::clock::time_point _announced_at;

  bool _started = false;      // the source has said what is attached
  bool _synced = false;       // what the broker has is known, and it may publish
  bool _established = false;  // was synced once
  bool _restoring = false;    // the inventory waits until the topics are equal after a connect
  bool _status_due = false;
  bool _ended = false;
  bool _stopping = false;
  int _subscription = 0;            // the ID of the last one
  std::optional<status> _retained;  // the status that the broker had at this connect
  std::set<int> _in_flight;         // publications without an acknowledgement
  std::uint64_t _count = 0;
  std::string _last_loss;
  loop::timer _beat = 0;
  loop::timer _wait = 0;       // for a rival's answer, or for the end
  loop::timer _inventory = 0;  // that is due later
  connection _connection;
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_AGENT_H_
