#include "apps/tool/relay_command.h"

#include <unistd.h>

#include <iostream>

#include "apps/tool/failure.h"
#include "apps/tool/latency.h"
#include "apps/tool/output_file.h"
#include "apps/tool/progress.h"
#include "apps/tool/relay_report.h"
#include "apps/tool/simulated_relay.h"
#include "apps/tool/wav_file.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kLongestLatencyMs = 500;

NotebookSetup setup_for(const RelayOptions& options, const PcmAudio& input, std::ostream& errors) {
  NotebookSetup setup;
  setup.direction = options.render ? Direction::render : Direction::capture;
  setup.period_frames = options.period_frames.value_or(input.rate_hz / 100);
  setup.drift_ppm = options.drift_ppm;
  setup.realtime = options.realtime;
  setup.traces = options.verbose ? &errors : nullptr;
  return setup;
}

bool is_terminal(const std::ostream& errors) {
  return errors.rdbuf() == std::cerr.rdbuf() && ::isatty(STDERR_FILENO) != 0;
}

}  // namespace

void run_relay_command(const RelayOptions& options, std::ostream& output, std::ostream& errors) {
  check_relay_options(options);
  if (options.chain != Chain::none) {
    throw Failure("the " + to_string(options.chain) + " chain is not built into this version; use --chain none");
  }
  refuse_same_file(options.input, options.output);
  const PcmAudio input = read_wav(options.input, options.bits);
  OutputFile file(options.output);

  const NotebookSetup setup = setup_for(options, input, errors);
  RelayedAudio relayed;
  {
    Progress progress(is_terminal(errors) && !options.verbose ? &errors : nullptr, input.frames());
    relayed = relay_on_notebook(input, setup, [&progress](std::uint64_t frames) { progress.update(frames); });
  }
  write_wav(file, relayed.audio);
  file.commit();

  const std::size_t longest_latency = input.rate_hz * kLongestLatencyMs / 1000;
  print_relay_report(output, setup.direction, relayed, measure_latency(input, relayed.audio, longest_latency));
}

}  // namespace sonivo::tool
