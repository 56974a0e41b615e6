#include "classic/block_framing.h"

#include <algorithm>

namespace sonivo::classic {

std::size_t BlockFraming::preroll(std::uint16_t length) {
  std::size_t acc = 0;
  std::size_t avail = 0;
  std::size_t need = 0;
  for (int round = 0; round < kHop; ++round) {
    acc += length;
    avail += acc / kHop * kHop;
    acc %= kHop;
    if (avail < length) {
      need += length - avail;
      avail = 0;
    } else {
      avail -= length;
    }
  }
  return need;
}

void BlockFraming::resize(std::uint16_t length) {
  const std::size_t need = preroll(length);
  const std::size_t capacity = need + length + kHop;
  queues_ = std::make_unique<float[]>(kChannels * capacity);
  capacity_ = capacity;
  length_ = length;
  preroll_ = need;
  in_count_ = 0;
  out_count_ = need;
}

void BlockFraming::collect(const float* interleaved, std::size_t frames, std::uint16_t channels) {
  for (std::size_t c = 0; c < channels; ++c) {
    float* to = in_[c].data() + in_count_;
    for (std::size_t i = 0; i < frames; ++i) to[i] = interleaved[i * channels + c] * kFullScale;
  }
  in_count_ += frames;
}

void BlockFraming::queue_frame(std::uint16_t channels) {
  for (std::size_t c = 0; c < channels; ++c) std::copy(out_[c].begin(), out_[c].end(), queue(c) + out_count_);
  out_count_ += kHop;
}

void BlockFraming::deliver(float* interleaved, std::uint16_t channels) {
  for (std::size_t c = 0; c < channels; ++c) {
    float* from = queue(c);
    for (std::size_t i = 0; i < length_; ++i) interleaved[i * channels + c] = from[i] * 3.0517578e-5f;
    std::copy(from + length_, from + out_count_, from);
  }
  out_count_ -= length_;
}

}  // namespace sonivo::classic
