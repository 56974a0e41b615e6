#pragma once

#include <string>
#include <string_view>

namespace sonivo::tool {

/// The text with control characters, and bytes that are no UTF-8, written out: \n, \r, \t or \x and two hexadecimal
/// digits a byte. For terminals, which obey them, and readers; not to be parsed back, as a backslash stays one.
std::string printable(std::string_view text);

}  // namespace sonivo::tool
