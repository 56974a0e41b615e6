#include "classic/par_block_reader.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <utility>

#include "classic/biquad_design.h"
#include "classic/par_value.h"

namespace sonivo::classic {

namespace {

/// The message of a limit, with the block's prefix in the place of "%s".
std::string message_of(const Limit& limit, const char* prefix) {
  std::string text = limit.message;
  const std::size_t place = text.find("%s");
  if (place != std::string::npos) text.replace(place, 2, prefix);
  return text;
}

}  // namespace

template <typename T>
void BlockReader::read_limited(const char* prefix, const Field& field, std::span<T> values, Progress& progress) {
  const Limit& limit = *field.limit;
  for (std::size_t i = 0; i < values.size() && !progress.ended; ++i) {
    T value = values[i];
    if (ReadValue(source_, prefix, indexed(field.name, i), *field.conversion, value) != 0) {
      ++progress.errors;
    } else if (std::cmp_less(value, limit.lowest) || std::cmp_greater(value, limit.highest)) {
      source_.messages() << message_of(limit, prefix);
      if (limit.breach == Breach::taken_last) {
        values[i] = value;
      } else {
        ++progress.errors;
      }
      progress.ended = limit.breach != Breach::left_out;
    } else {
      values[i] = value;
    }
    progress.own = static_cast<int>(std::clamp<std::int64_t>(values[i], 0, limit.highest));
  }
}

template <typename T>
void BlockReader::read_elements(const char* prefix, const Field& field, std::byte* place, Progress& progress) {
  const std::size_t count = entries_of(field, counts_, progress.own);
  for (std::size_t row = 0; row < field.rows && !progress.ended; ++row) {
    const std::span<T> values(reinterpret_cast<T*>(place) + row * field.columns, count);
    const std::string name = field.rows > 1 ? indexed(field.name, row) : field.name;
    Conversion conversion = *field.conversion;
    conversion.hop = hop_;
    if constexpr (std::is_integral_v<T>) {
      if (field.limit != nullptr) {
        read_limited(prefix, field, values, progress);
        continue;
      }
    }
    progress.errors += ReadValues(source_, prefix, name, conversion, values);
  }
}

void BlockReader::read_field(const char* prefix, const Field& field, std::byte* place, Progress& progress) {
  switch (field.type) {
    case FieldType::u16:
      return read_elements<std::uint16_t>(prefix, field, place, progress);
    case FieldType::i16:
      return read_elements<std::int16_t>(prefix, field, place, progress);
    case FieldType::u32:
      return read_elements<std::uint32_t>(prefix, field, place, progress);
    case FieldType::i32:
      return read_elements<std::int32_t>(prefix, field, place, progress);
    case FieldType::f32:
      return read_elements<float>(prefix, field, place, progress);
    case FieldType::complex:
      return;  // of a filter file
  }
}

BlockReader::Progress BlockReader::read_block(const char* prefix, std::span<const Field> fields, void* block) {
  Progress progress;
  for (const Field& field : fields) {
    if (progress.ended) break;
    if (field.conversion) read_field(prefix, field, static_cast<std::byte*>(block) + field.offset, progress);
  }
  return progress;
}

int BlockReader::read(const char* prefix, std::span<const Field> fields, void* block) {
  return read_block(prefix, fields, block).errors;
}

int BlockReader::read_bands(const char* prefix, std::span<const Field> fields, BandTable& table, int& count) {
  const Progress progress = read_block(prefix, fields, &table);
  count = progress.own;
  if (progress.ended) return progress.errors;
  for (int b = 0; b < count; ++b) {
    table.inv_width[b] = static_cast<float>(1.0 / (table.f[b + 1] - table.f[b]));
  }
  return progress.errors;
}

int BlockReader::read_input_filter(AinBlock& block) {
  block.frame = kHop;
  const Progress progress = read_block("ain.", tables::kAin, &block);
  if (progress.ended) return progress.errors;
  for (int i = 0; i < progress.own; ++i) {
    const auto design = design_biquad({block.type[i], block.Q[i], block.f0[i], block.gain[i]});
    if (design) block.coefficients[i] = *design;
  }
  return progress.errors;
}

void make_slopes(float thi1, float thi2, float tho1, float tho2, float (&slope)[3]) {
  const double i1 = thi1;
  const double i2 = thi2;
  const double o1 = tho1;
  const double o2 = tho2;
  slope[0] = static_cast<float>(o1 / i1);
  slope[1] = static_cast<float>((o2 - o1) / (i2 - i1));
  slope[2] = static_cast<float>((1 - o2) / (1 - i2));
}

}  // namespace sonivo::classic
