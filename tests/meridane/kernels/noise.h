#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace meridane {

/// Values between -1 and 1, or codes, different from place to place; the same for the same seed.
class Noise {
 public:
  explicit Noise(std::uint32_t seed) : state_(seed) {}

  float sample() { return static_cast<float>(next() >> 8) / 8388608.0f - 1.0f; }
  std::uint8_t code() { return static_cast<std::uint8_t>(next() >> 24); }

  std::vector<float> samples(std::size_t count) {
    std::vector<float> values(count);
    for (float& value : values) value = sample();
    return values;
  }
  std::vector<std::uint8_t> codes(std::size_t count) {
    std::vector<std::uint8_t> values(count);
    for (std::uint8_t& value : values) value = code();
    return values;
  }

 private:
  std::uint32_t next() { return state_ = state_ * 1664525u + 1013904223u; }

  std::uint32_t state_;
};

}  // namespace meridane
