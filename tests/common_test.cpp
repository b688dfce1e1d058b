// The record, the list, contexts, registrations and delivery, fed directly.
#include <array>

#include "support.h"

using namespace yusb;

TEST(Record, ExistsByItsNumbersEqualsByItsLocationAndIsCopiedWhole) {
  using record = YUsbInfoDevice;
  record assigned, numberless = make_record(0, 0, "location", "path", {"factory", "describe", "serial"});
  numberless.setRevisedID(0);
  EXPECT_TRUE(numberless.empty());
  for (const auto set : {&record::setVendorID, &record::setProductID, &record::setRevisedID}) {
    record one;
    (one.*set)(1);
    EXPECT_TRUE(one.exist());
  }
  struct never_empty : record {
    bool empty() const override { return false; }
  };
  EXPECT_TRUE(never_empty().exist());
  const record whole = make_record(1, 2, "location", "path", {"factory", "describe", "serial"});
  EXPECT_EQ(make_record(3, 4, "location", "other"), whole);
  EXPECT_NE(make_record(1, 2, "other", "path"), whole);
  assigned = whole;
  record& alias = assigned;
  assigned = alias;
  const record copied(assigned);
  assigned.setFactory("changed");
  for (const record& each : {copied, whole})
    EXPECT_EQ(shown(each), "0001:0002 0100 location path factory describe serial");
}

TEST_F(Library, ReportsAnArrivalAndARemovalInTheLog) {
  const YUsbInfoDevice record = make_record(5, 0xABCD, "0x14100000", "path", {"maker", "product", "serial"});
  common_device_append(record);
  common_device_remove_from_instance_path("path");
  common_device_remove_from_location("0x14100000");
  common_device_remove(record);
  EXPECT_EQ(log.take(), (strings{"1 ---------- DEVICE APPEND ----------", "1 DEVICE Vendor ID\t\t: 0x0005",
                                 "1 DEVICE Product ID\t\t: 0xABCD", "1 DEVICE Revised ID\t\t: 0x0100",
                                 "1 DEVICE Factory\t\t: maker", "1 DEVICE Serial Number\t: serial",
                                 "1 DEVICE Location\t\t: 0x14100000", "1 DEVICE InstancePath\t: path",
                                 "1 DEVICE Describe\t\t: product", "1 ---------- DEVICE REMOVE ----------",
                                 "1 DEVICE Location\t\t: 0x14100000", "1 ---------- DEVICE REMOVE ----------",
                                 "1 DEVICE Location\t\t: "}));
}

TEST_F(Library, RemovesTheFirstMatchOnlyAndTellsOfEveryRemovalAlsoOfNothing) {
  listen();
  const auto record = [](const char* location, const char* path) {
    return [=] { common_device_remove(make_record(1, 1, location, path)); };
  };
  const auto location = [](const char* key) { return [=] { common_device_remove_from_location(key); }; };
  const auto path = [](const char* key) { return [=] { common_device_remove_from_instance_path(key); }; };
  const std::tuple<std::function<void()>, const char*, const char*> cases[] = {
      {record("a", "other"), "b c a", "-a"},    {record("other", "second a"), "a b c", "-other"},
      {record("b", "second a"), "a c a", "-b"}, {record("x", "y"), "a b c a", "-x"},
      {location("a"), "b c a", "-a"},           {location("second a"), "a b c a", "-(empty)"},
      {path("second a"), "a b c", "-a"},        {path("x"), "a b c a", "-(empty)"}};
  for (const auto& [remove, left, heard] : cases) {
    append({"a", "b", "c"});
    common_device_append(make_record(1, 1, "a", "second a"));
    client.take();
    remove();
    EXPECT_EQ(listed(), left);
    EXPECT_EQ(client.take(), heard);
    for (const char* each : {"a", "b", "c", "a"}) common_device_remove_from_location(each);
  }
}

TEST_F(Library, FindsADeviceByEitherKeyAndWalksASnapshotThatAVisitorMayChange) {
  EXPECT_FALSE(device_traverse(context, nullptr));
  EXPECT_FALSE(device_is_exist(context, make_record(1, 1, "a")));
  common_device_append(make_record(1, 1, "a", "path"));
  EXPECT_TRUE(device_is_exist(context, make_record(9, 9, "a", "other")));
  EXPECT_TRUE(device_is_exist(nullptr, make_record(9, 9, "other", "path")));
  EXPECT_FALSE(device_is_exist(nullptr, make_record(1, 1, "path", "a")));
  append({"b"});
  std::string seen;
  const auto visitor = [&seen](const YUsbInfoDevice& record) {
    common_device_remove_from_location("b");
    append({"c"});
    seen += record.location().data();
    return seen != "aba";
  };
  EXPECT_TRUE(device_traverse(nullptr, visitor));
  EXPECT_EQ(seen, "ab");
  EXPECT_EQ(listed(), "a c c");
  EXPECT_TRUE(device_traverse(nullptr, visitor));
  EXPECT_EQ(seen, "aba") << "the visitor stopped the walk";
}

TEST_F(Library, DeliversInAscendingOrderOfAddressToEveryContextOrToTheOneConcerned) {
  std::array<_yusb_context*, 3> contexts{};
  for (auto& each : contexts) context_create(&each);
  std::sort(contexts.begin(), contexts.end());
  std::array<recorder, 3> clients;  // their addresses ascend
  std::string heard;
  for (auto& each : clients) {
    each.then = [&](const YUsbInfoDevice& device, _yusb_device_event event) {
      heard += std::to_string(&each - clients.data()) + "+-"[event] + device.location().data() + " ";
    };
  }
  // Registered backwards.
  for (const auto& [place, client] : {std::pair(2, 0), {0, 2}, {0, 1}, {1, 1}})
    context_notify_object_append(contexts.at(place), &clients.at(client));
  const auto expect_heard = [&](const char* text) { EXPECT_EQ(std::exchange(heard, {}), text); };
  common_notify_append(contexts[0], nullptr);  // passed over
  append({"a", "b"});
  expect_heard("1+a 2+a 1+a 0+a 1+b 2+b 1+b 0+b ");
  common_notify_device_append(contexts[0], make_record(1, 1, "c"));
  common_notify_device_remove(contexts[0], make_record(1, 1, "a"));
  expect_heard("1+c 2+c 1-a 2-a ");
  EXPECT_EQ(listed(), "a b");
  EXPECT_FALSE(common_object_append(contexts[0]));
  expect_heard("");
  EXPECT_TRUE(common_object_remove(contexts[0]));
  EXPECT_FALSE(common_object_remove(contexts[0]));
  expect_heard("1-a 2-a 1-b 2-b ");
  EXPECT_TRUE(common_object_append(contexts[0]));
  expect_heard("1+a 2+a 1+b 2+b ");
  EXPECT_TRUE(context_release(contexts[0]));
  expect_heard("1-a 2-a 1-b 2-b ");
  common_device_remove(make_record(1, 1, "a"));
  expect_heard("1-a 0-a ");
}

TEST_F(Library, ReplaysTheListAroundARegistrationToThatInterfaceAlone) {
  recorder second;
  const auto at_first_append = [](const char* location) {
    return [location, asked = false](const YUsbInfoDevice& record, _yusb_device_event) mutable {
      if (std::exchange(asked, true)) return;
      EXPECT_TRUE(device_is_exist(nullptr, record));  // this replay holds no lock
      append({location});
    };
  };
  append({"a", "b"});
  listen();
  EXPECT_EQ(client.take(), "+a +b");
  second.then = at_first_append("c");
  EXPECT_TRUE(context_notify_object_append(context, &second));
  EXPECT_EQ(second.take(), "+a +c +b") << "it is entered before the replay";
  EXPECT_FALSE(context_notify_object_append(context, &client));
  second.then = at_first_append("d");
  EXPECT_TRUE(context_notify_object_remove(context, &second));
  EXPECT_EQ(second.take(), "-a -b -c") << "it is taken out before the replay";
  EXPECT_FALSE(context_notify_object_remove(context, &second));
  append({"e"});
  EXPECT_EQ(client.take(), "+c +d +e");
  EXPECT_EQ(second.take(), "");
  for (const auto call : {context_notify_object_append, context_notify_object_remove})
    EXPECT_FALSE(call(nullptr, &client) || call(context, nullptr));
  for (const auto call : {context_release, common_object_append, common_object_remove})
    EXPECT_FALSE(call(nullptr));
  EXPECT_FALSE(context_create(nullptr));
}

// Everything that takes a lock, by its name in the log. Refused, a call leaves the world as it is.
using locking_call = std::pair<const char*, bool (*)(_yusb_context*, yusb_device_event_interface*)>;
const auto everything = [](const YUsbInfoDevice&) { return true; };
const locking_call kLockingCalls[] = {
    {"context_create", [](auto*, auto*) { return context_create(std::array<_yusb_context*, 1>().data()); }},
    {"context_release", [](auto* context, auto*) { return context_release(context); }},
    {"common_global_initialize", [](auto*, auto*) { return global_initialize(), false; }},
    {"airpods_traverse", [](auto*, auto*) { return airpods_traverse(nullptr, everything); }},
    // Before initialisation these do nothing, and return false.
    {"common_global_release", [](auto*, auto*) { return global_release(), false; }},
    {"common_object_append", [](auto* context, auto*) { return common_object_append(context); }},
    {"common_object_remove", [](auto* context, auto*) { return common_object_remove(context); }},
    {"common_notify_append", context_notify_object_append},
    {"common_notify_remove", context_notify_object_remove},
    {"common_notify_handle",
     [](auto* context, auto*) { return common_notify_handle(context, {}, {}), false; }},
    {"common_device_append", [](auto*, auto*) { return common_device_append({}), false; }},
    {"common_device_remove",
     [](auto*, auto*) { return common_device_remove(make_record(1, 1, "a")), false; }},
    {"common_device_remove_from_location",
     [](auto*, auto*) { return common_device_remove_from_location("a"), false; }},
    {"common_device_remove_from_instance_path",
     [](auto*, auto*) { return common_device_remove_from_instance_path("a"), false; }},
    {"common_device_is_exist", [](auto*, auto*) { return device_is_exist(nullptr, make_record(1, 1, "a")); }},
    {"common_device_traverse", [](auto*, auto*) { return common_device_traverse(everything), false; }},
    {"device_traverse", [](auto*, auto*) { return device_traverse(nullptr, everything); }}};

TEST_F(Library, RefusesAHandlerUnderTheLocksAndSaysSo) {
  client.then = [&](const YUsbInfoDevice&, _yusb_device_event) {
    for (const auto& [name, call] : kLockingCalls) EXPECT_FALSE(call(context, &client)) << name;
  };
  const auto expect_heard = [&](const char* heard, std::size_t events) {
    EXPECT_EQ(client.take(), heard);
    const strings errors = log.take('4');
    ASSERT_EQ(errors.size(), events * std::size(kLockingCalls));
    for (std::size_t i = 0; i < errors.size(); ++i) {
      const std::string name = kLockingCalls[i % std::size(kLockingCalls)].first;
      EXPECT_EQ(errors[i].find("4 [ " + name + " : "), 0u) << errors[i];
    }
  };
  listen();
  append({"a"});  // on this thread
  expect_heard("+a", 1);
  const int id = bus.plug(make_device(1, 2, 0xB));  // on the monitor thread
  settle();
  bus.unplug(id);
  settle();
  expect_heard("+0xB -0xB", 2);
  context_release(context);  // in a replay under the locks
  expect_heard("-a", 1);
  EXPECT_EQ(listed(), "a");
}

TEST_F(Library, RefusesALogSinkUnderTheLocks) {
  static bool exists;
  exists = true;
  testing::internal::CaptureStderr();
  const auto sink = [](auto, auto*, auto, auto*) {
    exists = device_is_exist(nullptr, make_record(1, 1, "a"));
  };
  YLog::setSink(sink, nullptr);
  append({"a"});
  EXPECT_FALSE(exists);
  exists = true;
  common_device_printf(make_record(1, 1, "a"));  // which holds none, but another thread may wait for the log
  YLog::setSink(nullptr, nullptr);
  EXPECT_FALSE(exists);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("[ common_device_is_exist : "), std::string::npos);
}

TEST(Uninitialised, DoesNothingBeforeInitialisationAndAfterRelease) {
  recorder client;
  for (int round = 0; round < 2; ++round) {
    _yusb_context* context = nullptr;
    EXPECT_TRUE(context_create(&context));
    ASSERT_NE(context, nullptr);
    for (auto each = kLockingCalls + 4; each != std::end(kLockingCalls); ++each)
      EXPECT_FALSE(each->second(context, &client)) << each->first;
    EXPECT_TRUE(airpods_traverse(nullptr, everything));
    EXPECT_TRUE(context_release(context));
    if (round == 1) break;
    const simulator bus;
    global_initialize();
    global_release();
  }
}

TEST_F(Library, ReleasesWithoutAnEventWhatIsStillOpen) {
  listen();
  append({"a"});
  global_initialize();  // a second one keeps everything
  EXPECT_EQ(listed(), "a");
  global_release();
  EXPECT_EQ(client.take(), "+a");
  global_initialize();  // afresh
  EXPECT_EQ(listed(), "");
}
