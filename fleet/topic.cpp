#include "topic.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace yusb::fleet {

namespace {

constexpr std::size_t longest = 128;  // a level
constexpr std::size_t kept = 100;     // of one that is too long

bool plain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
         c == '-';
}

// Removes what precedes the first slash, and the slash.
std::string_view take_level(std::string_view& rest) {
  const std::size_t end = rest.find('/');
  const std::string_view level = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return level;
}

}  // namespace

std::uint64_t hash(std::string_view text) {
  std::uint64_t value = 0xcbf29ce484222325U;
  for (const char c : text) value = (value ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  return value;
}

std::string hex(std::uint64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
  return text;
}

std::string level(std::string_view name) {
  std::string made;
  for (const char c : name) {
    char encoded[4] = {c, '\0'};
    if (!plain(c))
      std::snprintf(encoded, sizeof encoded, "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    made += encoded;
  }
  if (made.size() > longest) made = made.substr(0, kept) + "~" + hex(hash(name));
  return made;
}

std::string name_of(std::string_view level) {
  std::string made;
  for (std::size_t i = 0; i < level.size(); ++i) {
    const auto digit = [&](std::size_t at) {
      return at < level.size() && std::isxdigit(static_cast<unsigned char>(level[at])) != 0;
    };
    if (level[i] == '%' && digit(i + 1) && digit(i + 2)) {
      made += static_cast<char>(std::strtol(std::string(level.substr(i + 1, 2)).c_str(), nullptr, 16));
      i += 2;
    } else {
      made += level[i];
    }
  }
  return made;
}

namespace {

// Otherwise two levels could be shown as hosts with the same name.
bool made_by_level(std::string_view text) {
  const bool shortened = text.size() == kept + 17 && text[kept] == '~';
  return shortened || level(name_of(text)) == text;
}

}  // namespace

std::optional<topic> parse_topic(std::string_view prefix, std::string_view text) {
  if (text.substr(0, prefix.size()) != prefix || text.substr(prefix.size(), 1) != "/") return std::nullopt;
  text.remove_prefix(prefix.size() + 1);
  topic made;
  made.host = take_level(text);
  made.what = take_level(text);
  const bool device = made.what == "device";
  made.device = take_level(text);
  const bool known = device || made.what == "status" || made.what == "inventory" || made.what == "event" ||
                     made.what == "sync";
  if (made.host.empty() || !made_by_level(made.host) || !known || device == made.device.empty() ||
      !text.empty())
    return std::nullopt;
  return made;
}

}  // namespace yusb::fleet
