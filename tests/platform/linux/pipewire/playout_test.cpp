#include "platform/linux/pipewire/playout.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "platform/linux/pipewire/cycle.h"

namespace sonivo::pipewire {
namespace {

constexpr std::size_t kFrame = sizeof(std::int32_t);

std::vector<std::int32_t> numbers(std::int32_t first, std::size_t count) {
  std::vector<std::int32_t> all(count);
  std::iota(all.begin(), all.end(), first);
  return all;
}

void write(Playout& playout, const std::vector<std::int32_t>& frames) {
  playout.write(reinterpret_cast<const std::byte*>(frames.data()), frames.size());
}

std::vector<std::int32_t> read(Playout& playout, std::size_t count) {
  std::vector<std::int32_t> frames(count, -1);
  playout.read(reinterpret_cast<std::byte*>(frames.data()), count);
  return frames;
}

TEST(Playout, FramesComeOutInOrder) {
  Playout playout(kFrame, 100, 1000, 0);
  write(playout, numbers(1, 60));
  EXPECT_EQ(read(playout, 40), numbers(1, 40));
  write(playout, numbers(61, 60));
  EXPECT_EQ(read(playout, 80), numbers(41, 80));
}

TEST(Playout, ATurnThatFindsTooFewIsSilentInFrontAndLeavesTheSpareBehind) {
  Playout playout(kFrame, 100, 1000, 3);
  write(playout, numbers(1, 10));
  EXPECT_EQ(read(playout, 12), (std::vector<std::int32_t>{0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7}));
  write(playout, numbers(11, 12));
  EXPECT_EQ(read(playout, 12), numbers(8, 12));
}

TEST(Playout, ItTellsByHowMuchLaterTheRestIsHeard) {
  Playout playout(kFrame, 100, 1000, 3);
  std::vector<std::byte> heard(100 * kFrame);
  const auto delayed_by = [&](std::size_t count) { return playout.read(heard.data(), count); };
  write(playout, numbers(1, 10));
  EXPECT_EQ(delayed_by(12), 5u);  // 10 are there, and 3 are spared
  write(playout, numbers(1, 12));
  EXPECT_EQ(delayed_by(12), 0u);
  write(playout, numbers(1, 7));
  EXPECT_EQ(delayed_by(12), 5u);
  EXPECT_EQ(delayed_by(30), 30u);
}

TEST(Playout, WhatOnlyALongerTurnNeededIsDroppedWithTheFirstShorterOne) {
  Playout playout(kFrame, 100, 1000, 3);
  write(playout, numbers(1, 43));
  EXPECT_EQ(read(playout, 40), numbers(1, 40));
  write(playout, numbers(44, 40));
  EXPECT_EQ(read(playout, 10), numbers(71, 10));  // 43 are there, 30 of them too many
  write(playout, numbers(84, 10));
  EXPECT_EQ(read(playout, 10), numbers(81, 10));
}

TEST(Playout, TurnsOfNearlyTheSameLengthDropNothing) {
  Playout playout(kFrame, 100, 1000, 0);
  write(playout, numbers(1, 60));
  EXPECT_EQ(read(playout, 20), numbers(1, 20));
  EXPECT_EQ(read(playout, 18), numbers(21, 18));
}

TEST(Playout, AShorterTurnThatFindsTooFewIsFilledAsEver) {
  Playout playout(kFrame, 100, 1000, 2);
  write(playout, numbers(1, 42));
  EXPECT_EQ(read(playout, 40), numbers(1, 40));
  EXPECT_EQ(read(playout, 4), (std::vector<std::int32_t>{0, 0, 0, 0}));
  write(playout, numbers(43, 4));
  EXPECT_EQ(read(playout, 4), numbers(41, 4));
}

TEST(Playout, AnEmptyStockIsSilence) {
  Playout playout(kFrame, 100, 1000, 3);
  EXPECT_EQ(read(playout, 5), std::vector<std::int32_t>(5, 0));
}

TEST(Playout, WhatIsFlushedIsNotHeard) {
  Playout playout(kFrame, 100, 1000, 0);
  write(playout, numbers(1, 10));
  playout.flush();
  write(playout, numbers(11, 5));
  EXPECT_EQ(read(playout, 5), numbers(11, 5));
}

TEST(Playout, AStockThatNoTurnOfASecondNeedsGoesByOneFrameInAThousand) {
  Playout playout(kFrame, 10000, 1000, 10);
  write(playout, numbers(0, 50));  // 50 more than turns of 100 need
  std::uint32_t admitted = 0;
  for (int turn = 0; turn < 10; ++turn) {  // one second
    write(playout, numbers(0, 100));
    read(playout, 100);
    admitted += playout.admitted(100);
  }
  for (int turn = 0; turn < 300; ++turn) {
    const std::uint32_t more = playout.admitted(100);
    admitted += more;
    write(playout, numbers(0, more));
    read(playout, 100);
  }
  EXPECT_NEAR(admitted, 31000.0 - 30, 2);
  for (int turn = 0; turn < 1000; ++turn) {
    const std::uint32_t more = playout.admitted(100);
    admitted += more;
    write(playout, numbers(0, more));
    read(playout, 100);
  }
  EXPECT_NEAR(admitted, 131000.0 - 40, 3);  // down to the spare, and no further
}

TEST(CycleCutter, ATurnOfTenMillisecondsOrLessIsOnePieceAtItsStart) {
  CycleCutter cutter(480);
  EXPECT_EQ(cutter.begin({480, 1000, 500}), 0u);
  EXPECT_EQ(cutter.due_ns(), 1000);
  EXPECT_EQ(cutter.take(), 480u);
  EXPECT_EQ(cutter.due_ns(), std::nullopt);
}

TEST(CycleCutter, ALongTurnIsCutIntoNearlyEqualPiecesEvenlySpread) {
  CycleCutter cutter(480);
  cutter.begin({1024, 6000, 3000});
  std::vector<std::uint32_t> pieces;
  std::vector<std::int64_t> times;
  for (auto due = cutter.due_ns(); due; due = cutter.due_ns()) {
    times.push_back(*due);
    pieces.push_back(cutter.take());
  }
  EXPECT_EQ(pieces, (std::vector<std::uint32_t>{341, 341, 342}));
  EXPECT_EQ(times, (std::vector<std::int64_t>{6000, 7000, 8000}));
}

TEST(CycleCutter, WhatIsLeftIsDueWhenTheNextTurnBegins) {
  CycleCutter cutter(480);
  cutter.begin({1024, 0, 3000});
  cutter.take();
  EXPECT_EQ(cutter.begin({1024, 3000, 3000}), 683u);
}

TEST(CycleQueue, TurnsThatFindNoRoomAreCountedWithTheNext) {
  CycleQueue queue;
  for (int i = 0; i < 66; ++i) queue.post({10, i, 1});
  std::uint32_t frames = 0;
  while (const auto cycle = queue.take()) frames += cycle->frames + cycle->untold;
  EXPECT_EQ(frames, 640u);
  queue.post({10, 66, 1});
  queue.post({10, 67, 1});
  const auto next = queue.take();
  EXPECT_EQ(next->frames, 10u);
  EXPECT_EQ(next->untold, 20u);
  EXPECT_EQ(queue.take()->untold, 0u);
}

}  // namespace
}  // namespace sonivo::pipewire
