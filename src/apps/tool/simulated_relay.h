#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "apps/tool/pcm_audio.h"
#include "apps/tool/relay_options.h"
#include "relay/stream_statistics.h"

namespace sonivo::tool {

enum class Direction { capture, render };

/// The simulated notebook and how to run it.
struct NotebookSetup {
  Direction direction = Direction::capture;
  std::uint32_t period_frames = 480;  ///< engine period of the physical endpoint
  Chain chain = Chain::none;
  std::vector<std::byte> params;  ///< of the chain
  std::string model;              ///< enhancement model (ai)
  float strength = 1.0f;          ///< of the enhancement (ai)
  double drift_ppm = 0;           ///< how much faster the virtual clock is than the physical one
  bool realtime = false;
  std::ostream* traces = nullptr;  ///< where traces go, with their virtual time
};

struct RelayedAudio {
  PcmAudio audio;  ///< what came out, from its first sample on; longer than the input by the latency at least
  StreamStatistics statistics;
  double audio_seconds = 0;    ///< virtual time that audio ran for
  double elapsed_seconds = 0;  ///< real time that it took
  bool realtime = false;       ///< as the setup had it
};

/// Called now and then with the frames that have come out so far.
using OnProgress = std::function<void(std::uint64_t frames)>;

/// Plays the input at the physical microphone and records from the virtual one (capture), or plays it to the virtual
/// speaker and records the physical one (render).
RelayedAudio relay_on_notebook(const PcmAudio& input, const NotebookSetup& setup, const OnProgress& on_progress);

}  // namespace sonivo::tool
