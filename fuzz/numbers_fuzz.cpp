// Numbers of the command line: what parses as a whole number parses as the same decimal number, prints back to the same
// value, and a decimal number is finite.

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "apps/tool/numbers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace sonivo::tool;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto whole = parse_whole_number(text);
  const auto decimal = parse_decimal_number(text);
  if (decimal && !std::isfinite(*decimal)) std::abort();
  if (whole && (decimal != static_cast<double>(*whole) || parse_whole_number(std::to_string(*whole)) != whole))
    std::abort();
  return 0;
}
