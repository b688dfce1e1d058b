// Details of an attached device: port, speed, interfaces with their drivers, complete UTF-8 strings, and the
// modes of a phone. Link the bus library: YorvanUsb::Bus, or YorvanUsbBus for pkg-config.
//
//   if (const auto details = yusb::device_details(record)) {
//     const yusb::mode_set modes = yusb::device_modes(*details);
//     if (modes.contains(yusb::device_mode::adb)) std::printf("%s has ADB\n", details->port_path.c_str());
//   }
//
// Cost. Each call of device_details reads about ten small sysfs files, and so does each call of a filter
// below; in a watcher this happens under the library's locks. A record holds none of these details.
#ifndef YUSB_DETAILS_H_
#define YUSB_DETAILS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <yusb.h>
#include <yusb_bus.h>
#include <yusb_filter.h>

namespace yusb {

// One interface of a configuration, in its alternate setting 0.
struct usb_interface {
  std::uint8_t number = 0;      // bInterfaceNumber
  std::uint8_t class_code = 0;  // bInterfaceClass
  std::uint8_t subclass = 0;
  std::uint8_t protocol = 0;
  std::string name;    // its string descriptor, in UTF-8; empty if it has none
  std::string driver;  // the kernel driver that is bound to it; empty if none is bound (yet)
};

// The details of a device. Numbers that the system does not know are 0, unknown strings are empty.
struct usb_details {
  std::uint16_t vendor = 0;   // idVendor
  std::uint16_t product = 0;  // idProduct
  std::uint16_t release = 0;  // bcdDevice

  std::uint32_t bus = 0;      // bus number
  std::uint32_t address = 0;  // on that bus; a device gets a new address each time it is attached
  std::string port_path;      // "1-2.3": bus 1, port 2, and port 3 of the hub there; "usb1" is a root hub
  std::string device_node;    // "/dev/bus/usb/001/005", whether it exists or not; on Linux only

  std::uint16_t usb_version = 0;  // bcdUSB: 0x0210 is USB 2.1
  std::uint8_t class_code = 0;    // bDeviceClass; 0: each interface has its own class
  std::uint8_t subclass = 0;
  std::uint8_t protocol = 0;
  double speed = 0;  // of the link, in Mbit/s: 1.5, 12, 480, 5000, ...

  // The system configures a device and binds drivers shortly after its arrival. Until then, power and
  // interfaces are those of the device's first configuration, without names and drivers.
  std::uint8_t configurations = 0;        // number of configurations
  std::uint8_t active_configuration = 0;  // bConfigurationValue; 0 if it is not configured
  std::uint16_t max_power = 0;            // of the active configuration, in mA
  std::vector<usb_interface> interfaces;  // of the active configuration, in the device's order

  // Complete, in UTF-8. (A record holds only the low byte of each UTF-16 code unit.)
  std::string manufacturer;
  std::string product_name;
  std::string serial_number;
};

// Returns the details of the device that is attached now at the record's location. The result is empty if
// that device has other IDs or strings than the record, if the device is gone, or if the process or the
// system is out of file descriptors or memory. Two devices with equal IDs and strings that are attached to
// one port, one after the other, cannot be told apart.
//
// It takes no lock of the library and does not access the device, so a handler may call it. The kernel does
// not return strings while it configures or resets the device: a device that does not respond can block the
// call for as long as it blocks the kernel, typically 5 seconds. A string that the kernel failed to read is
// empty in the result and is not compared.
//
// If the location is a hash (of a port path that does not fit into 32 bits), the device is searched for among
// all devices of the bus. If hashes collide, IDs and strings decide; equal devices with colliding hashes
// cannot be told apart.
//
// May be called from any thread; on a simulated bus, only while the simulator exists. Throws std::bad_alloc.
YUSB_BUS_EXPORT std::optional<usb_details> device_details(const YUsbInfoDevice& record);

// Same, and sets `error` if the result is empty because the process or the system is out of file descriptors
// or memory. Clears it otherwise; it stays clear on macOS.
YUSB_BUS_EXPORT std::optional<usb_details> device_details(const YUsbInfoDevice& record,
                                                          std::error_code& error);

// ---- Modes ----

// A function that a device offers, identified by published identifiers: class/subclass/protocol of an
// interface, in hexadecimal, or vendor:product.
enum class device_mode : std::uint8_t {
  adb,           // Android Debug Bridge: ff/42/01, dc/02/01
  fastboot,      // Android's boot loader: ff/42/03
  mtp,           // media transfer: 06/01/01 or ff/ff/00, if the interface is named "MTP"
  ptp,           // picture transfer: 06/01/01 otherwise, so also an MTP device without that name
  mass_storage,  // 08
  tethering,     // network over USB, by a phone or a network adapter: RNDIS, CDC ECM, NCM, EEM, Apple's
  accessory,     // Android Open Accessory: 18d1:2d00, 2d01, 2d04, 2d05
  usbmux,        // Apple's multiplexer, on every booted iPhone and iPad: ff/fe/02
  recovery,      // Apple's recovery mode: 05ac:1281
  dfu,           // Device Firmware Upgrade: fe/01 except fe/01/01 (run-time mode); Apple's 05ac:1227
  edl,           // Qualcomm's emergency download: 05c6:9008
  preloader,     // MediaTek's preloader: 0e8d:2000
  download,      // Samsung's download mode: 04e8:685d
  audio,         // 01/01, 01/02
  midi,          // 01/03
  serial,        // CDC ACM: 02/02
  hid,           // keyboards, mice and others: 03
  printer,       // 07
  hub,           // 09
  smart_card,    // 0b
  video,         // 0e
  bluetooth,     // e0/01/01
};
// The number of modes.
constexpr unsigned device_mode_count = static_cast<unsigned>(device_mode::bluetooth) + 1;

// Returns the name of a mode, which is the enumerator with hyphens: "adb", "mass-storage", "smart-card". May
// be called from any thread.
YUSB_BUS_EXPORT const char* to_string(device_mode mode) noexcept;

// Returns the mode with that lower-case name; empty if there is none. May be called from any thread.
YUSB_BUS_EXPORT std::optional<device_mode> parse_device_mode(std::string_view name) noexcept;

// A set of modes.
class mode_set {
 public:
  constexpr bool contains(device_mode mode) const noexcept { return (_bits & bit(mode)) != 0; }
  constexpr void insert(device_mode mode) noexcept { _bits |= bit(mode); }
  constexpr bool empty() const noexcept { return _bits == 0; }
  constexpr bool operator==(const mode_set& other) const noexcept { return _bits == other._bits; }
  constexpr bool operator!=(const mode_set& other) const noexcept { return _bits != other._bits; }

  // Returns the modes in the order of the enumeration. Throws std::bad_alloc.
  std::vector<device_mode> list() const {
    std::vector<device_mode> found;
    for (unsigned i = 0; i < device_mode_count; ++i) {
      if (contains(static_cast<device_mode>(i))) found.push_back(static_cast<device_mode>(i));
    }
    return found;
  }

 private:
  static constexpr std::uint32_t bit(device_mode mode) { return 1u << static_cast<unsigned>(mode); }
  std::uint32_t _bits = 0;
};

// Returns the modes that a device's IDs and interfaces show; several or none. May be called from any thread.
YUSB_BUS_EXPORT mode_set device_modes(const usb_details& details) noexcept;

// ---- Conditions ----
//
// May be called from any thread. They do not throw.

// True if the device, or one of its interfaces, has this class.
inline bool has_class(const usb_details& details, std::uint8_t class_code) noexcept {
  for (const usb_interface& each : details.interfaces) {
    if (each.class_code == class_code) return true;
  }
  return details.class_code == class_code;
}

// True if the device has an interface of this class, subclass and protocol. An empty `subclass` or `protocol`
// matches any.
inline bool has_interface(const usb_details& details, std::uint8_t class_code,
                          std::optional<std::uint8_t> subclass = {},
                          std::optional<std::uint8_t> protocol = {}) noexcept {
  for (const usb_interface& each : details.interfaces) {
    if (each.class_code == class_code && each.subclass == subclass.value_or(each.subclass) &&
        each.protocol == protocol.value_or(each.protocol))
      return true;
  }
  return false;
}

// ---- Filters that read the bus ----
//
// Each call of one of these filters calls device_details, which reads files; in a watcher this happens under
// the library's locks. Put a filter that reads only the record first: both(device_is_android,
// with_mode(device_mode::adb)). They return false for a device that is gone before it can be read. They throw
// std::bad_alloc.

namespace detail {

template <typename Condition>
device_filter with_details(Condition condition) {
  return [condition = std::move(condition)](const YUsbInfoDevice& device) {
    const std::optional<usb_details> details = device_details(device);
    return details.has_value() && condition(*details);
  };
}

// True if `text` contains `part`. A to Z match in either case.
inline bool contains_text(std::string_view text, std::string_view part) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
  for (std::size_t at = 0; at + part.size() <= text.size(); ++at) {
    std::size_t same = 0;
    while (same < part.size() && lower(text[at + same]) == lower(part[same])) ++same;
    if (same == part.size()) return true;
  }
  return false;
}

}  // namespace detail

// Keeps devices for which has_class is true.
inline device_filter with_class(std::uint8_t class_code) {
  return detail::with_details([=](const usb_details& details) { return has_class(details, class_code); });
}

// Keeps devices for which has_interface is true.
inline device_filter with_interface(std::uint8_t class_code, std::optional<std::uint8_t> subclass = {},
                                    std::optional<std::uint8_t> protocol = {}) {
  return detail::with_details(
      [=](const usb_details& details) { return has_interface(details, class_code, subclass, protocol); });
}

// Keeps devices in this mode. The system learns an interface's name when it configures the device, shortly
// after the arrival: until then a device with MTP may have the mode ptp instead of mtp, so keep both.
inline device_filter with_mode(device_mode mode) {
  return detail::with_details(
      [=](const usb_details& details) { return device_modes(details).contains(mode); });
}

// Keeps the device at this port path, for instance "1-2.3".
inline device_filter with_port(std::string port_path) {
  return detail::with_details([port_path = std::move(port_path)](const usb_details& details) {
    return details.port_path == port_path;
  });
}

// Keeps devices whose manufacturer or product string contains `part`, in UTF-8. A to Z match in either case.
inline device_filter with_name(std::string part) {
  return detail::with_details([part = std::move(part)](const usb_details& details) {
    return detail::contains_text(details.manufacturer, part) ||
           detail::contains_text(details.product_name, part);
  });
}

}  // namespace yusb

#endif  // YUSB_DETAILS_H_
