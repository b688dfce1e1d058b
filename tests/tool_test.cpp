// The program yusb: its parts one by one, then the program itself as a script or a terminal sees it.
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <future>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "commands.h"
#include "filter.h"
#include "line.h"
#include "picture.h"
#include "scenario.h"
#include "stop.h"
#include "support.h"
#include "text.h"
#include "tree.h"

using namespace yusb::tool;
using nlohmann::json;

namespace {

YString every_byte() {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  return {bytes.data(), bytes.size()};
}

// What a shell makes of `command`: standard output and error, then "exit STATUS". In it `yusb` is the
// program, `play` the program with the scenario `file`, and `signalled TERM` what happens to `play watch`
// when it gets that signal after its first line.
std::string shell(const std::string& command, const std::string& file = {}) {
  const std::string prelude = "exec 2>&1; p='" YUSB_PROGRAM "' f='" + file + R"(';
      yusb() { "$p" "$@"; }
      play() { yusb "$@" --simulate "$f"; }
      signalled() { { sh -c 'echo $$; exec "$0" watch --simulate "$1"' "$p" "$f"; echo status $?; } |
                    (read pid; read line; kill -$1 $pid; cat); }
      )";
  FILE* const pipe = popen((prelude + "(" + command + "); echo exit $?").c_str(), "r");
  std::string text;
  for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  pclose(pipe);
  return text;
}

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

// As on macOS, nothing is reported of a descriptor for which no event is asked.
extern "C" int poll(pollfd* watched, nfds_t count, int limit) {
  std::vector<pollfd> asked(watched, watched + count);
  for (pollfd& each : asked) each.fd = each.events == 0 ? -1 : each.fd;
  const timespec time{limit / 1000, limit % 1000 * 1000000L};
  const int ready = ppoll(asked.data(), count, limit < 0 ? nullptr : &time, nullptr);
  for (nfds_t i = 0; i < count; ++i) watched[i].revents = asked[i].revents;
  return ready;
}

TEST(ToolStop, NoticesAReaderThatGoes) {
  stop ending;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::promise<void> noticed;
  std::thread waiting([&] {
    ending.wait(ends[1]);
    noticed.set_value();
  });
  close(ends[0]);
  EXPECT_EQ(noticed.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  ending.request();
  waiting.join();
  close(ends[1]);
}

TEST(ToolText, NoControlCharacterAndNothingButUtf8ReachesTheTerminal) {
  std::string shown = visible(utf8(every_byte()));
  EXPECT_TRUE(has(shown, "\\x9B"));  // the C1 form of ESC [
  EXPECT_TRUE(has(shown, "\u00E9"));
  for (std::string_view rest = shown; !rest.empty();) {
    char32_t c = 0;
    ASSERT_TRUE(take_code_point(rest, &c));
    EXPECT_FALSE(c < 0x20 || (c >= 0x7F && c < 0xA0)) << c;
  }
  EXPECT_EQ(visible("\u4E2D \U0001F600"), "\u4E2D \U0001F600");
  for (const std::string bytes : {"\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE0\x80\xAF"})
    EXPECT_EQ(visible(bytes).size(), 4 * bytes.size()) << "malformed: every byte is escaped";
}

TEST(ToolLine, ColumnsAreAlignedWhateverTheTexts) {
  const YString accent = "\xE9", lengthy = "a manufacturer with quite a name";
  const event short_one{{}, true, make_record(0x05AC, 0x1393, "0x1000000", "", {accent, accent, accent})};
  const event long_one{{}, false, make_record(0x04E8, 2, "0x1234560", "", {lengthy, lengthy, lengthy})};
  columns lines(false);
  lines.fit(long_one);
  const std::string first = lines.line(short_one), second = lines.line(long_one);
  EXPECT_EQ(first.find("apple,airpods") - 3, second.find("android")) << "\u00E9 is two bytes, three times";
  EXPECT_TRUE(has(first, "  +  0x1000000   05ac:1393  1.00 ")) << first;
  EXPECT_TRUE(has(second, "  -  0x1234560   04e8:0002  1.00 ")) << second;
}

TEST(ToolLine, JsonIsOneAsciiLineThatKeepsEveryByte) {
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

TEST(ToolFilter, ChoosesByWhatIsGiven) {
  // The low byte of each UTF-16 unit: of U+013D, then of the two of U+1F601.
  const YUsbInfoDevice phone = make_record(0x18D1, 0x4EE7, "0x1A00000", "", {"", "", "caf\xE9,\x3D\x3D\x01"});
  const std::pair<const char*, strings> cases[] = {
      {"kept",
       {"android", "apple,android", "id=18d1:4EE7", "vendor=0x18D1", "location=0x01a00000",
        "serial=caf\u00E9,\u013D\U0001F601", "apple,serial=caf\u00E9,=\U0001F601"}},
      {"dropped",
       {"apple", "airpods,vendor=05ac", "id=18d1:4ee8", "id=18d2:4ee7", "location=1a00001", "serial="}},
      {"wrong",
       {"", "Apple", "apple,", "id=18d1", "id=18d1:", "id=18d1:4ee70", "vendor=", "vendor=18g1", "vendor=0x",
        "location=0x123456789", "color=red", "serial=\xFF"}}};
  for (const auto& [expected, texts] : cases) {
    for (const std::string& text : texts) {
      std::string error;
      const auto filter = parse_filter(text, &error);
      EXPECT_STREQ(!filter ? "wrong" : filter(phone) ? "kept" : "dropped", expected) << text;
      EXPECT_EQ(has(error, "is none of"), !filter) << text;
    }
  }
}

TEST(ToolTree, ADeviceHangsFromTheNearestHubThatIsListed) {
  std::vector<YUsbInfoDevice> devices;
  for (const char* location :
       {"0x2000000", "0x1230000", "0x1400000", "0x1234000", "0x1000000", "0x1231000", "0x1231100"})
    devices.push_back(make_record(1, 1, location));
  sort_by_location(&devices);
  EXPECT_EQ(tree_branches(devices), (strings{"", "├─", "│ ├─", "│ │ └─", "│ └─", "└─", ""}));
}

TEST(ToolPicture, TurnsAResyncIntoTheChangesThatLeadToIt) {
  const auto hub = make_record(1, 1, "0x1000000"), gone = make_record(1, 2, "0x1100000"),
             before = make_record(1, 3, "0x1200000"),
             after = make_record(1, 4, "0x1200000");  // in the same place
  picture known;
  for (const auto& each : {hub, gone, before}) known.apply({yusb::watch_kind::arrival, each, {}}, {});
  std::string told;
  for (const event& each : known.apply({yusb::watch_kind::resync, {}, {hub, after}}, {}))
    told += (each.arrived ? "+" : "-") + std::to_string(each.device.productID());
  EXPECT_EQ(told, "-3-2+4");
}

TEST(ToolScenario, AHubTakesWhatIsBehindItChildrenFirst) {
  std::string error;
  const auto good = parse_scenario(
      "attach 1-1 1:1\nhub 1-2 1:2\nattach 1-20 1:9\r\n\thub 1-2.1 1:3 # a hub\n"
      "attach 1-2.1.4 05ac:12A8 serial=\"\\\"\\\\\\xE9#\u00E9\" release=0x102\n"
      "wait 1s\ndetach 1-2\nattach 1-2 1:1",
      "lab", &error);
  ASSERT_TRUE(good) << error;
  EXPECT_EQ(good->opening(), 5u);
  const scenario_device& phone = good->devices[4];
  EXPECT_EQ(std::tie(phone.vendor, phone.product, phone.release, phone.location),
            std::make_tuple(0x05AC, 0x12A8, 0x0102, 0x01214000u));
  EXPECT_EQ(phone.serial_number, "\"\\\u00E9#\u00E9");
  std::string leaving;
  for (const step& each : good->steps)
    leaving += each.what == step::detach ? std::to_string(each.device) : "";
  EXPECT_EQ(leaving, "431");
}

TEST(ToolScenario, SaysWhatIsWrong) {
  const std::pair<std::string, const char*> cases[] = {
      {"plug 1-1 1:1", "'plug' is none of"},
      {"attach 1-1 12345:1", "not VVVV:PPPP"},
      {"attach 1-1 1:1 x", "'x' is not FIELD=VALUE"},
      {"attach 1-1 1:1 colour=\"x\"", "'colour' is none of"},
      {"attach 1-1 1:1 serial=x", "in quotes"},
      {"attach 1-1 1:1 serial=\"\\q\"", "'\\q'"},
      {"attach 1-1 1:1 serial=\"\\x1", "'\\x1'"},
      {"attach 1-1 1:1 serial=\"\xFF\"", "not UTF-8"},
      {"attach 1-1 1:1 serial=\"" + std::string(127, 'x') + "\"", "has 127"},
      {"wait 1s 2s", "'2s' is too much"},
      {"attach 1-1 1:1\nattach 1-1 1:1", "already"},
      {"attach 1-1 1:1\nattach 1-1.1 1:1", "is no hub"},
      {"attach 1-2.1 1:1", "no hub at 1-2"},
      {"\x1B[2J", "'\\x1B[2J'"}};
  for (const auto& [text, reason] : cases) {
    std::string error;
    EXPECT_FALSE(parse_scenario(text, "a\nfile", &error)) << text;
    const char* const line = text.find('\n') == std::string::npos ? "a\\x0Afile:1: " : "a\\x0Afile:2: ";
    EXPECT_EQ(error.rfind(line, 0), 0u) << error;
    EXPECT_TRUE(has(error, reason)) << error;
  }
}

TEST(ToolProgram, PlaysTheExampleToItsEndAndEveryEventIsBalanced) {
  const std::string played = shell("play watch --json", YUSB_EXAMPLE);
  ASSERT_TRUE(has(played, "exit 0\n")) << played;
  std::map<std::string, bool> attached;
  std::set<std::string> seconds;
  std::istringstream lines(played);
  for (std::string line; std::getline(lines, line) && line[0] == '{';) {
    const json event = json::parse(line);
    bool& there = attached[event["location"]];
    EXPECT_NE(std::exchange(there, !there), event["event"] == "arrival") << line;
    seconds.insert(std::string(event["time"]).substr(0, 19));
  }
  EXPECT_EQ(attached.size(), 8u);
  EXPECT_GE(seconds.size(), 3u) << "it waits for 2.4 s";
  EXPECT_FALSE(attached["0x1200000"]) << "the hub left";
}

TEST(ToolProgram, EndsWithTheStatusThatScriptsRelyOn) {
  const std::string file = testing::TempDir() + "tool_test." + std::to_string(getpid()) + ".scenario";
  // Its last line keeps it going for longer than any test may take.
  std::ofstream(file) << R"(attach 1-1 05ac:12a8 product="\x1B[31mphone" serial="A"
                            wait 1ms
                            attach 1-2 18d1:4ee7
                            wait 10m)";
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  dup2(pipe_ends[1], 9);  // a pipe that nobody reads from any more
  for (const int end : pipe_ends) close(end);
  const std::tuple<const char*, int, const char*> cases[] = {
      {"yusb", 0, "Usage: yusb"},
      {"f='" YUSB_EXAMPLE "'; play list --tree --filter android", 0, "0x1210000   18d1:4ee7  4.40"},
      {"f='" YUSB_EXAMPLE "'; play list --filter android | wc -l", 0, "1"},
      {"play list >&-", 1, "Bad file descriptor"},
      {"play list >/dev/full", 1, "No space"},
      {"yusb --help >/dev/full", 1, "No space"},
      {"ASAN_OPTIONS=verify_asan_link_order=0 umockdev-run -- \"$p\" list", 1, "--simulate FILE"},
      {"f=/dev/zero; play list", 2, "larger than"},
      {"f=/dev/stdin; (echo attach 1-1 1:1; echo unplug) | play watch", 2, "yusb: /dev/stdin:2: 'unplug'"},
      {"play watch --for 20ms", 0, ""},
      {"play watch --count 1 --log", 0, ": \\x1B[31mphone"},
      {"signalled TERM", 0, "status 0"},
      {"signalled INT", 0, "status 0"},
      // The reader goes while nothing happens for minutes, or before anything does.
      {"exec 3>&1; (play watch; echo status $? >&3) | head -n 2", 0, "status 0"},
      {"play list >&9", 0, ""},
      // The reader stops reading, and waits.
      {"for i in $(seq 600); do echo attach 1-$i 1:1 product='\"'$(printf %0126d)'\"'; done >\"$f.many\";"
       "echo wait 10m >>\"$f.many\"; mkfifo \"$f.end\";"
       "{ sh -c 'echo $$; exec \"$0\" watch --simulate \"$1.many\"' \"$p\" \"$f\"; echo status $? "
       ">\"$f.end\"; } |"
       "{ read pid; read line; kill $pid; timeout 30 cat \"$f.end\"; }; rm \"$f.many\" \"$f.end\"",
       0, "status 0"},
      {"play wait --filter apple,android --filter vendor=18d1 --json", 0, "\"product_id\":\"4ee7\""},
      {"play wait --filter apple --filter vendor=18d1 --timeout 20ms", 3, "no such device has arrived"},
      {"f=/dev/stdin; (echo attach 1-1 1:1; echo wait 1ms; echo detach 1-1) | play wait --gone", 0, ""},
      {"f=/dev/stdin; (for i in 1 2 3 4 5; do echo attach 1-1 1:1 'serial=\"A\"'; echo detach 1-1; done) |"
       "play watch | grep -c A",
       0, "10"},
      {"f=/dev/stdin; echo attach 1-1 1:1 | play wait --filter apple", 3, "no such device has arrived"},
      {"TERM=xterm NO_COLOR=1 script -qec \"'$p' watch --count 1 --simulate '$f'\" /dev/null", 0, "  +  "},
      {"TERM=xterm NO_COLOR= script -qec \"'$p' watch --count 1 --simulate '$f'\" /dev/null", 0,
       "\033[32m+"}};
  for (const auto& [command, status, text] : cases) {
    const std::string told = shell(command, file), trace = command + ("\n" + told);
    EXPECT_TRUE(has(told, text) && has(told, "exit " + std::to_string(status) + "\n")) << trace;
    EXPECT_EQ(has(told, "\033["), *text == '\033') << trace;
    EXPECT_FALSE(has(told, "\033[31m")) << "a device sets a colour";
  }
  for (const std::string wrong :
       {"--nonsense", "--log", "look", "list watch", "list --tree --json", "list --filter pear", "list extra",
        "list --simulate", "watch --for 5", "watch --for 1.5s", "watch --for 525601m", "watch --for -1s",
        "watch --count 0", "watch --count -1", "watch --count 010", "watch --gone", "list --simulate ''"})
    EXPECT_TRUE(has(shell("yusb " + wrong), "exit 2\n")) << wrong;
  std::remove(file.c_str());
}

TEST(ToolProgram, LeavesAnInterruptIgnoredThatItWasStartedToIgnore) {
  std::signal(SIGINT, SIG_IGN);
  const stop ending;
  pollfd asked = {ending.descriptor(), POLLIN, 0};
  raise(SIGINT);
  EXPECT_EQ(poll(&asked, 1, 0), 0);
  raise(SIGTERM);
  EXPECT_EQ(poll(&asked, 1, 0), 1);
}

TEST(ToolProgram, NothingIsGoneBeforeTheBusHasBeenRead) {
  player silent({{}, {{step::wait, 0, std::chrono::minutes(10)}}}, make_simulated_bus());
  yusb::simulator bus;  // takes the place of that one
  yusb::simulated_device slow = make_device(1, 1, 0x01100000);
  slow.product_name = "slow";
  slow.replies[2].delay = std::chrono::milliseconds(50);
  bus.plug(slow);
  const char* const arguments[] = {"yusb", "wait", "--gone", "--timeout", "200ms"};
  EXPECT_EQ(run(*parse_command_line(5, arguments).run, &silent), exit_timed_out);
}
