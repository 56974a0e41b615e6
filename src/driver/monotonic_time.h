#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace sonivo::driver {

/// Milliseconds that only grow.
using Now = std::function<std::uint64_t()>;

/// Since an arbitrary start; they stand while the machine sleeps.
inline std::uint64_t monotonic_ms() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace sonivo::driver
