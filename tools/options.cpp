#include "options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "format/duration.h"
#include "format/filter.h"
#include "simulated_bus.h"

namespace yusb::tool {

using namespace format;

namespace {

// The values as given. All commands share one set, since only one command is given.
struct raw_options {
  std::vector<std::string> filters;
  std::string selector;
  std::string limit;
  std::string heartbeat;
  std::string scenario_file;
  options values;
};

std::string check_filter(const std::string& text) {
  std::string error;
  parse_filter(text, &error);
  return error;
}

std::string check_selector(const std::string& text) {
  std::string error;
  parse_selector(text, &error);
  return error;
}

std::string check_duration(const std::string& text) {
  return parse_duration(text) ? std::string() : "'" + text + "' is not a duration: " + duration_rule;
}

std::string check_interval(const std::string& text) {
  const std::string error = check_duration(text);
  const bool none = error.empty() && parse_duration(text)->count() == 0;
  return none ? "'" + text + "' is too short: the shortest is 1ms" : error;
}

std::string check_count(const std::string& text) {
  const bool whole =
      !text.empty() && text.size() <= 18 && text.find_first_not_of("0123456789") == std::string::npos;
  return whole && text.front() != '0' ? std::string() : "'" + text + "' is not a positive integer";
}

std::string check_file(const std::string& name) {
  return name.empty() ? "the file name is empty" : std::string();
}

// A flag that takes no value.
void add_flag(CLI::App* app, const char* name, bool* value, const char* description) {
  app->add_flag(name, *value, description)->disable_flag_override();
}

void add_common_options(CLI::App* app, raw_options* raw) {
  app->add_option("--simulate", raw->scenario_file, "Play a scenario on a simulated bus, then exit")
      ->type_name("FILE")
      ->check(check_file)
      ->group(has_simulated_bus ? "Options" : "");  // an empty group is not in the help
  add_flag(app, "--log", &raw->values.log, "Write the library's log to standard error");
}

void add_json(CLI::App* app, raw_options* raw) {
  add_flag(app, "--json", &raw->values.json, "Print one JSON object per line");
}

void add_filter(CLI::App* app, raw_options* raw) {
  app->add_option("--filter", raw->filters,
                  "Only devices that match one of: apple, airpods,\n"
                  "android, id=VVVV:PPPP, vendor=VVVV,\n"
                  "location=0xNNNNNNNN, port=1-2.3, class=CC,\n"
                  "interface=CC/SS/PP, mode=NAME (see below),\n"
                  "name=TEXT, serial=TEXT; or 'not:' and one of these\n"
                  "for all other devices. Repeat the option to\n"
                  "combine filters: a device must match all.")
      ->type_name("WHICH[,...]")
      ->allow_extra_args(false)
      ->check(check_filter);
}

CLI::Option* add_duration(CLI::App* app, const char* name, const char* description, std::string* value) {
  return app->add_option(name, *value, description)->type_name("DURATION")->check(check_duration);
}

CLI::App* add_list(CLI::App* app, raw_options* raw) {
  CLI::App* const list = app->add_subcommand("list", "List the attached devices, sorted by location");
  add_filter(list, raw);
  add_json(list, raw);
  add_flag(list, "--tree", &raw->values.tree, "Draw the tree of hubs and devices");
  return list;
}

CLI::App* add_show(CLI::App* app, raw_options* raw) {
  CLI::App* const show = app->add_subcommand("show", "Print everything that is known about a device");
  show->add_option("DEVICE", raw->selector,
                   "Its port (1-2.3), location (0x1230000) or ID\n(VVVV:PPPP); several devices may match")
      ->check(check_selector);
  add_json(show, raw);
  return show;
}

CLI::App* add_watch(CLI::App* app, raw_options* raw) {
  CLI::App* const watch = app->add_subcommand("watch", "List the attached devices, then report changes");
  add_filter(watch, raw);
  add_json(watch, raw);
  add_flag(watch, "--new", &raw->values.only_new, "Leave out the devices that are already attached");
  add_flag(watch, "--openable", &raw->values.openable, "Report also when each device can be opened");
  add_flag(watch, "--mark-listed", &raw->values.mark_listed,
           "With --json: print a line after the attached devices");
  add_duration(watch, "--heartbeat", "With --json: print a line at least this often", &raw->heartbeat)
      ->check(check_interval);
  add_duration(watch, "--for", "Exit after this time: 250ms, 10s, 5m", &raw->limit);
  watch->add_option("--count", raw->values.count, "Exit after this many events of devices")
      ->type_name("N")
      ->check(check_count);
  return watch;
}

CLI::App* add_wait(CLI::App* app, raw_options* raw) {
  CLI::App* const wait = app->add_subcommand("wait", "Wait until a device is attached, then print it");
  add_filter(wait, raw);
  add_json(wait, raw);
  add_flag(wait, "--new", &raw->values.only_new, "Leave out the devices that are already attached");
  add_flag(wait, "--openable", &raw->values.openable, "Wait until the device can be opened");
  add_flag(wait, "--gone", &raw->values.gone, "Wait until no matching device is attached instead");
  add_duration(wait, "--timeout", "Exit with status 3 after this time: 250ms, 10s, 5m", &raw->limit);
  return wait;
}

// What is wrong with options that do not go together; empty if all do.
std::string check_combinations(const options& given, bool heartbeat) {
  if (given.tree && given.json) return "--tree and --json cannot be combined";
  if (given.gone && given.only_new) return "--gone and --new cannot be combined";
  if (given.gone && given.openable) return "--gone and --openable cannot be combined";
  if (given.mark_listed && !given.json) return "--mark-listed needs --json";
  if (heartbeat && !given.json) return "--heartbeat needs --json";
  return {};
}

// The first argument that no command or option takes.
std::string unexpected(const CLI::App& app, int argc, const char* const* argv) {
  const std::vector<std::string> left = app.remaining(true);
  const auto* const found = std::find_if(argv + 1, argv + argc, [&](const char* each) {
    return std::find(left.begin(), left.end(), each) != left.end();
  });
  return found == argv + argc ? "unexpected argument" : "unexpected argument '" + std::string(*found) + "'";
}

// What is wrong with the number of values of an option, with whose name `message` begins.
std::string wrong_count(const CLI::App& app, const std::string& message) {
  std::string name = message.substr(0, message.find_first_of(": "));
  if (name.front() != '-') name.insert(0, "--");
  const CLI::Option* option = app.get_option_no_throw(name);
  if ((option == nullptr || option->count() == 0) && !app.get_subcommands().empty())
    option = app.get_subcommands().front()->get_option_no_throw(name);
  if (option == nullptr) return message;
  if (option->get_items_expected_max() == 0) return name + " takes no value";
  return option->count() > 1 ? name + " is given more than once"
                             : name + " needs a value: " + option->get_type_name();
}

// The parser's messages in the words of this program.
std::string message_of(const CLI::ParseError& wrong, const CLI::App& app, int argc, const char* const* argv) {
  if (dynamic_cast<const CLI::ExtrasError*>(&wrong) != nullptr) return unexpected(app, argc, argv);
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&wrong) != nullptr) return wrong_count(app, wrong.what());
  return wrong.what();
}

// Names separated by ", ", broken into lines.
std::string wrapped(const std::string& names) {
  constexpr std::size_t line = 76;
  std::string out;
  std::string_view rest = names;
  while (rest.size() > line) {
    const std::size_t end = rest.rfind(' ', line);
    out.append(rest.substr(0, end)) += '\n';
    rest.remove_prefix(end + 1);
  }
  return out.append(rest);
}

options finished(raw_options raw) {
  options result = std::move(raw.values);
  for (const std::string& text : raw.filters) {
    std::string error;
    result.filter = all_of(std::move(result.filter), parse_filter(text, &error));
  }
  if (!raw.selector.empty()) {
    std::string error;
    result.filter = parse_selector(raw.selector, &error);
  }
  if (!raw.heartbeat.empty()) result.heartbeat = parse_duration(raw.heartbeat);
  if (!raw.limit.empty()) result.limit = parse_duration(raw.limit);
  if (!raw.scenario_file.empty()) result.scenario_file = std::move(raw.scenario_file);
  return result;
}

}  // namespace

command_line parse_command_line(int argc, const char* const* argv) {
  raw_options raw;
  CLI::App app("Lists the attached USB devices and reports arrivals and removals.", "yusb");
  app.set_help_flag("-h,--help", "Print the options, or those of a command");
  app.set_version_flag("--version", "yusb " YUSB_VERSION, "Print the version");
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  app.require_subcommand(0, 1);
  const std::string statuses =
      "Exit status: 0 success; 1 no USB bus, incomplete list, no such device, or\n"
      "output failed; 2 invalid command line or scenario; 3 'wait' did not see what\n"
      "it waits for. See yusb(1).";
  app.footer(statuses);
  add_common_options(&app, &raw);

  const std::pair<CLI::App*, command> commands[] = {{add_list(&app, &raw), command::list},
                                                    {add_show(&app, &raw), command::show},
                                                    {add_watch(&app, &raw), command::watch},
                                                    {add_wait(&app, &raw), command::wait}};
  for (const auto& [each, chosen] : commands) {
    each->group("Commands");
    add_common_options(each, &raw);
    if (chosen != command::show) each->footer(wrapped("Modes: " + mode_names()) + ".\n\n" + statuses);
  }

  if (argc <= 1) return {std::nullopt, app.help(), exit_ok};
  const auto usage = [](std::string message) {
    return command_line{std::nullopt, std::move(message), exit_usage};
  };
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return {std::nullopt, app.help(), exit_ok};
  } catch (const CLI::CallForVersion& version) {
    return {std::nullopt, std::string(version.what()) + "\n", exit_ok};
  } catch (const CLI::ParseError& wrong) {
    return usage(message_of(wrong, app, argc, argv));
  }
  for (const auto& [each, chosen] : commands) {
    if (each->parsed()) raw.values.chosen = chosen;
  }
  if (app.get_subcommands().empty()) return usage("a command is missing: list, show, watch or wait");
  if (raw.values.chosen == command::show && raw.selector.empty())
    return usage("show needs a DEVICE: its port (1-2.3), location (0x1230000) or ID (VVVV:PPPP)");
  if (std::string wrong = check_combinations(raw.values, !raw.heartbeat.empty()); !wrong.empty())
    return usage(std::move(wrong));
  return {finished(std::move(raw)), {}, exit_ok};
}

}  // namespace yusb::tool
