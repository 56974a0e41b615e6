#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "classic/analysis.h"
#include "classic/synthesis.h"
#include "parameters.h"
#include "reference.h"
#include "signals.h"

namespace sonivo::classic {
namespace {

using test::Frame;
using test::Samples;

std::span<const float> frame_of(const Samples& samples, std::size_t index, std::size_t hop) {
  return std::span(samples).subspan(index * hop, hop);
}

reference::Signal exact(std::span<const float> samples) { return {samples.begin(), samples.end()}; }

std::vector<std::complex<double>> exact(std::span<const ComplexFloat> spectrum) {
  std::vector<std::complex<double>> values;
  for (const ComplexFloat& bin : spectrum) values.emplace_back(bin.re, bin.im);
  return values;
}

std::vector<ComplexFloat> rounded(const reference::Spectrum& spectrum) {
  std::vector<ComplexFloat> values;
  for (const auto& bin : spectrum) values.push_back({static_cast<float>(bin.real()), static_cast<float>(bin.imag())});
  return values;
}

reference::Spectrum noise_spectrum(std::size_t bins, unsigned seed) {
  const Samples re = test::noise(bins, seed), im = test::noise(bins, seed + 1);
  reference::Spectrum X(bins);
  for (std::size_t k = 0; k < bins; ++k) X[k] = {re[k], im[k]};
  return X;
}

// The wanted bins within 0.01, then untouched ones exactly; the loudest bins of the signals here are in the thousands.
void expect_near(const std::vector<ComplexFloat>& given, const reference::Spectrum& wanted, ComplexFloat untouched) {
  for (std::size_t k = 0; k < given.size(); ++k) {
    if (k < wanted.size()) {
      EXPECT_NEAR(given[k].re, wanted[k].real(), 0.01) << "bin " << k;
      EXPECT_NEAR(given[k].im, wanted[k].imag(), 0.01) << "bin " << k;
    } else {
      EXPECT_EQ(given[k].re, untouched.re) << "bin " << k;
      EXPECT_EQ(given[k].im, untouched.im) << "bin " << k;
    }
  }
}

class ShortTimeOnEachMachine : public testing::TestWithParam<std::tuple<const Kernels*, Frame>> {
 protected:
  static constexpr std::size_t kFrames = 12;

  const Kernels& kernels_ = *std::get<0>(GetParam());
  const Frame frame_ = std::get<1>(GetParam());
  const std::size_t hop_ = frame_.hop;
  const std::size_t half_ = frame_.points / 2;
  const std::size_t count_ = kFrames * frame_.hop;
  const std::vector<Samples> signals_{test::noise(count_, 7), test::sweep(count_), test::clicks(count_, 8)};
};

TEST_P(ShortTimeOnEachMachine, AnalysisOfOneSignalIsTwiceItsWindowedTransform) {
  const AnaBlock block = test::analysis_block(frame_, 0, half_);
  for (const Samples& signal : signals_) {
    Analysis analysis(block, kernels_);
    reference::Analysis wanted(hop_, frame_.points, 0, half_);
    std::vector<ComplexFloat> S(half_);
    for (std::size_t i = 0; i < kFrames; ++i) {
      analysis.process(frame_of(signal, i, hop_), S);
      ASSERT_GT(test::agreement_db(wanted.one(exact(frame_of(signal, i, hop_))), exact(S)), 110.0) << "frame " << i;
    }
  }
}

TEST_P(ShortTimeOnEachMachine, AnalysisOfTwoSignalsGivesBothSpectraApart) {
  const AnaBlock block = test::analysis_block(frame_, 0, half_);
  for (std::size_t s = 0; s < signals_.size(); ++s) {
    const Samples &first = signals_[s], &second = signals_[(s + 1) % signals_.size()];
    Analysis analysis(block, kernels_);
    reference::Analysis wanted(hop_, frame_.points, 0, half_);
    std::vector<ComplexFloat> A(half_), B(half_);
    for (std::size_t i = 0; i < kFrames; ++i) {
      analysis.process(frame_of(first, i, hop_), frame_of(second, i, hop_), A, B);
      const auto [wanted_A, wanted_B] = wanted.two(exact(frame_of(first, i, hop_)), exact(frame_of(second, i, hop_)));
      // One transform carries both, so the rounding of the louder signal reaches the quieter one.
      ASSERT_GT(test::agreement_db(wanted_A, exact(A)), 65.0) << "frame " << i;
      ASSERT_GT(test::agreement_db(wanted_B, exact(B)), 65.0) << "frame " << i;
    }
  }
}

TEST_P(ShortTimeOnEachMachine, BothFormsOfTheAnalysisHaveOneScaleButForBinZero) {
  const AnaBlock block = test::analysis_block(frame_, 0, half_);
  Analysis one(block, kernels_), two(block, kernels_);
  std::vector<ComplexFloat> S(half_), A(half_), B(half_);
  Samples offset = signals_[0];
  for (float& sample : offset) sample += 5000.0f;
  for (std::size_t i = 0; i < kFrames; ++i) {
    one.process(frame_of(offset, i, hop_), S);
    two.process(frame_of(offset, i, hop_), frame_of(signals_[1], i, hop_), A, B);
    EXPECT_NEAR(S[0].re, 2.0f * A[0].re, 1e-5f * std::abs(S[0].re));
    S[0] = A[0];
    ASSERT_GT(test::agreement_db(exact(S), exact(A)), 100.0);
  }
}

TEST_P(ShortTimeOnEachMachine, BinsComeFromTheBaseOnAndOthersAreLeftAlone) {
  struct Range {
    std::size_t base, bins;
  };
  constexpr ComplexFloat untouched{7.0f, 8.0f};
  for (const Range& range : {Range{0, 0}, Range{0, 1}, Range{0, half_ - 3}, Range{1, half_}, Range{5, 11},
                             Range{half_ - 1, 2}, Range{half_, 1}, Range{3, half_ - 2}}) {
    SCOPED_TRACE("base " + std::to_string(range.base) + " bins " + std::to_string(range.bins));
    const AnaBlock block = test::analysis_block(frame_, range.base, range.bins);
    Analysis one(block, kernels_), two(block, kernels_);
    reference::Analysis exact_one(hop_, frame_.points, range.base, range.bins), exact_two = exact_one;
    std::vector<ComplexFloat> S(half_, untouched), A = S, B = S;
    for (std::size_t i = 0; i < 3; ++i) {
      const auto first = frame_of(signals_[0], i, hop_), second = frame_of(signals_[1], i, hop_);
      one.process(first, S);
      two.process(first, second, A, B);
      const auto both = exact_two.two(exact(first), exact(second));
      expect_near(S, exact_one.one(exact(first)), untouched);
      expect_near(A, both.first, untouched);
      expect_near(B, both.second, untouched);
    }
  }
}

TEST_P(ShortTimeOnEachMachine, SynthesisOfOneSpectrumIsTheOverlappedInverse) {
  const SynBlock block = test::synthesis_block(frame_);
  Synthesis synthesis(block, kernels_);
  reference::Synthesis wanted(hop_, frame_.points);
  for (unsigned i = 0; i < kFrames; ++i) {
    const reference::Spectrum X = noise_spectrum(half_, 10 + 2 * i);  // bin 0 with an imaginary part
    Samples signal(hop_);
    synthesis.process(rounded(X), signal);
    ASSERT_GT(test::agreement_db(wanted.one(X), signal), 110.0) << "frame " << i;
  }
}

TEST_P(ShortTimeOnEachMachine, SynthesisOfTwoSpectraGivesBothSignals) {
  const SynBlock block = test::synthesis_block(frame_);
  Synthesis synthesis(block, kernels_);
  reference::Synthesis wanted(hop_, frame_.points);
  for (unsigned i = 0; i < kFrames; ++i) {
    const reference::Spectrum A = noise_spectrum(half_, 10 + 4 * i), B = noise_spectrum(half_, 12 + 4 * i);
    Samples first(hop_), second(hop_);
    synthesis.process(rounded(A), rounded(B), first, second);
    const auto [wanted_first, wanted_second] = wanted.two(A, B);
    ASSERT_GT(test::agreement_db(wanted_first, first), 110.0) << "frame " << i;
    ASSERT_GT(test::agreement_db(wanted_second, second), 110.0) << "frame " << i;
  }
}

// Bin N / 2 is lost on the way, so the signal is one that has next to nothing there. The first frame starts from
// nothing; from then on every sample has both of its halves.
TEST_P(ShortTimeOnEachMachine, UnmodifiedSpectraGiveTheInputOneHopLater) {
  const AnaBlock analysis_block = test::analysis_block(frame_, 0, half_);
  const SynBlock synthesis_block = test::synthesis_block(frame_);
  Analysis analysis_of_one(analysis_block, kernels_), analysis_of_two(analysis_block, kernels_);
  Synthesis synthesis_of_one(synthesis_block, kernels_), synthesis_of_two(synthesis_block, kernels_);
  const Samples signal = test::sweep(count_);
  Samples alone, first, second, out(hop_), other(hop_);
  std::vector<ComplexFloat> A(half_), B(half_);
  for (std::size_t i = 0; i < kFrames; ++i) {
    const auto frame = frame_of(signal, i, hop_);
    analysis_of_one.process(frame, A);
    synthesis_of_one.process(A, out);
    alone.insert(alone.end(), out.begin(), out.end());
    analysis_of_two.process(frame, frame, A, B);
    A[0].re *= 2.0f;  // half of what a single signal has there
    B[0].re *= 2.0f;
    synthesis_of_two.process(A, B, out, other);
    first.insert(first.end(), out.begin(), out.end());
    second.insert(second.end(), other.begin(), other.end());
  }
  const reference::Signal wanted = exact(std::span(signal).first(count_ - hop_));
  for (const Samples* given : {&alone, &first, &second}) {
    EXPECT_GT(test::agreement_db(wanted, Samples(given->begin() + static_cast<std::ptrdiff_t>(hop_), given->end())),
              60.0);
  }
}

// A tone at half the rate, 1, -1, 1, .., stands as mean(w) in bin N / 2 and as the rest of the window in the bins
// beside it, which is all that is left of it: 2 N sum((w - mean(w)) v) over both halves of the overlap, 11 dB or more
// below.
TEST_P(ShortTimeOnEachMachine, AToneAtHalfTheRateLosesWhatItHasInTheMiddleBin) {
  const std::size_t N = frame_.points;
  const reference::Signal w = reference::analysis_window(hop_, N), v = reference::synthesis_window(hop_, N);
  double mean = 0.0;
  for (const double value : w) mean += value / static_cast<double>(N);
  const auto rest = [&](std::size_t j) { return 2.0 * static_cast<double>(N) * (w[N - 2 * hop_ + j] - mean) * v[j]; };
  Samples tone(hop_);
  reference::Signal wanted(hop_);
  for (std::size_t n = 0; n < hop_; ++n) {
    tone[n] = n % 2 == 0 ? 10000.0f : -10000.0f;
    wanted[n] = static_cast<double>(tone[n]) * (rest(n) + rest(n + hop_));
    ASSERT_LT(std::abs(wanted[n]), 3700.0);
  }
  const AnaBlock analysis_block = test::analysis_block(frame_, 0, half_);
  const SynBlock synthesis_block = test::synthesis_block(frame_);
  Analysis analysis_of_one(analysis_block, kernels_), analysis_of_two(analysis_block, kernels_);
  Synthesis synthesis_of_one(synthesis_block, kernels_), synthesis_of_two(synthesis_block, kernels_);
  std::vector<ComplexFloat> A(half_), B(half_);
  Samples alone(hop_), first(hop_), second(hop_);
  for (std::size_t i = 0; i < kFrames; ++i) {
    analysis_of_one.process(tone, A);
    synthesis_of_one.process(A, alone);
    analysis_of_two.process(tone, tone, A, B);
    A[0].re *= 2.0f;  // half of what a single signal has there
    B[0].re *= 2.0f;
    synthesis_of_two.process(A, B, first, second);
  }
  for (const Samples* given : {&alone, &first, &second}) EXPECT_GT(test::agreement_db(wanted, *given), 80.0);
}

TEST_P(ShortTimeOnEachMachine, ResetRepeatsExactly) {
  const AnaBlock analysis_block = test::analysis_block(frame_, 0, half_);
  const SynBlock synthesis_block = test::synthesis_block(frame_);
  Analysis analysis(analysis_block, kernels_);
  Synthesis synthesis(synthesis_block, kernels_);
  const auto run = [&] {
    Samples all;
    for (std::size_t i = 0; i < kFrames; ++i) {
      std::vector<ComplexFloat> A(half_), B(half_);
      Samples out0(hop_), out1(hop_);
      analysis.process(frame_of(signals_[0], i, hop_), frame_of(signals_[2], i, hop_), A, B);
      synthesis.process(A, B, out0, out1);
      all.insert(all.end(), out0.begin(), out0.end());
      all.insert(all.end(), out1.begin(), out1.end());
    }
    return all;
  };
  const Samples before = run();
  analysis.reset();
  synthesis.reset();
  EXPECT_EQ(run(), before);
  EXPECT_NE(run(), before) << "without a reset the histories go on";
}

INSTANTIATE_TEST_SUITE_P(Kernels, ShortTimeOnEachMachine,
                         testing::Combine(testing::ValuesIn(test::kernels_here()),
                                          testing::Values(test::kNoiseFrame, test::kPulseFrame)),
                         [](const auto& instance) {
                           std::string name = std::get<0>(instance.param)->name;
                           std::erase(name, '-');
                           return name + "_" + std::to_string(std::get<1>(instance.param).points);
                         });

}  // namespace
}  // namespace sonivo::classic
