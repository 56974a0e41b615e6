#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <optional>
#include <ostream>
#include <string>

namespace sonivo::e2e {

// The binary form of a model, docs/model-files.md. Integers are unsigned, 32 bits, little-endian. What the stream says
// of its own size is compared with what is left of it before memory is taken: "error reading stream".

inline constexpr std::size_t kMagicSize = 4;
inline constexpr std::size_t kVersionSize = 8;
inline constexpr std::uint32_t kPreprocessorKind = 0;
inline constexpr std::uint32_t kNetworkKind = 1;

using Symbols = std::map<std::string, std::string>;  ///< value by name of a variable

std::uint32_t read_integer(std::istream& stream);
/// So many bytes.
std::string read_text(std::istream& stream, std::uint32_t size);
/// A size and so many bytes.
std::string read_sized_text(std::istream& stream);
/// The text of the version field.
std::string read_version(std::istream& stream);
/// The number before the first '.' of a version, by which a file has a symbol table or not.
int first_number(const std::string& version);
inline bool has_symbol_table(const std::string& version) { return first_number(version) >= 1; }

/// A model as its file holds it.
struct Container {
  std::string magic;
  std::string version;
  std::optional<std::string> preprocessor;  ///< document of the flow
  std::string network;                      ///< binary form
  Symbols symbols;                          ///< not written by versions without a symbol table
};

/// std::length_error for a part of 4 GiB or more. "invalid stoi argument" for a version without a number, and then
/// nothing is written.
void write_container(std::ostream& stream, const Container& container);

}  // namespace sonivo::e2e
