#pragma once

#include <string_view>

namespace sonivo::classic {

// What one line of a par file says about a key. But for raw values, lines come without their line feed.

enum class LineMatch {
  none,  ///< the line is about something else
  bad,   ///< the key stands here, but no value of the wanted form
  found,
};

struct LineValue {
  LineMatch match = LineMatch::none;
  std::string_view text{};  ///< the value, a part of the line; empty unless found
};

/// "KEY = 12 and anything": the first run of digits, "+", "-" and "." behind the "=".
LineValue number_of(std::string_view line, std::string_view key);

/// "KEY = TOKEN and anything": blanks, tabs and commas end the token.
LineValue token_of(std::string_view line, std::string_view key);

/// KEY = "TEXT" # with nothing but white space or a comment behind it. Commas separate nothing here.
LineValue quoted_of(std::string_view line, std::string_view key);

/// "KEYanything=VALUE": all of what stands behind the first "=", blanks and line feed included.
LineValue raw_of(std::string_view line, std::string_view key);

}  // namespace sonivo::classic
