#pragma once

#include <cstddef>
#include <vector>

#include "platform/sim/script.h"

namespace sonivo::test {

/// The operations that have been asked of the machine so far, in the order of their numbers.
inline std::vector<sim::Step> used_steps(const sim::Script& script) {
  std::vector<sim::Step> used;
  for (std::size_t i = 0; i < sim::kStepCount; ++i) {
    const auto step = static_cast<sim::Step>(i);
    if (script.count(step) != 0) used.push_back(step);
  }
  return used;
}

}  // namespace sonivo::test
