#include "apple/instance_counter.h"

#include <array>
#include <atomic>

namespace yusb::port {

namespace {

std::array<std::atomic<long>, static_cast<std::size_t>(object_kind::count)> _alive{};

}  // namespace

const char* name_of(object_kind kind) {
  static constexpr const char* names[] = {
      "number",  "matching dictionary", "run loop", "notification port", "iterator", "service",
      "plug-in", "device interface"};
  return names[static_cast<std::size_t>(kind)];
}

long alive(object_kind kind) { return _alive[static_cast<std::size_t>(kind)]; }

instance_counter::instance_counter(object_kind kind) : _kind(kind) {
  ++_alive[static_cast<std::size_t>(_kind)];
}
instance_counter::~instance_counter() { --_alive[static_cast<std::size_t>(_kind)]; }

}  // namespace yusb::port
