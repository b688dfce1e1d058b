// The list, contexts, registrations and delivery, through the underlying functions.
#include <array>

#include "support.h"

using namespace yusb;

struct Common : Library {};

TEST_F(Common, LogsEachArrivalAndRemoval) {
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

TEST_F(Common, RemovesTheFirstMatchAndReportsEveryRemoval) {
  listen();
  using removal = void (*)();
  const std::tuple<removal, const char*, const char*> cases[] = {
      {[] { common_device_remove(make_record(1, 1, "a", "other")); }, "b c a", "-a"},
      {[] { common_device_remove(make_record(1, 1, "other", "second a")); }, "a b c", "-other"},
      {[] { common_device_remove(make_record(1, 1, "x", "y")); }, "a b c a", "-x"},
      {[] { common_device_remove_from_location("a"); }, "b c a", "-a"},
      {[] { common_device_remove_from_location("second a"); }, "a b c a", "-(empty)"},
      {[] { common_device_remove_from_instance_path("second a"); }, "a b c", "-a"}};
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

TEST_F(Common, FindsADeviceByEitherKey) {
  common_device_append(make_record(1, 1, "a", "path"));
  EXPECT_TRUE(device_is_exist(context, make_record(9, 9, "a", "other")));
  EXPECT_TRUE(device_is_exist(nullptr, make_record(9, 9, "other", "path")));
  EXPECT_FALSE(device_is_exist(nullptr, make_record(1, 1, "path", "a")));
}

TEST_F(Common, WalksASnapshotThatAVisitorMayChange) {
  EXPECT_FALSE(device_traverse(context, nullptr));
  append({"a", "b"});
  std::string seen;
  const auto visitor = [&seen](const YUsbInfoDevice& record) {
    common_device_remove_from_location("b");
    append({"c"});
    seen += record.location().data();
    return seen != "aba";
  };
  EXPECT_TRUE(device_traverse(nullptr, visitor));
  EXPECT_EQ(listed(), "a c c");
  EXPECT_TRUE(device_traverse(nullptr, visitor));
  EXPECT_EQ(seen, "aba") << "the visitor stopped the second walk";
}

// Three contexts and three clients, each in ascending order of address. A client records its index.
struct CommonOrder : Common {
  void SetUp() override {
    Common::SetUp();
    for (auto& each : contexts) context_create(&each);
    std::sort(contexts.begin(), contexts.end());
    for (std::size_t index = 0; index < clients.size(); ++index) {
      clients[index].then = [this, index](const YUsbInfoDevice& device, _yusb_device_event event) {
        heard += std::to_string(index) + "+-"[event] + device.location().data() + " ";
      };
    }
    // In descending order, and one client in two contexts.
    context_notify_object_append(contexts[2], &clients[0]);
    context_notify_object_append(contexts[0], &clients[2]);
    context_notify_object_append(contexts[0], &clients[1]);
    context_notify_object_append(contexts[1], &clients[1]);
  }

  void expect_heard(const char* expected) { EXPECT_EQ(std::exchange(heard, {}), expected); }

  std::array<_yusb_context*, 3> contexts{};
  std::array<recorder, 3> clients;
  std::string heard;  // "1+a 2+a "
};

TEST_F(CommonOrder, OfDeliveryIsAscendingByAddress) {
  common_notify_append(contexts[0], nullptr);  // skipped
  append({"a", "b"});
  expect_heard("1+a 2+a 1+a 0+a 1+b 2+b 1+b 0+b ");
  common_notify_device_append(contexts[0], make_record(1, 1, "c"));
  common_notify_device_remove(contexts[0], make_record(1, 1, "a"));
  expect_heard("1+c 2+c 1-a 2-a ");
}

TEST_F(CommonOrder, OfAContextThatJoinsOrLeavesIsAReplayToItsClients) {
  append({"a", "b"});
  heard.clear();
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

TEST_F(Common, ReplaysTheListAroundARegistrationToThatInterfaceAlone) {
  recorder second;
  const auto at_first_append = [](const char* location) {
    return [location, asked = false](const YUsbInfoDevice& record, _yusb_device_event) mutable {
      if (std::exchange(asked, true)) return;
      EXPECT_TRUE(device_is_exist(nullptr, record));  // this replay runs without a lock
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
}

TEST_F(Common, ReleasesWithoutAnEventWhatIsStillOpen) {
  listen();
  append({"a"});
  global_initialize();  // a second one keeps everything
  EXPECT_EQ(listed(), "a");
  global_release();
  EXPECT_EQ(client.take(), "+a");
  global_initialize();  // again after the release
  EXPECT_EQ(listed(), "");
}
