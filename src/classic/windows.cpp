#include "classic/windows.h"

#include <cmath>
#include <cstddef>
#include <numbers>

namespace sonivo::classic {

namespace {

/// A Hann window of the given period at n.
double hann(double n, double period) { return 0.5 - 0.5 * std::cos(2 * std::numbers::pi * n / period); }

float& at(std::span<float> window, int i) { return window[static_cast<std::size_t>(i)]; }

}  // namespace

void make_analysis_window(int H, int N, std::span<float> window) {
  const double scale = 0.5 / std::sqrt(N);
  for (int i = 0; i < N - H; ++i) at(window, i) = static_cast<float>(scale * std::sqrt(hann(i, 2.0 * (N - H))));
  for (int i = N - H; i < N; ++i) {
    const int j = i - (N - H) + H;
    at(window, i) = static_cast<float>(scale * std::sqrt(hann(j, 2.0 * H)));
  }
}

void make_synthesis_window(int H, int N, std::span<float> window) {
  for (int j = 1; j < H; ++j) {
    const double rise = std::sqrt(hann(N - 2 * H + j, 2.0 * (N - H)));
    at(window, j) = static_cast<float>(hann(j, 2.0 * H) / rise / std::sqrt(N));
  }
  for (int j = H; j < 2 * H; ++j) at(window, j) = static_cast<float>(std::sqrt(hann(j, 2.0 * H)) / std::sqrt(N));
}

}  // namespace sonivo::classic
