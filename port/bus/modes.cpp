#include <array>
#include <iterator>

#include <yusb_details.h>

namespace yusb {

namespace {

constexpr int any = -1;

struct interface_rule {
  device_mode mode;
  int class_code, subclass, protocol;
};

constexpr interface_rule interface_rules[] = {
    // Android, platform/packages/modules/adb, adb.h: ADB_CLASS and ADB_DBC_CLASS, the latter over the xHCI
    // debug capability; systemd's hwdb.d/70-debug-appliance.hwdb has the same.
    {device_mode::adb, 0xFF, 0x42, 0x01},
    {device_mode::adb, 0xDC, 0x02, 0x01},
    // Android, platform/system/core, fastboot/fastboot.cpp: match_fastboot.
    {device_mode::fastboot, 0xFF, 0x42, 0x03},

    // Linux, drivers/net/usb/rndis_host.c: the USB-IF's RNDIS over wireless, ActiveSync, and RNDIS as a kind
    // of modem. RNDIS over Ethernet, ef/04/01, is the USB-IF's class "Miscellaneous".
    {device_mode::tethering, 0xE0, 0x01, 0x03},
    {device_mode::tethering, 0xEF, 0x01, 0x01},
    {device_mode::tethering, 0xEF, 0x04, 0x01},
    {device_mode::tethering, 0x02, 0x02, 0xFF},
    // USB-IF, Class Definitions for Communications Devices 1.2, table 4: ECM, EEM, NCM.
    {device_mode::tethering, 0x02, 0x06, any},
    {device_mode::tethering, 0x02, 0x0C, 0x07},
    {device_mode::tethering, 0x02, 0x0D, any},
    // Linux, drivers/net/usb/ipheth.c: IPHETH_USBINTF_CLASS and what follows it.
    {device_mode::tethering, 0xFF, 0xFD, 0x01},
    // usbmuxd, src/usb.h: INTERFACE_CLASS, INTERFACE_SUBCLASS, INTERFACE_PROTOCOL.
    {device_mode::usbmux, 0xFF, 0xFE, 0x02},

    // USB-IF, Defined Class Codes, https://www.usb.org/defined-class-codes, and the class documents it names.
    {device_mode::audio, 0x01, 0x01, any},
    {device_mode::audio, 0x01, 0x02, any},
    {device_mode::midi, 0x01, 0x03, any},
    {device_mode::hid, 0x03, any, any},
    {device_mode::printer, 0x07, any, any},
    {device_mode::mass_storage, 0x08, any, any},
    {device_mode::hub, 0x09, any, any},
    {device_mode::smart_card, 0x0B, any, any},
    {device_mode::video, 0x0E, any, any},
    {device_mode::bluetooth, 0xE0, 0x01, 0x01},
};

struct id_rule {
  device_mode mode;
  std::uint16_t vendor, product;
};

constexpr id_rule id_rules[] = {
    // Android Open Accessory 2.0: https://source.android.com/docs/core/interaction/accessories/aoa2. 2d02 and
    // 2d03 are audio only and recognised by their interfaces.
    {device_mode::accessory, 0x18D1, 0x2D00},
    {device_mode::accessory, 0x18D1, 0x2D01},
    {device_mode::accessory, 0x18D1, 0x2D04},
    {device_mode::accessory, 0x18D1, 0x2D05},
    // The USB ID repository, http://www.linux-usb.org/usb.ids: "Mobile Device (DFU Mode)", "Apple Mobile
    // Device [Recovery Mode]", "(QDL mode)", "MT65xx Preloader", "(Download mode)".
    {device_mode::dfu, 0x05AC, 0x1227},
    {device_mode::recovery, 0x05AC, 0x1281},
    {device_mode::edl, 0x05C6, 0x9008},
    {device_mode::preloader, 0x0E8D, 0x2000},
    {device_mode::download, 0x04E8, 0x685D},
};

bool matches(int wanted, std::uint8_t found) { return wanted == any || wanted == found; }

void add_modes(mode_set& modes, std::uint8_t class_code, std::uint8_t subclass, std::uint8_t protocol) {
  for (const interface_rule& rule : interface_rules) {
    if (rule.class_code == class_code && matches(rule.subclass, subclass) && matches(rule.protocol, protocol))
      modes.insert(rule.mode);
  }
  // USB-IF, Device Firmware Upgrade 1.1, table 4.1: protocol 1 is a device in its run-time mode. Devices of
  // version 1.0, and Apple's, have protocol 0 in DFU mode.
  if (class_code == 0xFE && subclass == 0x01 && protocol != 0x01) modes.insert(device_mode::dfu);
  // CDC 1.2, table 4. RNDIS, above, is not a serial port.
  if (class_code == 0x02 && subclass == 0x02 && protocol != 0xFF) modes.insert(device_mode::serial);
}

// The class is that of PTP, ISO 15740, which MTP extends; ff/ff/00 is from Android's kernels,
// drivers/usb/gadget, f_mtp.c. Both of Android's implementations name an MTP interface "MTP".
void add_media_modes(mode_set& modes, const usb_interface& each) {
  const bool still_image = each.class_code == 0x06 && each.subclass == 0x01 && each.protocol == 0x01;
  const bool vendor = each.class_code == 0xFF && each.subclass == 0xFF && each.protocol == 0x00;
  if (each.name == "MTP" && (still_image || vendor)) {
    modes.insert(device_mode::mtp);
  } else if (still_image) {
    modes.insert(device_mode::ptp);
  }
}

constexpr std::array<const char*, device_mode_count> names = {
    "adb",      "fastboot", "mtp", "ptp",        "mass-storage", "tethering", "accessory", "usbmux",
    "recovery", "dfu",      "edl", "preloader",  "download",     "audio",     "midi",      "serial",
    "hid",      "printer",  "hub", "smart-card", "video",        "bluetooth"};

}  // namespace

const char* to_string(device_mode mode) noexcept { return names[static_cast<std::size_t>(mode)]; }

std::optional<device_mode> parse_device_mode(std::string_view name) noexcept {
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (name == names[i]) return static_cast<device_mode>(i);
  }
  return std::nullopt;
}

mode_set device_modes(const usb_details& details) noexcept {
  mode_set modes;
  for (const id_rule& rule : id_rules) {
    if (rule.vendor == details.vendor && rule.product == details.product) modes.insert(rule.mode);
  }
  add_modes(modes, details.class_code, details.subclass, details.protocol);
  for (const usb_interface& each : details.interfaces) {
    add_modes(modes, each.class_code, each.subclass, each.protocol);
    add_media_modes(modes, each);
  }
  return modes;
}

}  // namespace yusb
