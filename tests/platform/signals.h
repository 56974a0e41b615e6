#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "platform/sim/signal.h"

namespace sonivo::sim {

/// 32-bit frames, each its own number, from `first` on.
inline std::vector<std::byte> counted_frames(std::uint32_t first, std::size_t count) {
  std::vector<std::byte> bytes(count * sizeof first);
  for (std::size_t i = 0; i < count; ++i, ++first) std::memcpy(&bytes[i * sizeof first], &first, sizeof first);
  return bytes;
}

/// An endless signal of such frames.
inline Source counting_source(std::uint32_t first) {
  return [first](std::span<std::byte> frames) mutable {
    const std::vector<std::byte> bytes = counted_frames(first, frames.size() / sizeof first);
    std::memcpy(frames.data(), bytes.data(), bytes.size());
    first += static_cast<std::uint32_t>(frames.size() / sizeof first);
  };
}

inline std::vector<std::byte> operator+(std::vector<std::byte> a, const std::vector<std::byte>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

inline std::vector<std::byte> silent_frames(std::size_t count) { return std::vector<std::byte>(4 * count); }

}  // namespace sonivo::sim
