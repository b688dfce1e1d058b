#include "options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <fstream>
#include <utility>
#include <vector>

#include "format/duration.h"
#include "format/utf8.h"

namespace yusb::fleet {

namespace {

struct raw_options {
  std::string broker;
  std::string password_file;
  std::string heartbeat;
  std::string limit;
  std::vector<std::string> filters;
  options values;
};

std::string check_broker(const std::string& text) {
  if (parse_broker(text)) return {};
  // The message may be logged, and must not repeat a password.
  const std::string given = text.find('@') == std::string::npos ? "'" + text + "'" : "an address with '@'";
  return given + " is not mqtt://HOST[:PORT] or mqtts://HOST[:PORT]";
}

std::string check_filter(const std::string& text) {
  std::string error;
  format::parse_filter(text, &error);
  return error;
}

std::string check_duration(const std::string& text) {
  return format::parse_duration(text) ? std::string()
                                      : "'" + text + "' is not a duration: " + format::duration_rule;
}

std::string check_heartbeat(const std::string& text) {
  const auto parsed = format::parse_duration(text);
  const bool fits = parsed && *parsed >= std::chrono::seconds(1) && *parsed <= std::chrono::hours(1) &&
                    *parsed % std::chrono::seconds(1) == std::chrono::seconds(0);
  return fits ? std::string() : "'" + text + "' is not a duration from 1s to 60m in whole seconds";
}

std::string check_prefix(const std::string& text) {
  const bool wrong = text.empty() || text.front() == '/' || text.front() == '$' || text.back() == '/' ||
                     text.find_first_of("+#") != std::string::npos || format::visible(text) != text;
  return wrong ? "'" + format::visible(text) +
                     "' cannot begin a topic: UTF-8 without +, #, control characters, leading $ or slash at "
                     "either end"
               : std::string();
}

void add_connection(CLI::App* app, raw_options* raw) {
  app->add_option("--broker", raw->broker, "The MQTT broker: mqtt[s]://HOST[:PORT]")
      ->type_name("URL")
      ->required()
      ->check(check_broker);
  app->add_option("--prefix", raw->values.prefix, "The first levels of all topics (default: yusb)")
      ->type_name("TOPIC")
      ->check(check_prefix);
  app->add_option("--user", raw->values.connection.user, "The user name for the broker")->type_name("NAME");
  app->add_option("--password-file", raw->password_file,
                  "A file with the password (default: the service's\ncredential mqtt-password)")
      ->type_name("FILE");
  app->add_option(
         "--ca", raw->values.connection.ca_file,
         "The CA certificates that the broker's certificate is\nverified with (default: the system's)")
      ->type_name("FILE")
      ->check(CLI::ExistingFile.description(""));
  CLI::Option* const certificate =
      app->add_option("--cert", raw->values.connection.certificate_file, "This client's certificate")
          ->type_name("FILE")
          ->check(CLI::ExistingFile.description(""));
  CLI::Option* const key = app->add_option("--key", raw->values.connection.key_file,
                                           "The key of that certificate, without a password")
                               ->type_name("FILE")
                               ->check(CLI::ExistingFile.description(""));
  certificate->needs(key);
  key->needs(certificate);
}

void add_filter(CLI::App* app, raw_options* raw) {
  app->add_option("--filter", raw->filters,
                  "Only devices that match; see yusb-filter(7). Repeat\nthe option to combine filters: a "
                  "device must match\nall.")
      ->type_name("WHICH[,...]")
      ->allow_extra_args(false)
      ->check(check_filter);
}

void add_json(CLI::App* app, raw_options* raw) {
  app->add_flag("--json", raw->values.json, "Print one JSON object per line");
}

void add_limit(CLI::App* app, const char* name, const char* description, raw_options* raw) {
  app->add_option(name, raw->limit, description)->type_name("DURATION")->check(check_duration);
}

// Without the values of unknown options, of which one may be a password, because the message may be logged.
std::string unknown(const std::vector<std::string>& arguments) {
  std::string names;
  for (const std::string& each : arguments) {
    if (each.size() > 1 && each[0] == '-')
      names += ' ' + (each[1] == '-' ? each.substr(0, each.find('=')) : each.substr(0, 2));
  }
  return names.empty() ? "unexpected argument: " + arguments.back() : "unknown option:" + names;
}

// Throws CLI::ValidationError.
std::string read_password(std::string file) {
  const char* const credentials = std::getenv("CREDENTIALS_DIRECTORY");
  const bool asked = !file.empty();
  if (!asked && credentials == nullptr) return {};
  if (!asked) file = std::string(credentials) + "/mqtt-password";
  std::ifstream in(file);
  std::string line;
  if (!std::getline(in, line) && asked) throw CLI::ValidationError("cannot read a password from " + file);
  return line;
}

std::string host_name() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

// Throws CLI::ValidationError.
options finished(raw_options raw) {
  options made = std::move(raw.values);
  made.connection.broker = *parse_broker(raw.broker);
  const bool tls = made.connection.broker.tls;
  if (!tls && !(made.connection.ca_file + made.connection.certificate_file).empty()) {
    throw CLI::ValidationError("--ca, --cert and --key need a broker of mqtts://");
  }
  made.connection.password = read_password(raw.password_file);
  if (!made.connection.password.empty() && made.connection.user.empty() && !raw.password_file.empty()) {
    throw CLI::ValidationError("--password-file needs --user");
  }
  for (const std::string& text : raw.filters) {
    std::string error;
    made.filter = format::all_of(std::move(made.filter), format::parse_filter(text, &error));
  }
  if (!raw.heartbeat.empty())
    made.heartbeat = std::chrono::duration_cast<std::chrono::seconds>(*format::parse_duration(raw.heartbeat));
  if (!raw.limit.empty()) made.limit = format::parse_duration(raw.limit);
  if (made.chosen == command::agent && made.host.empty()) made.host = host_name();
  return made;
}

}  // namespace

command_line parse_command_line(int argc, const char* const* argv) {
  raw_options raw;
  CLI::App app("Publishes a host's USB devices to an MQTT broker, and shows those of all hosts.",
               "yusb-fleet");
  app.set_help_flag("-h,--help", "Print the options, or those of a command");
  app.set_version_flag("--version", "yusb-fleet " YUSB_VERSION, "Print the version");
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  app.require_subcommand(0, 1);
  app.footer(
      "Exit status: 0 success; 1 failure; 2 invalid command line; 3 'wait' did not see\nwhat it waits for. "
      "See yusb-fleet(1).");

  CLI::App* const agent = app.add_subcommand("agent", "Publish this host's devices");
  add_filter(agent, &raw);
  agent
      ->add_option("--host", raw.values.host,
                   "This host's name in the fleet (default: the\nsystem's host name)")
      ->type_name("NAME");
  agent
      ->add_option(
          "--heartbeat", raw.heartbeat,
          "How often to publish if nothing changes (default:\n30s); a host is stale after three of these")
      ->type_name("DURATION")
      ->check(check_heartbeat);
  CLI::App* const list = app.add_subcommand("list", "List the hosts and their devices");
  add_filter(list, &raw);
  add_json(list, &raw);
  CLI::App* const watch =
      app.add_subcommand("watch", "List the hosts and their devices, then report every\nchange");
  add_filter(watch, &raw);
  add_json(watch, &raw);
  add_limit(watch, "--for", "Exit after this time: 250ms, 10s, 5m", &raw);
  CLI::App* const wait =
      app.add_subcommand("wait", "Wait until a device is attached to a host that is\nonline, then print it");
  add_filter(wait, &raw);
  add_json(wait, &raw);
  wait->add_flag("--gone", raw.values.gone, "Wait until no host has a matching device instead");
  add_limit(wait, "--timeout", "Exit with status 3 after this time: 250ms, 10s, 5m", &raw);
  CLI::App* const forget = app.add_subcommand("forget", "Clear the topics of a host that no longer exists");
  forget->add_option("HOST", raw.values.host, "The name of the host")->required();
  CLI::App* const metrics =
      app.add_subcommand("metrics", "Keep a file for Prometheus' node exporter up to\ndate");
  metrics
      ->add_option("FILE", raw.values.file,
                   "The file, replaced atomically; the exporter reads\nonly names that end in .prom")
      ->required();
  metrics->add_flag("--once", raw.values.once, "Write the file once, then exit");

  const std::pair<CLI::App*, command> commands[] = {{agent, command::agent},   {list, command::list},
                                                    {watch, command::watch},   {wait, command::wait},
                                                    {forget, command::forget}, {metrics, command::metrics}};
  for (const auto& [each, chosen] : commands) {
    each->group("Commands");
    add_connection(each, &raw);
  }

  if (argc <= 1) return {std::nullopt, app.help(), exit_ok};
  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty())
      throw CLI::RequiredError("One of agent, list, watch, wait, forget, metrics");
    for (const auto& [each, chosen] : commands) {
      if (each->parsed()) raw.values.chosen = chosen;
    }
    return {finished(std::move(raw)), {}, exit_ok};
  } catch (const CLI::CallForHelp&) {
    return {std::nullopt, app.help(), exit_ok};
  } catch (const CLI::CallForVersion& version) {
    return {std::nullopt, std::string(version.what()) + "\n", exit_ok};
  } catch (const CLI::ExtrasError&) {
    return {std::nullopt, unknown(app.remaining(true)), exit_usage};
  } catch (const CLI::ParseError& wrong) {
    return {std::nullopt, wrong.what(), exit_usage};
  }
}

}  // namespace yusb::fleet
