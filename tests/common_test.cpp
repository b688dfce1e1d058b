// The record, the list, contexts, registrations and delivery, fed directly.
#include <algorithm>
#include <array>

#include "support.h"

TEST(Record, ExistsByItsNumbersAndEqualsByItsLocation) {
  YUsbInfoDevice record;
  EXPECT_TRUE(record.empty());
  EXPECT_EQ(record, YUsbInfoDevice());
  for (const auto set :
       {&YUsbInfoDevice::setFactory, &YUsbInfoDevice::setSerialNumber, &YUsbInfoDevice::setLocation,
        &YUsbInfoDevice::setInstancePath, &YUsbInfoDevice::setDescribe}) {
    (record.*set)("text");
  }
  EXPECT_TRUE(record.empty());
  for (const auto set :
       {&YUsbInfoDevice::setVendorID, &YUsbInfoDevice::setProductID, &YUsbInfoDevice::setRevisedID}) {
    YUsbInfoDevice one;
    (one.*set)(1);
    EXPECT_TRUE(one.exist());
  }
  EXPECT_EQ(make_record(1, 2, "0x1", "a"), make_record(3, 4, "0x1", "b"));
  EXPECT_NE(make_record(1, 2, "0x1"), make_record(1, 2, "0x2"));

  struct never_empty : YUsbInfoDevice {
    bool empty() const override { return false; }
  };
  EXPECT_TRUE(never_empty().exist());
}

TEST(Record, CopiesEveryField) {
  YUsbInfoDevice record = make_record(1, 2, "location", "path");
  record.setFactory("factory");
  record.setSerialNumber("serial");
  record.setDescribe("describe");
  YUsbInfoDevice assigned;
  assigned = record;
  YUsbInfoDevice& alias = record;
  record = alias;
  const YUsbInfoDevice copied(record);
  for (YUsbInfoDevice* changed : {&record, &assigned}) {
    EXPECT_EQ(changed->vendorID() << 8 | changed->productID(), 0x0102);
    EXPECT_EQ(changed->revisedID(), 0x0100);
    strings texts;
    for (const auto text :
         {&YUsbInfoDevice::factory, &YUsbInfoDevice::serialNumber, &YUsbInfoDevice::location,
          &YUsbInfoDevice::instancePath, &YUsbInfoDevice::describe}) {
      texts.emplace_back((changed->*text)().data());
    }
    EXPECT_EQ(texts, (strings{"factory", "serial", "location", "path", "describe"}));
    changed->setFactory("changed");
    EXPECT_STREQ(copied.factory().data(), "factory");
  }
}

TEST_F(Library, ReportsAnArrivalAndARemovalInTheLog) {
  YUsbInfoDevice record = make_record(5, 0xABCD, "0x14100000", "path");
  record.setFactory("maker");
  record.setSerialNumber("serial");
  record.setDescribe("product");
  yusb::common_device_append(record);
  yusb::common_device_remove_from_instance_path("path");
  yusb::common_device_remove_from_location("0x14100000");
  yusb::common_device_remove(record);
  EXPECT_EQ(log.take(), (strings{
                            "1 ---------- DEVICE APPEND ----------",
                            "1 DEVICE Vendor ID\t\t: 0x0005",
                            "1 DEVICE Product ID\t\t: 0xABCD",
                            "1 DEVICE Revised ID\t\t: 0x0100",
                            "1 DEVICE Factory\t\t: maker",
                            "1 DEVICE Serial Number\t: serial",
                            "1 DEVICE Location\t\t: 0x14100000",
                            "1 DEVICE InstancePath\t: path",
                            "1 DEVICE Describe\t\t: product",
                            "1 ---------- DEVICE REMOVE ----------",
                            "1 DEVICE Location\t\t: 0x14100000",
                            "1 ---------- DEVICE REMOVE ----------",
                            "1 DEVICE Location\t\t: ",
                        }));
}

TEST_F(Library, RemovesTheFirstMatchOnlyAndTellsOfEveryRemovalAlsoOfNothing) {
  recorder client;
  ASSERT_TRUE(yusb::context_notify_object_append(context, &client));
  const auto fill = [&] {
    for (const char* key : {"a", "b", "c"}) yusb::common_device_append(make_record(1, 1, key, key));
    yusb::common_device_append(make_record(1, 1, "a", "second a"));
    client.take();
  };
  struct {
    std::function<void()> remove;
    strings left, heard;
  } const cases[] = {
      {[] { yusb::common_device_remove(make_record(1, 1, "a", "other")); }, {"b", "c", "a"}, {"-a"}},
      {[] { yusb::common_device_remove(make_record(1, 1, "other", "second a")); },
       {"a", "b", "c"},
       {"-other"}},
      {[] { yusb::common_device_remove(make_record(1, 1, "b", "second a")); }, {"a", "c", "a"}, {"-b"}},
      {[] { yusb::common_device_remove(make_record(1, 1, "x", "y")); }, {"a", "b", "c", "a"}, {"-x"}},
      {[] { yusb::common_device_remove_from_location("a"); }, {"b", "c", "a"}, {"-a"}},
      {[] { yusb::common_device_remove_from_location("second a"); }, {"a", "b", "c", "a"}, {"-(empty)"}},
      {[] { yusb::common_device_remove_from_instance_path("second a"); }, {"a", "b", "c"}, {"-a"}},
      {[] { yusb::common_device_remove_from_instance_path("x"); }, {"a", "b", "c", "a"}, {"-(empty)"}},
  };
  for (const auto& each : cases) {
    fill();
    each.remove();
    EXPECT_EQ(listed(), each.left) << &each - cases;
    EXPECT_EQ(client.take(), each.heard) << &each - cases;
    for (const std::string& left : listed()) yusb::common_device_remove_from_location(left.c_str());
  }
}

TEST_F(Library, FindsADeviceByEitherKey) {
  EXPECT_FALSE(yusb::device_is_exist(context, make_record(1, 1, "a")));
  yusb::common_device_append(make_record(1, 1, "a", "path"));
  EXPECT_TRUE(yusb::device_is_exist(context, make_record(9, 9, "a", "other")));
  EXPECT_TRUE(yusb::device_is_exist(nullptr, make_record(9, 9, "other", "path")));
  EXPECT_FALSE(yusb::device_is_exist(nullptr, make_record(1, 1, "path", "a")));
}

TEST_F(Library, WalksASnapshotThatAVisitorMayChange) {
  EXPECT_FALSE(yusb::device_traverse(context, nullptr));
  for (const char* key : {"a", "b"}) yusb::common_device_append(make_record(1, 1, key));
  strings seen;
  EXPECT_TRUE(yusb::device_traverse(nullptr, [&seen](const YUsbInfoDevice& record) {
    seen.emplace_back(record.location().data());
    yusb::common_device_remove_from_location("b");
    yusb::common_device_append(make_record(1, 1, "c"));
    return true;
  }));
  EXPECT_EQ(seen, (strings{"a", "b"}));
  EXPECT_EQ(listed(), (strings{"a", "c", "c"}));
  int calls = 0;
  EXPECT_TRUE(yusb::device_traverse(nullptr, [&calls](const YUsbInfoDevice&) { return ++calls == 0; }));
  EXPECT_EQ(calls, 1);
}

TEST_F(Library, DeliversInAscendingOrderOfAddress) {
  std::array<_yusb_context*, 3> contexts{};
  for (auto& each : contexts) yusb::context_create(&each);
  std::array<recorder, 3> clients;
  std::vector<std::pair<int, const recorder*>> heard;
  std::vector<std::pair<int, const recorder*>> expected;
  for (auto& client : clients) {
    client.then = [&heard, &client](const YUsbInfoDevice&, _yusb_device_event event) {
      heard.emplace_back(event, &client);
    };
  }
  // Registered backwards; clients of one array have ascending addresses.
  std::sort(contexts.begin(), contexts.end());
  yusb::context_notify_object_append(contexts[2], &clients[0]);
  yusb::context_notify_object_append(contexts[0], &clients[2]);
  yusb::context_notify_object_append(contexts[0], &clients[1]);
  yusb::context_notify_object_append(contexts[1], &clients[1]);
  yusb::common_device_append(make_record(1, 1, "a"));
  yusb::common_device_remove(make_record(1, 1, "a"));
  for (const int event : {0, 1}) {
    for (const int client : {1, 2, 1, 0})
      expected.emplace_back(event, &clients[static_cast<std::size_t>(client)]);
  }
  EXPECT_EQ(heard, expected);
  for (auto* each : contexts) EXPECT_TRUE(yusb::context_release(each));
}

TEST_F(Library, ReplaysTheListAroundARegistrationToThatInterfaceAlone) {
  recorder first;
  recorder second;
  for (const char* key : {"a", "b"}) yusb::common_device_append(make_record(1, 1, key));
  EXPECT_TRUE(yusb::context_notify_object_append(context, &first));
  EXPECT_EQ(first.take(), (strings{"+a", "+b"}));
  second.then = [](const YUsbInfoDevice& record, _yusb_device_event) {
    EXPECT_TRUE(yusb::device_is_exist(nullptr, record));  // this replay holds no lock
  };
  EXPECT_TRUE(yusb::context_notify_object_append(context, &second));
  EXPECT_EQ(second.take(), (strings{"+a", "+b"}));
  EXPECT_FALSE(yusb::context_notify_object_append(context, &first));
  EXPECT_TRUE(yusb::context_notify_object_remove(context, &second));
  EXPECT_EQ(second.take(), (strings{"-a", "-b"}));
  EXPECT_FALSE(yusb::context_notify_object_remove(context, &second));
  yusb::common_device_append(make_record(1, 1, "c"));
  EXPECT_EQ(first.take(), (strings{"+c"}));
  EXPECT_EQ(second.take(), strings());
  EXPECT_FALSE(yusb::context_notify_object_append(nullptr, &first));
  EXPECT_FALSE(yusb::context_notify_object_append(context, nullptr));
  EXPECT_FALSE(yusb::context_notify_object_remove(nullptr, &first));
  EXPECT_FALSE(yusb::context_notify_object_remove(context, nullptr));
}

TEST_F(Library, ReplaysTheListToAContextThatEntersOrLeaves) {
  std::array<recorder, 2> clients;
  strings heard;
  for (std::size_t i = 0; i < clients.size(); ++i) {
    clients[i].then = [&heard, i](const YUsbInfoDevice& record, _yusb_device_event event) {
      heard.push_back(std::to_string(i) + (event == YUSB_DEVICE_EVENT_APPEND ? "+" : "-") +
                      record.location().data());
    };
    yusb::context_notify_object_append(context, &clients[i]);
  }
  EXPECT_FALSE(yusb::common_object_append(context));
  for (const char* key : {"a", "b"}) yusb::common_device_append(make_record(1, 1, key));
  heard.clear();
  EXPECT_TRUE(yusb::common_object_remove(context));
  EXPECT_EQ(std::exchange(heard, {}), (strings{"0-a", "1-a", "0-b", "1-b"}));
  EXPECT_FALSE(yusb::common_object_remove(context));
  EXPECT_TRUE(yusb::common_object_append(context));
  EXPECT_EQ(std::exchange(heard, {}), (strings{"0+a", "1+a", "0+b", "1+b"}));
  EXPECT_TRUE(yusb::context_release(context));
  EXPECT_EQ(heard, (strings{"0-a", "1-a", "0-b", "1-b"}));
  EXPECT_FALSE(yusb::context_create(nullptr));
  EXPECT_FALSE(yusb::context_release(nullptr));
  EXPECT_FALSE(yusb::common_object_append(nullptr));
  EXPECT_FALSE(yusb::common_object_remove(nullptr));
}

// Everything that takes a lock; each call must leave the world as it is.
using locking_call = std::pair<const char*, bool (*)(_yusb_context*, yusb_device_event_interface*)>;
static const locking_call kLockingCalls[] = {
    {"context_create",
     [](auto*, auto*) { return yusb::context_create(std::array<_yusb_context*, 1>().data()); }},
    {"context_release", [](auto* context, auto*) { return yusb::context_release(context); }},
    {"common_object_append", [](auto* context, auto*) { return yusb::common_object_append(context); }},
    {"common_object_remove", [](auto* context, auto*) { return yusb::common_object_remove(context); }},
    {"common_notify_append",
     [](auto* context, auto* iface) { return yusb::context_notify_object_append(context, iface); }},
    {"common_notify_remove",
     [](auto* context, auto* iface) { return yusb::context_notify_object_remove(context, iface); }},
    {"common_notify_handle",
     [](auto* context, auto*) { return (yusb::common_notify_device_append(context, {}), false); }},
    {"common_device_append", [](auto*, auto*) { return (yusb::common_device_append({}), false); }},
    {"common_device_remove",
     [](auto*, auto*) { return (yusb::common_device_remove(make_record(1, 1, "a")), false); }},
    {"common_device_remove_from_location",
     [](auto*, auto*) { return (yusb::common_device_remove_from_location("a"), false); }},
    {"common_device_remove_from_instance_path",
     [](auto*, auto*) { return (yusb::common_device_remove_from_instance_path("a"), false); }},
    {"common_device_is_exist",
     [](auto*, auto*) { return yusb::device_is_exist(nullptr, make_record(1, 1, "a")); }},
    {"common_device_traverse",
     [](auto*, auto*) { return (yusb::common_device_traverse([](auto&) { return true; }), false); }},
    {"device_traverse",
     [](auto*, auto*) { return yusb::device_traverse(nullptr, [](auto&) { return true; }); }},
    {"airpods_traverse",
     [](auto*, auto*) { return yusb::airpods_traverse(nullptr, [](auto&) { return true; }); }},
    {"common_global_initialize", [](auto*, auto*) { return (yusb::global_initialize(), false); }},
    {"common_global_release", [](auto*, auto*) { return (yusb::global_release(), false); }},
};

TEST_F(Library, RefusesAHandlerUnderTheLocksAndSaysSo) {
  recorder client;
  client.then = [&](const YUsbInfoDevice&, _yusb_device_event) {
    for (const auto& [name, call] : kLockingCalls) EXPECT_FALSE(call(context, &client)) << name;
  };
  const auto check = [&](const strings& heard) {
    EXPECT_EQ(client.take(), heard);
    strings lines = log.take();
    lines.erase(std::remove_if(lines.begin(), lines.end(), [](auto& line) { return line[0] == '1'; }),
                lines.end());
    ASSERT_EQ(lines.size(), heard.size() * std::size(kLockingCalls));
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const std::string start =
          std::string("4 [ ") + kLockingCalls[i % std::size(kLockingCalls)].first + " : ";
      EXPECT_EQ(lines[i].compare(0, start.size(), start), 0) << lines[i];
    }
  };
  yusb::context_notify_object_append(context, &client);
  yusb::common_device_append(make_record(1, 1, "a"));  // on this thread
  check({"+a"});
  const int id = bus.plug(make_device(1, 2, 0xB));  // on the monitor thread
  ASSERT_TRUE(bus.settle());
  bus.unplug(id);
  ASSERT_TRUE(bus.settle());
  check({"+0xB", "-0xB"});
  yusb::context_release(context);  // in a replay under the locks
  check({"-a"});
  EXPECT_EQ(listed(), strings{"a"});
}

TEST_F(Library, RefusesALogSinkUnderTheLocks) {
  static bool exists;
  exists = true;
  testing::internal::CaptureStderr();
  YLog::setSink(
      [](auto, auto*, auto, auto*) { exists = yusb::device_is_exist(nullptr, make_record(1, 1, "a")); },
      nullptr);
  yusb::common_device_append(make_record(1, 1, "a"));
  YLog::setSink(nullptr, nullptr);
  EXPECT_FALSE(exists);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("[ common_device_is_exist : "), std::string::npos);
}

TEST(Uninitialised, DoesNothingBeforeInitialisationAndAfterRelease) {
  recorder client;
  for (int round = 0; round < 2; ++round) {
    for (const auto& [name, call] : kLockingCalls) {
      const std::string called = name;
      if (called.find("context_") == 0 || called.find("global_init") != std::string::npos ||
          called == "airpods_traverse")
        continue;
      if (called == "common_notify_handle") continue;  // needs a context
      EXPECT_FALSE(call(nullptr, &client)) << name;
    }
    EXPECT_TRUE(yusb::airpods_traverse(nullptr, [](auto&) { return true; }));
    _yusb_context* context = nullptr;
    EXPECT_TRUE(yusb::context_create(&context));
    ASSERT_NE(context, nullptr);
    EXPECT_FALSE(yusb::context_notify_object_append(context, &client));
    EXPECT_FALSE(yusb::context_notify_object_remove(context, &client));
    EXPECT_TRUE(yusb::context_release(context));
    EXPECT_EQ(client.take(), strings());
    yusb::global_release();
    if (round == 0) {
      const yusb::simulator bus;
      yusb::global_initialize();
      yusb::global_release();
    }
  }
}

TEST_F(Library, ReleasesWithoutAnEventWhatIsStillOpen) {
  recorder client;
  yusb::context_notify_object_append(context, &client);
  yusb::common_device_append(make_record(1, 1, "a"));
  client.take();
  yusb::global_initialize();  // a second one keeps everything
  EXPECT_EQ(listed(), strings{"a"});
  yusb::global_release();
  EXPECT_EQ(client.take(), strings());
  yusb::global_initialize();  // afresh
  EXPECT_EQ(listed(), strings());
}
