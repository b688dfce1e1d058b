#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "commands.h"
#include "metrics.h"
#include "session.h"

namespace yusb::fleet {

namespace {

constexpr std::chrono::seconds pause(5);  // between two writes

// The node exporter reads the file at any moment, so it is replaced.
bool replace_file(const std::string& name, const std::string& text) {
  struct stat old {};
  if (lstat(name.c_str(), &old) == 0 && !S_ISREG(old.st_mode)) {  // such as /dev/stdout
    complain("cannot write " + name + ": not a regular file");
    return false;
  }
  const std::string fresh = name + "." + std::to_string(getpid());  // of several writers, the last one wins
  std::FILE* const file = std::fopen(fresh.c_str(), "w");
  bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (file != nullptr) written = std::fclose(file) == 0 && written;
  if (written && std::rename(fresh.c_str(), name.c_str()) == 0) return true;
  complain("cannot write " + name + ": " + std::strerror(errno));
  if (file != nullptr) std::remove(fresh.c_str());
  return false;
}

}  // namespace

int run_metrics(loop& loop, const options& chosen) {
  session running(loop, chosen);
  bool incomplete = false;
  fleet::loop::timer due = 0;
  std::function<void()> write = [&] {
    due = loop.after(pause, write);
    // An incomplete picture would show devices as gone. The exporter reports the age of an old file.
    if (!running.picture().settled()) return;
    if (!replace_file(chosen.file, metrics_text(running.picture().hosts()))) return running.end(exit_failure);
    if (chosen.once) running.end(incomplete ? exit_failure : exit_ok);
  };
  const auto begin = [&] {
    if (due == 0) write();
  };
  return running.run({[](const host&, device_news, const shown_device&) {},
                      [](const host&) {},
                      begin,
                      [&](const std::string& host) {
                        complain_incomplete(host);
                        incomplete = true;
                        begin();
                      },
                      {},
                      [&](const std::string& reason) {
                        running.complain_lost(reason);
                        if (chosen.once) running.end(exit_failure);
                      }});
}

}  // namespace yusb::fleet
