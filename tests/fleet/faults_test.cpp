#include <tuple>

#include "harness.h"
#include "proxy.h"

namespace yusb::fleet {
namespace {

constexpr unsigned changing = 1000;  // the devices from this number on come and go

class FleetFaults : public Fleet, public testing::WithParamInterface<std::tuple<std::string, bool>> {};

// The broker is killed, and back with no database, with an old one, or with its own.
TEST_P(FleetFaults, TheBrokerComesBackAndNothingIsReportedGoneThatIsNot) {
  const std::string& database = std::get<0>(GetParam());
  generator first(50);
  generator second(50);
  agent_options options = named("lab1");
  // Mostly, the reader is back before the agents, and reads what the broker has.
  options.connection.first_delay = options.connection.longest_delay = std::chrono::seconds(1);
  host_agent one(_loop, options, first);
  options.host = "lab2";
  host_agent two(_loop, options, second);
  read([&](const std::string& name) { return first.has(name) && second.has(name); });
  const auto equal = [&] {
    picture truth = first.truth("lab1");
    truth.merge(second.truth("lab2"));
    return shows(truth) && is("lab1", host_state::online) && is("lab2", host_state::online);
  };
  until(_loop, equal);
  _broker.signal(SIGUSR1);  // saves its database
  until(_loop, [&] { return std::filesystem::exists(_broker.file("mosquitto.db")); });
  for (unsigned i = 0; i < 10; ++i) {
    first.detach(i);
    first.attach(100 + i);
    second.attach(100 + i);
  }
  until(_loop, equal);
  std::optional<storm> changes;
  if (std::get<1>(GetParam())) changes.emplace(_loop, first, changing);
  until(_loop, [&] { return !changes || first.truth("").size() > 60; });
  _broker.end(database == "own" ? SIGTERM : SIGKILL);
  if (database == "none") std::filesystem::remove(_broker.file("mosquitto.db"));
  until(_loop, [&] { return !_reader->complete(); });
  for (unsigned i = 20; i < 25; ++i) first.detach(i);  // while it is down
  _broker.start();
  until(_loop, [&] { return _reader->complete() && is("lab1", host_state::online); });
  changes.reset();
  until(_loop, equal);
}
INSTANTIATE_TEST_SUITE_P(Databases, FleetFaults,
                         testing::Combine(testing::Values(std::string("none"), std::string("old"),
                                                          std::string("own")),
                                          testing::Bool()),
                         [](const auto& each) {
                           return std::get<0>(each.param) +
                                  std::string(std::get<1>(each.param) ? "Storm" : "");
                         });

class FleetFault : public Fleet {};

TEST_F(FleetFault, AnAgentIsKilledInAStorm) {
  agent_process killed(named("lab1"), 20, [](loop& own, generator& attached) {
    static std::optional<storm> changes;
    changes.emplace(own, attached, changing);
  });
  generator devices(20);
  const auto attached = [&](const std::string& name) { return devices.has(name); };
  read(attached);
  until(_loop, [&] { return is("lab1", host_state::online) && shown().size() > 30; });
  killed.end(SIGKILL);
  until(_loop, [&] { return is("lab1", host_state::offline); });
  read(attached);  // a new reader, of what the killed agent has left
  until(_loop, [&] { return _reader->complete(); });
  EXPECT_TRUE(is("lab1", host_state::offline));
  EXPECT_GE(shown().size(), 20U);
  host_agent again(_loop, named("lab1"), devices);
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });
}

TEST_F(FleetFault, TheBrokerIsSilentWhileADeviceFlaps) {
  generator devices(20);
  agent_options options = named("lab1");
  options.connection.connect_limit = std::chrono::seconds(1);
  host_agent agent(_loop, options, devices);
  read([&](const std::string& name) { return name != generator::name(99) && devices.has(name); });
  std::function<void()> flap = [&] {
    devices.has(generator::name(99)) ? devices.detach(99) : devices.attach(99);
    _loop.after(std::chrono::milliseconds(25), [&] { flap(); });
  };
  flap();
  until(_loop, [&] { return agent.core.published() > 200 && is("lab1", host_state::online); });
  _broker.signal(SIGSTOP);
  until(_loop, [&] {
    return !_reader->complete() && agent.log.find("has fallen silent") != std::string::npos &&
           agent.log.find("does not answer") != std::string::npos;
  });
  _broker.signal(SIGCONT);
  until(_loop, [&] { return _reader->complete() && is("lab1", host_state::online); });
  flap = [] {};
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });
}

TEST_F(FleetFault, APartitionIsLongerThanTheKeepAlive) {
  proxy of_agent(_broker.port());
  proxy of_reader(_broker.port());
  generator devices(20);
  agent_options options = named("lab1");
  options.connection = client_of(of_agent.port());
  host_agent agent(_loop, options, devices);
  std::set<std::string> stable;
  for (unsigned i = 5; i < 20; ++i) stable.insert(generator::name(i));
  read(of_reader.port(), [&](const std::string& name) { return stable.count(name) != 0; });
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });

  of_agent.cut();
  for (unsigned i = 0; i < 5; ++i) devices.detach(i);
  until(_loop, [&] { return is("lab1", host_state::offline); });
  EXPECT_EQ(shown().size(), 20U);  // as last known
  until(_loop, [&] { return agent.log.find("fallen silent") != std::string::npos; });
  of_agent.heal();
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });

  of_reader.cut();
  until(_loop, [&] { return !_reader->complete(); });
  devices.attach(30);
  of_reader.heal();
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });
}

// The broker has the limits of its default configuration.
TEST_F(FleetFault, ThereAreMoreTopicsThanTheBrokersQueueHolds) {
  std::vector<std::unique_ptr<generator>> devices;
  std::vector<std::unique_ptr<host_agent>> agents;
  picture truth;
  for (int i = 0; i < 30; ++i) {
    const std::string host = "lab" + std::to_string(i);
    devices.push_back(std::make_unique<generator>(100));
    agents.push_back(std::make_unique<host_agent>(_loop, named(host), *devices.back()));
    truth.merge(devices.back()->truth(host));
  }
  until(_loop, [&] {
    return std::all_of(agents.begin(), agents.end(), [](const auto& each) { return each->core.settled(); });
  });
  read();
  until(_loop, [&] { return shows(truth); });
}

}  // namespace
}  // namespace yusb::fleet
