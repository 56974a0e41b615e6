#include "classic/input_filter.h"

#include <gtest/gtest.h>

#include "reference.h"
#include "signals.h"

namespace sonivo::classic {
namespace {

using test::Samples;

// A second-order resonance at the angle w (radians per sample) with poles at the radius r.
BiquadCoefficients resonance(float w, float r, float b1, float b2) {
  return {1.0f - r, b1, b2, 2.0f * r * std::cos(w), -r * r};
}

const std::vector<BiquadCoefficients> kSections{
    {0.98f, -1.96f, 0.98f, 1.9597f, -0.9603f},  // high-pass at about 300 Hz
    resonance(0.3f, 0.95f, 0.01f, -0.02f),     resonance(1.1f, 0.8f, -0.1f, 0.05f), {1.0f, -1.8f, 0.9f, 1.6f, -0.7f},
    {0.3f, 0.2f, 0.1f, 0.5f, -0.1f},           resonance(2.5f, 0.9f, 0.03f, 0.04f),
};

AinBlock block_of(std::size_t sections) {
  AinBlock block{};
  block.frame = 192;
  block.stage_num = static_cast<std::uint16_t>(sections);
  // Sections behind the last one must not matter.
  for (BiquadCoefficients& unused : block.coefficients) unused = {100.0f, 100.0f, 100.0f, 100.0f, 100.0f};
  std::copy_n(kSections.begin(), sections, block.coefficients);
  return block;
}

class InputFilterOnEachMachine : public testing::TestWithParam<const Kernels*> {};

TEST_P(InputFilterOnEachMachine, SectionsWorkInSeriesFromFrameToFrame) {
  constexpr std::size_t kFrame = 192, kFrames = 25;
  for (std::size_t sections = 1; sections <= kFilterStages; ++sections) {
    const AinBlock block = block_of(sections);
    for (const Samples& signal :
         {test::noise(kFrame * kFrames, 1), test::sweep(kFrame * kFrames), test::clicks(kFrame * kFrames, 2)}) {
      InputFilter filter(block, *GetParam());
      Samples given = signal;
      for (std::size_t i = 0; i < kFrames; ++i) filter.process(std::span(given).subspan(i * kFrame, kFrame));
      const reference::Signal wanted =
          reference::filtered({kSections.begin(), kSections.begin() + static_cast<std::ptrdiff_t>(sections)},
                              {signal.begin(), signal.end()});
      EXPECT_GT(test::agreement_db(wanted, given), 90.0) << sections << " sections";
    }
  }
}

TEST_P(InputFilterOnEachMachine, FramesOfAnyLengthJoinWithoutASeam) {
  const AinBlock block = block_of(kFilterStages);
  const Samples signal = test::noise(400, 3);
  InputFilter whole(block, *GetParam()), cut(block, *GetParam());
  Samples expected = signal, given = signal;
  whole.process(expected);
  std::size_t from = 0;
  for (const std::size_t length : {1u, 0u, 2u, 3u, 5u, 6u, 7u, 100u, 4u, 1u, 1u, 270u}) {
    cut.process(std::span(given).subspan(from, length));
    from += length;
  }
  ASSERT_EQ(from, signal.size());
  EXPECT_EQ(given, expected);
}

TEST_P(InputFilterOnEachMachine, AnImpulseGivesTheCoefficientsOfItsSection) {
  AinBlock block = block_of(0);
  block.stage_num = 2;
  block.coefficients[0] = {3.0f, 5.0f, 7.0f, 0.0f, 0.0f};
  block.coefficients[1] = {1.0f, 0.0f, 0.0f, 0.5f, 0.25f};
  InputFilter filter(block, *GetParam());
  Samples signal{1.0f, 0.0f, 0.0f, 0.0f, 0.0f};
  filter.process(signal);
  // Second section: y = x + y' / 2 + y'' / 4.
  EXPECT_EQ(signal, (Samples{3.0f, 6.5f, 11.0f, 7.125f, 6.3125f}));
}

TEST_P(InputFilterOnEachMachine, WithoutSectionsTheSignalPasses) {
  const AinBlock block = block_of(0);
  InputFilter filter(block, *GetParam());
  const Samples signal = test::noise(192, 4);
  Samples given = signal;
  filter.process(given);
  EXPECT_EQ(given, signal);
}

TEST_P(InputFilterOnEachMachine, ResetRepeatsExactly) {
  const AinBlock block = block_of(kFilterStages);
  InputFilter filter(block, *GetParam());
  const Samples signal = test::noise(192, 5);
  Samples first = signal, second = signal, third = signal;
  filter.process(first);
  filter.reset();
  filter.process(second);
  filter.process(third);
  EXPECT_EQ(second, first);
  EXPECT_NE(third, first) << "without a reset the state goes on";
}

INSTANTIATE_TEST_SUITE_P(Kernels, InputFilterOnEachMachine, testing::ValuesIn(test::kernels_here()),
                         [](const auto& instance) {
                           std::string name = instance.param->name;
                           std::erase(name, '-');
                           return name;
                         });

}  // namespace
}  // namespace sonivo::classic
