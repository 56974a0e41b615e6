#include "enhance/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "enhance/timer_period.h"
#include "log_capture.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Log, GivesEachMessageWithItsLevelToTheHook) {
  LogCapture log;
  log_text(LogLevel::warning, "%d of %s\n", 3, "five");
  log_text(LogLevel::debug, "more\n");
  EXPECT_THAT(log.take(), ElementsAre(LogCapture::Message{LogLevel::warning, "3 of five\n"},
                                      LogCapture::Message{LogLevel::debug, "more\n"}));
}

TEST(Log, WritesNothingWithoutAHook) {
  { LogCapture log; }
  log_text(LogLevel::error, "%s", "lost");
  LogCapture log;
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST(Log, GivesNothingMoreDetailedThanTheHookWants) {
  static std::string heard;
  heard.clear();
  set_log_hook([](LogLevel, const char* text) { heard += text; }, LogLevel::info1);
  log_text(LogLevel::info0, "a");
  log_text(LogLevel::info1, "b");
  log_text(LogLevel::info2, "c");
  set_log_hook([](LogLevel, const char* text) { heard += text; }, LogLevel{1001});
  log_text(LogLevel::error, "d");
  log_text(LogLevel::warning, "e");
  set_log_hook([](LogLevel, const char* text) { heard += text; }, LogLevel{-1});
  log_text(LogLevel::info0, "f");
  set_log_hook(nullptr);
  EXPECT_EQ(heard, "abd");
}

TEST(Log, FormatsNothingThatNobodyWants) {
  int formatted = -1;
  log_text(LogLevel::info0, "message%n", &formatted);
  EXPECT_EQ(formatted, -1) << "without a hook";
  set_log_hook([](LogLevel, const char*) {}, LogLevel::info2);
  log_text(LogLevel::info3, "message%n", &formatted);
  EXPECT_EQ(formatted, -1);
  log_text(LogLevel::info2, "message%n", &formatted);
  EXPECT_EQ(formatted, 7);
  set_log_hook(nullptr);
}

TEST(Log, EndsAMessageAfter511Bytes) {
  LogCapture log;
  log_text(LogLevel::info0, "%s", std::string(600, 'x').c_str());
  EXPECT_THAT(log.take(), ElementsAre(LogCapture::Message{LogLevel::info0, std::string(511, 'x')}));
}

TEST(Log, NumbersItsLevelsByDetail) {
  EXPECT_EQ(static_cast<int>(LogLevel::info0), 999);
  EXPECT_EQ(static_cast<int>(LogLevel::error), 1000);
  EXPECT_EQ(static_cast<int>(LogLevel::warning), 2000);
  EXPECT_EQ(static_cast<int>(LogLevel::info1), 3000);
  EXPECT_EQ(static_cast<int>(LogLevel::info2), 3100);
  EXPECT_EQ(static_cast<int>(LogLevel::info3), 3200);
  EXPECT_EQ(static_cast<int>(LogLevel::debug), 4000);
}

TEST(TimerPeriod, CountsRequestsThatAreOpen) {
  const auto before = open_1ms_timer_requests();
  request_1ms_timer();
  request_1ms_timer();
  EXPECT_EQ(open_1ms_timer_requests(), before + 2);
  give_back_1ms_timer();
  give_back_1ms_timer();
  EXPECT_EQ(open_1ms_timer_requests(), before);
}

}  // namespace
}  // namespace sonivo::test
