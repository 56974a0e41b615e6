#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "feature_extractor/input.h"

namespace sonivo::e2e {

/// A source of the samples that were put into memory; gives what is there and never waits.
class BufferMem : public Input<short> {
 public:
  void append(std::span<const short> samples) { samples_.insert(samples_.end(), samples.begin(), samples.end()); }
  /// Keeps the last `count` of these samples as all that there is.
  void restart(std::span<const short> samples, std::size_t count) {
    const auto kept = samples.last(std::min(count, samples.size()));
    samples_.assign(kept.begin(), kept.end());
  }

  int data(std::vector<short>& out, int require, bool /*trancate*/) override {
    const auto count = std::min(samples_.size(), static_cast<std::size_t>(std::max(require, 0)));
    const auto end = samples_.begin() + static_cast<std::ptrdiff_t>(count);
    out.insert(out.end(), samples_.begin(), end);
    samples_.erase(samples_.begin(), end);
    return static_cast<int>(count);
  }
  bool end() override { return samples_.empty(); }

 private:
  std::vector<short> samples_;
};

}  // namespace sonivo::e2e
