// Fuzzes the Linux bus with datagrams and sysfs files of devices. Its arrivals and removals must be
// consistent, and in the end it must have reported the attached devices.
//
// The bus's system calls are replaced (linker option --wrap): its sysfs folder is in /dev/shm, its socket
// returns datagrams from the input, and it can access nothing else.
#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <utility>

#include <YorvanCore/YLog.h>
#include <dirent.h>
#include <yusb_location.h>

#include "bus/bus.h"
#include "linux/sysfs.h"
#include "linux/uevent.h"
#include "require.h"

using namespace yusb;
using namespace yusb::port;

namespace {

// Some have hashed locations.
constexpr const char* kPaths[] = {"usb1",   "1-1",    "1-1.1",           "1-1.1.4", "1-1.2", "1-2",
                                  "1-16",   "1-16.1", "1-1.1.1.1.1.1.1", "usb2",    "2-1",   "2-10",
                                  "usb256", "256-1"};

class input {
 public:
  input(const std::uint8_t* data, std::size_t size) : _data(data), _size(size) {}
  bool at_end() const { return _size == 0; }
  unsigned number() {
    if (at_end()) return 0;
    --_size;
    return *_data++;
  }
  std::string text() {
    std::string taken;
    for (unsigned left = number(); left != 0 && !at_end(); --left) taken += static_cast<char>(number());
    return taken;
  }

 private:
  const std::uint8_t* _data;
  std::size_t _size;
};

struct datagram {
  std::string bytes;
  std::uint32_t port;  // the sender's netlink port; the kernel's is 0
  std::uint32_t user;
};

using address_map = std::map<std::string, unsigned, decltype(&port_path_before)>;  // in tree order

std::string hub_of(const std::string& path) {
  const std::size_t end = path.rfind('.');
  return end == std::string::npos ? "usb" + std::to_string(bus_of_path(path)) : path.substr(0, end);
}

// The devices of the kernel, and its datagrams.
struct kernel {
  std::string folder = [] {
    char name[] = "/dev/shm/yusb-fuzz-XXXXXX";
    require(mkdtemp(name) != nullptr, "has a folder");
    return std::string(name);
  }();
  address_map devices{port_path_before};
  std::deque<datagram> queue;
  bool loss_is_news = false;
  bool is_full = false;  // datagrams are lost until the socket has been drained
  bool has_lied = false;

  ~kernel() { std::filesystem::remove_all(folder); }

  void say(const std::string& path, bool added, const std::string& product) {
    const std::string action = added ? "add" : "remove";
    const std::string text = action + "@/devices/" + path + '\0' + "ACTION=" + action + '\0' +
                             "DEVPATH=/devices/" + path + '\0' + "SUBSYSTEM=usb" + '\0' +
                             "DEVTYPE=usb_device" + '\0' + "PRODUCT=" + product.c_str() + '\0' +
                             "DEVNUM=" + std::to_string(devices[path]) + '\0';
    if (!is_full) queue.push_back({text, 0, 0});
  }

  void lose() {
    loss_is_news = loss_is_news || !is_full;
    is_full = true;
  }

  void attach(const std::string& path, input& from) {
    detach(path);
    const std::string hub = hub_of(path);
    if (hub != path && devices.count(hub) == 0) attach(hub, from);
    devices[path] = 1 + from.number() % 4;
    const std::string own = folder + "/" + path + "/";
    std::filesystem::create_directory(own);
    std::ofstream(own + "devnum") << devices[path] << '\n';
    const unsigned present = from.number();
    const char* const files[] = {"descriptors",  "idVendor", "idProduct", "bcdDevice",
                                 "manufacturer", "product",  "serial"};
    for (unsigned i = 0; i < std::size(files); ++i) {
      if ((present >> i & 1) != 0) std::ofstream(own + files[i]) << from.text();
    }
    say(path, true, from.text());
  }

  void detach(const std::string path) {  // a copy: the path may be that of a removed device
    while (true) {
      const auto last = std::find_if(devices.rbegin(), devices.rend(),
                                     [&](auto& device) { return port_path_within(device.first, path); });
      if (last == devices.rend()) return;
      const std::string leaving = last->first;
      std::filesystem::remove_all(folder + "/" + leaving);
      say(leaving, false, "1/2/3");
      devices.erase(leaving);
    }
  }

  void clear() {
    while (!devices.empty()) detach(devices.begin()->first);  // with all devices behind it
    queue.clear();
    loss_is_news = is_full = has_lied = false;
  }
};

kernel& the_kernel() {
  static kernel only;
  return only;
}

// Redirects the files of devices to the folder of the simulated kernel. Device nodes and network namespaces
// do not exist. Other files are the fuzzer's own.
std::string redirected(const char* name) {
  const std::string asked = name;
  const auto is_in = [&](const std::string& folder) { return asked.compare(0, folder.size(), folder) == 0; };
  const std::string devices = usb_devices_directory;
  if (is_in(devices)) return the_kernel().folder + asked.substr(devices.size());
  return is_in("/dev/bus/usb/") || is_in("/proc/thread-self/") ? "/nonexistent" : asked;
}

}  // namespace

extern "C" {
int __real_open(const char* name, int flags, mode_t mode);
DIR* __real_opendir(const char* name);

int __wrap_open(const char* name, int flags, mode_t mode) {
  return __real_open(redirected(name).c_str(), flags, mode);
}
DIR* __wrap_opendir(const char* name) { return __real_opendir(redirected(name).c_str()); }

ssize_t __wrap_recvmsg(int /*socket*/, msghdr* message, int /*flags*/) {
  struct kernel& kernel = the_kernel();
  auto& queue = kernel.queue;
  if (kernel.loss_is_news || queue.empty()) {
    errno = std::exchange(kernel.loss_is_news, false) ? ENOBUFS : EAGAIN;
    kernel.is_full = kernel.is_full && !queue.empty();
    return -1;
  }
  const datagram next = queue.front();
  queue.pop_front();
  sockaddr_nl sender = {};
  sender.nl_family = AF_NETLINK;
  sender.nl_pid = next.port;
  std::memcpy(message->msg_name, &sender, sizeof sender);
  message->msg_namelen = sizeof sender;
  const ucred credentials = {1, next.user, 0};
  cmsghdr* const item = CMSG_FIRSTHDR(message);
  item->cmsg_level = SOL_SOCKET;
  item->cmsg_type = SCM_CREDENTIALS;
  item->cmsg_len = CMSG_LEN(sizeof credentials);
  std::memcpy(CMSG_DATA(item), &credentials, sizeof credentials);
  const std::size_t size = std::min(next.bytes.size(), message->msg_iov->iov_len);
  std::memcpy(message->msg_iov->iov_base, next.bytes.data(), size);
  message->msg_flags = size < next.bytes.size() ? MSG_TRUNC : 0;
  return static_cast<ssize_t>(size);
}
}

namespace {

// The devices that the bus has reported.
class reader {
 public:
  void read(session& watched) {
    while (std::optional<change> next = watched.next()) {
      const std::uint32_t location = *next->device->registry_location();
      require(location != 0, "no location is 0");
      if (next->arrived) {
        require(attached.insert(location).second, "what arrives has a location of its own");
        ask(*next->device, location);
      } else {
        require(attached.erase(location) == 1, "what leaves was attached");
        require(!has_within(location), "children leave before their hub");
      }
    }
  }

  void require_all(const address_map& devices) {
    require(attached.size() == devices.size(), "the list equals the bus");
    for (const auto& [path, address] : devices)
      require(attached.count(*location_of_path(path)) == 1, "the list equals the bus");
  }

  std::set<std::uint32_t> attached;

 private:
  bool has_within(std::uint32_t hub) const {
    if ((hub & 0xF00000) == 0 && (hub & 0xFFFFFF) != 0) return false;  // a hash
    int shift = 0;
    while (shift < 24 && (hub >> shift & 15) == 0) shift += 4;
    return std::any_of(attached.begin(), attached.end(), [&](std::uint32_t each) {
      return each >> shift == hub >> shift && ((each & 0xF00000) != 0);
    });
  }

  static void ask(device& asked, std::uint32_t location) {
    std::uint32_t own = 0;
    require(asked.read(device_field::location, &own) == status_ok && own == location, "both locations agree");
    for (const device_field field :
         {device_field::manufacturer_index, device_field::product_index, device_field::serial_number_index}) {
      std::uint32_t index = 0;
      if (asked.read(field, &index) != status_ok || index == 0) continue;
      require(index <= 255, "an index is a byte");
      std::uint8_t bytes[255];
      control_request request = {0x80,  6, static_cast<std::uint16_t>(0x300 | index), 0x409, sizeof bytes,
                                 bytes, 0};
      if (asked.control(request) != status_ok) continue;
      require(request.transferred == bytes[0] && bytes[0] % 2 == 0 && bytes[0] >= 2 && bytes[1] == 3,
              "a reply is a string descriptor");
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  YLog::setSink([](auto, auto*, auto, auto*) {}, nullptr);
  kernel& world = the_kernel();
  input from(data, size);
  reader told;
  const std::unique_ptr<session> watched = real_bus().open();
  require(watched != nullptr, "can be watched");
  while (!from.at_end()) {
    const unsigned what = from.number();
    const std::string path = kPaths[what / 8 % std::size(kPaths)];
    switch (what % 8) {
      case 0:
      case 1:
        world.attach(path, from);
        break;
      case 2:
        world.detach(path);
        break;
      case 3:
        world.lose();
        break;
      case 4:  // any bytes; they may even be about a USB device
        world.queue.push_back({from.text(), 0, 0});
        world.has_lied = world.has_lied || parse_uevent(world.queue.back().bytes).has_value();
        break;
      case 5: {  // another sender reports that all devices are gone
        told.read(*watched);
        const auto before = told.attached;
        for (const auto& [each, address] : address_map(world.devices)) {
          world.say(each, false, "");
          (what & 0x80) != 0 ? world.queue.back().port = 1 : world.queue.back().user = 1;
        }
        told.read(*watched);
        require(told.attached == before, "only the kernel is believed");
        break;
      }
      default:
        told.read(*watched);
    }
  }
  told.read(*watched);
  if (!world.has_lied) told.require_all(world.devices);
  world.lose();
  told.read(*watched);
  if (!world.has_lied) told.require_all(world.devices);
  world.clear();
  return 0;
}
