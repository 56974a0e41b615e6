#include "classic/spectrum_delay.h"

#include <gtest/gtest.h>

#include <vector>

namespace sonivo::classic::test {
namespace {

using Stream = std::vector<float>;

/// Counts from 1 through a number of blocks.
Stream delayed(SpectrumDelay& delay, int blocks) {
  Stream out;
  float next = 1.0f;
  for (int i = 0; i < blocks; ++i) {
    Stream in(128), block(128);
    for (float& x : in) x = next++;
    delay.process(in, block);
    out.insert(out.end(), block.begin(), block.end());
  }
  return out;
}

Stream count_after(std::size_t zeros, std::size_t length) {
  Stream stream(length);
  for (std::size_t i = zeros; i < length; ++i) stream[i] = static_cast<float>(i - zeros + 1);
  return stream;
}

class SpectrumDelayLength : public testing::TestWithParam<std::int32_t> {};

TEST_P(SpectrumDelayLength, IsThatOfTheStreamOfFloats) {
  const DelayBlock param = {128, GetParam()};
  SpectrumDelay delay(param);
  EXPECT_EQ(delayed(delay, 80), count_after(static_cast<std::size_t>(param.delay), 80 * 128));
}

TEST_P(SpectrumDelayLength, IsKeptByResetWhichForgetsTheStream) {
  const DelayBlock param = {128, GetParam()};
  SpectrumDelay delay(param);
  delayed(delay, 5);
  delay.reset();
  EXPECT_EQ(delayed(delay, 80), count_after(static_cast<std::size_t>(param.delay), 80 * 128));
}

INSTANTIATE_TEST_SUITE_P(Floats, SpectrumDelayLength,
                         testing::Values(0, 1, 3, 64, 127, 128, 129, 200, 255, 256, 257, 1000, 8192));

TEST(SpectrumDelay, OfZeroPassesTheBlockThrough) {
  const DelayBlock param = {128, 0};
  SpectrumDelay delay(param);
  EXPECT_EQ(delayed(delay, 1), count_after(0, 128));
}

}  // namespace
}  // namespace sonivo::classic::test
