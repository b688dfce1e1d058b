// Waits until simulated devices can be opened.
#ifndef YORVAN_PORT_SIMULATOR_NODES_H_
#define YORVAN_PORT_SIMULATOR_NODES_H_

#include <functional>
#include <map>

#include "bus/nodes.h"
#include "simulator/attachment.h"

namespace yusb::port {

class simulated_nodes final : public node_watch {
 public:
  // `find` returns the attached device of a record, or null.
  using finder = std::function<std::shared_ptr<attachment>(const record_key&)>;
  explicit simulated_nodes(finder find);
  ~simulated_nodes() override;

  void add(unsigned id, const record_key& record) override;
  void remove(unsigned id) override;
  std::array<int, 2> poll_fds() const override { return {_changed, -1}; }
  std::optional<clock::time_point> due() const override;
  std::optional<answer> next() override;
  openability check(unsigned id) override;

 private:
  const finder _find;
  const int _changed;                                       // an eventfd, readable after a change of a device
  std::map<unsigned, std::shared_ptr<attachment>> _waited;  // null if the device was gone from the start
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_SIMULATOR_NODES_H_
