#include "connection.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "failure.h"
#include "message_age.h"

namespace yusb::fleet {

namespace {

struct mosquitto_library {
  mosquitto_library() { mosquitto_lib_init(); }
};

// 0 if the TCP connection was established. Call it when the socket is ready.
int connect_error(int socket) {
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
  if (error == ECONNRESET) return 0;  // since then
  sockaddr_storage peer;
  size = sizeof peer;
  // The library may have written to the socket, which clears its error, before the loop watched it.
  const bool cleared = error == 0 && getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) != 0;
  return cleared ? ECONNREFUSED : error;
}

struct attempt {
  int result;
  std::string reason;
  bool last_family;
};

const char* c_string(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

}  // namespace

// The MQTT library calls these from the functions of it that the loop calls.
struct connection::callbacks {
  static void connected(mosquitto*, void* object, int reason, int, const mosquitto_property*) {
    auto& self = *static_cast<connection*>(object);
    if (reason != 0) {
      self._refusal = mosquitto_reason_string(reason);
      return;
    }
    self._connected = true;
    self._loop.cancel(std::exchange(self._connecting, 0));
    self._handlers.connected();
  }

  static void disconnected(mosquitto*, void* object, int reason, const mosquitto_property*) {
    auto& self = *static_cast<connection*>(object);
    if (reason >= 128 && self._refusal.empty()) self._refusal = mosquitto_reason_string(reason);
  }

  static void received(mosquitto*, void* object, const mosquitto_message* given,
                       const mosquitto_property* list) {
    auto& self = *static_cast<connection*>(object);
    if (self._failing) return;
    const auto size = static_cast<std::size_t>(given->payloadlen);
    self._handlers.received({given->topic, std::string(static_cast<const char*>(given->payload), size),
                             given->retain, age_of(list)});
  }

  static void subscribed(mosquitto*, void* object, int id, int count, const int* granted,
                         const mosquitto_property*) {
    auto& self = *static_cast<connection*>(object);
    if (!self._failing)
      self._handlers.subscribed(id, std::all_of(granted, granted + count, [](int qos) { return qos < 128; }));
  }

  static void published(mosquitto*, void* object, int id, int reason, const mosquitto_property*) {
    auto& self = *static_cast<connection*>(object);
    if (!self._failing) self._handlers.acknowledged(id, reason < 128 ? "" : mosquitto_reason_string(reason));
  }
};

connection::connection(loop& loop, connection_options options, handlers handlers)
    : _loop(loop),
      _options(std::move(options)),
      _handlers(std::move(handlers)),
      _random(std::random_device()()),
      _self(std::make_shared<connection*>(this)) {
  static const mosquitto_library initialised;
}

connection::~connection() { stop(); }

void connection::start() { connect(); }

void connection::stop() {
  if (_client != nullptr && _socket != -1) disconnect();
  drop();
  _loop.cancel(_retry);
}

void connection::disconnect() {
  const auto leave = [client = _client] {
    mosquitto_disconnect_v5_callback_set(client.get(), nullptr);
    mosquitto_disconnect(client.get());
  };
  // In a handler, the library holds its lock, and the DISCONNECT would stay in its queue.
  _in_library ? _loop.post(leave) : leave();
}

void connection::connect() {
  _retry = 0;
  _client.reset(mosquitto_new(_options.client_id.c_str(), true, this), [](mosquitto* client) {
    if (client != nullptr) mosquitto_destroy(client);
  });
  mosquitto* const client = _client.get();
  if (client == nullptr) return retry("out of memory");
  mosquitto_log_callback_set(client, keep_logged);
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_connect_v5_callback_set(client, callbacks::connected);
  mosquitto_disconnect_v5_callback_set(client, callbacks::disconnected);
  mosquitto_message_v5_callback_set(client, callbacks::received);
  mosquitto_subscribe_v5_callback_set(client, callbacks::subscribed);
  mosquitto_publish_v5_callback_set(client, callbacks::published);
  int result = MOSQ_ERR_SUCCESS;
  if (!_options.user.empty()) {
    result = mosquitto_username_pw_set(client, _options.user.c_str(), c_string(_options.password));
  }
  if (result == MOSQ_ERR_SUCCESS && _options.broker.tls) {
    const auto no_password = [](char*, int, int, void*) { return 0; };  // else it asks on the terminal
    result = mosquitto_tls_set(client, c_string(_options.ca_file),
                               _options.ca_file.empty() ? "/etc/ssl/certs" : nullptr,
                               c_string(_options.certificate_file), c_string(_options.key_file), no_password);
  }
  const std::optional<message> will = _handlers.will ? _handlers.will() : std::nullopt;
  if (result == MOSQ_ERR_SUCCESS && will) {
    properties list(*will);
    result = mosquitto_will_set_v5(client, will->topic.c_str(), static_cast<int>(will->payload.size()),
                                   will->payload.data(), 1, will->retained, list.list);
    if (result == MOSQ_ERR_SUCCESS) list.list = nullptr;  // the library's now
  }
  if (result != MOSQ_ERR_SUCCESS) return retry(reason_of(result));

  // This resolves the broker's name, which can take long. Nothing else uses `client` until it is done.
  const auto made = std::make_shared<attempt>();
  _loop.background(
      [made, client = _client, broker = _options.broker, keep_alive = _options.keep_alive, family = _family] {
        forget_logged();
        // The library tries one address, which may be of a family that the broker or the network lacks.
        const auto local = local_addresses(broker.host);
        made->last_family = family + 1 >= local.size();
        made->result = mosquitto_connect_bind_async(client.get(), broker.host.c_str(), broker.port,
                                                    static_cast<int>(keep_alive.count()),
                                                    c_string(local[std::min(family, local.size() - 1)]));
        if (made->result != MOSQ_ERR_SUCCESS) made->reason = first_reason_of(made->result, broker.tls);
      },
      [made, client = _client, weak = std::weak_ptr<connection*>(_self)] {
        const auto self = weak.lock();
        if (self == nullptr || (*self)->_client != client) return;
        (*self)->_last_family = made->last_family;
        if (made->result != MOSQ_ERR_SUCCESS) return (*self)->retry(made->reason);
        (*self)->attempted();
      });
}

void connection::attempted() {
  _socket = mosquitto_socket(_client.get());
  if (_socket < 0) return retry("connection refused");
  forget_logged();
  _heard = loop::clock::now();
  _events = EPOLLIN | EPOLLOUT;
  _loop.watch(_socket, _events, [this](std::uint32_t events) { on_socket(events); });
  _tick = _loop.after(std::chrono::seconds(1), [this] { tick(); });
  _connecting = _loop.after(_options.connect_limit, [this] { fail("the broker does not answer"); });
}

void connection::check(int result) {
  if (_client == nullptr) return;
  if (!_refusal.empty()) return fail(_refusal);
  if (result != MOSQ_ERR_SUCCESS)
    return fail(_connected ? reason_of(result) : first_reason_of(result, _options.broker.tls));
  if (_socket != -1 && !_failing) update_events();
}

void connection::on_socket(std::uint32_t events) {
  if ((events & EPOLLIN) != 0) _heard = loop::clock::now();
  if (!_reached) {
    // With TLS, the library would write to a refused connection again and again.
    if (const int error = connect_error(_socket)) return fail(std::strerror(error));
    _reached = true;
  }
  const std::shared_ptr<mosquitto> client = _client;  // a handler may call stop()
  // Most brokers leave Nagle's algorithm on. With delayed acknowledgements, the second of two messages would
  // take 40 ms. The kernel forgets this option by itself.
  const int on = 1;
  setsockopt(_socket, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
  // Reading also advances a TLS handshake, which writing does not.
  _in_library = true;
  int result = mosquitto_loop_read(client.get(), 1);
  if (result == MOSQ_ERR_SUCCESS && _client == client) result = mosquitto_loop_write(client.get(), 1);
  _in_library = false;
  if (_client == client) check(result);
}

void connection::tick() {
  const std::shared_ptr<mosquitto> client = _client;
  _tick = _loop.after(std::chrono::seconds(1), [this] { tick(); });
  // The broker answers the pings that the library sends once per keep-alive. The library itself may not
  // notice a missing answer while it has other messages to send.
  if (_connected && loop::clock::now() - _heard > _options.keep_alive * 3 / 2)
    return fail("the broker has fallen silent");
  _in_library = true;
  const int result = mosquitto_loop_misc(client.get());
  _in_library = false;
  if (_client == client) check(result);
}

void connection::update_events() {
  const std::uint32_t events = EPOLLIN | (mosquitto_want_write(_client.get()) ? EPOLLOUT : 0U);
  if (events == _events) return;
  _events = events;
  _loop.set_events(_socket, events);
}

void connection::drop() {
  // Before the library closes the descriptor: afterwards another connection may get the same number.
  if (_socket != -1) _loop.unwatch(_socket);
  _socket = -1;
  for (const loop::timer each : {_tick, _connecting}) _loop.cancel(each);
  _client.reset();
  _connected = _reached = false;
  _failing = false;
  _refusal.clear();
}

void connection::fail(const std::string& reason) {
  if (_failing || _client == nullptr) return;
  _failing = true;
  if (_socket != -1) _loop.unwatch(_socket);
  _socket = -1;
  // Posted, because the library may have called this.
  _loop.post([reason, weak = std::weak_ptr<connection*>(_self)] {
    const auto self = weak.lock();
    if (self != nullptr && (*self)->_failing) (*self)->retry(reason);
  });
}

void connection::retry(const std::string& reason) {
  const bool another = !_reached && !_last_family;
  drop();
  _family = another ? _family + 1 : 0;
  _last_family = true;
  if (another) return connect();
  const auto limit = std::min<std::chrono::milliseconds>(
      _options.longest_delay, _options.first_delay * (1U << std::min(_attempts, 10U)));
  ++_attempts;
  const auto delay = std::uniform_int_distribution<long long>(0, limit.count())(_random);
  _retry = _loop.after(std::chrono::milliseconds(delay), [this] { connect(); });
  _handlers.lost(reason);
}

int connection::publish(const message& sent) {
  int id = 0;
  if (_client == nullptr || _failing) return id;
  const properties list(sent);
  check(mosquitto_publish_v5(_client.get(), &id, sent.topic.c_str(), static_cast<int>(sent.payload.size()),
                             sent.payload.data(), 1, sent.retained, list.list));
  return id;
}

int connection::subscribe(const std::vector<std::string>& filters, bool others_only) {
  int id = 0;
  if (_client == nullptr || _failing) return id;
  std::vector<char*> list;
  for (const std::string& filter : filters) list.push_back(const_cast<char*>(filter.c_str()));
  check(mosquitto_subscribe_multiple(_client.get(), &id, static_cast<int>(list.size()), list.data(), 0,
                                     others_only ? MQTT_SUB_OPT_NO_LOCAL : 0, nullptr));
  return id;
}

void connection::unsubscribe(const std::string& filter) {
  if (_client == nullptr || _failing) return;
  check(mosquitto_unsubscribe(_client.get(), nullptr, filter.c_str()));
}

}  // namespace yusb::fleet
