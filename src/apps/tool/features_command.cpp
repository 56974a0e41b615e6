#include "apps/tool/features_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <memory>
#include <ostream>

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "apps/tool/matrix_file.h"
#include "apps/tool/output_file.h"
#include "apps/tool/progress.h"
#include "apps/tool/settings_option.h"
#include "apps/tool/wav_file.h"
#include "e2easr_model/fe_manager.h"

namespace sonivo::tool {

namespace {

constexpr const char* kFeaturesDescription =
    "Turns a WAV file into features, a line per feature, columns are frames: logarithms of mel bins,\n"
    "unless the options of feature extraction are set otherwise. Of several channels it takes the mean.";

constexpr const char* kFeaturesExample =
    "Example:\n"
    "  sonivo features speech.wav --out speech.tsv --set num-mel-bins=40 --set dither=0\n";

/// The samples of an array, one after the other.
class ArrayInput : public Input<short> {
 public:
  explicit ArrayInput(std::vector<short> samples) : samples_(std::move(samples)) {}

  int data(std::vector<short>& out, int require, bool) override {
    const auto begin = samples_.begin() + static_cast<std::ptrdiff_t>(position_);
    const std::size_t count = std::min(samples_.size() - position_, static_cast<std::size_t>(require));
    out.insert(out.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
    position_ += count;
    return static_cast<int>(count);
  }
  bool end() override { return position_ == samples_.size(); }
  std::size_t position() const { return position_; }

 private:
  const std::vector<short> samples_;
  std::size_t position_ = 0;
};

/// Mean of the channels in 16 bits.
std::vector<short> mixed(const PcmAudio& audio) {
  std::vector<short> samples(audio.frames());
  for (std::size_t t = 0; t < samples.size(); ++t) {
    float sum = 0.0f;
    for (std::size_t c = 0; c < audio.channels; ++c) sum += sample_at(audio, t * audio.channels + c);
    const float mean = sum / static_cast<float>(audio.channels) * 32768.0f;
    samples[t] = static_cast<short>(std::lrint(mean));
  }
  return samples;
}

void apply(const FeaturesOptions& options, e2e::FEManager& manager) {
  for (const auto& [name, value] : options.settings) {
    try {
      manager.set_from_text(name, value);
    } catch (const std::exception& error) {
      throw UsageError("--set " + name + "=" + value + ": " + error.what());
    }
  }
}

std::vector<short> read_samples(const std::string& name, const e2e::FEManager& manager) {
  const PcmAudio audio = read_wav(name, 16, WavRates::any);
  const auto expected = manager.get<float>("sample-frequency");
  if (static_cast<float>(audio.rate_hz) != expected) {
    const std::string rate = std::to_string(audio.rate_hz);
    throw Failure("'" + name + "' has a sampling rate of " + rate +
                  " Hz, other than sample-frequency; convert it or add --set sample-frequency=" + rate);
  }
  return mixed(audio);
}

meridane::Matrix extract(const e2e::FEManager& manager, std::vector<short> samples, std::ostream& errors) {
  Progress progress(progress_terminal(errors), samples.size());
  const auto input = std::make_shared<ArrayInput>(std::move(samples));
  const auto stream = manager.open_stream(input);
  std::vector<float> frame, all;
  while (stream->has_next()) {
    const std::size_t rows = frame.size();
    stream->next(frame);
    if (!all.empty() && frame.size() != rows) {
      throw Failure("frames differ in their size; without an extractor, frame-shift must equal frame-length");
    }
    all.insert(all.end(), frame.begin(), frame.end());
    progress.update(input->position());
  }
  if (all.empty()) throw Failure("it is shorter than a frame");
  const auto rows = static_cast<Eigen::Index>(frame.size());
  return Eigen::Map<const meridane::Matrix>(all.data(), rows, static_cast<Eigen::Index>(all.size()) / rows);
}

}  // namespace

CLI::App* add_features_command(CLI::App& app, FeaturesOptions& options) {
  CLI::App* const command = app.add_subcommand("features", kFeaturesDescription);
  command->footer(kFeaturesExample);
  command->add_option("IN", options.input, "WAV file")->type_name("FILE")->required();
  command->add_option("--out", options.output, "matrix to write")->type_name("FILE")->required();
  add_settings_option(*command, options.settings, "an option of feature extraction and its value; any number of them");
  return command;
}

void run_features_command(const FeaturesOptions& options, std::ostream& errors) {
  check_file_name("IN", options.input, "standard input");
  check_file_name("--out", options.output, "standard output");
  e2e::FEManager manager;
  apply(options, manager);
  refuse_same_file(options.input, options.output);
  OutputFile file(options.output);
  std::vector<short> samples = read_samples(options.input, manager);
  meridane::Matrix features;
  try {
    features = extract(manager, std::move(samples), errors);
  } catch (const std::runtime_error& error) {
    throw Failure("cannot extract features of '" + options.input + "': " + error.what());
  }
  file.write(matrix_text(features));
  file.commit();
}

}  // namespace sonivo::tool
