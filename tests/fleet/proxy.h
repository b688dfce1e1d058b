// A network between a client and the broker that can fail.
#ifndef TESTS_FLEET_PROXY_H_
#define TESTS_FLEET_PROXY_H_

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <map>
#include <string>
#include <thread>

#include "fleet/loop.h"

namespace yusb::fleet {

// Forwards connections to a port, on a thread of its own.
class proxy {
 public:
  explicit proxy(int target) : _target(local(target)), _listener(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in any = local(0);
    socklen_t size = sizeof any;
    bind(_listener, reinterpret_cast<sockaddr*>(&any), size);
    listen(_listener, 10);
    getsockname(_listener, reinterpret_cast<sockaddr*>(&any), &size);
    _port = ntohs(any.sin_port);
    _thread = std::thread([this] {
      listen_again();
      _loop.run();
    });
  }
  ~proxy() {
    _loop.post([this] { _loop.stop(); });
    _thread.join();
    for (const auto& [from, to] : _links) close(from);
    close(_listener);
  }

  int port() const { return _port; }

  // Forwards nothing, not even that a side has closed its connection: a partition.
  void cut() {
    run([this] {
      for (const auto& [from, to] : _links) _loop.unwatch(from);
      _loop.unwatch(_listener);
    });
  }
  void heal() {
    run([this] {
      for (const auto& [from, to] : _links) watch(from);
      listen_again();
    });
  }
  // Drops the next message of this topic that the broker sends.
  void drop_next(const std::string& topic) {
    run([this, topic] { _dropped = topic; });
  }

 private:
  // On the thread; returns when it is done.
  void run(const std::function<void()>& task) {
    std::promise<void> done;
    _loop.post([&] {
      task();
      done.set_value();
    });
    done.get_future().wait();
  }
  static sockaddr_in local(int port) {
    sockaddr_in made{};
    made.sin_family = AF_INET;
    made.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    made.sin_port = htons(static_cast<std::uint16_t>(port));
    return made;
  }
  void listen_again() {
    _loop.watch(_listener, EPOLLIN, [this](std::uint32_t) {
      const int client = accept(_listener, nullptr, nullptr);
      const int broker = socket(AF_INET, SOCK_STREAM, 0);
      if (connect(broker, reinterpret_cast<const sockaddr*>(&_target), sizeof _target) != 0) {
        close(client);
        close(broker);
        return;
      }
      _links[client] = broker;
      _links[broker] = client;
      _to_client[broker] = "";
      watch(client);
      watch(broker);
    });
  }
  void watch(int from) {
    _loop.watch(from, EPOLLIN, [this, from](std::uint32_t) { forward(from); });
  }
  void forward(int from) {
    const int to = _links[from];
    char bytes[65536];
    const ssize_t size = recv(from, bytes, sizeof bytes, 0);
    if (size <= 0) {
      for (const int each : {from, to}) {
        _loop.unwatch(each);
        _links.erase(each);
        _to_client.erase(each);
        close(each);
      }
      return;
    }
    std::string text(bytes, static_cast<std::size_t>(size));
    const auto packets = _to_client.find(from);
    if (packets != _to_client.end()) text = filtered(packets->second += text);
    send(to, text.data(), text.size(), MSG_NOSIGNAL);
  }
  // Takes the whole packets from `bytes`, and returns them without the one to drop.
  std::string filtered(std::string& bytes) {
    std::string kept;
    for (;;) {
      std::size_t length = 0;
      std::size_t head = 1;
      for (unsigned shift = 0; head < bytes.size() && head < 5; shift += 7) {
        length |= (static_cast<unsigned char>(bytes[head]) & 0x7fU) << shift;
        if ((static_cast<unsigned char>(bytes[head++]) & 0x80U) == 0) break;
      }
      if (head < 2 || bytes.size() < head + length) return kept;
      const std::string packet = bytes.substr(0, head + length);
      bytes.erase(0, head + length);
      const bool publish = (static_cast<unsigned char>(packet[0]) >> 4U) == 3;
      if (publish && !_dropped.empty() && packet.find(_dropped) != std::string::npos)
        _dropped.clear();
      else
        kept += packet;
    }
  }

  const sockaddr_in _target;
  const int _listener;
  int _port = 0;
  // Of the thread.
  loop _loop;
  std::map<int, int> _links;              // descriptors, both ways
  std::map<int, std::string> _to_client;  // by the broker's: the bytes of a packet that is not whole
  std::string _dropped;
  std::thread _thread;
};

}  // namespace yusb::fleet

#endif  // TESTS_FLEET_PROXY_H_
