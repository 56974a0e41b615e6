#pragma once

#include <ostream>

#include "platform/endpoints.h"
#include "platform/sim/script.h"

// How test parameters are written in test names and failures.

namespace sonivo {

inline void PrintTo(DataFlow flow, std::ostream* out) { *out << (flow == DataFlow::capture ? "capture" : "render"); }

}  // namespace sonivo

namespace sonivo::sim {

inline void PrintTo(Step step, std::ostream* out) { *out << to_string(step); }

}  // namespace sonivo::sim
