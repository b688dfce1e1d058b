// usb-wide-hub: emulates a hub with 20 ports on dummy_hcd, through gadgetfs, with devices at ports 16 and 18,
// until it is killed. /dev/gadget must be mounted. The serial number of each device is its port, that of the
// hub is 0.
//
// A gadget has one address, but dummy_hcd passes it the requests to every address of its bus. The hub
// therefore also answers for the devices behind it: a request is for the device whose port was reset last.
#include <endian.h>
#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usb/gadgetfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;

constexpr int port_count = 20;
constexpr std::array<unsigned, 2> occupied = {16, 18};

constexpr unsigned connected = 0x001;
constexpr unsigned enabled = 0x002;
constexpr unsigned powered = 0x100;
constexpr unsigned high_speed = 0x400;
constexpr unsigned connection_changed = 0x01;
constexpr unsigned reset_changed = 0x10;
constexpr unsigned feature_reset = 4;
constexpr unsigned first_change_feature = 16;

struct port {
  unsigned status;
  unsigned change;
};

const bytes endpoint = {7, 5, 0x85, 3, 4, 0, 12};
const bytes configuration = {9, 2, 25, 0, 1, 1, 0, 0xC0, 0, 9, 4, 0, 0, 1, 9, 0, 0, 0};
const bytes device = {18, 1, 0, 2, 0, 0, 0, 64, 0x09, 0x12, 0x20, 0, 0, 1, 1, 2, 3, 1};
const bytes hub = {13, 0x29, port_count, 9, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF};

int open_file(const char* name) {
  const int file = open(name, O_RDWR | O_CLOEXEC);
  if (file < 0) {
    std::perror(name);
    std::exit(1);
  }
  return file;
}

void write_all(int file, const bytes& data) {
  if (write(file, data.data(), data.size()) != static_cast<ssize_t>(data.size())) {
    std::perror("usb-wide-hub");
    std::exit(1);
  }
}

void append(bytes& to, const bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

class wide_hub {
 public:
  wide_hub() {
    for (const unsigned number : occupied) _ports.at(number) = {connected | powered, connection_changed};
  }

  // The answer of a device: empty for a request without data, none if it stalls.
  std::optional<bytes> answer(const usb_ctrlrequest& asked) {
    const unsigned value = le16toh(asked.wValue);
    port* const at = asked.wIndex <= port_count ? &_ports.at(le16toh(asked.wIndex)) : nullptr;
    switch (asked.bRequestType << 8 | asked.bRequest) {
      case 0x8006:
        return value >> 8 == 3 ? string(value & 0xFF) : std::nullopt;
      case 0x0009:  // SET_CONFIGURATION
        return bytes();
      case 0xA006:
        // The devices behind the hub are not hubs.
        return std::exchange(_described, true) ? std::nullopt : std::optional<bytes>(hub);
      case 0xA000:
        return bytes(4);
      case 0xA300:
        if (at == nullptr) return std::nullopt;
        return bytes{static_cast<std::uint8_t>(at->status), static_cast<std::uint8_t>(at->status >> 8),
                     static_cast<std::uint8_t>(at->change), 0};
      case 0x2303:
        if (at != nullptr && value == feature_reset) {
          _asked = le16toh(asked.wIndex);
          at->status |= enabled | high_speed;
          at->change |= reset_changed;
        }
        return bytes();
      case 0x2301:
        if (at != nullptr && value >= first_change_feature)
          at->change &= ~(1u << (value - first_change_feature));
        return bytes();
      default:
        return std::nullopt;
    }
  }

 private:
  std::optional<bytes> string(unsigned index) const {
    if (index == 0) return bytes{4, 3, 9, 4};
    bytes result = {0, 3};
    for (const char c : index == 3 ? std::to_string(_asked) : std::string("Wide")) {
      append(result, {static_cast<std::uint8_t>(c), 0});
    }
    result[0] = static_cast<std::uint8_t>(result.size());
    return result;
  }

  std::array<port, port_count + 1> _ports = {};  // by number, from 1
  unsigned _asked = 0;
  bool _described = false;
};

}  // namespace

int main() {
  const int control = open_file("/dev/gadget/dummy_udc");
  bytes setting(4);
  for (int speeds = 0; speeds < 2; ++speeds) {
    append(setting, configuration);
    append(setting, endpoint);
  }
  append(setting, device);
  write_all(control, setting);

  wide_hub emulated;
  int interrupt = -1;
  for (usb_gadgetfs_event event; read(control, &event, sizeof event) == sizeof event;) {
    if (event.type != GADGETFS_SETUP) continue;
    const usb_ctrlrequest& asked = event.u.setup;
    if (asked.bRequestType == 0 && asked.bRequest == USB_REQ_SET_CONFIGURATION && interrupt < 0) {
      interrupt = open_file("/dev/gadget/ep5in-int");
      bytes endpoints = {1, 0, 0, 0};
      for (int speeds = 0; speeds < 2; ++speeds) append(endpoints, endpoint);
      write_all(interrupt, endpoints);
    }
    const bool in = (asked.bRequestType & USB_DIR_IN) != 0;
    std::optional<bytes> answered = emulated.answer(asked);
    // A transfer in the wrong direction stalls.
    if (answered.has_value() && in) {
      answered->resize(std::min<std::size_t>(answered->size(), le16toh(asked.wLength)));
      static_cast<void>(!write(control, answered->data(), answered->size()));
    } else {
      char nothing;
      static_cast<void>(answered.has_value() || in ? read(control, &nothing, 0)
                                                   : write(control, &nothing, 0));
    }
  }
  std::perror("usb-wide-hub");
  return 1;
}
