#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "e2easr_model/se_model.h"

namespace sonivo::tool {

/// Blocks of 10 ms of the stream that the microphone gives: fills the block.
using NextBlock = std::function<void(std::span<float> block)>;
/// Takes what comes out at the other end; false: it has had enough.
using TakeBlock = std::function<bool(std::span<const float> block)>;

/// One channel of full scale 1.0 through a loaded model, 50 ms a call, until `take` has had enough. At 48000 and 44100
/// Hz as a running application hears it: through the two FIFOs, as the enhancement path opens them, a block in and a
/// block out every 10 ms, so that 120 ms of silence come first. At 16000 Hz straight into the model and out of it.
/// Throws Failure for a model that doesn't turn samples into samples in time.
void stream_through(e2e::SEModel& model, std::uint32_t rate_hz, const NextBlock& next, const TakeBlock& take);

/// Frames by which stream_through delays what the model passes on, measured on noise with `enhancement-strength` 0.
/// The strength is as before behind it. Throws Failure where nothing of the noise is found again within half a second.
std::size_t measure_delay(e2e::SEModel& model, std::uint32_t rate_hz);

}  // namespace sonivo::tool
