// One device of the simulated bus: its description and its state.
#ifndef YORVAN_PORT_SIMULATOR_ATTACHMENT_H_
#define YORVAN_PORT_SIMULATOR_ATTACHMENT_H_

#include <chrono>
#include <mutex>
#include <vector>

#include <yusb_openable.h>
#include <yusb_simulator.h>

#include "bus/bus.h"

namespace yusb::port {

// Shared by the simulator and the holders of the device. Functions that it adds to `device` may be called on
// any thread.
class attachment : public device {
 public:
  using clock = std::chrono::steady_clock;

  attachment(const simulated_device& described, int id);

  interface_result plugin() override { return {_described.plugin_status, !_described.plugin_missing}; }
  interface_result device_interface() override {
    return {_described.interface_status, !_described.interface_missing};
  }
  port::status read(device_field field, std::uint32_t* value) override;
  port::status control(control_request& request) override;
  std::optional<std::uint32_t> registry_location() override;

  // Empty if the record is not of this device, that is, if the library would have read another record from
  // it.
  std::optional<usb_details> details(const record_key& record);

  std::vector<simulated_request> requests() const;

  void leave();
  void open_node();

  // `openable`, `gone`, or `timed_out` if neither.
  openability node() const;
  // The time at which it becomes openable; time_point::max() if only open_node makes it openable.
  clock::time_point opens_at() const;
  // notify() makes an eventfd readable whenever node() may have changed, until forget().
  void notify(int eventfd);
  void forget(int eventfd);

 private:
  simulated_reply answer(const control_request& request) const;
  void change() const;

  const simulated_device _described;
  const int _id;
  mutable std::mutex _mutex;
  bool _gone = false;                        // under _mutex
  clock::time_point _opens_at;               // under _mutex
  std::vector<int> _notified;                // under _mutex
  std::vector<simulated_request> _requests;  // under _mutex
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_SIMULATOR_ATTACHMENT_H_
