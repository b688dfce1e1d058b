#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "commands.h"
#include "metrics.h"
#include "reader.h"
#include "service.h"

namespace yusb::fleet {

namespace {

constexpr std::chrono::seconds pause(5);  // between two writes

// The node exporter reads the file at any moment, so it is replaced.
bool replace_file(const std::string& name, const std::string& text) {
  const std::string fresh = name + ".new";
  std::FILE* const file = std::fopen(fresh.c_str(), "w");
  bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (file != nullptr) written = std::fclose(file) == 0 && written;
  if (written && std::rename(fresh.c_str(), name.c_str()) == 0) return true;
  complain("cannot write " + name + ": " + std::strerror(errno));
  return false;
}

}  // namespace

int run_metrics(const options& chosen) {
  loop loop;
  int status = exit_ok;
  const auto end = [&](int with) {
    status = with;
    loop.stop();
  };
  on_termination(loop, [&] { end(exit_ok); });
  std::function<void()> write;
  loop::timer due = 0;
  fleet::reader reader(loop, chosen.connection, chosen.prefix, "",
                       {[](const host&, device_news, const shown_device&) {}, [](const host&) {},
                        [&] {
                          if (due == 0) write();
                        },
                        [&](const std::string& host) {
                          complain("the picture of host " + host + " is incomplete");
                          if (chosen.once) end(exit_failure);
                        },
                        complain,
                        [&](const std::string& reason) {
                          complain("not connected to " + chosen.connection.broker.host + ": " + reason);
                          if (chosen.once) end(exit_failure);
                        }});
  write = [&] {
    due = loop.after(pause, write);
    // A picture that is not whole would show devices as gone. Old files are for the exporter's own timestamp.
    if (!reader.complete()) return;
    if (!replace_file(chosen.file, metrics_text(reader.hosts()))) return end(exit_failure);
    if (chosen.once) end(exit_ok);
  };
  reader.start();
  loop.run();
  return status;
}

}  // namespace yusb::fleet
