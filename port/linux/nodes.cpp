#include "linux/nodes.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "linux/details.h"

namespace yusb::port {

namespace {

constexpr std::chrono::seconds look_interval(1);
constexpr std::uint32_t folder_appears = IN_CREATE | IN_MOVED_TO | IN_ONLYDIR;
// A watch on the node itself would need permission to read it.
constexpr std::uint32_t node_changes = folder_appears | IN_ATTRIB | IN_DELETE | IN_MOVED_FROM;

// True if a name in one of the folders above may be that of the next folder: "bus", "usb", "001".
bool is_folder_name(const char* name) {
  return std::strcmp(name, "bus") == 0 || std::strcmp(name, "usb") == 0 || (*name >= '0' && *name <= '9');
}

}  // namespace

// Subscribes before the nodes are tested, so that no change in between is missed.
void linux_nodes::open() {
  _inotify = unique_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  const bool hears = _uevents.open() && netns_hears_uevents() == netns_hears::yes;
  _blind = !_inotify || !hears;
  _next_look = clock::now() + look_interval;
}

// Closes the subscriptions, so that events of other devices do not wake the process.
void linux_nodes::close_if_idle() {
  if (!_entries.empty()) return;
  _inotify = unique_fd();
  _folders.clear();
  _uevents = uevent_socket();
  _blind = false;
}

void linux_nodes::add(unsigned id, const record_key& record) {
  if (_entries.empty()) open();
  _entries.push_back({id, record});
}

void linux_nodes::remove(unsigned id) {
  const auto found =
      std::find_if(_entries.begin(), _entries.end(), [id](const entry& each) { return each.id == id; });
  if (found != _entries.end()) _entries.erase(found);
  close_if_idle();
}

std::optional<linux_nodes::clock::time_point> linux_nodes::due() const {
  return _blind && !_entries.empty() ? std::optional<clock::time_point>(_next_look) : std::nullopt;
}

std::optional<linux_nodes::answer> linux_nodes::next() {
  if (_inotify) receive_inotify();
  if (_uevents.fd() >= 0) receive_uevents();
  if (_blind && clock::now() >= _next_look) {
    mark_all();
    _next_look = clock::now() + look_interval;
  }
  for (entry& each : _entries) {
    if (!each.due) continue;
    const answer found = {each.id, check(each)};
    if (found.result == openability::timed_out) continue;
    remove(found.id);
    return found;
  }
  return std::nullopt;
}

openability linux_nodes::check(unsigned id) {
  const auto found =
      std::find_if(_entries.begin(), _entries.end(), [id](const entry& each) { return each.id == id; });
  return found == _entries.end() ? openability::gone : check(*found);
}

openability linux_nodes::check(entry& waited) {
  waited.due = false;
  if (waited.gone) return openability::gone;
  if (waited.path.empty()) {
    std::error_code exhausted;
    if (!look_up(waited, exhausted)) {
      if (!exhausted) return openability::gone;
      _blind = true;
      return openability::timed_out;
    }
  }
  const bool open = faccessat(AT_FDCWD, waited.node.c_str(), R_OK | W_OK, AT_EACCESS) == 0;
  // After the test of the node: if the device is still attached, the node was that device's.
  const std::optional<device_identity> now = sysfs_device(waited.path).identity();
  if (now.has_value() && !(*now == waited.identity)) return openability::gone;
  return open ? openability::openable : openability::timed_out;
}

bool linux_nodes::look_up(entry& found, std::error_code& exhausted) {
  std::optional<usb_details> details = linux_details(found.record, exhausted);
  if (!details.has_value()) return false;
  const sysfs_device device(details->port_path);
  const std::optional<device_identity> identity = device.identity();
  exhausted = device.exhausted();
  if (!identity.has_value() || identity->devnum != details->address) return false;
  found.identity = *identity;
  found.bus = details->bus;
  found.node = std::move(details->device_node);
  found.path = std::move(details->port_path);
  watch_folders(found.bus);
  return true;
}

// Watches the folders from the top down: if one appears meanwhile, the watch on its parent reports it.
void linux_nodes::watch_folders(std::uint32_t bus) {
  if (!_inotify) return;
  char folder[32];
  std::snprintf(folder, sizeof folder, "/dev/bus/usb/%03u", bus);
  bool watched = true;
  for (const char* const above : {"/dev", "/dev/bus", "/dev/bus/usb"})
    watched = watch(above, folder_appears, 0) && watched;
  _blind = !(watch(folder, node_changes, bus) && watched) || _blind;
}

// False if the folder exists and cannot be watched.
bool linux_nodes::watch(const char* folder, std::uint32_t mask, std::uint32_t bus) {
  const int number = inotify_add_watch(_inotify.get(), folder, mask);
  if (number >= 0) _folders[number] = bus;
  return number >= 0 || errno == ENOENT || errno == ENOTDIR;
}

void linux_nodes::receive_inotify() {
  bool folders_changed = false;
  for (;;) {
    alignas(inotify_event) char events[4096];
    const ssize_t size = read(_inotify.get(), events, sizeof events);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) break;
    for (ssize_t at = 0; at < size;) {
      inotify_event event;
      std::memcpy(&event, events + at, sizeof event);
      const char* const name = event.len == 0 ? "" : events + at + sizeof event;
      at += static_cast<ssize_t>(sizeof event + event.len);
      const auto folder = _folders.find(event.wd);
      const std::uint32_t bus = folder == _folders.end() ? 0 : folder->second;
      // An event without a name is about the folder itself, or reports an overflow of the queue.
      if (event.len == 0 || (bus == 0 && is_folder_name(name))) folders_changed = true;
      for (entry& each : _entries) {
        if (each.bus == bus && each.node.compare(each.node.rfind('/') + 1, std::string::npos, name) == 0)
          each.due = true;
      }
      if ((event.mask & IN_IGNORED) != 0 && folder != _folders.end()) _folders.erase(folder);
    }
  }
  if (!folders_changed) return;
  mark_all();
  for (const entry& each : _entries) {
    if (!each.path.empty()) watch_folders(each.bus);
  }
}

void linux_nodes::receive_uevents() {
  using received = uevent_socket::received;
  uevent event;
  for (received what = _uevents.receive(&event); what != received::nothing; what = _uevents.receive(&event)) {
    if (what == received::lost) mark_all();
    if (what != received::device) continue;
    for (entry& each : _entries) {
      if (each.path != event.path) continue;
      each.due = true;
      each.gone = each.gone || (!event.added && event.devnum == each.identity.devnum);
    }
  }
}

void linux_nodes::mark_all() {
  for (entry& each : _entries) each.due = true;
}

}  // namespace yusb::port
