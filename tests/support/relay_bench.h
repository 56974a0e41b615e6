#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/sim/machine.h"
#include "relay/audio_control.h"
#include "support/printers.h"
#include "support/scripted_chains.h"
#include "support/signals.h"
#include "support/trace_log.h"

namespace sonivo::test {

inline constexpr WindowHandle kMuteWindow{0x77};

/// Which chain the notebook's values call for.
enum class Notebook { plain, key_cancel, beam_forming, ai_speech };

/// A relay on a simulated notebook, with scripted chains and everything observed. The mute window's device-change
/// messages go to the relay, as the host's window procedure sends them. The relay isn't started.
struct RelayBench {
  explicit RelayBench(const sim::Config& config = {}, Notebook notebook = Notebook::plain);
  ~RelayBench();

  /// Gives both directions their default physical endpoints and starts the relay.
  void start();
  void stop();
  /// Gives the relay the values of a notebook, as the host does at each connection of the driver.
  void set_notebook(Notebook notebook);

  /// An application records what `mic` holds; the physical microphone array hears it from the start of its stream on.
  void record(const WAVEFORMATEXTENSIBLE& format, std::vector<std::byte> mic);
  /// An application plays `signal` to the virtual speaker.
  void play(const WAVEFORMATEXTENSIBLE& format, std::vector<std::byte> signal);

  /// Stores parameters for the chains with the microphone array: flag bytes, then `size` numbered bytes.
  void store_key_cancel_parameters(std::uint8_t key, std::uint8_t noise);
  void store_beam_forming_parameters(std::uint8_t first_flag = 0);

  TraceLog log;
  sim::SimMachine machine;
  ScriptedChains chains;
  std::unique_ptr<CAudioControl> relay;
};

}  // namespace sonivo::test
