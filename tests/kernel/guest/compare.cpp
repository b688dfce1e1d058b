// usb-compare [--exact] STREAM...: waits until the list of devices that results from each stream of events is
// equal to sysfs, and prints how much was compared. It fails after a minute, or as soon as a stream is
// inconsistent: arrivals and removals do not alternate, a removal is not of the device that arrived, a device
// arrives before its hub or is removed after it. With --exact each stream must have as many events at each
// location as the first stream, which is the kernel's.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>

#include "sysfs.h"

namespace {

using nlohmann::json;

constexpr auto limit = std::chrono::minutes(1);

[[noreturn]] void fail(const std::string& message) {
  std::cout << "failed: " << message << '\n';
  std::exit(1);
}

struct stream {
  std::string name;
  std::map<std::string, json> picture;     // by location
  std::map<std::string, unsigned> counts;  // of events, by location
  unsigned events = 0;
};

// The location of the hub: "0x1200000" for "0x1230000". Empty for a root hub, and if the location is a hash.
std::string hub_of(const std::string& location) {
  unsigned value = static_cast<unsigned>(std::stoul(location, nullptr, 16));
  if ((value & 0x00F00000) == 0) return {};
  unsigned digit = 0;
  while (((value >> digit) & 15) == 0) digit += 4;
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", value & ~(15u << digit));
  return text;
}

bool same_device(json a, json b) {
  for (json* each : {&a, &b}) {
    for (const char* field : {"event", "time"}) each->erase(field);
  }
  return a == b;
}

void record(stream& to, const json& line) {
  const std::string event = line.at("event");
  if (event == "resync") {
    to.picture.clear();
    return;
  }
  const std::string location = line.at("location");
  const auto listed = to.picture.find(location);
  const bool known = listed != to.picture.end();
  ++to.counts[location];
  ++to.events;
  if (event == "arrival") {
    if (known) fail(to.name + ": arrived twice: " + line.dump());
    const std::string hub = hub_of(location);
    if (!hub.empty() && to.picture.count(hub) == 0)
      fail(to.name + ": arrived before its hub: " + line.dump());
    to.picture[location] = line;
    return;
  }
  if (!known) fail(to.name + ": left without having arrived: " + line.dump());
  if (!same_device(listed->second, line)) fail(to.name + ": another left than had arrived: " + line.dump());
  to.picture.erase(listed);
  for (const auto& left : to.picture) {
    if (hub_of(left.first) == location) fail(to.name + ": left before what is behind it: " + line.dump());
  }
}

stream read_stream(const std::string& name) {
  stream result{name, {}, {}, 0};
  std::ifstream file(name);
  if (!file) fail("no stream " + name);
  // A line without a line feed is still being written.
  for (std::string text; std::getline(file, text) && !file.eof();) record(result, json::parse(text));
  return result;
}

// The string of a record, converted to UTF-8: the low byte of each UTF-16 code unit.
std::string as_reported(const std::string& utf8) {
  std::string result;
  const auto put = [&](unsigned unit) {
    const unsigned low = unit & 0xFF;
    if (low >= 0x80) result += static_cast<char>(0xC0 | low >> 6);
    result += static_cast<char>(low >= 0x80 ? 0x80 | (low & 0x3F) : low);
  };
  for (std::size_t i = 0; i < utf8.size();) {
    const auto first = static_cast<unsigned char>(utf8[i++]);
    unsigned code = first < 0x80   ? first
                    : first < 0xE0 ? first & 0x1F
                    : first < 0xF0 ? first & 15
                                   : first & 7;
    for (; i < utf8.size() && (utf8[i] & 0xC0) == 0x80; ++i) code = code << 6 | (utf8[i] & 0x3F);
    if (code >= 0x10000) put(0xD7C0 + (code >> 10));
    put(code >= 0x10000 ? 0xDC00 | (code & 0x3FF) : code);
  }
  return result;
}

struct device {
  std::string path;
  std::string location;
  json fields;
};

// Empty if the device is being detached.
std::optional<device> read_device(const std::string& path) {
  const std::string folder = sysfs + path + '/';
  const auto vendor = read_file(folder + "idVendor");
  const auto product = read_file(folder + "idProduct");
  const auto release = read_file(folder + "bcdDevice");
  const auto descriptor = read_file(folder + "descriptors");
  if (!vendor || !product || !release || !descriptor || descriptor->size() < 17) return std::nullopt;
  device result{path, location(path), {{"vendor_id", *vendor}, {"product_id", *product}}};
  const std::size_t zeros = release->front() == '0' ? 1 : 0;
  result.fields["release"] = release->substr(zeros, 2 - zeros) + "." + release->substr(2);
  const char* const files[] = {"manufacturer", "product", "serial"};
  const char* const names[] = {"manufacturer", "product", "serial_number"};
  for (int i = 0; i < 3; ++i) {
    const auto text = read_file(folder + files[i]);
    if (text.has_value()) result.fields[names[i]] = *text;
    // If sysfs lacks a string that the device has, the result depends on the privileges of the client.
    if (!text.has_value() && (*descriptor)[14 + i] == 0) result.fields[names[i]] = "";
  }
  return result;
}

// The program reports complete strings, or those of the record if it could no longer read them.
bool includes(const json& reported, const json& fields) {
  return std::all_of(fields.items().begin(), fields.items().end(), [&](const auto& field) {
    const std::string text = reported.value(field.key(), "");
    return text == field.value() || text == as_reported(field.value());
  });
}

// Returns the first difference; empty if there is none. The kernel's stream has no fields.
std::string difference(stream from, bool has_fields) {
  for (const std::string& path : attached_paths()) {
    const std::optional<device> found = read_device(path);
    if (!found.has_value()) return path + " is leaving sysfs";
    auto reported = from.picture.find(found->location);
    if (found->location.empty()) {
      reported = std::find_if(from.picture.begin(), from.picture.end(),
                              [&](const auto& each) { return includes(each.second, found->fields); });
    }
    if (reported == from.picture.end()) return from.name + " lacks " + path + ": " + found->fields.dump();
    if (has_fields && !includes(reported->second, found->fields)) {
      return from.name + ": " + path + " is " + found->fields.dump() + ", not " + reported->second.dump();
    }
    from.picture.erase(reported);
  }
  if (from.picture.empty()) return {};
  return from.name + " has what is not there: " + from.picture.begin()->second.dump();
}

std::string count_difference(const stream& kernel, const stream& other) {
  for (const auto* each : {&kernel, &other}) {
    for (const auto& [location, count] : each->counts) {
      const auto of = [&location = location](const stream& in) {
        const auto found = in.counts.find(location);
        return found == in.counts.end() ? 0u : found->second;
      };
      if (of(kernel) != of(other)) {
        return other.name + " has " + std::to_string(of(other)) + " events at " + location +
               ", the kernel had " + std::to_string(of(kernel));
      }
    }
  }
  return {};
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> names(argv + 1, argv + argc);
  const bool exact = !names.empty() && names[0] == "--exact";
  if (exact) names.erase(names.begin());
  const auto end = std::chrono::steady_clock::now() + limit;
  for (std::string different;; usleep(20000)) {
    if (!different.empty() && std::chrono::steady_clock::now() > end) fail("after a minute: " + different);
    different.clear();
    unsigned events = 0;
    std::optional<stream> kernel;
    for (const std::string& name : names) {
      const stream read = read_stream(name);
      events += read.events;
      const bool from_kernel = exact && !kernel.has_value();
      if (different.empty()) different = difference(read, !from_kernel);
      if (different.empty() && kernel.has_value()) different = count_difference(*kernel, read);
      if (from_kernel) kernel = read;
    }
    if (!different.empty()) continue;
    std::cout << "compared " << names.size() << " streams, " << events << " events, "
              << attached_paths().size() << " devices\n";
    return 0;
  }
}
