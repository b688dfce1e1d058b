#include "options.h"

#include <CLI/CLI.hpp>
#include <utility>
#include <vector>

#include "duration.h"
#include "filter.h"

namespace yusb::tool {

namespace {

// The values as they are given. One set for all commands, of which only one is given.
struct raw_options {
  std::vector<std::string> filters;
  std::string limit;
  std::string scenario_file;
  options values;
};

std::string check_filter(const std::string& text) {
  std::string error;
  parse_filter(text, &error);
  return error;
}

std::string check_duration(const std::string& text) {
  return parse_duration(text) ? std::string() : "'" + text + "' is not " + duration_rule;
}

std::string check_count(const std::string& text) {
  const bool whole =
      !text.empty() && text.size() <= 18 && text.find_first_not_of("0123456789") == std::string::npos;
  return whole && text.front() != '0' ? std::string() : "'" + text + "' is not a whole number above 0";
}

std::string check_file(const std::string& name) { return name.empty() ? "no file is named" : std::string(); }

void add_common_options(CLI::App* app, raw_options* raw) {
  app->add_option("--simulate", raw->scenario_file, "Play a scenario on a simulated bus, and end with it")
      ->type_name("FILE")
      ->check(check_file);
  app->add_flag("--log", raw->values.log, "Show the library's log on standard error");
}

CLI::App* add_command(CLI::App* app, const char* name, const char* description, raw_options* raw) {
  CLI::App* const added = app->add_subcommand(name, description);
  added
      ->add_option("--filter", raw->filters,
                   "Only devices that are one of these: apple, airpods, android, id=VVVV:PPPP,\n"
                   "vendor=VVVV, location=0xNNNNNNNN, serial=TEXT; given again: and of those too")
      ->type_name("WHICH[,...]")
      ->allow_extra_args(false)
      ->check(check_filter);
  added->add_flag("--json", raw->values.json, "One JSON object a line");
  add_common_options(added, raw);
  return added;
}

CLI::Option* add_duration(CLI::App* app, const char* name, const char* description, raw_options* raw) {
  return app->add_option(name, raw->limit, description)->type_name("DURATION")->check(check_duration);
}

options finished(raw_options raw) {
  options result = std::move(raw.values);
  for (const std::string& text : raw.filters) {
    std::string error;
    device_filter parsed = parse_filter(text, &error);
    result.filter = result.filter ? both(std::move(result.filter), std::move(parsed)) : std::move(parsed);
  }
  if (!raw.limit.empty()) result.limit = parse_duration(raw.limit);
  if (!raw.scenario_file.empty()) result.scenario_file = std::move(raw.scenario_file);
  return result;
}

}  // namespace

command_line parse_command_line(int argc, const char* const* argv) {
  raw_options raw;
  CLI::App app("Shows which USB devices are attached, as they come and go.", "yusb");
  app.set_version_flag("--version", "yusb " YUSB_VERSION);
  app.require_subcommand(0, 1);
  app.footer(
      "Exit status: 0 all went well, 1 no bus or no output, 2 a wrong command line or scenario,\n"
      "3 what 'wait' waits for did not happen. More in yusb(1).");
  add_common_options(&app, &raw);

  CLI::App* const list = add_command(&app, "list", "Show the devices attached now, by location", &raw);
  list->add_flag("--tree", raw.values.tree, "Draw which hub each device is behind");

  CLI::App* const watch =
      add_command(&app, "watch", "Show the devices attached, then each that comes or goes", &raw);
  add_duration(watch, "--for", "End after this long: 250ms, 10s, 5m", &raw);
  watch->add_option("--count", raw.values.count, "End after this many lines")
      ->type_name("N")
      ->check(check_count);

  CLI::App* const wait = add_command(&app, "wait", "Wait until a device is attached, and show it", &raw);
  wait->add_flag("--gone", raw.values.gone, "Wait until no such device is attached instead");
  add_duration(wait, "--timeout", "Give up after this long, with exit status 3: 250ms, 10s, 5m", &raw);

  if (argc <= 1) return {std::nullopt, app.help(), exit_ok};
  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) throw CLI::RequiredError("One of list, watch, wait");
    if (raw.values.tree && raw.values.json) throw CLI::ExcludesError("--tree", "--json");
  } catch (const CLI::CallForHelp&) {
    return {std::nullopt, app.help(), exit_ok};
  } catch (const CLI::CallForVersion& version) {
    return {std::nullopt, std::string(version.what()) + "\n", exit_ok};
  } catch (const CLI::ParseError& wrong) {
    return {std::nullopt, wrong.what(), exit_usage};
  }
  raw.values.chosen = watch->parsed() ? command::watch : wait->parsed() ? command::wait : command::list;
  return {finished(std::move(raw)), {}, exit_ok};
}

}  // namespace yusb::tool
