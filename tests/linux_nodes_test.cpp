// Waiting for device nodes of the Linux bus, with umockdev's mocked sysfs and /dev.
#include "linux/nodes.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "mocked_bus.h"
#include "own_network.h"

// umockdev does not intercept this function, and root may open everything, so it tests the permissions of
// others.
extern "C" int faccessat(int directory, const char* path, int mode, int flags) noexcept {
  if (std::strncmp(path, "/dev/bus/usb/", 13) != 0) {
    return reinterpret_cast<decltype(&faccessat)>(dlsym(RTLD_NEXT, "faccessat"))(directory, path, mode,
                                                                                 flags);
  }
  EXPECT_EQ(std::tuple(mode, flags), std::tuple(R_OK | W_OK, AT_EACCESS));
  struct stat found;
  if (stat(path, &found) != 0) return -1;
  return (found.st_mode & 06) == 06 ? 0 : (errno = EACCES, -1);
}

namespace yusb::port {
namespace {

namespace fs = std::filesystem;

struct LinuxNodes : MockedSysfs {
  LinuxNodes() { fs::create_directory(root + "/dev"); }

  record_key plug(const std::string& path) {
    add("P: /devices/" + path +
        "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNUM=007\n"
        "H: descriptors=1201000200000040AC059313000100000001\nA: devnum=7\\n");
    return record_key(make_record(0x05AC, 0x1393, path == "1-1" ? "0x1100000" : "0x2100000"));
  }

  void make_node(const std::string& bus, fs::perms permissions) {
    const fs::path folder = root + "/dev/bus/usb/" + bus;
    fs::create_directories(folder);
    std::ofstream(folder / "007.new");
    fs::permissions(folder / "007.new", permissions);
    fs::rename(folder / "007.new", folder / "007");
  }

  // Returns the next answer that is due: "1 openable", "2 gone"; "" if there is none.
  std::string now() {
    const auto answer = nodes.next();
    if (!answer.has_value()) return "";
    return std::to_string(answer->id) + (answer->result == openability::openable ? " openable" : " gone");
  }

  // Waits until the kernel reports a change.
  std::string later() {
    const auto [first, second] = nodes.poll_fds();
    for (std::string answer;;) {
      pollfd waited[] = {{first, POLLIN, 0}, {second, POLLIN, 0}};
      if (poll(waited, 2, 30000) <= 0) return "nothing";
      if (!(answer = now()).empty()) return answer;
    }
  }

  static constexpr auto closed = fs::perms::owner_read | fs::perms::owner_write;
  static constexpr auto open = closed | fs::perms::others_read | fs::perms::others_write;
  linux_nodes nodes;
};

TEST_F(LinuxNodes, AreReportedWhenTheirPermissionsChange) {
  make_node("001", closed);
  make_node("002", open);
  nodes.add(1, plug("1-1"));
  EXPECT_EQ(now(), "");
  nodes.add(2, plug("2-1"));
  EXPECT_EQ(now(), "2 openable");
  EXPECT_EQ(nodes.check(1), openability::timed_out);
  fs::permissions(root + "/dev/bus/usb/001/007", open);
  EXPECT_EQ(later(), "1 openable");
  EXPECT_EQ(nodes.poll_fds(), (std::array{-1, -1})) << "nothing is waited for";
  EXPECT_EQ(nodes.check(1), openability::gone);
}

TEST_F(LinuxNodes, AreReportedWhenTheyAppearInAFolderThatDidNotExist) {
  nodes.add(1, plug("1-1"));
  EXPECT_EQ(now(), "");
  make_node("001", open);
  EXPECT_EQ(later(), "1 openable");
}

TEST_F(LinuxNodes, OfDevicesThatLeaveAreReportedWithAndWithoutANode) {
  nodes.add(1, plug("1-1"));
  EXPECT_EQ(now(), "");
  umockdev_testbed_uevent(bed.get(), "/sys/devices/1-1", "change");
  umockdev_testbed_set_property(bed.get(), "/sys/devices/1-1", "DEVNUM", "006");
  umockdev_testbed_uevent(bed.get(), "/sys/devices/1-1", "remove");
  EXPECT_EQ(now(), "") << "an earlier device at the port";
  umockdev_testbed_set_property(bed.get(), "/sys/devices/1-1", "DEVNUM", "007");
  umockdev_testbed_uevent(bed.get(), "/sys/devices/1-1", "remove");
  EXPECT_EQ(later(), "1 gone");

  make_node("002", closed);
  nodes.add(2, plug("2-1"));
  EXPECT_EQ(now(), "");
  unlink((root + "/sys/devices/2-1/devnum").c_str());
  unlink((root + "/dev/bus/usb/002/007").c_str());
  EXPECT_EQ(later(), "2 gone");
}

TEST_F(LinuxNodes, AreCheckedEverySecondWithoutUevents) {
  const record_key record = plug("1-1");
  const int status = status_in_own_network([&] {
    nodes.add(1, record);
    if (!now().empty() || !nodes.due().has_value()) return 1;
    const auto due = *nodes.due();
    unlink((root + "/sys/devices/1-1/devnum").c_str());
    std::string answer = now();
    if (!answer.empty() && std::chrono::steady_clock::now() < due) return 2;
    std::this_thread::sleep_until(due);
    if (answer.empty()) answer = now();
    return answer == "1 gone" && !nodes.due().has_value() ? 0 : 3;
  });
  if (status == no_user_namespaces) GTEST_SKIP() << "no user namespaces here";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace yusb::port
