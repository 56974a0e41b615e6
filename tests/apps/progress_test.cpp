#include "apps/tool/progress.h"

#include <gtest/gtest.h>

#include <sstream>

namespace sonivo::tool {
namespace {

using std::chrono::milliseconds;

struct Watch {
  std::chrono::steady_clock::time_point now{};
  Progress::Now reader() {
    return [this] { return now; };
  }
};

TEST(Progress, StaysAwayFromShortWork) {
  std::ostringstream terminal;
  Watch watch;
  {
    Progress progress(&terminal, 100, watch.reader());
    watch.now += milliseconds(999);
    progress.update(50);
  }
  EXPECT_EQ(terminal.str(), "");
}

TEST(Progress, DrawsAfterASecondAndWipesAtTheEnd) {
  std::ostringstream terminal;
  Watch watch;
  {
    Progress progress(&terminal, 100, watch.reader());
    watch.now += milliseconds(1000);
    progress.update(50);
    EXPECT_EQ(terminal.str(), "\r[" + std::string(20, '#') + std::string(20, ' ') + "]  50 %");
  }
  EXPECT_TRUE(terminal.str().ends_with("\r\033[K"));
}

TEST(Progress, DrawsAtMostTenTimesASecond) {
  std::ostringstream terminal;
  Watch watch;
  Progress progress(&terminal, 100, watch.reader());
  watch.now += milliseconds(1000);
  progress.update(10);
  const std::string drawn = terminal.str();
  watch.now += milliseconds(99);
  progress.update(20);
  EXPECT_EQ(terminal.str(), drawn);
  watch.now += milliseconds(1);
  progress.update(20);
  EXPECT_NE(terminal.str(), drawn);
}

TEST(Progress, NeverExceedsTheWhole) {
  std::ostringstream terminal;
  Watch watch;
  Progress progress(&terminal, 100, watch.reader());
  watch.now += milliseconds(1000);
  progress.update(250);
  EXPECT_EQ(terminal.str(), "\r[" + std::string(40, '#') + "] 100 %");
}

TEST(Progress, DrawsNothingWithoutATerminal) {
  Watch watch;
  Progress progress(nullptr, 100, watch.reader());
  watch.now += milliseconds(5000);
  EXPECT_NO_THROW(progress.update(50));
}

}  // namespace
}  // namespace sonivo::tool
