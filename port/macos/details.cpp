// Never run on a Mac.
#include "macos/details.h"

#include <iterator>
#include <string>

#include <yusb_location.h>

#include "macos/registry.h"

namespace yusb::port {

namespace {

// A property of a registry entry.
class property {
 public:
  property(io_registry_entry_t entry, CFStringRef key)
      : _value(IORegistryEntryCreateCFProperty(entry, key, kCFAllocatorDefault, 0)) {}
  ~property() {
    if (_value != nullptr) CFRelease(_value);
  }
  property(const property&) = delete;
  property& operator=(const property&) = delete;

  std::optional<UInt32> number() const {
    SInt32 value = 0;
    if (_value == nullptr || CFGetTypeID(_value) != CFNumberGetTypeID()) return std::nullopt;
    CFNumberGetValue(static_cast<CFNumberRef>(_value), kCFNumberSInt32Type, &value);
    return static_cast<UInt32>(value);
  }

  // In UTF-8.
  std::optional<std::string> text() const {
    if (_value == nullptr || CFGetTypeID(_value) != CFStringGetTypeID()) return std::nullopt;
    char buffer[512];  // 126 UTF-16 units are at most 378 bytes of UTF-8
    if (!CFStringGetCString(static_cast<CFStringRef>(_value), buffer, sizeof buffer, kCFStringEncodingUTF8))
      return std::nullopt;
    return buffer;
  }

 private:
  const CFTypeRef _value;
};

template <typename T>
T number(io_registry_entry_t entry, CFStringRef key) {
  return static_cast<T>(property(entry, key).number().value_or(0));
}

// Older and newer systems have different keys for a string.
std::optional<std::string> text(io_registry_entry_t entry, CFStringRef key, CFStringRef older) {
  std::optional<std::string> found = property(entry, key).text();
  return found.has_value() ? found : property(entry, older).text();
}

double speed_of(io_service_t device) {
  // IOUSBHostConnectionSpeed of IOUSBHostFamilyDefinitions.h, and kUSBDeviceSpeedLow and so on of USB.h.
  static constexpr double newer[] = {0, 12, 1.5, 480, 5000, 10000, 20000};
  static constexpr double older[] = {1.5, 12, 480, 5000, 10000, 20000};
  if (const auto speed = property(device, CFSTR("USBSpeed")).number())
    return *speed < std::size(newer) ? newer[*speed] : 0;
  if (const auto speed = property(device, CFSTR("Device Speed")).number())
    return *speed < std::size(older) ? older[*speed] : 0;
  return 0;
}

// Calls `visit` with each child of an entry.
template <typename Visitor>
void for_each_child(io_registry_entry_t entry, Visitor visit) {
  io_iterator_t children = IO_OBJECT_NULL;
  if (IORegistryEntryGetChildIterator(entry, kIOServicePlane, &children) != KERN_SUCCESS) return;
  while (const io_registry_entry_t child = IOIteratorNext(children)) {
    visit(child);
    IOObjectRelease(child);
  }
  IOObjectRelease(children);
}

// The driver of an interface: the class of the first child.
std::string driver_of(io_registry_entry_t interface) {
  std::string found;
  for_each_child(interface, [&](io_registry_entry_t child) {
    io_name_t name = {};
    if (found.empty() && IOObjectGetClass(child, name) == KERN_SUCCESS) found = name;
  });
  return found;
}

void add_interfaces(io_service_t device, usb_details* details) {
  for_each_child(device, [details](io_registry_entry_t child) {
    const std::optional<UInt32> interface = property(child, CFSTR("bInterfaceNumber")).number();
    if (!interface.has_value()) return;
    details->active_configuration = number<std::uint8_t>(child, CFSTR("bConfigurationValue"));
    usb_interface& made = details->interfaces.emplace_back();
    made.number = static_cast<std::uint8_t>(*interface);
    made.class_code = number<std::uint8_t>(child, CFSTR("bInterfaceClass"));
    made.subclass = number<std::uint8_t>(child, CFSTR("bInterfaceSubClass"));
    made.protocol = number<std::uint8_t>(child, CFSTR("bInterfaceProtocol"));
    made.name = text(child, CFSTR("kUSBString"), CFSTR("USB Interface Name")).value_or("");
    made.driver = driver_of(child);
  });
}

// Empty if the device is not the record's. A string that the registry lacks is not compared.
std::optional<usb_details> read_details(io_service_t device, const record_key& record) {
  usb_details details;
  details.vendor = number<std::uint16_t>(device, CFSTR("idVendor"));
  details.product = number<std::uint16_t>(device, CFSTR("idProduct"));
  details.release = number<std::uint16_t>(device, CFSTR("bcdDevice"));
  if (details.vendor != record.vendor || details.product != record.product ||
      details.release != record.release)
    return std::nullopt;
  const struct {
    CFStringRef key, older;
    const YString& kept;
    std::string& whole;
  } strings[] = {
      {CFSTR("kUSBVendorString"), CFSTR("USB Vendor Name"), record.manufacturer, details.manufacturer},
      {CFSTR("kUSBProductString"), CFSTR("USB Product Name"), record.product_name, details.product_name},
      {CFSTR("kUSBSerialNumberString"), CFSTR("USB Serial Number"), record.serial_number,
       details.serial_number}};
  for (const auto& [key, older, kept, whole] : strings) {
    const std::optional<std::string> found = text(device, key, older);
    if (!found.has_value()) continue;
    if (!same_string(kept, *found)) return std::nullopt;
    whole = valid_utf8(*found);
  }
  details.bus = record.location >> 24;
  details.address = property(device, CFSTR("kUSBAddress"))
                        .number()
                        .value_or(number<std::uint32_t>(device, CFSTR("USB Address")));
  details.port_path = path_of_location(record.location);
  details.usb_version = number<std::uint16_t>(device, CFSTR("bcdUSB"));
  details.class_code = number<std::uint8_t>(device, CFSTR("bDeviceClass"));
  details.subclass = number<std::uint8_t>(device, CFSTR("bDeviceSubClass"));
  details.protocol = number<std::uint8_t>(device, CFSTR("bDeviceProtocol"));
  details.speed = speed_of(device);
  details.configurations = number<std::uint8_t>(device, CFSTR("bNumConfigurations"));
  add_interfaces(device, &details);
  return details;
}

}  // namespace

std::optional<usb_details> registry_details(const record_key& record) {
  std::optional<usb_details> details;
  io_iterator_t devices = IO_OBJECT_NULL;
  if (!find_devices(&devices)) return details;
  while (const io_service_t device = IOIteratorNext(devices)) {
    if (!details.has_value() && location_of(device) == record.location)
      details = read_details(device, record);
    IOObjectRelease(device);
  }
  if (devices != IO_OBJECT_NULL) IOObjectRelease(devices);
  return details;
}

}  // namespace yusb::port

std::optional<yusb::usb_details> yusb::device_details(const YUsbInfoDevice& record, std::error_code& error) {
  error.clear();
  return device_details(record);
}

std::optional<yusb::usb_details> yusb::device_details(const YUsbInfoDevice& record) {
  return port::registry_details(port::record_key(record));
}
