#include "feature_extractor/mel_banks.h"

#include <cblas.h>

#include <algorithm>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "feature_extractor/vtln_warp.h"

namespace sonivo {
namespace {

template <class... Parts>
[[noreturn]] void fail(const Parts&... parts) {
  std::ostringstream text;
  (text << ... << parts);
  throw std::runtime_error(text.str());
}

// The range of the bins, checked, and its warp.
VtlnWarp checked_range(const FeatureOptions& options, float warp) {
  const double nyquist = 0.5 * static_cast<double>(options.sample_frequency);
  const auto from_nyquist = [nyquist](float frequency) { return frequency > 0.0f ? frequency : nyquist + frequency; };
  const double low = options.low_freq, high = from_nyquist(options.high_freq);
  if (!(low >= 0.0 && low < high && high <= nyquist)) {
    fail("Bad values in options: low-freq ", low, " and high-freq ", high, " vs. nyquist ", nyquist);
  }
  const double vtln_low = options.vtln_low, vtln_high = from_nyquist(options.vtln_high);
  const VtlnWarp range{low, high, vtln_low, vtln_high, warp};
  if (warp == 1.0f) return range;
  if (!(low < vtln_low && vtln_low < vtln_high && vtln_high < high && warp > 0.0f)) {
    fail("Bad values in options: vtln-low ", vtln_low, " and vtln-high ", vtln_high, ", versus low-freq ", low,
         " and high-freq ", high);
  }
  if (!(range.inflection_low() < range.inflection_high())) {
    fail("Error: vtln-warp ", warp, " leaves nothing between vtln-low ", vtln_low, " and vtln-high ", vtln_high);
  }
  return range;
}

}  // namespace

MelBanks::MelBanks(const FeatureOptions& options, std::size_t padded_size, float vtln_warp) {
  if (options.num_mel_bins < 3) throw std::runtime_error("Error: Must have at least 3 mel bins");
  if (options.num_mel_bins > kMaxBins) fail("Error: Must have at most ", kMaxBins, " mel bins");
  const VtlnWarp range = checked_range(options, vtln_warp);

  const std::size_t bins = padded_size / 2;
  std::vector<double> mel(bins);
  for (std::size_t i = 0; i < bins; ++i) {
    mel[i] = mel_of(static_cast<double>(i) * options.sample_frequency / static_cast<double>(padded_size));
  }
  const double first = mel_of(range.low), spacing = (mel_of(range.high) - first) / (options.num_mel_bins + 1);
  const auto corner = [&](int number) {
    const double even = first + number * spacing;
    return vtln_warp == 1.0f ? even : range.mel(even);
  };

  banks_.resize(static_cast<std::size_t>(options.num_mel_bins));
  for (int b = 0; b < options.num_mel_bins; ++b) {
    const double left = corner(b), centre = corner(b + 1), right = corner(b + 2);
    Bank& bank = banks_[static_cast<std::size_t>(b)];
    const auto begin = std::upper_bound(mel.begin(), mel.end(), left);
    const auto end = std::lower_bound(begin, mel.end(), right);
    if (begin != end) bank.first = static_cast<std::size_t>(begin - mel.begin());
    for (auto m = begin; m != end; ++m) {
      const double weight = *m <= centre ? (*m - left) / (centre - left) : (right - *m) / (right - centre);
      bank.weights.push_back(static_cast<float>(weight));
    }
  }
  if (options.debug_mel) print(std::cerr);
}

void MelBanks::compute(const float* spectrum, float* out) const {
  for (const Bank& bank : banks_) {
    *out++ = cblas_sdot(static_cast<int>(bank.weights.size()), bank.weights.data(), 1, spectrum + bank.first, 1);
  }
}

void MelBanks::print(std::ostream& out) const {
  for (std::size_t b = 0; b < banks_.size(); ++b) {
    out << "mel bin " << b << ": from " << banks_[b].first;
    for (const float weight : banks_[b].weights) out << ' ' << weight;
    out << '\n';
  }
}

}  // namespace sonivo
