#include "apps/tool/enhance_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <iomanip>
#include <ostream>
#include <vector>

#include "apps/tool/enhancement.h"
#include "apps/tool/failure.h"
#include "apps/tool/file_kind.h"
#include "apps/tool/file_name.h"
#include "apps/tool/numbers.h"
#include "apps/tool/output_file.h"
#include "apps/tool/progress.h"
#include "apps/tool/wav_file.h"

namespace sonivo::tool {

namespace {

constexpr const char* kEnhanceDescription =
    "Sends a WAV file through a speech enhancement model as the microphone's path does: 50 ms at a\n"
    "time, at 48000 and 44100 Hz through the rate converters to the model's 16000 Hz and back. A file\n"
    "of 16000 Hz goes straight into the model. Several channels are mixed to their mean.\n"
    "OUT is 32-bit float, of one channel, as long as IN, and aligned with it. Prints the delay that\n"
    "was taken out, and the time it took divided by the length of the audio.";

constexpr const char* kEnhanceExample =
    "Example:\n"
    "  sonivo enhance enhancer.bin noisy.wav clean.wav --strength 0.8\n";

/// The frames of a file, mixed to one channel, with silence behind them.
class MixedInput {
 public:
  MixedInput(WavInput& file, const std::string& name) : file_(file), name_(name) {}

  void fill(std::span<float> block) {
    const std::size_t channels = file_.header().channels;
    frames_.resize(block.size() * channels);
    const std::size_t count = file_.read(frames_);
    for (std::size_t i = 0; i < count; ++i) {
      float sum = 0;
      for (std::size_t c = 0; c < channels; ++c) sum += frames_[i * channels + c];
      block[i] = sum / static_cast<float>(channels);
    }
    const auto mixed = block.first(count);
    if (!std::all_of(mixed.begin(), mixed.end(), [](float x) { return std::isfinite(x); })) {
      throw Failure("'" + name_ + "' has a sample that is no finite number; make it again");
    }
    std::fill(block.begin() + static_cast<std::ptrdiff_t>(count), block.end(), 0.0f);
  }

 private:
  WavInput& file_;
  const std::string& name_;
  std::vector<float> frames_;
};

/// A stretch of a stream: `frames` frames behind the first `skipped` ones.
class Stretch {
 public:
  Stretch(std::uint64_t skipped, std::uint64_t frames) : skipped_(skipped), frames_(frames) {}

  /// What of the block belongs to it.
  std::span<const float> cut(std::span<const float> block) {
    const std::uint64_t before = std::min<std::uint64_t>(skipped_, block.size());
    const std::uint64_t inside = std::min<std::uint64_t>(frames_, block.size() - before);
    skipped_ -= before;
    frames_ -= inside;
    return block.subspan(before, inside);
  }
  std::uint64_t frames_left() const { return frames_; }

 private:
  std::uint64_t skipped_, frames_;
};

void load_model(e2e::SEModel& model, const EnhanceOptions& options) {
  require_file(options.model, "a speech enhancement model");
  try {
    model.load(options.model, false);
  } catch (const std::runtime_error& error) {
    throw Failure("'" + options.model +
                  "' is no speech enhancement model: " + why_no_model(options.model, "se", error.what()));
  }
  if (options.switching && !model.get<bool>("is-switching-se")) {
    throw Failure("'" + options.model + "' is no switching model; leave --switching away");
  }
}

void enhance(e2e::SEModel& model, const EnhanceOptions& options, WavInput& input, OutputFile& file,
             std::ostream& output, std::ostream& errors) {
  const WavHeader& header = input.header();
  const std::size_t delay = options.raw ? 0 : measure_delay(model, header.rate_hz);
  if (options.strength) model.set<float>("enhancement-strength", *options.strength);
  if (options.switching) model.set<float>("switching-strength", *options.switching);

  MixedInput microphone(input, options.input);
  WavOutput recording(file, header.rate_hz, 1, header.frames);
  Stretch wanted(delay, header.frames);
  const auto start = std::chrono::steady_clock::now();
  {
    Progress progress(progress_terminal(errors), header.frames);
    stream_through(
        model, header.rate_hz, [&](std::span<float> block) { microphone.fill(block); },
        [&](std::span<const float> block) {
          recording.write(wanted.cut(block));
          progress.update(header.frames - wanted.frames_left());
          return wanted.frames_left() > 0;
        });
  }
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  recording.close();

  output << std::fixed;
  if (!options.raw) {
    output << "delay             " << delay << " frames, " << std::setprecision(1)
           << 1000.0 * static_cast<double>(delay) / header.rate_hz << " ms, taken out\n";
  }
  output << "real-time factor  " << std::setprecision(4)
         << taken.count() * header.rate_hz / static_cast<double>(header.frames) << '\n';
}

void add_share(CLI::App& command, const std::string& name, std::optional<float>& share,
               const std::string& description) {
  const auto parse = [name, &share](const std::string& text) {
    const auto number = parse_decimal_number(text);
    if (!number || *number < 0 || *number > 1) {
      throw UsageError(name + " takes a number from 0 to 1, not '" + text + "'");
    }
    share = static_cast<float>(*number);
  };
  command.add_option_function<std::string>(name, parse, description)->type_name("SHARE");
}

}  // namespace

CLI::App* add_enhance_command(CLI::App& app, EnhanceOptions& options) {
  CLI::App* const command = app.add_subcommand("enhance", kEnhanceDescription);
  command->footer(kEnhanceExample);
  command->add_option("MODEL", options.model, "speech enhancement model")->type_name("FILE")->required();
  command->add_option("IN", options.input, "WAV file to enhance")->type_name("FILE")->required();
  command->add_option("OUT", options.output, "WAV file to write")->type_name("FILE")->required();
  add_share(*command, "--strength", options.strength,
            "0: the input, 1: the enhanced signal (default: the model's, usually 1)");
  add_share(*command, "--switching", options.switching,
            "of a switching model, 0: its first enhancement, 1: its second (default: the model's, usually 1)");
  command->add_flag("--raw", options.raw, "leaves delay and leading silence as the stream has them");
  return command;
}

void run_enhance_command(const EnhanceOptions& options, std::ostream& output, std::ostream& errors) {
  check_file_name("MODEL", options.model, "standard input");
  check_file_name("IN", options.input, "standard input");
  check_file_name("OUT", options.output, "standard output");
  refuse_same_file(options.input, options.output);
  refuse_same_file(options.model, options.output, "the model");
  WavInput input(options.input, WavRates::of_devices_and_models);
  OutputFile file(options.output);
  e2e::initialize();
  e2e::SEModel model;
  load_model(model, options);
  try {
    enhance(model, options, input, file, output, errors);
  } catch (const meridane::BaseRuntimeError& error) {
    throw Failure("'" + options.model + "' cannot enhance '" + options.input + "': " + error.what());
  }
  file.commit();
}

}  // namespace sonivo::tool
