#include "watchers.h"

#include <dirent.h>
#include <fcntl.h>
#include <libudev.h>
#include <libusb.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <yusb.h>

namespace bench {

namespace {

struct kept_device {
  unsigned short vendor;
  unsigned short product;
  unsigned short release;
  std::string name;
  std::string texts;  // each with a terminating zero
};

void forget(std::vector<kept_device>& devices, std::string_view name) {
  const auto found = std::find_if(devices.begin(), devices.end(),
                                  [name](const kept_device& device) { return device.name == name; });
  if (found != devices.end()) devices.erase(found);
}

// A thread that waits for events, or to be stopped.
class event_thread : public watcher {
 protected:
  explicit event_thread(listener& to) : _to(to), _end(eventfd(0, EFD_CLOEXEC)) {}
  ~event_thread() override { close(_end); }

  void end() {
    eventfd_write(_end, 1);
    _thread.join();
  }

  template <typename Receive>
  void receive_until_end(int events, Receive receive) {
    pollfd waited[] = {{_end, POLLIN, 0}, {events, POLLIN, 0}};
    while (poll(waited, 2, -1) > 0 && waited[0].revents == 0) receive();
  }

  listener& _to;
  const int _end;
  std::thread _thread;
  std::vector<kept_device> _devices;
};

// ---- The baseline ----

class baseline_program final : public event_thread {
 public:
  explicit baseline_program(listener& to) : event_thread(to) {
    _thread = std::thread([this] { run(); });
  }
  ~baseline_program() override { end(); }

 private:
  static constexpr char folder[] = "/sys/bus/usb/devices/";

  void run() {
    const int events = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT);
    const int on = 1;
    setsockopt(events, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 1;
    bind(events, reinterpret_cast<const sockaddr*>(&address), sizeof address);

    DIR* const directory = opendir(folder);
    while (const dirent* entry = readdir(directory)) {
      if (entry->d_name[0] != '.' && std::strchr(entry->d_name, ':') == nullptr) keep(entry->d_name);
    }
    closedir(directory);
    receive_until_end(events, [&] { receive(events); });
    close(events);
  }

  void keep(std::string_view name) {
    char text[3 * 512];
    std::snprintf(text, sizeof text, "%s%.*s", folder, static_cast<int>(name.size()), name.data());
    const int directory = open(text, O_PATH | O_DIRECTORY | O_CLOEXEC);
    const auto read_file = [&](const char* attribute, char* into) {
      const int opened = openat(directory, attribute, O_RDONLY | O_CLOEXEC);
      const ssize_t size = opened < 0 ? 0 : read(opened, into, 511);
      if (opened >= 0) close(opened);
      char* const end = into + (size > 0 ? size - 1 : 0);  // without the line feed
      *end = '\0';
      return end + 1;
    };
    read_file("devnum", text);
    unsigned char descriptor[18] = {};
    const int opened = openat(directory, "descriptors", O_RDONLY | O_CLOEXEC);
    const bool described = opened >= 0 && read(opened, descriptor, sizeof descriptor) == sizeof descriptor;
    if (opened >= 0) close(opened);
    const auto number = [&](int at) {
      return static_cast<unsigned short>(described ? descriptor[at] | descriptor[at + 1] << 8 : 0);
    };
    char* end = text;
    for (const char* const attribute : {"manufacturer", "product", "serial"}) end = read_file(attribute, end);
    close(directory);
    _devices.push_back({number(8), number(10), number(12), std::string(name),
                        std::string(text, static_cast<std::size_t>(end - text))});
    _to.heard();
  }

  void receive(int events) {
    char datagram[8192];
    sockaddr_nl sender;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    iovec part = {datagram, sizeof datagram};
    msghdr message = {&sender, sizeof sender, &part, 1, control, sizeof control, 0};
    const ssize_t size = recvmsg(events, &message, MSG_DONTWAIT);
    if (size <= 0 || sender.nl_pid != 0) return;
    const std::string_view fields(datagram, static_cast<std::size_t>(size));
    if (fields.find(std::string_view("\0DEVTYPE=usb_device\0", 20)) == std::string_view::npos) return;
    const std::string_view header(datagram);  // "add@/devices/...", ended by a zero
    const std::string_view name = header.substr(header.rfind('/') + 1);
    if (header.substr(0, 4) == "add@") {
      keep(name);
    } else if (header.substr(0, 7) == "remove@") {
      forget(_devices, name);
      _to.heard();
    }
  }
};

// ---- libudev ----

class udev_program final : public event_thread {
 public:
  explicit udev_program(listener& to) : event_thread(to) {
    _thread = std::thread([this] { run(); });
  }
  ~udev_program() override { end(); }

 private:
  void run() {
    udev* const context = udev_new();
    udev_monitor* const monitor = udev_monitor_new_from_netlink(context, "kernel");
    udev_monitor_filter_add_match_subsystem_devtype(monitor, "usb", "usb_device");
    udev_monitor_enable_receiving(monitor);

    udev_enumerate* const all = udev_enumerate_new(context);
    udev_enumerate_add_match_subsystem(all, "usb");
    udev_enumerate_add_match_property(all, "DEVTYPE", "usb_device");
    udev_enumerate_scan_devices(all);
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(all)) {
      udev_device* const device = udev_device_new_from_syspath(context, udev_list_entry_get_name(entry));
      if (device != nullptr) keep(device);
      udev_device_unref(device);
    }
    udev_enumerate_unref(all);

    receive_until_end(udev_monitor_get_fd(monitor), [&] {
      udev_device* const device = udev_monitor_receive_device(monitor);
      if (device == nullptr) return;
      const std::string_view action = udev_device_get_action(device);
      if (action == "add") keep(device);
      if (action == "remove") {
        forget(_devices, udev_device_get_sysname(device));
        _to.heard();
      }
      udev_device_unref(device);
    });
    udev_monitor_unref(monitor);
    udev_unref(context);
  }

  void keep(udev_device* device) {
    const auto text = [device](const char* attribute) {
      const char* const value = udev_device_get_sysattr_value(device, attribute);
      return value == nullptr ? "" : value;
    };
    const auto number = [&](const char* attribute) {
      return static_cast<unsigned short>(std::strtoul(text(attribute), nullptr, 16));
    };
    kept_device kept = {
        number("idVendor"), number("idProduct"), number("bcdDevice"), udev_device_get_sysname(device), {}};
    for (const char* const attribute : {"manufacturer", "product", "serial"}) {
      const char* const value = text(attribute);
      kept.texts.append(value, std::strlen(value) + 1);
    }
    _devices.push_back(std::move(kept));
    _to.heard();
  }
};

// ---- libusb ----

class usb_program final : public event_thread {
 public:
  explicit usb_program(listener& to) : event_thread(to) {
    libusb_init(&_context);
    _thread = std::thread([this] { run(); });
  }
  ~usb_program() override {
    _ending = true;
    libusb_interrupt_event_handler(_context);
    end();
    libusb_exit(_context);
  }

 private:
  void run() {
    libusb_hotplug_callback_handle handle;
    libusb_hotplug_register_callback(
        _context, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT,
        LIBUSB_HOTPLUG_ENUMERATE, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
        LIBUSB_HOTPLUG_MATCH_ANY, heard, this, &handle);
    while (!_ending) libusb_handle_events(_context);
    libusb_hotplug_deregister_callback(_context, handle);
  }

  static int heard(libusb_context*, libusb_device* device, libusb_hotplug_event, void* self) {
    libusb_device_descriptor descriptor;  // libusb keeps it while the device is attached
    libusb_get_device_descriptor(device, &descriptor);
    static_cast<usb_program*>(self)->_to.heard();
    return 0;
  }

  std::atomic<bool> _ending{false};
  libusb_context* _context = nullptr;
};

// ---- The library ----

class library_program final : public watcher, yusb_device_event_interface {
 public:
  explicit library_program(listener& to) : _to(to) {
    yusb::global_initialize();
    _yusb_context* context = nullptr;
    yusb::context_create(&context);
    yusb::context_notify_object_append(context, this);
  }
  ~library_program() override { yusb::global_release(); }

 private:
  void on_device_event(const YUsbInfoDevice&, _yusb_device_event) override { _to.heard(); }

  listener& _to;
};

template <typename Program>
std::unique_ptr<watcher> start(listener& to) {
  return std::make_unique<Program>(to);
}

}  // namespace

void listener::wait() {
  timespec limit;
  clock_gettime(CLOCK_REALTIME, &limit);
  limit.tv_sec += 60;
  if (sem_timedwait(&_done, &limit) == 0) return;
  std::fprintf(stderr, "yusb_bench: %d events did not arrive\n", _expected.load());
  std::exit(1);
}

const contender contenders[4] = {{"baseline", start<baseline_program>, announcer::kernel},
                                 {"library", start<library_program>, announcer::kernel},
                                 {"libudev", start<udev_program>, announcer::kernel},
                                 {"libusb", start<usb_program>, announcer::udev}};
const contender& baseline = contenders[0];
const contender& library = contenders[1];

}  // namespace bench
