// What the topics carry: JSON objects of schema 1. docs/fleet.md lists their fields.
#ifndef YUSB_FLEET_PAYLOAD_H_
#define YUSB_FLEET_PAYLOAD_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "format/known_device.h"

namespace yusb::fleet {

enum class presence {
  offline,
  restoring,  // connected again; its topics are not yet up to date
  online,
};

// PREFIX/HOST/status
struct status {
  format::time_point when;  // by the agent's clock; in a last will, the time of the connection
  presence state = presence::offline;
  std::string host;
  std::string start;    // names one run of an agent; a later one's is greater
  std::string machine;  // names the machine
  std::string version;
  int heartbeat = 0;  // seconds between inventories, at most
};
std::string to_payload(const status& made);
std::optional<status> parse_status(std::string_view payload);

// PREFIX/HOST/inventory: what the device topics add up to.
struct inventory {
  format::time_point when;
  std::size_t devices = 0;
  std::uint64_t digest = 0;    // the sum of theirs
  std::uint64_t arrivals = 0;  // since the agent started, without the devices that were attached then
  std::uint64_t removals = 0;
};
std::string to_payload(const inventory& made);
std::optional<inventory> parse_inventory(std::string_view payload);

// PREFIX/HOST/sync: an agent's claim on its host name, for itself and for other agents with that name.
struct claim {
  std::string start;
  std::string machine;
  bool established = false;  // has published before
};
std::string to_payload(const claim& made);
std::optional<claim> parse_claim(std::string_view payload);

// PREFIX/HOST/device/NAME: the object that `yusb watch --openable --json` prints.
std::string device_payload(const format::event& event, bool openable);

// A device's part of the digest: of its name and its payload without the time. 0 if it is not an object.
std::uint64_t digest(std::string_view name, std::string_view payload);

// The device of a payload; empty if it is not one of ours.
std::optional<format::known_device> parse_device(std::string_view payload);

// True if two devices of one topic, from parse_device(), are one device that stayed attached.
bool same_attachment(const format::known_device& a, const format::known_device& b);

// PREFIX/HOST/event: the device's payload with another "event" and "time", and with "start" and "sequence".
std::string event_payload(std::string_view device, bool arrived, const std::string& start,
                          std::uint64_t sequence);

// A line that the reader prints: the device's payload with "event", "initial", "host" and "host_state", and
// with another "time" if `when` is given.
std::string reader_line(std::string_view device, const char* event, bool initial, const std::string& host,
                        const char* host_state, std::optional<format::time_point> when = {});

// A line about a host: {"schema":1,"time":...,"event":"host","host":...,"host_state":...}, and "host_since"
// if `since` is given.
std::string host_line(const std::string& host, const char* host_state,
                      std::optional<format::time_point> since);

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_PAYLOAD_H_
