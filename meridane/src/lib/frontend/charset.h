#pragma once

#include <string>

namespace meridane {

/// Shift-JIS, with the extensions of code page 932, to UTF-8. Throws "\"TEXT\" is not Shift-JIS", and
/// "There is no converter from Shift-JIS" where the machine has none.
std::string utf8_of_sjis(const std::string& text);

}  // namespace meridane
