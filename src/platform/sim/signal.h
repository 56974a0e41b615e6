#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

namespace sonivo::sim {

/// Fills the whole span with the next frames of a signal. Called with the scheduler's mutex held.
using Source = std::function<void(std::span<std::byte> frames)>;

/// Takes the next frames of a signal. Called with the scheduler's mutex held.
using Sink = std::function<void(std::span<const std::byte> frames)>;

/// The bytes once, then silence for ever.
Source memory_source(std::vector<std::byte> bytes);

}  // namespace sonivo::sim
