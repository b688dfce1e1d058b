#include "harness.h"
#include "proxy.h"

namespace yusb::fleet {
namespace {

class FleetReader : public Fleet {
 protected:
  void publish(const std::string& topic, const std::string& payload) {
    _reader->broker().publish({"yusb/" + topic, payload, true});
  }
  std::size_t devices(const std::string& host) const {
    const auto found = _reader->hosts().find(host);
    return found == _reader->hosts().end() ? 0 : found->second.devices.size();
  }
};

TEST_F(FleetReader, CallsAHostStaleThatMissesItsHeartbeats) {
  broker at;
  at.start();
  agent_options options = named(at, "lab1");
  options.connection.keep_alive = std::chrono::seconds(60);
  const agent_process agent(options, 5);
  const generator same(5);
  read(at.client(), [&](const std::string& name) { return same.has(name); });
  until(_loop, [&] { return whole("lab1", same.truth("lab1")); });
  agent.signal(SIGSTOP);
  until(_loop, [&] { return is("lab1", host_state::stale); });
  EXPECT_EQ(shown(), same.truth("lab1"));
  // Another reader knows it from the age of what the broker has.
  _states.clear();
  read(at.client());
  until(_loop, [&] { return _reader->complete(); });
  EXPECT_EQ(_states["lab1"], std::set<host_state>{host_state::stale});
  agent.signal(SIGCONT);
  until(_loop, [&] { return is("lab1", host_state::online); });
}

// An agent was killed between two messages, another one restores its topics, a third one says nothing.
TEST_F(FleetReader, CallsOnlyAnOnlineHostIncomplete) {
  broker at;
  at.start();
  read(at.client());
  until(_loop, [&] { return _reader->complete(); });
  generator phone(1);
  const std::string payload = phone.next()->devices.begin()->second;
  const presence states[] = {presence::offline, presence::restoring, presence::online};
  for (int i = 0; i < 3; ++i) {
    const std::string host = "lab" + std::to_string(i);
    publish(host + "/status", to_payload(status{{}, states[i], host, "1", "m1", "5", 30}));
    publish(host + "/inventory", to_payload(inventory{{}, 2, 1, 0, 0}));
    publish(host + "/device/" + generator::name(0), payload);
  }
  until(_loop, [&] { return is("lab2", host_state::online); });
  read(at.client());
  until(_loop, [&] { return !_incomplete.empty(); });
  _expected_incomplete = {"lab2"};
  EXPECT_EQ(devices("lab0"), 1U);
  EXPECT_EQ(devices("lab1"), 1U);
  EXPECT_TRUE(is("lab0", host_state::offline));
  EXPECT_TRUE(is("lab1", host_state::unknown));
}

// Their agents were cut off before they published a status.
TEST_F(FleetReader, HasTheDevicesOfEveryHostWhenItIsComplete) {
  broker at;
  at.start();
  read(at.client());
  until(_loop, [&] { return _reader->complete(); });
  const std::string name = generator::name(0);
  const std::string payload = generator(1).next()->devices.begin()->second;
  for (const char* const host : {"lab1", "lab2", "lab3"}) {
    publish(std::string(host) + "/device/" + name, payload);
    publish(std::string(host) + "/inventory", to_payload(inventory{{}, 1, digest(name, payload), 0, 0}));
  }
  until(_loop, [&] { return devices("lab3") == 1; });
  _shown_when_complete.clear();
  read(at.client());
  until(_loop, [&] { return _reader->complete(); });
  EXPECT_EQ(_shown_when_complete.size(), 3U);
}

TEST_F(FleetReader, ReadsAgainWhatTheBrokerDropped) {
  broker at;
  at.start();
  proxy network(at.port());
  generator devices(5);
  agent_options options = named(at, "lab1");
  options.heartbeat = std::chrono::seconds(60);
  host_agent agent(_loop, options, devices);
  read(broker::client_of(network.port()), [&](const std::string& name) { return devices.has(name); });
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });
  for (int i = 0; i < 2; ++i) {
    network.drop_next("lab1/device/" + generator::name(9));
    i == 0 ? devices.attach(9) : devices.detach(9);
    until(_loop, [&] { return shows(devices.truth("lab1")); });
  }
}

TEST_F(FleetReader, SkipsWhatIsNotOfAnAgent) {
  broker at;
  at.start();
  generator devices(3);
  host_agent agent(_loop, named(at, "lab1"), devices);
  until(_loop, [&] { return agent.core.settled(); });
  read(at.client());
  until(_loop, [&] { return _reader->complete(); });
  const std::string deep = R"({"schema":1,"vendor_id":"18d1","product_id":"4ee7","location":"0x1","x":)" +
                           std::string(200000, '[') + std::string(200000, ']') + "}";
  const std::string large =
      R"({"schema":1,"state":"online","host":"lab1","start":"1","heartbeat":1e300,)"
      R"("time":"9999-12-31T23:59:59.000Z","digest":"0000000000000000","devices":1e300})";
  for (const char* const payload :
       {"", "{", "[]", "{\"schema\":1,\"location\":7}", "\xff", deep.c_str(), large.c_str()}) {
    for (const char* const topic : {"other/device/x", "lab1/device/x", "lab1/device/0x1000001", "lab1/status",
                                    "lab1/inventory", "lab1/sync"})
      publish(topic, payload);
  }
  devices.attach(7);
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")) && agent.core.settled(); });
  EXPECT_NE(_log.find("skipped: yusb/other/device/x"), std::string::npos) << _log;
  EXPECT_EQ(_reader->hosts().size(), 1U);
  read(at.client());
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });
}

}  // namespace
}  // namespace yusb::fleet
