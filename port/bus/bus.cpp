#include "bus/bus.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace yusb::port {

namespace {

std::atomic<bus*> _chosen{nullptr};

}  // namespace

void control_request::answer(const std::uint8_t* bytes, std::size_t size) {
  transferred = static_cast<std::uint32_t>(std::min<std::size_t>(size, length));
  if (transferred != 0) std::memcpy(data, bytes, transferred);
}

std::uint32_t field_value(device_field field, const device_numbers& numbers, std::uint32_t location,
                          const std::array<std::uint8_t, 3>& string_index) {
  switch (field) {
    case device_field::vendor:
      return numbers.vendor;
    case device_field::product:
      return numbers.product;
    case device_field::release:
      return numbers.release;
    case device_field::location:
      return location;
    case device_field::manufacturer_index:
      return string_index[0];
    case device_field::product_index:
      return string_index[1];
    case device_field::serial_number_index:
      return string_index[2];
  }
  return 0;
}

void set_bus(bus* chosen) { _chosen = chosen; }

bus& current_bus() {
  bus* const chosen = _chosen;
  return chosen == nullptr ? real_bus() : *chosen;
}

std::unique_ptr<node_watch> watch_nodes() { return current_bus().watch_nodes(); }

}  // namespace yusb::port
