#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "e2easr_model/se_model.h"

namespace sonivo {

/// Frames that go through the network together, whatever a model file says.
inline constexpr int kChunkFrames = 5;

/// Runs the model of the file for one chunk of silence, as the enhancement thread would: what would end that thread at
/// its first chunk throws here.
void try_enhancement_model(const std::string& file);

/// Throws for a model that the FIFOs can't feed: they give samples at 16000 Hz, in frames that `fifo_ms` of them hold.
void expect_stream_of_samples(const e2e::SEModel& model, std::uint32_t fifo_ms);

/// Runs the speaker encoder over so many samples of noise, ten seconds at most, and gives the result to the base model:
/// what would end the enrolment thread throws here, and an encoder that wants more than at_a_time samples at once, for
/// which it would wait for ever.
void try_enrolment_models(const std::string& base_model_file, const std::string& enc_model_file, std::size_t samples,
                          std::size_t at_a_time);

}  // namespace sonivo
