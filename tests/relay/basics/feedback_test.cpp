#include "relay/feedback.h"

#include <gtest/gtest.h>

namespace sonivo {
namespace {

// 10 and 20 ms of 16-bit stereo at 48 kHz.
constexpr std::uint32_t kLow = 4 * 480;
constexpr std::uint32_t kHigh = 4 * 960;

TEST(Feedback, OfCaptureSlowsBelowTheLowMarkAndSpeedsAboveTheHighOne) {
  EXPECT_EQ(feedback_value(DataFlow::capture, 0, kLow, kHigh), -1);
  EXPECT_EQ(feedback_value(DataFlow::capture, kLow - 1, kLow, kHigh), -1);
  EXPECT_EQ(feedback_value(DataFlow::capture, kLow, kLow, kHigh), 0);
  EXPECT_EQ(feedback_value(DataFlow::capture, kHigh, kLow, kHigh), 0);
  EXPECT_EQ(feedback_value(DataFlow::capture, kHigh + 1, kLow, kHigh), 1);
  EXPECT_EQ(feedback_value(DataFlow::capture, 0xFFFFFFFF, kLow, kHigh), 1);
}

TEST(Feedback, OfRenderSpeedsBelowTheLowMarkAndSlowsAboveTheHighOne) {
  EXPECT_EQ(feedback_value(DataFlow::render, 0, kLow, kHigh), 1);
  EXPECT_EQ(feedback_value(DataFlow::render, kLow - 1, kLow, kHigh), 1);
  EXPECT_EQ(feedback_value(DataFlow::render, kLow, kLow, kHigh), 0);
  EXPECT_EQ(feedback_value(DataFlow::render, kHigh, kLow, kHigh), 0);
  EXPECT_EQ(feedback_value(DataFlow::render, kHigh + 1, kLow, kHigh), -1);
  EXPECT_EQ(feedback_value(DataFlow::render, 0xFFFFFFFF, kLow, kHigh), -1);
}

}  // namespace
}  // namespace sonivo
