// Agents and readers against a real broker, Mosquitto, on a port of its own.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fleet/agent.h"
#include "fleet/reader.h"
#include "fleet/topic.h"
#include "format/utf8.h"

namespace yusb::fleet {
namespace {

using picture = std::map<std::string, std::uint64_t>;  // digests by HOST/NAME

// Runs the loop until `condition` is true; a minute at most.
void until(loop& loop, const std::function<bool()>& condition) {
  const auto end = loop::clock::now() + std::chrono::minutes(1);
  std::function<void()> check = [&] {
    if (condition() || loop::clock::now() > end) return loop.stop();
    loop.after(std::chrono::milliseconds(2), check);
  };
  check();
  loop.run();
  ASSERT_TRUE(condition()) << "not within a minute";
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
      static_cast<void>(!freopen((_folder / "log").c_str(), "a", stderr));
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

  connection_options client() const {
    connection_options made;
    made.broker = {false, "127.0.0.1", _port};
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

class generator final : public device_source {
 public:
  explicit generator(unsigned count = 0, unsigned first = 0) {
    for (unsigned i = first; i < first + count; ++i) _attached[name(i)] = payload(i, 0);
    report({device_change::kind::reset, {}, {}, _attached});
  }
  ~generator() override { close(_ready); }

  void attach(unsigned number, unsigned version = 0) {
    _attached[name(number)] = payload(number, version);
    report({device_change::kind::set, name(number), _attached[name(number)], {}});
  }
  void detach(unsigned number) {
    _attached.erase(name(number));
    report({device_change::kind::removal, name(number), {}, {}});
  }
  bool has(const std::string& device) const { return _attached.count(device) != 0; }
  picture truth(const std::string& host) const {
    picture made;
    for (const auto& [name, text] : _attached) made[host + "/" + name] = digest(name, text);
    return made;
  }

  int descriptor() override { return _ready; }
  std::optional<device_change> next() override {
    if (_changes.empty()) {
      eventfd_t count;
      eventfd_read(_ready, &count);
      return std::nullopt;
    }
    device_change change = std::move(_changes.front());
    _changes.pop_front();
    return change;
  }

 private:
  static std::string name(unsigned number) {
    return format::utf8(YString::format("0x%X", 0x1000000 + number));
  }
  static std::string payload(unsigned number, unsigned version) {
    format::event event{std::chrono::system_clock::now(), format::event_kind::arrival, {}, false};
    event.device.record.setLocation(YString::format("0x%X", 0x1000000 + number));
    event.device.record.setVendorID(0x18d1);
    event.device.record.setProductID(0x4ee7);
    event.device.record.setRevisedID(static_cast<unsigned short>(version));
    event.device.record.setSerialNumber(YString::format("S%u", number));
    return device_payload(event, true);
  }
  void report(device_change change) {
    _changes.push_back(std::move(change));
    eventfd_write(_ready, 1);
  }

  const int _ready = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  std::map<std::string, std::string> _attached;
  std::deque<device_change> _changes;
};

agent_options named(const broker& at, const std::string& host, const std::string& machine = "m1") {
  agent_options made;
  made.connection = at.client();
  made.host = host;
  made.machine = machine;
  made.heartbeat = std::chrono::seconds(1);
  made.rival_limit = std::chrono::milliseconds(300);
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

class Fleet : public testing::Test {
 protected:
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
                         [this] { _complete++; }, [](const std::string& host) { ADD_FAILURE() << host; },
                         [this](const std::string& line) { _log += line + "\n"; },
                         [this](const std::string& reason) { _log += reason + "\n"; }});
    _reader->start();
  }
  picture shown() const {
    picture made;
    for (const auto& [level, each] : _reader->hosts()) {
      for (const auto& [name, device] : each.devices) made[each.name + "/" + name] = device.digest;
    }
    return made;
  }
  bool shows(const picture& truth) const { return _reader->complete() && shown() == truth; }
  bool is(const std::string& host, host_state state) const {
    const auto found = _reader->hosts().find(host);
    return found != _reader->hosts().end() && found->second.state == state;
  }

  loop _loop;
  std::unique_ptr<reader> _reader;
  std::map<std::string, std::set<host_state>> _states;
  int _complete = 0;
  std::string _log;
};

TEST(FleetNames, FitIntoATopicAndStayDifferent) {
  EXPECT_EQ(level("lab-1.example"), "lab-1.example");
  EXPECT_EQ(level("a/+#% \xc3\xa4"), "a%2F%2B%23%25%20%C3%A4");
  EXPECT_EQ(name_of(level("a/+#% \xc3\xa4")), "a/+#% \xc3\xa4");
  const std::string long_name(300, 'x');
  EXPECT_LE(level(long_name).size(), 128U);
  EXPECT_NE(level(long_name), level(long_name + "y"));
  EXPECT_FALSE(parse_topic("yusb", "yusb/h/device/a/b"));
  EXPECT_EQ(parse_topic("a/b", "a/b/h/device/d")->device, "d");
  EXPECT_EQ(parse_broker("mqtts://[::1]")->port, 8883);
  for (const char* const wrong :
       {"", "http://x", "mqtt://", "mqtt://x:0", "mqtt://x:1x", "mqtt://u@x", "mqtt://[::1"})
    EXPECT_FALSE(parse_broker(wrong)) << wrong;
}

TEST_F(Fleet, AnUnchangedHostCostsTwoPublicationsAfterAKill) {
  broker at;
  at.start();
  agent_options options = named(at, "lab1");
  options.heartbeat = std::chrono::seconds(60);
  const pid_t killed = fork();
  if (killed == 0) {
    loop own;
    generator devices(100);
    host_agent agent(own, options, devices);
    own.run();
  }
  generator devices(100);
  read(at.client(), [&](const std::string& name) { return devices.has(name); });
  until(_loop, [&] { return shows(devices.truth("lab1")) && is("lab1", host_state::online); });
  kill(killed, SIGKILL);
  waitpid(killed, nullptr, 0);
  until(_loop, [&] { return is("lab1", host_state::offline); });
  EXPECT_EQ(shown(), devices.truth("lab1"));
  {
    host_agent again(_loop, options, devices);
    until(_loop, [&] { return again.core.settled() && is("lab1", host_state::online); });
    EXPECT_LE(again.core.published(), 2U);
    again.core.stop();
    until(_loop, [&] { return again.end.has_value() && is("lab1", host_state::offline); });
  }
  generator changed(80, 10);
  changed.attach(50, 1);
  _reader.reset();
  read(at.client());
  host_agent third(_loop, options, changed);
  until(_loop, [&] { return shows(changed.truth("lab1")) && third.core.settled(); });
  EXPECT_LE(third.core.published(),
            2U + 20 + 1 + 1 + 1);  // claim, status; removals; change, event; inventory
}

// The broker is killed, and back with no database, with an old one, or with its own.
class FleetBroker : public Fleet, public testing::WithParamInterface<const char*> {};

TEST_P(FleetBroker, ComesBackAndNothingIsReportedGoneThatIsNot) {
  const std::string database = GetParam();
  broker at("allow_anonymous true\npersistence true\npersistence_location @/\nautosave_interval 0\n");
  at.start();
  generator first(50);
  generator second(50);
  host_agent one(_loop, named(at, "lab1"), first);
  host_agent two(_loop, named(at, "lab2"), second);
  read(at.client(), [&](const std::string& name) { return first.has(name) && second.has(name); });
  const auto equal = [&] {
    picture truth = first.truth("lab1");
    truth.merge(second.truth("lab2"));
    return shows(truth);
  };
  until(_loop, equal);
  at.signal(SIGUSR1);  // saves its database
  until(_loop, [&] { return std::filesystem::exists(at.file("mosquitto.db")); });
  for (unsigned i = 0; i < 10; ++i) {
    first.detach(i);
    second.attach(100 + i);
  }
  until(_loop, equal);
  at.end(database == "own" ? SIGTERM : SIGKILL);
  if (database == "none") std::filesystem::remove(at.file("mosquitto.db"));
  until(_loop, [&] { return !_reader->complete(); });
  for (unsigned i = 20; i < 25; ++i) first.detach(i);  // while it is down
  at.start();
  until(_loop, [&] { return equal() && is("lab1", host_state::online) && is("lab2", host_state::online); });
}
INSTANTIATE_TEST_SUITE_P(Databases, FleetBroker, testing::Values("none", "old", "own"),
                         [](const auto& each) { return std::string(each.param); });

TEST_F(Fleet, SurvivesASilentBrokerAndAFlappingDevice) {
  broker at;
  at.start();
  generator devices(20);
  agent_options options = named(at, "lab1");
  options.connection.keep_alive = std::chrono::seconds(5);
  host_agent agent(_loop, options, devices);
  connection_options client = at.client();
  client.keep_alive = std::chrono::seconds(5);
  read(client, [&](const std::string& name) { return name != "0x1000063" && devices.has(name); });
  bool attached = false;
  std::function<void()> flap = [&] {
    attached = !attached;
    attached ? devices.attach(99) : devices.detach(99);
    _loop.after(std::chrono::milliseconds(25), flap);
  };
  flap();
  until(_loop, [&] { return agent.core.settled() && _reader->complete(); });
  at.signal(SIGSTOP);
  until(_loop, [&] { return !_reader->complete() && agent.log.find("not connected") != std::string::npos; });
  at.signal(SIGCONT);
  flap = [] {};
  until(_loop, [&] { return shows(devices.truth("lab1")) && is("lab1", host_state::online); });
}

TEST_F(Fleet, OfTwoAgentsOfOneNameOneEnds) {
  broker at;
  at.start();
  generator old_devices(5);
  generator new_devices(5, 3);
  host_agent older(_loop, named(at, "lab1"), old_devices);
  until(_loop, [&] { return older.core.settled(); });
  host_agent stranger(_loop, named(at, "lab1", "m2"), new_devices);
  until(_loop, [&] { return stranger.end.has_value(); });
  EXPECT_EQ(stranger.end, agent_end::name_taken);
  EXPECT_NE(stranger.log.find("in use by machine m1"), std::string::npos) << stranger.log;
  EXPECT_EQ(stranger.core.published(), 1U);  // its claim
  read(at.client());
  until(_loop, [&] { return shows(old_devices.truth("lab1")); });
  generator devices(5, 3);
  host_agent newer(_loop, named(at, "lab1"), devices);
  until(_loop, [&] {
    return older.end.has_value() && shows(devices.truth("lab1")) && is("lab1", host_state::online);
  });
  EXPECT_EQ(older.end, agent_end::replaced);
}

TEST_F(Fleet, IsWholeWithMoreTopicsThanTheBrokersQueue) {
  broker at;  // with the limits that it has by itself
  at.start();
  std::vector<std::unique_ptr<generator>> devices;
  std::vector<std::unique_ptr<host_agent>> agents;
  picture truth;
  for (int i = 0; i < 30; ++i) {
    const std::string host = "lab" + std::to_string(i);
    devices.push_back(std::make_unique<generator>(100));
    agents.push_back(std::make_unique<host_agent>(_loop, named(at, host), *devices.back()));
    truth.merge(devices.back()->truth(host));
  }
  until(_loop, [&] {
    for (const auto& each : agents) {
      if (!each->core.settled()) return false;
    }
    return true;
  });
  read(at.client());
  until(_loop, [&] { return shows(truth); });
}

TEST_F(Fleet, SaysWhyTheBrokerRefuses) {
  const std::string file = "/tmp/yusb-fleet-passwords-" + std::to_string(getpid());
  const std::string make = "touch " + file + " && mosquitto_passwd -b " + file +
                           " lab1 right && mosquitto_passwd -b " + file + " all right";
  ASSERT_EQ(std::system(make.c_str()), 0);
  std::ifstream in(file);
  const std::string passwords{std::istreambuf_iterator<char>(in), {}};
  std::filesystem::remove(file);
  broker at(
      "allow_anonymous false\npassword_file @/passwords\nacl_file @/acl\n",
      {{"passwords", passwords}, {"acl", "pattern readwrite yusb/%u/#\nuser all\ntopic read yusb/#\n"}});
  at.start();
  connection_options client = at.client();
  client.user = "all";
  client.password = "wrong";
  read(client);
  until(_loop, [&] { return _log.find("authori") != std::string::npos; });
  client.password = "right";
  read(client);
  generator devices(5);
  agent_options other = named(at, "lab2");
  agent_options own = named(at, "lab1");
  other.connection.user = own.connection.user = "lab1";
  other.connection.password = own.connection.password = "right";
  host_agent refused(_loop, other, devices);
  until(_loop, [&] { return refused.log.find("refuses") != std::string::npos; });
  generator own_devices(5);
  host_agent allowed(_loop, own, own_devices);
  until(_loop, [&] { return shows(own_devices.truth("lab1")); });
  EXPECT_EQ(_reader->hosts().count("lab2"), 0U);
}

TEST_F(Fleet, SkipsWhatIsNotOfAnAgent) {
  broker at;
  at.start();
  generator devices(3);
  host_agent agent(_loop, named(at, "lab1"), devices);
  until(_loop, [&] { return agent.core.settled(); });
  read(at.client());
  until(_loop, [&] { return _reader->complete(); });
  for (const char* const payload : {"", "{", "[]", "{\"schema\":1,\"location\":7}", "\xff"}) {
    for (const char* const topic : {"yusb/other/device/x", "yusb/lab1/device/x", "yusb/lab1/status",
                                    "yusb/lab1/inventory", "yusb/lab1/sync"})
      _reader->broker().publish({topic, payload, true});
  }
  devices.attach(7);
  until(_loop, [&] {
    return shows(devices.truth("lab1")) && is("lab1", host_state::online) && agent.core.settled();
  });
  EXPECT_NE(_log.find("skipped: yusb/other/device/x"), std::string::npos) << _log;
}

}  // namespace
}  // namespace yusb::fleet
