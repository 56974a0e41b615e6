#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace meridane {

/// The shortest text that reads as the same float again.
std::string number_text(float value);
std::string number_text(int value);

/// The nearest float, which of a number close to zero can be 0. Throws "Invalid number \"TEXT\"" for a text that isn't
/// one number, whole, and for one too large for a float.
float float_of(std::string_view text);
/// The same for integers of 32 bits.
int int_of(std::string_view text);
/// The same for sizes.
std::uint64_t size_of(std::string_view text);

}  // namespace meridane
