#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <memory>

#include "connection.h"

namespace yusb::fleet {

std::optional<broker_address> parse_broker(std::string_view text) {
  broker_address made;
  const std::size_t scheme = text.find("://");
  if (scheme == std::string_view::npos) return std::nullopt;
  made.tls = text.substr(0, scheme) == "mqtts";
  if (!made.tls && text.substr(0, scheme) != "mqtt") return std::nullopt;
  made.port = made.tls ? 8883 : 1883;
  text.remove_prefix(scheme + 3);
  if (!text.empty() && text.back() == '/') text.remove_suffix(1);
  const bool bracketed = !text.empty() && text.front() == '[';
  const std::size_t end = bracketed ? text.find(']') : text.find(':');
  if (bracketed && end == std::string_view::npos) return std::nullopt;
  made.host = text.substr(bracketed ? 1 : 0, bracketed ? end - 1 : end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + (bracketed ? 1 : 0));
  if (!text.empty()) {
    const char* const last = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + 1, last, made.port);
    if (text.front() != ':' || error != std::errc() || stop != last) return std::nullopt;
  }
  const bool plain = made.host.find_first_of(" \t@/?#") == std::string::npos;
  if (made.host.empty() || !plain || made.port < 1 || made.port > 65535) return std::nullopt;
  return made;
}

std::vector<std::string> local_addresses(const std::string& host) {
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &wanted, &list) != 0) return {""};
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(list, freeaddrinfo);
  std::vector<std::string> made;
  for (const addrinfo* each = list; each != nullptr; each = each->ai_next) {
    const char* const any = each->ai_family == AF_INET6 ? "::" : "0.0.0.0";
    if (std::find(made.begin(), made.end(), any) == made.end()) made.emplace_back(any);
  }
  return made.size() > 1 ? made : std::vector<std::string>{""};
}

}  // namespace yusb::fleet
