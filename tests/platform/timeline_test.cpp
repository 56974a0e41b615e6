#include "platform/sim/timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace sonivo::sim {
namespace {

TEST(Timeline, RunsEntriesByTimeAndThoseOfOneInstantInOrderOfEntering) {
  Timeline timeline;
  std::vector<int> ran;
  timeline.at(20, [&] { ran.push_back(3); });
  timeline.at(10, [&] { ran.push_back(1); });
  timeline.at(10, [&] { ran.push_back(2); });
  while (!timeline.empty()) timeline.run_next();
  EXPECT_THAT(ran, testing::ElementsAre(1, 2, 3));
}

TEST(Timeline, ACancelledEntryNeitherRunsNorIsNext) {
  Timeline timeline;
  int ran = 0;
  const TimerId early = timeline.at(10, [&] { ran = 1; });
  timeline.at(20, [&] { ran = 2; });
  timeline.cancel(early);
  EXPECT_EQ(timeline.next_time(), 20);
  timeline.run_next();
  EXPECT_EQ(ran, 2);
  EXPECT_TRUE(timeline.empty());
}

TEST(Timeline, CancellingAnEntryThatHasRunSparesItsSuccessorInTheSamePlace) {
  Timeline timeline;
  int ran = 0;
  const TimerId first = timeline.at(1, [&] { ran = 1; });
  timeline.run_next();
  timeline.at(2, [&] { ran = 2; });
  timeline.cancel(first);
  ASSERT_FALSE(timeline.empty());
  timeline.run_next();
  EXPECT_EQ(ran, 2);
}

TEST(Timeline, AnEntryMayEnterAnotherOfItsOwnInstant) {
  Timeline timeline;
  std::vector<int> ran;
  timeline.at(5, [&] {
    ran.push_back(1);
    timeline.at(5, [&] { ran.push_back(3); });
  });
  timeline.at(5, [&] { ran.push_back(2); });
  while (!timeline.empty()) {
    EXPECT_EQ(timeline.next_time(), 5);
    timeline.run_next();
  }
  EXPECT_THAT(ran, testing::ElementsAre(1, 2, 3));
}

TEST(Timeline, ManyCancelledEntriesFarAheadLeaveTheRestInOrder) {
  Timeline timeline;
  std::vector<Time> ran;
  for (Time t = 500; t > 0; --t) {
    timeline.cancel(timeline.at(1'000'000, [&] { ran.push_back(-1); }));
    if (t % 100 == 0) timeline.at(t, [&ran, t] { ran.push_back(t); });
  }
  while (!timeline.empty()) timeline.run_next();
  EXPECT_THAT(ran, testing::ElementsAre(100, 200, 300, 400, 500));
}

}  // namespace
}  // namespace sonivo::sim
