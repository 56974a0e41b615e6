#include "apps/tool/numbers.h"

#include <charconv>
#include <cmath>

namespace sonivo::tool {

namespace {

template <typename Number>
std::optional<Number> parse_all_of(std::string_view text) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return value;
}

}  // namespace

std::optional<std::uint32_t> parse_whole_number(std::string_view text) { return parse_all_of<std::uint32_t>(text); }

std::optional<std::int64_t> parse_signed_number(std::string_view text) {
  const bool negative = text.starts_with('-');
  const auto size = parse_whole_number(negative ? text.substr(1) : text);
  if (!size) return std::nullopt;
  return negative ? -std::int64_t{*size} : std::int64_t{*size};
}

std::optional<double> parse_decimal_number(std::string_view text) {
  const auto value = parse_all_of<double>(text);
  return value && std::isfinite(*value) ? value : std::nullopt;
}

}  // namespace sonivo::tool
