// The Linux bus: paths and uevents by themselves, then what a session tells of a bus that umockdev pretends.
#include <dlfcn.h>
#include <linux/netlink.h>
#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <umockdev.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>

#include <yusb_location.h>

#include "bus/bus.h"
#include "linux/uevent.h"
#include "support.h"

namespace {

// What the test's own calls come to: umockdev's worker makes some as well.
thread_local bool _lost = false;                   // the next recvmsg tells of an overflow
thread_local std::function<void(msghdr*)> _forge;  // changes what a recvmsg received
thread_local std::function<int(usbdevfs_ctrltransfer*)> _control;

}  // namespace

// umockdev's worker thread is not instrumented.
extern "C" const char* __tsan_default_suppressions() { return "race:libumockdev\ncalled_from_lib:libglib\n"; }

extern "C" ssize_t recvmsg(int socket, msghdr* message, int flags) {
  if (std::exchange(_lost, false)) return errno = ENOBUFS, -1;
  const auto next = reinterpret_cast<decltype(&recvmsg)>(dlsym(RTLD_NEXT, "recvmsg"));
  const ssize_t size = next(socket, message, flags);
  if (size > 0 && _forge) _forge(message);
  return size;
}

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (request == USBDEVFS_CONTROL) return _control(static_cast<usbdevfs_ctrltransfer*>(argument));
  return reinterpret_cast<decltype(&ioctl)>(dlsym(RTLD_NEXT, "ioctl"))(descriptor, request, argument);
}

namespace yusb::port {
namespace {

TEST(Location, IsTheBusAndADigitAPort) {
  const std::map<const char*, std::uint32_t> exact = {{"usb1", 0x01000000},          {"1-2.3", 0x01230000},
                                                      {"255-15", 0xFFF00000},        {"20-1.10", 0x141A0000},
                                                      {"1-2.3.4.5.6.7", 0x01234567}, {"usb255", 0xFF000000}};
  for (const auto& [path, location] : exact) EXPECT_EQ(location_of_path(path), location) << path;
  for (const char* const path :
       {"", "usb", "usb0", "usb1-1", "1", "1-", "1-0", "1-02", "0-1", "1-2:1.0", "1-2.", "1-.2", "-1-2",
        "1-2 ", "1_2", "1-2-3", "4294967297-1", "1-99999999999", "0x1-2"})
    EXPECT_EQ(location_of_path(path), std::nullopt) << path;
  for (const char* const path : {"1-16", "1-2.31", "1-1.1.1.1.1.1.1", "256-1", "usb256", "usb4096"}) {
    const std::uint32_t location = location_of_path(path).value();  // not like one that fits
    EXPECT_EQ(location & 0xFFF00000, bus_of_path(path) == 1 ? 0x01000000u : 0u) << path;
    EXPECT_NE(location & 0x000FFFFF, 0u) << path;
  }
  EXPECT_EQ(next_location(0x010FFFFF), 0x01000001u) << "not that of the root hub";
}

TEST(Location, TreeOrderPutsAHubBeforeWhatIsBehindIt) {
  const strings ordered = {"usb1", "1-2",  "1-2.3", "1-2.3.1", "1-2.10",
                           "1-10", "usb2", "2-1",   "usb10",   "10-1"};
  strings sorted(ordered.rbegin(), ordered.rend());
  std::sort(sorted.begin(), sorted.end(), port_path_before);
  EXPECT_EQ(sorted, ordered);
  EXPECT_TRUE(port_path_within("1-2.10", "1-2") && port_path_within("1-2", "usb1") &&
              port_path_within("1-2", "1-2"));
  EXPECT_FALSE(port_path_within("1-20", "1-2") || port_path_within("1-2", "1-2.1") ||
               port_path_within("10-1", "usb1"));
}

// What is made of the kernel's announcement of a device, with other fields behind: the last of a kind counts.
std::optional<uevent> parsed(const strings& more) {
  constexpr char start[] =
      "add@/1-2\0ACTION=add\0DEVPATH=/usb1/1-2\0SUBSYSTEM=usb\0DEVTYPE=usb_device\0DEVNUM=012";
  std::string datagram(start, sizeof start - 1);
  for (const std::string& field : more) datagram += '\0' + field;
  return parse_uevent(datagram);
}

TEST(Uevent, TellsOfADeviceThatComesOrGoes) {
  EXPECT_TRUE(parsed({"", "=", "ACTION=add"}).value().added);
  const uevent event = parsed({"PRODUCT=5ac/1393/100", "ACTION=remove"}).value();
  const auto [vendor, product, release] = event.numbers;
  EXPECT_EQ(std::tie(event.added, event.path, event.devnum, vendor, product, release),
            std::tuple(false, "1-2", 12u, 0x05AC, 0x1393, 0x0100));
  for (const char* const field :
       {"ACTION=", "ACTION=bind", "DEVTYPE=", "DEVTYPE=usb_interface", "SUBSYSTEM=", "SUBSYSTEM=usbmon",
        "DEVNUM=", "DEVNUM=0", "DEVNUM=-1", "DEVNUM=99999999999", "DEVNUM=2x", "DEVPATH=/1-2/1-2:1.0",
        "DEVPATH=/", "DEVPATH="})
    EXPECT_FALSE(parsed({field}).has_value()) << field;
  for (const std::string product : {"5ac/1", "5ac/1/2/3", "10000/1/1", "//", ""})
    EXPECT_EQ(parsed({"PRODUCT=" + product}).value().numbers.vendor, 0) << product;
  for (const char* const cut : {"", "add@/1-2", "ACTION=add"}) EXPECT_FALSE(parse_uevent(cut).has_value());
}

// All devices of the pretended bus are children of /devices: only the last part of a device's path counts.
struct LinuxBus : testing::Test {
  static constexpr const char* files[] = {"manufacturer", "product", "serial", "devnum", "descriptors"};

  void SetUp() override {
    ASSERT_TRUE(umockdev_in_mock_environment()) << "libumockdev-preload.so.0 is not loaded: run by ctest, "
                                                   "with umockdev of this architecture installed";
  }

  // Attaches a device 05ac:1393, which the kernel announces. Its texts are what sysfs holds.
  void plug(const std::string& path, int devnum, const strings& texts = {}) {
    const YString text = YString::format(
        "P: /devices/%s\nN: bus/usb/001/%03d\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNUM=%03d\n"
        "E: PRODUCT=5ac/1393/100\nH: descriptors=1201000200000040AC059313000107080901\nA: devnum=%d\\n\n",
        path.c_str(), devnum, devnum, devnum);
    ASSERT_TRUE(umockdev_testbed_add_from_string(bed.get(), text.data(), nullptr));
    for (std::size_t i = 0; i < texts.size(); ++i) set(path, files[i], texts[i].c_str());
  }
  void plug(const strings& paths) {
    for (const auto& path : paths) plug(path, 5);
  }

  void set(const std::string& path, const char* file, const char* content) {
    umockdev_testbed_set_attribute(bed.get(), ("/sys/devices/" + path).c_str(), file, content);
  }

  // What the kernel has taken out of sysfs when it announces a removal.
  void vanish(const std::string& path) {
    for (const char* const file : files) unlink((root + "/sys/devices/" + path + "/" + file).c_str());
    unlink((root + "/sys/bus/usb/devices/" + path).c_str());
  }

  void announce(const std::string& path, const char* action) {
    umockdev_testbed_uevent(bed.get(), ("/sys/devices/" + path).c_str(), action);
  }

  // The device that is announced from now on, and the one that has taken its place.
  void replace(const std::string& path, const char* announced, const char* found) {
    umockdev_testbed_set_property(bed.get(), ("/sys/devices/" + path).c_str(), "DEVNUM", announced);
    set(path, "devnum", found);
  }

  // What the session has to say: "+0x1000000 -0x1100000 ", an arrival and a removal.
  std::string changes() {
    if (opened == nullptr) opened = real_bus().open();
    std::string told;
    while (const auto next = opened->next()) {
      told_of = next->device;
      told += YString::format("%c0x%X ", next->arrived ? '+' : '-', *told_of->registry_location()).data();
    }
    return told;
  }

  // The device that changes() told of last.
  device& latest() {
    if (told_of == nullptr) throw std::logic_error("the session reported no device");
    return *told_of;
  }

  // Of that device; -1 if it does not say.
  std::int64_t value(device_field field) {
    std::uint32_t found = 0;
    return latest().read(field, &found) == status_ok ? std::int64_t{found} : -1;
  }

  // Asks the same one for a string.
  port::status ask(int index, std::uint16_t length = 255) {
    reply.assign(255, '\xEE');
    const auto wanted = static_cast<std::uint16_t>(0x300 | index);
    control_request request = {0x80, 6, wanted, 0x0409, length, reply.data(), 0};
    const port::status status = latest().control(request);
    reply.resize(request.transferred);
    return status;
  }

  kept_log log;
  const std::unique_ptr<UMockdevTestbed, void (*)(gpointer)> bed{umockdev_testbed_new(), g_object_unref};
  const std::string root =
      std::unique_ptr<char, void (*)(gpointer)>(umockdev_testbed_get_root_dir(bed.get()), g_free).get();
  // What is open in the mocked sysfs, and every timer. Not the sockets: umockdev closes its own at any time.
  strings descriptors_left() const {
    strings left;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code closed;
      const std::string target = std::filesystem::read_symlink(entry, closed).string();
      if (target.find(root) == 0 || target.find("timerfd") != std::string::npos) left.push_back(target);
    }
    return left;
  }

  std::unique_ptr<session> opened;
  std::shared_ptr<device> told_of;
  std::string reply;
};

TEST_F(LinuxBus, TellsEachDeviceOnceParentsFirstWhateverTheOrderOfTheDirectory) {
  plug({"1-10", "1-2.3", "usb1", "1-2", "1-2:1.0"});
  EXPECT_EQ(changes(), "+0x1000000 +0x1200000 +0x1230000 +0x1A00000 ");
  for (const char* const action : {"add", "change", "bind", "unbind"}) announce("1-2", action);
  EXPECT_EQ(changes(), "");
  plug("1-3", 9);
  EXPECT_EQ(changes(), "+0x1300000 ");
  opened.reset();
  EXPECT_EQ(descriptors_left(), strings());
}

TEST_F(LinuxBus, AnswersFromTheKernelsCacheStringsByteForByte) {
  std::string full;
  for (int i = 0; i < 127; ++i) full += "中";
  plug("1-1", 5, {" \xC3\xA9\xF0\x9F\x98\x80\nx\n", "no newline\xFF", full + "\n"});
  changes();
  for (const auto& [field, expected] : {std::pair(device_field::vendor, 0x05AC),
                                        {device_field::product, 0x1393},
                                        {device_field::release, 0x0100},
                                        {device_field::product_index, 8}})
    EXPECT_EQ(value(field), expected);
  EXPECT_EQ(ask(7), status_ok);
  EXPECT_EQ(reply, std::string("\x0E\x03 \0\xE9\0\x3D\xD8\0\xDE\n\0x\0", 14));
  EXPECT_EQ(ask(8, 5), status_ok);
  EXPECT_EQ(reply, std::string("\x18\x03n\0o", 5));
  EXPECT_EQ(ask(9), status_ok);
  EXPECT_EQ(reply.size(), 254u);
  plug("1-2", 6, {std::string(125, 'x') + "\U0001F600\n"});
  changes();
  EXPECT_EQ(ask(7), status_ok);
  EXPECT_EQ(reply.size(), 252u) << "half a pair of surrogates is no character";
}

TEST_F(LinuxBus, AsksTheDeviceItselfForWhatTheCacheLacks) {
  plug("1-1", 5, {"known\n"});
  changes();
  unsigned limit = 0;
  _control = [&](usbdevfs_ctrltransfer* transfer) {
    limit = transfer->timeout;
    EXPECT_EQ(transfer->wValue, 0x0309);
    std::memcpy(transfer->data, "\4\3x", 4);
    return 4;
  };
  EXPECT_EQ(ask(7), status_ok);
  EXPECT_EQ(limit, 0u) << "not for what it has";
  EXPECT_EQ(ask(9), status_ok);
  EXPECT_EQ(reply, std::string("\4\3x", 4));
  EXPECT_EQ(limit, 500u);
  for (const auto& [error, status] : {std::pair(EPIPE, status_stalled),
                                      {EINTR, status_timeout},
                                      {ENODEV, status_no_device},
                                      {EIO, status_error}}) {
    _control = [error = error](auto*) { return errno = error, -1; };
    EXPECT_EQ(ask(9), status) << std::strerror(error);
  }
}

TEST_F(LinuxBus, KeepsTheLocationOfADeviceThatIsGoneAlsoWhereTwoWouldShareOne) {
  ASSERT_EQ(location_of_path("1-22"), location_of_path("1-174.7"));
  plug({"1-22"});
  EXPECT_EQ(changes(), "+0x105E184 ");
  plug({"1-174.7"});
  EXPECT_EQ(changes(), "+0x105E185 ");
  for (const char* const path : {"1-22", "1-174.7", "1-22"}) {
    vanish(path);
    announce(path, "remove");
  }
  EXPECT_EQ(changes(), "-0x105E184 -0x105E185 ");
}

TEST_F(LinuxBus, ReplacesADeviceAndEverythingBehindItChildrenFirst) {
  plug({"1-1", "1-1.1", "1-1.2", "1-1.3", "1-1.4", "1-1.4.1", "1-1.4.2", "1-1.5", "1-2"});
  changes();
  replace("1-1", "006", "6\n");
  announce("1-1", "add");
  EXPECT_EQ(changes(),
            "-0x1150000 -0x1142000 -0x1141000 -0x1140000 -0x1130000 -0x1120000 -0x1110000 -0x1100000 "
            "+0x1100000 ");
  replace("1-1", "005", "6\n");
  for (const char* const late : {"add", "remove"}) announce("1-1", late);
  EXPECT_EQ(changes(), "") << "older than what is there";
}

TEST_F(LinuxBus, GivesADeviceThatWasGoneBeforeItWasReadItsNumbersAndNoOthersTexts) {
  changes();
  for (const char* const path : {"1-1", "1-2"}) {
    plug(path, 5, {"M", "P", "S"});
    path[2] == '1' ? vanish(path) : replace(path, "005", "6\n");
    EXPECT_EQ(changes().substr(0, 1), "+");
    EXPECT_EQ(value(device_field::release), 0x0100);
    EXPECT_EQ(value(device_field::serial_number_index), 0);
    announce(path, "remove");
    EXPECT_EQ(changes().substr(0, 1), "-");
    EXPECT_EQ(value(device_field::release), -1);
  }
}

TEST_F(LinuxBus, FindsWhatWasLostWhenTheKernelsQueueOverflows) {
  plug({"usb1", "1-1", "1-1.1", "1-2"});
  changes();
  vanish("1-1.1");
  vanish("1-1");
  replace("1-2", "006", "6\n");
  plug("1-3", 7);
  _lost = true;
  EXPECT_EQ(changes(), "-0x1200000 -0x1110000 -0x1100000 +0x1200000 +0x1300000 ");
  announce("1-1", "remove");  // what the kernel says late
  announce("1-3", "add");
  EXPECT_EQ(changes(), "");
  EXPECT_EQ(log.take(), strings{"3 USB events were lost; the bus is rescanned"});
}

TEST_F(LinuxBus, TellsADeviceFromASuccessorWithTheSameAddress) {
  plug({"1-1"});
  changes();
  const std::string directory = root + "/sys/devices/1-1";
  std::filesystem::rename(directory, directory + ".gone");
  std::filesystem::copy(directory + ".gone", directory);
  _lost = true;
  EXPECT_EQ(changes(), "-0x1100000 +0x1100000 ");
}

TEST(SimulatedBus, HasNotSettledWhileAChangeWaits) {
  simulator bus;
  const auto session = current_bus().open();
  bus.plug({});
  session->idle();
  EXPECT_FALSE(bus.settle(std::chrono::milliseconds(0)));
  EXPECT_TRUE(session->next().has_value());
  session->idle();
  EXPECT_TRUE(bus.settle(std::chrono::milliseconds(0)));
}

TEST_F(LinuxBus, BelievesOnlyTheKernel) {
  changes();
  const std::function<void(msghdr*)> forgeries[] = {
      [](msghdr* message) { static_cast<sockaddr_nl*>(message->msg_name)->nl_pid = 1; },
      [](msghdr* message) { reinterpret_cast<ucred*>(CMSG_DATA(CMSG_FIRSTHDR(message)))->uid = 1000; },
      [](msghdr* message) { message->msg_controllen = 0; },
      [](msghdr* message) { message->msg_flags |= MSG_TRUNC; }};
  for (int i = 0; i < 5; ++i) {
    _forge = i < 4 ? forgeries[i] : nullptr;
    plug({"1-" + std::to_string(i + 1)});
    EXPECT_EQ(changes(), i < 4 ? "" : "+0x1500000 ") << i;
  }
}

TEST_F(LinuxBus, ComparesTheBusEverySecondWhereTheKernelDoesNotSpeak) {
  plug({"1-1"});
  const pid_t child = fork();  // only a process of one thread can enter a user namespace
  if (child == 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) _exit(77);
    bool good = changes() == "+0x1100000 " && log.take('3').size() == 1;
    vanish("1-1");
    pollfd timer = {opened->poll_fds()[1], POLLIN, 0};
    good = good && changes().empty() && poll(&timer, 1, 20000) == 1 && changes() == "-0x1100000 " &&
           poll(&timer, 1, 0) == 0 && poll(&timer, 1, 20000) == 1;
    _exit(good ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no user namespaces here";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace yusb::port
