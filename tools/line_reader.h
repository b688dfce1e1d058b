// One line of a scenario, read word by word.
#ifndef YUSB_TOOLS_LINE_READER_H_
#define YUSB_TOOLS_LINE_READER_H_

#include <string>
#include <string_view>

namespace yusb::tool {

// Why a line is wrong. Thrown by what reads it.
struct fault {
  std::string what;
};

std::string quoted(std::string_view text);

// Words are separated by blanks; a comment ends the line.
class line_reader {
 public:
  explicit line_reader(std::string_view line) : _rest(line) { skip_blanks(); }

  bool at_end() const { return _rest.empty(); }

  // The next word; empty at the end.
  std::string_view word() { return word_before(" \t"); }

  // The next word, which also ends before a colon.
  std::string_view word_before_colon() { return word_before(" \t:"); }

  // Skips a colon. False if there is none.
  bool take_colon();

  // The text before the next '='; skips the '='.
  std::string_view key();

  // A quoted string, with its escapes replaced.
  std::string text();

 private:
  std::string_view word_before(const char* ends);
  void skip_blanks();
  char32_t character();

  std::string_view _rest;
};

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_LINE_READER_H_
