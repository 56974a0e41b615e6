#include "meridane/io/logging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <functional>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "../support/whole_names.h"
#include "meridane/error.h"

namespace meridane {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

/// Lines go to `lines`; threshold and sink are as before afterwards.
class LogTest : public testing::Test {
 protected:
  LogTest() {
    set_log_sink([this](const std::string& line) { lines.push_back(line); });
  }
  ~LogTest() override {
    log_threshold() = kLogInfo;
    set_log_sink([](const std::string& line) { std::clog << line << '\n'; });
  }

  std::vector<std::string> lines;
};

TEST_F(LogTest, LineHasTimePlaceAndMessage) {
  const std::time_t before = std::time(nullptr);
  const unsigned line = __LINE__ + 1;
  log(kLogInfo, [] { return std::string("two  words"); });
  const std::time_t after = std::time(nullptr);

  ASSERT_THAT(lines, SizeIs(1));
  constexpr std::size_t kTime = std::char_traits<char>::length("2026/01/31T12:34:56");
  ASSERT_GT(lines[0].size(), kTime);
  EXPECT_THAT(lines[0].substr(kTime), StartsWith("[logging_test.cpp:" + std::to_string(line) + " (" +
                                                 (kTellsWholeNames ? "meridane::" : "TestBody)")));
  EXPECT_THAT(lines[0], EndsWith("TestBody)]  two  words"));
  if (kTellsWholeNames) {
    EXPECT_THAT(lines[0], HasSubstr("LogTest_LineHasTimePlaceAndMessage_Test::TestBody)"));
  }
  const auto local = [](std::time_t time) {
    char text[32];
    std::strftime(text, sizeof text, "%Y/%m/%dT%H:%M:%S", std::localtime(&time));
    return std::string(text);
  };
  EXPECT_GE(lines[0].substr(0, kTime), local(before));
  EXPECT_LE(lines[0].substr(0, kTime), local(after));
}

TEST_F(LogTest, LineBelowTheThresholdIsNeverFormatted) {
  int made = 0;
  const auto message = [&] { return std::to_string(++made); };
  log_threshold() = kLogWarning;
  log(kLogInfo, message);
  log(kLogDetail, message);
  EXPECT_EQ(made, 0);
  EXPECT_THAT(lines, IsEmpty());
  log(kLogWarning, message);
  log(kLogError, message);
  EXPECT_EQ(made, 2);
  EXPECT_THAT(lines, ElementsAre(EndsWith("]  1"), EndsWith("]  2")));
}

TEST_F(LogTest, ThresholdIsInformationAtFirst) { EXPECT_EQ(log_threshold().load(), kLogInfo); }

TEST_F(LogTest, LevelsRise) {
  EXPECT_EQ(kLogRegistration, 1);
  constexpr std::array kLevels{kLogDetail, kLogRegistration, kLogInfo, kLogWarning, kLogError};
  EXPECT_EQ(std::adjacent_find(kLevels.begin(), kLevels.end(), std::greater_equal()), kLevels.end());
}

TEST_F(LogTest, ProgressTellsHowFarItIs) {
  const ProgressReport progress(20);
  progress.report(3);
  progress.report(20);
  EXPECT_THAT(lines, ElementsAre(EndsWith(")]  3 / 20 done"), EndsWith(")]  20 / 20 done")));
}

TEST_F(LogTest, LinesOfSeveralThreadsStayWhole) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int k = 0; k < 250; ++k) log(kLogInfo, [] { return std::string("whole"); });
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(lines, SizeIs(1000));
  EXPECT_THAT(lines, testing::Each(EndsWith(")]  whole")));
}

}  // namespace
}  // namespace meridane
