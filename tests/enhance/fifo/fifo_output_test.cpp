#include "enhance/fifo_output.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "reference.h"
#include "signals.h"

namespace sonivo::test {
namespace {

std::vector<float> pop(FifoOutput& fifo, std::uint32_t size) {
  std::vector<float> out(size, -1.0f);
  EXPECT_EQ(fifo.PopData(out.data(), size), size);
  return out;
}

std::uint32_t push(FifoOutput& fifo, const std::vector<short>& x) {
  return fifo.PushData(x.data(), static_cast<std::uint32_t>(x.size()));
}

void expect_converted(const std::vector<float>& out, const Conversion& conversion, const std::vector<short>& x) {
  const std::vector<double> expected = convert(conversion, in_double(x));
  ASSERT_EQ(out.size(), expected.size());
  for (std::size_t n = 0; n < out.size(); ++n) ASSERT_NEAR(out[n], expected[n] / 32768, 5e-7) << "sample " << n;
}

struct Case {
  int rate;
  std::uint32_t frame;
  Conversion conversion;
};

std::ostream& operator<<(std::ostream& out, const Case& of) { return out << of.rate; }

class Output : public testing::TestWithParam<Case> {};

INSTANTIATE_TEST_SUITE_P(AtEachRate, Output,
                         testing::Values(Case{48000, 480, k16000To48000}, Case{44100, 441, k16000To44100}));

TEST_P(Output, ConvertsWhatWasPushedToFullScaleOne) {
  FifoOutput fifo;
  ASSERT_TRUE(fifo.BuffInit(0, 20 * GetParam().frame, GetParam().rate));
  pop(fifo, 20 * GetParam().frame);
  const std::vector<short> x = noise_of_16_bits(3200);
  ASSERT_EQ(push(fifo, x), 3200u);
  expect_converted(pop(fifo, 20 * GetParam().frame), GetParam().conversion, x);
}

TEST_P(Output, GivesTheSameHoweverTheStreamIsCut) {
  const std::uint32_t frame = GetParam().frame;
  const std::vector<short> x = noise_of_16_bits(16000);
  FifoOutput whole;
  ASSERT_TRUE(whole.BuffInit(100 * frame, 0, GetParam().rate));
  pop(whole, 100 * frame);
  ASSERT_EQ(push(whole, x), 16000u);
  const std::vector<float> expected = pop(whole, 100 * frame);

  FifoOutput cut;
  const std::uint32_t silence = 7 * frame + 13;
  ASSERT_TRUE(cut.BuffInit(7 * frame, 13, GetParam().rate));
  std::vector<float> out;
  std::uint32_t pushed = 0, frames = 1, size = 1;
  while (out.size() < silence + expected.size()) {
    const std::uint32_t count = std::min(160 * frames, 16000 - pushed);
    if (count > 0 && cut.PushData(x.data() + pushed, count) == count) {
      pushed += count;
      frames = frames % 4 + 1;
      continue;
    }
    size = std::min(size * 31 % 977 + 1, silence + 100 * frame - static_cast<std::uint32_t>(out.size()));
    std::vector<float> block(size);
    if (cut.PopData(block.data(), size) == size) out.insert(out.end(), block.begin(), block.end());
  }
  EXPECT_EQ(std::count(out.begin(), out.begin() + silence, 0.0f), silence);
  EXPECT_EQ(std::vector<float>(out.begin() + silence, out.end()), expected);
}

TEST_P(Output, IgnoresWhatIsNoWholeFrame) {
  FifoOutput fifo;
  const std::uint32_t frame = GetParam().frame;
  ASSERT_TRUE(fifo.BuffInit(4 * frame, 0, GetParam().rate));
  pop(fifo, 4 * frame);
  std::vector<short> x = noise_of_16_bits(330);
  EXPECT_EQ(push(fifo, x), 330u);
  x.resize(320);
  expect_converted(pop(fifo, 2 * frame), GetParam().conversion, x);
  EXPECT_EQ(fifo.PushData(x.data(), 159), 159u);
  float sample = 0;
  EXPECT_EQ(fifo.PopData(&sample, 1), 0u);
  EXPECT_EQ(fifo.PushData(x.data(), 0), 0u);
}

/// The remainder counts where room is asked for.
TEST_P(Output, RefusesAPushOfOneSampleTooManyWhole) {
  FifoOutput fifo;
  const std::uint32_t frame = GetParam().frame;
  ASSERT_TRUE(fifo.BuffInit(10 * frame, 0, GetParam().rate));
  const std::vector<short> x = noise_of_16_bits(322);
  pop(fifo, 2 * frame);
  EXPECT_EQ(fifo.PushData(x.data(), 321), 0u);
  std::vector<float> rest(8 * frame + 1);
  EXPECT_EQ(fifo.PopData(rest.data(), 8 * frame + 1), 0u) << "nothing was taken";
  EXPECT_EQ(fifo.PushData(x.data(), 320), 320u);
  EXPECT_EQ(fifo.PushData(x.data(), 1), 0u);
  EXPECT_EQ(fifo.PushData(x.data(), 0xFFFFFFFF), 0u);
}

TEST_P(Output, GivesSilenceAtOnceAndRefusesAPushUntilThereIsRoom) {
  FifoOutput fifo;
  const std::uint32_t frame = GetParam().frame;
  ASSERT_TRUE(fifo.BuffInit(5 * frame, 3 * frame, GetParam().rate));
  const std::vector<short> x = noise_of_16_bits(320);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(push(fifo, x), 0u);
    EXPECT_EQ(pop(fifo, frame), std::vector<float>(frame, 0.0f));
    EXPECT_EQ(push(fifo, x), 0u);
    EXPECT_EQ(pop(fifo, frame - 1), std::vector<float>(frame - 1, 0.0f));
    EXPECT_EQ(push(fifo, x), 0u);
    EXPECT_EQ(pop(fifo, 1), std::vector<float>(1, 0.0f));
    EXPECT_EQ(push(fifo, x), 320u);
    EXPECT_EQ(pop(fifo, 6 * frame), std::vector<float>(6 * frame, 0.0f));
    expect_converted(pop(fifo, 2 * frame), GetParam().conversion, x);  // the converters are as new, too
    fifo.BuffClear();
  }
}

TEST_P(Output, RefusesAPopOfOneSampleTooManyWhole) {
  FifoOutput fifo;
  ASSERT_TRUE(fifo.BuffInit(100, 20, GetParam().rate));
  std::vector<float> out(121, -1.0f);
  EXPECT_EQ(fifo.PopData(out.data(), 121), 0u);
  EXPECT_EQ(out, std::vector<float>(121, -1.0f));
  EXPECT_EQ(fifo.PopData(out.data(), 120), 120u);
  EXPECT_EQ(fifo.PopData(out.data(), 1), 0u);
  EXPECT_EQ(fifo.PopData(out.data(), 0), 0u);
}

TEST(FifoOutput, WithoutStorageGivesAndTakesNothing) {
  FifoOutput fifo;
  const auto expect_nothing = [&] {
    float sample = 0;
    const std::vector<short> x(160);
    EXPECT_EQ(fifo.PopData(&sample, 1), 0u);
    EXPECT_EQ(push(fifo, x), 0u);
    fifo.BuffClear();
    EXPECT_EQ(fifo.PopData(&sample, 1), 0u);
  };
  expect_nothing();
  ASSERT_TRUE(fifo.BuffInit(4800, 0, 48000));
  EXPECT_FALSE(fifo.BuffInit(4800, 0, 16000));
  expect_nothing();
  EXPECT_TRUE(fifo.BuffInit(4800, 0, 44100));
  pop(fifo, 4800);
}

TEST(FifoOutput, HasNoRingThatThirtyTwoBitsCantCount) {
  FifoOutput fifo;
  EXPECT_FALSE(fifo.BuffInit(0xFFFFFFFF, 481, 48000));
  EXPECT_FALSE(fifo.BuffInit(481, 0xFFFFFFFF, 48000));
  float sample = 0;
  EXPECT_EQ(fifo.PopData(&sample, 1), 0u);
  fifo.BuffClear();
  EXPECT_EQ(fifo.PopData(&sample, 1), 0u);
}

TEST(FifoOutput, StartsAnewWhenItIsInitialisedAgain) {
  FifoOutput fifo;
  ASSERT_TRUE(fifo.BuffInit(4800, 0, 48000));
  pop(fifo, 4800);
  ASSERT_EQ(push(fifo, noise_of_16_bits(1600)), 1600u);
  pop(fifo, 100);
  ASSERT_TRUE(fifo.BuffInit(441, 0, 44100));
  EXPECT_EQ(pop(fifo, 441), std::vector<float>(441, 0.0f));
  const std::vector<short> x = noise_of_16_bits(160, 2);
  ASSERT_EQ(push(fifo, x), 160u);
  expect_converted(pop(fifo, 441), k16000To44100, x);
}

TEST(FifoOutput, ChangesTheRateOfWhatIsPushedFromThenOn) {
  FifoOutput fifo;
  ASSERT_TRUE(fifo.BuffInit(921, 0, 48000));
  pop(fifo, 921);
  const std::vector<short> x = noise_of_16_bits(160);
  ASSERT_EQ(push(fifo, x), 160u);
  fifo.ChangeRate(44100);
  ASSERT_EQ(push(fifo, x), 160u);
  expect_converted(pop(fifo, 480), k16000To48000, x);
  expect_converted(pop(fifo, 441), k16000To44100, x);
  fifo.ChangeRate(48000);
  ASSERT_EQ(push(fifo, x), 160u);
  EXPECT_EQ(pop(fifo, 480).size(), 480u);
}

}  // namespace
}  // namespace sonivo::test
