#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "classic/par_conversion.h"

namespace sonivo::classic {

// A record's fields as a table: what they are called, what they hold, how a par file fills them. The reader and the
// listing of a blob walk the same tables.

enum class FieldType : std::uint8_t { u16, i16, u32, i32, f32, complex };

constexpr std::size_t size_of(FieldType type) {
  switch (type) {
    case FieldType::u16:
    case FieldType::i16:
      return 2;
    case FieldType::complex:
      return 8;
    default:
      return 4;
  }
}

/// How many elements of an array (of each row, in two dimensions) a par file has.
enum class Entries : std::uint8_t {
  all,        ///< as many as the field has places
  own,        ///< the count that stands earlier in the same block
  own_edges,  ///< that count + 1
  coarse,     ///< bands of a table: "syk1."
  coarse_edges,
  fine,   ///< "syk2."
  pulse,  ///< "syk_pulse."
  prm,    ///< "syk_pulse_prm."
  prm_edges,
  ui,  ///< "syk_pulse_prm_ui."
  ui_edges,
};

/// Counts of the bands of tables; never above what a record holds.
struct BandCounts {
  int coarse = 0;
  int fine = 0;
  int pulse = 0;
  int prm = 0;
  int ui = 0;
};

/// What becomes of a whole number outside of its limits.
enum class Breach : std::uint8_t {
  left_out,    ///< an error; the field stays as it was
  ends_block,  ///< the same, and what stands behind it in the block is not read
  taken_last,  ///< no error: the field takes it, but what stands behind it in the block is not read
};

/// What a whole number must keep to.
struct Limit {
  std::int32_t lowest;
  std::int32_t highest;
  const char* message;  ///< "%s" stands for the block's prefix
  Breach breach;
};

struct Field {
  const char* name;  ///< the key behind the prefix of its block, "%d" for the index; of a row first in two dimensions
  FieldType type;
  std::optional<Conversion> conversion{};  ///< none where no key fills it: computed, constant or padding
  std::uint16_t rows = 1;
  std::uint16_t columns = 1;
  Entries entries = Entries::all;
  const Limit* limit = nullptr;
  bool summarised = false;  ///< listed by its ends
  std::size_t offset = 0;   ///< in the block

  constexpr std::size_t size() const { return size_of(type) * rows * columns; }
  constexpr bool is_array() const { return rows > 1 || columns > 1; }

  constexpr Field read_as(Conversion how) const {
    Field field = *this;
    field.conversion = how;
    return field;
  }
  constexpr Field times(std::uint16_t count, Entries filled = Entries::all) const {
    Field field = *this;
    field.columns = count;
    field.entries = filled;
    return field;
  }
  constexpr Field in_rows(std::uint16_t count) const {
    Field field = *this;
    field.rows = count;
    return field;
  }
  constexpr Field within(const Limit& bounds) const {
    Field field = *this;
    field.limit = &bounds;
    return field;
  }
  constexpr Field summary() const {
    Field field = *this;
    field.summarised = true;
    return field;
  }
};

/// Elements of each row that a par file has, where `own` is the count that stands in the field's block.
std::size_t entries_of(const Field& field, const BandCounts& counts, int own);

/// Places the fields one behind the other; Bytes is what they must come to.
template <std::size_t Bytes, typename... Fields>
consteval std::array<Field, sizeof...(Fields)> laid_out(const Fields&... fields) {
  std::array<Field, sizeof...(Fields)> block{fields...};
  std::size_t offset = 0;
  for (Field& field : block) {
    const std::size_t alignment = field.type == FieldType::complex ? 4 : size_of(field.type);
    if (offset % alignment != 0) throw "a field lies off its alignment";
    field.offset = offset;
    offset += field.size();
  }
  if (offset != Bytes) throw "the fields do not fill the block";
  return block;
}

}  // namespace sonivo::classic
