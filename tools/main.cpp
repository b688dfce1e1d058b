// The program yusb: lists the attached USB devices and reports arrivals and removals.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include <YorvanCore/YLog.h>
#include <yusb.h>
#include <yusb_bus.h>

#include "commands.h"
#include "format/utf8.h"
#include "options.h"
#include "output.h"
#include "player.h"
#include "scenario.h"
#include "simulated_bus.h"

namespace {

using namespace yusb::format;
using namespace yusb::tool;

void write_log(EYORVAN_LOG_LEVEL /*level*/, const char* line, std::size_t size, void* /*user*/) {
  const std::string text = visible(utf8(YString(line, size)), '\t') + "\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
}

// False, with *error saying why, if the file cannot be read.
bool read_file(const std::string& name, std::string* text, std::string* error) {
  constexpr std::size_t largest = 1 << 20;  // a file that is no scenario, such as a device, may be endless
  std::FILE* const file = std::fopen(name.c_str(), "r");
  if (file == nullptr) {
    *error = visible(name) + ": " + std::generic_category().message(errno);
    return false;
  }
  text->resize(largest + 1);
  text->resize(std::fread(text->data(), 1, text->size(), file));
  if (std::ferror(file) != 0) {
    *error = visible(name) + ": " + std::generic_category().message(errno);
  } else if (text->size() > largest) {
    *error = visible(name) + ": larger than 1 MiB, the limit of a scenario";
  }
  std::fclose(file);
  return error->empty();
}

std::unique_ptr<player> load_scenario(const std::string& name, std::string* error) {
  std::string text;
  if (!read_file(name, &text, error)) return nullptr;
  auto parsed = parse_scenario(text, name, error);
  if (!parsed) return nullptr;
  auto bus = make_simulated_bus();
  if (bus == nullptr) {
    *error = "this system has no simulated bus";
    return nullptr;
  }
  return std::make_unique<player>(std::move(*parsed), std::move(bus));
}

int run_program(int argc, char** argv) {
  const command_line given = parse_command_line(argc, argv);
  if (!given.run && given.status == exit_ok) {
    output out;
    out.write(given.text);
    return out.check() ? exit_ok : exit_failure;
  }
  if (!given.run) {
    complain(visible(given.text) + "\nTry 'yusb --help'.");
    return given.status;
  }
  if (given.run->log) {
    YLog::setSink(write_log, nullptr);
  } else {
    YLog::setThreshold(static_cast<EYORVAN_LOG_LEVEL>(EYORVAN_LOG_LEVEL_FATAL + 1));
  }
  std::unique_ptr<player> scenario;
  if (given.run->scenario_file) {
    std::string error;
    scenario = load_scenario(*given.run->scenario_file, &error);
    if (scenario == nullptr) {
      complain(error);
      return exit_usage;
    }
  } else if (!yusb::bus_present()) {
    complain(has_simulated_bus
                 ? "this system has no USB bus; --simulate FILE plays a scenario on a simulated bus"
                 : "this system has no USB bus");
    return exit_failure;
  }
  return run(*given.run, scenario.get());
}

}  // namespace

int main(int argc, char** argv) {
  occupy_standard_descriptors();
  std::signal(SIGPIPE, SIG_IGN);  // writing to a closed pipe reports EPIPE instead
  try {
    return run_program(argc, argv);
  } catch (const std::exception& failure) {
    complain(visible(failure.what()));
    return exit_failure;
  }
}
