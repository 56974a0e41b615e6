#include "classic/fft.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <tuple>

#include "reference.h"
#include "signals.h"

namespace sonivo::classic {
namespace {

using reference::Spectrum;

constexpr std::size_t kMargin = 16;
constexpr float kUntouched = 12345.0f;

class FftOnEachMachine : public testing::TestWithParam<std::tuple<const Kernels*, std::size_t>> {
 protected:
  std::size_t points() const { return std::get<1>(GetParam()); }
  const Fft fft_{points(), *std::get<0>(GetParam())};

  // Both parts off any boundary wider than a float, and fenced.
  struct Split {
    explicit Split(const Spectrum& x) : re(x.size() + 2 * kMargin, kUntouched), im(re) {
      for (std::size_t n = 0; n < x.size(); ++n) {
        re[kMargin + 1 + n] = static_cast<float>(x[n].real());
        im[kMargin + 3 + n] = static_cast<float>(x[n].imag());
      }
    }
    float* real() { return re.data() + kMargin + 1; }
    float* imag() { return im.data() + kMargin + 3; }
    Spectrum values() {
      Spectrum x(re.size() - 2 * kMargin);
      for (std::size_t n = 0; n < x.size(); ++n) x[n] = {real()[n], imag()[n]};
      return x;
    }
    bool fences_stand() const {
      const std::size_t points = re.size() - 2 * kMargin;
      for (std::size_t n = 0; n < re.size(); ++n) {
        if ((n < kMargin + 1 || n > kMargin + points) && re[n] != kUntouched) return false;
        if ((n < kMargin + 3 || n > kMargin + 2 + points) && im[n] != kUntouched) return false;
      }
      return true;
    }
    test::Samples re, im;
  };

  Spectrum complex_noise(unsigned seed) const {
    const test::Samples re = test::noise(points(), seed), im = test::noise(points(), seed + 1);
    Spectrum x(points());
    for (std::size_t n = 0; n < points(); ++n) x[n] = {re[n], im[n]};
    return x;
  }
};

TEST_P(FftOnEachMachine, ForwardOfNoiseIsTheFourierSum) {
  const Spectrum x = complex_noise(1);
  Split data(x);
  fft_.forward(data.real(), data.imag());
  EXPECT_GT(test::agreement_db(reference::dft(x), data.values()), 130.0);
  EXPECT_TRUE(data.fences_stand());
}

TEST_P(FftOnEachMachine, InverseIsTheConjugateSumWithoutDivision) {
  const Spectrum X = complex_noise(3);
  Split data(X);
  fft_.inverse(data.real(), data.imag());
  EXPECT_GT(test::agreement_db(reference::dft(X, 1.0), data.values()), 130.0);
  EXPECT_TRUE(data.fences_stand());
}

TEST_P(FftOnEachMachine, EveryImpulseGivesItsTurningPhasor) {
  for (std::size_t at = 0; at < points(); ++at) {
    Spectrum x(points()), wanted(points());
    x[at] = {0.0, 2.0};
    for (std::size_t k = 0; k < points(); ++k) {
      const double angle = -2.0 * std::numbers::pi * static_cast<double>(k * at % points()) / double(points());
      wanted[k] = std::complex<double>(0.0, 2.0) * std::polar(1.0, angle);
    }
    Split data(x);
    fft_.forward(data.real(), data.imag());
    ASSERT_GT(test::agreement_db(wanted, data.values()), 130.0) << "impulse at " << at;
  }
}

TEST_P(FftOnEachMachine, ForwardAndInverseGiveNTimesTheInput) {
  const Spectrum x = complex_noise(5);
  Split data(x);
  fft_.forward(data.real(), data.imag());
  fft_.inverse(data.real(), data.imag());
  Spectrum scaled = x;
  for (auto& value : scaled) value *= static_cast<double>(points());
  EXPECT_GT(test::agreement_db(scaled, data.values()), 130.0);
}

INSTANTIATE_TEST_SUITE_P(Kernels, FftOnEachMachine,
                         testing::Combine(testing::ValuesIn(test::kernels_here()),
                                          testing::Values(64u, 128u, 256u, 512u, 1024u)),
                         [](const auto& instance) {
                           std::string name = std::get<0>(instance.param)->name;
                           std::erase(name, '-');
                           return name + "_" + std::to_string(std::get<1>(instance.param));
                         });

TEST(Kernels, ThePlainestRunsEverywhereAndTheBestIsTheLastThatRuns) {
  EXPECT_TRUE(runs_here(kSse2Kernels));
  EXPECT_EQ(&best_kernels(), test::kernels_here().back());
}

TEST(Kernels, NoneRunsWhereAPlainerOneDoesNot) {
  for (std::size_t i = 1; i < std::size(kAllKernels); ++i) {
    EXPECT_LE(runs_here(*kAllKernels[i]), runs_here(*kAllKernels[i - 1])) << kAllKernels[i]->name;
  }
}

TEST(Fft, OfASizeIsTheSameForAllThreads) {
  std::array<const Fft*, 4> seen{};
  {
    std::array<std::jthread, 4> threads;
    for (std::size_t i = 0; i < threads.size(); ++i) threads[i] = std::jthread([&seen, i] { seen[i] = &Fft::of(256); });
  }
  for (const Fft* fft : seen) EXPECT_EQ(fft, &Fft::of(256));
  EXPECT_EQ(seen[0]->points(), 256u);
  EXPECT_NE(seen[0], &Fft::of(512));
}

}  // namespace
}  // namespace sonivo::classic
