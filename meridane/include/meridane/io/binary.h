#pragma once

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>

// Little-endian values in streams. Nothing is believed that a stream says of its own size: before memory is taken for
// `count` things, their bytes must be there.

namespace meridane {

/// The end of the stream was reached too early: throws std::ios_base::failure where the stream has been asked to,
/// otherwise a BaseRuntimeError.
[[noreturn]] void raise_end_of_stream(std::istream& stream);

void read_bytes(std::istream& stream, void* to, std::uint64_t count);
void skip_bytes(std::istream& stream, std::uint64_t count);
void write_bytes(std::ostream& stream, const void* from, std::uint64_t count);

/// Bytes from here to the end; 256 MB for a stream that can't tell (a pipe). A device that never ends tells 0.
std::uint64_t bytes_left(std::istream& stream);
/// Throws, for a text that goes on behind the bytes that were left.
[[noreturn]] void raise_endless();
/// Fails as a read beyond the end would unless count things of that many bytes are left.
void expect_left(std::istream& stream, std::uint64_t count, std::uint64_t bytes_each);

template <class Number>
Number read_number(std::istream& stream) {
  static_assert(std::is_trivially_copyable_v<Number>);
  Number value;
  read_bytes(stream, &value, sizeof value);
  return value;
}

template <class Number>
void write_number(std::ostream& stream, Number value) {
  static_assert(std::is_trivially_copyable_v<Number>);
  write_bytes(stream, &value, sizeof value);
}

/// An unsigned 64-bit length and that many bytes.
std::string read_string(std::istream& stream);
void write_string(std::ostream& stream, std::string_view text);

}  // namespace meridane
