#include "event_format.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "utf8.h"

namespace yusb::format {

namespace {

constexpr std::size_t widest = 40;  // of a column; longer strings overflow

constexpr const char* green = "\033[32m";
constexpr const char* red = "\033[31m";
constexpr const char* dim = "\033[2m";
constexpr const char* bold = "\033[1m";
constexpr const char* plain = "\033[0m";

std::string formatted(const char* format, unsigned a, unsigned b) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, format, a, b);
  return buffer;
}

std::string time_text(time_point when, const char* format,
                      std::tm* (*broken_down)(const std::time_t*, std::tm*)) {
  // Rounded down, also before 1970, so that the milliseconds are never negative.
  const auto since_epoch = std::chrono::floor<std::chrono::milliseconds>(when).time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since_epoch);
  const auto whole = static_cast<std::time_t>(seconds.count());
  std::tm fields{};
  char buffer[32] = "";
  if (broken_down(&whole, &fields) != nullptr) std::strftime(buffer, sizeof buffer, format, &fields);
  return buffer + formatted(".%03u", static_cast<unsigned>((since_epoch - seconds).count()), 0);
}

std::string cell(const YString& text) { return text.size() == 0 ? "-" : visible(utf8(text)); }

std::string tags(const YUsbInfoDevice& device) {
  std::string text;
  if (device_is_apple(device)) text += ",apple";
  if (device_is_airpods(device)) text += ",airpods";
  if (device_is_android(device)) text += ",android";
  return text.empty() ? "-" : text.substr(1);
}

}  // namespace

std::string release_text(unsigned short release) {
  return formatted("%x.%02x", release >> 8, release & 0xFFU);
}

columns::cells columns::cells_of(const event& event, const std::string& branch) {
  const YUsbInfoDevice& device = event.device;
  return {branch + cell(device.location()), formatted("%04x:%04x", device.vendorID(), device.productID()),
          release_text(device.revisedID()), cell(device.factory()),
          cell(device.describe()),          cell(device.serialNumber())};
}

void columns::fit(const event& event, const std::string& branch) {
  const cells made = cells_of(event, branch);
  for (std::size_t i = 0; i < _count; ++i) {
    const std::size_t needed = width(made[i]);
    if (needed <= widest) _widths[i] = std::max(_widths[i], needed);
  }
}

std::string columns::line(const event& event, const std::string& branch) {
  fit(event, branch);
  const cells made = cells_of(event, branch);
  const auto in = [&](const char* colour, const std::string& text) {
    return _coloured ? colour + text + plain : text;
  };
  std::string out = in(dim, time_text(event.when, "%H:%M:%S", localtime_r)) + "  ";
  out += in(event.arrived ? green : red, event.arrived ? "+" : "-");
  for (std::size_t i = 0; i < _count; ++i) {
    out += "  " + (i == 1 ? in(bold, made[i]) : made[i]);
    out.append(_widths[i] - std::min(_widths[i], width(made[i])), ' ');
  }
  return out + "  " + tags(event.device) + "\n";
}

std::string json_line(const event& event) {
  const YUsbInfoDevice& device = event.device;
  nlohmann::ordered_json object;
  object["schema"] = 1;
  object["time"] = time_text(event.when, "%Y-%m-%dT%H:%M:%S", gmtime_r) + "Z";
  object["event"] = event.arrived ? "arrival" : "removal";
  object["location"] = utf8(device.location());
  object["vendor_id"] = formatted("%04x", device.vendorID(), 0);
  object["product_id"] = formatted("%04x", device.productID(), 0);
  object["release"] = release_text(device.revisedID());
  object["manufacturer"] = utf8(device.factory());
  object["product"] = utf8(device.describe());
  object["serial_number"] = utf8(device.serialNumber());
  object["apple"] = device_is_apple(device);
  object["airpods"] = device_is_airpods(device);
  object["android"] = device_is_android(device);
  constexpr bool ascii = true;  // otherwise DEL and C1 control characters would reach a terminal unescaped
  return object.dump(-1, ' ', ascii) + "\n";
}

}  // namespace yusb::format
