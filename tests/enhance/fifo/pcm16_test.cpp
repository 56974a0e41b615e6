#include "enhance/pcm16.h"

#include <gtest/gtest.h>

#include <limits>

namespace sonivo::test {
namespace {

TEST(Pcm16OfAModel, CutsTowardsZero) {
  EXPECT_EQ(wrap_to_pcm16(1.9f), 1);
  EXPECT_EQ(wrap_to_pcm16(-1.9f), -1);
  EXPECT_EQ(wrap_to_pcm16(-0.5f), 0);
  EXPECT_EQ(wrap_to_pcm16(32767.5f), 32767);
}

TEST(Pcm16OfAModel, WrapsAboveFullScale) {
  EXPECT_EQ(wrap_to_pcm16(32768.0f), -32768);
  EXPECT_EQ(wrap_to_pcm16(-32769.0f), 32767);
  EXPECT_EQ(wrap_to_pcm16(65536.0f), 0);
}

TEST(Pcm16OfAModel, TakesWhatIsNoSampleForSilence) {
  EXPECT_EQ(wrap_to_pcm16(std::numeric_limits<float>::quiet_NaN()), 0);
  EXPECT_EQ(wrap_to_pcm16(std::numeric_limits<float>::infinity()), 0);
  EXPECT_EQ(wrap_to_pcm16(-std::numeric_limits<float>::infinity()), 0);
  EXPECT_EQ(wrap_to_pcm16(0x1p31f), 0);
  EXPECT_EQ(wrap_to_pcm16(-0x1p31f), 0) << "the lowest number that 32 bits hold, without its upper half";
}

}  // namespace
}  // namespace sonivo::test
