#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "e2easr_model/se_model.h"

namespace sonivo {

/// Frames that go through the network together, whatever a model file says.
inline constexpr int kChunkFrames = 5;

/// What the FIFOs hold that a model is to run between.
struct FifoRoom {
  std::uint32_t add_ms = 0;               ///< of input, beyond a chunk
  std::optional<std::uint32_t> chunk_ms;  ///< of FIFOs that are there already; the model's own otherwise
};

/// Milliseconds of a chunk of the model.
std::uint32_t chunk_ms_of(const e2e::SEModel& model);

/// Runs the model of the file for two chunks of silence, as the enhancement thread would: what would end that thread at
/// its first chunk throws here. So does a model that doesn't fit between the FIFOs: they give samples at 16000 Hz, in
/// frames and chunks that they have room for, and take as many.
void try_enhancement_model(const std::string& file, const FifoRoom& room);

/// Runs the speaker encoder over so many samples of noise, ten seconds at most, and gives the result to the base model:
/// what would end the enrolment thread throws here, and an encoder that wants more than at_a_time samples at once, for
/// which it would wait for ever.
void try_enrolment_models(const std::string& base_model_file, const std::string& enc_model_file, std::size_t samples,
                          std::size_t at_a_time);

}  // namespace sonivo
