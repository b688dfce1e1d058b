// The changes that a session of the Linux bus reports.
#include <dlfcn.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include <yusb_location.h>

#include "mocked_bus.h"
#include "own_network.h"

namespace {

// Per thread, because umockdev's worker thread makes the same calls.
thread_local bool _lost = false;                   // the next recvmsg reports an overflow
thread_local std::function<void(msghdr*)> _forge;  // changes what a recvmsg received

}  // namespace

extern "C" ssize_t recvmsg(int socket, msghdr* message, int flags) {
  if (std::exchange(_lost, false)) return errno = ENOBUFS, -1;
  const auto next = reinterpret_cast<decltype(&recvmsg)>(dlsym(RTLD_NEXT, "recvmsg"));
  const ssize_t size = next(socket, message, flags);
  if (size > 0 && _forge) _forge(message);
  return size;
}

namespace yusb::port {
namespace {

struct LinuxBus : MockedBus {};

TEST_F(LinuxBus, ReportsEachDeviceOnceParentsFirst) {
  plug({"1-10", "1-2.3", "usb1", "1-2", "1-2:1.0"});
  EXPECT_EQ(changes(), "+0x1000000 +0x1200000 +0x1230000 +0x1A00000 ");
  for (const char* const action : {"add", "change", "bind", "unbind"}) announce("1-2", action);
  EXPECT_EQ(changes(), "");
  plug("1-3", 9);
  EXPECT_EQ(changes(), "+0x1300000 ");
  opened.reset();
  EXPECT_EQ(descriptors_left(), strings());
}

TEST_F(LinuxBus, KeepsTheLocationOfADeviceThatIsGone) {
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

TEST_F(LinuxBus, RemovesWhatIsBehindAReplacedDeviceChildrenFirst) {
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

TEST_F(LinuxBus, FindsWhatWasLostWhenTheKernelsQueueOverflows) {
  plug({"usb1", "1-1", "1-1.1", "1-2"});
  changes();
  vanish("1-1.1");
  vanish("1-1");
  replace("1-2", "006", "6\n");
  plug("1-3", 7);
  _lost = true;
  EXPECT_EQ(changes(), "-0x1200000 -0x1110000 -0x1100000 +0x1200000 +0x1300000 ");
  announce("1-1", "remove");  // a late uevent
  announce("1-3", "add");
  EXPECT_EQ(changes(), "");
  EXPECT_EQ(log.take(), strings{"3 USB events were lost; the bus is rescanned"});
}

TEST_F(LinuxBus, DistinguishesASuccessorWithTheSameAddress) {
  plug({"1-1"});
  changes();
  const std::string directory = root + "/sys/devices/1-1";
  std::filesystem::rename(directory, directory + ".gone");
  std::filesystem::copy(directory + ".gone", directory);
  _lost = true;
  EXPECT_EQ(changes(), "-0x1100000 +0x1100000 ");
}

TEST_F(LinuxBus, BelievesOnlyTheKernel) {
  changes();
  const std::pair<const char*, std::function<void(msghdr*)>> forgeries[] = {
      {"1-1", [](msghdr* message) { static_cast<sockaddr_nl*>(message->msg_name)->nl_pid = 1; }},
      {"1-2",
       [](msghdr* message) { reinterpret_cast<ucred*>(CMSG_DATA(CMSG_FIRSTHDR(message)))->uid = 1000; }},
      {"1-3", [](msghdr* message) { message->msg_controllen = 0; }},
      {"1-4", [](msghdr* message) { message->msg_flags |= MSG_TRUNC; }}};
  for (const auto& [path, forge] : forgeries) {
    _forge = forge;
    plug(strings{path});
    EXPECT_EQ(changes(), "") << path;
  }
  _forge = nullptr;
  plug({"1-5"});
  EXPECT_EQ(changes(), "+0x1500000 ");
}

TEST_F(LinuxBus, RescansEverySecondWithoutUevents) {
  plug({"1-1"});
  const int status = status_in_own_network([this] {
    if (changes() != "+0x1100000 " || log.take('3').size() != 1) return 1;
    vanish("1-1");
    pollfd timer = {opened->poll_fds()[1], POLLIN, 0};
    if (!changes().empty() || poll(&timer, 1, 20000) != 1) return 2;
    if (changes() != "-0x1100000 " || poll(&timer, 1, 0) != 0) return 3;
    return poll(&timer, 1, 20000) == 1 ? 0 : 4;
  });
  if (status == no_user_namespaces) GTEST_SKIP() << "no user namespaces here";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace yusb::port
