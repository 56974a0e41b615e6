#include "classic/diff_power.h"

#include <algorithm>
#include <limits>

namespace sonivo::classic {

namespace {

/// to[k] = max(to[k], from[k])
void raise(float* to, const float* from, std::size_t bands) {
  for (std::size_t k = 0; k < bands; ++k) to[k] = std::max(to[k], from[k]);
}

}  // namespace

DiffPower::DiffPower(const DiffPowerBlock& param)
    : param_(param),
      delay_(static_cast<std::size_t>(param.delay_frame) * static_cast<std::size_t>(param.nbin)),
      window_(static_cast<std::size_t>(param.window_len) * static_cast<std::size_t>(param.nbin)),
      newest_(static_cast<std::size_t>(param.nbin)) {
  reset();
}

void DiffPower::reset() {
  std::fill(delay_.begin(), delay_.end(), 0.0f);
  std::fill(window_.begin(), window_.end(), 0.0f);
  std::fill(newest_.begin(), newest_.end(), 0.0f);
  delay_row_ = 0;
  window_row_ = 0;
}

float* DiffPower::row(std::vector<float>& rows, std::size_t index) const {
  return rows.data() + index * newest_.size();
}

void DiffPower::process(std::span<const float> X, std::span<float> R) {
  const std::size_t bands = newest_.size();
  const float* oldest = row(window_, window_row_);
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  for (std::size_t k = 0; k < bands; ++k) {
    const float m = std::max(oldest[k], newest_[k]);
    R[k] = X[k] / (m == 0.0f ? kInfinity : m);
  }
  float* delayed = row(delay_, delay_row_);
  push(delayed);
  std::copy_n(X.data(), bands, delayed);
  if (++delay_row_ == static_cast<std::size_t>(param_.delay_frame)) delay_row_ = 0;
}

void DiffPower::push(const float* level) {
  const std::size_t bands = newest_.size();
  std::copy_n(level, bands, row(window_, window_row_));
  raise(newest_.data(), level, bands);
  if (++window_row_ < static_cast<std::size_t>(param_.window_len)) return;
  while (--window_row_ > 0) raise(row(window_, window_row_ - 1), row(window_, window_row_), bands);
  std::fill(newest_.begin(), newest_.end(), 0.0f);
}

}  // namespace sonivo::classic
