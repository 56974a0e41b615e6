#include "quality/zero_frames.h"

#include <algorithm>
#include <span>

namespace sonivo::bench {

namespace {

constexpr std::size_t kChainFrame = 192;

bool is_zero(double sample) { return static_cast<float>(sample) == 0.0f; }

bool is_silent(std::span<const double> samples, ZeroTest test) {
  return test == ZeroTest::last_sample ? is_zero(samples.back()) : std::all_of(samples.begin(), samples.end(), is_zero);
}

}  // namespace

Signal unchanged(const Signal& speech, std::size_t delay, ZeroTest test) {
  Signal held(delay);
  Signal heard;
  heard.reserve(speech.size());
  for (std::size_t at = 0; at + kChainFrame <= speech.size(); at += kChainFrame) {
    const auto samples = std::span(speech).subspan(at, kChainFrame);
    if (is_silent(samples, test)) {
      heard.insert(heard.end(), samples.begin(), samples.end());
      continue;
    }
    held.insert(held.end(), samples.begin(), samples.end());
    const auto end = held.begin() + kChainFrame;
    heard.insert(heard.end(), held.begin(), end);
    held.erase(held.begin(), end);
  }
  heard.erase(heard.begin(), heard.begin() + static_cast<std::ptrdiff_t>(delay));
  heard.resize(speech.size());
  return heard;
}

}  // namespace sonivo::bench
