// Waits until device nodes of the Linux bus can be opened.
#ifndef YORVAN_PORT_LINUX_NODES_H_
#define YORVAN_PORT_LINUX_NODES_H_

#include <map>
#include <string>
#include <vector>

#include "bus/nodes.h"
#include "linux/sysfs.h"
#include "linux/uevent_socket.h"

namespace yusb::port {

// Tests mode and ACL; does not access the device. Keeps no descriptor open while it waits for no device.
class linux_nodes final : public node_watch {
 public:
  void add(unsigned id, const record_key& record) override;
  void remove(unsigned id) override;
  std::array<int, 2> poll_fds() const override { return {_inotify.get(), _uevents.fd()}; }
  std::optional<clock::time_point> due() const override;
  std::optional<answer> next() override;
  openability check(unsigned id) override;

 private:
  struct entry {
    unsigned id;
    record_key record;
    std::string path = {};  // empty until the device is looked up
    device_identity identity = {};
    std::uint32_t bus = 0;
    std::string node = {};
    bool due = true;    // must be checked
    bool gone = false;  // the kernel has reported its removal
  };

  void open();
  void close_if_idle();
  bool look_up(entry& found, std::error_code& exhausted);
  openability check(entry& waited);
  void watch_folders(std::uint32_t bus);
  bool watch(const char* folder, std::uint32_t mask, std::uint32_t bus);
  void receive_inotify();
  void receive_uevents();
  void mark_all();

  std::vector<entry> _entries;
  unique_fd _inotify;
  std::map<int, std::uint32_t> _folders;  // by watch descriptor: the bus number, or 0 for a parent folder
  uevent_socket _uevents;
  bool _blind = false;  // changes may be missed: all devices are checked once a second
  clock::time_point _next_look;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_LINUX_NODES_H_
