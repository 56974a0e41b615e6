#include "meridane/io/number_text.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "meridane/error.h"

namespace meridane {
namespace {

template <class Number>
std::string shortest(Number value) {
  std::array<char, 32> text;
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

/// Whether a number beyond the range of a float is too small for it, not too large: by the place of its first digit and
/// its exponent.
bool is_tiny(std::string_view text) {
  const std::size_t mantissa = std::min(text.find_first_of("eE"), text.size());
  const std::size_t point = std::min(text.find('.'), mantissa);
  const auto places = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(text.find_first_of("123456789"));
  if (mantissa == text.size()) return places < 0;
  const std::string_view digits = text.substr(mantissa + (text.substr(mantissa + 1).starts_with('+') ? 2 : 1));
  std::int64_t exponent = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
  if (result.ec != std::errc()) return digits.starts_with('-');
  return exponent < -places;
}

template <class Number>
Number parsed(std::string_view text) {
  const bool plus = text.starts_with('+') && !text.starts_with("+-");
  const char* const first = text.data() + (plus ? 1 : 0);
  const char* const end = text.data() + text.size();
  Number value{};
  const auto result = std::from_chars(first, end, value);
  const bool is_number = result.ptr == end;  // all its digits are read where it's out of range too
  if constexpr (std::is_floating_point_v<Number>) {
    if (is_number && result.ec == std::errc::result_out_of_range && is_tiny(text)) return text[0] == '-' ? -0.0f : 0.0f;
  }
  if (!is_number || result.ec != std::errc()) raise("Invalid number \"%s\"", std::string(text).c_str());
  return value;
}

}  // namespace

std::string number_text(float value) { return shortest(value); }
std::string number_text(int value) { return shortest(value); }
float float_of(std::string_view text) { return parsed<float>(text); }
int int_of(std::string_view text) { return parsed<int>(text); }
std::uint64_t size_of(std::string_view text) { return parsed<std::uint64_t>(text); }

}  // namespace meridane
