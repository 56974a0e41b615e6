#pragma once

#include <cstddef>
#include <memory>

namespace sonivo::bench {

inline constexpr std::size_t kBlock = 480;  ///< frames of 10 ms at 48 kHz

/// Something that enhances speech, 10 ms at a time.
class Enhancer {
 public:
  virtual ~Enhancer() = default;

  /// kBlock interleaved frames in place, full scale 1.0; what counts is channel 0 of the result. key_pressed: a key
  /// went down in this block, for those who want to be told.
  virtual void process(float* block, bool key_pressed) = 0;
};

}  // namespace sonivo::bench
