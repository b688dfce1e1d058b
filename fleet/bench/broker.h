// A broker for tests and measurements: Mosquitto on a free port of this host.
#ifndef YUSB_FLEET_BENCH_BROKER_H_
#define YUSB_FLEET_BENCH_BROKER_H_

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace yusb::fleet {

inline sockaddr_in loopback(int port) {
  sockaddr_in made{};
  made.sin_family = AF_INET;
  made.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  made.sin_port = htons(static_cast<std::uint16_t>(port));
  return made;
}

// Returns a socket that is bound to a free port.
inline int bound_socket(int* port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  bind(descriptor, reinterpret_cast<sockaddr*>(&address), size);
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
  *port = ntohs(address.sin_port);
  return descriptor;
}

class broker {
 public:
  // `settings` are lines of its configuration. A database, if they ask for one, is in its folder.
  explicit broker(const std::string& settings) {
    char folder[] = "/tmp/yusb-fleet-XXXXXX";
    _folder = mkdtemp(folder);
    close(bound_socket(&_port));
    std::filesystem::permissions(_folder, std::filesystem::perms::all);  // it may drop its privileges
    std::ofstream(file("conf")) << "listener " << _port << " 127.0.0.1\nallow_anonymous true\n"
                                << "persistence_location " << _folder.string() << "/\n"
                                << settings;
  }
  ~broker() {
    if (_process > 0) end(SIGKILL);
    std::filesystem::remove_all(_folder);
  }
  broker(const broker&) = delete;
  broker& operator=(const broker&) = delete;

  void start() {
    _process = fork();
    if (_process != 0) return;
    // It ends with this process, even if that is killed, and does not hold its output open.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (FILE* const each : {stdout, stderr}) static_cast<void>(!freopen(file("log").c_str(), "a", each));
    execlp("mosquitto", "mosquitto", "-c", file("conf").c_str(), nullptr);
    _exit(127);
  }
  void signal(int number) const { kill(_process, number); }
  void end(int number) {
    signal(number);
    waitpid(_process, nullptr, 0);
    _process = 0;
  }

  pid_t process() const { return _process; }
  int port() const { return _port; }
  std::filesystem::path file(const char* name) const { return _folder / name; }

 private:
  int _port = 0;
  std::filesystem::path _folder;
  pid_t _process = 0;
};

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_BENCH_BROKER_H_
