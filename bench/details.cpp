// The details of a device compared with the baseline, libudev and libusb, on one tree.
#include <fcntl.h>
#include <libudev.h>
#include <libusb.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <yusb_bus.h>
#include <yusb_details.h>

#include "benchmarks.h"
#include "host.h"

namespace bench {

namespace {

using yusb::usb_details;

constexpr int device_count = 101;

std::vector<YUsbInfoDevice> _records;  // of all devices
std::vector<std::string> _paths;       // "1-2.3", in the same order

void list_devices() {
  attach_until(device_count);
  if (!_records.empty()) return;
  yusb::global_initialize();
  yusb::bus_settle();
  yusb::device_traverse(nullptr, [](const YUsbInfoDevice& record) {
    const auto details = yusb::device_details(record);
    if (!details.has_value() || details->interfaces.size() != 1 || details->interfaces[0].driver.empty()) {
      std::fprintf(stderr, "yusb_bench: %s has no details\n", record.location().data());
      std::exit(1);
    }
    _records.push_back(record);
    _paths.push_back(details->port_path);
    return true;
  });
  yusb::global_release();
}

// ---- The baseline: reads the same files without validating them ----

usb_details read_plainly(const std::string& path) {
  char text[512];
  std::snprintf(text, sizeof text, "/sys/bus/usb/devices/%s", path.c_str());
  const int directory = open(text, O_PATH | O_DIRECTORY | O_CLOEXEC);
  const auto read_file = [&](const char* name, char* into, std::size_t size) -> std::size_t {
    const int file = openat(directory, name, O_RDONLY | O_CLOEXEC);
    const ssize_t got = file < 0 ? 0 : read(file, into, size - 1);
    if (file >= 0) close(file);
    into[got > 0 ? got : 0] = '\0';
    return got > 0 ? static_cast<std::size_t>(got) : 0;
  };
  const auto number = [&](const char* name) {
    read_file(name, text, sizeof text);
    return static_cast<unsigned>(std::strtoul(text, nullptr, 10));
  };
  const auto string = [&](const char* name) {
    const std::size_t size = read_file(name, text, sizeof text);
    return std::string(text, size == 0 ? 0 : size - 1);  // without the line feed
  };

  usb_details found;
  unsigned char bytes[4096];
  const std::size_t size = read_file("descriptors", reinterpret_cast<char*>(bytes), sizeof bytes);
  const auto word = [&](int at) { return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8); };
  found.usb_version = word(2);
  found.class_code = bytes[4];
  found.subclass = bytes[5];
  found.protocol = bytes[6];
  found.vendor = word(8);
  found.product = word(10);
  found.release = word(12);
  found.configurations = bytes[17];
  found.manufacturer = string("manufacturer");
  found.product_name = string("product");
  found.serial_number = string("serial");
  found.address = number("devnum");
  read_file("speed", text, sizeof text);
  found.speed = std::strtod(text, nullptr);
  found.active_configuration = static_cast<std::uint8_t>(number("bConfigurationValue"));
  found.port_path = path;
  found.bus = static_cast<std::uint32_t>(std::strtoul(path.c_str() + (path[0] == 'u' ? 3 : 0), nullptr, 10));
  std::snprintf(text, sizeof text, "/dev/bus/usb/%03u/%03u", found.bus, found.address);
  found.device_node = text;
  bool active = false;
  for (std::size_t at = 18; at + 2 <= size && bytes[at] >= 2; at += bytes[at]) {
    const unsigned char* const each = bytes + at;
    if (each[1] == 2) active = each[5] == found.active_configuration;
    if (each[1] == 2 && active) found.max_power = static_cast<std::uint16_t>(each[8] * 2);
    if (each[1] != 4 || !active) continue;
    yusb::usb_interface& made = found.interfaces.emplace_back();
    made.number = each[2];
    made.class_code = each[5];
    made.subclass = each[6];
    made.protocol = each[7];
    char link[256];
    if (path[0] == 'u') std::snprintf(text, sizeof text, "%s-0:1.%u/driver", path.c_str() + 3, made.number);
    if (path[0] != 'u') std::snprintf(text, sizeof text, "%s:1.%u/driver", path.c_str(), made.number);
    const ssize_t length = readlinkat(directory, text, link, sizeof link - 1);
    link[length > 0 ? length : 0] = '\0';
    made.driver = std::strrchr(link, '/') + 1;
  }
  close(directory);
  return found;
}

// ---- libudev ----

usb_details read_with_libudev(udev* context, const std::string& path) {
  usb_details found;
  udev_device* const device = udev_device_new_from_subsystem_sysname(context, "usb", path.c_str());
  const auto text = [](udev_device* of, const char* name) {
    const char* const value = udev_device_get_sysattr_value(of, name);
    return value == nullptr ? "" : value;
  };
  const auto number = [&](udev_device* of, const char* name, int base) {
    return static_cast<unsigned>(std::strtoul(text(of, name), nullptr, base));
  };
  const auto byte = [&](udev_device* of, const char* name) {
    return static_cast<std::uint8_t>(number(of, name, 16));
  };
  found.vendor = static_cast<std::uint16_t>(number(device, "idVendor", 16));
  found.product = static_cast<std::uint16_t>(number(device, "idProduct", 16));
  found.release = static_cast<std::uint16_t>(number(device, "bcdDevice", 16));
  found.bus = number(device, "busnum", 10);
  found.address = number(device, "devnum", 10);
  found.port_path = udev_device_get_sysname(device);
  found.device_node = udev_device_get_devnode(device);
  found.usb_version = static_cast<std::uint16_t>(std::strtod(text(device, "version"), nullptr) * 0x100);
  found.class_code = byte(device, "bDeviceClass");
  found.subclass = byte(device, "bDeviceSubClass");
  found.protocol = byte(device, "bDeviceProtocol");
  found.speed = std::strtod(text(device, "speed"), nullptr);
  found.configurations = byte(device, "bNumConfigurations");
  found.active_configuration = byte(device, "bConfigurationValue");
  found.max_power = static_cast<std::uint16_t>(number(device, "bMaxPower", 10));
  found.manufacturer = text(device, "manufacturer");
  found.product_name = text(device, "product");
  found.serial_number = text(device, "serial");
  const std::string folder = udev_device_get_syspath(device);
  const std::string prefix = path[0] == 'u' ? path.substr(3) + "-0" : path;
  for (unsigned i = 0; i < number(device, "bNumInterfaces", 10); ++i) {
    udev_device* const interface =
        udev_device_new_from_syspath(context, (folder + "/" + prefix + ":1." + std::to_string(i)).c_str());
    yusb::usb_interface& made = found.interfaces.emplace_back();
    made.number = byte(interface, "bInterfaceNumber");
    made.class_code = byte(interface, "bInterfaceClass");
    made.subclass = byte(interface, "bInterfaceSubClass");
    made.protocol = byte(interface, "bInterfaceProtocol");
    made.driver = udev_device_get_driver(interface);
    udev_device_unref(interface);
  }
  udev_device_unref(device);
  return found;
}

// ---- libusb: without strings and drivers, since it would have to open the device for them ----

void list_with_libusb(std::vector<usb_details>& all) {
  libusb_context* context = nullptr;
  libusb_device** devices = nullptr;
  libusb_init(&context);
  const ssize_t count = libusb_get_device_list(context, &devices);
  for (ssize_t i = 0; i < count; ++i) {
    usb_details& found = all.emplace_back();
    libusb_device_descriptor descriptor;
    libusb_get_device_descriptor(devices[i], &descriptor);
    found.vendor = descriptor.idVendor;
    found.product = descriptor.idProduct;
    found.bus = libusb_get_bus_number(devices[i]);
    found.address = libusb_get_device_address(devices[i]);
    std::uint8_t ports[7];
    found.port_path.assign(reinterpret_cast<const char*>(ports),
                           static_cast<std::size_t>(libusb_get_port_numbers(devices[i], ports, 7)));
    found.speed = libusb_get_device_speed(devices[i]);
    libusb_config_descriptor* configuration = nullptr;
    if (libusb_get_active_config_descriptor(devices[i], &configuration) != 0) continue;
    found.max_power = static_cast<std::uint16_t>(configuration->MaxPower * 2);
    for (int each = 0; each < configuration->bNumInterfaces; ++each) {
      const libusb_interface_descriptor& from = configuration->interface[each].altsetting[0];
      found.interfaces.push_back({from.bInterfaceNumber,
                                  from.bInterfaceClass,
                                  from.bInterfaceSubClass,
                                  from.bInterfaceProtocol,
                                  {},
                                  {}});
    }
    libusb_free_config_descriptor(configuration);
  }
  libusb_free_device_list(devices, 1);
  libusb_exit(context);
}

// Reads all devices once.
void read_all(const std::string& program) {
  std::vector<usb_details> all;
  all.reserve(device_count);
  if (program == "baseline") {
    for (const std::string& path : _paths) all.push_back(read_plainly(path));
  } else if (program == "library") {
    for (const YUsbInfoDevice& record : _records) all.push_back(*yusb::device_details(record));
  } else if (program == "libudev") {
    udev* const context = udev_new();
    for (const std::string& path : _paths) all.push_back(read_with_libudev(context, path));
    udev_unref(context);
  } else {
    list_with_libusb(all);
  }
  benchmark::DoNotOptimize(all);
}

constexpr const char* programs[] = {"baseline", "library", "libudev", "libusb"};

}  // namespace

void register_details() {
  for (const char* const program : programs) {
    benchmark::RegisterBenchmark(
        (std::string("details/") + program + "/each").c_str(), [program](auto& state) {
          list_devices();
          for (auto _ : state) read_all(program);
          state.counters["each"] = benchmark::Counter(
              device_count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
        });
  }
}

void count_details() {
  list_devices();
  for (const char* const program : programs) {
    const std::string name = std::string("details/") + program + "/each";
    read_all(program);
    begin_count();
    read_all(program);
    end_count(name, device_count);
  }
}

}  // namespace bench
