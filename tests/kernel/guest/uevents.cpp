// usb-uevents: prints each attached USB device, then each that the kernel adds or removes, as JSON lines like
// those of "yusb watch --json", until it is killed. It does not use the library. usb-uevents --ask N ACTION:
// makes the kernel send N more uevents for the first root hub. usb-uevents --forge ACTION PATH: sends a
// uevent for a device to all receivers of the kernel's uevents.
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "sysfs.h"

namespace {

void print(const char* event, const std::string& path) {
  std::printf("{\"event\":\"%s\",\"path\":\"%s\",\"location\":\"%s\"}\n", event, path.c_str(),
              location(path).c_str());
  std::fflush(stdout);
}

void bind_to(int kernel, unsigned groups) {
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups;
  if (bind(kernel, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) std::exit(1);
}

void ask(int times, const std::string& action) {
  std::ofstream file(sysfs + "usb1/uevent");
  for (int i = 0; i < times; ++i) file << action << std::flush;
}

void forge(const std::string& action, const std::string& path) {
  const std::string devpath = "/devices/forged/" + path;
  std::string message = action + '@' + devpath + '\0';
  for (const std::string& field : {"ACTION=" + action, "DEVPATH=" + devpath, std::string("SUBSYSTEM=usb"),
                                   std::string("DEVTYPE=usb_device"), std::string("PRODUCT=1209/1/100"),
                                   "DEVNUM=" + read_file(sysfs + path + "/devnum").value_or("7")}) {
    message += field + '\0';
  }
  const int sender = socket(AF_NETLINK, SOCK_RAW, NETLINK_KOBJECT_UEVENT);
  bind_to(sender, 0);
  const auto send = [&](std::uint32_t port, std::uint32_t groups) {
    sockaddr_nl to = {};
    to.nl_family = AF_NETLINK;
    to.nl_pid = port;
    to.nl_groups = groups;
    sendto(sender, message.data(), message.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
  };
  send(0, 1);
  std::ifstream sockets("/proc/net/netlink");
  for (std::string line; std::getline(sockets, line);) {
    int protocol;
    std::uint32_t port;
    if (std::sscanf(line.c_str(), "%*s %d %u", &protocol, &port) != 2 || protocol != NETLINK_KOBJECT_UEVENT)
      continue;
    if (port != 0) send(port, 0);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc == 4 ? argv[1] : "";
  if (mode == "--ask") return ask(std::atoi(argv[2]), argv[3]), 0;
  if (mode == "--forge") return forge(argv[2], argv[3]), 0;

  const int kernel = socket(AF_NETLINK, SOCK_RAW, NETLINK_KOBJECT_UEVENT);
  const int size = 64 << 20;
  setsockopt(kernel, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
  bind_to(kernel, 1);
  for (const std::string& path : attached_paths()) print("arrival", path);

  char datagram[8192];
  for (;;) {
    sockaddr_nl sender = {};
    socklen_t size_of_sender = sizeof sender;
    const ssize_t length = recvfrom(kernel, datagram, sizeof datagram - 1, 0,
                                    reinterpret_cast<sockaddr*>(&sender), &size_of_sender);
    if (length < 0) break;
    datagram[length] = '\0';
    std::map<std::string, std::string> fields;
    for (const char* at = datagram; at < datagram + length; at += std::strlen(at) + 1) {
      const std::string field = at;
      fields[field.substr(0, field.find('='))] = field.substr(field.find('=') + 1);
    }
    // Uevents that were requested through sysfs have a SYNTH_UUID.
    if (sender.nl_pid != 0 || fields["DEVTYPE"] != "usb_device" || fields.count("SYNTH_UUID") != 0) continue;
    const std::string path = fields["DEVPATH"].substr(fields["DEVPATH"].rfind('/') + 1);
    if (fields["ACTION"] == "add") print("arrival", path);
    if (fields["ACTION"] == "remove") print("removal", path);
  }
  std::perror("usb-uevents");
  return 1;
}
