#pragma once

#include "nn/stopwatch.h"

namespace meridane::bench {

// Layers and networks of libtorch in inference mode, each with what it remembers: the work of one call. Its headers
// stay in the source.

/// One thread from now on.
void prepare_torch();

Work torch_lstm(long size, long frames);
Work torch_convolution(long channels, long taps, long frames, bool depthwise);

// The networks of network_shapes.h.
Work torch_enhancement();
Work torch_conformer(long blocks);
Work torch_mask();

}  // namespace meridane::bench
