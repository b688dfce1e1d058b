#include <YorvanCore/YString.h>

#include "support.h"

TEST(CoreYString, ComparesByUnsignedBytes) {
  const YString zero("a\0b", 3);
  EXPECT_EQ(zero.size(), 3u);
  EXPECT_EQ(YString(), YString(""));
  EXPECT_EQ(YString(nullptr), YString());
  EXPECT_STREQ(YString().data(), "");
  const YString ascending[] = {"", "a", zero, "aa", "b", "\x7F", "\xE9"};
  for (const YString& left : ascending) {
    for (const YString& right : ascending) {
      EXPECT_EQ(left < right, &left < &right) << left.data() << " " << right.data();
      EXPECT_EQ(left == right, &left == &right) << left.data() << " " << right.data();
    }
  }
}

TEST(CoreYString, CopiesItselfOrAnother) {
  YString a("text");
  YString& alias = a;
  a = alias;  // the only owner
  const YString b = a;
  a = YString("other");
  EXPECT_EQ(b, YString("text"));
  EXPECT_STREQ(a.data(), "other");
}

TEST(CoreYString, MapsTheCaseOfAsciiLettersOnly) {
  const YString text("@AZ[`az{\0\xC9Q", 11);
  EXPECT_EQ(text.toLower(), YString("@az[`az{\0\xC9q", 11));
  EXPECT_EQ(text.toUpper(), YString("@AZ[`AZ{\0\xC9Q", 11));
  EXPECT_EQ(YString().toLower(), YString());
}

TEST(CoreYString, FormatsWithoutALimit) {
  for (const std::size_t size : {0u, 1u, 127u, 128u, 100000u}) {
    const std::string long_text(size, 'x');
    EXPECT_EQ(YString::format("%s", long_text.c_str()), YString(long_text.data(), size)) << size;
  }
  EXPECT_EQ(YString::format("0x%X", 0xFD130000u), YString("0xFD130000"));
}

TEST(CoreYLog, HandsOverWholeLinesAboveTheThreshold) {
  log_capture log;
  const std::string long_text(5000, 'y');
  YLog::setThreshold(EYORVAN_LOG_LEVEL_ERROR);
  YLog::output(EYORVAN_LOG_LEVEL_ERROR, "%s", long_text.c_str());
  YLog::output(EYORVAN_LOG_LEVEL_INFO, "hidden");
  YLog::output(EYORVAN_LOG_LEVEL_FATAL, "%d", 7);
  YLog::setThreshold(EYORVAN_LOG_LEVEL_TRACE);
  EXPECT_EQ(log.take(), (strings{"4 " + long_text, "5 7"}));
}

TEST(CoreYLog, MakesItsLinesAsPrintfDoes) {
  log_capture log;
  for (const char* const format : {"%04X", "ID: 0x%04X", "0x%04X.", "%%04X", "%5u"}) {
    for (const unsigned value : {0u, 0xAu, 0xBEEFu, 0x12345u}) {
      char line[64];
      std::snprintf(line, sizeof line, format, value);
      YLog::output(EYORVAN_LOG_LEVEL_INFO, format, value);
      EXPECT_EQ(log.take(), strings{std::string("1 ") + line}) << format;
    }
  }
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
  struct slow {
    gate entered, leaving;
    std::atomic<bool> left{false};
  } slow;
  const auto sink = [](EYORVAN_LOG_LEVEL, const char*, std::size_t, void* user) {
    auto& self = *static_cast<struct slow*>(user);
    self.entered.open();
    self.leaving.wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the delay under test
    self.left = true;
  };
  YLog::setSink(sink, &slow);
  std::thread logging([] { YLog::output(EYORVAN_LOG_LEVEL_INFO, "a line"); });
  slow.entered.wait();
  slow.leaving.open();
  YLog::setSink(nullptr, nullptr);
  EXPECT_TRUE(slow.left);
  logging.join();
}

TEST(CoreYLog, KeepsLinesWholeWhenThreadsLogAtOnce) {
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (char c = 'a'; c < 'e'; ++c) {
    threads.emplace_back([c] {
      for (int i = 0; i < 500; ++i) YLog::output(EYORVAN_LOG_LEVEL_INFO, "%s", std::string(600, c).c_str());
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string all = testing::internal::GetCapturedStderr();
  ASSERT_EQ(all.size(), 4 * 500 * 601u);
  for (std::size_t at = 0; at < all.size(); at += 601)
    ASSERT_EQ(all.substr(at, 601), std::string(600, all[at]) + '\n');
}
