#include "feature_extractor/analysis_window.h"

#include <gtest/gtest.h>

#include "reference.h"

namespace sonivo {
namespace {

using reference::message;

TEST(AnalysisWindow, EachTypeFollowsItsFormula) {
  for (const char* type : {"hanning", "sine", "hamming", "povey", "rectangular", "blackman"}) {
    for (const std::size_t length : {2u, 3u, 400u, 401u}) {
      FeatureOptions options;
      options.window_type = type;
      const auto window = analysis_window(options, length);
      ASSERT_EQ(window.size(), length);
      for (std::size_t i = 0; i < length; ++i) {
        EXPECT_NEAR(window[i], reference::window(options, i, length), 1e-7) << type << " " << i << " of " << length;
      }
    }
  }
}

TEST(AnalysisWindow, ValuesKnownWithoutAFormula) {
  FeatureOptions options;
  options.window_type = "hanning";
  EXPECT_FLOAT_EQ(analysis_window(options, 401)[200], 1.0f);
  EXPECT_FLOAT_EQ(analysis_window(options, 5)[1], 0.5f);
  options.window_type = "povey";
  EXPECT_FLOAT_EQ(analysis_window(options, 5)[1], 0.55478474f);  // 2^-0.85
  options.window_type = "hamming";
  EXPECT_FLOAT_EQ(analysis_window(options, 5)[0], 0.08f);
  options.window_type = "sine";
  EXPECT_FLOAT_EQ(analysis_window(options, 3)[1], 1.0f);
}

TEST(AnalysisWindow, BlackmanTakesItsCoefficient) {
  FeatureOptions options;
  options.window_type = "blackman";
  options.blackman_coeff = 0.4f;
  EXPECT_NEAR(analysis_window(options, 5)[0], 0.0, 1e-7);  // 0.4 - 0.5 + 0.1
  EXPECT_NEAR(analysis_window(options, 5)[1], 0.3, 1e-7);  // 0.4 - 0 - 0.1
  EXPECT_NEAR(analysis_window(options, 5)[2], 1.0, 1e-7);  // 0.4 + 0.5 + 0.1
}

TEST(AnalysisWindow, RectangleIsNoWindowAlthoughItsVariableAdmitsIt) {
  FeatureOptions options;
  for (const char* type : {"rectangle", "", "Povey", "kaiser"}) {
    options.window_type = type;
    EXPECT_EQ(message([&] { analysis_window(options, 400); }), "Error: window_type") << type;
  }
}

}  // namespace
}  // namespace sonivo
