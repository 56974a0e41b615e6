#include "apps/tool/relay_command.h"

#include "apps/tool/failure.h"
#include "apps/tool/file_name.h"
#include "apps/tool/latency.h"
#include "apps/tool/output_file.h"
#include "apps/tool/param_blob.h"
#include "apps/tool/progress.h"
#include "apps/tool/relay_report.h"
#include "apps/tool/simulated_relay.h"
#include "apps/tool/wav_file.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kLongestLatencyMs = 500;

NotebookSetup setup_for(const RelayOptions& options, const PcmAudio& input, std::ostream& errors) {
  NotebookSetup setup;
  setup.direction = options.render ? Direction::render : Direction::capture;
  setup.period_frames = options.period_frames.value_or(input.rate_hz / 100);
  setup.chain = options.chain;
  setup.drift_ppm = options.drift_ppm;
  setup.realtime = options.realtime;
  setup.traces = options.verbose ? &errors : nullptr;
  return setup;
}

/// The chain is opened once here, since the relay itself carries on without a chain that doesn't open.
std::vector<std::byte> params_for(const RelayOptions& options, const PcmAudio& input) {
  const auto blob_of = [&](auto&& chain) {
    return open_with_params(chain, options.params, to_string(options.chain), input.rate_hz, input.channels,
                            static_cast<std::uint16_t>(input.rate_hz / 100));
  };
  if (options.chain == Chain::keycancel) return blob_of(CKeyCancel());
  if (options.chain == Chain::beamforming) {
    if (input.channels < 2) {
      throw Failure("'" + options.input + "' has one channel; the beamforming chain needs two microphones");
    }
    return blob_of(CBeamFormingKeyCancel());
  }
  return {};
}

}  // namespace

void run_relay_command(const RelayOptions& options, std::ostream& output, std::ostream& errors) {
  check_relay_options(options);
  if (options.chain == Chain::ai) {
    throw Failure("the ai chain is not built into this version; use --chain none, keycancel or beamforming");
  }
  refuse_same_file(options.input, options.output);
  if (options.chain != Chain::none) {
    refuse_same_file(param_blob_path(options.params, to_string(options.chain)), options.output, "the parameter blob");
  }
  const PcmAudio input = read_wav(options.input, options.bits);
  OutputFile file(options.output);

  NotebookSetup setup = setup_for(options, input, errors);
  setup.params = params_for(options, input);
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
