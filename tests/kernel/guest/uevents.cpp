// usb-uevents: prints each USB device that is attached, then each that the kernel adds or removes, as lines
// of JSON like those of "yusb watch --json", until it is killed. It knows nothing of the library.
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
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

}  // namespace

int main() {
  const int kernel = socket(AF_NETLINK, SOCK_RAW, NETLINK_KOBJECT_UEVENT);
  const int size = 64 << 20;
  setsockopt(kernel, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_groups = 1;
  if (bind(kernel, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return 1;
  for (const std::string& path : attached_paths()) print("arrival", path);

  char datagram[8192];
  for (ssize_t length; (length = recv(kernel, datagram, sizeof datagram - 1, 0)) >= 0;) {
    datagram[length] = '\0';
    std::map<std::string, std::string> fields;
    for (const char* at = datagram; at < datagram + length; at += std::strlen(at) + 1) {
      const std::string field = at;
      fields[field.substr(0, field.find('='))] = field.substr(field.find('=') + 1);
    }
    if (fields["DEVTYPE"] != "usb_device") continue;
    const std::string path = fields["DEVPATH"].substr(fields["DEVPATH"].rfind('/') + 1);
    if (fields["ACTION"] == "add") print("arrival", path);
    if (fields["ACTION"] == "remove") print("removal", path);
  }
  std::perror("uevents");
  return 1;
}
