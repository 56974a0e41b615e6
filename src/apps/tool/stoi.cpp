#include "apps/tool/stoi.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "apps/tool/resample.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kRateHz = 10000;
constexpr std::size_t kFrame = 256;
constexpr std::size_t kHop = kFrame / 2;
constexpr std::size_t kFft = 512;
constexpr std::size_t kBands = 15;
constexpr double kLowestCentreHz = 150;
constexpr std::size_t kSegment = 30;  // frames
constexpr double kSpeechRangeDb = 40;
constexpr double kLowestDistortionDb = -15;

using Window = std::array<double, kFrame>;
using Envelope = std::array<double, kBands>;  // of one frame

/// Hann window without its zero ends.
Window hann() {
  Window window;
  for (std::size_t i = 0; i < kFrame; ++i) {
    window[i] = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i + 1) / (kFrame + 1));
  }
  return window;
}

std::size_t frame_count(std::size_t samples) { return samples <= kFrame ? 0 : (samples - kFrame + kHop - 1) / kHop; }

/// Leaves out the frames in which the clean speech is far below its loudest, and overlaps the others again.
void keep_speech(std::vector<double>& clean, std::vector<double>& processed, const Window& window) {
  const std::size_t frames = frame_count(clean.size());
  std::vector<double> level(frames);
  for (std::size_t f = 0; f < frames; ++f) {
    double energy = 0;
    for (std::size_t i = 0; i < kFrame; ++i) energy += std::pow(window[i] * clean[f * kHop + i], 2);
    level[f] = 10 * std::log10(energy);
  }
  const double loudest = frames == 0 ? 0 : *std::max_element(level.begin(), level.end());
  std::vector<double> kept_clean(clean.size());
  std::vector<double> kept_processed(clean.size());
  std::size_t to = 0;
  for (std::size_t f = 0; f < frames; ++f) {
    if (!(level[f] > loudest - kSpeechRangeDb)) continue;  // digital silence is above nothing
    for (std::size_t i = 0; i < kFrame; ++i) {
      kept_clean[to + i] += window[i] * clean[f * kHop + i];
      kept_processed[to + i] += window[i] * processed[f * kHop + i];
    }
    to += kHop;
  }
  const std::size_t length = to == 0 ? 0 : to + kHop;
  kept_clean.resize(length);
  kept_processed.resize(length);
  clean.swap(kept_clean);
  processed.swap(kept_processed);
}

void fft(std::array<std::complex<double>, kFft>& x) {
  for (std::size_t i = 1, j = 0; i < kFft; ++i) {
    std::size_t bit = kFft >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(x[i], x[j]);
  }
  for (std::size_t size = 2; size <= kFft; size *= 2) {
    const auto turn = std::polar(1.0, -2 * std::numbers::pi / static_cast<double>(size));
    for (std::size_t first = 0; first < kFft; first += size) {
      std::complex<double> w = 1;
      for (std::size_t k = first; k < first + size / 2; ++k, w *= turn) {
        const auto odd = w * x[k + size / 2];
        x[k + size / 2] = x[k] - odd;
        x[k] += odd;
      }
    }
  }
}

std::size_t nearest_bin(double hz) {
  return static_cast<std::size_t>(std::ceil(hz * kFft / kRateHz - 0.5));  // of two equally near ones the lower
}

/// Band b holds the bins edges[b].first up to but not including edges[b].second.
std::array<std::pair<std::size_t, std::size_t>, kBands> third_octaves() {
  std::array<std::pair<std::size_t, std::size_t>, kBands> edges;
  for (std::size_t b = 0; b < kBands; ++b) {
    const double k = static_cast<double>(b);
    edges[b] = {nearest_bin(kLowestCentreHz * std::exp2((2 * k - 1) / 6)),
                nearest_bin(kLowestCentreHz * std::exp2((2 * k + 1) / 6))};
  }
  return edges;
}

std::vector<Envelope> envelopes(const std::vector<double>& signal, const Window& window) {
  const auto bands = third_octaves();
  std::vector<Envelope> out(frame_count(signal.size()));
  for (std::size_t f = 0; f < out.size(); ++f) {
    std::array<std::complex<double>, kFft> spectrum{};
    for (std::size_t i = 0; i < kFrame; ++i) spectrum[i] = window[i] * signal[f * kHop + i];
    fft(spectrum);
    for (std::size_t b = 0; b < kBands; ++b) {
      double power = 0;
      for (std::size_t k = bands[b].first; k < bands[b].second; ++k) power += std::norm(spectrum[k]);
      out[f][b] = std::sqrt(power);
    }
  }
  return out;
}

/// Correlation of one band over one segment, the processed envelope brought to the same energy and limited from above.
double segment_correlation(std::span<const Envelope> clean, std::span<const Envelope> processed, std::size_t band) {
  constexpr double kTiny = 1e-30;
  std::array<double, kSegment> x;
  std::array<double, kSegment> y;
  double energy_x = 0;
  double energy_y = 0;
  for (std::size_t n = 0; n < kSegment; ++n) {
    x[n] = clean[n][band];
    y[n] = processed[n][band];
    energy_x += x[n] * x[n];
    energy_y += y[n] * y[n];
  }
  const double scale = std::sqrt(energy_x / (energy_y + kTiny));
  const double limit = 1 + std::pow(10.0, -kLowestDistortionDb / 20);
  for (std::size_t n = 0; n < kSegment; ++n) y[n] = std::min(scale * y[n], limit * x[n]);

  double mean_x = 0;
  double mean_y = 0;
  for (std::size_t n = 0; n < kSegment; ++n) {
    mean_x += x[n] / kSegment;
    mean_y += y[n] / kSegment;
  }
  double xy = 0;
  double xx = 0;
  double yy = 0;
  for (std::size_t n = 0; n < kSegment; ++n) {
    xy += (x[n] - mean_x) * (y[n] - mean_y);
    xx += (x[n] - mean_x) * (x[n] - mean_x);
    yy += (y[n] - mean_y) * (y[n] - mean_y);
  }
  return xy / (std::sqrt(xx * yy) + kTiny);
}

}  // namespace

std::optional<double> stoi(std::span<const double> clean, std::span<const double> processed, std::uint32_t rate_hz) {
  const Window window = hann();
  auto x = resample(clean, rate_hz, kRateHz);
  auto y = resample(processed, rate_hz, kRateHz);
  keep_speech(x, y, window);
  const auto X = envelopes(x, window);
  const auto Y = envelopes(y, window);
  if (X.size() < kSegment) return std::nullopt;

  double sum = 0;
  const std::size_t segments = X.size() - kSegment + 1;
  for (std::size_t m = 0; m < segments; ++m) {
    for (std::size_t b = 0; b < kBands; ++b) {
      sum += segment_correlation(std::span(X).subspan(m, kSegment), std::span(Y).subspan(m, kSegment), b);
    }
  }
  return sum / static_cast<double>(segments * kBands);
}

}  // namespace sonivo::tool
