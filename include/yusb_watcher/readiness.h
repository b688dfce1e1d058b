// The file descriptor of a watch queue. Part of <yusb_watcher.h>, which includes it.
#ifndef YUSB_WATCHER_READINESS_H_
#define YUSB_WATCHER_READINESS_H_

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/eventfd.h>
#endif

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace yusb {
namespace detail {

// A descriptor that is readable while it is set: an eventfd on Linux, a pipe elsewhere. The first call of
// descriptor() opens it; before that, set() does nothing. Not thread-safe.
class readiness {
 public:
  readiness() = default;
  readiness(const readiness&) = delete;
  readiness& operator=(const readiness&) = delete;
  ~readiness() {
    if (_read_end != -1) ::close(_read_end);
    if (_write_end != _read_end) ::close(_write_end);
  }

  // Always returns the same descriptor. Throws std::system_error if it cannot be opened.
  int descriptor() {
    if (_read_end == -1) open();
    return _read_end;
  }

  // Makes a system call only if this changes the state.
  void set(bool readable) noexcept {
    if (_read_end == -1 || readable == _readable) return;
    std::uint64_t token = 1;  // 8 bytes, as an eventfd requires
    const ssize_t done = readable ? ::write(_write_end, &token, sizeof token)  //
                                  : ::read(_read_end, &token, sizeof token);
    _readable = readable && done == static_cast<ssize_t>(sizeof token);
  }

 private:
  void open() {
#ifdef __linux__
    _read_end = _write_end = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
#else
    int ends[2];
    if (::pipe(ends) == 0) {
      for (const int end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
      }
      _read_end = ends[0];
      _write_end = ends[1];
    }
#endif
    if (_read_end == -1) {
      throw std::system_error(errno, std::generic_category(), "yusb::watch_queue::descriptor");
    }
  }

  int _read_end = -1;
  int _write_end = -1;
  bool _readable = false;
};

}  // namespace detail
}  // namespace yusb

#endif  // YUSB_WATCHER_READINESS_H_
