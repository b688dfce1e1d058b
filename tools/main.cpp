// The program yusb: shows which USB devices are attached, as they come and go.
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
#include "host.h"
#include "options.h"
#include "output.h"
#include "player.h"
#include "scenario.h"
#include "text.h"

namespace {

using namespace yusb::tool;

void write_log(EYORVAN_LOG_LEVEL /*level*/, const char* line, std::size_t size, void* /*user*/) {
  const std::string text = visible(utf8(YString(line, size)), '\t') + "\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
}

// False, with *error saying why, if the file cannot be read.
bool read_file(const std::string& name, std::string* text, std::string* error) {
  constexpr std::size_t largest = 1 << 20;  // what is not a scenario may have no end
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
    *error = visible(name) + ": larger than 1 MiB, which no scenario needs";
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
    *error = "there is no simulated bus on this system";
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
    complain("this system has no USB bus to watch; --simulate FILE plays a scenario on a simulated one");
    return exit_failure;
  }
  return run(*given.run, scenario.get());
}

}  // namespace

int main(int argc, char** argv) {
  occupy_standard_descriptors();
  std::signal(SIGPIPE, SIG_IGN);  // a reader that goes away is noticed when writing to it
  try {
    return run_program(argc, argv);
  } catch (const std::exception& failure) {
    complain(visible(failure.what()));
    return exit_failure;
  }
}
