#include "apps/tool/stoi.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <numeric>
#include <random>
#include <vector>

namespace sonivo::tool {
namespace {

using Signal = std::vector<double>;

constexpr double kPi = std::numbers::pi;

/// Noise in syllables of about a quarter second, low and high parts of it in turn, with pauses of digital silence.
Signal syllables(std::uint32_t rate_hz, double seconds, unsigned seed = 1) {
  std::minstd_rand random(seed);
  std::normal_distribution<double> normal;
  Signal signal(static_cast<std::size_t>(seconds * rate_hz));
  double low = 0;
  for (std::size_t n = 0; n < signal.size(); ++n) {
    const double t = static_cast<double>(n) / rate_hz;
    const double white = normal(random);
    low += 0.2 * (white - low);
    const double loudness = std::pow(std::sin(2 * kPi * 1.9 * t), 2) * (std::fmod(t, 1.7) < 1.3 ? 1 : 0);
    const double colour = 0.5 + 0.5 * std::sin(2 * kPi * 0.7 * t);
    signal[n] = 0.1 * loudness * (colour * low + 0.3 * (1 - colour) * (white - low));
  }
  return signal;
}

Signal with_noise(const Signal& signal, double level, unsigned seed = 9) {
  std::minstd_rand random(seed);
  std::normal_distribution<double> normal(0, level);
  Signal noisy = signal;
  for (double& x : noisy) x += normal(random);
  return noisy;
}

// The measure once more, step by step from the publication (see stoi.h), for signals at 10 kHz.
namespace reference {

constexpr std::size_t kFrame = 256;
constexpr std::size_t kBins = 257;
constexpr int kBands = 15;
constexpr std::size_t kN = 30;

double hann(std::size_t n) { return std::pow(std::sin(kPi * static_cast<double>(n + 1) / (kFrame + 1)), 2); }

std::vector<Signal> windowed_frames(const Signal& x) {
  std::vector<Signal> frames;
  for (std::size_t start = 0; start + kFrame < x.size(); start += kFrame / 2) {
    Signal frame(kFrame);
    for (std::size_t n = 0; n < kFrame; ++n) frame[n] = hann(n) * x[start + n];
    frames.push_back(frame);
  }
  return frames;
}

double level_db(const Signal& frame) {
  double energy = 0;
  for (const double x : frame) energy += x * x;
  return energy == 0 ? -1000 : 10 * std::log10(energy);
}

Signal overlapped(const std::vector<Signal>& frames) {
  Signal x((frames.size() + 1) * kFrame / 2);
  for (std::size_t f = 0; f < frames.size(); ++f) {
    for (std::size_t n = 0; n < kFrame; ++n) x[f * kFrame / 2 + n] += frames[f][n];
  }
  return x;
}

/// |X_j(m)|: of band j in frame m.
std::vector<Signal> band_magnitudes(const Signal& x) {
  std::vector<Signal> magnitudes;
  for (const Signal& frame : windowed_frames(x)) {
    Signal power(kBins);
    for (std::size_t k = 0; k < kBins; ++k) {
      std::complex<double> sum = 0;
      for (std::size_t n = 0; n < kFrame; ++n)
        sum += frame[n] * std::polar(1.0, -2 * kPi * static_cast<double>(k * n % 512) / 512);
      power[k] = std::norm(sum);
    }
    Signal bands(kBands);
    for (int j = 0; j < kBands; ++j) {
      // One third of an octave around 150 Hz * 2^(j/3), its edges at the nearest bins of 10000 / 512 Hz.
      const double centre = 150 * std::pow(2, j / 3.0);
      const long low = std::lround(centre * std::pow(2, -1.0 / 6) * 512 / 10000);
      const long high = std::lround(centre * std::pow(2, 1.0 / 6) * 512 / 10000);
      double sum = 0;
      for (long k = low; k < high; ++k) sum += power[static_cast<std::size_t>(k)];
      bands[static_cast<std::size_t>(j)] = std::sqrt(sum);
    }
    magnitudes.push_back(bands);
  }
  return magnitudes;
}

double norm(const Signal& x) { return std::sqrt(std::inner_product(x.begin(), x.end(), x.begin(), 0.0)); }

void centre(Signal& x) {
  const double mean = std::accumulate(x.begin(), x.end(), 0.0) / static_cast<double>(x.size());
  for (double& value : x) value -= mean;
}

double stoi(const Signal& clean, const Signal& processed) {
  const auto all_x = windowed_frames(clean);
  const auto all_y = windowed_frames(processed);
  double loudest = -1000;
  for (const Signal& frame : all_x) loudest = std::max(loudest, level_db(frame));
  std::vector<Signal> kept_x;
  std::vector<Signal> kept_y;
  for (std::size_t f = 0; f < all_x.size(); ++f) {
    if (level_db(all_x[f]) <= loudest - 40) continue;
    kept_x.push_back(all_x[f]);
    kept_y.push_back(all_y[f]);
  }
  const auto X = band_magnitudes(overlapped(kept_x));
  const auto Y = band_magnitudes(overlapped(kept_y));

  double sum = 0;
  std::size_t count = 0;
  for (std::size_t m = kN; m <= X.size(); ++m) {
    for (std::size_t j = 0; j < kBands; ++j) {
      Signal x;
      Signal y;
      for (std::size_t n = m - kN; n < m; ++n) {
        x.push_back(X[n][j]);
        y.push_back(Y[n][j]);
      }
      const double alpha = norm(x) / norm(y);
      for (std::size_t n = 0; n < kN; ++n) y[n] = std::min(alpha * y[n], x[n] * (1 + std::pow(10, 15 / 20.0)));
      centre(x);
      centre(y);
      sum += std::inner_product(x.begin(), x.end(), y.begin(), 0.0) / (norm(x) * norm(y));
      ++count;
    }
  }
  return sum / static_cast<double>(count);
}

}  // namespace reference

TEST(Stoi, AgreesWithItsPublicationStepByStep) {
  const Signal clean = syllables(10000, 3);
  for (const double level : {0.002, 0.02, 0.2}) {
    const Signal noisy = with_noise(clean, level);
    EXPECT_NEAR(stoi(clean, noisy, 10000).value(), reference::stoi(clean, noisy), 1e-9) << level;
  }
}

TEST(Stoi, AgreesWithItsPublicationWhereEnvelopesAreCut) {
  const Signal clean = syllables(10000, 2);
  Signal clicks = clean;
  for (std::size_t n = 500; n < clicks.size(); n += 1700) clicks[n] += 1;
  EXPECT_NEAR(stoi(clean, clicks, 10000).value(), reference::stoi(clean, clicks), 1e-9);
}

TEST(Stoi, IsOneForTheSpeechItself) {
  for (const std::uint32_t rate : {10000u, 44100u, 48000u}) {
    const Signal clean = syllables(rate, 2);
    EXPECT_NEAR(stoi(clean, clean, rate).value(), 1, 1e-9) << rate;
  }
}

TEST(Stoi, DoesNotDependOnLevels) {
  const Signal clean = syllables(48000, 2);
  Signal noisy = with_noise(clean, 0.02);
  const double value = stoi(clean, noisy, 48000).value();
  for (double& x : noisy) x *= 0.03;
  EXPECT_NEAR(stoi(clean, noisy, 48000).value(), value, 1e-9);
}

TEST(Stoi, FallsAsNoiseRises) {
  const Signal clean = syllables(48000, 3);
  double last = 1;
  for (const double level : {0.003, 0.01, 0.03, 0.1, 0.3}) {
    const double value = stoi(clean, with_noise(clean, level), 48000).value();
    EXPECT_LT(value, last - 0.001) << level;
    last = value;
  }
  EXPECT_LT(last, 0.5);
}

TEST(Stoi, IsAboutTheSameAtEveryRate) {
  // The same band-limited sound at two rates: harmonics of 100 Hz under a slow envelope, and tones that disturb it.
  const auto sound = [](std::uint32_t rate, double disturbance) {
    Signal signal(rate * 2);
    for (std::size_t n = 0; n < signal.size(); ++n) {
      const double t = static_cast<double>(n) / rate;
      for (int h = 1; h <= 40; ++h) {
        signal[n] += std::pow(std::sin(2 * kPi * (1.5 + 0.1 * h) * t), 2) * std::sin(2 * kPi * 100 * h * t + h * h);
        signal[n] += disturbance * std::sin(2 * kPi * (100 * h + 37) * t + 3 * h);
      }
    }
    return signal;
  };
  const double at_48 = stoi(sound(48000, 0), sound(48000, 0.4), 48000).value();
  const double at_10 = stoi(sound(10000, 0), sound(10000, 0.4), 10000).value();
  EXPECT_LT(at_10, 0.97);
  EXPECT_NEAR(at_48, at_10, 0.005);
}

TEST(Stoi, DoesNotHearNoiseInPauses) {
  Signal clean = syllables(10000, 2);
  Signal noisy = with_noise(clean, 0.02);
  const double value = stoi(clean, noisy, 10000).value();
  clean.insert(clean.begin() + 6400, 12800, 0.0);  // whole hops, so that the frames of the speech stay as they were
  noisy.insert(noisy.begin() + 6400, 12800, 0.0);
  const double with_pause = stoi(clean, noisy, 10000).value();
  for (std::size_t n = 6400 + 512; n < 6400 + 12800 - 512; ++n) noisy[n] = n % 2 == 0 ? 0.5 : -0.4;
  EXPECT_EQ(stoi(clean, noisy, 10000).value(), with_pause);
  EXPECT_NEAR(with_pause, value, 0.02);
}

TEST(Stoi, HasNoValueForLessThanASegmentOfSpeech) {
  const Signal enough = syllables(10000, 1);
  EXPECT_NE(stoi(enough, enough, 10000), std::nullopt);
  const Signal little(enough.begin(), enough.begin() + 4000);  // 30 frames want 4096
  EXPECT_EQ(stoi(little, little, 10000), std::nullopt);
  EXPECT_EQ(stoi({}, {}, 10000), std::nullopt);
  const Signal silence(48000);
  EXPECT_EQ(stoi(silence, silence, 48000), std::nullopt);
}

}  // namespace
}  // namespace sonivo::tool
