#include "platform/linux/pipewire/frame_slip.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace sonivo::pipewire {
namespace {

constexpr int kPhases = 1000;
constexpr int kSlipTaps = 16;
constexpr int kCentre = kSlipTaps / 2 - 1;  // tap of the frame at phase 0

using Taps = std::array<float, kSlipTaps>;

double slip_kernel(double t) {
  if (t == 0) return 1;
  if (std::fabs(t) >= kSlipTaps / 2.0) return 0;
  const double angle = std::numbers::pi * t;
  const double window = std::cos(angle / kSlipTaps);
  return std::sin(angle) / angle * window * window;
}

const std::array<Taps, kPhases>& slip_taps() {
  static const auto table = [] {
    std::array<Taps, kPhases> all{};
    for (int phase = 0; phase < kPhases; ++phase) {
      std::array<double, kSlipTaps> weights{};
      for (int tap = 0; tap < kSlipTaps; ++tap) {
        weights[static_cast<std::size_t>(tap)] = slip_kernel(tap - kCentre - static_cast<double>(phase) / kPhases);
      }
      const double sum = std::accumulate(weights.begin(), weights.end(), 0.0);
      std::transform(weights.begin(), weights.end(), all[static_cast<std::size_t>(phase)].begin(),
                     [sum](double weight) { return static_cast<float>(weight / sum); });
    }
    return all;
  }();
  return table;
}

std::int32_t load_packed(const std::byte* sample, std::size_t bytes) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < bytes; ++i) bits |= std::to_integer<std::uint32_t>(sample[i]) << (32 - 8 * (bytes - i));
  return static_cast<std::int32_t>(bits) >> (32 - 8 * bytes);
}

void store_packed(std::int32_t value, std::byte* sample, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i) sample[i] = static_cast<std::byte>(value >> (8 * i));
}

}  // namespace

FrameSlip::FrameSlip(const WAVEFORMATEXTENSIBLE& format)
    : frame_bytes_(format.nBlockAlign),
      sample_bytes_(format.wBitsPerSample / 8u),
      channels_(format.nChannels, History{}) {
  static_assert(kSlipTaps == kTaps);
  slip_taps();
}

void FrameSlip::reset() {
  std::fill(channels_.begin(), channels_.end(), History{});
  oldest_ = 0;
  phase_ = 0;
  direction_ = 0;
  missing_ = 1;
}

FrameSlip::Moved FrameSlip::process(const std::byte* input, std::size_t input_frames, std::byte* output,
                                    std::size_t output_frames) {
  Moved moved;
  while (moved.given < output_frames && moved.slipped == 0) {
    for (; missing_ > 0 && moved.taken < input_frames; --missing_) push(input + moved.taken++ * frame_bytes_);
    if (missing_ > 0) break;
    give(output + moved.given++ * frame_bytes_);
    missing_ = advance();
    moved.slipped = missing_ - 1;
  }
  return moved;
}

void FrameSlip::push(const std::byte* frame) {
  for (std::size_t i = 0; i < channels_.size(); ++i) {
    const auto sample = static_cast<float>(load_packed(frame + i * sample_bytes_, sample_bytes_));
    channels_[i][oldest_] = sample;
    channels_[i][oldest_ + kTaps] = sample;
  }
  oldest_ = (oldest_ + 1) % kTaps;
}

void FrameSlip::give(std::byte* frame) const {
  const auto limit = static_cast<float>((1 << (8 * sample_bytes_ - 1)) - 1);
  const Taps& taps = slip_taps()[static_cast<std::size_t>(phase_)];
  for (std::size_t i = 0; i < channels_.size(); ++i) {
    const float* const window = channels_[i].data() + oldest_;
    float sample = window[kCentre];
    if (phase_ != 0) {
      sample = 0;
      for (std::size_t tap = 0; tap < kTaps; ++tap) sample += window[tap] * taps[tap];
    }
    const float clamped = std::clamp(std::nearbyint(sample), -limit - 1, limit);
    store_packed(static_cast<std::int32_t>(clamped), frame + i * sample_bytes_, sample_bytes_);
  }
}

int FrameSlip::advance() {
  if (phase_ == 0) direction_ = std::clamp(wanted_.load(std::memory_order_relaxed), -1, 1);
  phase_ += direction_;
  if (phase_ == kPhases) {
    phase_ = 0;
    return 2;
  }
  if (phase_ == -1) {
    phase_ = kPhases - 1;
    return 0;
  }
  return 1;
}

}  // namespace sonivo::pipewire
