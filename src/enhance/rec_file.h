#pragma once

#include <cstdint>
#include <vector>

#include "enhance/block_dump.h"

namespace sonivo {

/// A recording of blocks as a 16-bit WAV file. Operations answer a code of enhance/result.h.
class RecFile {
 public:
  bool is_open() const { return file_ != nullptr; }

  /// FILE_OPEN when one is open already or the file can't be made.
  int open(const char* filename);
  /// The second half of opening, once the channels are known: memory for a block, room for the header. MEMORY_EMPTY
  /// closes the file.
  int begin(std::uint16_t channels, std::uint16_t frames);
  /// Interleaved samples of full scale 1.0. NO_INIT without file or memory, FILE_WRITE when the disk is full.
  int write(const float* samples, std::size_t count);
  /// Writes the header. Its sizes are those of `channels` times the samples written, which count all channels already:
  /// with more than one channel they state more than the file holds. NO_INIT without a file.
  int close(std::uint16_t channels, float rate_hz);

 private:
  File file_;
  std::vector<std::int16_t> block_;  // converted
  std::uint32_t samples_ = 0;        // written so far
};

}  // namespace sonivo
