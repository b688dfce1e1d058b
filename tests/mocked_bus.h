// Fixtures for tests of the Linux bus.
#ifndef YUSB_TESTS_MOCKED_BUS_H_
#define YUSB_TESTS_MOCKED_BUS_H_

#include <umockdev.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "bus/bus.h"
#include "support.h"

// umockdev's worker thread is not instrumented.
extern "C" __attribute__((used)) inline const char* __tsan_default_suppressions() {
  return "race:libumockdev\ncalled_from_lib:libglib\n";
}

namespace yusb::port {

// umockdev's mocked sysfs and /dev. Every device is a child of /devices, because only the last component of a
// device's path matters.
struct MockedSysfs : testing::Test {
  void SetUp() override {
    ASSERT_TRUE(umockdev_in_mock_environment()) << "libumockdev-preload.so.0 is not loaded: run by ctest, "
                                                   "with umockdev of this architecture installed";
  }

  // Adds a device that is described in umockdev's format.
  void add(const std::string& description) {
    ASSERT_TRUE(umockdev_testbed_add_from_string(bed.get(), (description + "\n").c_str(), nullptr));
  }

  const std::unique_ptr<UMockdevTestbed, void (*)(gpointer)> bed{umockdev_testbed_new(), g_object_unref};
  const std::string root =
      std::unique_ptr<char, void (*)(gpointer)>(umockdev_testbed_get_root_dir(bed.get()), g_free).get();
};

// The Linux bus in it.
struct MockedBus : MockedSysfs {
  static constexpr const char* files[] = {"manufacturer", "product", "serial", "devnum", "descriptors"};

  // Attaches and announces a device 05ac:1393 with the strings that sysfs has.
  void plug(const std::string& path, int devnum, const strings& texts = {}) {
    const YString text = YString::format(
        "P: /devices/%s\nN: bus/usb/001/%03d\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNUM=%03d\n"
        "E: PRODUCT=5ac/1393/100\nH: descriptors=1201000200000040AC059313000107080901\nA: devnum=%d\\n",
        path.c_str(), devnum, devnum, devnum);
    add(text.data());
    for (std::size_t i = 0; i < texts.size(); ++i) set(path, files[i], texts[i].c_str());
  }
  void plug(const strings& paths) {
    for (const auto& path : paths) plug(path, 5);
  }

  void set(const std::string& path, const char* file, const char* content) {
    umockdev_testbed_set_attribute(bed.get(), ("/sys/devices/" + path).c_str(), file, content);
  }

  // Removes what the kernel has removed from sysfs when it announces a removal.
  void vanish(const std::string& path) {
    for (const char* const file : files) unlink((root + "/sys/devices/" + path + "/" + file).c_str());
    unlink((root + "/sys/bus/usb/devices/" + path).c_str());
  }

  void announce(const std::string& path, const char* action) {
    umockdev_testbed_uevent(bed.get(), ("/sys/devices/" + path).c_str(), action);
  }

  // The device that is announced from now on, and the one that has replaced it.
  void replace(const std::string& path, const char* announced, const char* found) {
    umockdev_testbed_set_property(bed.get(), ("/sys/devices/" + path).c_str(), "DEVNUM", announced);
    set(path, "devnum", found);
  }

  // Returns the pending changes of the session: "+0x1000000 -0x1100000 ", an arrival and a removal.
  std::string changes() {
    if (opened == nullptr) opened = real_bus().open();
    std::string text;
    while (const auto next = opened->next()) {
      reported = next->device;
      text += YString::format("%c0x%X ", next->arrived ? '+' : '-', *reported->registry_location()).data();
    }
    return text;
  }

  // The device that changes() reported last.
  device& latest() {
    if (reported == nullptr) throw std::logic_error("the session reported no device");
    return *reported;
  }

  // Counts open files of the mocked sysfs, and timers. Not sockets: umockdev closes its own at any time.
  strings descriptors_left() const {
    strings left;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code closed;
      const std::string target = std::filesystem::read_symlink(entry, closed).string();
      if (target.find(root) == 0 || target.find("timerfd") != std::string::npos) left.push_back(target);
    }
    return left;
  }

  log_capture log;
  std::unique_ptr<session> opened;
  std::shared_ptr<device> reported;
};

}  // namespace yusb::port

#endif  // YUSB_TESTS_MOCKED_BUS_H_
