// A byte string.
#ifndef YORVANCORE_YSTRING_H_
#define YORVANCORE_YSTRING_H_

#include <cstddef>

#if defined(__GNUC__) && !defined(YORVANCORE_STATIC)
#define YORVANCORE_EXPORT __attribute__((visibility("default")))
#else
#define YORVANCORE_EXPORT
#endif
#if defined(__GNUC__)
#define YORVANCORE_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))
#else
#define YORVANCORE_PRINTF(format_index, first_argument)
#endif

// An immutable byte string; assignment replaces the whole string.
//
// Copies share one reference-counted block. Copying and assigning therefore allocate nothing and never throw,
// and different objects may be used on different threads at the same time even if they share a block. An
// empty string has no block. Functions that create a string throw std::bad_alloc.
class YORVANCORE_EXPORT YString {
 public:
  YString() noexcept = default;
  // Copies the bytes before the first zero byte. Null yields an empty string.
  YString(const char* text);  // NOLINT(google-explicit-constructor): for literals
  // Copies `size` bytes, which may include zeros.
  YString(const char* bytes, std::size_t size);

  YString(const YString& other) noexcept;
  YString& operator=(const YString& other) noexcept;
  ~YString();

  // Returns the bytes and a terminating zero; never null. Valid until this object is assigned or destroyed.
  const char* data() const noexcept;
  std::size_t size() const noexcept;

  // Compares unsigned bytes; a prefix is less than the longer string.
  bool operator==(const YString& other) const noexcept;
  bool operator!=(const YString& other) const noexcept;
  bool operator<(const YString& other) const noexcept;

  // True if the string contains `part`. It always contains an empty string.
  bool contains(const YString& part) const noexcept;

  // Return a copy with A to Z mapped to a to z, or the reverse. Other bytes do not change, whatever the
  // locale.
  YString toLower() const;
  YString toUpper() const;

  // Formats like printf, to any length. Empty if the format is invalid.
  static YString format(const char* format, ...) YORVANCORE_PRINTF(1, 2);

 private:
  struct Block;
  static YString adopt(Block* block) noexcept;

  Block* _block = nullptr;
};

#endif  // YORVANCORE_YSTRING_H_
