// A byte-exact text.
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

// A text of any bytes, never changed once made; assignment gives an object another text.
//
// Copies share one reference-counted block, so copying and assigning allocate nothing and never throw,
// and different objects may be used on different threads at once even where they share. An empty text has
// no block. Operations that make a text throw std::bad_alloc.
class YORVANCORE_EXPORT YString {
 public:
  YString() noexcept = default;
  // Up to the first zero byte. Null makes an empty text.
  YString(const char* text);  // NOLINT(google-explicit-constructor): texts are given as literals
  // `size` bytes, which may hold zeros.
  YString(const char* bytes, std::size_t size);
  YString(const YString& other) noexcept;
  YString& operator=(const YString& other) noexcept;
  ~YString();

  // The bytes and a zero behind them; never null. Valid until this object is assigned or destroyed.
  const char* data() const noexcept;
  std::size_t size() const noexcept;

  // By bytes, case-sensitive. The order is that of unsigned bytes; a prefix comes first.
  bool operator==(const YString& other) const noexcept;
  bool operator!=(const YString& other) const noexcept;
  bool operator<(const YString& other) const noexcept;

  // True if `part` occurs as a run of bytes; an empty part always does.
  bool contains(const YString& part) const noexcept;

  // A copy with A to Z mapped to a to z, or back. No other byte changes, whatever the locale.
  YString toLower() const;
  YString toUpper() const;

  // As printf, of any length. Empty if the format is invalid.
  static YString format(const char* format, ...) YORVANCORE_PRINTF(1, 2);

 private:
  struct Block;
  static YString adopt(Block* block) noexcept;

  Block* _block = nullptr;
};

#endif  // YORVANCORE_YSTRING_H_
