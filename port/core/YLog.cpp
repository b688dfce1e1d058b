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

namespace {

// Held while the sink runs, so that lines do not mix and a sink no longer runs after its replacement.
std::mutex _sinkMutex;
YLog::Sink _sink = nullptr;      // under _sinkMutex
void* _sinkUser = nullptr;       // under _sinkMutex
std::atomic<int> _threshold{0};  // no lock: a stale value only shows or hides one line
thread_local bool _insideSink = false;

// Formats a value of up to four digits like "%04X".
std::array<char, 5> hexadecimal(unsigned value) {
  constexpr char digits[] = "0123456789ABCDEF";
  return {digits[value >> 12], digits[value >> 8 & 15], digits[value >> 4 & 15], digits[value & 15]};
}

constexpr std::size_t linesWithoutHeap = 512;  // bytes, including the terminating zero

// Escapes control characters: they could change the state of a terminal, or end a line.
bool isControl(char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F; }

// Writes a line with one call of fwrite, so that lines do not mix. Allocates only for lines that were
// allocated themselves.
void writeToStandardError(const char* line, std::size_t size) {
  constexpr std::size_t escapedSize = 4;
  char onStack[escapedSize * linesWithoutHeap];
  const auto controls = static_cast<std::size_t>(std::count_if(line, line + size, isControl));
  std::unique_ptr<char[]> onHeap;
  if (const std::size_t needed = size + (escapedSize - 1) * controls + 1; needed > sizeof onStack) {
    onHeap.reset(new (std::nothrow) char[needed]);
    if (onHeap == nullptr) size = std::min(size, linesWithoutHeap - 1);
  }
  char* const text = onHeap == nullptr ? onStack : onHeap.get();
  char* end = text;
  for (std::size_t i = 0; i < size; ++i) {
    if (isControl(line[i])) {
      const auto digits = hexadecimal(static_cast<unsigned char>(line[i]));
      end = std::copy_n("\\x", 2, end);
      end = std::copy_n(digits.data() + 2, 2, end);
    } else {
      *end++ = line[i];
    }
  }
  *end++ = '\n';
  std::fwrite(text, 1, static_cast<std::size_t>(end - text), stderr);
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

// vsnprintf with a fast path for formats whose only conversion is a %s or %04X at the end, as in all lines of
// a device report.
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
  char buffer[linesWithoutHeap];
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
