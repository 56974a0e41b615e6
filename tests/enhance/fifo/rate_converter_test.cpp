#include "enhance/rate_converter.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "reference.h"
#include "signals.h"

namespace sonivo::test {
namespace {

/// Whole frames of x through a converter.
std::vector<float> through(RateConverter& converter, const std::vector<float>& x) {
  const std::size_t frames = x.size() / converter.in_frame();
  std::vector<float> y(frames * converter.out_frame());
  for (std::size_t f = 0; f < frames; ++f) {
    converter.process(x.data() + f * converter.in_frame(), y.data() + f * converter.out_frame());
  }
  return y;
}

struct Case {
  const RateKernel& (*kernel)();
  Conversion conversion;
};

std::ostream& operator<<(std::ostream& out, const Case& of) { return out << of.conversion.name; }

class Converter : public testing::TestWithParam<Case> {
 protected:
  const Conversion& conversion() const { return GetParam().conversion; }
  double in_rate() const { return 100.0 * static_cast<double>(conversion().in_frame); }
  double out_rate() const { return 100.0 * static_cast<double>(conversion().out_frame); }

  RateConverter converter_{GetParam().kernel()};
};

INSTANTIATE_TEST_SUITE_P(OfEachConversion, Converter,
                         testing::Values(Case{kernel_48000_to_16000, k48000To16000},
                                         Case{kernel_44100_to_16000, k44100To16000},
                                         Case{kernel_16000_to_48000, k16000To48000},
                                         Case{kernel_16000_to_44100, k16000To44100}));

/// 31 products in float: a few units in the last place of a full-scale sample, for each instruction set.
TEST_P(Converter, IsTheProductOfRowsAndHistory) {
  const std::vector<float> x = noise(20 * conversion().in_frame, 1.0f);
  const std::vector<double> expected = convert(conversion(), in_double(x));
  for (const RateProducts* products : kAllRateProducts) {
    if (!runs_here(*products)) continue;
    RateConverter converter(GetParam().kernel(), *products);
    const std::vector<float> y = through(converter, x);
    ASSERT_EQ(y.size(), expected.size());
    for (std::size_t n = 0; n < y.size(); ++n) {
      ASSERT_NEAR(y[n], expected[n], 5e-7) << products->name << ", sample " << n;
    }
  }
}

TEST_P(Converter, WritesNoMoreThanAFrame) {
  std::vector<float> out(conversion().out_frame + 8, 7.0f);
  for (const RateProducts* products : kAllRateProducts) {
    if (!runs_here(*products)) continue;
    RateConverter converter(GetParam().kernel(), *products);
    converter.process(noise(conversion().in_frame, 1.0f).data(), out.data());
    EXPECT_EQ(std::count(out.begin(), out.end(), 7.0f), 8) << products->name;
  }
}

TEST(RateProducts, AreTheBestThatRunHere) {
  EXPECT_TRUE(runs_here(kSse2RateProducts));
  EXPECT_EQ(&best_rate_products(), runs_here(kAvx2RateProducts) ? &kAvx2RateProducts : &kSse2RateProducts);
}

TEST_P(Converter, RepeatsExactlyAfterAReset) {
  const std::vector<float> x = noise(5 * conversion().in_frame, 1.0f);
  const std::vector<float> first = through(converter_, x);
  converter_.reset();
  EXPECT_EQ(through(converter_, x), first);
}

/// An impulse comes out where it went in, 16 input samples later.
TEST_P(Converter, DelaysBySixteenInputSamples) {
  std::vector<float> x(2 * conversion().in_frame);
  const std::size_t at = 45;
  x[at] = 1.0f;
  const std::vector<float> y = through(converter_, x);
  const auto peak = static_cast<double>(std::max_element(y.begin(), y.end()) - y.begin());
  EXPECT_NEAR(peak / out_rate(), (static_cast<double>(at) + 16) / in_rate(), 0.5 / std::min(in_rate(), out_rate()));
}

/// Complex amplitude of y at a frequency that is a multiple of 100 Hz, over whole frames.
Complex amplitude(const std::vector<float>& y, double hz, double rate) {
  Complex sum = 0;
  for (std::size_t n = 0; n < y.size(); ++n) {
    sum += static_cast<double>(y[n]) * std::polar(1.0, -2 * std::numbers::pi * hz * static_cast<double>(n) / rate);
  }
  return 2.0 / static_cast<double>(y.size()) * sum;
}

/// What a sine of full scale becomes, once the converter has settled.
struct Response {
  double at_its_frequency;  ///< amplitude there
  double elsewhere;         ///< amplitude of a sine of the same power as all the rest
};

Response response(RateConverter& converter, double hz, double in_rate, double out_rate) {
  converter.reset();
  std::vector<float> y = through(converter, sine(21 * converter.in_frame(), hz, in_rate));
  y.erase(y.begin(), y.begin() + static_cast<std::ptrdiff_t>(converter.out_frame()));
  double power = 0;
  for (const float sample : y) power += static_cast<double>(sample) * static_cast<double>(sample);
  power *= 2 / static_cast<double>(y.size());
  const double there = hz < out_rate / 2 ? std::abs(amplitude(y, hz, out_rate)) : 0;
  return {there, std::sqrt(std::max(power - there * there, 1e-20))};
}

/// Gain of the prototype between its taps at a frequency in cycles per tap, for each sample that it makes; 64 points
/// per tap are enough to add up what the fine grid holds.
double interpolated_gain(const std::vector<double>& K, double cycles) {
  constexpr std::size_t kEvery = 16;
  double gain = K[0];
  for (std::size_t j = kEvery; j <= 15 * 1024 + 512; j += kEvery) {
    gain += 2 * K[j] * std::cos(2 * std::numbers::pi * cycles * static_cast<double>(j) / 1024);
  }
  return gain * kEvery / 1024;
}

/// What a sine becomes in theory.
struct Theory {
  double there;    ///< amplitude at its frequency
  double repeats;  ///< what the prototype lets through of its spectrum, which repeats at multiples of the input rate
  double grid;     ///< what taking the nearest point of the grid adds: it shifts a tap by up to half a point, which is
                   ///< 1 / (1024 sqrt 12) taps in the square mean
};

/// The way down from 48 kHz hits the taps themselves, and knows neither repeats nor the grid.
Theory theory(const Conversion& conversion, double hz, double in_rate, double out_rate) {
  static const std::vector<double> down = fine_grid(kLowPass);
  static const std::vector<double> up = fine_grid(kHighBand);
  const double cycles = hz / in_rate;
  if (conversion.in_frame == 480) {
    double gain = down[0];
    for (std::size_t n = 1; n < 16; ++n) {
      gain += 2 * down[1024 * n] * std::cos(2 * std::numbers::pi * cycles * static_cast<double>(n));
    }
    return hz < out_rate / 2 ? Theory{std::abs(gain), 0, 0} : Theory{0, std::abs(gain), 0};
  }
  const std::vector<double>& K = conversion.down ? down : up;
  const double there = interpolated_gain(K, cycles);
  double repeats = 0;
  for (int m = -3; m <= 3; ++m) {
    if (m != 0) repeats += std::pow(interpolated_gain(K, cycles + m), 2);
  }
  const double grid = 2 * std::numbers::pi * cycles * std::abs(there) / 1024 / std::sqrt(12.0);
  if (hz < out_rate / 2) return {std::abs(there), std::sqrt(repeats), grid};
  return {0, std::sqrt(repeats + there * there), grid};
}

/// Repeats and grid add up in power or, where there are few phases, in amplitude, with either sign. 5e-5 of full scale
/// is 86 dB below it.
TEST_P(Converter, PassesAndRejectsWhatItsPrototypeDoes) {
  for (double hz = 100; hz < in_rate() / 2; hz += 300) {
    const Response is = response(converter_, hz, in_rate(), out_rate());
    const Theory of = theory(conversion(), hz, in_rate(), out_rate());
    EXPECT_NEAR(is.at_its_frequency, of.there, 5e-5) << hz << " Hz";
    EXPECT_LT(is.elsewhere, of.repeats + of.grid + 5e-5) << hz << " Hz";
    EXPECT_GT(is.elsewhere, std::abs(of.repeats - of.grid) - 5e-5) << hz << " Hz";
  }
}

TEST_P(Converter, HasAFlatPassBand) {
  const double up_to = conversion().down ? 3000 : 5000;
  double lowest = 1e9, highest = 0;
  for (double hz = 100; hz <= up_to; hz += 100) {
    const double gain = response(converter_, hz, in_rate(), out_rate()).at_its_frequency;
    lowest = std::min(lowest, gain);
    highest = std::max(highest, gain);
  }
  RecordProperty("ripple_millidecibels", static_cast<int>(1000 * decibels(highest / lowest)));
  EXPECT_LT(decibels(highest / lowest), 0.03);
}

class ConverterDown : public Converter {};
INSTANTIATE_TEST_SUITE_P(OfEachConversion, ConverterDown,
                         testing::Values(Case{kernel_48000_to_16000, k48000To16000},
                                         Case{kernel_44100_to_16000, k44100To16000}));

/// What lies above 10 kHz comes back 60 dB lower below 8 kHz.
TEST_P(ConverterDown, RejectsAliases) {
  double worst = 0;
  for (double hz = 10000; hz < in_rate() / 2; hz += 100) {
    worst = std::max(worst, response(converter_, hz, in_rate(), out_rate()).elsewhere);
  }
  RecordProperty("worst_alias_decibels", static_cast<int>(decibels(worst)));
  EXPECT_LT(decibels(worst), -60);
}

class ConverterUp : public Converter {};
INSTANTIATE_TEST_SUITE_P(OfEachConversion, ConverterUp,
                         testing::Values(Case{kernel_16000_to_48000, k16000To48000},
                                         Case{kernel_16000_to_44100, k16000To44100}));

/// All images of a sine together: up to 3 kHz, where speech has its power, 69 dB below it, up to 6 kHz 63 dB.
TEST_P(ConverterUp, RejectsImages) {
  double worst = 0;
  for (double hz = 100; hz <= 6000; hz += 100) {
    worst = std::max(worst, response(converter_, hz, in_rate(), out_rate()).elsewhere);
    if (hz == 3000) {
      EXPECT_LT(decibels(worst), -69);
    }
  }
  RecordProperty("worst_image_decibels", static_cast<int>(decibels(worst)));
  EXPECT_LT(decibels(worst), -63);
}

}  // namespace
}  // namespace sonivo::test
