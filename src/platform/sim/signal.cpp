#include "platform/sim/signal.h"

#include <algorithm>
#include <utility>

namespace sonivo::sim {

Source memory_source(std::vector<std::byte> bytes) {
  return [bytes = std::move(bytes), position = std::size_t{0}](std::span<std::byte> frames) mutable {
    const std::size_t count = std::min(frames.size(), bytes.size() - position);
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(position), count, frames.begin());
    std::fill(frames.begin() + static_cast<std::ptrdiff_t>(count), frames.end(), std::byte{0});
    position += count;
  };
}

}  // namespace sonivo::sim
