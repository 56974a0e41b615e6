#pragma once

#include <cstdint>
#include <memory>

namespace sonivo {

/// Storage of a FIFO of samples with a place to write and a place to read, both wrapping at its end. It neither counts
/// what it holds nor locks.
class SampleRing {
 public:
  /// New storage of that many zeros, both places at its start. False, and no storage, where there is no memory.
  bool allocate(std::uint32_t samples);
  void release();
  /// Null without storage.
  const float* storage() const { return ring_buff_.get(); }

  /// Zeros everywhere, both places at the start.
  void clear();

  // At most as many samples as there is storage for.
  void write(const float* data, std::uint32_t samples);
  void read(float* data, std::uint32_t samples);

 private:
  std::unique_ptr<float[]> ring_buff_;
  std::uint32_t samples_ = 0;
  std::uint32_t r_pointer_ = 0;
  std::uint32_t w_pointer_ = 0;
};

}  // namespace sonivo
