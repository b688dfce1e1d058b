// The output and the input of the programs: strings, columns, JSON lines, filters.
#include <nlohmann/json.hpp>

#include "format/device_table.h"
#include "format/filter.h"
#include "format/json.h"
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

// An Android phone with ADB and MTP. Its record has the low byte of each UTF-16 code unit of its strings.
known_device phone() {
  known_device made;
  made.record = make_record(0x18D1, 0x4EE7, "0x1A00000", "", {"Google", "Caf\xE9 -", "caf\xE9,=\x3D\x01"});
  yusb::usb_details& details = made.details.emplace();
  details.bus = 1;
  details.address = 7;
  details.port_path = "1-10";
  details.device_node = "/dev/bus/usb/001/007";
  details.usb_version = 0x0210;
  details.speed = 1.5;
  details.configurations = 1;
  details.max_power = 500;
  details.interfaces = {{0, 0xFF, 0x42, 0x01, "ADB \u4E2D", "usbfs"}, {1, 0x06, 0x01, 0x01, "MTP", ""}};
  details.manufacturer = "Google";
  details.product_name = "CAFE\u0301 \u4E2D";  // an accent that combines with the E
  details.serial_number = "caf\u00E9,\u013D\U0001F601\x1B";
  return made;
}

}  // namespace

TEST(FormatUtf8, EscapesControlCharactersAndMalformedBytes) {
  const std::string shown = visible(utf8(every_byte()));
  EXPECT_PRED_FORMAT2(IsSubstring, "\\x9B", shown) << "the C1 form of ESC [";
  for (std::string_view rest = shown; !rest.empty();) {
    char32_t c = 0;
    ASSERT_TRUE(take_code_point(rest, &c));
    EXPECT_FALSE(c < 0x20 || (c >= 0x7F && c < 0xA0)) << std::uint32_t{c};
  }
  EXPECT_EQ(visible("\u4E2D \U0001F600"), "\u4E2D \U0001F600");
  EXPECT_EQ(visible("\u202Ea\u200F\u200Bb"), "\\u{202E}a\\u{200F}\\u{200B}b");
  for (const std::string bytes : {"\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE0\x80\xAF"})
    EXPECT_EQ(visible(bytes).size(), 4 * bytes.size()) << "an escape has four characters";
}

// Columns of a terminal, as tmux, xterm and glibc's wcwidth count them.
TEST(FormatUtf8, CountsAndCutsCells) {
  EXPECT_EQ(width("\u4E2D\U0001F600"), 4u);
  EXPECT_EQ(width("e\u0301\u200B"), 1u);
  EXPECT_EQ(cut("\u4E2D\u4E2D\u4E2D", 5), "\u4E2D\u4E2D\u2026");
  EXPECT_EQ(cut("\u4E2D\u4E2D\u4E2D", 4), "\u4E2D\u2026") << "half a character is none";
  EXPECT_EQ(cut("e\u0301e\u0301e\u0301", 2), "e\u0301\u2026") << "an accent stays with its letter";
}

TEST(FormatTable, FitsATerminal) {
  for (std::size_t cells = 1; cells < 130; ++cells) {
    device_table table(device_table::kind::events, true);
    table.set_limit(cells);
    std::string line = table.line({{}, event_kind::arrival, phone(), false});
    for (std::size_t at; (at = line.find('\033')) != std::string::npos;)
      line.erase(at, line.find('m', at) + 1 - at);
    line.pop_back();
    EXPECT_LE(width(line), cells) << line;
    EXPECT_PRED_FORMAT2(IsSubstring, std::string("1-10").substr(0, cells < 4 ? cells - 1 : 4), line);
    const bool cut_short = line.find("\u2026") != std::string::npos;
    const bool complete = line.find("0x1A00000") != std::string::npos;
    EXPECT_TRUE(cells < 120 || (complete && !cut_short)) << line;
    EXPECT_TRUE(cells > 90 || !complete) << "the location is left out first: " << line;
  }
}

TEST(FormatJson, CarriesTheDetailsAndWholeStringsInOneAsciiLine) {
  const time_point when{std::chrono::milliseconds(86400023)};
  const std::string line = json_line({when, event_kind::removal, phone(), true});
  for (const char c : line) EXPECT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7F));
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  const json expected = json::parse(R"({"schema": 1, "time": "1970-01-02T00:00:00.023Z", "event": "removal",
      "location": "0x1A00000", "vendor_id": "18d1", "product_id": "4ee7", "release": "1.00",
      "manufacturer": "Google", "product": "CAFE\u0301 \u4E2D",
      "serial_number": "caf\u00E9,\u013D\uD83D\uDE01\u001B", "apple": false, "airpods": false, "android": true,
      "initial": true, "port": "1-10", "bus": 1, "address": 7, "device_node": "/dev/bus/usb/001/007",
      "usb_version": "2.10", "class": "00", "subclass": "00", "protocol": "00", "speed": 1.5, "max_power": 500,
      "configurations": 1, "active_configuration": null, "interfaces": [
        {"number": 0, "class": "ff", "subclass": "42", "protocol": "01", "name": "ADB \u4E2D", "driver": "usbfs"},
        {"number": 1, "class": "06", "subclass": "01", "protocol": "01", "name": "MTP", "driver": null}],
      "modes": ["adb", "mtp"]})");
  EXPECT_EQ(json::parse(line), expected);
}

TEST(FormatFilter, PassesWhatAnAlternativeMatches) {
  const std::pair<bool, strings> cases[] = {
      {true,
       {"apple,android", "id=18d1:4EE7", "vendor=0x18D1", "location=0x01a00000", "port=1-10", "class=06",
        "interface=ff/42", "interface=ff/42/01", "mode=fastboot,mode=adb", "name=x,name=\u4E2D",
        "serial=caf\u00E9,\u013D\U0001F601\x1B", "apple,serial=caf\u00E9,\u013D\U0001F601\\x1B",
        "not:class=09", "not:serial=a,b"}},
      {false,
       {"apple", "airpods,vendor=05ac", "id=18d1:4ee8", "id=18d2:4ee7", "location=1a00001",
        "serial=", "port=1-1", "class=09", "interface=ff/42/03", "mode=fastboot", "name=pixel", "not:android",
        "not:name=google,apple"}}};
  for (const auto& [passes, texts] : cases) {
    for (const std::string& text : texts) {
      std::string error;
      const auto filter = parse_filter(text, &error);
      ASSERT_TRUE(filter) << error;
      EXPECT_EQ(filter(phone()), passes) << text;
    }
  }
}

TEST(FormatFilter, RejectsAnythingElse) {
  std::string error;
  for (const std::string text :
       {"", "Apple", "apple,", "id=18d1", "id=18d1:4ee70", "vendor=", "vendor=18g1", "location=0x123456789",
        "port=1-", "class=100", "interface=ff/", "interface=1/2/3/4", "not:", "not:not:apple"}) {
    EXPECT_FALSE(parse_filter(text, &error)) << text;
    EXPECT_PRED_FORMAT2(IsSubstring, "is not one of apple", error);
  }
}
