#include "options.h"

#include <CLI/CLI.hpp>
#include <utility>
#include <vector>

#include "format/duration.h"
#include "format/filter.h"

namespace yusb::tool {

using namespace format;

namespace {

// The values as given. All commands share one set, since only one command is given.
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
  return parse_duration(text) ? std::string() : "'" + text + "' is not a duration: " + duration_rule;
}

std::string check_count(const std::string& text) {
  const bool whole =
      !text.empty() && text.size() <= 18 && text.find_first_not_of("0123456789") == std::string::npos;
  return whole && text.front() != '0' ? std::string() : "'" + text + "' is not a positive integer";
}

std::string check_file(const std::string& name) {
  return name.empty() ? "the file name is empty" : std::string();
}

void add_common_options(CLI::App* app, raw_options* raw) {
  app->add_option("--simulate", raw->scenario_file, "Play a scenario on a simulated bus, then exit")
      ->type_name("FILE")
      ->check(check_file);
  app->add_flag("--log", raw->values.log, "Write the library's log to standard error");
}

CLI::App* add_command(CLI::App* app, const char* name, const char* description, raw_options* raw) {
  CLI::App* const added = app->add_subcommand(name, description);
  added
      ->add_option("--filter", raw->filters,
                   "Only devices that match one of: apple, airpods,\n"
                   "android, id=VVVV:PPPP, vendor=VVVV,\n"
                   "location=0xNNNNNNNN, serial=TEXT. Repeat it to\n"
                   "combine filters: a device must match all.")
      ->type_name("WHICH[,...]")
      ->allow_extra_args(false)
      ->check(check_filter);
  added->add_flag("--json", raw->values.json, "Print one JSON object per line");
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
  CLI::App app("Lists the attached USB devices and reports arrivals and removals.", "yusb");
  app.set_version_flag("--version", "yusb " YUSB_VERSION);
  app.require_subcommand(0, 1);
  app.footer(
      "Exit status: 0 success; 1 no USB bus or output failed; 2 invalid command line\n"
      "or scenario; 3 'wait' did not see what it waits for. See yusb(1).");
  add_common_options(&app, &raw);

  CLI::App* const list = add_command(&app, "list", "List the attached devices, sorted by location", &raw);
  list->add_flag("--tree", raw.values.tree, "Draw the tree of hubs and devices");

  CLI::App* const watch =
      add_command(&app, "watch", "List attached devices, then arrivals and removals", &raw);
  add_duration(watch, "--for", "Exit after this time: 250ms, 10s, 5m", &raw);
  watch->add_option("--count", raw.values.count, "Exit after this many lines")
      ->type_name("N")
      ->check(check_count);

  CLI::App* const wait = add_command(&app, "wait", "Wait until a device is attached, then print it", &raw);
  wait->add_flag("--gone", raw.values.gone, "Wait until no matching device is attached instead");
  add_duration(wait, "--timeout", "Exit with status 3 after this time: 250ms, 10s, 5m", &raw);

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
