#include "filter.h"

#include <utility>
#include <vector>

#include <yusb_details.h>

#include "convert.h"

namespace yusb::c {

namespace {

constexpr std::uint32_t interface_fields =
    YUSB_MATCH_INTERFACE_CLASS | YUSB_MATCH_INTERFACE_SUBCLASS | YUSB_MATCH_INTERFACE_PROTOCOL;
constexpr std::uint32_t all_fields =
    YUSB_MATCH_VENDOR | YUSB_MATCH_PRODUCT | YUSB_MATCH_CLASS | interface_fields;
constexpr std::uint32_t all_tags = YUSB_APPLE | YUSB_AIRPODS | YUSB_ANDROID;

yusb_status make_one(const yusb_filter& given, device_filter* made) {
  if ((given.fields & ~all_fields) != 0 || (given.tags & ~all_tags) != 0 ||
      given.modes >> device_mode_count != 0) {
    return YUSB_UNSUPPORTED;
  }
  const auto has = [&](std::uint32_t field) { return (given.fields & field) != 0; };
  if ((given.fields & interface_fields) != 0 && !has(YUSB_MATCH_INTERFACE_CLASS))
    return YUSB_INVALID_ARGUMENT;
  const auto serial_number = record_text(given.serial_number), location = record_text(given.location);
  if (!serial_number || !location || !is_utf8(given.port_path) || !is_utf8(given.name))
    return YUSB_INVALID_ARGUMENT;

  device_filter all;
  const auto require = [&all](device_filter one) {
    all = all ? both(std::move(all), std::move(one)) : std::move(one);
  };
  if (has(YUSB_MATCH_VENDOR)) require(with_vendor(given.vendor));
  if (has(YUSB_MATCH_PRODUCT)) {
    require(
        [product = given.product](const YUsbInfoDevice& device) { return device.productID() == product; });
  }
  if ((given.tags & YUSB_APPLE) != 0) require(device_is_apple);
  if ((given.tags & YUSB_AIRPODS) != 0) require(device_is_airpods);
  if ((given.tags & YUSB_ANDROID) != 0) require(device_is_android);
  if (given.serial_number != nullptr) require(with_serial_number(*serial_number));
  if (given.location != nullptr) require(with_location(*location));

  // Last, because these read the bus.
  if (given.port_path != nullptr) require(with_port(given.port_path));
  if (given.name != nullptr) require(with_name(given.name));
  if (has(YUSB_MATCH_CLASS)) require(with_class(given.class_code));
  if (has(YUSB_MATCH_INTERFACE_CLASS)) {
    const auto optional = [&](std::uint32_t field, std::uint8_t value) {
      return has(field) ? std::optional<std::uint8_t>(value) : std::nullopt;
    };
    require(with_interface(given.interface_class,
                           optional(YUSB_MATCH_INTERFACE_SUBCLASS, given.interface_subclass),
                           optional(YUSB_MATCH_INTERFACE_PROTOCOL, given.interface_protocol)));
  }
  for (unsigned mode = 0; mode < device_mode_count; ++mode) {
    if ((given.modes >> mode & 1) != 0) require(with_mode(static_cast<device_mode>(mode)));
  }
  if (!all) all = [](const YUsbInfoDevice&) { return true; };
  *made = given.except ? except(std::move(all)) : std::move(all);
  return YUSB_OK;
}

}  // namespace

yusb_status make_filter(const yusb_filter* filters, std::size_t count, device_filter* made) {
  std::vector<yusb_filter> copies;
  if (const yusb_status status = read_structures(filters, count, &copies)) return status;
  for (const yusb_filter& each : copies) {
    device_filter one;
    if (const yusb_status status = make_one(each, &one)) return status;
    *made = *made ? either(std::move(*made), std::move(one)) : std::move(one);
  }
  return YUSB_OK;
}

}  // namespace yusb::c
