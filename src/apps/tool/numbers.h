#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace sonivo::tool {

/// Decimal digits only, no sign, no spaces, no other base; nothing when the text is anything else or exceeds 32 bits.
std::optional<std::uint32_t> parse_whole_number(std::string_view text);

/// The same with a minus sign in front, maybe.
std::optional<std::int64_t> parse_signed_number(std::string_view text);

/// A finite decimal number such as "-12.5"; nothing when the text is anything else.
std::optional<double> parse_decimal_number(std::string_view text);

}  // namespace sonivo::tool
