// A real broker, Mosquitto, on a port of its own, and what the tests of agents and readers have in common.
#ifndef TESTS_FLEET_HARNESS_H_
#define TESTS_FLEET_HARNESS_H_

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fleet/agent.h"
#include "fleet/bench/generator.h"
#include "fleet/reader.h"
#include "fleet/topic.h"

namespace yusb::fleet {

// Runs the loop until `condition` is true; 90 seconds at most.
inline void until(loop& loop, const std::function<bool()>& condition) {
  const auto end = loop::clock::now() + std::chrono::seconds(90);
  std::function<void()> check = [&] {
    if (condition() || loop::clock::now() > end) return loop.stop();
    loop.after(std::chrono::milliseconds(2), check);
  };
  loop.post(check);  // run() forgets an earlier stop()
  loop.run();
  ASSERT_TRUE(condition()) << "not within 90 seconds";
}

class broker {
 public:
  // `settings` are lines of its configuration; "@" there is its folder.
  explicit broker(std::string settings = "allow_anonymous true\n",
                  const std::map<std::string, std::string>& files = {}) {
    char folder[] = "/tmp/yusb-fleet-XXXXXX";
    _folder = mkdtemp(folder);
    for (const auto& [name, text] : files) std::ofstream(_folder / name) << text;
    std::filesystem::permissions(_folder, std::filesystem::perms::all);  // it may drop its privileges
    _port = free_port();
    for (std::size_t at = 0; (at = settings.find('@')) != std::string::npos;)
      settings.replace(at, 1, _folder.string());
    std::ofstream(_folder / "conf") << "listener " << _port << " 127.0.0.1\n" << settings;
  }
  ~broker() {
    if (_process > 0) end(SIGKILL);
    std::filesystem::remove_all(_folder);
  }

  void start() {
    _process = fork();
    if (_process == 0) {
      // It ends with this process, even if that is killed, and does not hold its output open.
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (FILE* const each : {stdout, stderr})
        static_cast<void>(!freopen((_folder / "log").c_str(), "a", each));
      execlp("mosquitto", "mosquitto", "-c", (_folder / "conf").c_str(), nullptr);
      _exit(127);
    }
  }
  void signal(int number) const { kill(_process, number); }
  void end(int number) {
    signal(number);
    waitpid(_process, nullptr, 0);
    _process = 0;
  }
  std::filesystem::path file(const char* name) const { return _folder / name; }

  int port() const { return _port; }
  connection_options client() const { return client_of(_port); }
  static connection_options client_of(int port) {
    connection_options made;
    made.broker = {false, "127.0.0.1", port};
    made.keep_alive = std::chrono::seconds(5);  // the shortest that the library allows
    made.longest_delay = std::chrono::milliseconds(300);
    return made;
  }

 private:
  static int free_port() {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(descriptor, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    close(descriptor);
    return ntohs(address.sin_port);
  }

  std::filesystem::path _folder;
  int _port = 0;
  pid_t _process = 0;
};

inline agent_options named(const broker& at, const std::string& host, const std::string& machine = "m1") {
  agent_options made;
  made.connection = at.client();
  made.host = host;
  made.machine = machine;
  made.heartbeat = std::chrono::seconds(1);
  made.newcomer_limit = std::chrono::milliseconds(50);
  return made;
}

// An agent and what it has said.
struct host_agent {
  host_agent(loop& loop, agent_options options, device_source& source)
      : core(loop, std::move(options), source,
             {[this](const std::string& line) { log += line + "\n"; },
              [this](agent_end why, const std::string& reason) {
                end = why;
                log += reason + "\n";
              }}) {
    core.start();
  }
  std::string log;
  std::optional<agent_end> end;
  agent core;
};

// An agent in a process of its own, to be killed.
class agent_process {
 public:
  // `run` is called in the process after the agent has been started.
  agent_process(const agent_options& options, unsigned devices,
                const std::function<void(loop&, generator&)>& run = {}) {
    _process = fork();
    if (_process != 0) return;
    loop own;
    generator attached(devices);
    host_agent agent(own, options, attached);
    if (run) run(own, attached);
    own.run();
  }
  ~agent_process() {
    if (_process > 0) end(SIGKILL);
  }
  void signal(int number) const { kill(_process, number); }
  void end(int number) {
    signal(number);
    waitpid(_process, nullptr, 0);
    _process = 0;
  }

 private:
  pid_t _process = 0;
};

// Attaches and detaches devices from number `first` on, one each millisecond, as long as it lives.
class storm {
 public:
  storm(loop& loop, generator& devices, unsigned first) : _loop(loop), _devices(devices), _first(first) {
    next();
  }
  ~storm() { _loop.cancel(_timer); }

 private:
  void next() {
    const unsigned number = _first + _random() % 50;
    _devices.has(generator::name(number)) ? _devices.detach(number) : _devices.attach(number);
    _timer = _loop.after(std::chrono::milliseconds(1), [this] { next(); });
  }
  loop& _loop;
  generator& _devices;
  const unsigned _first;
  std::minstd_rand _random{1};
  loop::timer _timer = 0;
};

class Fleet : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(_incomplete, _expected_incomplete);
    if (HasFailure()) std::fprintf(stderr, "the reader: %s\n", _log.c_str());
  }
  // Starts a reader; `attached` says which devices are, so that a removal of one of these is a fault.
  void read(const connection_options& client, std::function<bool(const std::string&)> attached = {}) {
    _reader = std::make_unique<reader>(
        _loop, client, "yusb", "",
        reader::handlers{[attached](const host&, device_news news, const shown_device& device) {
                           const std::string name = format::utf8(device.device.record.location());
                           const bool wrong = news == device_news::removal && attached && attached(name);
                           EXPECT_FALSE(wrong) << name;
                         },
                         [this](const host& each) { _states[each.name].insert(each.state); },
                         [this] { _shown_when_complete = shown(); },
                         [this](const std::string& host) { _incomplete.insert(host); },
                         [this](const std::string& line) { _log += line + "\n"; },
                         [this](const std::string& reason) { _log += reason + "\n"; }});
    _reader->start();
  }
  picture shown() const {
    picture made;
    for (const auto& [level, each] : _reader->hosts()) {
      for (const auto& [name, device] : each.devices) made[each.name + "/" + name] = device->digest;
    }
    return made;
  }
  bool shows(const picture& truth) const { return _reader->complete() && shown() == truth; }
  bool whole(const std::string& host, const picture& truth) const {
    return shows(truth) && is(host, host_state::online);
  }
  bool is(const std::string& host, host_state state) const {
    const auto found = _reader->hosts().find(level(host));
    return found != _reader->hosts().end() && found->second.state == state;
  }

  loop _loop;
  std::unique_ptr<reader> _reader;
  std::map<std::string, std::set<host_state>> _states;
  picture _shown_when_complete;
  std::set<std::string> _incomplete;  // hosts that the reader has called so
  std::set<std::string> _expected_incomplete;
  std::string _log;
};

}  // namespace yusb::fleet

#endif  // TESTS_FLEET_HARNESS_H_
