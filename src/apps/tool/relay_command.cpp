#include "apps/tool/relay_command.h"

#include "apps/tool/failure.h"
#include "apps/tool/file_kind.h"
#include "apps/tool/file_name.h"
#include "apps/tool/latency.h"
#include "apps/tool/output_file.h"
#include "apps/tool/param_blob.h"
#include "apps/tool/progress.h"
#include "apps/tool/relay_report.h"
#include "apps/tool/share_folder.h"
#include "apps/tool/simulated_relay.h"
#include "apps/tool/wav_file.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "e2easr_model/encoder_model.h"
#include "enhance/model_trial.h"
#include "relay/model_table.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kLongestLatencyMs = 500;
constexpr std::size_t kLongestModelPath = 259;

NotebookSetup setup_for(const RelayOptions& options, const PcmAudio& input, std::ostream& errors) {
  NotebookSetup setup;
  setup.direction = options.render ? Direction::render : Direction::capture;
  setup.period_frames = options.period_frames.value_or(input.rate_hz / 100);
  setup.chain = options.chain;
  setup.strength = static_cast<float>(options.strength.value_or(1.0));
  setup.drift_ppm = options.drift_ppm;
  setup.realtime = options.realtime;
  setup.traces = options.verbose ? &errors : nullptr;
  return setup;
}

/// The third chain begins with the second one.
std::string set_name(Chain chain) { return to_string(chain == Chain::ai ? Chain::beamforming : chain); }

/// The chain is opened once here, since the relay itself carries on without a chain that doesn't open.
std::vector<std::byte> params_for(const RelayOptions& options, const PcmAudio& input) {
  const auto blob_of = [&](auto&& chain) {
    return open_with_params(chain, options.params, set_name(options.chain), input.rate_hz, input.channels,
                            static_cast<std::uint16_t>(input.rate_hz / 100));
  };
  if (options.chain == Chain::keycancel) return blob_of(CKeyCancel());
  if (options.chain == Chain::none) return {};
  if (input.channels < 2) {
    throw Failure("'" + options.input + "' has one channel; the " + to_string(options.chain) +
                  " chain needs two microphones");
  }
  return blob_of(CBeamFormingKeyCancel());
}

/// The model that is given, else the smallest of those that belong to the program; tried once, since the relay itself
/// carries on without a model.
std::string model_for(const RelayOptions& options) {
  if (options.chain != Chain::ai) return {};
  std::string model = options.model.value_or(GetModelRow(share_folder() / "models", kLastModelNo).speech_enhancement);
  require_file(model, "a speech enhancement model");
  if (model.size() > kLongestModelPath)
    throw Failure("the path '" + model + "' is too long; give one of 259 bytes at most");
  try {
    e2e::initialize();
    try_enhancement_model(model, {.add_ms = 20, .chunk_ms = 50});  // as the relay opens the chain
  } catch (const std::runtime_error& error) {
    throw Failure("'" + model + "' is no speech enhancement model: " + why_no_model(model, "se", error.what()));
  }
  return model;
}

}  // namespace

void run_relay_command(const RelayOptions& options, std::ostream& output, std::ostream& errors) {
  check_relay_options(options);
  refuse_same_file(options.input, options.output);
  if (options.chain != Chain::none) {
    refuse_same_file(param_blob_path(options.params, set_name(options.chain)), options.output, "the parameter blob");
  }
  if (options.model) refuse_same_file(*options.model, options.output, "the model");
  const PcmAudio input = read_wav(options.input, options.bits);
  OutputFile file(options.output);

  NotebookSetup setup = setup_for(options, input, errors);
  setup.params = params_for(options, input);
  setup.model = model_for(options);
  RelayedAudio relayed;
  {
    Progress progress(options.verbose ? nullptr : progress_terminal(errors), input.frames());
    relayed = relay_on_notebook(input, setup, [&progress](std::uint64_t frames) { progress.update(frames); });
  }
  write_wav(file, relayed.audio);
  file.commit();

  const std::size_t longest_latency = input.rate_hz * kLongestLatencyMs / 1000;
  print_relay_report(output, setup.direction, relayed, measure_latency(input, relayed.audio, longest_latency));
}

}  // namespace sonivo::tool
