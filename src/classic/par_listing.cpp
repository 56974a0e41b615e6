#include "classic/par_listing.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "classic/par_source.h"
#include "classic/par_tables.h"

namespace sonivo::classic {

namespace {

template <typename T>
T value_at(const std::byte* place) {
  T value;
  std::memcpy(&value, place, sizeof value);
  return value;
}

/// Nine digits tell any two floats apart.
std::string text_of(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
  return text;
}

std::string text_at(FieldType type, const std::byte* place) {
  switch (type) {
    case FieldType::u16:
      return std::to_string(value_at<std::uint16_t>(place));
    case FieldType::i16:
      return std::to_string(value_at<std::int16_t>(place));
    case FieldType::u32:
      return std::to_string(value_at<std::uint32_t>(place));
    case FieldType::i32:
      return std::to_string(value_at<std::int32_t>(place));
    case FieldType::f32:
      return text_of(value_at<float>(place));
    case FieldType::complex: {
      const auto value = value_at<ComplexFloat>(place);
      return std::string("(").append(text_of(value.re)).append(", ").append(text_of(value.im)).append(")");
    }
  }
  return {};
}

class Listing {
 public:
  Listing(std::ostream& output, const std::byte* blob) : output_(output), blob_(blob) {}

  void add(const BlockPlace& block) {
    for (const Field& field : block.fields) {
      for (std::size_t row = 0; row < field.rows; ++row) add_row(block, field, row);
    }
  }

 private:
  void add_row(const BlockPlace& block, const Field& field, std::size_t row) {
    const std::string name = block.prefix + (field.rows > 1 ? indexed(field.name, row) : field.name);
    const std::size_t first = block.offset + field.offset + row * field.columns * size_of(field.type);
    if (field.summarised) {
      const std::size_t last = first + (field.columns - 1u) * size_of(field.type);
      add_line(first, name.substr(0, name.rfind('[')),
               std::to_string(field.columns) + " values, first " + text_at(field.type, blob_ + first) + ", last " +
                   text_at(field.type, blob_ + last));
      return;
    }
    for (std::size_t i = 0; i < field.columns; ++i) {
      const std::size_t offset = first + i * size_of(field.type);
      add_line(offset, indexed(name, i), text_at(field.type, blob_ + offset));
    }
  }

  void add_line(std::size_t offset, const std::string& name, const std::string& value) {
    constexpr std::size_t kOffsetWidth = 5;
    constexpr std::size_t kNameWidth = 36;
    const std::string number = std::to_string(offset);
    output_ << std::string(kOffsetWidth - number.size(), ' ') << number << "  " << name
            << std::string(name.size() < kNameWidth ? kNameWidth - name.size() : 0, ' ') << "  " << value << "\n";
  }

  std::ostream& output_;
  const std::byte* blob_;
};

}  // namespace

template <typename Param>
void list_fields(std::ostream& output, const Param& param) {
  Listing listing(output, reinterpret_cast<const std::byte*>(&param));
  for (const BlockPlace& block : layout(param)) listing.add(block);
}

template void list_fields(std::ostream&, const KeyCancelParam&);
template void list_fields(std::ostream&, const BeamFormingKeyCancelParam&);

}  // namespace sonivo::classic
