#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "classic/param_blobs.h"
#include "peers/enhancer.h"
#include "quality/signal.h"

namespace sonivo::bench {

/// One who enhances, fresh for every recording.
struct System {
  std::string name;
  std::function<std::unique_ptr<Enhancer>()> start;
  std::size_t delay = 0;  ///< of its output, in samples
  std::size_t microphones = 1;
};

/// What came of each channel's first to last sample: channel 0 of the result, taken back by `delay`. presses: samples
/// at which keys go down.
Signal enhance(Enhancer& enhancer, std::span<const Signal> channels, std::size_t delay = 0,
               std::span<const std::size_t> presses = {});

/// The key-cancel chain, and unless `alone` speexdsp with its default and with a stronger suppression, and WebRTC's
/// noise suppression, where there are transients with its transient suppressor. Their delays are measured on `speech`.
std::vector<System> systems(const classic::KeyCancelParam& param, bool transients, bool alone, const Signal& speech);

/// The beamforming chain, with the same before both microphones.
System beam_forming_system(const classic::BeamFormingKeyCancelParam& param, const Signal& speech);

}  // namespace sonivo::bench
