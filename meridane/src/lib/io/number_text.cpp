#include "meridane/io/number_text.h"

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

template <class Number>
Number number_of(std::string_view text) {
  const bool plus = text.starts_with('+') && !text.starts_with("+-");
  const char* const first = text.data() + (plus ? 1 : 0);
  const char* const end = text.data() + text.size();
  Number value{};
  const auto result = std::from_chars(first, end, value);
  // A number too close to zero, or too large, has all its digits read too: it is still refused.
  if (result.ec != std::errc() || result.ptr != end) raise("Invalid number \"%s\"", std::string(text).c_str());
  return value;
}

}  // namespace

std::string number_text(float value) { return shortest(value); }
std::string number_text(int value) { return shortest(value); }
float float_of(std::string_view text) { return number_of<float>(text); }
int int_of(std::string_view text) { return number_of<int>(text); }
std::uint64_t size_of(std::string_view text) { return number_of<std::uint64_t>(text); }

}  // namespace meridane
