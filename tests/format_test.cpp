// What the programs print and parse: strings, columns, JSON lines, filters.
#include <nlohmann/json.hpp>

#include "format/event_format.h"
#include "format/filter.h"
#include "format/utf8.h"
#include "support.h"

using namespace yusb::format;
using nlohmann::json;
using testing::IsSubstring;

namespace {

// Every byte but 0.
YString every_byte() {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  return {bytes.data(), bytes.size()};
}

// An Android phone whose serial number is "caf\u00E9,\u013D\U0001F601": a record keeps the low byte of each
// UTF-16 unit.
YUsbInfoDevice phone() {
  return make_record(0x18D1, 0x4EE7, "0x1A00000", "", {"", "", "caf\xE9,\x3D\x3D\x01"});
}

}  // namespace

TEST(FormatUtf8, ShowsNoControlCharacter) {
  const std::string shown = visible(utf8(every_byte()));
  EXPECT_PRED_FORMAT2(IsSubstring, "\\x9B", shown) << "the C1 form of ESC [";
  EXPECT_PRED_FORMAT2(IsSubstring, "\u00E9", shown);
  for (std::string_view rest = shown; !rest.empty();) {
    char32_t c = 0;
    ASSERT_TRUE(take_code_point(rest, &c));
    EXPECT_FALSE(c < 0x20 || (c >= 0x7F && c < 0xA0)) << std::uint32_t{c};
  }
}

TEST(FormatUtf8, EscapesEachByteThatIsMalformed) {
  EXPECT_EQ(visible("\u4E2D \U0001F600"), "\u4E2D \U0001F600");
  for (const std::string bytes : {"\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE0\x80\xAF"})
    EXPECT_EQ(visible(bytes).size(), 4 * bytes.size()) << "an escape has four characters";
}

TEST(FormatColumns, AlignWhateverTheStrings) {
  const YString accent = "\xE9";  // two bytes of UTF-8, but one column
  const YString lengthy = "a manufacturer with quite a name";
  const event pods{{}, true, make_record(0x05AC, 0x1393, "0x1000000", "", {accent, accent, accent})};
  const event galaxy{{}, false, make_record(0x04E8, 2, "0x1234560", "", {lengthy, lengthy, lengthy})};
  columns lines(false);
  lines.fit(galaxy);
  const std::string first = lines.line(pods);
  const std::string second = lines.line(galaxy);
  EXPECT_EQ(first.find("apple,airpods") - 3, second.find("android")) << "three accents";
  EXPECT_PRED_FORMAT2(IsSubstring, "  +  0x1000000   05ac:1393  1.00 ", first);
  EXPECT_PRED_FORMAT2(IsSubstring, "  -  0x1234560   04e8:0002  1.00 ", second);
}

TEST(FormatJson, KeepsEveryByteInOneAsciiLine) {
  const time_point when{std::chrono::milliseconds(86400023)};
  const YUsbInfoDevice pods = make_record(0x05AC, 0x139A, "0x1200000", nullptr, {every_byte(), "p", "s"});
  const std::string line = json_line({when, false, pods});
  for (const char c : line) EXPECT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7F));
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  json expected = json::parse(R"({"schema": 1, "time": "1970-01-02T00:00:00.023Z", "event": "removal",
      "location": "0x1200000", "vendor_id": "05ac", "product_id": "139a", "release": "1.00", "product": "p",
      "serial_number": "s", "apple": true, "airpods": true, "android": false})");
  expected["manufacturer"] = utf8(every_byte());
  EXPECT_EQ(json::parse(line), expected);
}

TEST(FormatFilter, PassesWhatAnAlternativeMatches) {
  for (const std::string text :
       {"android", "apple,android", "id=18d1:4EE7", "vendor=0x18D1", "location=0x01a00000",
        "serial=caf\u00E9,\u013D\U0001F601", "apple,serial=caf\u00E9,=\U0001F601"}) {
    std::string error;
    const auto filter = parse_filter(text, &error);
    ASSERT_TRUE(filter) << error;
    EXPECT_TRUE(filter(phone())) << text;
  }
}

TEST(FormatFilter, DropsWhatNoAlternativeMatches) {
  for (const std::string text :
       {"apple", "airpods,vendor=05ac", "id=18d1:4ee8", "id=18d2:4ee7", "location=1a00001", "serial="}) {
    std::string error;
    const auto filter = parse_filter(text, &error);
    ASSERT_TRUE(filter) << error;
    EXPECT_FALSE(filter(phone())) << text;
  }
}

TEST(FormatFilter, RejectsAnythingElse) {
  for (const std::string text :
       {"", "Apple", "apple,", "id=18d1", "id=18d1:", "id=18d1:4ee70", "vendor=", "vendor=18g1", "vendor=0x",
        "location=0x123456789", "color=red", "serial=\xFF"}) {
    std::string error;
    EXPECT_FALSE(parse_filter(text, &error)) << text;
    EXPECT_PRED_FORMAT2(IsSubstring, "is not one of apple", error);
  }
}
