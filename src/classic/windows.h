#pragma once

#include <span>

namespace sonivo::classic {

/// Window of an analysis of hop H over N points: a long rise and a short fall. window holds N values.
///
///   w[i] = 0.5 / sqrt(N) * sqrt(0.5 - 0.5 cos(2 pi i / (2 (N - H))))   for i < N - H
///   w[i] = 0.5 / sqrt(N) * sqrt(0.5 - 0.5 cos(2 pi j / (2 H)))         behind, with j = i - (N - H) + H
void make_analysis_window(int H, int N, std::span<float> window);

/// Its partner: the product of both is a Hann window of 2 H samples. window holds 2 H values; the first is left alone
/// and is to be 0.
///
///   v[j] = (0.5 - 0.5 cos(2 pi j / (2 H))) / sqrt(0.5 - 0.5 cos(2 pi (N - 2 H + j) / (2 (N - H)))) / sqrt(N)
///                                                                       for 1 <= j < H
///   v[j] = sqrt(0.5 - 0.5 cos(2 pi j / (2 H))) / sqrt(N)                for H <= j < 2 H
void make_synthesis_window(int H, int N, std::span<float> window);

}  // namespace sonivo::classic
