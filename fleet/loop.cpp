#include "loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

namespace yusb::fleet {

namespace {

int checked(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

}  // namespace

loop::loop()
    : _epoll(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      _wake(checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")) {
  watch(_wake, EPOLLIN, [this](std::uint32_t) {
    eventfd_t count;
    eventfd_read(_wake, &count);
  });
}

loop::~loop() {
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    _ending = true;
    _changed.notify_all();
  }
  if (_worker.joinable()) _worker.join();
  close(_wake);
  close(_epoll);
}

void loop::watch(int descriptor, std::uint32_t events, ready call) {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  if (epoll_ctl(_epoll, EPOLL_CTL_ADD, descriptor, &event) < 0) {
    if (errno != EEXIST) checked(-1, "epoll_ctl");
    checked(epoll_ctl(_epoll, EPOLL_CTL_MOD, descriptor, &event), "epoll_ctl");
  }
  _watched[descriptor] = std::make_shared<ready>(std::move(call));
}

void loop::set_events(int descriptor, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  epoll_ctl(_epoll, EPOLL_CTL_MOD, descriptor, &event);
}

void loop::unwatch(int descriptor) {
  epoll_ctl(_epoll, EPOLL_CTL_DEL, descriptor, nullptr);
  _watched.erase(descriptor);
}

loop::timer loop::after(std::chrono::milliseconds delay, task call) {
  const timer id = ++_last_timer;
  const clock::time_point when = clock::now() + delay;
  _timers.emplace(std::make_pair(when, id), std::move(call));
  _times.emplace(id, when);
  return id;
}

void loop::cancel(timer id) {
  const auto found = _times.find(id);
  if (found == _times.end()) return;
  _timers.erase({found->second, id});
  _times.erase(found);
}

void loop::post(task call) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _posted.push_back(std::move(call));
  eventfd_write(_wake, 1);
}

void loop::background(task work, task done) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _work.emplace_back(std::move(work), std::move(done));
  _changed.notify_all();
  if (!_worker.joinable()) _worker = std::thread([this] { this->work(); });
}

void loop::work() {
  std::unique_lock<std::mutex> lock(_mutex);
  for (;;) {
    _changed.wait(lock, [this] { return _ending || !_work.empty(); });
    if (_ending) return;
    auto [work, done] = std::move(_work.front());
    _work.pop_front();
    lock.unlock();
    work();
    work = nullptr;
    post(std::move(done));
    lock.lock();
  }
}

int loop::wait_limit() const {
  if (_timers.empty()) return -1;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(_timers.begin()->first.first - clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

void loop::run_timers() {
  const clock::time_point now = clock::now();
  while (!_stopped && !_timers.empty() && _timers.begin()->first.first <= now) {
    const task call = std::move(_timers.begin()->second);
    _times.erase(_timers.begin()->first.second);
    _timers.erase(_timers.begin());
    call();
  }
}

void loop::run_posted() {
  std::vector<task> posted;
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    posted.swap(_posted);
  }
  for (const task& call : posted) call();
}

void loop::run() {
  _stopped = false;
  while (!_stopped) {
    epoll_event events[64];
    const int count = epoll_wait(_epoll, events, 64, wait_limit());
    if (count < 0 && errno != EINTR) checked(-1, "epoll_wait");
    for (int i = 0; i < count && !_stopped; ++i) {
      const auto found = _watched.find(events[i].data.fd);
      if (found == _watched.end()) continue;
      const std::shared_ptr<ready> call = found->second;  // which may unwatch its descriptor
      (*call)(events[i].events);
    }
    run_posted();
    run_timers();
  }
}

}  // namespace yusb::fleet
