#include "harness.h"
#include "proxy.h"

namespace yusb::fleet {
namespace {

TEST(FleetNames, FitIntoATopicAndStayDifferent) {
  EXPECT_EQ(level("lab-1.example"), "lab-1.example");
  EXPECT_EQ(level("a/+#% \xc3\xa4"), "a%2F%2B%23%25%20%C3%A4");
  EXPECT_EQ(name_of(level("a/+#% \xc3\xa4")), "a/+#% \xc3\xa4");
  const std::string long_name(300, 'x');
  EXPECT_LE(level(long_name).size(), 128U);
  EXPECT_NE(level(long_name), level(long_name + "y"));
  EXPECT_FALSE(parse_topic("yusb", "yusb/h/device/a/b"));
  EXPECT_FALSE(parse_topic("yusb", "yusb/%61/status"));  // would be a second host "a"
  EXPECT_EQ(parse_topic("yusb", "yusb/" + level(long_name) + "/status")->host, level(long_name));
  EXPECT_EQ(parse_topic("a/b", "a/b/h/device/d")->device, "d");
  EXPECT_EQ(parse_broker("mqtts://[::1]")->port, 8883);
  for (const char* const wrong :
       {"", "http://x", "mqtt://", "mqtt://x:0", "mqtt://x:1x", "mqtt://u@x", "mqtt://[::1"})
    EXPECT_FALSE(parse_broker(wrong)) << wrong;
}

class FleetAgent : public Fleet {};

// An agent may lose each connection at once; it says that it has settled only after its work is done.
TEST_F(FleetAgent, TriesLessOftenUntilItHasSettled) {
  _broker.end(SIGKILL);
  connection_options options = client_of(_broker.port());
  options.first_delay = std::chrono::milliseconds(1);
  options.longest_delay = std::chrono::hours(1);
  unsigned losses = 0;
  unsigned losses_of_settled = 0;
  connection::handlers handlers;
  handlers.lost = [&](const std::string&) { ++losses; };
  connection one(_loop, options, handlers);
  std::optional<connection> settled;
  handlers.lost = [&](const std::string&) {
    ++losses_of_settled;
    settled->settled();
  };
  settled.emplace(_loop, options, handlers);
  one.start();
  settled->start();
  until(_loop, [&] { return losses_of_settled >= 300; });
  EXPECT_LT(losses, 100U);
}

TEST_F(FleetAgent, PublishesOnlyWhatDiffers) {
  agent_options options = named("lab/1 \xc3\xa4" + std::string(300, 'x'));
  options.heartbeat = std::chrono::seconds(60);
  agent_process killed(options, 100);
  generator devices(100);
  read([&](const std::string& name) { return devices.has(name); });
  until(_loop, [&] { return whole(options.host, devices.truth(options.host)); });
  killed.end(SIGKILL);
  until(_loop, [&] { return is(options.host, host_state::offline); });
  EXPECT_EQ(shown(), devices.truth(options.host));

  host_agent again(_loop, options, devices);
  until(_loop, [&] { return again.core.settled() && is(options.host, host_state::online); });
  EXPECT_LE(again.core.published(), 2U);  // its claim and its status

  // While it is cut off, the latest state alone counts.
  _broker.end(SIGTERM);
  until(_loop, [&] { return again.log.find("not connected") != std::string::npos; });
  for (unsigned i = 0; i < 1000; ++i) {
    devices.detach(7);
    devices.attach(7, i);
    devices.detach(8);
    devices.attach(8);
  }
  _broker.start();
  until(_loop, [&] { return whole(options.host, devices.truth(options.host)) && again.core.settled(); });
  // Claim, "restoring" and status; the device and the inventory.
  EXPECT_LE(again.core.published(), 2U + 3 + 1 + 1);

  again.core.stop();
  until(_loop, [&] { return again.end.has_value() && is(options.host, host_state::offline); });
  read();
  until(_loop, [&] { return _reader->complete(); });
  generator changed(60, 40);
  changed.attach(50, 1);
  host_agent third(_loop, options, changed);
  until(_loop, [&] { return whole(options.host, changed.truth(options.host)) && third.core.settled(); });
  EXPECT_EQ(_shown_when_online, shown());  // more devices than are published at once; the status comes last
  EXPECT_LE(third.core.published(),
            2U + 40 + 1 + 1 + 1);  // removals; the change and its event; the inventory
}

// The source could only say what is attached: the kernel had dropped its messages.
TEST_F(FleetAgent, CountsADeviceThatWasDetachedOrReplacedBetweenTwoLists) {
  generator devices(3);
  host_agent agent(_loop, named("lab1"), devices);
  std::set<std::string> removed;
  read([&](const std::string& name) {
    removed.insert(name);
    return false;
  });
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });
  devices.lose(2);
  devices.reset_with_another(1);
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")) && agent.core.settled(); });
  EXPECT_EQ(removed, (std::set<std::string>{generator::name(1), generator::name(2)}));
  const auto& seen = _reader->hosts().at("lab1").inventory;
  EXPECT_EQ(std::make_pair(seen->arrivals, seen->removals), std::make_pair(UINT64_C(1), UINT64_C(2)));
}

TEST_F(FleetAgent, OfTwoOfOneNameOneEnds) {
  proxy network(_broker.port());
  generator old_devices(5);
  agent_options options = named("lab1");
  options.connection = client_of(network.port());
  host_agent older(_loop, options, old_devices);
  until(_loop, [&] { return older.core.settled(); });
  generator others_devices(5, 3);
  host_agent stranger(_loop, named("lab1", "m2"), others_devices);
  until(_loop, [&] { return stranger.end.has_value(); });
  EXPECT_EQ(stranger.end, agent_end::name_taken);
  EXPECT_NE(stranger.log.find("in use by machine m1"), std::string::npos) << stranger.log;
  EXPECT_EQ(stranger.core.published(), 1U);  // its claim
  read();
  until(_loop, [&] { return whole("lab1", old_devices.truth("lab1")); });

  // The older one does not know of its successor before it is connected again.
  network.cut();
  _states.clear();
  generator devices(5, 3);
  agent_options successor = named("lab1");
  successor.heartbeat = std::chrono::seconds(60);
  host_agent newer(_loop, successor, devices);
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")) && newer.core.settled(); });
  // The broker gives the older one up, and sends its last will. The newer one replaces that.
  const std::uint64_t before = newer.core.published();
  until(_loop, [&] { return newer.core.published() > before && newer.core.settled(); });
  // While it restored the topics, its host was unknown; it was never offline.
  EXPECT_EQ(_states["lab1"], (std::set<host_state>{host_state::unknown, host_state::online}));
  until(_loop, [&] { return older.log.find("not connected") != std::string::npos; });
  const std::uint64_t published = older.core.published();
  network.heal();
  until(_loop, [&] { return older.end.has_value(); });
  EXPECT_EQ(older.end, agent_end::replaced);
  EXPECT_LE(older.core.published(), published + 1);  // its claim
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")) && newer.core.settled(); });

  generator newest_devices(5, 4);
  host_agent newest(_loop, named("lab1"), newest_devices);
  until(_loop, [&] { return newer.end && whole("lab1", newest_devices.truth("lab1")); });
  EXPECT_EQ(newer.end, agent_end::replaced);
}

TEST_F(FleetAgent, OfTwoMachinesThatStartTogetherOneHasTheName) {
  _broker.end(SIGKILL);
  agent_options options = named("lab1");
  options.newcomer_limit = std::chrono::seconds(1);
  generator one_devices(5);
  generator two_devices(5, 100);
  host_agent one(_loop, options, one_devices);
  options.machine = "m2";
  host_agent two(_loop, options, two_devices);
  read();
  _broker.start();
  until(_loop, [&] { return one.end || two.end; });
  const bool first = two.end.has_value();
  const host_agent& loser = first ? two : one;
  EXPECT_EQ(loser.end, agent_end::name_taken);
  EXPECT_LE(loser.core.published(), 2U);  // claims
  const generator& devices = first ? one_devices : two_devices;
  until(_loop, [&] { return whole("lab1", devices.truth("lab1")); });
}

}  // namespace
}  // namespace yusb::fleet
