#include "linux/device.h"

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <chrono>

#include "bus/string_descriptor.h"

namespace yusb::port {

namespace {

using clock = std::chrono::steady_clock;

// The time limit for the first data packet of a standard request, USB 2.0 section 9.2.6.4.
constexpr std::chrono::milliseconds answer_limit{500};

port::status status_of(int error) {
  switch (error) {
    case EPIPE:
      return status_stalled;
    case ETIMEDOUT:
    case EINTR:
      return status_timeout;
    case EACCES:
    case EPERM:
      return status_not_permitted;
    case ENODEV:
    case ENOENT:
    case ENXIO:
    case ESHUTDOWN:
      return status_no_device;
    case EINVAL:
      return status_bad_argument;
    default:
      return status_error;
  }
}

}  // namespace

port::status linux_device::read(device_field field, std::uint32_t* value) {
  if (_devnum == 0 && field != device_field::location) return status_no_device;
  *value = field_value(field, _attributes.numbers, _location, _attributes.index);
  return status_ok;
}

port::status linux_device::control(control_request& request) {
  request.transferred = 0;
  if (request.data == nullptr && request.length != 0) return status_bad_argument;
  if (_devnum == 0) return status_no_device;
  const std::string_view known =
      request.is_for_string() ? text(static_cast<std::uint8_t>(request.value)) : "";
  if (known.empty()) return ask_device(request);
  const string_descriptor reply = encode_string_descriptor(known);
  request.answer(reply.bytes.data(), reply.size);
  return status_ok;
}

std::string_view linux_device::text(std::uint8_t index) const {
  std::size_t start = 0;
  for (std::size_t i = 0; i < _attributes.index.size(); ++i) {
    if (_attributes.index[i] == index && _attributes.size[i] != 0) {
      return std::string_view(_attributes.texts).substr(start, _attributes.size[i]);
    }
    start += _attributes.size[i];
  }
  return {};
}

port::status linux_device::ask_device(control_request& request) const {
  const unique_fd opened(open(device_node(_bus, _devnum).c_str(), O_RDWR | O_CLOEXEC));
  if (!opened) return status_of(errno);
  usbdevfs_ctrltransfer transfer = {
      request.request_type, request.request, request.value, request.index, request.length, 0, request.data};
  const clock::time_point end = clock::now() + answer_limit;
  for (auto left = answer_limit;;) {
    transfer.timeout = static_cast<std::uint32_t>(left.count());
    const int size = ioctl(opened.get(), USBDEVFS_CONTROL, &transfer);
    if (size >= 0) {
      request.transferred = static_cast<std::uint32_t>(size);
      return status_ok;
    }
    const int error = errno;
    left = std::chrono::duration_cast<std::chrono::milliseconds>(end - clock::now());
    // A time limit of 0 would mean no limit.
    if (error != EINTR || left.count() <= 0) return status_of(error);
  }
}

}  // namespace yusb::port
