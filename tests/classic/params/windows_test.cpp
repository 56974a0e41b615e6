#include "classic/windows.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "reference_blob.h"

namespace sonivo::classic {
namespace {

class Windows : public testing::TestWithParam<std::pair<int, int>> {
 protected:
  Windows() : H(GetParam().first), N(GetParam().second) {
    make_analysis_window(H, N, w);
    make_synthesis_window(H, N, v);
  }

  const int H;
  const int N;
  std::vector<float> w = std::vector<float>(static_cast<std::size_t>(N));
  std::vector<float> v = std::vector<float>(static_cast<std::size_t>(2 * H));
};

TEST_P(Windows, FollowTheirFormulas) {
  for (int i = 0; i < N; ++i) {
    EXPECT_FLOAT_EQ(w[static_cast<std::size_t>(i)], static_cast<float>(reference::analysis_window(i, H, N))) << i;
  }
  for (int j = 1; j < 2 * H; ++j) {
    EXPECT_FLOAT_EQ(v[static_cast<std::size_t>(j)], static_cast<float>(reference::synthesis_window(j, H, N))) << j;
  }
}

TEST_P(Windows, RiseLongAndFallShort) {
  const auto peak = std::max_element(w.begin(), w.end()) - w.begin();
  EXPECT_EQ(peak, N - H);
  EXPECT_NEAR(w[static_cast<std::size_t>(peak)], 0.5 / std::sqrt(N), 1e-9);
  EXPECT_EQ(w[0], 0.0f);
}

/// Two signals give spectra without a factor 2 at half the scale, and the inverse transform has a factor N; so the
/// product of both windows has to be half a Hann window over N.
TEST_P(Windows, MakeAHannWindowTogether) {
  for (int j = 1; j < 2 * H; ++j) {
    const double product = static_cast<double>(w[static_cast<std::size_t>(N - 2 * H + j)]) *
                           static_cast<double>(v[static_cast<std::size_t>(j)]);
    const double hann = 0.5 - 0.5 * std::cos(std::numbers::pi * j / H);
    EXPECT_NEAR(2 * N * product, hann, 1e-6) << j;
  }
}

TEST_P(Windows, LeaveTheFirstValueOfTheSynthesisAlone) {
  v[0] = 7;
  make_synthesis_window(H, N, v);
  EXPECT_EQ(v[0], 7.0f);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Windows, testing::Values(std::pair(192, 1024), std::pair(64, 128)));

}  // namespace
}  // namespace sonivo::classic
