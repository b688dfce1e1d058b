#include "harness.h"
#include "proxy.h"

namespace yusb::fleet {
namespace {

class FleetReader : public Fleet {};

TEST_F(FleetReader, CallsAHostStaleThatMissesItsHeartbeats) {
  agent_options options = named("lab1");
  options.connection.keep_alive = std::chrono::seconds(60);
  const agent_process agent(options, 5);
  const generator same(5);
  read([&](const std::string& name) { return same.has(name); });
  until(_loop, [&] { return whole("lab1", same.truth("lab1")); });
  agent.signal(SIGSTOP);
  until(_loop, [&] { return is("lab1", host_state::stale); });
  EXPECT_EQ(shown(), same.truth("lab1"));
  // Another reader knows it from the age of what the broker has.
  _states.clear();
  read();
  until(_loop, [&] { return _reader->complete(); });
  EXPECT_EQ(_states["lab1"], std::set<host_state>{host_state::stale});
  agent.signal(SIGCONT);
  until(_loop, [&] { return is("lab1", host_state::online); });
}

TEST_F(FleetReader, ReadsAgainWhatTheBrokerDropped) {
  proxy network(_broker.port());
  generator devices(5);
  agent_options options = named("lab1");
  options.heartbeat = std::chrono::seconds(60);
  host_agent agent(_loop, options, devices);
  read(network.port(), [&](const std::string& name) { return devices.has(name); });
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });
  for (int i = 0; i < 2; ++i) {
    network.drop_next_device();
    i == 0 ? devices.attach(9) : devices.detach(9);
    until(_loop, [&] { return shows(devices.truth("lab1")); });
  }
}

TEST_F(FleetReader, SkipsWhatIsNotOfAnAgent) {
  generator devices(3);
  host_agent agent(_loop, named("lab1"), devices);
  until(_loop, [&] { return agent.core.settled(); });
  read();
  until(_loop, [&] { return _reader->complete(); });
  const std::string deep = R"({"x":)" + std::string(30000, '[') + std::string(30000, ']') + "}";
  const std::string large = R"({"schema":1,"vendor_id":"18d1","product_id":"4ee7","location":"0x1","x":")" +
                            std::string(70000, 'x') + "\"}";
  const std::string numbers =
      R"({"schema":1,"state":"online","host":"lab1","start":"1","heartbeat":1e300,)"
      R"("time":"9999-12-31T23:59:59.000Z","digest":"0000000000000000","devices":1e300})";
  for (const char* const payload : {"", "{", "[]", "{\"schema\":1,\"location\":7}", "\xff", deep.c_str(),
                                    large.c_str(), numbers.c_str()}) {
    for (const char* const topic : {"other/device/x", "lab1/device/x", "lab1/device/0x1000001", "lab1/status",
                                    "lab1/inventory", "lab1/sync"})
      _reader->broker().publish({std::string("yusb/") + topic, payload, true});
  }
  devices.attach(7);
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")) && agent.core.settled(); });
  EXPECT_NE(_log.find("skipped: yusb/other/device/x"), std::string::npos) << _log;
  EXPECT_EQ(_reader->hosts().size(), 1U);
  read();
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });
}

}  // namespace
}  // namespace yusb::fleet
