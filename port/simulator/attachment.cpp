#include "simulator/attachment.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <thread>

#include "bus/record_key.h"
#include "bus/string_descriptor.h"
#include "simulator/details.h"

namespace yusb::port {

attachment::attachment(const simulated_device& described, int id)
    : _described(described),
      _id(id),
      _opens_at(described.openable_after.has_value() ? clock::now() + *described.openable_after
                                                     : clock::time_point::max()) {}

port::status attachment::read(device_field field, std::uint32_t* value) {
  if (_described.failing.count(field) != 0) return status_error;
  const auto index = [](const auto& text, std::uint8_t used) {
    return text.has_value() ? used : std::uint8_t{0};
  };
  *value =
      field_value(field, {_described.vendor, _described.product, _described.release}, _described.location,
                  {index(_described.manufacturer, 1), index(_described.product_name, 2),
                   index(_described.serial_number, 3)});
  return status_ok;
}

port::status attachment::control(control_request& request) {
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    _requests.push_back(
        {request.request_type, request.request, request.value, request.index, request.length});
    if (_gone) return status_no_device;
  }
  const simulated_reply reply = answer(request);
  std::this_thread::sleep_for(reply.delay);
  if (reply.status != status_ok) return reply.status;
  request.answer(reply.bytes.data(), reply.bytes.size());
  return status_ok;
}

std::optional<std::uint32_t> attachment::registry_location() {
  return _described.location_property ? std::optional<std::uint32_t>(_described.location) : std::nullopt;
}

std::optional<usb_details> attachment::details(const record_key& record) {
  const auto value = [this](device_field field) {
    std::uint32_t found = 0;
    read(field, &found);
    return found;
  };
  if (value(device_field::location) != record.location || value(device_field::vendor) != record.vendor ||
      value(device_field::product) != record.product || value(device_field::release) != record.release)
    return std::nullopt;
  usb_details details = simulated_details(_described, _id);
  const struct {
    device_field index;
    const YString& kept;
    std::string& whole;
  } strings[] = {{device_field::manufacturer_index, record.manufacturer, details.manufacturer},
                 {device_field::product_index, record.product_name, details.product_name},
                 {device_field::serial_number_index, record.serial_number, details.serial_number}};
  constexpr std::uint16_t asked = 255;  // wLength of the library's requests: a longer reply is truncated
  for (const auto& [field, kept, whole] : strings) {
    simulated_reply reply;
    if (const std::uint32_t index = value(field); index != 0)
      reply = answer({0x80, 6, static_cast<std::uint16_t>(0x300 | index), 0x0409, asked, nullptr, 0});
    const std::size_t size = reply.status == status_ok ? std::min<std::size_t>(reply.bytes.size(), asked) : 0;
    if (!same_string(kept, reply.bytes.data(), size)) return std::nullopt;
    whole = decode_string_descriptor(reply.bytes.data(), size);
  }
  return details;
}

std::vector<simulated_request> attachment::requests() const {
  const std::lock_guard<std::mutex> lock(_mutex);
  return _requests;
}

void attachment::leave() {
  const std::lock_guard<std::mutex> lock(_mutex);
  _gone = true;
  change();
}

void attachment::open_node() {
  const std::lock_guard<std::mutex> lock(_mutex);
  _opens_at = std::min(_opens_at, clock::now());
  change();
}

openability attachment::node() const {
  const std::lock_guard<std::mutex> lock(_mutex);
  if (_gone) return openability::gone;
  return _opens_at <= clock::now() ? openability::openable : openability::timed_out;
}

attachment::clock::time_point attachment::opens_at() const {
  const std::lock_guard<std::mutex> lock(_mutex);
  return _opens_at;
}

void attachment::notify(int eventfd) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _notified.push_back(eventfd);
}

void attachment::forget(int eventfd) {
  const std::lock_guard<std::mutex> lock(_mutex);
  const auto found = std::find(_notified.begin(), _notified.end(), eventfd);
  if (found != _notified.end()) _notified.erase(found);
}

simulated_reply attachment::answer(const control_request& request) const {
  const int index = request.value & 0xFF;
  if (!request.is_for_string() || index < 1 || index > 3) return {status_stalled, {}, {}};
  const auto replaced = _described.replies.find(index);
  if (replaced != _described.replies.end()) return replaced->second;
  const std::optional<std::string>* const texts[] = {&_described.manufacturer, &_described.product_name,
                                                     &_described.serial_number};
  const std::optional<std::string>& text = *texts[index - 1];
  if (!text.has_value()) return {status_stalled, {}, {}};
  const string_descriptor made = encode_string_descriptor(*text);
  return {status_ok, {made.bytes.begin(), made.bytes.begin() + static_cast<std::ptrdiff_t>(made.size)}, {}};
}

// Call with _mutex held.
void attachment::change() const {
  for (const int each : _notified) eventfd_write(each, 1);
}

}  // namespace yusb::port
