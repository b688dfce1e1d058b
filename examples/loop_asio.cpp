// Prints the devices that are attached and detached, until Ctrl-C, in a C++20 coroutine on Asio.
#include <YorvanCore/YLog.h>
#include <fcntl.h>
#include <yusb_watcher.h>

#include <asio.hpp>
#include <csignal>
#include <exception>

#include "print_event.h"

asio::awaitable<void> print_events(yusb::watch_queue& queue) {
  // Asio closes its descriptor, so it gets a duplicate.
  const int copy = fcntl(queue.descriptor(), F_DUPFD_CLOEXEC, 0);
  asio::posix::stream_descriptor readable(co_await asio::this_coro::executor, copy);
  while (!queue.closed()) {
    co_await readable.async_wait(readable.wait_read, asio::use_awaitable);
    while (const auto event = queue.next(std::chrono::milliseconds(0))) print_event(*event);
  }
}

int main() {
  YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR);  // the default logs each arrival
  yusb::global_initialize();
  {
    yusb::watch_queue queue;
    asio::io_context loop;
    asio::co_spawn(loop, print_events(queue), [](std::exception_ptr error) {
      if (error) std::rethrow_exception(error);
    });
    asio::signal_set signals(loop, SIGINT, SIGTERM);
    signals.async_wait([&](const auto&, int) { queue.close(); });  // its descriptor becomes readable
    loop.run();
  }
  yusb::global_release();
}
