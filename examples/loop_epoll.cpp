// Prints the devices that are attached and detached, until Ctrl-C. One thread waits for events and signals
// with epoll.
#include <YorvanCore/YLog.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <yusb_watcher.h>

#include <csignal>

#include "print_event.h"

int main() {
  sigset_t endings;
  sigemptyset(&endings);
  sigaddset(&endings, SIGINT);
  sigaddset(&endings, SIGTERM);
  sigprocmask(SIG_BLOCK, &endings, nullptr);
  const int signals = signalfd(-1, &endings, SFD_CLOEXEC);

  YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR);  // the default logs each arrival
  yusb::global_initialize();
  {
    yusb::watch_queue queue;
    const int loop = epoll_create1(EPOLL_CLOEXEC);
    for (const int descriptor : {signals, queue.descriptor()}) {
      epoll_event wanted = {};
      wanted.events = EPOLLIN;
      wanted.data.fd = descriptor;
      epoll_ctl(loop, EPOLL_CTL_ADD, descriptor, &wanted);
    }
    while (!queue.closed()) {
      epoll_event ready;
      if (epoll_wait(loop, &ready, 1, -1) != 1) continue;  // interrupted
      if (ready.data.fd == signals) queue.close();
      while (const auto event = queue.next(std::chrono::milliseconds(0))) print_event(*event);
    }
    close(loop);
  }
  yusb::global_release();
  close(signals);
}
