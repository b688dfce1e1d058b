#include "host.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <glob.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace bench {

namespace {

constexpr char started_on[] = "YUSB_BENCH_FOLDER";  // set in the process that start_on_umockdev starts

std::string _root;  // the prefix of "/sys": empty, or umockdev's folder
int _attached = 0;
int _shown = 0;
int _socket = -1;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "yusb_bench: cannot %s (%s)\n", what, std::strerror(errno));
  std::exit(1);
}

template <typename... Values>
std::string text(const char* format, Values... values) {
  char made[512];
  const int size = std::snprintf(made, sizeof made, format, values...);
  return {made, static_cast<std::size_t>(size)};
}

// A bus has a root hub, 15 hubs behind it, and 14 devices behind each of the 15 hubs.
struct place {
  explicit place(int device) {
    constexpr int on_bus = 1 + 15 * 15;
    bus = 1 + device / on_bus;
    number = 1 + device % on_bus;
    const int hub = 1 + (number - 2) / 15;
    const int port = (number - 2) % 15;
    path = text("/devices/pci0000:00/0000:00:14.0/usb%d", bus);
    name = text("usb%d", bus);
    for (const int next : {number > 1 ? hub : 0, number > 1 ? port : 0}) {
      if (next == 0) break;
      name = name[0] == 'u' ? text("%d-%d", bus, next) : name + text(".%d", next);
      path += "/" + name;
    }
  }
  int bus;
  int number;
  std::string name;
  std::string path;
};

void write(const std::string& file, const std::string& content) { std::ofstream(file) << content; }

std::string link_of(const place& at) { return _root + "/sys/bus/usb/devices/" + at.name; }

void make_directory(const place& at, int device) {
  const std::string directory = _root + "/sys" + at.path + "/";
  fs::create_directories(directory);
  std::string up;
  for (const char c : at.path) up += c == '/' ? "../" : "";
  fs::create_directory_symlink(up + "bus/usb", directory + "subsystem");
  const auto file = [&](const char* name, const std::string& line) { write(directory + name, line + "\n"); };
  file("uevent", text("MAJOR=189\nMINOR=%d\nDEVNAME=bus/usb/%03d/%03d\nDEVTYPE=usb_device\nDRIVER=usb\n"
                      "PRODUCT=18d1/4ee7/440\nTYPE=0/0/0\nBUSNUM=%03d\nDEVNUM=%03d",
                      device, at.bus, at.number, at.bus, at.number));
  file("busnum", std::to_string(at.bus));
  file("devnum", std::to_string(at.number));
  file("speed", "480");
  file("bConfigurationValue", "1");
  file("bNumConfigurations", "1");
  file("bNumInterfaces", " 1");
  file("bMaxPower", "100mA");
  file("version", " 2.00");
  for (const char* const each : {"bDeviceClass", "bDeviceSubClass", "bDeviceProtocol"}) file(each, "00");
  file("idVendor", "18d1");
  file("idProduct", "4ee7");
  file("bcdDevice", "0440");
  file("manufacturer", "Northwind Instruments Ltd.");
  file("product", text("Precision Logic Analyzer %05d", device));
  file("serial", text("NW-2024-%08d-A7F3", device));
  // A device descriptor, a configuration and an interface without endpoints.
  constexpr unsigned char descriptors[] = {18,   1,    0,  2, 0, 0, 0, 64, 0xD1, 0x18, 0xE7, 0x4E,
                                           0x40, 4,    1,  2, 3, 1, 9, 2,  18,   0,    1,    1,
                                           0,    0x80, 50, 9, 4, 0, 0, 0,  8,    6,    80,   0};
  write(directory + "descriptors", {reinterpret_cast<const char*>(descriptors), sizeof descriptors});

  const std::string name = at.number == 1 ? at.name.substr(3) + "-0:1.0" : at.name + ":1.0";
  const std::string interface = name + "/";
  fs::create_directory(directory + interface);
  file((interface + "uevent").c_str(), "DEVTYPE=usb_interface\nDRIVER=usb-storage\nINTERFACE=8/6/80");
  file((interface + "bInterfaceNumber").c_str(), "00");
  file((interface + "bInterfaceClass").c_str(), "08");
  file((interface + "bInterfaceSubClass").c_str(), "06");
  file((interface + "bInterfaceProtocol").c_str(), "50");
  fs::create_directory_symlink("../" + up + "bus/usb", directory + interface + "subsystem");
  fs::create_directory_symlink("../" + up + "bus/usb/drivers/usb-storage", directory + interface + "driver");
}

// MurmurHash2 of the subsystem and the type, by which libudev's monitors filter udev's messages.
std::uint32_t hash_of(const std::string& name) {
  constexpr std::uint32_t factor = 0x5BD1E995;
  std::uint32_t hash = static_cast<std::uint32_t>(name.size());
  std::size_t at = 0;
  for (; at + 4 <= name.size(); at += 4) {
    std::uint32_t four;
    std::memcpy(&four, &name[at], 4);
    four *= factor;
    hash = hash * factor ^ (four ^ four >> 24) * factor;
  }
  if (at < name.size()) {
    std::uint32_t rest = 0;
    std::memcpy(&rest, &name[at], name.size() - at);
    hash = (hash ^ rest) * factor;
  }
  hash = (hash ^ hash >> 13) * factor;
  return hash ^ hash >> 15;
}

std::string udev_header(std::size_t properties) {
  constexpr std::uint32_t size = 40;
  const std::uint32_t fields[] = {htonl(0xFEEDCAFE),
                                  size,
                                  size,
                                  static_cast<std::uint32_t>(properties),
                                  htonl(hash_of("usb")),
                                  htonl(hash_of("usb_device")),
                                  0,
                                  0};
  return std::string("libudev", 8) + std::string(reinterpret_cast<const char*>(fields), sizeof fields);
}

// Sends to the sockets on which umockdev's library listens in place of netlink sockets.
void send_to_umockdev(const std::string& datagram) {
  glob_t found;
  if (glob((_root + "/event*").c_str(), 0, nullptr, &found) == 0) {
    for (std::size_t i = 0; i < found.gl_pathc; ++i) {
      sockaddr_un to = {};
      to.sun_family = AF_UNIX;
      std::strncpy(to.sun_path, found.gl_pathv[i], sizeof to.sun_path - 1);
      sendto(_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    globfree(&found);
  }
}

void start_on_umockdev(const fs::path& program, char** arguments) {
  std::fprintf(stderr, "yusb_bench: namespaces are not permitted (%s): using umockdev, at a higher cost\n",
               std::strerror(errno));
  char folder[] = "/tmp/yusb_bench.XXXXXX";
  if (mkdtemp(folder) == nullptr) fail("create a folder");
  setenv(started_on, folder, 1);
  setenv("UMOCKDEV_DIR", folder, 1);
  const char* const preloaded = std::getenv("LD_PRELOAD");
  setenv("LD_PRELOAD", text("libumockdev-preload.so.0 %s", preloaded == nullptr ? "" : preloaded).c_str(), 1);
  execv(program.c_str(), arguments);
  fail("start on umockdev");
}

}  // namespace

void enter_host(char** arguments) {
  const fs::path program = fs::read_symlink("/proc/self/exe");  // in a chroot, unreadable after unshare
  if (const char* folder = std::getenv(started_on)) {
    _root = folder;
    std::atexit([] { fs::remove_all(_root); });
    _socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  } else if (unshare(CLONE_NEWNS | CLONE_NEWNET) == 0 &&
             mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) {  // not in a plain chroot
    // Not in a new user namespace, where the library would not accept the uevents as the kernel's.
    setenv("SYSTEMD_DEVICE_VERIFY_SYSFS", "0", 1);  // libudev would require a real sysfs
    for (const char* const folder : {"/sys", "/run"}) {
      if (mount("tmpfs", folder, "tmpfs", 0, nullptr) != 0) fail("mount a tree in place of sysfs");
    }
    fs::create_directory("/run/udev");
    write("/run/udev/control", "");  // without it, libudev assumes that udev does not run
    _socket = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
  } else {
    start_on_umockdev(program, arguments);
  }
  if (_socket < 0) fail("open a socket");
  fs::create_directories(_root + "/sys/bus/usb/devices");
}

bool on_umockdev() { return !_root.empty(); }

void attach_until(int count) {
  for (; _attached < count; ++_attached) make_directory(place(_attached), _attached);
  while (_shown < count) show(_shown++);
  while (_shown > count) hide(--_shown);
}

void show(int device) {
  const place at(device);
  fs::create_directory_symlink("../../.." + at.path, link_of(at));
}

void hide(int device) { fs::remove(link_of(place(device))); }

clock::time_point announce(announcer from, int device, bool arrived) {
  const place at(device);
  const char* const action = arrived ? "add" : "remove";
  const std::string header = text("%s@%s", action, at.path.c_str());
  std::string fields = text(
      "ACTION=%s\nDEVPATH=%s\nSUBSYSTEM=usb\nMAJOR=189\nMINOR=%d\nDEVNAME=%sbus/usb/%03d/%03d\n"
      "DEVTYPE=usb_device\nPRODUCT=18d1/4ee7/440\nTYPE=0/0/0\nBUSNUM=%03d\nDEVNUM=%03d\n",
      action, at.path.c_str(), device, from == announcer::udev ? "/dev/" : "", at.bus, at.number, at.bus,
      at.number);
  if (from == announcer::udev || on_umockdev()) fields += "SEQNUM=1\n";  // the kernel adds its own
  for (char& c : fields) {
    if (c == '\n') c = '\0';
  }
  sockaddr_nl to = {};
  to.nl_family = AF_NETLINK;
  to.nl_groups = from == announcer::udev ? 2 : 0;
  nlmsghdr asked = {};  // the kernel forwards the bytes after this header
  std::string datagram;
  if (from == announcer::udev) {
    datagram = udev_header(fields.size()) + fields;
  } else if (on_umockdev()) {
    datagram = header + '\0' + fields;
  } else {
    asked.nlmsg_len = static_cast<std::uint32_t>(NLMSG_LENGTH(header.size() + 1 + fields.size()));
    asked.nlmsg_type = NLMSG_MIN_TYPE;
    asked.nlmsg_flags = NLM_F_REQUEST;
    datagram = std::string(reinterpret_cast<const char*>(&asked), sizeof asked) + header + '\0' + fields;
  }
  const clock::time_point sent = clock::now();
  if (on_umockdev()) {
    send_to_umockdev(datagram);
  } else if (sendto(_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                    sizeof to) < 0 &&
             errno != ECONNREFUSED) {
    fail("announce a device");
  }
  return sent;
}

}  // namespace bench
