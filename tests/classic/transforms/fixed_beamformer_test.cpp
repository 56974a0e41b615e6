#include "classic/fixed_beamformer.h"

#include <gtest/gtest.h>

#include <memory>

#include "reference.h"
#include "signals.h"

namespace sonivo::classic {
namespace {

using test::Samples;

constexpr std::size_t kTaps = 2 * kHop;

// Taps by beam and microphone.
struct Taps {
  reference::Signal of[kBeams][kBeams] = {{reference::Signal(kTaps), reference::Signal(kTaps)},
                                          {reference::Signal(kTaps), reference::Signal(kTaps)}};
};

std::unique_ptr<BeamFormingKeyCancelParam> parameters(const Taps& taps) {
  auto param = std::make_unique<BeamFormingKeyCancelParam>();
  for (std::size_t o = 0; o < kBeams; ++o) {
    for (std::size_t i = 0; i < kBeams; ++i) {
      for (std::size_t cut = 0; cut < kPartitions; ++cut) {
        reference::Spectrum x(kBeamFft);
        for (std::size_t n = 0; n < kHop; ++n) x[n] = taps.of[o][i][cut * kHop + n];
        const reference::Spectrum X = reference::dft(x);
        for (std::size_t k = 0; k < kBeamBins; ++k) {
          param->filter[o][i][kPartitions - 1 - cut][k] = {static_cast<float>(X[k].real()),
                                                           static_cast<float>(X[k].imag())};
        }
      }
    }
  }
  return param;
}

struct Pair {
  Samples first, second;
};

Pair beams_of(FixedBeamformer& beamformer, const Pair& microphones) {
  Pair beams = microphones;
  for (std::size_t n = 0; n < beams.first.size(); n += kHop) {
    beamformer.process(std::span(microphones.first).subspan(n, kHop), std::span(microphones.second).subspan(n, kHop),
                       std::span(beams.first).subspan(n, kHop), std::span(beams.second).subspan(n, kHop));
  }
  return beams;
}

reference::Signal exact(const Samples& samples) { return {samples.begin(), samples.end()}; }

// The middle bin of the second beam is left out, so that signals pass through exactly only without anything in it.
Samples without_middle_bin(Samples samples) {
  for (std::size_t from = 0; from < samples.size(); from += kHop) {
    double middle = 0.0;
    for (std::size_t n = 0; n < kHop; ++n) middle += n % 2 ? -samples[from + n] : samples[from + n];
    const float part = static_cast<float>(middle / kHop);
    for (std::size_t n = 0; n < kHop; ++n) samples[from + n] -= n % 2 ? -part : part;
  }
  return samples;
}

class FixedBeamformerOnEachMachine : public testing::TestWithParam<const Kernels*> {
 protected:
  static constexpr std::size_t kCount = 10 * kHop;
  const Pair microphones_{without_middle_bin(test::noise(kCount, 1)), without_middle_bin(test::sweep(kCount))};
};

TEST_P(FixedBeamformerOnEachMachine, OneTapOnTheDirectPairsReproducesTheInputsWithoutDelay) {
  Taps taps;
  taps.of[0][0][0] = taps.of[1][1][0] = 1.0;
  const auto param = parameters(taps);
  FixedBeamformer beamformer(*param, *GetParam());
  const Pair beams = beams_of(beamformer, microphones_);
  EXPECT_GT(test::agreement_db(exact(microphones_.first), beams.first), 110.0);
  EXPECT_GT(test::agreement_db(exact(microphones_.second), beams.second), 110.0);
}

TEST_P(FixedBeamformerOnEachMachine, ATapAt192AppearsOneFrameLater) {
  Taps taps;
  taps.of[0][1][kHop] = taps.of[1][0][kHop] = 1.0;  // crossed
  const auto param = parameters(taps);
  FixedBeamformer beamformer(*param, *GetParam());
  const Pair beams = beams_of(beamformer, microphones_);
  for (std::size_t n = 0; n < kHop; ++n) ASSERT_EQ(beams.first[n], 0.0f);
  reference::Signal late0(kHop), late1(kHop);
  late0.insert(late0.end(), microphones_.second.begin(), microphones_.second.end() - kHop);
  late1.insert(late1.end(), microphones_.first.begin(), microphones_.first.end() - kHop);
  EXPECT_GT(test::agreement_db(late0, beams.first), 110.0);
  EXPECT_GT(test::agreement_db(late1, beams.second), 110.0);
}

TEST_P(FixedBeamformerOnEachMachine, EachBeamIsTheSumOfBothFilteredMicrophones) {
  Taps taps;
  unsigned seed = 10;
  for (auto& beam : taps.of) {
    for (reference::Signal& filter : beam) {
      const Samples random = test::noise(kTaps, seed++);
      for (std::size_t t = 0; t < kTaps; ++t) filter[t] = random[t] / 30000.0;
    }
  }
  const auto param = parameters(taps);
  for (const Pair& microphones :
       {microphones_, Pair{without_middle_bin(test::clicks(kCount, 3)), without_middle_bin(test::noise(kCount, 4))}}) {
    FixedBeamformer beamformer(*param, *GetParam());
    const Pair beams = beams_of(beamformer, microphones);
    for (std::size_t o = 0; o < kBeams; ++o) {
      reference::Signal wanted = reference::convolved(taps.of[o][0], exact(microphones.first));
      const reference::Signal other = reference::convolved(taps.of[o][1], exact(microphones.second));
      for (std::size_t n = 0; n < kCount; ++n) wanted[n] += other[n];
      EXPECT_GT(test::agreement_db(wanted, o == 0 ? beams.first : beams.second), 110.0) << "beam " << o;
    }
  }
}

// Every place of the spectra counts as stored, the imaginary parts of the outer bins too.
TEST_P(FixedBeamformerOnEachMachine, SpectraOfNoRealFilterAreAppliedAsTheyStand) {
  using Value = std::complex<double>;
  auto param = std::make_unique<BeamFormingKeyCancelParam>();
  unsigned seed = 20;
  for (auto& beam : param->filter) {
    for (auto& microphone : beam) {
      for (auto& partition : microphone) {
        const Samples random = test::noise(2 * kBeamBins, seed++);
        for (std::size_t k = 0; k < kBeamBins; ++k) {
          partition[k] = {random[2 * k] / 3000.0f, random[2 * k + 1] / 3000.0f};
        }
      }
    }
  }
  FixedBeamformer beamformer(*param, *GetParam());
  const Pair microphones{test::noise(kCount, 5), test::noise(kCount, 6)};  // with something in the middle bin
  const Pair beams = beams_of(beamformer, microphones);

  constexpr std::size_t N = kBeamFft, half = N / 2;
  const Value j(0.0, 1.0);
  reference::Spectrum history[kBeams][kPartitions];
  for (auto& partitions : history) partitions[0] = partitions[1] = reference::Spectrum(kBeamBins);
  reference::Signal overlap[kBeams]{reference::Signal(kHop), reference::Signal(kHop)}, wanted[kBeams];
  for (std::size_t from = 0; from < kCount; from += kHop) {
    reference::Spectrum z(N);
    for (std::size_t n = 0; n < kHop; ++n) z[n] = {microphones.first[from + n], microphones.second[from + n]};
    const reference::Spectrum Z = reference::dft(z);
    for (auto& partitions : history) partitions[0] = partitions[1];
    for (std::size_t k = 1; k < half; ++k) {
      const std::size_t m = N - k;
      history[0][1][k] = {(Z[k].real() + Z[m].real()) / 2, (Z[k].imag() - Z[m].imag()) / 2};
      history[1][1][k] = {(Z[m].imag() + Z[k].imag()) / 2, (Z[m].real() - Z[k].real()) / 2};
    }
    for (const std::size_t k : {std::size_t{0}, half}) {
      history[0][1][k] = Z[k].real();
      history[1][1][k] = Z[k].imag();
    }
    reference::Spectrum Y[kBeams]{reference::Spectrum(kBeamBins), reference::Spectrum(kBeamBins)};
    for (std::size_t o = 0; o < kBeams; ++o) {
      for (std::size_t k = 0; k < kBeamBins; ++k) {
        for (std::size_t i = 0; i < kBeams; ++i) {
          for (std::size_t q = 0; q < kPartitions; ++q) {
            const ComplexFloat F = param->filter[o][i][q][k];
            Y[o][k] += Value(F.re, F.im) * history[i][q][k];
          }
        }
      }
    }
    reference::Spectrum back(N);
    back[0] = Y[0][0] + j * Y[1][0];
    back[half] = Y[0][half];
    for (std::size_t k = 1; k < half; ++k) {
      back[k] = Y[0][k] + j * Y[1][k];
      back[N - k] = std::conj(Y[0][k]) + j * std::conj(Y[1][k]);
    }
    const reference::Spectrum y = reference::dft(back, 1.0);
    for (std::size_t n = 0; n < kHop; ++n) {
      wanted[0].push_back(y[n].real() / N + overlap[0][n]);
      wanted[1].push_back(y[n].imag() / N + overlap[1][n]);
      overlap[0][n] = y[kHop + n].real() / N;
      overlap[1][n] = y[kHop + n].imag() / N;
    }
  }
  EXPECT_GT(test::agreement_db(wanted[0], beams.first), 110.0);
  EXPECT_GT(test::agreement_db(wanted[1], beams.second), 110.0);
}

TEST_P(FixedBeamformerOnEachMachine, BeamsMayLieOnTheInputs) {
  Taps taps;
  taps.of[0][0][3] = taps.of[0][1][200] = taps.of[1][0][5] = taps.of[1][1][383] = 0.5;
  const auto param = parameters(taps);
  FixedBeamformer apart(*param, *GetParam()), in_place(*param, *GetParam());
  const Pair expected = beams_of(apart, microphones_);
  Pair given = microphones_;
  for (std::size_t n = 0; n < kCount; n += kHop) {
    const auto first = std::span(given.first).subspan(n, kHop), second = std::span(given.second).subspan(n, kHop);
    in_place.process(first, second, first, second);
  }
  EXPECT_EQ(given.first, expected.first);
  EXPECT_EQ(given.second, expected.second);
}

TEST_P(FixedBeamformerOnEachMachine, ResetRepeatsExactly) {
  Taps taps;
  taps.of[0][0][100] = taps.of[1][1][383] = taps.of[1][0][192] = 1.0;
  const auto param = parameters(taps);
  FixedBeamformer beamformer(*param, *GetParam());
  const Pair before = beams_of(beamformer, microphones_);
  const Pair going_on = beams_of(beamformer, microphones_);
  beamformer.reset();
  const Pair after = beams_of(beamformer, microphones_);
  EXPECT_EQ(after.first, before.first);
  EXPECT_EQ(after.second, before.second);
  EXPECT_NE(going_on.first, before.first);
  EXPECT_NE(going_on.second, before.second);
}

INSTANTIATE_TEST_SUITE_P(Kernels, FixedBeamformerOnEachMachine, testing::ValuesIn(test::kernels_here()),
                         [](const auto& instance) {
                           std::string name = instance.param->name;
                           std::erase(name, '-');
                           return name;
                         });

}  // namespace
}  // namespace sonivo::classic
