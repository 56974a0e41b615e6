#pragma once

#include <memory>

#include "classic/param_blobs.h"
#include "peers/enhancer.h"

namespace sonivo::bench {

struct ClassicStages {
  bool key = true;
  bool noise = true;
};

/// CKeyCancel in blocks of 10 ms. Throws std::runtime_error for parameters that it refuses.
std::unique_ptr<Enhancer> key_cancel(const classic::KeyCancelParam& param, std::size_t channels,
                                     ClassicStages stages = {});

/// CBeamFormingKeyCancel of two channels.
std::unique_ptr<Enhancer> beam_forming(const classic::BeamFormingKeyCancelParam& param, ClassicStages stages = {});

}  // namespace sonivo::bench
