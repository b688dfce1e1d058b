// The answers of a device of the Linux bus.
#include <dlfcn.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "mocked_bus.h"

namespace {

// Answers the control transfers of this thread; umockdev's worker thread makes some too.
thread_local std::function<int(usbdevfs_ctrltransfer*)> _control;

}  // namespace

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (request == USBDEVFS_CONTROL) return _control(static_cast<usbdevfs_ctrltransfer*>(argument));
  return reinterpret_cast<decltype(&ioctl)>(dlsym(RTLD_NEXT, "ioctl"))(descriptor, request, argument);
}

namespace yusb::port {
namespace {

struct LinuxDevice : MockedBus {
  // Returns the value of a field of the latest device; -1 if it cannot be read.
  std::int64_t value(device_field field) {
    std::uint32_t found = 0;
    return latest().read(field, &found) == status_ok ? std::int64_t{found} : -1;
  }

  // Requests a string from the same device and stores it in `reply`.
  port::status ask(int index, std::uint16_t length = 255) {
    reply.assign(255, '\xEE');
    const auto wanted = static_cast<std::uint16_t>(0x300 | index);
    control_request request = {0x80, 6, wanted, 0x0409, length, reply.data(), 0};
    const port::status status = latest().control(request);
    reply.resize(request.transferred);
    return status;
  }

  std::string reply;
};

TEST_F(LinuxDevice, AnswersWithStringsFromTheKernelsCache) {
  std::string full;
  for (int i = 0; i < 127; ++i) full += "中";
  plug("1-1", 5, {" \xC3\xA9\xF0\x9F\x98\x80\nx\n", "\xED\xA0\x80", full + "\n"});
  changes();
  EXPECT_EQ(ask(7), status_ok);
  EXPECT_EQ(reply, std::string("\x0E\x03 \0\xE9\0\x3D\xD8\0\xDE\n\0x\0", 14));
  EXPECT_EQ(ask(7, 5), status_ok);
  EXPECT_EQ(reply.size(), 5u);
  EXPECT_EQ(ask(8), status_ok);
  EXPECT_EQ(reply, "\x08\x03\xFD\xFF\xFD\xFF\xFD\xFF") << "a surrogate in UTF-8 is three invalid bytes";
  EXPECT_EQ(ask(9), status_ok);
  EXPECT_EQ(reply.size(), 254u);
  plug("1-2", 6, {std::string(125, 'x') + "\U0001F600\n"});
  changes();
  EXPECT_EQ(ask(7), status_ok);
  EXPECT_EQ(reply.size(), 252u) << "half a pair of surrogates is no character";
}

TEST_F(LinuxDevice, AsksTheDeviceItselfForWhatTheCacheLacks) {
  plug("1-1", 5, {"known\n"});
  changes();
  EXPECT_EQ(value(device_field::product_index), 8);
  unsigned limit = 0;
  _control = [&](usbdevfs_ctrltransfer* transfer) {
    limit = transfer->timeout;
    EXPECT_EQ(transfer->wValue, 0x0309);
    std::memcpy(transfer->data, "\4\3x", 4);
    return 4;
  };
  EXPECT_EQ(ask(7), status_ok);
  EXPECT_EQ(limit, 0u) << "not for what it has";
  EXPECT_EQ(ask(9), status_ok);
  EXPECT_EQ(reply, std::string("\4\3x", 4));
  EXPECT_EQ(limit, 500u);
  for (const auto& [error, status] : {std::pair(EPIPE, status_stalled),
                                      {EINTR, status_timeout},
                                      {ENODEV, status_no_device},
                                      {EIO, status_error}}) {
    _control = [error = error](auto*) { return errno = error, -1; };
    EXPECT_EQ(ask(9), status) << std::strerror(error);
  }
}

TEST_F(LinuxDevice, HasItsNumbersOnlyIfItWasGoneBeforeItWasRead) {
  changes();
  const auto expect_numbers_until_removal = [this](const char* path) {
    EXPECT_EQ(changes().substr(0, 1), "+");
    EXPECT_EQ(value(device_field::release), 0x0100);
    EXPECT_EQ(value(device_field::serial_number_index), 0);
    announce(path, "remove");
    EXPECT_EQ(changes().substr(0, 1), "-");
    EXPECT_EQ(value(device_field::release), -1);
  };
  plug("1-1", 5, {"M", "P", "S"});
  vanish("1-1");
  expect_numbers_until_removal("1-1");
  plug("1-2", 5, {"M", "P", "S"});
  replace("1-2", "005", "6\n");
  expect_numbers_until_removal("1-2");
}

}  // namespace
}  // namespace yusb::port
