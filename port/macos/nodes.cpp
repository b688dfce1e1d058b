// macOS has no device nodes: IOKit decides when a device is opened. Never run on a Mac.
#include <map>

#include "bus/nodes.h"
#include "macos/details.h"

namespace yusb::port {

namespace {

// A device is openable if it is attached.
class registry_nodes final : public node_watch {
 public:
  void add(unsigned id, const record_key& record) override { _added.emplace(id, record); }
  void remove(unsigned id) override { _added.erase(id); }
  std::array<int, 2> poll_fds() const override { return {-1, -1}; }
  std::optional<clock::time_point> due() const override { return std::nullopt; }

  std::optional<answer> next() override {
    if (_added.empty()) return std::nullopt;
    const unsigned id = _added.begin()->first;
    const answer found = {id, check(id)};
    remove(id);
    return found;
  }

  openability check(unsigned id) override {
    const auto found = _added.find(id);
    const bool attached = found != _added.end() && registry_details(found->second).has_value();
    return attached ? openability::openable : openability::gone;
  }

 private:
  std::map<unsigned, record_key> _added;
};

}  // namespace

std::unique_ptr<node_watch> watch_nodes() { return std::make_unique<registry_nodes>(); }

}  // namespace yusb::port
