#include "feature_extractor/analysis_window.h"

#include <cmath>
#include <functional>
#include <numbers>
#include <stdexcept>

namespace sonivo {
namespace {

// The window's value at a i.
std::function<double(double)> shape_of(const FeatureOptions& options) {
  const std::string& type = options.window_type;
  if (type == "hanning") return [](double ai) { return 0.5 - 0.5 * std::cos(ai); };
  if (type == "sine") return [](double ai) { return std::sin(0.5 * ai); };
  if (type == "hamming") return [](double ai) { return 0.54 - 0.46 * std::cos(ai); };
  if (type == "povey") return [](double ai) { return std::pow(0.5 - 0.5 * std::cos(ai), 0.85); };
  if (type == "rectangular") return [](double) { return 1.0; };
  if (type == "blackman") {
    return [b = static_cast<double>(options.blackman_coeff)](double ai) {
      return b - 0.5 * std::cos(ai) + (0.5 - b) * std::cos(2.0 * ai);
    };
  }
  throw std::runtime_error("Error: window_type");
}

}  // namespace

std::vector<float> analysis_window(const FeatureOptions& options, std::size_t length) {
  const auto shape = shape_of(options);
  const double a = 2.0 * std::numbers::pi / static_cast<double>(length - 1);
  std::vector<float> window(length);
  for (std::size_t i = 0; i < length; ++i) window[i] = static_cast<float>(shape(a * static_cast<double>(i)));
  return window;
}

}  // namespace sonivo
