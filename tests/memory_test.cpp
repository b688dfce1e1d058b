// Behaviour when out of memory. Most cases run in their own process.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <yusb_openable_queue.h>
#include <yusb_watcher.h>

#include <new>

#include "failing_memory.h"
#include "support.h"

namespace {

// The allocations of the library's own objects, in order, and the objects that exist although one failed. A
// set or list is usable only together with its mutex.
struct own_allocation {
  const char* of;
  bool contexts, devices, context;
};
const own_allocation own_allocations[] = {
    {"context set", false, true, true},     {"mutex of the context set", false, true, true},
    {"device list", true, false, true},     {"mutex of the device list", true, false, true},
    {"platform context", true, true, true}, {"context", true, true, false}};

// Exits with status 0 if the existing objects work and the release frees them.
void fail_allocation(const own_allocation& failing) {
  const auto& [of, contexts, devices, has_context] = failing;
  YLog::setThreshold(EYORVAN_LOG_LEVEL_FATAL);
  yusb::simulator bus;
  recorder client;
  _yusb_context* context = nullptr;
  if (has_context) begin_failing(on::this_thread, static_cast<int>(&failing - own_allocations) + 1, false);
  yusb::global_initialize();
  yusb::global_initialize();  // creates missing pairs, but not the missing half of a pair
  if (!has_context) begin_failing(on::this_thread, 1, false);
  bool right = yusb::context_create(&context) && (context != nullptr) == has_context;
  right = right && !yusb::common_object_append(context);  // it is already in the set, or there is no set
  if (context != nullptr) right = right && yusb::common_object_remove(context) == contexts;
  append({"a"});
  right = right && listed() == (contexts && devices ? "a" : "");
  right = right && yusb::device_traverse(nullptr, [](auto&) { return true; }) == devices;
  if (context != nullptr) right = right && yusb::context_notify_object_append(context, &client) == devices;
  right = right && bus.settle();
  if (context != nullptr) yusb::context_release(context);
  yusb::global_release();
  std::exit(right && blocks_left() == 0 ? 0 : 1);
}

struct counting_client : yusb_device_event_interface {
  int heard = 0;
  void on_device_event(const YUsbInfoDevice&, _yusb_device_event) override { ++heard; }
};

// A library in use, whose log goes to standard error, and the objects that the calls need.
struct world {
  yusb::simulator bus;
  counting_client client, other;
  _yusb_context* context = nullptr;
  const YUsbInfoDevice pods = make_record(0x05AC, 0x1393, "pods", nullptr, {"maker", "product", "serial"});
  const std::string line = std::string(511, '\1'), long_line = line + '\1';
  const yusb::device_filter filter = yusb::except(yusb::with_serial_number("serial"));
  const yusb::watch_callback callback = [](auto&, auto) {};
  const yusb::device_visitor visitor = [](auto&) { return true; };
  std::optional<yusb::watcher> watcher;
  std::optional<yusb::watch_queue> queue;

  world() {
    bus.plug(make_device(1, 2, 0x100));
    start();
    yusb::common_device_append(pods);
    watcher.emplace(callback, filter, yusb::watch_end::removals);
    queue.emplace();
  }

  void start() {
    yusb::global_initialize();
    bus.settle();
    yusb::context_create(&context);
    yusb::context_notify_object_append(context, &client);
  }

  void release() {
    watcher.reset(), queue.reset();
    yusb::global_release();
  }

  // Returns whether everything can be released and initialised again.
  bool is_sound() {
    release();
    const bool nothing_left = blocks_left() == 0 && yusb::simulator::leaks().empty();
    client.heard = 0;
    start();
    const bool works = listed() == "0x100" && client.heard == 1;
    yusb::global_release();
    return nothing_left && works;
  }
};

using use = void (*)(world&);

enum ending { not_failed, returned, threw, damaged };  // exit codes of a process
constexpr const char* names_of_endings[] = {"", "returns", "throws", "leaves damage"};

// Returns "returns", "throws", "terminates", or "" if no allocation has that number.
std::string outcome(use use, on thread, int which, bool lasting) {
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    world world;
    ending end = returned;
    begin_failing(thread, which, lasting);
    try {
      use(world);
    } catch (const std::bad_alloc&) {
      end = threw;
    }
    if (!end_failing()) _exit(not_failed);
    _exit(world.is_sound() ? end : damaged);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status)) return names_of_endings[WEXITSTATUS(status)];
  return WTERMSIG(status) == SIGABRT ? "terminates" : "crashes";
}

// Returns how a call ends if each of its allocations fails in turn; successive equal ends are listed once.
std::string outcomes(use use, on thread = on::this_thread) {
  std::string all, last;
  for (int which = 1;; ++which) {
    const std::string one = outcome(use, thread, which, false);
    if (one.empty()) return all;
    if (one != "terminates") {
      EXPECT_EQ(outcome(use, thread, which, true), one) << which << " and those after it";
    }
    if (one != last) all += (all.empty() ? "" : ", ") + one;
    last = one;
  }
}

}  // namespace

TEST(Memory, EndsEachCallAsTheHeadersSay) {
  using namespace yusb;
  const std::tuple<const char*, use, const char*> calls[] = {
      {"a start", [](world& w) { w.release(), global_initialize(); }, "returns"},
      {"a release", [](world& w) { w.release(); }, ""},
      {"context_create", [](world& w) { context_create(&w.context); }, "returns, terminates"},
      {"context_release", [](world& w) { context_release(w.context); }, ""},
      {"a registration", [](world& w) { context_notify_object_append(w.context, &w.other); }, "terminates"},
      {"its end", [](world& w) { context_notify_object_remove(w.context, &w.client); }, "terminates"},
      {"device_traverse", [](world& w) { device_traverse(nullptr, w.visitor); }, "terminates"},
      {"device_is_exist", [](world& w) { device_is_exist(nullptr, w.pods); }, ""},
      {"device_is_airpods", [](world& w) { device_is_airpods(w.pods); }, "terminates"},
      {"device_is_android", [](world& w) { device_is_android(w.pods); }, "terminates, throws, terminates"},
      {"airpods_traverse", [](world& w) { airpods_traverse(nullptr, w.visitor); }, "terminates"},
      {"a serial number", [](world& w) { airpods_get_serial_number(w.pods); }, "throws"},
      {"entering the set", [](world& w) { common_object_remove(w.context), common_object_append(w.context); },
       "terminates"},
      {"an arrival",
       [](world& w) {
         for (int i = 0; i < 9; ++i) common_device_append(w.pods);
       },
       "terminates"},
      {"removals",
       [](world& w) {
         common_device_remove_from_location(w.pods.location());
         common_device_remove_from_instance_path(w.pods.location());
         common_device_remove(w.pods);
       },
       ""},
      {"delivery",
       [](world& w) {
         common_notify_device_append(w.context, w.pods);
         common_notify_device_remove(w.context, w.pods);
         common_device_printf(w.pods);
       },
       ""},
      {"a line", [](world& w) { YLog::output(EYORVAN_LOG_LEVEL_INFO, "%s%d", w.line.c_str() + 1, 1); }, ""},
      {"a long line", [](world& w) { YLog::output(EYORVAN_LOG_LEVEL_INFO, "%s", w.long_line.c_str()); },
       "returns"},
      {"a watcher", [](world& w) { watcher(w.callback, w.filter); }, "throws, terminates"},
      {"its end", [](world& w) { w.watcher->stop(); }, ""},
      {"a queue", [](world&) { watch_queue(); }, "throws, terminates"},
      {"its end", [](world& w) { w.queue->close(); }, ""},
      {"an event", [](world& w) { w.queue->next(std::chrono::milliseconds(0)); }, ""}};
  for (const auto& [name, call, expected] : calls) EXPECT_EQ(outcomes(call), expected) << name;
  const use read_a_device = [](world& w) { w.release(), w.start(), global_release(); };
  EXPECT_EQ(outcomes(read_a_device, on::other_threads), "terminates") << "the monitor thread";
}

TEST(Memory, LeavesTheRestWorkingWhenOneAllocationFails) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  for (const own_allocation& failing : own_allocations) {
    EXPECT_EXIT(fail_allocation(failing), testing::ExitedWithCode(0), "") << failing.of;
  }
}

struct MemoryQueue : Library {};

TEST_F(MemoryQueue, LosesNoEventOfAnOpenableQueue) {
  bus.plug(make_device(0x18D1, 0x4EE7, 0x01100000));
  settle();
  int failures = 0;
  for (bool failed = true; failed; ++failures) {
    yusb::openable_queue queue;
    std::optional<yusb::openable_event> event;
    begin_failing(on::this_thread, failures + 1, false);
    for (int calls = 0; calls < 2 && !event; ++calls) {
      try {
        event = queue.next(std::chrono::milliseconds(0));
      } catch (const std::bad_alloc&) {
      }
    }
    failed = end_failing();
    ASSERT_TRUE(event && event->kind == yusb::openable_kind::arrival) << failures;
    event = queue.next(kPatience);
    ASSERT_TRUE(event && event->kind == yusb::openable_kind::openable) << failures;
    EXPECT_FALSE(queue.next(std::chrono::milliseconds(0))) << failures;
  }
  EXPECT_GE(failures, 4);
}

TEST(Memory, CutsALineThatCannotBeFormattedOrEscaped) {
  const std::string line(512, '\1');
  std::string cut;
  for (int i = 0; i < 511; ++i) cut += "\\x01";
  for (const int which : {1, 2}) {
    testing::internal::CaptureStderr();
    begin_failing(on::this_thread, which, false);
    YLog::output(EYORVAN_LOG_LEVEL_INFO, "%s", line.c_str());
    EXPECT_TRUE(end_failing());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), cut + "\n");
  }
}
