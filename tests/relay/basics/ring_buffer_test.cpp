#include "relay/ring_buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <thread>

#include "bytes.h"
#include "manual_clock.h"

namespace sonivo::test {
namespace {

using testing::IsEmpty;

class Ring : public testing::Test {
 protected:
  Ring() : ring(clock) { ring.Allocate(8); }

  /// Moves both positions to `position` in an empty ring of stale bytes "abcdefgh".
  void start_at(std::size_t position) {
    write(ring, "abcdefgh");
    read(ring, 8);
    write(ring, std::string_view("abcdefgh").substr(0, position));
    read(ring, position);
  }

  ManualClock clock;
  RingBuffer ring;
};

TEST_F(Ring, DeliversWhatWasWrittenInOrder) {
  EXPECT_EQ(write(ring, "abc"), 3u);
  EXPECT_EQ(write(ring, "de"), 2u);
  EXPECT_EQ(read(ring, 4), bytes("abcd"));
  EXPECT_EQ(read(ring, 1), bytes("e"));
}

TEST_F(Ring, SizesAddUpToTheCapacity) {
  EXPECT_EQ(ring.ValidSize(), 0u);
  EXPECT_EQ(ring.FreeSize(), 8u);
  write(ring, "abcde");
  EXPECT_EQ(ring.ValidSize(), 5u);
  EXPECT_EQ(ring.FreeSize(), 3u);
  read(ring, 2);
  EXPECT_EQ(ring.ValidSize(), 3u);
  EXPECT_EQ(ring.FreeSize(), 5u);
}

TEST_F(Ring, AReadOfMoreThanIsThereDeliversThatAndLeavesNothing) {
  write(ring, "abc");
  EXPECT_EQ(read(ring, 5), bytes("abc"));
  EXPECT_EQ(ring.ValidSize(), 0u);
}

TEST_F(Ring, AShortReadLeavesTheRestOfTheDestinationAsItWas) {
  write(ring, "ab");
  Bytes destination = bytes("wxyz");
  EXPECT_EQ(ring.Read(destination.data(), 4), 2u);
  EXPECT_EQ(destination, bytes("abyz"));
}

TEST_F(Ring, AReadOfAnEmptyRingDeliversNothing) { EXPECT_THAT(read(ring, 4), IsEmpty()); }

TEST_F(Ring, AWriteBeyondTheFreeSpaceAnswersWhatFittedAndLosesTheRest) {
  write(ring, "abcdef");
  EXPECT_EQ(write(ring, "ghij"), 2u);
  EXPECT_EQ(read(ring, 8), bytes("abcdefgh"));
  EXPECT_EQ(ring.ValidSize(), 0u);
}

TEST_F(Ring, AWriteIntoAFullRingTakesNothing) {
  write(ring, "abcdefgh");
  EXPECT_EQ(write(ring, "i"), 0u);
  EXPECT_EQ(read(ring, 8), bytes("abcdefgh"));
}

TEST_F(Ring, AWriteAcrossTheEndGoesOnAtTheStart) {
  start_at(6);
  EXPECT_EQ(write(ring, "ABCDE"), 5u);
  EXPECT_EQ(write(ring, "FGH"), 3u);  // at 3, behind the wrapped part
  EXPECT_EQ(read(ring, 8), bytes("ABCDEFGH"));
}

TEST_F(Ring, AWriteThatExactlyReachesTheEndWrapsByTheModulo) {
  start_at(6);
  EXPECT_EQ(write(ring, "AB"), 2u);
  EXPECT_EQ(write(ring, "CDEFGH"), 6u);
  EXPECT_EQ(read(ring, 8), bytes("ABCDEFGH"));
}

TEST_F(Ring, AReadThatExactlyReachesTheEndGoesOnAtTheStart) {
  write(ring, "abcdefgh");
  EXPECT_EQ(read(ring, 8), bytes("abcdefgh"));
  write(ring, "AB");
  EXPECT_EQ(read(ring, 2), bytes("AB"));
}

TEST_F(Ring, SilenceIsZeros) {
  start_at(0);
  EXPECT_EQ(ring.WriteSilence(3), 3u);
  write(ring, "A");
  EXPECT_EQ(read(ring, 4), bytes(std::string_view("\0\0\0A", 4)));
}

TEST_F(Ring, SilenceBeyondTheFreeSpaceAnswersWhatFitted) {
  write(ring, "abcdef");
  EXPECT_EQ(ring.WriteSilence(4), 2u);
  EXPECT_EQ(ring.WriteSilence(1), 0u);
  EXPECT_EQ(read(ring, 8), bytes(std::string_view("abcdef\0\0", 8)));
}

TEST_F(Ring, SilenceThatExactlyReachesTheEndWrapsByTheModulo) {
  start_at(6);
  EXPECT_EQ(ring.WriteSilence(2), 2u);
  EXPECT_EQ(write(ring, "AB"), 2u);
  EXPECT_EQ(read(ring, 4), bytes(std::string_view("\0\0AB", 4)));
}

// Of the five zeros two lie before the end: the next byte goes to place 2, which already holds a zero, and place 3, its
// rightful one, keeps what it had.
TEST_F(Ring, SilenceAcrossTheEndLeavesTheWritePositionAtTheFirstPartsLength) {
  start_at(6);
  EXPECT_EQ(ring.WriteSilence(5), 5u);
  EXPECT_EQ(write(ring, "A"), 1u);
  EXPECT_EQ(ring.ValidSize(), 6u);
  EXPECT_EQ(read(ring, 6), bytes(std::string_view("\0\0\0\0Ad", 6)));
}

// With equal parts the position is right by chance.
TEST_F(Ring, SilenceAcrossTheEndInEqualPartsAgreesWithTheStoredAmount) {
  start_at(6);
  ring.WriteSilence(4);
  write(ring, "A");
  EXPECT_EQ(read(ring, 5), bytes(std::string_view("\0\0\0\0A", 5)));
}

// Six zeros from place 7: one before the end, so the next bytes go to place 1 and the fill of 8 ends at place 2.
TEST_F(Ring, AfterSilenceAcrossTheEndTheAmountStillLimitsTheNextWrite) {
  start_at(7);
  EXPECT_EQ(ring.WriteSilence(6), 6u);
  EXPECT_EQ(ring.FreeSize(), 2u);
  EXPECT_EQ(write(ring, "ABC"), 2u);
  EXPECT_EQ(read(ring, 8), bytes(std::string_view("\0\0AB\0\0fg", 8)));
}

TEST_F(Ring, TransfersOfNothingChangeNothing) {
  write(ring, "abc");
  EXPECT_EQ(write(ring, ""), 0u);
  EXPECT_EQ(ring.WriteSilence(0), 0u);
  EXPECT_THAT(read(ring, 0), IsEmpty());
  EXPECT_EQ(read(ring, 3), bytes("abc"));
}

TEST_F(Ring, AllocateEmptiesItAndTakesTheNewCapacity) {
  start_at(5);
  write(ring, "xyz");
  ring.Allocate(3);
  EXPECT_EQ(ring.ValidSize(), 0u);
  EXPECT_EQ(ring.FreeSize(), 3u);
  EXPECT_EQ(write(ring, "abcd"), 3u);
  EXPECT_EQ(read(ring, 3), bytes("abc"));
}

#if !defined(SONIVO_ASAN) && !defined(SONIVO_TSAN)  // whose allocators end the process instead
TEST_F(Ring, AllocateOfMoreThanThereIsThrows) {
  EXPECT_THROW(ring.Allocate(std::numeric_limits<std::size_t>::max()), std::bad_alloc);
}
#endif

TEST_F(Ring, ARingOfOneByteWrapsAtEachTransfer) {
  ring.Allocate(1);
  for (const char* text : {"a", "b", "c"}) {
    EXPECT_EQ(write(ring, text), 1u);
    EXPECT_EQ(read(ring, 2), bytes(text));
  }
}

TEST_F(Ring, BehavesAsAQueueOfLimitedLengthUnderAnySequenceOfTransfers) {
  constexpr std::size_t kCapacity = 37;
  ring.Allocate(kCapacity);
  std::mt19937 random(1);
  std::deque<std::byte> queue;
  unsigned next = 0;
  for (int round = 0; round < 5000; ++round) {
    const std::size_t size = random() % (kCapacity + 4);
    if (random() % 2 == 0) {
      std::string text(size, '\0');
      for (char& c : text) c = static_cast<char>(next++);
      const std::size_t taken = std::min(size, kCapacity - queue.size());
      ASSERT_EQ(write(ring, text), taken);
      const Bytes stored = bytes(text.substr(0, taken));
      queue.insert(queue.end(), stored.begin(), stored.end());
    } else {
      const auto delivered = static_cast<std::ptrdiff_t>(std::min(size, queue.size()));
      ASSERT_EQ(read(ring, size), Bytes(queue.begin(), queue.begin() + delivered));
      queue.erase(queue.begin(), queue.begin() + delivered);
    }
    ASSERT_EQ(ring.ValidSize(), queue.size());
    ASSERT_EQ(ring.FreeSize(), kCapacity - queue.size());
  }
}

TEST_F(Ring, TellsItsSizesToOtherThreadsWhileDataMove) {
  std::atomic<bool> done = false;
  std::atomic<bool> ok = true;
  {
    const std::jthread asker([&] {
      while (!done) {
        if (ring.ValidSize() > 8 || ring.FreeSize() > 8) ok = false;
        ring.MinValidSize();
      }
    });
    for (int i = 0; i < 2000; ++i) {
      write(ring, "abcde");
      ASSERT_EQ(read(ring, 5), bytes("abcde"));
    }
    done = true;
  }
  EXPECT_TRUE(ok);
}

#ifndef NDEBUG
using RingDeathTest = Ring;

TEST_F(RingDeathTest, ATransferBeforeAllocateIsAnErrorOfTheProgrammer) {
  RingBuffer unallocated(clock);
  std::byte byte{};
  EXPECT_DEATH(unallocated.Write(&byte, 1), "m_capacity != 0");
  EXPECT_DEATH(unallocated.WriteSilence(1), "m_capacity != 0");
  EXPECT_DEATH(unallocated.Read(&byte, 1), "m_capacity != 0");
}
#endif

TEST(UnallocatedRing, HasNoRoomAndNoData) {
  ManualClock clock;
  const RingBuffer ring(clock);
  EXPECT_EQ(ring.ValidSize(), 0u);
  EXPECT_EQ(ring.FreeSize(), 0u);
  EXPECT_EQ(ring.MinValidSize(), 0xFFFFFFFFu);
}

}  // namespace
}  // namespace sonivo::test
