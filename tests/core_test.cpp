#include <YorvanCore/YString.h>

#include "support.h"

TEST(CoreYString, CopiesItselfOrAnother) {
  YString a("text");
  YString& alias = a;
  a = alias;  // the only owner
  const YString b = a;
  a = YString("other");
  EXPECT_EQ(b, YString("text"));
  EXPECT_STREQ(a.data(), "other");
}

TEST(CoreYLog, ShowsOneLineACallOnStandardErrorWhateverItHolds) {
  testing::internal::CaptureStderr();
  YLog::output(EYORVAN_LOG_LEVEL_INFO, "a\tb\nforged \x1B[31m\x7F %c \xE9", 0);
  const auto from_sink = [](EYORVAN_LOG_LEVEL, const char*, std::size_t, void*) {
    YLog::output(EYORVAN_LOG_LEVEL_INFO, "from the sink");
  };
  YLog::setSink(from_sink, nullptr);
  YLog::output(EYORVAN_LOG_LEVEL_INFO, "to the sink");
  YLog::setSink(nullptr, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "a\tb\\x0Aforged \\x1B[31m\\x7F \\x00 \xE9\nfrom the sink\n");
}

TEST(CoreYLog, WaitsForTheSinkThatItReplaces) {
  static std::atomic<bool> left{false};
  const auto sink = [](auto, auto*, auto, void* entered) {
    static_cast<gate*>(entered)->open();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the delay under test
    left = true;
  };
  gate entered;
  YLog::setSink(sink, &entered);
  std::thread logging([] { YLog::output(EYORVAN_LOG_LEVEL_INFO, "a line"); });
  entered.wait();
  YLog::setSink(nullptr, nullptr);
  EXPECT_TRUE(left);
  logging.join();
}
