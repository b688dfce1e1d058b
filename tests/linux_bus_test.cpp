// The Linux bus on a bus that umockdev pretends: paths and uevents by themselves, then what a session tells.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <umockdev.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <YorvanCore/YLog.h>

#include "bus/bus.h"
#include "bus/location.h"
#include "bus/uevent.h"

namespace {

int _failing_receive = 0;               // the errno of the next recvmsg
void (*_tampering)(msghdr*) = nullptr;  // with what a recvmsg received

}  // namespace

// In front of umockdev's and the C library's.
extern "C" ssize_t recvmsg(int socket, msghdr* message, int flags) {
  static const auto real = reinterpret_cast<ssize_t (*)(int, msghdr*, int)>(dlsym(RTLD_NEXT, "recvmsg"));
  if (_failing_receive != 0) {
    errno = std::exchange(_failing_receive, 0);
    return -1;
  }
  const ssize_t size = real(socket, message, flags);
  if (size > 0 && _tampering != nullptr) _tampering(message);
  return size;
}

namespace yusb::port {
namespace {

using lines = std::vector<std::string>;

std::string hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", value);
  return text;
}

TEST(Location, IsTheBusAndADigitAPort) {
  const std::vector<std::pair<const char*, std::uint32_t>> exact = {
      {"usb1", 0x01000000},   {"1-2.3", 0x01230000},         {"255-15", 0xFFF00000},
      {"usb255", 0xFF000000}, {"1-2.3.4.5.6.7", 0x01234567}, {"20-1.10", 0x141A0000},
  };
  for (const auto& [path, location] : exact) EXPECT_EQ(location_of(path), location) << path;
  for (const char* const path :
       {"", "usb", "usb0", "usb1-1", "1", "1-", "1-0", "1-02", "0-1", "1-2:1.0", "1-2.", "1-.2", "-1-2",
        "1-2 ", "1_2", "1-2-3", "4294967296-1", "1-99999999999", "0x1-2"}) {
    EXPECT_EQ(location_of(path), std::nullopt) << path;
  }
}

TEST(Location, OfAPathThatDoesNotFitIsOneThatNoFittingPathHas) {
  for (const char* const path : {"1-16", "1-2.31", "1-1.1.1.1.1.1.1", "256-1", "usb256", "usb4096"}) {
    const std::uint32_t location = location_of(path).value();
    EXPECT_EQ(location & 0x00F00000, 0u) << path;
    EXPECT_NE(location & 0x000FFFFF, 0u) << path;
    EXPECT_EQ(location >> 24, bus_of(path) == 1 ? 1u : 0u) << path;
  }
  EXPECT_EQ(next_location(0x010FFFFE), 0x010FFFFFu);
  EXPECT_EQ(next_location(0x010FFFFF), 0x01000001u) << "never that of the root hub";
}

TEST(Location, TreeOrderPutsAHubBeforeWhatIsBehindIt) {
  const lines ordered = {"usb1", "1-2", "1-2.3", "1-2.3.1", "1-2.10", "1-10", "usb2", "2-1", "usb10"};
  lines shuffled(ordered.rbegin(), ordered.rend());
  std::sort(shuffled.begin(), shuffled.end(), path_before);
  EXPECT_EQ(shuffled, ordered);
  EXPECT_FALSE(path_before("1-2", "1-2"));
  EXPECT_TRUE(is_within("1-2.10", "1-2"));
  EXPECT_TRUE(is_within("1-2", "usb1"));
  EXPECT_FALSE(is_within("1-20", "1-2"));
  EXPECT_FALSE(is_within("1-2", "1-2.1"));
}

std::string joined(const lines& fields) {
  std::string datagram = "add@/devices/pci0000:00/usb1/1-2";
  for (const std::string& field : fields) datagram += '\0' + field;
  return datagram;
}

TEST(Uevent, TellsOfADeviceThatComesOrGoes) {
  const lines fields = {"ACTION=remove",
                        "DEVPATH=/devices/usb1/1-2",
                        "SUBSYSTEM=usb",
                        "DEVTYPE=usb_device",
                        "DEVNUM=012",
                        "PRODUCT=5ac/1393/100",
                        "SEQNUM=1",
                        "=",
                        ""};
  const uevent event = parse_uevent(joined(fields)).value();
  EXPECT_FALSE(event.added);
  EXPECT_EQ(event.path, "1-2");
  EXPECT_EQ(event.devnum, 12u);
  EXPECT_EQ(event.numbers.vendor, 0x05AC);
  EXPECT_EQ(event.numbers.product, 0x1393);
  EXPECT_EQ(event.numbers.release, 0x0100);
  const std::string whole = joined(fields);
  for (std::size_t size = 0; size < whole.size() - 40; ++size) {
    const std::vector<char> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(parse_uevent({cut.data(), cut.size()}).has_value()) << size;  // nor reads beyond it
  }
}

TEST(Uevent, IsOtherwiseNoneOfOurs) {
  const lines good = {"ACTION=add", "DEVPATH=/devices/1-2", "SUBSYSTEM=usb", "DEVTYPE=usb_device",
                      "DEVNUM=2"};
  ASSERT_TRUE(parse_uevent(joined(good)).has_value());
  for (std::size_t i = 0; i < good.size(); ++i) {
    lines without = good;
    without.erase(without.begin() + static_cast<std::ptrdiff_t>(i));
    EXPECT_FALSE(parse_uevent(joined(without)).has_value()) << "without " << good[i];
  }
  for (const char* const wrong :
       {"ACTION=bind", "ACTION=change", "DEVTYPE=usb_interface", "SUBSYSTEM=usbmon", "DEVNUM=0", "DEVNUM=-1",
        "DEVNUM=99999999999", "DEVNUM=2x", "DEVPATH=/devices/1-2/1-2:1.0", "DEVPATH=/", "DEVPATH="}) {
    lines with = good;
    with.emplace_back(wrong);
    EXPECT_FALSE(parse_uevent(joined(with)).has_value()) << wrong;
  }
  for (const char* const product :
       {"PRODUCT=5ac/1393", "PRODUCT=5ac/1393/100/1", "PRODUCT=10000/1/1", "PRODUCT=//", "PRODUCT="}) {
    lines with = good;
    with.emplace_back(product);
    EXPECT_EQ(parse_uevent(joined(with)).value().numbers.vendor, 0) << product;
  }
}

// A pretended bus. Its devices are all children of /devices: only the last part of a device's path counts.
class LinuxBus : public testing::Test {
 protected:
  void SetUp() override {
    YLog::setSink([](EYORVAN_LOG_LEVEL level, const char* line, std::size_t,
                     void* log) { static_cast<lines*>(log)->push_back(std::to_string(level) + " " + line); },
                  &_log);
  }
  void TearDown() override {
    YLog::setSink(nullptr, nullptr);
    _tampering = nullptr;
  }

  // Attaches a device 05ac:1393, its three strings as sysfs has them ("\\n" is a newline; empty: no file),
  // which the kernel announces.
  void plug(const std::string& path, int devnum, const std::string& manufacturer = "",
            const std::string& product = "", const std::string& serial = "") {
    char number[32];
    std::snprintf(number, sizeof number, "%03d", devnum);
    std::string text = "P: /devices/" + path + "\nN: bus/usb/001/" + number +
                       "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNUM=" + number +
                       "\nE: PRODUCT=5ac/1393/100\nA: devnum=" + std::to_string(devnum) +
                       "\\n\nH: descriptors=1201000200000040AC059313000107080901\n";
    if (!manufacturer.empty()) text += "A: manufacturer=" + manufacturer + "\n";
    if (!product.empty()) text += "A: product=" + product + "\n";
    if (!serial.empty()) text += "A: serial=" + serial + "\n";
    GError* error = nullptr;
    ASSERT_TRUE(umockdev_testbed_add_from_string(_bed.get(), text.c_str(), &error)) << error->message;
  }

  // What the kernel has taken out of sysfs when it announces a removal.
  void vanish(const std::string& path) {
    const std::string directory = _root + "/sys/devices/" + path + "/";
    for (const char* const file : {"devnum", "descriptors", "manufacturer", "product", "serial"})
      unlink((directory + file).c_str());
    unlink((_root + "/sys/bus/usb/devices/" + path).c_str());
  }

  void announce(const std::string& path, const char* action) {
    umockdev_testbed_uevent(_bed.get(), ("/sys/devices/" + path).c_str(), action);
  }

  void unplug(const std::string& path) {
    vanish(path);
    announce(path, "remove");
  }

  void set_devnum(const std::string& path, const char* property, const char* attribute) {
    const std::string device = "/sys/devices/" + path;
    umockdev_testbed_set_property(_bed.get(), device.c_str(), "DEVNUM", property);
    umockdev_testbed_set_attribute(_bed.get(), device.c_str(), "devnum", attribute);
  }

  void open() {
    _session = real_bus().open();
    ASSERT_NE(_session, nullptr);
  }

  // What the session has to say, "+0x1000000" for an arrival.
  lines changes() {
    lines told;
    while (const auto next = _session->next()) {
      told.push_back((next->arrived ? "+" : "-") + hex(next->device->registry_location().value()));
      _last = next->device;
    }
    return told;
  }

  std::string string_of_last(std::uint16_t index, std::uint16_t length = 255) {
    _status = ask(index, length);
    std::string text;
    for (std::size_t i = 2; i + 1 < _request.transferred; i += 2) {
      const int unit = _reply[i] | _reply[i + 1] << 8;
      text += unit < 0x80 ? std::string(1, static_cast<char>(unit))
                          : "[" + hex(static_cast<std::uint32_t>(unit)) + "]";
    }
    return text;
  }

  port::status ask(std::uint16_t index, std::uint16_t length) {
    _reply.assign(255, 0xEE);
    _request = {0x80, 6, static_cast<std::uint16_t>(0x300 | index), 0x0409, length, _reply.data(), 0};
    return _last->control(_request);
  }

  lines _log;
  const std::unique_ptr<UMockdevTestbed, void (*)(gpointer)> _bed{umockdev_testbed_new(), g_object_unref};
  const std::string _root =
      std::unique_ptr<char, void (*)(gpointer)>(umockdev_testbed_get_root_dir(_bed.get()), g_free).get();
  std::unique_ptr<session> _session;
  std::shared_ptr<device> _last;
  std::vector<std::uint8_t> _reply;
  control_request _request{};
  port::status _status = 0;
};

TEST_F(LinuxBus, TellsEachDeviceOnceParentsFirstWhateverTheOrderOfTheDirectory) {
  for (const char* const path : {"1-10", "1-2.3", "usb1", "1-2"}) plug(path, 5);
  plug("1-2:1.0", 5);
  open();
  EXPECT_EQ(changes(), (lines{"+0x1000000", "+0x1200000", "+0x1230000", "+0x1A00000"}));
  announce("1-2", "add");  // what the listing has shown already
  announce("1-2", "change");
  announce("1-2", "unbind");
  EXPECT_EQ(changes(), lines{});
  plug("1-3", 9);
  EXPECT_EQ(changes(), lines{"+0x1300000"});
  EXPECT_EQ(_log, lines{});
}

TEST_F(LinuxBus, AnswersStringsByteForByteFromTheKernelsCache) {
  std::string long_text;
  for (int i = 0; i < 127; ++i) long_text += "中";
  plug("1-1", 5, " \xC3\xA9\xF0\x9F\x98\x80 \\nx \\n", "no newline", long_text + "\\n");
  open();
  ASSERT_EQ(changes(), lines{"+0x1100000"});
  std::uint32_t index = 0;
  ASSERT_EQ(_last->get(number::product_index, &index), status_ok);
  EXPECT_EQ(index, 8u);
  EXPECT_EQ(string_of_last(7), " [0xE9][0xD83D][0xDE00] \nx ");
  EXPECT_EQ(string_of_last(8), "no newline");
  EXPECT_EQ(_reply[0], 22);
  EXPECT_EQ(_reply[1], 3);
  ask(9, 255);
  EXPECT_EQ(_request.transferred, 254u);
  EXPECT_EQ(string_of_last(8, 5), "n") << "cut at wLength";
  EXPECT_EQ(_request.transferred, 5u);
  EXPECT_EQ(_reply[5], 0xEE);
}

TEST_F(LinuxBus, KeepsTheLocationOfADeviceThatIsGoneAlsoWhereTwoWouldShareOne) {
  ASSERT_EQ(location_of("1-22"), location_of("1-174.7"));
  plug("1-22", 5);
  open();
  EXPECT_EQ(changes(), lines{"+0x105E184"});
  plug("1-174.7", 6);
  EXPECT_EQ(changes(), lines{"+0x105E185"});
  unplug("1-22");
  EXPECT_EQ(changes(), lines{"-0x105E184"});
  std::uint32_t vendor = 0;
  EXPECT_EQ(_last->get(number::vendor, &vendor), status_no_device);
  unplug("1-174.7");
  EXPECT_EQ(changes(), lines{"-0x105E185"});
  announce("1-174.7", "remove");
  EXPECT_EQ(changes(), lines{}) << "never listed, or gone already";
}

TEST_F(LinuxBus, ReplacesADeviceAndEverythingBehindItChildrenFirst) {
  for (const char* const path : {"1-1", "1-1.4", "1-1.4.2", "1-2"}) plug(path, 5);
  open();
  changes();
  set_devnum("1-1", "006", "6\n");
  announce("1-1", "add");
  EXPECT_EQ(changes(), (lines{"-0x1142000", "-0x1140000", "-0x1100000", "+0x1100000"}));
  set_devnum("1-1", "005", "6\n");
  announce("1-1", "remove");
  announce("1-1", "add");
  EXPECT_EQ(changes(), lines{}) << "older than what is there";
}

TEST_F(LinuxBus, GivesADeviceThatIsGoneBeforeItWasReadItsNumbersButNoOthersTexts) {
  open();
  plug("1-1", 5, "M", "P", "S");
  vanish("1-1");
  EXPECT_EQ(changes(), lines{"+0x1100000"});
  plug("1-2", 5, "M", "P", "S");
  set_devnum("1-2", "005", "6\n");
  EXPECT_EQ(changes(), lines{"+0x1200000"});
  std::uint32_t value[2] = {};
  EXPECT_EQ(_last->get(number::release, &value[0]), status_ok);
  EXPECT_EQ(_last->get(number::serial_number_index, &value[1]), status_ok);
  EXPECT_EQ(value[0], 0x0100u);
  EXPECT_EQ(value[1], 0u);
}

TEST_F(LinuxBus, AsksTheDeviceItselfForWhatTheCacheLacks) {
  const std::unique_ptr<UMockdevIoctlBase, void (*)(gpointer)> usbfs{umockdev_ioctl_base_new(),
                                                                     g_object_unref};
  using handler = gboolean (*)(UMockdevIoctlBase*, UMockdevIoctlClient*);
  const handler answer = [](UMockdevIoctlBase*, UMockdevIoctlClient* client) -> gboolean {
    if (umockdev_ioctl_client_get_request(client) != USBDEVFS_CONTROL) return FALSE;
    UMockdevIoctlData* const argument = umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0,
                                                                    sizeof(usbdevfs_ctrltransfer), nullptr);
    const auto* const transfer = reinterpret_cast<const usbdevfs_ctrltransfer*>(argument->data);
    UMockdevIoctlData* const data = umockdev_ioctl_data_resolve(
        argument, offsetof(usbdevfs_ctrltransfer, data), transfer->wLength, nullptr);
    const int errors[] = {0, EPIPE, ETIMEDOUT, EINVAL, ENODEV, EIO};
    const int error = errors[transfer->wLength % 6];
    guint8 reply[] = {4, 3, 'x', 0};
    if (error == 0) umockdev_ioctl_data_update(data, 0, reply, sizeof reply);
    umockdev_ioctl_client_complete(client, error == 0 ? sizeof reply : -1, error);
    umockdev_ioctl_data_unref(data);
    umockdev_ioctl_data_unref(argument);
    return TRUE;
  };
  g_signal_connect(usbfs.get(), "handle-ioctl", G_CALLBACK(answer), nullptr);
  ASSERT_TRUE(umockdev_testbed_attach_ioctl(_bed.get(), "/dev/bus/usb/001/005", usbfs.get(), nullptr));
  plug("1-1", 5, "known\\n");
  open();
  changes();
  EXPECT_EQ(string_of_last(7), "known");
  EXPECT_EQ(string_of_last(9, 252), "x");
  const status expected[] = {status_ok,           status_stalled,   status_timeout,
                             status_bad_argument, status_no_device, status_error};
  for (std::uint16_t length = 240; length < 246; ++length)
    EXPECT_EQ(ask(9, length), expected[length % 6]) << length;
  unlink((_root + "/dev/bus/usb/001/005").c_str());
  EXPECT_EQ(ask(9, 255), status_no_device);
}

TEST_F(LinuxBus, FindsWhatWasLostWhenTheKernelsQueueOverflows) {
  for (const char* const path : {"usb1", "1-1", "1-1.1", "1-2"}) plug(path, 5, "M", "P", "old");
  open();
  changes();
  vanish("1-1.1");
  vanish("1-1");
  set_devnum("1-2", "006", "6\n");
  plug("1-3", 7);
  _failing_receive = ENOBUFS;
  EXPECT_EQ(changes(), (lines{"-0x1200000", "-0x1110000", "-0x1100000", "+0x1200000", "+0x1300000"}));
  announce("1-1", "remove");  // what the kernel says late
  announce("1-3", "add");
  EXPECT_EQ(changes(), lines{});
  EXPECT_EQ(_log, lines{"3 USB events were lost; the bus is compared with what was reported"});
}

TEST_F(LinuxBus, BelievesOnlyTheKernel) {
  open();
  const std::vector<void (*)(msghdr*)> forgeries = {
      [](msghdr* message) { static_cast<sockaddr_nl*>(message->msg_name)->nl_pid = 1; },
      [](msghdr* message) { reinterpret_cast<ucred*>(CMSG_DATA(CMSG_FIRSTHDR(message)))->uid = 1000; },
      [](msghdr* message) { message->msg_controllen = 0; },
      [](msghdr* message) { message->msg_flags |= MSG_TRUNC; },
  };
  int devnum = 2;
  for (const auto forgery : forgeries) {
    _tampering = forgery;
    plug("1-" + std::to_string(devnum), devnum);
    ++devnum;
    EXPECT_EQ(changes(), lines{});
  }
}

TEST_F(LinuxBus, ComparesTheBusEverySecondWhereTheKernelDoesNotSpeak) {
  plug("1-1", 5);
  const pid_t child = fork();  // an unprivileged namespace takes a process of one thread
  if (child == 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) _exit(77);
    _session = real_bus().open();
    bool good = _session != nullptr && changes() == lines{"+0x1100000"} && _log.size() == 1 &&
                _log[0].substr(0, 2) == "3 ";
    vanish("1-1");
    pollfd timer = {good ? _session->descriptors()[1] : -1, POLLIN, 0};
    good = good && changes().empty() && poll(&timer, 1, 20000) == 1 && changes() == lines{"-0x1100000"} &&
           poll(&timer, 1, 0) == 0;
    _exit(good ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no user namespaces here";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace yusb::port
