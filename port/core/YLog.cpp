#include <YorvanCore/YLog.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>

namespace {

std::mutex _sinkMutex;  // held while the sink runs, so lines do not mix and a sink ends with its replacement
YLog::Sink _sink = nullptr;      // under _sinkMutex
void* _sinkUser = nullptr;       // under _sinkMutex
std::atomic<int> _threshold{0};  // no lock: an out-of-date value shows or hides one line
thread_local bool _insideSink = false;

// Appends what a terminal or a reader of lines cannot be harmed by.
void appendVisible(std::string& out, const char* line, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    const auto c = static_cast<unsigned char>(line[i]);
    if ((c < 0x20 && c != '\t') || c == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
}

void writeToStandardError(const char* line, std::size_t size) {
  std::string text;
  text.reserve(size + 1);
  appendVisible(text, line, size);
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);  // one call is one line, whoever else writes
}

void hand(EYORVAN_LOG_LEVEL level, const char* line, std::size_t size) {
  if (_insideSink) {
    writeToStandardError(line, size);
    return;
  }
  const std::lock_guard<std::mutex> lock(_sinkMutex);
  if (_sink == nullptr) {
    writeToStandardError(line, size);
    return;
  }
  _insideSink = true;
  _sink(level, line, size, _sinkUser);
  _insideSink = false;
}

// "%04X" of a value that fits in it.
std::array<char, 5> hexadecimal(unsigned value) {
  constexpr char digits[] = "0123456789ABCDEF";
  return {digits[value >> 12], digits[value >> 8 & 15], digits[value >> 4 & 15], digits[value & 15]};
}

// As vsnprintf, in a fraction of its steps for the lines that a device's report is made of: those that end in
// their only conversion, a %s or a %04X.
int formatLine(char* buffer, std::size_t capacity, const char* format, va_list arguments) {
  const char* const conversion = std::strchr(format, '%');
  const std::size_t start = conversion == nullptr ? std::strlen(format) : conversion - format;
  std::array<char, 5> digits;
  const char* text = "";
  if (start >= capacity) return std::vsnprintf(buffer, capacity, format, arguments);
  if (conversion != nullptr && std::strcmp(conversion, "%s") == 0) {
    const char* const given = va_arg(arguments, const char*);
    text = given == nullptr ? "(null)" : given;
  } else if (conversion != nullptr && std::strcmp(conversion, "%04X") == 0) {
    const unsigned value = va_arg(arguments, unsigned);
    if (value > 0xFFFF) return std::snprintf(buffer, capacity, format, value);
    digits = hexadecimal(value);
    text = digits.data();
  } else if (conversion != nullptr) {
    return std::vsnprintf(buffer, capacity, format, arguments);
  }
  const std::size_t size = std::strlen(text);
  if (size > std::size_t{INT_MAX} - start) return -1;
  const std::size_t fitting = std::min(size, capacity - start - 1);
  std::memcpy(buffer, format, start);
  std::memcpy(buffer + start, text, fitting);
  buffer[start + fitting] = '\0';
  return static_cast<int>(start + size);
}

}  // namespace

void YLog::output(EYORVAN_LOG_LEVEL level, const char* format, ...) noexcept {
  if (level < _threshold.load(std::memory_order_relaxed)) return;
  char buffer[512];  // longer lines go through the heap
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = formatLine(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  const std::size_t size = length < 0 ? 0 : static_cast<std::size_t>(length);
  if (length >= 0 && size < sizeof buffer) {
    hand(level, buffer, size);
  } else if (length >= 0) {
    const std::unique_ptr<char[]> whole(new (std::nothrow) char[size + 1]);
    if (whole != nullptr) {
      std::vsnprintf(whole.get(), size + 1, format, again);
      hand(level, whole.get(), size);
    } else {
      hand(level, buffer, sizeof buffer - 1);
    }
  }
  va_end(again);
}

void YLog::setSink(Sink sink, void* user) noexcept {
  if (_insideSink) return;
  const std::lock_guard<std::mutex> lock(_sinkMutex);
  _sink = sink;
  _sinkUser = user;
}

void YLog::setThreshold(EYORVAN_LOG_LEVEL level) noexcept {
  _threshold.store(level, std::memory_order_relaxed);
}
