// The program yusb as a script or a terminal sees it.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support.h"

using nlohmann::json;

namespace {

// Longer than any test may take.
const std::string kPhones = R"(attach 1-1 05ac:12a8 product="\x1B[31mphone" serial="A"
                               wait 1ms
                               attach 1-2 18d1:4ee7
                               wait 10m)";

// "yusb" runs the program, "play" runs it with the scenario $f. "signalled SIGNAL" sends a signal to "play
// watch" after its first line, does not read the rest of its output, and prints its exit status.
constexpr const char* kFunctions = R"(
    exec 2>&1
    yusb() { "$p" "$@"; }
    play() { yusb "$@" --simulate "$f"; }
    signalled() {
      mkfifo "$f.status"
      { sh -c 'echo $$; exec "$0" watch --simulate "$1"' "$p" "$f"; echo "status $?" >"$f.status"; } |
        { read pid; read line; kill -$1 $pid
          timeout 30 cat "$f.status" || { kill -KILL $pid; cat "$f.status"; }; }
      rm "$f.status"
    }
)";

struct outcome {
  int status;
  std::string text;  // standard output and error
};

// Runs `command` in a shell with the functions above, with `scenario` in the file $f.
outcome shell(const std::string& command, const std::string& scenario = kPhones) {
  const std::string file = testing::TempDir() + "program_test." + std::to_string(getpid());
  std::ofstream(file) << scenario;
  const std::string script = "p='" YUSB_PROGRAM "' f='" + file + "'" + kFunctions + command;
  std::signal(SIGINT, SIG_DFL);  // a script's background processes ignore it, and yusb would inherit that
  FILE* const pipe = popen(script.c_str(), "r");
  std::string text;
  for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  const int status = pclose(pipe);
  std::remove(file.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Returns whether `command` exits with `status` and prints `text`, without colours.
testing::AssertionResult gives(const std::string& command, int status, const std::string& text,
                               const std::string& scenario = kPhones) {
  const outcome ran = shell(command, scenario);
  if (ran.status == status && has(ran.text, text) && !has(ran.text, "\033["))
    return testing::AssertionSuccess();
  return testing::AssertionFailure() << command << "\n" << ran.text << "exit status " << ran.status;
}

}  // namespace

TEST(ToolProgram, ShowsWhatAScenarioBeginsWith) {
  const std::string example = "f='" YUSB_EXAMPLE "'; ";
  EXPECT_TRUE(gives(example + "play list --tree", 0, "\n  └─1-2.1  0x1210000  18d1:4ee7  480M   Google "));
  EXPECT_TRUE(gives(example + "play list --filter mode=adb,port=1-1 --json | wc -l", 0, "2"));
  for (const std::string device : {"1-2.1", "0x1210000", "18d1:4EE7"})
    EXPECT_TRUE(gives(example + "play show " + device, 0, "\ninterface 0    ff/42/01, no driver, \"ADB"));
  EXPECT_TRUE(gives(example + "play show --json 1-2.1", 0, "\"openable\":true"));
  EXPECT_TRUE(gives("play show 1-9", 1, "yusb: no such device is attached"));
}

// A phone is restarted into fastboot; its node opens late.
TEST(ToolProgram, ReportsWhatBecomesOfAPhone) {
  const std::string phone = R"(hub 1-1 1:1
                               attach 1-1.2 18d1:4ee7 serial="\xE9\xE9" interface=ff/42/01 openable=never
                               wait 1ms
                               detach 1-1.2
                               attach 1-1.2 18d1:4ee0 serial="中" interface=ff/42/03 openable=20ms
                               wait 100ms)";
  const outcome watched = shell("play watch --json --openable --mark-listed --filter not:mode=hub", phone);
  ASSERT_EQ(watched.status, 0) << watched.text;
  std::string heard;
  std::map<std::string, json> arrived;
  std::istringstream lines(watched.text);
  for (std::string line; std::getline(lines, line);) {
    json event = json::parse(line);
    const std::string kind = event["event"];
    heard += kind + (event.value("initial", false) ? "(initial)" : "");
    EXPECT_EQ(event.value("devices", 1), 1) << "that are attached";
    if (kind != "listed") heard += " " + event["modes"].dump() + std::string(event["serial_number"]);
    heard += "\n";
    for (const char* field : {"event", "time"}) event.erase(field);
    if (kind == "arrival") arrived[event["product_id"]] = event;
    EXPECT_TRUE(kind != "removal" || event == arrived[event["product_id"]]) << "a removal is as its arrival";
  }
  EXPECT_EQ(heard,
            "arrival(initial) [\"adb\"]\u00E9\u00E9\nlisted\nremoval(initial) [\"adb\"]\u00E9\u00E9\n"
            "arrival [\"fastboot\"]\u4E2D\nopenable [\"fastboot\"]\u4E2D\n");
  EXPECT_TRUE(gives("play watch --new --filter vendor=18d1 | cut -d' ' -f3 | xargs", 0, "- +\n", phone));
  EXPECT_TRUE(
      gives("play wait --openable --filter mode=adb", 3, "no matching device could be opened", phone));
  EXPECT_TRUE(gives("play wait --openable --new --filter name=x,not:name=x", 0, "  *  1-1.2  ", phone));
}

TEST(ToolProgram, GivesASignOfLife) {
  const std::string beats =
      "play watch --json --heartbeat 10ms --new | grep -m 2 '\"heartbeat\",\"devices\":1}'";
  EXPECT_TRUE(gives(beats, 0, "heartbeat", "attach 1-1 1:1\nwait 10m"));
}

TEST(ToolProgram, FailsIfItsOutputCannotBeWritten) {
  EXPECT_TRUE(gives("play list >&-", 1, "Bad file descriptor"));
  EXPECT_TRUE(gives("play list >/dev/full", 1, "No space"));
  EXPECT_TRUE(gives("yusb --help >/dev/full", 1, "No space"));
}

TEST(ToolProgram, FailsWithoutABus) {
  EXPECT_TRUE(
      gives("ASAN_OPTIONS=verify_asan_link_order=0 umockdev-run -- \"$p\" list", 1, "--simulate FILE"));
}

TEST(ToolProgram, RejectsAnInvalidScenario) {
  EXPECT_TRUE(gives("f=/dev/zero; play list", 2, "larger than"));
  EXPECT_TRUE(gives("cat \"$f\" | { f=/dev/stdin; play watch; }", 2, "yusb: /dev/stdin:2: 'unplug'",
                    "attach 1-1 1:1\nunplug"));
}

TEST(ToolProgram, SaysWhatIsWrongWithACommandLine) {
  for (const std::string arguments :
       {"--nonsense", "look", "list watch", "list --tree --json", "list --filter pear", "list --simulate",
        "watch --for 1.5s", "watch --for 525601m", "watch --count 0", "watch --heartbeat 1s",
        "watch --json --heartbeat 0s", "wait --gone --new", "show", "show pear", "list --simulate ''"})
    EXPECT_TRUE(gives("yusb " + arguments, 2, "Try 'yusb --help'"));
  // These replace the sentences of the parser of options.
  EXPECT_TRUE(gives("yusb list --count 3", 2, "yusb: unexpected argument '--count'\n"));
  EXPECT_TRUE(gives("yusb watch --for", 2, "yusb: --for needs a value: DURATION\n"));
  EXPECT_TRUE(gives("yusb list --json=no", 2, "yusb: --json takes no value\n"));
}

TEST(ToolProgram, WatchesForALimitedTime) { EXPECT_TRUE(gives("play watch --for 20ms", 0, "")); }

TEST(ToolProgram, EscapesTheStringsOfADeviceInTheLog) {
  EXPECT_TRUE(gives("play watch --count 1 --log", 0, ": \\x1B[31mphone"));
}

TEST(ToolProgram, ShowsADeviceThatIsDetachedAtOnce) {
  std::string brief;
  for (int i = 0; i < 50; ++i) brief += "attach 1-1 1:1 interface=ff/42/01\ndetach 1-1\n";
  EXPECT_TRUE(gives("play watch | grep -c adb", 0, "100\n", brief));
}

TEST(ToolProgram, EndsWithAScenarioThatTheLibraryHasRead) {
  std::string many;
  for (int port = 1; port <= 200; ++port) many += "attach 1-" + std::to_string(port) + " 1:1\n";
  EXPECT_TRUE(gives("play watch --json | wc -l", 0, "200\n", many));
}

TEST(ToolProgram, EndsWithSuccessOnASignal) {
  EXPECT_TRUE(gives("signalled TERM", 0, "status 0"));
  EXPECT_TRUE(gives("signalled INT", 0, "status 0"));
}

TEST(ToolProgram, EndsOnASignalAlthoughItsReaderStopsReading) {
  std::string many;  // more than a pipe can hold
  for (int port = 1; port <= 600; ++port)
    many += "attach 1-" + std::to_string(port) + " 1:1 product=\"" + std::string(126, '0') + "\"\n";
  EXPECT_TRUE(gives("signalled TERM", 0, "status 0", many + "wait 10m"));
}

TEST(ToolProgram, EndsWithSuccessIfItsReaderClosesThePipe) {
  EXPECT_TRUE(gives("exec 3>&1; (play watch; echo status $? >&3) | head -n 2", 0, "status 0"));
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(dup2(ends[1], 9), 9);
  for (const int end : ends) close(end);
  EXPECT_TRUE(gives("play list >&9", 0, ""));
  close(9);
}

TEST(ToolProgram, ReportsThatAWaitWasInVain) {
  const std::string reason = "no matching device was attached";
  EXPECT_TRUE(gives("play wait --filter apple --filter vendor=18d1 --timeout 20ms", 3, reason));
  EXPECT_TRUE(gives("play wait --filter apple", 3, reason, "attach 1-1 1:1"));
}

TEST(ToolProgram, UsesColoursOnlyOnATerminalThatWantsThem) {
  const std::string watch = "script -qec \"'$p' watch --count 1 --simulate '$f'\" /dev/null";
  EXPECT_TRUE(gives("TERM=xterm NO_COLOR=1 " + watch, 0, "  +  "));
  const std::string coloured = shell("TERM=xterm NO_COLOR= " + watch).text;
  EXPECT_TRUE(has(coloured, "\033[32m+")) << coloured;
  EXPECT_FALSE(has(coloured, "\033[31m")) << "the device sets a colour";
}
