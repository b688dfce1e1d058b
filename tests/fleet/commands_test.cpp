// The program yusb-fleet as a script sees it.
#include <cstdio>

#include "harness.h"

namespace yusb::fleet {
namespace {

struct outcome {
  int status;
  std::string text;  // standard output and error
};

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class FleetCommands : public Fleet {
 protected:
  FleetCommands() { _at.start(); }

  // Runs `script` in a shell: "fleet COMMAND..." runs the program.
  outcome shell(const std::string& script) const {
    const std::string functions = "exec 2>&1; fleet() { c=$1; shift; '" YUSB_FLEET_PROGRAM
                                  "' $c --broker mqtt://127.0.0.1:" +
                                  std::to_string(_at.port()) + " \"$@\"; }\n";
    FILE* const pipe = popen((functions + script).c_str(), "r");
    std::string text;
    for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
  }

  // Until the broker has all of these hosts.
  void settle(std::size_t hosts) {
    read(_at.client());
    until(_loop, [&] {
      const auto& all = _reader->hosts();
      return _reader->complete() && all.size() == hosts &&
             std::all_of(all.begin(), all.end(),
                         [](const auto& each) { return each.second.state == host_state::online; });
    });
  }

  broker _at;
};

TEST_F(FleetCommands, ListWaitAndForgetSelectAsYusbDoes) {
  agent_process phones(named(_at, "lab1"), 3);
  agent_process other(named(_at, "we/ird"), 1);
  settle(2);
  const outcome table = shell("fleet list");
  EXPECT_EQ(table.status, 0);
  EXPECT_EQ(table.text.compare(0, 4, "HOST"), 0) << table.text;
  for (const char* const part : {"we/ird", "lab1", "online", "S2", "1-3", "adb"})
    EXPECT_TRUE(has(table.text, part)) << part << table.text;
  const outcome one = shell("fleet list --json --filter port=1-9,serial=S2");
  EXPECT_EQ(one.status, 0);
  EXPECT_EQ(std::count(one.text.begin(), one.text.end(), '\n'), 1) << one.text;
  EXPECT_TRUE(has(one.text, R"("host":"lab1","host_state":"online")")) << one.text;

  EXPECT_EQ(shell("fleet wait --filter serial=S2 --filter port=1-3 --filter mode=adb").status, 0);
  EXPECT_EQ(shell("fleet wait --filter serial=S7 --timeout 100ms").status, 3);

  EXPECT_EQ(shell("fleet forget lab1").status, 1);  // it is online
  phones.end(SIGKILL);
  until(_loop, [&] { return is("lab1", host_state::offline); });
  EXPECT_TRUE(has(shell("fleet list").text, "offline"));
  EXPECT_EQ(shell("fleet wait --filter serial=S2 --timeout 100ms").status, 3);
  EXPECT_EQ(shell("fleet wait --gone --filter serial=S2 --timeout 100ms").status, 3);
  EXPECT_EQ(shell("fleet forget lab1").status, 0);
  until(_loop, [&] { return _reader->hosts().size() == 1; });
  EXPECT_EQ(_states["lab1"].count(host_state::forgotten), 1U);
  EXPECT_FALSE(has(shell("fleet list").text, "lab1"));
  EXPECT_EQ(shell("fleet forget lab1").status, 1);
  EXPECT_EQ(shell("fleet wait --gone --filter serial=S2 --timeout 1m").status, 0);
}

TEST_F(FleetCommands, FailuresAreReported) {
  read(_at.client());
  until(_loop, [&] { return _reader->complete(); });
  _reader->broker().publish(
      {"yusb/lab1/status", to_payload(status{{}, presence::online, "lab1", "1", "m1", "5", 60}), true});
  _reader->broker().publish({"yusb/lab1/inventory", to_payload(inventory{{}, 2, 1, 0, 0}), true});
  until(_loop, [&] { return is("lab1", host_state::online); });
  _reader.reset();
  const outcome incomplete = shell("fleet list");
  EXPECT_EQ(incomplete.status, 1);
  EXPECT_TRUE(has(incomplete.text, "host lab1 is incomplete")) << incomplete.text;
  const outcome metrics = shell("f=$(mktemp); fleet metrics --once $f; s=$?; cat $f; rm $f; exit $s");
  EXPECT_EQ(metrics.status, 1);
  for (const char* const part : {"agent_up{host=\"lab1\"} 1", "complete{host=\"lab1\"} 0"})
    EXPECT_TRUE(has(metrics.text, part)) << metrics.text;
  EXPECT_FALSE(has(metrics.text, "fleet_devices{host=\"lab1\"}")) << metrics.text;
  _at.end(SIGKILL);
  const outcome unreachable = shell("fleet list");
  EXPECT_EQ(unreachable.status, 1);
  EXPECT_TRUE(has(unreachable.text, "not connected to 127.0.0.1")) << unreachable.text;
}

}  // namespace
}  // namespace yusb::fleet
