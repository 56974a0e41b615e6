#include "classic/minimum_windows.h"

#include <algorithm>
#include <iterator>

namespace sonivo::classic {

namespace {
constexpr std::int16_t kRestoreFrames = 60;
}

template <typename Block>
MinimumWindows<Block>::MinimumWindows(const Block& param, const bool* restart) : param_(param), restart_(restart) {
  reset();
}

template <typename Block>
void MinimumWindows<Block>::reset() {
  std::fill(std::begin(minA_), std::end(minA_), param_.Nin_init);
  std::fill(std::begin(minB_), std::end(minB_), param_.Nin_init);
  wait_ = static_cast<std::int16_t>(param_.init_wait);
  restore_count_ = 0;
  cntA_ = cntB_ = cntC_ = 0;
  last_voice_ = false;
}

template <typename Block>
bool MinimumWindows<Block>::wait() {
  if (wait_ <= 0) return false;
  --wait_;
  return true;
}

template <typename Block>
bool MinimumWindows<Block>::restoring() {
  if (restart_ == nullptr) return false;
  if (*restart_) restore_count_ = kRestoreFrames;
  if (restore_count_ < 1) return false;
  --restore_count_;
  return true;
}

template <typename Block>
void MinimumWindows<Block>::take(const float* input) {
  for (int k = 0; k < param_.nbin; ++k) {
    minA_[k] = std::min(minA_[k], input[k]);
    minB_[k] = std::min(minB_[k], input[k]);
  }
}

template <typename Block>
void MinimumWindows<Block>::lowest(float* level) const {
  for (int k = 0; k < param_.nbin; ++k) level[k] = std::min(minA_[k], minB_[k]);
}

template <typename Block>
void MinimumWindows<Block>::count(bool voice) {
  const int V = param_.update_cycle_voice;
  if (last_voice_ != voice) cntA_ = 0;
  const int cycle = voice ? V : param_.update_cycle_noise;
  ++cntA_;
  ++cntB_;
  ++cntC_;
  if (cntA_ == cycle || (cntB_ > 2 * V && cntC_ > V)) {
    std::fill_n(minA_, param_.nbin, param_.Nin_init);
    cntB_ = 0;
  }
  // cntB as the step above left it: both windows never start again in one frame by this limit.
  if (cntA_ >= 2 * cycle || (cntC_ > 2 * V && cntB_ > V)) {
    std::fill_n(minB_, param_.nbin, param_.Nin_init);
    cntA_ = 0;
    cntC_ = 0;
  }
  last_voice_ = voice;
}

template class MinimumWindows<NlBlock>;
template class MinimumWindows<Nl2Block>;

}  // namespace sonivo::classic
