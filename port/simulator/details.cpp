#include "simulator/details.h"

#include <yusb_location.h>

yusb::usb_details yusb::port::simulated_details(const simulated_device& described, int id) {
  usb_details details;
  details.vendor = described.vendor;
  details.product = described.product;
  details.release = described.release;
  details.address = static_cast<std::uint32_t>(id);
  details.port_path =
      described.port_path.empty() ? path_of_location(described.location) : described.port_path;
  // The location has no bus number above 255.
  details.bus = is_port_path(details.port_path) ? bus_of_path(details.port_path) : described.location >> 24;
  details.usb_version = described.usb_version;
  details.class_code = described.class_code;
  details.subclass = described.subclass;
  details.protocol = described.protocol;
  details.speed = described.speed;
  details.configurations = described.configurations;
  details.active_configuration = described.active_configuration;
  details.max_power = described.max_power;
  details.interfaces = described.interfaces;
  return details;
}
