// What the tests of agents and readers with a real broker have in common.
#ifndef TESTS_FLEET_HARNESS_H_
#define TESTS_FLEET_HARNESS_H_

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fleet/agent.h"
#include "fleet/bench/broker.h"
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

// Notices a loss soon, and connects again soon.
inline connection_options client_of(int port) {
  connection_options made;
  made.broker = {false, "127.0.0.1", port};
  made.keep_alive = std::chrono::seconds(5);  // the shortest that the library allows
  made.longest_delay = std::chrono::milliseconds(300);
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
  Fleet() { _broker.start(); }
  void TearDown() override {
    if (HasFailure()) std::fprintf(stderr, "the reader: %s\n", _log.c_str());
  }
  agent_options named(const std::string& host, const std::string& machine = "m1") const {
    agent_options made;
    made.connection = client_of(_broker.port());
    made.host = host;
    made.machine = machine;
    made.heartbeat = std::chrono::seconds(1);
    made.newcomer_limit = std::chrono::milliseconds(50);
    return made;
  }
  // Starts a reader; `attached` says which devices are, so that a removal of one of these is a fault.
  void read(std::function<bool(const std::string&)> attached = {}) {
    read(_broker.port(), std::move(attached));
  }
  void read(int port, std::function<bool(const std::string&)> attached) {
    _reader = std::make_unique<reader>(
        _loop, client_of(port), "yusb", "",
        reader::handlers{[attached](const host&, device_news news, const shown_device& device) {
                           const std::string name = format::utf8(device.device.record.location());
                           const bool wrong = news == device_news::removal && attached && attached(name);
                           EXPECT_FALSE(wrong) << name;
                         },
                         [this](const host& each) {
                           _states[each.name].insert(each.state);
                           if (each.state == host_state::online) _shown_when_online = shown();
                         },
                         [] {}, [](const std::string& host) { ADD_FAILURE() << host << " is incomplete"; },
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

  broker _broker{"persistence true\nautosave_interval 0\n"};
  loop _loop;
  std::unique_ptr<reader> _reader;
  std::map<std::string, std::set<host_state>> _states;
  picture _shown_when_online;
  std::string _log;
};

}  // namespace yusb::fleet

#endif  // TESTS_FLEET_HARNESS_H_
