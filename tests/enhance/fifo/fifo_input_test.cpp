#include "enhance/fifo_input.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "enhance/timer_period.h"
#include "reference.h"
#include "signals.h"

namespace sonivo::test {
namespace {

/// x converted, filtered, scaled, clamped and cut, all in double; before the cut.
std::vector<double> expected_levels(const Conversion& conversion, const std::vector<float>& x) {
  std::vector<double> levels = high_pass(convert(conversion, in_double(x)));
  for (double& level : levels) level = std::clamp(level * 32768, -32768.0, 32767.0);
  return levels;
}

/// The filter reckons in float, which is 3e-5 of full scale: what lies that near to a whole number may be cut to either
/// side of it.
void expect_cut(const std::vector<short>& out, const std::vector<double>& levels) {
  constexpr double slack = 1;
  ASSERT_EQ(out.size(), levels.size());
  std::size_t exact = 0;
  for (std::size_t n = 0; n < out.size(); ++n) {
    ASSERT_GE(out[n], std::trunc(levels[n] - slack)) << "sample " << n;
    ASSERT_LE(out[n], std::trunc(levels[n] + slack)) << "sample " << n;
    exact += out[n] == static_cast<short>(levels[n]);
  }
  EXPECT_GT(exact, out.size() * 9 / 10);
}

class Input48 : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(fifo_.BuffInit(48000, 48000, 5));
    fifo_.Start();
  }
  void push(const std::vector<float>& x) {
    ASSERT_EQ(fifo_.PushData(x.data(), static_cast<std::uint32_t>(x.size())), x.size());
  }
  std::vector<short> pull(int require) {
    std::vector<short> out;
    EXPECT_EQ(fifo_.data(out, require, false), require);
    return out;
  }
  /// The answer of a read behind the end, and how many samples of silence it appended.
  std::pair<int, std::size_t> read_on(int require) {
    std::vector<short> out(3, 1);
    const int answer = fifo_.data(out, require, false);
    EXPECT_EQ(std::count(out.begin(), out.begin() + 3, 1), 3) << "what was there stays";
    EXPECT_EQ(std::count(out.begin() + 3, out.end(), 0), static_cast<std::ptrdiff_t>(out.size()) - 3);
    return {answer, out.size() - 3};
  }

  FifoInput fifo_;
};

using Answer = std::pair<int, std::size_t>;

TEST_F(Input48, ConvertsFiltersAndCutsWhatWasPushed) {
  const std::vector<float> x = noise(24000, 0.7f);
  push(x);
  expect_cut(pull(8000), expected_levels(k48000To16000, x));
}

TEST(FifoInput, ConvertsFrom44100) {
  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(22050, 44100, 5));
  const std::vector<float> x = noise(22050, 0.7f);
  ASSERT_EQ(fifo.PushData(x.data(), 22050), 22050u);
  std::vector<short> out;
  EXPECT_EQ(fifo.data(out, 8000, true), 8000);
  expect_cut(out, expected_levels(k44100To16000, x));
  EXPECT_EQ(fifo.GetDataLength(), 0u);
}

TEST_F(Input48, CutsTowardsZero) {
  const std::vector<float> x = sine(4800, 1000, 48000, 1.4 / 32768);
  push(x);
  const std::vector<short> out = pull(1600);
  EXPECT_EQ(*std::max_element(out.begin(), out.end()), 1);
  EXPECT_EQ(*std::min_element(out.begin(), out.end()), -1);
  const std::vector<double> levels = expected_levels(k48000To16000, x);
  for (std::size_t n = 0; n < out.size(); ++n) {
    if (std::abs(levels[n]) < 0.99) {
      EXPECT_EQ(out[n], 0) << "sample " << n << " of " << levels[n];
    }
  }
}

TEST_F(Input48, ClampsToSixteenBits) {
  push(sine(4800, 1000, 48000, 3));
  const std::vector<short> out = pull(1600);
  EXPECT_EQ(*std::max_element(out.begin(), out.end()), 32767);
  EXPECT_EQ(*std::min_element(out.begin(), out.end()), -32768);
}

TEST_F(Input48, HearsNothingMoreOfWhatIsNoNumberTwoFramesLater) {
  std::vector<float> x(4800);
  x[100] = std::numeric_limits<float>::quiet_NaN();
  x[700] = std::numeric_limits<float>::infinity();
  push(x);
  const std::vector<short> out = pull(1600);
  EXPECT_EQ(out[5], 0);
  EXPECT_EQ(std::count(out.begin() + 480, out.end(), 0), 1600 - 480);
}

/// Any sizes of pushes and any whole frames of reads: the same samples, across the end of the ring many times.
TEST(FifoInput, GivesTheSameHoweverTheStreamIsCut) {
  for (const int rate : {48000, 44100}) {
    const auto second = static_cast<std::uint32_t>(rate);
    const std::vector<float> x = noise(second, 0.5f);
    FifoInput whole;
    ASSERT_TRUE(whole.BuffInit(second, rate, 5));
    ASSERT_EQ(whole.PushData(x.data(), second), second);
    std::vector<short> expected;
    whole.data(expected, 16000, false);
    ASSERT_EQ(expected.size(), 16000u);

    FifoInput cut;
    ASSERT_TRUE(cut.BuffInit(3360, rate, 5));
    std::vector<short> out;
    std::uint32_t pushed = 0, size = 1;
    int frames = 1;
    while (out.size() < expected.size()) {
      const std::uint32_t count = std::min(size, second - pushed);
      if (count > 0 && cut.PushData(x.data() + pushed, count) == count) {
        pushed += count;
        size = size * 31 % 977 + 1;
      } else {
        frames = frames % 4 + 1;
        const auto left = static_cast<int>((expected.size() - out.size()) / 160);
        const int there = static_cast<int>(cut.GetDataLength()) / (rate / 100);
        cut.data(out, 160 * std::min({frames, left, there}), false);
      }
    }
    EXPECT_EQ(out, expected) << rate;
  }
}

TEST_F(Input48, RefusesAPushOfOneSampleTooManyWhole) {
  const std::vector<float> x = noise(48001, 0.5f);
  EXPECT_EQ(fifo_.PushData(x.data(), 48001), 0u);
  EXPECT_EQ(fifo_.GetDataLength(), 0u);
  EXPECT_EQ(fifo_.PushData(x.data(), 47000), 47000u);
  EXPECT_EQ(fifo_.PushData(x.data(), 1001), 0u);
  EXPECT_EQ(fifo_.GetDataLength(), 47000u);
  EXPECT_EQ(fifo_.PushData(x.data(), 1000), 1000u);
  EXPECT_EQ(fifo_.PushData(x.data(), 1), 0u);
  EXPECT_EQ(fifo_.PushData(x.data(), 0), 0u);
  EXPECT_EQ(fifo_.PushData(x.data(), 0xFFFFFFFF), 0u) << "the sum of both lengths has more than 32 bits";
  EXPECT_EQ(fifo_.GetDataLength(), 48000u);
}

TEST(FifoInput, WithoutStorageTakesNothingAndEnds) {
  FifoInput fifo;
  const float x = 1;
  EXPECT_EQ(fifo.PushData(&x, 1), 0u);
  EXPECT_EQ(fifo.PushData(&x, 0), 0u);
  EXPECT_EQ(fifo.GetDataLength(), 0u);
  fifo.BuffClear();
  fifo.End();
  std::vector<short> out;
  EXPECT_EQ(fifo.data(out, 160, false), 160) << "one block of silence, as for each input that never ran";
  EXPECT_EQ(fifo.data(out, 160, false), 0);
}

TEST(FifoInput, LosesItsStorageToAnotherRate) {
  const std::vector<float> x(480);
  for (const int rate : {0, 16000, 44101, 96000}) {
    FifoInput fifo;
    ASSERT_TRUE(fifo.BuffInit(4800, 48000, 5));
    ASSERT_EQ(fifo.PushData(x.data(), 480), 480u);
    EXPECT_FALSE(fifo.BuffInit(4800, rate, 5));
    EXPECT_EQ(fifo.PushData(x.data(), 480), 0u);
    EXPECT_EQ(fifo.GetDataLength(), 0u);
    EXPECT_TRUE(fifo.BuffInit(4800, 44100, 5));
    EXPECT_EQ(fifo.PushData(x.data(), 480), 480u);
  }
}

TEST_F(Input48, StartsAnewWhenItIsInitialisedAgain) {
  push(noise(4800, 0.5f));
  pull(160);
  ASSERT_TRUE(fifo_.BuffInit(960, 48000, 5));
  EXPECT_EQ(fifo_.GetDataLength(), 0u);
  const std::vector<float> x = noise(960, 0.5f);
  push(x);
  expect_cut(pull(320), expected_levels(k48000To16000, x));
  ASSERT_TRUE(fifo_.BuffInit(960, 48000, 5));
  fifo_.End();
  EXPECT_EQ(read_on(160), (Answer{160, 160})) << "nothing was read since";
}

TEST_F(Input48, IsAtTheStartOfAChunkWhenItIsInitialisedAgain) {
  push(noise(480, 0.5f));
  pull(160);  // at 160
  ASSERT_TRUE(fifo_.BuffInit(960, 48000, 5));
  pull(0);  // it ran, and would pad anywhere from 1 to 479
  fifo_.End();
  EXPECT_EQ(read_on(160), (Answer{0, 0}));
}

TEST_F(Input48, ForgetsAllSamplesWhenCleared) {
  push(noise(4800, 0.5f));
  pull(800);
  fifo_.BuffClear();
  EXPECT_EQ(fifo_.GetDataLength(), 0u);
  const std::vector<float> x = noise(4800, 0.5f, 2);
  push(x);
  expect_cut(pull(1600), expected_levels(k48000To16000, x));
}

TEST_F(Input48, ServesWholeFramesOfARequestAndAnswersAllOfIt) {
  push(noise(4800, 0.5f));
  std::vector<short> out;
  EXPECT_EQ(fifo_.data(out, 500, false), 500);  // 1500 device samples, three frames
  EXPECT_EQ(out.size(), 480u);
  EXPECT_EQ(fifo_.GetDataLength(), 4800u - 1440u);
  EXPECT_EQ(fifo_.data(out, 159, false), 159);
  EXPECT_EQ(out.size(), 480u);
  EXPECT_EQ(fifo_.data(out, 0, false), 0);
  EXPECT_EQ(out.size(), 480u);
  EXPECT_EQ(fifo_.GetDataLength(), 4800u - 1440u);
}

TEST(FifoInput, RoundsTheDeviceSamplesOfARequestDown) {
  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(4800, 44100, 5));
  const std::vector<float> x(2000);
  ASSERT_EQ(fifo.PushData(x.data(), 551), 551u);
  fifo.End();
  std::vector<short> out;
  EXPECT_EQ(fifo.data(out, 200, false), 200);  // 551.25 device samples, one frame of 441
  EXPECT_EQ(out.size(), 160u);
  EXPECT_EQ(fifo.GetDataLength(), 110u);
}

TEST_F(Input48, ChangesTheRateOfWhatIsReadFromThenOn) {
  push(std::vector<float>(1000));
  fifo_.ChangeRate(44100);
  pull(160);
  EXPECT_EQ(fifo_.GetDataLength(), 559u);
  fifo_.ChangeRate(48000);
  pull(160);
  EXPECT_EQ(fifo_.GetDataLength(), 79u);
}

TEST_F(Input48, TellsItsEnd) {
  EXPECT_FALSE(fifo_.end());
  fifo_.End();
  EXPECT_TRUE(fifo_.end());
  fifo_.Start();
  EXPECT_FALSE(fifo_.end());
}

TEST_F(Input48, ServesWhatTheRingCanStillFillAfterTheEnd) {
  push(noise(2400, 0.5f));
  fifo_.End();
  EXPECT_EQ(pull(480).size(), 480u);
  EXPECT_EQ(pull(320).size(), 320u);
  EXPECT_EQ(read_on(160), (Answer{0, 0}));
}

/// Such a request takes nothing out of the ring: whoever reads up to an answer of 0 would read for ever.
TEST_F(Input48, ServesNoRequestOfLessThanAFrameAfterTheEnd) {
  push(noise(1920, 0.5f));
  pull(480);
  EXPECT_EQ(read_on(79), (Answer{79, 0})) << "before the end";
  fifo_.End();
  EXPECT_EQ(read_on(159), (Answer{0, 0}));
  EXPECT_EQ(read_on(1), (Answer{0, 0}));
  EXPECT_EQ(fifo_.GetDataLength(), 480u);
}

TEST_F(Input48, GivesOneBlockOfSilenceWhereNothingEverRan) {
  fifo_.End();
  EXPECT_EQ(read_on(800), (Answer{800, 800}));
  EXPECT_EQ(read_on(800), (Answer{0, 0}));
}

TEST_F(Input48, KeepsSamplesThatMakeNoRequest) {
  push(noise(479, 0.5f));
  fifo_.End();
  EXPECT_EQ(read_on(160), (Answer{160, 160}));
  EXPECT_EQ(fifo_.GetDataLength(), 479u);
}

/// Chunks of 800. Delivered: 160; each read of silence moves the place in the chunk on until three frames are reached.
TEST_F(Input48, PadsAChunkOfWhichFewerThanThreeFramesWereDelivered) {
  push(noise(480, 0.5f));
  pull(160);
  fifo_.End();
  EXPECT_EQ(read_on(160), (Answer{160, 160}));  // at 160
  EXPECT_EQ(read_on(160), (Answer{160, 160}));  // at 320
  EXPECT_EQ(read_on(160), (Answer{0, 0}));      // at 480
  EXPECT_EQ(read_on(160), (Answer{0, 0}));      // at 640, then the chunk is full
  EXPECT_EQ(read_on(160), (Answer{0, 0}));      // at 0
}

TEST_F(Input48, DoesNotPadAChunkOfThreeFrames) {
  push(noise(1440, 0.5f));
  pull(480);
  fifo_.End();
  EXPECT_EQ(read_on(160), (Answer{0, 0}));
}

TEST_F(Input48, PadsBelowThreeFramesOnly) {
  push(noise(1437, 0.5f));
  pull(479);
  fifo_.End();
  EXPECT_EQ(read_on(800), (Answer{800, 800}));  // at 479, which moves on by a whole chunk
  EXPECT_EQ(read_on(320), (Answer{320, 320}));  // at 479 again
  EXPECT_EQ(read_on(320), (Answer{0, 0}));      // at 799
}

/// A full chunk leaves the place at 800, not at 0; so does each that follows.
TEST_F(Input48, DoesNotPadBehindFullChunks) {
  push(noise(4800, 0.5f));
  pull(800);
  pull(800);
  fifo_.End();
  EXPECT_EQ(read_on(800), (Answer{0, 0}));
}

TEST_F(Input48, PadsWhatFollowsAFullChunk) {
  push(noise(2880, 0.5f));
  pull(800);  // at 800
  pull(160);  // at 960, less the chunk 160
  fifo_.End();
  EXPECT_EQ(read_on(160), (Answer{160, 160}));
}

TEST_F(Input48, CountsRequestsInTheChunkNotTheirFrames) {
  push(noise(2400, 0.5f));
  pull(159);
  pull(159);
  pull(159);  // nothing was appended, but the place is 477
  fifo_.End();
  EXPECT_EQ(fifo_.GetDataLength(), 2400u);
  EXPECT_EQ(read_on(801), (Answer{801, 801}));
}

TEST_F(Input48, PadsAtTheEndOfItsRunAlone) {
  push(noise(480, 0.5f));
  pull(160);
  fifo_.End();
  EXPECT_EQ(read_on(160), (Answer{160, 160}));
  fifo_.BuffClear();  // the place in the chunk stays: 320
  fifo_.Start();
  fifo_.End();
  EXPECT_EQ(read_on(160), (Answer{160, 160}));  // nothing ran since Start; now at 480
  EXPECT_EQ(read_on(160), (Answer{0, 0}));
}

TEST_F(Input48, AtAPlaceOfZeroAnswersZeroAtOnceWhenItRan) {
  pull(0);  // it ran, and is at 0
  fifo_.End();
  EXPECT_EQ(read_on(160), (Answer{0, 0}));
}

TEST(FifoInput, WithoutChunksPadsNothing) {
  FifoInput fifo;
  ASSERT_TRUE(fifo.BuffInit(4800, 48000, 0));
  fifo.Start();
  const std::vector<float> x(480);
  ASSERT_EQ(fifo.PushData(x.data(), 480), 480u);
  std::vector<short> out;
  EXPECT_EQ(fifo.data(out, 160, false), 160);
  fifo.End();
  EXPECT_EQ(fifo.data(out, 160, false), 0);
  EXPECT_EQ(out.size(), 160u);
}

/// While data flow the requests of the timer pile up.
TEST_F(Input48, GivesTheTimerBackOnlyWhereDataEnd) {
  const auto before = open_1ms_timer_requests();
  push(noise(4800, 0.5f));
  pull(160);
  EXPECT_EQ(open_1ms_timer_requests(), before + 1);
  pull(320);
  EXPECT_EQ(open_1ms_timer_requests(), before + 2);
  fifo_.End();
  pull(1120);
  EXPECT_EQ(open_1ms_timer_requests(), before + 3) << "a request that the ring can fill";
  read_on(160);
  read_on(160);
  EXPECT_EQ(open_1ms_timer_requests(), before + 3);
}

}  // namespace
}  // namespace sonivo::test
