// Details on the Linux bus, with umockdev's mocked sysfs; and the parser of descriptors.
#include <yusb_location.h>

#include "bus/descriptors.h"
#include "linux/details.h"
#include "mocked_bus.h"

namespace yusb::port {
namespace {

using bytes = std::string;

bytes operator""_hex(const char* text, std::size_t size) {
  bytes made;
  for (std::size_t i = 0; i + 1 < size; i += 2)
    made += static_cast<char>(std::strtoul(std::string(text + i, 2).c_str(), nullptr, 16));
  return made;
}

const bytes device = "1201100200000040AC05931307010A0B0C02"_hex;
bytes configuration(int value) { return "0902120001"_hex + static_cast<char>(value) + "0080FA"_hex; }

// Returns the interfaces of configuration 1, each as number and class: "0:8 1:255".
std::string interfaces(const bytes& descriptors) {
  const auto found = find_configuration(device + descriptors, 1);
  if (!found.has_value()) return "none";
  std::string text;
  for (const interface_descriptor& each : found->interfaces)
    text += std::to_string(each.number) + ":" + std::to_string(each.class_code) + " ";
  return text;
}

TEST(LinuxDetailsDescriptors, AreReadUpToTheFirstWhoseLengthCannotBe) {
  const bytes first = "090400000008065000"_hex, second = "090401000003000000"_hex;
  const bytes start = configuration(1) + first;
  EXPECT_EQ(interfaces(start + "0724"_hex + bytes(5, 4) + second), "0:8 1:3 ") << "others are skipped";
  for (const bytes& junk : {bytes(2, 0), "0104"_hex, "C804"_hex, "08"_hex})
    EXPECT_EQ(interfaces(start + junk + second).substr(0, 4), "0:8 ") << junk;
  EXPECT_EQ(interfaces(start + "0804010000030000"_hex), "0:8 ") << "too short for an interface";
  EXPECT_EQ(interfaces("0802120001010080"_hex + first), "none") << "too short for a configuration";
  EXPECT_EQ(interfaces(configuration(1) + "090400010001000000"_hex + "090400000002000000"_hex + first),
            "0:2 ")
      << "alternate setting 0, once";
  EXPECT_FALSE(parse_device_descriptor(device.substr(0, 17)).has_value());
}

struct LinuxDetails : MockedSysfs {
  // Attaches a device 05ac:1393, release 0107, whose strings have the indices 10, 11, 12.
  void plug(const std::string& path, const strings& attributes, const bytes& descriptors = configuration(1)) {
    std::string text = "P: /devices/" + path + "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nH: descriptors=";
    for (const char c : device + descriptors) text += YString::format("%02X", c & 0xFF).data();
    for (const std::string& each : attributes) text += "\nA: " + each;
    add(text + "\nA: devnum=7\\n");
  }

  void plug_interface(const std::string& device, const std::string& name, const strings& lines) {
    std::string text =
        "P: /devices/" + device + "/" + name + "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\n";
    for (const std::string& line : lines) text += line + "\n";
    add(text);
  }

  static YUsbInfoDevice record(const std::string& path, const device_texts& texts = {},
                               std::uint32_t moved = 0) {
    YUsbInfoDevice made =
        make_record(0x05AC, 0x1393, YString::format("0x%X", *location_of_path(path) + moved), nullptr, texts);
    made.setRevisedID(0x0107);
    return made;
  }

  static std::optional<usb_details> details_of(const record_key& record) {
    std::error_code error;
    std::optional<usb_details> found = linux_details(record, error);
    EXPECT_FALSE(error) << error.message();
    return found;
  }

  static record_key key(const std::string& path, const device_texts& texts = {}, std::uint32_t moved = 0) {
    return record_key(record(path, texts, moved));
  }
};

TEST_F(LinuxDetails, AreWhatSysfsHoldsOfTheDevice) {
  plug("1-2.3",
       {"speed=5000\\n", "bConfigurationValue=2\\n", "manufacturer=caf\\303\\251\\n",
        "product=\\344\\270\\255A\\n", "serial=0A1B\\n"},
       configuration(1) + "090400000008065000"_hex + configuration(2) + "0904050000FF420107"_hex +
           "090406000006010100"_hex);
  plug_interface("1-2.3", "1-2.3:2.5",
                 {"A: interface=ADB \\303\\251\\n", "L: driver=../../../bus/usb/drivers/usbfs"});
  plug_interface("1-2.3", "1-2.3:2.6", {});
  const auto found = details_of(key("1-2.3", {"caf\xE9", "\x2D\x41", "0A1B"}));
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(std::tie(found->vendor, found->product, found->release, found->usb_version),
            std::tuple(0x05AC, 0x1393, 0x0107, 0x0210));
  EXPECT_EQ(std::tie(found->bus, found->address, found->port_path, found->device_node),
            std::tuple(1u, 7u, "1-2.3", "/dev/bus/usb/001/007"));
  EXPECT_EQ(std::tie(found->speed, found->max_power, found->configurations, found->active_configuration),
            std::tuple(5000.0, 250 * 8, 2, 2));
  EXPECT_EQ(std::tie(found->manufacturer, found->product_name, found->serial_number),
            std::tuple("caf\u00E9", "\u4E2DA", "0A1B"));
  ASSERT_EQ(found->interfaces.size(), 2u);
  const usb_interface& adb = found->interfaces[0];
  EXPECT_EQ(std::tie(adb.number, adb.class_code, adb.subclass, adb.protocol, adb.name, adb.driver),
            std::tuple(5, 0xFF, 0x42, 0x01, "ADB \xC3\xA9", "usbfs"));
  EXPECT_EQ(found->interfaces[1].driver, "");
  EXPECT_EQ(found->interfaces[1].name, "");
}

TEST_F(LinuxDetails, AreThoseOfTheRecordsDeviceOnly) {
  plug("1-1", {"speed=1.5\\n", "bConfigurationValue=\\n", "product=P\\n", "serial=S\\n"});
  const YUsbInfoDevice same = record("1-1", {"asked of the device", "P", "S"});
  const auto found = details_of(record_key(same));
  ASSERT_TRUE(found.has_value()) << "a string that the kernel could not read is not compared";
  EXPECT_EQ(std::tie(found->speed, found->active_configuration, found->max_power), std::tuple(1.5, 0, 500));
  EXPECT_EQ(found->manufacturer, "");

  YUsbInfoDevice successor = same;
  successor.setRevisedID(1);
  EXPECT_FALSE(details_of(record_key(successor)).has_value());
  for (const auto change :
       {&YUsbInfoDevice::setDescribe, &YUsbInfoDevice::setSerialNumber, &YUsbInfoDevice::setLocation}) {
    YUsbInfoDevice other = same;
    (other.*change)("0x1200000");
    EXPECT_FALSE(details_of(record_key(other)).has_value());
  }
  umockdev_testbed_set_attribute(bed.get(), "/sys/devices/1-1", "devnum", "");
  EXPECT_FALSE(details_of(record_key(same)).has_value()) << "it is leaving";
}

TEST_F(LinuxDetails, AreFoundForALocationMadeFromAHash) {
  ASSERT_EQ(location_of_path("1-22"), location_of_path("1-174.7"));
  plug("usb1", {});
  for (const char* const path : {"1-22", "1-174.7", "300-1"})
    plug(path, {"serial=" + std::string(path), "product=P\\n", "manufacturer=M\\n"});
  const auto path_of = [](const record_key& record) {
    const auto found = details_of(record);
    return found.has_value() ? found->port_path : "";
  };
  EXPECT_EQ(path_of(key("1-22", {"M", "P", "1-22"})), "1-22");
  EXPECT_EQ(path_of(key("1-22", {"M", "P", "1-22"}, 1)), "1-22") << "it came second";
  EXPECT_EQ(path_of(key("1-22", {"M", "P", "1-174.7"}, 1)), "1-174.7");
  EXPECT_EQ(path_of(key("300-1", {"M", "P", "300-1"})), "300-1");
  EXPECT_EQ(path_of(key("1-22", {"M", "P", "1-22"}, 1000)), "");
}

TEST_F(LinuxDetails, AreReadWholeWhenDescriptorsFillManyPages) {
  bytes large = configuration(1);
  while (large.size() < 65536) large += "FF24"_hex + bytes(253, 4);
  plug("usb2", {"bConfigurationValue=1\\n", "speed=480\\n"}, large + "090400000009000000"_hex);
  plug_interface("usb2", "2-0:1.0", {"L: driver=../../../bus/usb/drivers/hub"});
  const auto found = details_of(key("usb2"));
  ASSERT_TRUE(found.has_value());
  ASSERT_EQ(found->interfaces.size(), 1u);
  EXPECT_EQ(found->interfaces[0].driver, "hub");
}

}  // namespace
}  // namespace yusb::port
