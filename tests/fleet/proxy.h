// A network between a client and the broker that can fail.
#ifndef TESTS_FLEET_PROXY_H_
#define TESTS_FLEET_PROXY_H_

#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <string>

#include "fleet/bench/broker.h"
#include "fleet/loop.h"

namespace yusb::fleet {

// Forwards the connections of a listening socket to a port.
class forwarder {
 public:
  forwarder(int listener, const sockaddr_in& target) {
    std::signal(SIGUSR1, [](int) { _dropping = 1; });
    _loop.watch(listener, EPOLLIN, [this, listener, target](std::uint32_t) {
      const int client = accept(listener, nullptr, nullptr);
      const int broker = socket(AF_INET, SOCK_STREAM, 0);
      if (connect(broker, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
        close(client);
        close(broker);
        return;
      }
      link(client, broker);
      link(broker, client);
      _to_client[broker] = "";
    });
    _loop.run();
  }

 private:
  void link(int from, int to) {
    _links[from] = to;
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
  static std::string filtered(std::string& bytes) {
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
      if (_dropping != 0 && publish && packet.find("/device/") != std::string::npos)
        _dropping = 0;
      else
        kept += packet;
    }
  }

  static inline volatile std::sig_atomic_t _dropping = 0;
  loop _loop;
  std::map<int, int> _links;              // descriptors, both ways
  std::map<int, std::string> _to_client;  // by the broker's: the bytes of a packet that is not whole
};

// A forwarder in a process of its own, which is stopped for a partition.
class proxy {
 public:
  explicit proxy(int target) {
    const int listener = bound_socket(&_port);
    listen(listener, 10);
    _process = fork();
    if (_process == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      forwarder(listener, loopback(target));
    }
    close(listener);
  }
  ~proxy() {
    kill(_process, SIGKILL);
    waitpid(_process, nullptr, 0);
  }
  proxy(const proxy&) = delete;
  proxy& operator=(const proxy&) = delete;

  int port() const { return _port; }

  // Forwards nothing, not even that a side has closed its connection: a partition.
  void cut() const {
    kill(_process, SIGSTOP);
    waitpid(_process, nullptr, WUNTRACED);
  }
  void heal() const { kill(_process, SIGCONT); }
  // Drops the next message of a device topic that the broker sends.
  void drop_next_device() const { kill(_process, SIGUSR1); }

 private:
  int _port = 0;
  pid_t _process = 0;
};

}  // namespace yusb::fleet

#endif  // TESTS_FLEET_PROXY_H_
