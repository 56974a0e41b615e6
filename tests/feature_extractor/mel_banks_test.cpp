#include "feature_extractor/mel_banks.h"

#include <gtest/gtest.h>

#include <sstream>

#include "feature_extractor/vtln_warp.h"
#include "reference.h"

namespace sonivo {
namespace {

using reference::message;

std::string build(const FeatureOptions& options, float warp = 1.0f) {
  return message([&] { MelBanks banks(options, 512, warp); });
}

// Every weight of every bin, those outside the stored run included.
void expect_formula(FeatureOptions options, std::size_t padded) {
  const MelBanks mel(options, padded, options.vtln_warp);
  ASSERT_EQ(mel.banks().size(), static_cast<std::size_t>(options.num_mel_bins));
  for (int b = 0; b < options.num_mel_bins; ++b) {
    const MelBanks::Bank& bank = mel.banks()[static_cast<std::size_t>(b)];
    for (std::size_t i = 0; i < padded / 2; ++i) {
      const bool stored = i >= bank.first && i - bank.first < bank.weights.size();
      const double expected = reference::mel_weight(options, b, i, padded);
      ASSERT_NEAR(stored ? bank.weights[i - bank.first] : 0.0f, expected, 1e-6) << "bank " << b << " bin " << i;
      if (stored) {
        ASSERT_GT(expected, 0.0) << "bank " << b << " bin " << i;
      }
    }
  }
}

TEST(MelBanks, AreTrianglesOnTheMelScale) {
  FeatureOptions options;
  expect_formula(options, 512);
  options.num_mel_bins = 40;
  expect_formula(options, 512);
  expect_formula(options, 400);
  expect_formula(options, 401);
  options.num_mel_bins = 3;
  options.sample_frequency = 44100.0f;
  options.low_freq = 0.0f;
  expect_formula(options, 2048);
}

TEST(MelBanks, HighFrequencyBelowZeroCountsFromNyquist) {
  FeatureOptions below, absolute;
  below.high_freq = -400.0f;
  absolute.high_freq = 7600.0f;
  const MelBanks a(below, 512, 1.0f), b(absolute, 512, 1.0f);
  for (std::size_t i = 0; i < a.banks().size(); ++i) {
    EXPECT_EQ(a.banks()[i].first, b.banks()[i].first);
    EXPECT_EQ(a.banks()[i].weights, b.banks()[i].weights);
  }
  // 243 * 31.25 Hz is the last bin below 7600 Hz.
  EXPECT_EQ(a.banks().back().first + a.banks().back().weights.size(), 244u);
  expect_formula(below, 512);
}

TEST(MelBanks, NeighboursAddUpToOneBetweenTheOutermostCentres) {
  FeatureOptions options;
  const MelBanks mel(options, 512, 1.0f);
  std::vector<double> sum(256);
  for (const auto& bank : mel.banks()) {
    for (std::size_t i = 0; i < bank.weights.size(); ++i) sum[bank.first + i] += bank.weights[i];
  }
  const double d = (reference::mel(8000.0) - reference::mel(20.0)) / 24.0;
  for (std::size_t i = 0; i < sum.size(); ++i) {
    const double m = reference::mel(static_cast<double>(i) * 31.25) - reference::mel(20.0);
    if (d < m && m < 23.0 * d) {
      EXPECT_NEAR(sum[i], 1.0, 1e-6) << i;
    }
  }
}

TEST(MelBanks, WarpMovesTheTriangles) {
  for (const float warp : {0.8f, 0.9f, 1.1f, 1.2f}) {
    FeatureOptions options;
    options.vtln_warp = warp;
    expect_formula(options, 512);
    options.vtln_high = 6000.0f;
    options.high_freq = 7000.0f;
    options.low_freq = 60.0f;
    options.num_mel_bins = 40;
    expect_formula(options, 512);
  }
}

TEST(MelBanks, WarpedAndUnwarpedDiffer) {
  const FeatureOptions options;
  const MelBanks plain(options, 512, 1.0f), warped(options, 512, 1.1f);
  EXPECT_LT(warped.banks()[12].first, plain.banks()[12].first);  // a longer vocal tract: frequencies divided by 1.1
}

TEST(MelBanks, TooManyBinsForTheTransformLeaveSomeEmpty) {
  FeatureOptions options;
  options.num_mel_bins = 200;
  const MelBanks mel(options, 64, 1.0f);
  const std::vector<float> spectrum(32, 1.0f);
  std::vector<float> out(200, -1.0f);
  mel.compute(spectrum.data(), out.data());
  std::size_t empty = 0;
  for (std::size_t b = 0; b < out.size(); ++b) {
    if (!mel.banks()[b].weights.empty()) continue;
    ++empty;
    EXPECT_EQ(out[b], 0.0f);
  }
  EXPECT_GT(empty, 130u);
  expect_formula(options, 64);
}

TEST(MelBanks, ComputeWeighsTheSpectrum) {
  FeatureOptions options;
  const MelBanks mel(options, 512, 1.0f);
  std::vector<float> spectrum(256), out(23);
  for (std::size_t i = 0; i < 256; ++i) spectrum[i] = static_cast<float>(i % 17) + 1.0f;
  mel.compute(spectrum.data(), out.data());
  for (int b = 0; b < 23; ++b) {
    double expected = 0.0;
    for (std::size_t i = 0; i < 256; ++i) expected += reference::mel_weight(options, b, i, 512) * spectrum[i];
    EXPECT_NEAR(out[static_cast<std::size_t>(b)], expected, 1e-6 * expected);
  }
}

TEST(MelBanks, AtLeastThreeBins) {
  FeatureOptions options;
  for (const int bins : {2, 1, 0, -5}) {
    options.num_mel_bins = bins;
    EXPECT_EQ(build(options), "Error: Must have at least 3 mel bins");
  }
}

TEST(MelBanks, AtMost65536Bins) {
  FeatureOptions options;
  options.num_mel_bins = 65536;
  EXPECT_EQ(MelBanks(options, 512, 1.0f).banks().size(), 65536u);
  for (const int bins : {65537, 2147483647}) {
    options.num_mel_bins = bins;
    EXPECT_EQ(build(options), "Error: Must have at most 65536 mel bins");
  }
}

TEST(MelBanks, LowAndHighMustLieBetweenZeroAndNyquist) {
  FeatureOptions options;
  options.high_freq = 8000.5f;
  EXPECT_EQ(build(options), "Bad values in options: low-freq 20 and high-freq 8000.5 vs. nyquist 8000");
  options.high_freq = -8000.0f;
  EXPECT_EQ(build(options), "Bad values in options: low-freq 20 and high-freq 0 vs. nyquist 8000");
  options.high_freq = 20.0f;
  EXPECT_EQ(build(options), "Bad values in options: low-freq 20 and high-freq 20 vs. nyquist 8000");
  options.high_freq = 0.0f;
  options.low_freq = -1.0f;
  EXPECT_EQ(build(options), "Bad values in options: low-freq -1 and high-freq 8000 vs. nyquist 8000");
  options.low_freq = std::nanf("");
  EXPECT_EQ(build(options), "Bad values in options: low-freq nan and high-freq 8000 vs. nyquist 8000");
  options.low_freq = 0.0f;
  options.high_freq = 8000.0f;
  EXPECT_EQ(build(options), "nothing was thrown");
}

TEST(MelBanks, InflectionsMustLieBetweenLowAndHigh) {
  FeatureOptions options;
  const auto text = [](const char* low, const char* high) {
    return std::string("Bad values in options: vtln-low ") + low + " and vtln-high " + high +
           ", versus low-freq 20 and high-freq 8000";
  };
  options.vtln_low = 20.0f;
  EXPECT_EQ(build(options, 1.1f), text("20", "7500"));
  EXPECT_EQ(build(options, 1.0f), "nothing was thrown");  // not looked at
  options.vtln_low = 7500.0f;
  EXPECT_EQ(build(options, 1.1f), text("7500", "7500"));
  options.vtln_low = 100.0f;
  options.vtln_high = 0.0f;
  EXPECT_EQ(build(options, 0.9f), text("100", "8000"));
  options.vtln_high = -500.0f;
  for (const float warp : {0.0f, -1.0f, std::nanf("")}) EXPECT_EQ(build(options, warp), text("100", "7500"));
}

TEST(MelBanks, WarpMustLeaveARangeBetweenTheInflections) {
  FeatureOptions options;
  EXPECT_EQ(build(options, 75.0f), "Error: vtln-warp 75 leaves nothing between vtln-low 100 and vtln-high 7500");
  EXPECT_EQ(build(options, 74.0f), "nothing was thrown");
  EXPECT_EQ(build(options, 0.0133f), "Error: vtln-warp 0.0133 leaves nothing between vtln-low 100 and vtln-high 7500");
  EXPECT_EQ(build(options, 0.0134f), "nothing was thrown");
}

TEST(MelBanks, DebugMelPrintsALineForEachBank) {
  FeatureOptions options;
  options.num_mel_bins = 3;
  options.debug_mel = true;
  testing::internal::CaptureStderr();
  const MelBanks mel(options, 16, 1.0f);
  const std::string printed = testing::internal::GetCapturedStderr();
  std::ostringstream expected;
  for (std::size_t b = 0; b < 3; ++b) {
    expected << "mel bin " << b << ": from " << mel.banks()[b].first;
    for (const float weight : mel.banks()[b].weights) expected << ' ' << weight;
    expected << '\n';
  }
  EXPECT_EQ(printed, expected.str());
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 3);

  options.debug_mel = false;
  testing::internal::CaptureStderr();
  const MelBanks quiet(options, 16, 1.0f);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(VtlnWarp, RunsStraightThroughItsInflections) {
  const VtlnWarp longer{20.0, 8000.0, 100.0, 7500.0, 1.25};  // l = 125, h = 7500
  EXPECT_DOUBLE_EQ(longer.frequency(20.0), 20.0);
  EXPECT_DOUBLE_EQ(longer.frequency(125.0), 100.0);
  EXPECT_DOUBLE_EQ(longer.frequency(72.5), 60.0);
  EXPECT_DOUBLE_EQ(longer.frequency(1000.0), 800.0);
  EXPECT_DOUBLE_EQ(longer.frequency(7500.0), 6000.0);
  EXPECT_DOUBLE_EQ(longer.frequency(7750.0), 7000.0);
  EXPECT_DOUBLE_EQ(longer.frequency(8000.0), 8000.0);
  EXPECT_DOUBLE_EQ(longer.frequency(10.0), 10.0);
  EXPECT_DOUBLE_EQ(longer.frequency(9000.0), 9000.0);

  const VtlnWarp shorter{20.0, 8000.0, 100.0, 7500.0, 0.8};  // l = 100, h = 6000
  EXPECT_DOUBLE_EQ(shorter.frequency(100.0), 125.0);
  EXPECT_DOUBLE_EQ(shorter.frequency(1000.0), 1250.0);
  EXPECT_DOUBLE_EQ(shorter.frequency(6000.0), 7500.0);
  EXPECT_DOUBLE_EQ(shorter.frequency(7000.0), 7750.0);
}

TEST(VtlnWarp, MapsMelToMel) {
  const VtlnWarp warp{20.0, 8000.0, 100.0, 7500.0, 1.25};
  EXPECT_NEAR(mel_of(700.0), 1127.0 * std::log(2.0), 1e-9);
  EXPECT_NEAR(frequency_of(mel_of(1234.0)), 1234.0, 1e-9);
  EXPECT_NEAR(warp.mel(mel_of(1000.0)), mel_of(800.0), 1e-9);
}

}  // namespace
}  // namespace sonivo
