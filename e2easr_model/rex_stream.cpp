#include "e2easr_model/rex_stream.h"

#include <sys/types.h>

namespace sonivo::e2e {

namespace {

using Offset = std::streambuf::off_type;

/// The position that is meant, or -1.
Offset target(Offset offset, std::ios_base::seekdir way, Offset here, Offset length) {
  const Offset from = way == std::ios_base::beg ? 0 : way == std::ios_base::cur ? here : length;
  if (offset < -from || offset > length - from) return -1;
  return from + offset;
}

}  // namespace

RexInputFPStream::RexInputFPStream(std::FILE* file) : std::istream(nullptr), buffer_(file) { rdbuf(&buffer_); }

RexInputFPStream::Buffer::Buffer(std::FILE* file) : file_(file) {
  const off_t start = ftello(file);
  if (start < 0 || fseeko(file, 0, SEEK_END) != 0) return;
  const off_t end = ftello(file);
  if (fseeko(file, start, SEEK_SET) != 0) return;
  length_ = end;
  end_ = start;
}

RexInputFPStream::Buffer::int_type RexInputFPStream::Buffer::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  const std::size_t count = std::fread(bytes_.data(), 1, bytes_.size(), file_);
  end_ += static_cast<Offset>(count);
  setg(bytes_.data(), bytes_.data(), bytes_.data() + count);
  return count == 0 ? traits_type::eof() : traits_type::to_int_type(bytes_.front());
}

RexInputFPStream::Buffer::pos_type RexInputFPStream::Buffer::seekoff(off_type offset, std::ios_base::seekdir way,
                                                                     std::ios_base::openmode) {
  if (length_ < 0) return off_type(-1);
  const off_type here = end_ - (egptr() - gptr());
  const off_type wanted = target(offset, way, here, length_);
  const off_type buffered_from = end_ - (egptr() - eback());
  if (wanted < 0) return off_type(-1);
  if (wanted >= buffered_from && wanted <= end_) {
    setg(eback(), eback() + (wanted - buffered_from), egptr());
    return wanted;
  }
  if (fseeko(file_, wanted, SEEK_SET) != 0) return off_type(-1);
  end_ = wanted;
  setg(bytes_.data(), bytes_.data(), bytes_.data());
  return wanted;
}

RexInputFPStream::Buffer::pos_type RexInputFPStream::Buffer::seekpos(pos_type position, std::ios_base::openmode which) {
  return seekoff(off_type(position), std::ios_base::beg, which);
}

RexInputMemStream::RexInputMemStream(const void* address, std::size_t size)
    : std::istream(nullptr), buffer_(address, size) {
  rdbuf(&buffer_);
}

RexInputMemStream::Buffer::Buffer(const void* address, std::size_t size) {
  // The base class keeps its pointers to what it may read as if it could write there; nothing does.
  char* const bytes =
      const_cast<char*>(static_cast<const char*>(address));  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  setg(bytes, bytes, bytes + size);
}

RexInputMemStream::Buffer::pos_type RexInputMemStream::Buffer::seekoff(off_type offset, std::ios_base::seekdir way,
                                                                       std::ios_base::openmode) {
  const off_type wanted = target(offset, way, gptr() - eback(), egptr() - eback());
  if (wanted < 0) return off_type(-1);
  setg(eback(), eback() + wanted, egptr());
  return wanted;
}

RexInputMemStream::Buffer::pos_type RexInputMemStream::Buffer::seekpos(pos_type position,
                                                                       std::ios_base::openmode which) {
  return seekoff(off_type(position), std::ios_base::beg, which);
}

}  // namespace sonivo::e2e
