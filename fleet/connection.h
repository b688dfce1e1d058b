// A connection to an MQTT broker that is made again whenever it is lost.
#ifndef YUSB_FLEET_CONNECTION_H_
#define YUSB_FLEET_CONNECTION_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "loop.h"

struct mosquitto;

namespace yusb::fleet {

struct broker_address {
  bool tls = false;
  std::string host;
  int port = 0;
};

// mqtt://HOST[:PORT] or mqtts://HOST[:PORT]; an IPv6 address in brackets. Empty if `text` is neither.
std::optional<broker_address> parse_broker(std::string_view text);

// The local addresses from which to connect to `host`: the wildcard address of each family in which it has
// addresses, in the resolver's order. One empty text if it has one family, or none. Blocks.
std::vector<std::string> local_addresses(const std::string& host);

struct connection_options {
  broker_address broker;
  std::string user;  // empty: without one
  std::string password;
  std::string ca_file;           // empty: the system's
  std::string certificate_file;  // empty: without one
  std::string key_file;
  std::string client_id;
  std::chrono::seconds keep_alive{30};  // at least 5
  // Between attempts: the first limit, which doubles, and the last one.
  std::chrono::milliseconds first_delay{500};
  std::chrono::milliseconds longest_delay{30000};
  // From the start of the TCP connection to the broker's CONNACK. An idle broker takes milliseconds; one that
  // has just restarted takes seconds for a thousand TLS handshakes, which must not be given up and repeated.
  std::chrono::milliseconds connect_limit{10000};
};

struct message {
  std::string topic;
  std::string payload;
  bool retained = false;  // received: the broker had stored it; sent: the broker is to store it
  // Of a received one: how long ago it was published, by the broker's clock. 0 if another program sent it.
  std::chrono::seconds age{0};
};

// Does not block: names are resolved on the loop's background thread. An attempt connects to an address of
// each family that the broker's host has, one after the other. A broker that does not answer within the
// connect limit, or sends nothing for one and a half keep-alives, counts as lost. After
// each loss it waits for a random time, whose limit doubles with every failed attempt, and connects again. It
// does not repeat publications that were not acknowledged before the loss.
class connection {
 public:
  // Called by the loop, between start() and stop(). They may publish and subscribe, and call fail() and
  // stop().
  struct handlers {
    std::function<void()> connected;
    std::function<void(const std::string& reason)> lost;  // also after an attempt that failed
    std::function<void(const message&)> received;
    std::function<void(int id, bool granted)> subscribed;
    std::function<void(int id, const std::string& refusal)> acknowledged;  // a publication; "": accepted
    std::function<std::optional<message>()> will;                          // asked before each attempt
  };

  connection(loop& loop, connection_options options, handlers handlers);
  ~connection();
  connection(const connection&) = delete;
  connection& operator=(const connection&) = delete;

  void start();

  // Disconnects, so that the broker does not send the will. No handler is called afterwards.
  void stop();

  // Gives this connection up and makes another one.
  void fail(const std::string& reason);

  // Call it when the connection has proved useful: the next loss then counts as the first.
  void settled() { _attempts = 0; }

  // With QoS 1. Returns an ID for `acknowledged`, which is not called if the connection is lost.
  int publish(const message& sent);
  // With QoS 0. Returns one ID for `subscribed`. `others_only` leaves out what this client publishes.
  int subscribe(const std::vector<std::string>& filters, bool others_only);
  void unsubscribe(const std::string& filter);

 private:
  struct callbacks;
  friend struct callbacks;

  void connect();
  void attempted();
  void on_socket(std::uint32_t events);
  void tick();
  void update_events();
  void drop();
  void disconnect();
  void retry(const std::string& reason);
  void check(int result);

  loop& _loop;
  const connection_options _options;
  const handlers _handlers;
  std::shared_ptr<mosquitto> _client;  // of the current attempt
  int _socket = -1;                    // that the loop watches
  std::uint32_t _events = 0;
  bool _reached = false;    // the TCP connection is established
  bool _connected = false;  // the broker has accepted the client
  bool _failing = false;
  bool _in_library = false;  // a handler is being called by it
  std::string _refusal;
  loop::clock::time_point _heard;  // when the broker last sent something
  unsigned _attempts = 0;
  std::size_t _family = 0;  // the index in local_addresses() of this attempt
  bool _last_family = true;
  loop::timer _tick = 0;
  loop::timer _retry = 0;
  loop::timer _connecting = 0;
  std::minstd_rand _random;
  std::shared_ptr<connection*> _self;  // expires with the object
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_CONNECTION_H_
