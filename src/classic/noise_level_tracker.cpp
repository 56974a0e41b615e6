#include "classic/noise_level_tracker.h"

#include <algorithm>

namespace sonivo::classic {

namespace {
constexpr std::int16_t kHoldFrames = 100;
}

NoiseLevelTracker::NoiseLevelTracker(const NlBlock& param, const bool* restart)
    : param_(param), windows_(param, restart) {
  reset();
}

void NoiseLevelTracker::reset() {
  windows_.reset();
  level_.fill(0.0f);
  hold_ = 0;
}

void NoiseLevelTracker::process(std::span<const float> input, bool voice) {
  if (windows_.wait()) {
    std::fill_n(level_.begin(), param_.nbin, param_.Nin_init);
    hold_ = kHoldFrames;
    return;
  }
  if (hold_ >= 1) {
    --hold_;
  } else if (windows_.restoring()) {
    windows_.lowest(level_.data());
    return;
  }
  windows_.take(input.data());
  windows_.lowest(level_.data());
  windows_.count(voice);
}

}  // namespace sonivo::classic
