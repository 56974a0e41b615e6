#include <gtest/gtest.h>

#include "bytes.h"
#include "manual_clock.h"
#include "platform/endpoints.h"
#include "relay/feedback.h"
#include "relay/ring_buffer.h"

namespace sonivo::test {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFF;

/// A ring whose reads each leave a wanted number of bytes behind.
class RingStatistic : public testing::Test {
 protected:
  RingStatistic() : ring(clock) { ring.Allocate(100); }

  /// At `ms` after the allocation, a read that leaves `valid` bytes.
  void read_leaving(std::uint32_t valid, std::uint64_t ms) {
    clock.now_ms = kStart + ms;
    ring.WriteSilence(ring.FreeSize());
    read(ring, ring.ValidSize() - valid);
  }

  static constexpr std::uint64_t kStart = 5000;
  ManualClock clock;
  RingBuffer ring;
};

TEST_F(RingStatistic, AnswersNoMinimumBeforeTheFirstFullSecond) {
  EXPECT_EQ(ring.MinValidSize(), kNone);
  read_leaving(40, 500);
  read_leaving(30, 999);
  EXPECT_EQ(ring.MinValidSize(), kNone);
}

TEST_F(RingStatistic, NoMinimumReadsAsAboveAnyThreshold) {
  EXPECT_EQ(feedback_value(DataFlow::capture, ring.MinValidSize(), 0xFFFFFFFD, 0xFFFFFFFE), 1);
  EXPECT_EQ(feedback_value(DataFlow::render, ring.MinValidSize(), 0xFFFFFFFD, 0xFFFFFFFE), -1);
}

TEST_F(RingStatistic, IsPublishedByAReadAfterExactlyOneSecond) {
  read_leaving(40, 999);
  EXPECT_EQ(ring.MinValidSize(), kNone);
  read_leaving(50, 1000);
  EXPECT_EQ(ring.MinValidSize(), 40u);
}

TEST_F(RingStatistic, IsTheLowestFillThatAReadLeftWithinTheSecond) {
  read_leaving(60, 100);
  read_leaving(20, 400);
  read_leaving(70, 700);
  read_leaving(80, 1000);
  EXPECT_EQ(ring.MinValidSize(), 20u);
}

TEST_F(RingStatistic, CountsTheReadThatPublishesIt) {
  read_leaving(60, 100);
  read_leaving(5, 1000);
  EXPECT_EQ(ring.MinValidSize(), 5u);
}

TEST_F(RingStatistic, StartsAnewWithEachSecond) {
  read_leaving(5, 1000);
  read_leaving(60, 1500);
  read_leaving(70, 1999);
  EXPECT_EQ(ring.MinValidSize(), 5u);
  read_leaving(70, 2000);
  EXPECT_EQ(ring.MinValidSize(), 60u);
}

TEST_F(RingStatistic, TheNextSecondCountsFromThePublicationAndNotFromItsDueTime) {
  read_leaving(50, 1700);
  EXPECT_EQ(ring.MinValidSize(), 50u);
  read_leaving(30, 2699);
  EXPECT_EQ(ring.MinValidSize(), 50u);
  read_leaving(30, 2700);
  EXPECT_EQ(ring.MinValidSize(), 30u);
}

TEST_F(RingStatistic, IsUpdatedByReadsOnly) {
  read_leaving(40, 500);
  clock.now_ms = kStart + 3000;
  write(ring, "abc");
  ring.WriteSilence(3);
  EXPECT_EQ(ring.ValidSize(), 46u);
  EXPECT_EQ(ring.FreeSize(), 54u);
  EXPECT_EQ(ring.MinValidSize(), kNone);
}

TEST_F(RingStatistic, AReadOfNothingUpdatesItToo) {
  ring.WriteSilence(12);
  clock.now_ms = kStart + 1000;
  read(ring, 0);
  EXPECT_EQ(ring.MinValidSize(), 12u);
}

TEST_F(RingStatistic, AnEmptiedRingPublishesZero) {
  read_leaving(0, 1000);
  EXPECT_EQ(ring.MinValidSize(), 0u);
}

TEST_F(RingStatistic, GoesOnThroughAnAllocation) {
  read_leaving(5, 500);
  clock.now_ms = kStart + 900;
  ring.Allocate(100);
  EXPECT_EQ(ring.MinValidSize(), kNone);
  read_leaving(50, 1000);  // a second after the first allocation
  EXPECT_EQ(ring.MinValidSize(), 5u);
  ring.Allocate(100);
  EXPECT_EQ(ring.MinValidSize(), 5u);
}

}  // namespace
}  // namespace sonivo::test
