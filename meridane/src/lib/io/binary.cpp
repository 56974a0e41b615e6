#include "meridane/io/binary.h"

#include <algorithm>
#include <bit>

#include "meridane/error.h"

namespace meridane {

static_assert(std::endian::native == std::endian::little, "values are stored as this machine holds them");

namespace {

constexpr std::uint64_t kMostUnseenBytes = 256u << 20;

}  // namespace

std::uint64_t bytes_left(std::istream& stream) {
  std::streambuf& buffer = *stream.rdbuf();
  const std::streamoff here = buffer.pubseekoff(0, std::ios_base::cur, std::ios_base::in);
  if (here < 0) return kMostUnseenBytes;
  const std::streamoff end = buffer.pubseekoff(0, std::ios_base::end, std::ios_base::in);
  buffer.pubseekpos(here, std::ios_base::in);
  return end < here ? 0 : static_cast<std::uint64_t>(end - here);
}

void raise_endless() { raise("The text has no end"); }

void raise_end_of_stream(std::istream& stream) {
  stream.setstate(std::ios_base::eofbit | std::ios_base::failbit);
  raise("Unexpected end of the stream");
}

void read_bytes(std::istream& stream, void* to, std::uint64_t count) {
  stream.read(static_cast<char*>(to), static_cast<std::streamsize>(count));
  if (!stream) raise_end_of_stream(stream);
}

void skip_bytes(std::istream& stream, std::uint64_t count) {
  constexpr std::uint64_t kAtOnce = 1u << 30;
  for (std::uint64_t left = count; left > 0;) {
    const auto now = static_cast<std::streamsize>(std::min(left, kAtOnce));
    stream.ignore(now);
    if (stream.gcount() != now) raise_end_of_stream(stream);
    left -= static_cast<std::uint64_t>(now);
  }
}

void write_bytes(std::ostream& stream, const void* from, std::uint64_t count) {
  stream.write(static_cast<const char*>(from), static_cast<std::streamsize>(count));
}

void expect_left(std::istream& stream, std::uint64_t count, std::uint64_t bytes_each) {
  if (count > bytes_left(stream) / bytes_each) raise_end_of_stream(stream);
}

std::string read_string(std::istream& stream) {
  const auto length = read_number<std::uint64_t>(stream);
  expect_left(stream, length, 1);
  std::string text(length, '\0');
  read_bytes(stream, text.data(), length);
  return text;
}

void write_string(std::ostream& stream, std::string_view text) {
  write_number<std::uint64_t>(stream, text.size());
  write_bytes(stream, text.data(), text.size());
}

}  // namespace meridane
