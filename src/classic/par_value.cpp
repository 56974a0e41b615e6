#include "classic/par_value.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>

namespace sonivo::classic {

namespace {

/// A whole number as the text conversion of an int gives it: held at the ends of 32 bits; 0 for no number.
std::int32_t to_int(double value) {
  constexpr double kLowest = std::numeric_limits<std::int32_t>::min();
  constexpr double kHighest = std::numeric_limits<std::int32_t>::max();
  return std::isnan(value) ? 0 : static_cast<std::int32_t>(std::clamp(value, kLowest, kHighest));
}

template <typename T>
T stored(double value) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(value);
  } else {
    return static_cast<T>(to_int(value));
  }
}

double fixed_point(const Conversion& conversion, double converted) {
  return round_half_away(std::ldexp(converted, conversion.fraction_bits));
}

template <typename T>
T saturated(double value, const std::string& key, std::ostream& messages) {
  using Signed = std::conditional_t<sizeof(T) == 2, std::int16_t, std::int32_t>;
  constexpr double kLowest = std::numeric_limits<Signed>::min();
  constexpr double kHighest = std::numeric_limits<Signed>::max();
  if (value < kLowest || value > kHighest) messages << "over flow : " << key << "\n";
  return static_cast<T>(static_cast<Signed>(to_int(std::clamp(value, kLowest, kHighest))));
}

template <typename T>
T shift_code_of(double coefficient, bool mirrored, const std::string& key, std::ostream& messages) {
  const ShiftCode code = shift_code(coefficient, sizeof(T) == 2 ? 16 : 32, mirrored);
  if (!code.in_range) messages << "warning " << key << ": bad value\n";
  return static_cast<T>(code.shift);
}

}  // namespace

template <typename T>
int ReadValue(ParSource& source, const std::string& key, const Conversion& conversion, T& value) {
  const std::optional<double> written = source.number(key);
  if (!written) return 1;
  const double converted = convert(conversion, *written);
  switch (conversion.storage) {
    case Storage::plain:
      value = stored<T>(converted);
      break;
    case Storage::fixed_point:
      value = saturated<T>(fixed_point(conversion, converted), key, source.messages());
      break;
    case Storage::shift_code:
      value = shift_code_of<T>(converted, false, key, source.messages());
      break;
    case Storage::mirror_shift:
      value = shift_code_of<T>(converted, true, key, source.messages());
      break;
  }
  return 0;
}

template int ReadValue(ParSource&, const std::string&, const Conversion&, std::uint16_t&);
template int ReadValue(ParSource&, const std::string&, const Conversion&, std::int16_t&);
template int ReadValue(ParSource&, const std::string&, const Conversion&, std::uint32_t&);
template int ReadValue(ParSource&, const std::string&, const Conversion&, std::int32_t&);
template int ReadValue(ParSource&, const std::string&, const Conversion&, float&);
template int ReadValue(ParSource&, const std::string&, const Conversion&, double&);

int ReadTableValue(ParSource& source, const std::string& key, const Conversion& conversion, Words words,
                   std::span<std::uint16_t> table, std::size_t index) {
  const std::optional<double> written = source.number(key);
  if (!written) return 1;
  const double value = fixed_point(conversion, convert(conversion, *written));
  const double highest = words == Words::one ? 32768.0 : 2147483649.0;
  const double lowest = words == Words::one ? -32767.0 : -2147483647.0;
  if (!(value < highest && value > lowest)) {
    source.messages() << "over flow : " << key << "\n";
    return 1;
  }
  const auto bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
  table[index] = static_cast<std::uint16_t>(bits & 0xFFFF);
  if (words == Words::two) table[index + 1] = static_cast<std::uint16_t>(bits >> 16 & 0xFFFF);
  return 0;
}

int ReadTableValue(ParSource& source, std::string_view prefix, std::string_view name, const Conversion& conversion,
                   Words words, std::span<std::uint16_t> table, std::size_t index) {
  return ReadTableValue(source, std::string(prefix) + std::string(name), conversion, words, table, index);
}

int ReadTableValues(ParSource& source, std::string_view prefix, std::string_view name, const Conversion& conversion,
                    Words words, std::span<std::uint16_t> table, std::size_t index, std::size_t count) {
  const std::size_t step = words == Words::one ? 1 : 2;
  int errors = 0;
  for (std::size_t i = 0; i < count; ++i) {
    errors += ReadTableValue(source, prefix, indexed(name, i), conversion, words, table, index + i * step);
  }
  return errors;
}

}  // namespace sonivo::classic
