// The backend on a simulated bus: how it reads devices, and how its handlers treat faults.
#include <csignal>

#include "support.h"

using namespace yusb;

struct Backend : Library {};

// The device list, with every field.
std::string listed_records() {
  std::string text;
  device_traverse(nullptr, [&](const YUsbInfoDevice& record) { return text += to_string(record), true; });
  return text;
}

TEST_F(Backend, TakesTheLowBytesOfAStringReply) {
  using bytes = std::vector<std::uint8_t>;
  const struct {
    std::uint32_t status;
    bytes reply;
    std::string text;
  } cases[] = {
      {0, {}, ""},
      {0, {4, 3, 'a', 0, 'b'}, "ab"},
      {0, {0, 0, 'a', 0, 0x2D, 0x4E, 0xE9, 0, 0x3D, 0xD8}, "a\x2D\xE9\x3D"},  // the header is ignored
      {0, {4, 3, 'a', 0, 0, 1, 'b', 0}, "a"},
      {0, bytes(300, 'x'), std::string(127, 'x')},
      {0xE000404F, {4, 3, 'a', 0}, ""}};
  for (const auto& [status, reply, text] : cases) {
    simulated_device device = make_device(1, 2, 0x100);
    device.release = 0x0216;
    device.product_name = "replaced";
    device.replies[2] = {static_cast<std::int32_t>(status), reply, {}};
    const int id = bus.plug(device);
    settle();
    EXPECT_EQ(listed_records(), "0001:0002 0216 0x100 0x100  " + text + " ");
    const auto requests = bus.requests(id);
    ASSERT_EQ(requests.size(), 1u) << "only for the string that the device has";
    const auto& [type, request, value, language, length] = requests[0];
    EXPECT_EQ(std::tie(type, request, value, language, length), std::tuple(0x80, 6, 0x0302, 0x0409, 255));
    bus.unplug(id);
    settle();
  }
}

TEST_F(Backend, LeavesOutDevicesThatCannotBeRead) {
  global_release();
  std::vector<simulated_device> faulty;
  const auto add_faulty = [&faulty]() -> simulated_device& {
    return faulty.emplace_back(make_device(1, 2, static_cast<std::uint32_t>(0x10 * (faulty.size() + 1))));
  };
  add_faulty().plugin_status = static_cast<std::int32_t>(0xE00002BE);
  add_faulty().plugin_missing = true;  // must not be taken for the previous device
  add_faulty().interface_status = static_cast<std::int32_t>(0x80000004);
  add_faulty().interface_missing = true;
  add_faulty().failing = {simulated_number::vendor};
  add_faulty().failing = {simulated_number::product};
  simulated_device& unnumbered = add_faulty();
  unnumbered.failing = {simulated_number::release, simulated_number::location,
                        simulated_number::serial_number_index};
  unnumbered.serial_number = "unseen";
  add_faulty().location_property = false;
  std::vector<int> ids;
  for (const simulated_device& each : faulty) {
    ids.push_back(bus.plug(each));
    bus.plug(make_device(1, 1, each.location / 0x10));  // followed by a device without faults
  }
  global_initialize();  // one iterator has all of them
  settle();
  EXPECT_EQ(listed(), "0x1 0x2 0x3 0x4 0x5 0x6 0x0 0x7 0x80 0x8");
  EXPECT_EQ(
      log.take('4'),
      (strings{"4 [ darwin_handle_device_append : 119 ] Unable to create a plug-in (e00002be)",
               "4 [ darwin_handle_device_append : 119 ] Unable to create a plug-in (00000000)",
               "4 [ darwin_handle_device_append : 128 ] Couldn't create a device interface (80000004)",
               "4 [ darwin_handle_device_append : 128 ] Couldn't create a device interface (00000000)"}));
  context_create(&context);
  listen();
  client.take();
  for (const int id : ids) bus.unplug(id);
  settle();
  // One removal per device, with an empty record if it was not listed; none if the location is not known.
  EXPECT_EQ(client.take(), "-(empty) -(empty) -(empty) -(empty) -(empty) -(empty) -(empty)");
  EXPECT_EQ(listed(), "0x1 0x2 0x3 0x4 0x5 0x6 0x0 0x7 0x80 0x8");
}

// ---- Devices that are attached and detached, or answer, at the worst moment ----

struct BackendRace : Library {
  void SetUp() override {
    Library::SetUp();
    client.then = [this](const YUsbInfoDevice& device, _yusb_device_event event) {
      heard.push_back("+-"[event] + std::string(device.location().data()) + " " + device.factory().data() +
                      " " + device.serialNumber().data());
    };
    listen();
  }

  // Attaches a device. If it has a delay, the request for its manufacturer has begun when this returns.
  int plug(std::uint32_t location, const char* serial, int delay = 0, std::int32_t status = 0) {
    simulated_device device = make_device(1, 2, location);
    device.manufacturer = "any";
    device.serial_number = serial;
    device.replies[1] = {status, {4, 3, 'm', 0}, std::chrono::milliseconds(delay)};
    const int id = bus.plug(device);
    EXPECT_TRUE(delay == 0 || comes_true([&] { return !bus.requests(id).empty(); }));
    return id;
  }

  void expect_heard(const strings& expected) {
    settle();
    EXPECT_EQ(std::exchange(heard, {}), expected);
  }

  strings heard;  // "+0xA manufacturer serial"; used by the monitor thread until the bus has settled
};

TEST_F(BackendRace, ADeviceUnpluggedWhileItIsReadArrivesWithWhatWasRead) {
  bus.unplug(plug(0xA, "serial", 1000));
  expect_heard({"+0xA m ", "-0xA m "});
}

TEST_F(BackendRace, ADeviceUnpluggedBetweenListingAndWatchingIsRemoved) {
  global_release();
  const int id = plug(0xA, "unread");
  plug(0xB, "read");
  gate ready;
  bus.before_calls([&](const std::string& call) {
    if (call != "IOServiceAddMatchingNotification") return true;
    ready.wait();
    bus.unplug(id);
    return true;
  });
  global_initialize();
  context_create(&context);
  listen();
  ready.open();
  expect_heard({"+0xA  ", "+0xB m read", "-0xA  "});
}

TEST_F(BackendRace, ADeviceThatDoesNotAnswerLosesNoOther) {
  plug(0xA, "slow", 1000, static_cast<std::int32_t>(0xE00002D6));  // kIOReturnTimeout
  bus.unplug(plug(0xB, "unread"));
  plug(0xB, "read");
  EXPECT_EQ(listed(), "");  // only the monitor thread waits
  expect_heard({"+0xA  slow", "+0xB  ", "-0xB  ", "+0xB m read"});
}

TEST_F(Backend, BlocksTheHostsSignalsOnItsThread) {
  sigset_t blocked;
  client.then = [&](auto&, auto) { pthread_sigmask(SIG_BLOCK, nullptr, &blocked); };
  listen();
  bus.plug(make_device(1, 2, 3));
  settle();
  for (const int each : {SIGINT, SIGTERM, SIGCHLD, SIGALRM, SIGUSR1, SIGPROF, SIGRTMIN})
    EXPECT_TRUE(sigismember(&blocked, each)) << each;
  EXPECT_FALSE(sigismember(&blocked, SIGSEGV)) << "its own";
  append({"a"});
  EXPECT_FALSE(sigismember(&blocked, SIGTERM)) << "on the host's thread";
}
