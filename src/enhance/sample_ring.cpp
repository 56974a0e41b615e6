#include "enhance/sample_ring.h"

#include <algorithm>
#include <cassert>
#include <new>

namespace sonivo {

bool SampleRing::allocate(std::uint32_t samples) {
  release();
  ring_buff_.reset(new (std::nothrow) float[samples]());
  if (!ring_buff_) return false;
  samples_ = samples;
  return true;
}

void SampleRing::release() {
  ring_buff_.reset();
  samples_ = r_pointer_ = w_pointer_ = 0;
}

void SampleRing::clear() {
  std::fill_n(ring_buff_.get(), samples_, 0.0f);
  r_pointer_ = w_pointer_ = 0;
}

void SampleRing::write(const float* data, std::uint32_t samples) {
  assert(samples <= samples_);
  const std::uint32_t before_end = std::min(samples, samples_ - w_pointer_);
  std::copy_n(data, before_end, ring_buff_.get() + w_pointer_);
  std::copy_n(data + before_end, samples - before_end, ring_buff_.get());
  w_pointer_ = before_end < samples ? samples - before_end : w_pointer_ + before_end;
}

void SampleRing::read(float* data, std::uint32_t samples) {
  assert(samples <= samples_);
  const std::uint32_t before_end = std::min(samples, samples_ - r_pointer_);
  std::copy_n(ring_buff_.get() + r_pointer_, before_end, data);
  std::copy_n(ring_buff_.get(), samples - before_end, data + before_end);
  r_pointer_ = before_end < samples ? samples - before_end : r_pointer_ + before_end;
}

}  // namespace sonivo
