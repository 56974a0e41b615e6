#pragma once

#include <string>
#include <string_view>

namespace sonivo {

/// UTF-8 to UTF-16. An ill-formed sequence becomes U+FFFD, one for each byte that starts none.
std::u16string to_utf16(std::string_view utf8);

/// UTF-16 to UTF-8. An unpaired surrogate becomes U+FFFD.
std::string to_utf8(std::u16string_view utf16);

/// ASCII letters in lower case, everything else as it is.
std::string to_lower_ascii(std::string_view text);

/// Equality that ignores the case of ASCII letters.
bool equals_ignoring_case(std::string_view a, std::string_view b);

inline bool contains(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

}  // namespace sonivo
