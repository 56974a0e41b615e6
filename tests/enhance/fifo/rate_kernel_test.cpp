#include "enhance/rate_kernel.h"

#include <gtest/gtest.h>

#include "enhance/device_rate.h"
#include "reference.h"

namespace sonivo::test {
namespace {

struct Case {
  const RateKernel& (*kernel)();
  Conversion conversion;
};

std::ostream& operator<<(std::ostream& out, const Case& of) { return out << of.conversion.name; }

class Kernel : public testing::TestWithParam<Case> {};

INSTANTIATE_TEST_SUITE_P(OfEachConversion, Kernel,
                         testing::Values(Case{kernel_48000_to_16000, k48000To16000},
                                         Case{kernel_44100_to_16000, k44100To16000},
                                         Case{kernel_16000_to_48000, k16000To48000},
                                         Case{kernel_16000_to_44100, k16000To44100}));

TEST_P(Kernel, HasFramesOfTenMilliseconds) {
  EXPECT_EQ(GetParam().kernel().in_frame, GetParam().conversion.in_frame);
  EXPECT_EQ(GetParam().kernel().out_frame, GetParam().conversion.out_frame);
}

/// Half a unit in the last place of the largest tap is 3e-8.
TEST_P(Kernel, HasTheTapsOfThePrototypeOnTheFineGrid) {
  const RateKernel& kernel = GetParam().kernel();
  const Rows rows = rows_of(GetParam().conversion);
  for (std::size_t i = 0; i < kernel.out_frame; ++i) {
    ASSERT_EQ(kernel.phase[i].start, rows.start[i]) << "phase " << i;
    for (std::size_t t = 0; t < RateKernel::kTaps; ++t) {
      ASSERT_NEAR(kernel.row_of(i).tap[t], rows.tap[i][t], 4e-8) << "phase " << i << ", tap " << t;
    }
  }
}

TEST_P(Kernel, ReadsNothingBehindTheFrame) {
  const RateKernel& kernel = GetParam().kernel();
  for (std::size_t i = 0; i < kernel.out_frame; ++i) {
    EXPECT_LE(kernel.phase[i].start + RateKernel::kTaps, kernel.in_frame + RateKernel::kTaps) << "phase " << i;
    EXPECT_EQ(kernel.row_of(i).tap[RateKernel::kTaps], 0.0f) << "phase " << i;
  }
}

/// Every row adds up to the gain at 0 Hz: that of the prototype without bin 16, to what the grid leaves open.
TEST_P(Kernel, LeavesAConstantAsItIs) {
  const RateKernel& kernel = GetParam().kernel();
  for (std::size_t i = 0; i < kernel.out_frame; ++i) {
    double gain = 0;
    for (std::size_t t = 0; t < RateKernel::kTaps; ++t) gain += static_cast<double>(kernel.row_of(i).tap[t]);
    EXPECT_NEAR(gain, 1.0, 0.0012) << "phase " << i;
  }
}

TEST_P(Kernel, IsBuiltOnce) { EXPECT_EQ(&GetParam().kernel(), &GetParam().kernel()); }

/// Three samples at 48 kHz are one at 16 kHz: the positions of a frame fall on samples, all rows are the prototype.
TEST(KernelFrom48000, HasOneRowOfTheWholePrototype) {
  const RateKernel& kernel = kernel_48000_to_16000();
  double bin_16 = kLowPass[0];  // left out of the transform
  for (std::size_t n = 1; n < 16; ++n) bin_16 += (n % 2 == 0 ? 2 : -2) * kLowPass[n];
  for (std::size_t i = 0; i < kernel.out_frame; ++i) {
    EXPECT_EQ(kernel.phase[i].start, 3 * i);
    for (std::size_t t = 0; t < RateKernel::kTaps; ++t) {
      const std::size_t n = t < 15 ? 15 - t : t - 15;
      EXPECT_NEAR(kernel.row_of(i).tap[t], kLowPass[n] - (n % 2 == 0 ? 1 : -1) * bin_16 / 32, 2e-8) << i << ", " << t;
    }
  }
}

TEST(KernelTo48000, HasThreeRowsOfWhichTheOuterMirrorEachOther) {
  const RateKernel& kernel = kernel_16000_to_48000();
  for (std::size_t i = 0; i < kernel.out_frame; ++i) {
    EXPECT_EQ(kernel.phase[i].start, (i + 1) / 3);
    for (std::size_t t = 0; t < RateKernel::kTaps; ++t) {
      EXPECT_EQ(kernel.row_of(i).tap[t], kernel.row_of(i % 3).tap[t]) << i << ", " << t;
      EXPECT_EQ(kernel.row_of(1).tap[t], kernel.row_of(2).tap[30 - t]) << t;
    }
  }
}

TEST(DeviceRate, IsOneOfTwo) {
  EXPECT_TRUE(is_device_rate(48000));
  EXPECT_TRUE(is_device_rate(44100));
  for (const int rate : {0, 16000, 44099, 44101, 47999, 48001, 96000, -48000})
    EXPECT_FALSE(is_device_rate(rate)) << rate;
}

}  // namespace
}  // namespace sonivo::test
