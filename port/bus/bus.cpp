#include "bus/bus.h"

#include <atomic>

namespace yusb::port {

namespace {

std::atomic<bus*> _chosen{nullptr};

}  // namespace

void set_bus(bus* chosen) { _chosen = chosen; }

bus& current_bus() {
  bus* const chosen = _chosen;
  return chosen == nullptr ? real_bus() : *chosen;
}

std::unique_ptr<node_watch> watch_nodes() { return current_bus().watch_nodes(); }

}  // namespace yusb::port
