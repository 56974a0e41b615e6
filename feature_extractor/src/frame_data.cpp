#include "feature_extractor/frame_data.h"

#include <cblas.h>

#include <algorithm>
#include <array>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>

#include "feature_extractor/analysis_window.h"
#include "feature_extractor/floored_log.h"
#include "feature_extractor/frame_sizes.h"

namespace sonivo {
namespace {

// In eight parts, which don't wait for each other.
double sum(const std::vector<float>& samples) {
  constexpr std::size_t kParts = 8;
  std::array<double, kParts> parts{};
  std::size_t i = 0;
  for (; i + kParts <= samples.size(); i += kParts) {
    for (std::size_t p = 0; p < kParts; ++p) parts[p] += samples[i + p];
  }
  for (; i < samples.size(); ++i) parts[0] += samples[i];
  return std::accumulate(parts.begin(), parts.end(), 0.0);
}

}  // namespace

FrameData::FrameData(const FeatureOptions& options, std::shared_ptr<Input<short>> input)
    : options_(options),
      input_(std::move(input)),
      length_(static_cast<std::size_t>(sonivo::frame_length_samples(options))),
      shift_(static_cast<std::size_t>(sonivo::frame_shift_samples(options))),
      group_(static_cast<std::size_t>(std::clamp(options.sample_frequency / 100.0f, 1.0f, float{kMaxFrameSamples}))),
      window_(analysis_window(options, length_)) {}

bool FrameData::has_next() {
  if (!options_.snip_edges) throw std::runtime_error("Error: 未実装 snip_edged=false.");
  if (frame_count_ == 0) {
    if (!fill(length_)) return false;
  } else {
    if (!fill(length_ + shift_)) return false;
    drop(shift_);
  }
  ++frame_count_;
  return true;
}

bool FrameData::fill(std::size_t wanted) {
  while (available() < wanted) {
    const std::size_t missing = wanted - available(), before = buffer_.size();
    if (input_->data(buffer_, static_cast<int>(missing), false) <= 0 && buffer_.size() == before) return false;
    if (buffer_.size() > before) continue;
    // Some sources answer any request, but serve whole groups of 10 ms only.
    input_->data(buffer_, static_cast<int>((missing + group_ - 1) / group_ * group_), false);
    if (buffer_.size() == before) return false;
  }
  return true;
}

void FrameData::drop(std::size_t count) {
  start_ += count;
  // Moving the rest only when it is the smaller part costs a fixed time per sample, however much a source appends.
  if (start_ < available()) return;
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(start_));
  start_ = 0;
}

void FrameData::extract(std::vector<float>& frame, float* log_energy) {
  const std::size_t size = std::min(available(), length_);
  if (size != length_) {
    throw std::runtime_error("Error: 入力データサイズ(" + std::to_string(size) + ")が窓幅(" + std::to_string(length_) +
                             ")に適合しない.");
  }
  const auto begin = buffer_.begin() + static_cast<std::ptrdiff_t>(start_);
  frame.assign(begin, begin + static_cast<std::ptrdiff_t>(length_));
  if (options_.dither != 0.0f) dither_.add(options_.dither, frame);
  if (options_.remove_dc_offset) {
    const auto mean = static_cast<float>(sum(frame) / static_cast<double>(length_));
    for (float& sample : frame) sample -= mean;
  }
  if (log_energy != nullptr) {
    *log_energy = floored_log(cblas_sdot(static_cast<int>(length_), frame.data(), 1, frame.data(), 1));
  }
  if (options_.preemphasis_coefficient != 0.0f) emphasise(frame);
  std::transform(frame.begin(), frame.end(), window_.begin(), frame.begin(), std::multiplies<>());
}

// x[i] -= c x[i - 1] of the samples as they were, and x[0] -= c x[0].
void FrameData::emphasise(std::vector<float>& frame) {
  const float c = options_.preemphasis_coefficient;
  unemphasised_ = frame;
  cblas_saxpy(static_cast<int>(length_) - 1, -c, unemphasised_.data(), 1, frame.data() + 1, 1);
  frame[0] -= c * frame[0];
}

}  // namespace sonivo
