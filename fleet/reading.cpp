// The commands that read: list, watch, wait and forget.
#include <functional>
#include <optional>
#include <string>

#include "commands.h"
#include "host_table.h"
#include "session.h"
#include "topic.h"

namespace yusb::fleet {

namespace {

// The time since which a host has been silent; empty if it is not silent.
std::optional<format::time_point> since(const host& of) {
  const bool silent = of.state == host_state::offline || of.state == host_state::stale;
  return silent ? std::make_optional(of.last_sign()) : std::nullopt;
}

std::string json_of(const host& of) { return host_line(of.name, to_string(of.state), since(of)); }

const char* sign_of(device_news news) {
  return news == device_news::arrival ? "+" : news == device_news::removal ? "-" : "*";
}

const char* word_of(device_news news) {
  return news == device_news::arrival ? "arrival" : news == device_news::removal ? "removal" : "change";
}

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

int run_list(loop& loop, const options& chosen) {
  session running(loop, chosen);
  const auto finish = [&](int status) {
    running.end(status);
    print_list(running, chosen);
  };
  return running.run({ignore_device,
                      ignore_host,
                      [&] { finish(exit_ok); },
                      [&](const std::string& host) {
                        complain_incomplete(host);
                        finish(exit_failure);
                      },
                      {},
                      [&](const std::string& reason) {
                        running.complain_lost(reason);
                        running.end(exit_failure);
                      }});
}

int run_watch(loop& loop, const options& chosen) {
  session running(loop, chosen);
  host_table table(host_table::kind::reports);
  bool initial = true;
  if (chosen.limit) running.events().after(*chosen.limit, [&] { running.end(exit_ok); });
  const auto tell = [&](const host& of, device_news news, const shown_device& device) {
    if (!running.selects(device)) return;
    if (!chosen.json) return running.print(table.line(of, &device, sign_of(news)));
    // A device's payload has the time of its arrival.
    const auto when =
        news == device_news::removal && of.inventory ? std::make_optional(of.inventory->when) : std::nullopt;
    running.print(reader_line(device.payload, word_of(news), initial, of.name, to_string(of.state), when));
  };
  return running.run(
      {tell,
       [&](const host& of) { running.print(chosen.json ? json_of(of) : table.line(of, nullptr, "=")); },
       [&] { initial = false; },
       [&](const std::string& host) {
         complain_incomplete(host);
         running.end(exit_failure);
       },
       {},
       {}});
}

int run_wait(loop& loop, const options& chosen) {
  session running(loop, chosen);
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
  // An offline host's devices are not known to be gone, nor those of a host whose picture is not whole.
  const auto look_gone = [&] {
    if (!chosen.gone || !running.picture().whole()) return;
    for (const auto& [level, host] : running.picture().hosts()) {
      if (host.state == host_state::unknown) return;
      for (const auto& [name, device] : host.devices) {
        if (running.selects(*device)) return;
      }
    }
    running.end(exit_ok);
  };
  // No handler tells that a picture has become whole without a change of its devices.
  std::function<void()> look_again = [&] {
    look_gone();
    loop.after(std::chrono::seconds(1), look_again);
  };
  if (chosen.gone) loop.post(look_again);
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

int run_forget(loop& loop, const options& chosen) {
  session running(loop, chosen);
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
    // The status is cleared last, because it shows that the host is known.
    for (const std::string& each : topics) running.picture().broker().publish({each, "", true});
  };
  return running.run({ignore_device,
                      ignore_host,
                      clear,
                      [&](const std::string&) { clear(); },  // it is online
                      {},
                      [&](const std::string& reason) {
                        running.complain_lost(reason);
                        running.end(exit_failure);
                      },
                      [&] {
                        if (--waiting == 0) running.end(exit_ok);
                      }},
                     name);
}

}  // namespace yusb::fleet
