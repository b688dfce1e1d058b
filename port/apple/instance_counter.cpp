#include "apple/instance_counter.h"

#include <atomic>
#include <string>
#include <vector>

#include <yusb_simulator.h>

namespace yusb::port {

namespace {

constexpr std::size_t kinds = static_cast<std::size_t>(object_kind::count);
constexpr const char* names[kinds] = {
    "number",  "matching dictionary", "run loop", "notification port", "iterator", "service",
    "plug-in", "device interface"};
std::atomic<long> _alive[kinds] = {};

}  // namespace

instance_counter::instance_counter(object_kind kind) : _kind(kind) {
  ++_alive[static_cast<std::size_t>(_kind)];
}
instance_counter::~instance_counter() { --_alive[static_cast<std::size_t>(_kind)]; }

}  // namespace yusb::port

std::vector<std::string> yusb::simulator::leaks() {
  std::vector<std::string> found;
  for (std::size_t i = 0; i < port::kinds; ++i) {
    if (const long left = port::_alive[i])
      found.push_back(std::string(port::names[i]) + ": " + std::to_string(left));
  }
  return found;
}
