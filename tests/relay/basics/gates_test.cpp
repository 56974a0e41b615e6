#include "relay/gates.h"

#include <gtest/gtest.h>

namespace sonivo {
namespace {

TEST(Gates, KeyCancelNeedsItsFlagAndGenerationTwo) {
  EXPECT_TRUE(GateKeyCancel(1, 2));
  EXPECT_TRUE(GateKeyCancel(0xFFFFFFFF, 2));
  EXPECT_FALSE(GateKeyCancel(0, 2));
  EXPECT_FALSE(GateKeyCancel(0xFFFFFFFE, 2));
  EXPECT_FALSE(GateKeyCancel(1, 1));
  EXPECT_FALSE(GateKeyCancel(1, 3));
  EXPECT_FALSE(GateKeyCancel(1, 0));
}

TEST(Gates, BeamFormingNeedsItsFlagAndGenerationThreeOrFour) {
  EXPECT_TRUE(GateBeamForming(2, 3));
  EXPECT_TRUE(GateBeamForming(2, 4));
  EXPECT_TRUE(GateBeamForming(0xFFFFFFFF, 3));
  EXPECT_FALSE(GateBeamForming(0xFFFFFFFD, 3));
  EXPECT_FALSE(GateBeamForming(2, 2));
  EXPECT_FALSE(GateBeamForming(2, 5));
}

TEST(Gates, AISpeechNeedsItsFlagAndGenerationFiveOrLater) {
  EXPECT_TRUE(GateAISpeech(8, 5));
  EXPECT_TRUE(GateAISpeech(8, 6));
  EXPECT_TRUE(GateAISpeech(8, 0xFFFFFFFF));
  EXPECT_TRUE(GateAISpeech(0xFFFFFFFF, 5));
  EXPECT_FALSE(GateAISpeech(0xFFFFFFF7, 5));
  EXPECT_FALSE(GateAISpeech(8, 4));
}

TEST(Gates, AtMostOneHolds) {
  for (std::uint32_t generation = 0; generation < 12; ++generation) {
    for (std::uint32_t function = 0; function < 16; ++function) {
      const int holding = GateKeyCancel(function, generation) + GateBeamForming(function, generation) +
                          GateAISpeech(function, generation);
      EXPECT_LE(holding, 1) << function << " at " << generation;
    }
  }
}

}  // namespace
}  // namespace sonivo
