#include "classic/spectrum_delay.h"

#include <algorithm>

namespace sonivo::classic {

SpectrumDelay::SpectrumDelay(const DelayBlock& param)
    : ring_(static_cast<std::size_t>(param.delay)), block_(param.block) {}

void SpectrumDelay::reset() {
  std::fill(ring_.begin(), ring_.end(), 0.0f);
  position_ = 0;
}

void SpectrumDelay::process(std::span<const float> in, std::span<float> out) {
  if (ring_.empty()) {
    std::copy_n(in.data(), block_, out.data());
    return;
  }
  // A ring shorter than the block goes round more than once and gives out what it took in this very call.
  for (std::size_t done = 0; done < block_;) {
    const std::size_t count = std::min(block_ - done, ring_.size() - position_);
    std::copy_n(ring_.data() + position_, count, out.data() + done);
    std::copy_n(in.data() + done, count, ring_.data() + position_);
    done += count;
    position_ += count;
    if (position_ == ring_.size()) position_ = 0;
  }
}

}  // namespace sonivo::classic
