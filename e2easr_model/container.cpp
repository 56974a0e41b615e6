#include "e2easr_model/container.h"

#include <limits>
#include <stdexcept>

#include "e2easr_model/numbers_of_text.h"
#include "meridane/io/binary.h"

namespace sonivo::e2e {

namespace {

[[noreturn]] void raise_short_read() { throw std::runtime_error("error reading stream"); }

void write_integer(std::ostream& stream, std::size_t value) {
  if (value > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("a part of the model is too large");
  meridane::write_number(stream, static_cast<std::uint32_t>(value));
}

void write_text(std::ostream& stream, const std::string& text) {
  meridane::write_bytes(stream, text.data(), text.size());
}

void write_sized_text(std::ostream& stream, const std::string& text) {
  write_integer(stream, text.size());
  write_text(stream, text);
}

/// A field of a fixed size, which ends with the text or with zeros.
void write_field(std::ostream& stream, std::string text, std::size_t size) {
  text.resize(size, '\0');
  write_text(stream, text);
}

}  // namespace

std::uint32_t read_integer(std::istream& stream) {
  std::uint32_t value = 0;
  if (!stream.read(reinterpret_cast<char*>(&value), sizeof value)) raise_short_read();
  return value;
}

std::string read_text(std::istream& stream, std::uint32_t size) {
  if (size > meridane::bytes_left(stream)) raise_short_read();
  std::string text(size, '\0');
  if (!stream.read(text.data(), size)) raise_short_read();
  return text;
}

std::string read_sized_text(std::istream& stream) { return read_text(stream, read_integer(stream)); }

std::string read_version(std::istream& stream) {
  const std::string field = read_text(stream, kVersionSize);
  return field.substr(0, field.find('\0'));
}

int first_number(const std::string& version) { return e2e::stoi(version.substr(0, version.find('.'))); }

void write_container(std::ostream& stream, const Container& container) {
  const bool has_symbols = has_symbol_table(container.version);  // fails ahead of the first byte
  write_field(stream, container.magic, kMagicSize);
  write_field(stream, container.version, kVersionSize);
  write_integer(stream, container.preprocessor ? 1 : 0);
  if (container.preprocessor) {
    write_integer(stream, kPreprocessorKind);
    write_sized_text(stream, *container.preprocessor);
  }
  write_integer(stream, kNetworkKind);
  write_sized_text(stream, container.network);
  if (!has_symbols) return;
  write_integer(stream, container.symbols.size());
  for (const auto& [name, value] : container.symbols) {
    write_sized_text(stream, name);
    write_sized_text(stream, value);
  }
}

}  // namespace sonivo::e2e
