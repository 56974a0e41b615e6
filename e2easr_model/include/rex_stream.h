#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <istream>
#include <streambuf>

namespace sonivo::e2e {

// Streams over what a caller has opened or holds. Both can be sought, so that who reads can tell how much is left.

/// Over a C file, from its position on; its length is found by seeking. The file stays the caller's; where its position
/// is afterwards is not said.
class RexInputFPStream : public std::istream {
 public:
  explicit RexInputFPStream(std::FILE* file);

 private:
  class Buffer : public std::streambuf {
   public:
    explicit Buffer(std::FILE* file);

   protected:
    int_type underflow() override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir way, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

   private:
    std::FILE* file_;
    off_type length_ = -1;  // -1: a file that can't be sought
    off_type end_ = 0;      // position in the file behind what the buffer holds
    std::array<char, 16384> bytes_;
  };

  Buffer buffer_;
};

/// Over the caller's memory, which must stay.
class RexInputMemStream : public std::istream {
 public:
  RexInputMemStream(const void* address, std::size_t size);

 private:
  class Buffer : public std::streambuf {
   public:
    Buffer(const void* address, std::size_t size);

   protected:
    pos_type seekoff(off_type offset, std::ios_base::seekdir way, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
  };

  Buffer buffer_;
};

}  // namespace sonivo::e2e
