#include "e2easr_model/fe_manager.h"

#include <string>
#include <utility>
#include <variant>

namespace sonivo::e2e {

namespace {

using FloatOption = float FeatureOptions::*;
using BoolOption = bool FeatureOptions::*;
using IntOption = int FeatureOptions::*;
using TextOption = std::string FeatureOptions::*;

enum class Valid { any, from_zero, unit, from_one, window };

/// A variable and the option that it sets. The defaults are those of FeatureOptions.
struct OptionVariable {
  const char* name;
  std::variant<FloatOption, BoolOption, IntOption, TextOption> option;
  Valid valid;
  const char* description;
};

using O = FeatureOptions;
constexpr Valid kAny = Valid::any;

const OptionVariable kOptionVariables[] = {
    {"sample-frequency", &O::sample_frequency, Valid::from_zero, "sample rate of the signal in Hz"},
    {"frame-length", &O::frame_length, Valid::from_zero, "frame length in ms"},
    {"frame-shift", &O::frame_shift, Valid::from_zero, "frame shift in ms"},
    {"dither", &O::dither, Valid::from_zero, "dither constant; 0.0 switches it off"},
    {"preemphasis-coefficient", &O::preemphasis_coefficient, Valid::unit, "coefficient of the pre-emphasis"},
    {"remove-dc-offset", &O::remove_dc_offset, kAny, "subtract the mean of each frame"},
    {"window-type", &O::window_type, Valid::window, "analysis window"},
    {"round-to-power-of-two", &O::round_to_power_of_two, kAny, "pad the transform's input to a power of two"},
    {"blackman-coeff", &O::blackman_coeff, Valid::unit, "constant of the blackman window"},
    {"snip-edges", &O::snip_edges, kAny, "only frames that lie in the signal; only true is implemented"},
    {"allow-downsample", &O::allow_downsample, kAny, "no effect"},
    {"allow-upsample", &O::allow_upsample, kAny, "no effect"},
    {"max-feature-vectors", &O::max_feature_vectors, kAny, "no effect"},
    {"num-mel-bins", &O::num_mel_bins, Valid::from_one, "number of mel bins"},
    {"low-freq", &O::low_freq, kAny, "low cut-off of the mel bins in Hz"},
    {"high-freq", &O::high_freq, kAny, "high cut-off of the mel bins in Hz; 0 or below: from the Nyquist frequency"},
    {"vtln-low", &O::vtln_low, kAny, "lower inflection of the VTLN warp in Hz"},
    {"vtln-high", &O::vtln_high, kAny, "upper inflection in Hz; 0 or below: from the Nyquist frequency"},
    {"debug-mel", &O::debug_mel, kAny, "print the mel bins"},
    {"htk-mode", &O::htk_mode, kAny, "no effect"},
    {"use-energy", &O::use_energy, kAny, "add the log energy"},
    {"energy-floor", &O::energy_floor, kAny, "lower limit of the energy, linear"},
    {"raw-energy", &O::raw_energy, kAny, "take the energy before pre-emphasis and window"},
    {"htk-compat", &O::htk_compat, kAny, "energy last instead of first"},
    {"use-log-fbank", &O::use_log_fbank, kAny, "logarithm of the bins"},
    {"use-power", &O::use_power, kAny, "power spectrum; otherwise magnitude"},
    {"min-f0", &O::min_f0, kAny, "pitch, no effect"},
    {"max-f0", &O::max_f0, kAny, "pitch, no effect"},
    {"soft-min-f0", &O::soft_min_f0, kAny, "pitch, no effect"},
    {"penalty-factor", &O::penalty_factor, kAny, "pitch, no effect"},
    {"lowpass-cutoff", &O::lowpass_cutoff, kAny, "pitch, no effect"},
    {"resample-frequency", &O::resample_frequency, kAny, "pitch, no effect"},
    {"delta-pitch", &O::delta_pitch, kAny, "pitch, no effect"},
    {"nccf-ballast", &O::nccf_ballast, kAny, "pitch, no effect"},
    {"lowpass-filter-width", &O::lowpass_filter_width, kAny, "pitch, no effect"},
    {"upsample-filter-width", &O::upsample_filter_width, kAny, "pitch, no effect"},
    {"max-frames-latency", &O::max_frames_latency, kAny, "pitch, no effect"},
    {"frames-per-chunk", &O::frames_per_chunk, kAny, "pitch, no effect"},
    {"simulate-first-pass-online", &O::simulate_first_pass_online, kAny, "pitch, no effect"},
    {"recompute-frame", &O::recompute_frame, kAny, "pitch, no effect"},
    {"nccf-ballast-online", &O::nccf_ballast_online, kAny, "pitch, no effect"},
    {"subtract-mean", &O::subtract_mean, kAny, "no effect"},
    {"vtln-warp", &O::vtln_warp, kAny, "VTLN warp factor"},
    {"min-duration", &O::min_duration, kAny, "no effect"},
};

template <class T>
typename Variable<T>::Validator validator(Valid valid) {
  if constexpr (std::is_same_v<T, float>) {
    if (valid == Valid::from_zero) return VariableGreaterEqual<float>{0.0f};
    if (valid == Valid::unit) return VariableRange<float>{0.0f, 1.0f};
  } else if constexpr (std::is_same_v<T, int>) {
    if (valid == Valid::from_one) return VariableGreaterEqual<int>{1};
  } else if constexpr (std::is_same_v<T, std::string>) {
    // No window is called "rectangle", so a stream fails with it as it starts; "rectangular", which there is, can't be
    // set.
    if (valid == Valid::window) {
      return VariableAnyOf<std::string>{{"hamming", "hanning", "povey", "rectangle", "sine", "blackman"}};
    }
  }
  return VariableAny();
}

}  // namespace

int InputSampleWrapper::data(std::vector<short>& out, int require, bool trancate) {
  const std::size_t before = out.size();
  const int answer = input_->data(out, require, trancate);
  samples_.insert(samples_.end(), out.begin() + static_cast<std::ptrdiff_t>(before), out.end());
  return answer;
}

FEStream::FEStream(const FeatureOptions& options, std::shared_ptr<FeatureExtractorBase> extractor,
                   std::shared_ptr<Input<short>> input)
    : extractor_(std::move(extractor)), frames_(options, std::move(input)) {}

FEStream::FEStream(const FeatureOptions& options, std::shared_ptr<InputSampleWrapper> input)
    : samples_(input), frames_(options, std::move(input)) {}

void FEStream::next(std::vector<float>& frame) {
  if (extractor_ != nullptr) return extractor_->compute(frames_, frame);
  frame.assign(samples_->samples().begin(), samples_->samples().end());
  samples_->clear();
}

FEManager::FEManager() {
  const FeatureOptions defaults;
  for (const OptionVariable& variable : kOptionVariables) {
    std::visit(
        [&]<class T>(T FeatureOptions::*option) {
          add_variable<T>(variable.name, defaults.*option, false, variable.description, validator<T>(variable.valid));
        },
        variable.option);
  }
  add_variable<std::string>("feature-extractor-type", "default", false,
                            "特徴量抽出方式の指定、本バージョンではdefaultのみ実装",
                            VariableAnyOf<std::string>{{"none", "default", "lmfb"}});
  save_defaults();
}

FeatureOptions FEManager::options() const {
  FeatureOptions options;
  for (const OptionVariable& variable : kOptionVariables) {
    std::visit([&]<class T>(T FeatureOptions::*option) { options.*option = get<T>(variable.name); }, variable.option);
  }
  return options;
}

std::shared_ptr<FEStream> FEManager::open_stream(std::shared_ptr<Input<short>> input) const {
  const auto& type = get<std::string>("feature-extractor-type");
  if (type == "none") {
    return std::make_shared<FEStream>(options(), std::make_shared<InputSampleWrapper>(std::move(input)));
  }
  if (type != "default" && type != "lmfb") raise("特徴量分析方式\"%s\"は未実装. in %s %d", type.c_str());
  const FeatureOptions all = options();
  return std::make_shared<FEStream>(all, std::make_shared<FeatureExtractor>(all), std::move(input));
}

}  // namespace sonivo::e2e
