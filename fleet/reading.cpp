// The commands that read: list, watch, wait and forget.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "format/utf8.h"
#include "host_table.h"
#include "reader.h"
#include "service.h"
#include "topic.h"

namespace yusb::fleet {

void complain(const std::string& message) {
  const std::string line = "yusb-fleet: " + format::visible(message) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

namespace {

void say_incomplete(const std::string& host) {
  complain("the picture of host " + host + " is incomplete: the broker did not send all of it");
}

// What the reading commands have in common: a loop, a reader and standard output.
class session {
 public:
  explicit session(const options& chosen) : _chosen(chosen) {
    on_termination(_loop, [this] { end(exit_ok); });
  }

  // Runs until end(); returns its status. `handlers` may leave out `log`, `incomplete` and `lost`.
  int run(reader::handlers handlers, const std::string& only = "") {
    handlers.log = complain;
    if (!handlers.incomplete) handlers.incomplete = say_incomplete;
    if (!handlers.lost) handlers.lost = [this](const std::string& reason) { say_lost(reason); };
    _reader =
        std::make_unique<fleet::reader>(_loop, _chosen.connection, _chosen.prefix, only, std::move(handlers));
    _reader->start();
    _loop.run();
    return _status;
  }

  void end(int status) {
    _status = status;
    _loop.stop();
  }

  void say_lost(const std::string& reason) {
    const std::string line = "not connected to " + _chosen.connection.broker.host + ": " + reason;
    if (line != _last_loss) complain(line);
    _last_loss = line;
  }

  void print(const std::string& text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return;
    if (errno != EPIPE) complain(std::string("cannot write to standard output: ") + std::strerror(errno));
    end(errno == EPIPE ? exit_ok : exit_failure);
  }

  bool selects(const shown_device& device) const { return !_chosen.filter || _chosen.filter(device.device); }

  loop& events() { return _loop; }
  fleet::reader& picture() { return *_reader; }

 private:
  const options& _chosen;
  loop _loop;
  std::unique_ptr<fleet::reader> _reader;
  std::string _last_loss;
  int _status = exit_ok;
};

// Of a host that is silent, since when.
std::optional<format::time_point> since(const host& of) {
  const bool silent = of.state == host_state::offline || of.state == host_state::stale;
  return silent ? std::make_optional(of.last_sign()) : std::nullopt;
}

std::string json_of(const host& of) { return host_line(of.name, to_string(of.state), since(of)); }

const auto ignore_host = [](const host&) {};
const auto ignore_device = [](const host&, device_news, const shown_device&) {};

void print_list(session& running, const options& chosen) {
  host_table table(host_table::kind::list);
  std::string text;
  const auto each_row = [&](const std::function<void(const host&, const shown_device*)>& row) {
    for (const auto& [level, host] : running.picture().hosts()) {
      if (!chosen.filter && (chosen.json || host.devices.empty())) row(host, nullptr);
      for (const auto& [name, device] : host.devices) {
        if (running.selects(*device)) row(host, device.get());
      }
    }
  };
  if (chosen.json) {
    each_row([&](const host& of, const shown_device* device) {
      text += device == nullptr ? json_of(of)
                                : reader_line(device->payload, "arrival", true, of.name, to_string(of.state));
    });
  } else {
    each_row([&](const host& of, const shown_device* device) { table.fit(of, device, ""); });
    text = table.heading();
    each_row([&](const host& of, const shown_device* device) { text += table.line(of, device, ""); });
  }
  running.print(text);
}

}  // namespace

int run_list(const options& chosen) {
  session running(chosen);
  const auto finish = [&](int status) {
    running.end(status);
    print_list(running, chosen);
  };
  return running.run({ignore_device,
                      ignore_host,
                      [&] { finish(exit_ok); },
                      [&](const std::string& host) {
                        say_incomplete(host);
                        finish(exit_failure);
                      },
                      {},
                      [&](const std::string& reason) {
                        running.say_lost(reason);
                        running.end(exit_failure);
                      }});
}

int run_watch(const options& chosen) {
  session running(chosen);
  host_table table(host_table::kind::reports);
  bool initial = true;
  if (chosen.limit) running.events().after(*chosen.limit, [&] { running.end(exit_ok); });
  const auto tell = [&](const host& of, device_news news, const shown_device& device) {
    if (!running.selects(device)) return;
    const bool arrival = news == device_news::arrival;
    const bool removal = news == device_news::removal;
    running.print(chosen.json ? reader_line(device.payload,
                                            arrival   ? "arrival"
                                            : removal ? "removal"
                                                      : "change",
                                            initial, of.name, to_string(of.state))
                              : table.line(of, &device,
                                           arrival   ? "+"
                                           : removal ? "-"
                                                     : "*"));
  };
  return running.run(
      {tell,
       [&](const host& of) { running.print(chosen.json ? json_of(of) : table.line(of, nullptr, "=")); },
       [&] { initial = false; },
       [&](const std::string& host) {
         say_incomplete(host);
         running.end(exit_failure);
       },
       {},
       {}});
}

int run_wait(const options& chosen) {
  session running(chosen);
  if (chosen.limit) running.events().after(*chosen.limit, [&] { running.end(exit_timeout); });
  bool found = false;
  const auto look = [&](const host& of, const shown_device& device) {
    if (found || chosen.gone || of.state != host_state::online || !running.selects(device)) return;
    found = true;
    host_table table(host_table::kind::list);
    running.end(exit_ok);
    running.print(chosen.json ? reader_line(device.payload, "arrival", !running.picture().complete(), of.name,
                                            to_string(of.state))
                              : table.line(of, &device, ""));
  };
  // An offline host's devices are not known to be gone.
  const auto look_gone = [&] {
    if (!chosen.gone || !running.picture().complete()) return;
    for (const auto& [level, host] : running.picture().hosts()) {
      if (host.state == host_state::unknown) return;
      for (const auto& [name, device] : host.devices) {
        if (running.selects(*device)) return;
      }
    }
    running.end(exit_ok);
  };
  return running.run({[&](const host& of, device_news news, const shown_device& device) {
                        news == device_news::removal ? look_gone() : look(of, device);
                      },
                      [&](const host& of) {
                        for (const auto& [name, device] : of.devices) look(of, *device);
                        look_gone();
                      },
                      look_gone,
                      {},
                      {},
                      {}});
}

int run_forget(const options& chosen) {
  session running(chosen);
  const std::string name = level(chosen.host);
  std::size_t waiting = 0;
  const auto clear = [&] {
    const auto found = running.picture().hosts().find(name);
    if (found != running.picture().hosts().end() && found->second.state == host_state::online) {
      complain("host " + chosen.host + " is online; stop its agent first");
      return running.end(exit_failure);
    }
    const auto topics = running.picture().topics(name);
    waiting = topics.size();
    if (waiting == 0) {
      complain("the broker knows no host " + chosen.host);
      return running.end(exit_failure);
    }
    // The status is the last in their order, and says that the host is known.
    for (const std::string& each : topics) running.picture().broker().publish({each, "", true});
  };
  return running.run({ignore_device,
                      ignore_host,
                      clear,
                      {},
                      {},
                      [&](const std::string& reason) {
                        running.say_lost(reason);
                        running.end(exit_failure);
                      },
                      [&] {
                        if (--waiting == 0) running.end(exit_ok);
                      }},
                     name);
}

}  // namespace yusb::fleet
