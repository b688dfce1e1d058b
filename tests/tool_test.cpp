// The parts of the program yusb.
#include <poll.h>

#include <csignal>

#include "commands.h"
#include "known_devices.h"
#include "scenario.h"
#include "stop_signal.h"
#include "support.h"
#include "tree.h"

using namespace yusb::tool;
using testing::IsSubstring;

TEST(ToolStopSignal, LeavesAnIgnoredInterruptIgnored) {
  const auto previous = std::signal(SIGINT, SIG_IGN);
  {
    const stop_signal stop;
    pollfd asked = {stop.descriptor(), POLLIN, 0};
    raise(SIGINT);
    EXPECT_EQ(poll(&asked, 1, 0), 0);
    raise(SIGTERM);
    EXPECT_EQ(poll(&asked, 1, 0), 1);
  }
  std::signal(SIGINT, previous);
}

TEST(ToolTree, HangsADeviceFromTheNearestListedHub) {
  strings paths = {"",      "300-1", "usb2", "1-2.3",   "1-4",   "1-16.1",
                   "1-2.4", "usb1",  "1-16", "1-2.3.1", "usb300"};
  std::sort(paths.begin(), paths.end(), before_in_tree);
  strings drawn = tree_branches(paths);
  for (std::size_t i = 0; i < paths.size(); ++i) drawn[i] += paths[i];
  EXPECT_EQ(drawn, (strings{"usb1", "├─1-2.3", "│ └─1-2.3.1", "├─1-2.4", "├─1-4", "└─1-16", "  └─1-16.1",
                            "usb2", "usb300", "└─300-1", ""}));
}

TEST(ToolKnownDevices, TranslateAResyncIntoChanges) {
  const YUsbInfoDevice hub = make_record(1, 1, "0x1000000");
  const YUsbInfoDevice removed = make_record(1, 2, "0x1100000");
  const YUsbInfoDevice replaced = make_record(1, 3, "0x1200000");
  const YUsbInfoDevice successor = make_record(1, 3, "0x1200000", nullptr, {"", "", "another"});
  known_devices known;
  for (const auto& each : {hub, removed, replaced})
    known.apply({yusb::openable_kind::arrival, each, {}}, {}, true);
  std::string changes;
  for (const auto& each : known.apply({yusb::openable_kind::resync, {}, {hub, successor}}, {}, false)) {
    changes += each.kind == yusb::format::event_kind::arrival ? "+" : "-";
    changes += std::to_string(each.device.record.productID()) + (each.initial ? "i" : "");
  }
  EXPECT_EQ(changes, "-3i-2i+3");
}

TEST(ToolKnownDevices, GivesARemovalTheDetailsOfItsArrival) {
  const YUsbInfoDevice record = make_record(1, 1, "0x1100000");
  known_devices known;
  for (const char* const port : {"1-1", "1-2"}) {
    yusb::usb_details details;
    details.port_path = port;
    known.arrived({record, details});
  }
  std::string ports;
  for (int i = 0; i < 2; ++i) {
    for (const auto kind : {yusb::openable_kind::arrival, yusb::openable_kind::removal}) {
      const auto events = known.apply({kind, record, {}}, {}, false);
      ASSERT_EQ(events.size(), 1u);
      ports += port_path(events.front().device) + " ";
    }
  }
  EXPECT_EQ(ports, "1-1 1-1 1-2 1-2 ");
}

TEST(ToolScenario, ReadsEachKindOfLine) {
  std::string error;
  const auto read = parse_scenario(
      "\xEF\xBB\xBF"
      "attach 1-1 1:1\r\n\thub 1-2 1:2 # a hub\nattach 1-20 1:3\nhub 1-2.1 1:4\nattach 1-2.1.4 1:5\n"
      "attach 1-2.4 05ac:12A8 serial=\"\\\"\\\\\\xE9#\u00E9\" release=0x102 speed=1.5 class=EF/02/01 "
      "interface=ff/42/01 interface=06/01/01:\"MTP\" openable=never\nwait 1s\ndetach 1-2\nattach 1-2 1:6",
      "lab", &error);
  ASSERT_TRUE(read) << error;
  EXPECT_EQ(read->opening(), 6u);
  EXPECT_EQ(read->steps.at(6).duration, std::chrono::seconds(1));
  const scenario_device& phone = read->devices.at(5);
  EXPECT_EQ(std::tie(phone.path, phone.location, phone.vendor, phone.product, phone.release),
            std::make_tuple("1-2.4", 0x01240000u, 0x05AC, 0x12A8, 0x0102));
  EXPECT_EQ(phone.serial_number, "\"\\\u00E9#\u00E9");
  EXPECT_EQ(std::tie(phone.speed, phone.class_code, phone.openable_after),
            std::make_tuple(1.5, 0xEF, std::nullopt));
  EXPECT_EQ(phone.interfaces.at(1).name, "MTP");
  std::string detached;
  for (const step& each : read->steps)
    if (each.what == step::detach) detached += read->devices.at(each.device).path + " ";
  EXPECT_EQ(detached, "1-2.4 1-2.1.4 1-2.1 1-2 ") << "what is behind a hub leaves first";
  EXPECT_EQ(read->devices.back().location, 0x01200000u) << "free again";
}

TEST(ToolScenario, SaysWhatIsWrongAndWhere) {
  const std::pair<std::string, const char*> cases[] = {
      {"plug 1-1 1:1", "'plug' is not one of"},
      {"attach 1-1 1:1 serial=\"" + std::string(127, 'x') + "\"", "has 127"},
      {"attach 1-1 1:1\nattach 1-1 1:1", "already"},
      {"attach 1-1 1:1\nattach 1-1.1 1:1", "is not a hub"},
      {"attach 1-2.1 1:1", "no hub is attached at 1-2"},
      {"\x1B[2J", "'\\x1B[2J'"}};
  for (const auto& [text, reason] : cases) {
    std::string error;
    EXPECT_FALSE(parse_scenario(text, "a\nfile", &error)) << text;
    const bool two_lines = text.find('\n') != std::string::npos;
    EXPECT_EQ(error.rfind(two_lines ? "a\\x0Afile:2: " : "a\\x0Afile:1: ", 0), 0u) << error;
    EXPECT_PRED_FORMAT2(IsSubstring, reason, error);
  }
}

TEST(ToolWait, SeesNothingGoneBeforeTheFirstEnumeration) {
  player silent({{}, {{step::wait, 0, std::chrono::minutes(10)}}}, make_simulated_bus());
  yusb::simulator bus;  // replaces the player's
  yusb::simulated_device slow = make_device(1, 1, 0x01100000);
  slow.product_name = "slow";
  slow.replies[2].delay = std::chrono::milliseconds(500);  // the time limit passes before it is listed
  bus.plug(slow);
  const char* const arguments[] = {"yusb", "wait", "--gone", "--timeout", "20ms"};
  EXPECT_EQ(run(*parse_command_line(5, arguments).run, &silent), exit_timed_out);
}
