// usb-device VENDOR:PRODUCT [OPTION...]: attaches an emulated device to the kernel's vhci_hcd, prints its
// future path ("3-1"), and serves it in the background until it is detached.
//
// --release 0100  --speed full|high|super  --manufacturer, --product, --serial TEXT (UTF-8) --language 0409
// the language of its strings --interface FF0000      class, subclass and protocol of its only interface
// --stall LETTERS         stalls requests for these strings: m, p, s, and l for the language table --hold
// LETTERS          never answers requests for these; "a": never answers any request --times N --for MS
// attaches it N times for MS milliseconds, without pauses
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;
using clock_type = std::chrono::steady_clock;

const std::string controller = "/sys/devices/platform/vhci_hcd.0/";
constexpr int ports = 15;  // on each of the controller's two buses

struct description {
  unsigned vendor = 0;
  unsigned product = 0;
  unsigned release = 0x0100;
  std::string speed = "high";
  std::string strings[3];  // manufacturer, product, serial number
  unsigned language = 0x0409;
  unsigned interface = 0xFF0000;
  std::string stall;
  std::string hold;
  int times = 1;
  int milliseconds = -1;  // forever
};

[[noreturn]] void fail(const std::string& message) {
  std::cerr << "usb-device: " << message << '\n';
  std::exit(1);
}

void put(bytes& to, unsigned value) {
  to.push_back(static_cast<std::uint8_t>(value));
  to.push_back(static_cast<std::uint8_t>(value >> 8));
}

bytes string_descriptor(const std::string& utf8) {
  bytes result = {0, 3};
  for (std::size_t i = 0; i < utf8.size();) {
    const auto first = static_cast<std::uint8_t>(utf8[i++]);
    std::uint32_t code = first < 0x80   ? first
                         : first < 0xE0 ? first & 0x1F
                         : first < 0xF0 ? first & 15
                                        : first & 7;
    for (; i < utf8.size() && (utf8[i] & 0xC0) == 0x80; ++i) code = code << 6 | (utf8[i] & 0x3F);
    if (code >= 0x10000) put(result, 0xD7C0 + (code >> 10));
    put(result, code >= 0x10000 ? 0xDC00 | (code & 0x3FF) : code);
  }
  if (result.size() > 254) result.resize(254);
  result[0] = static_cast<std::uint8_t>(result.size());
  return result;
}

bool has(const std::string& letters, char letter) { return letters.find(letter) != std::string::npos; }

bytes device_descriptor(const description& of) {
  const bool super = of.speed == "super";
  bytes result = {18, 1};
  put(result, super ? 0x300 : 0x200);
  result.insert(result.end(), {0, 0, 0, static_cast<std::uint8_t>(super ? 9 : 64)});
  put(result, of.vendor);
  put(result, of.product);
  put(result, of.release);
  for (unsigned i = 0; i < 3; ++i) {
    const bool offered = !of.strings[i].empty() || has(of.stall + of.hold, "mps"[i]);
    result.push_back(static_cast<std::uint8_t>(offered ? i + 1 : 0));
  }
  result.push_back(1);
  return result;
}

// One interface without endpoints.
bytes configuration(const description& of) {
  bytes result = {9, 2, 18, 0, 1, 1, 0, 0x80, 50, 9, 4, 0, 0, 0};
  for (const int shift : {16, 8, 0}) result.push_back(static_cast<std::uint8_t>(of.interface >> shift));
  result.push_back(0);
  return result;
}

const bytes capabilities = {5, 15, 22, 0, 2, 7, 16, 2, 2, 0, 0, 0, 10, 16, 3, 0, 14, 0, 1, 10, 255, 7};

struct setup {
  unsigned type, request, value, length;
};

// True if the device never answers the request.
bool holds(const description& of, const setup& asked) {
  if (has(of.hold, 'a')) return true;
  const unsigned index = asked.value & 0xFF;
  return asked.request == 6 && asked.value >> 8 == 3 && index <= 3 && has(of.hold, "lmps"[index]);
}

// Empty if the device stalls the request.
std::optional<bytes> answer(const description& of, const setup& asked) {
  if ((asked.type & 0x60) != 0) return std::nullopt;
  if (asked.request == 0) return bytes{1, 0};
  if (asked.request != 6) return bytes();
  const unsigned index = asked.value & 0xFF;
  switch (asked.value >> 8) {
    case 1:
      return device_descriptor(of);
    case 2:
      return configuration(of);
    case 3:
      if (index > 3 || has(of.stall, "lmps"[index])) return std::nullopt;
      if (index != 0) return string_descriptor(of.strings[index - 1]);
      return bytes{4, 3, static_cast<std::uint8_t>(of.language), static_cast<std::uint8_t>(of.language >> 8)};
    case 15:
      return capabilities;
    default:
      return std::nullopt;
  }
}

bool receive(int socket, void* to, std::size_t size) {
  return recv(socket, to, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

// Serves USB/IP (Documentation/usb/usbip_protocol.rst of the kernel) until the kernel closes the connection
// or the time has passed.
void serve(const description& of, int socket, clock_type::time_point end) {
  for (;;) {
    pollfd watched = {socket, POLLIN, 0};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - clock_type::now()).count();
    const int limit = of.milliseconds < 0 ? -1 : static_cast<int>(std::max<long long>(left, 0));
    if (poll(&watched, 1, limit) <= 0) return;
    std::uint32_t header[12];
    if (!receive(socket, header, sizeof header)) return;
    const auto field = [&](int i) { return ntohl(header[i]); };
    const bool submits = field(0) == 1;
    const bool in = field(3) == 1;
    bytes data(submits && !in ? field(6) : 0);
    if (!data.empty() && !receive(socket, data.data(), data.size())) return;
    std::uint8_t raw[8];
    std::memcpy(raw, &header[10], sizeof raw);
    const setup asked = {raw[0], raw[1], raw[2] | unsigned(raw[3]) << 8, raw[6] | unsigned(raw[7]) << 8};
    if (submits && (field(4) != 0 || holds(of, asked))) continue;

    std::uint32_t reply[12] = {htonl(submits ? 3 : 4), header[1]};
    bytes answered;
    if (submits) {
      const std::optional<bytes> found = answer(of, asked);
      if (found.has_value() && in) answered = *found;
      if (answered.size() > asked.length) answered.resize(asked.length);
      reply[5] = htonl(static_cast<std::uint32_t>(found.has_value() ? 0 : -EPIPE));
      reply[6] = htonl(static_cast<std::uint32_t>(in ? answered.size() : data.size()));
    } else {
      reply[5] = htonl(static_cast<std::uint32_t>(-ECONNRESET));  // only a held request can be unlinked
    }
    const auto* const start = reinterpret_cast<const std::uint8_t*>(reply);
    answered.insert(answered.begin(), start, start + sizeof reply);
    if (send(socket, answered.data(), answered.size(), MSG_NOSIGNAL) < 0) return;
  }
}

// True if no device is attached to a port.
bool is_free(int port) {
  std::ifstream status(controller + "status");
  std::string line;
  while (std::getline(status, line)) {
    char bus[8];
    int number;
    int state;
    if (std::sscanf(line.c_str(), "%7s %d %d", bus, &number, &state) == 3 && number == port)
      return state == 4;
  }
  return false;
}

// Returns our end of a new connection to a port; -1 if another process took the port.
int attach(const description& of, int port) {
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) fail("no sockets");
  const int speed = of.speed == "super" ? 5 : of.speed == "full" ? 2 : 3;
  const std::string text = std::to_string(port) + ' ' + std::to_string(sockets[1]) + ' ' +
                           std::to_string(0x10000 + port) + ' ' + std::to_string(speed);
  const int file = open((controller + "attach").c_str(), O_WRONLY | O_CLOEXEC);
  const bool written = file >= 0 && write(file, text.data(), text.size()) > 0;
  close(file);
  close(sockets[1]);
  if (written) return sockets[0];
  close(sockets[0]);
  return -1;
}

// The number of the controller's bus for devices of this speed.
int find_bus(bool super) {
  for (int bus = 1; bus < 100; ++bus) {
    std::ifstream file(controller + "usb" + std::to_string(bus) + "/speed");
    int speed = 0;
    if (file >> speed && (speed >= 5000) == super) return bus;
  }
  fail("no vhci_hcd");
}

description parse(int argc, char** argv) {
  description result;
  if (argc < 2 || std::sscanf(argv[1], "%x:%x", &result.vendor, &result.product) != 2)
    fail("no VENDOR:PRODUCT");
  for (int i = 2; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    const std::string value = argv[i + 1];
    if (option == "--release")
      result.release = static_cast<unsigned>(std::stoul(value, nullptr, 16));
    else if (option == "--speed")
      result.speed = value;
    else if (option == "--manufacturer")
      result.strings[0] = value;
    else if (option == "--product")
      result.strings[1] = value;
    else if (option == "--serial")
      result.strings[2] = value;
    else if (option == "--language")
      result.language = static_cast<unsigned>(std::stoul(value, nullptr, 16));
    else if (option == "--interface")
      result.interface = static_cast<unsigned>(std::stoul(value, nullptr, 16));
    else if (option == "--stall")
      result.stall = value;
    else if (option == "--hold")
      result.hold = value;
    else if (option == "--times")
      result.times = std::stoi(value);
    else if (option == "--for")
      result.milliseconds = std::stoi(value);
    else
      fail("no option is called " + option);
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  const description device = parse(argc, argv);
  const bool super = device.speed == "super";
  const int bus = find_bus(super);
  int port = super ? ports : 0;
  const int last = port + ports;
  int connection = -1;
  for (; port < last && connection < 0; ++port) {
    if (is_free(port)) connection = attach(device, port);
  }
  if (connection < 0) fail("no port is free");
  --port;
  std::cout << bus << '-' << port % ports + 1 << std::endl;

  const pid_t child = fork();
  if (child != 0) return child < 0;
  setsid();
  for (const int number : {0, 1}) close(number);
  for (int left = device.times;;) {
    serve(device, connection, clock_type::now() + std::chrono::milliseconds(device.milliseconds));
    close(connection);
    if (--left == 0) return 0;
    while (!is_free(port) || (connection = attach(device, port)) < 0) usleep(200);
  }
}
