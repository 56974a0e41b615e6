#pragma once

#include <string>

namespace meridane {

/// Expands the "${...}" expressions of a text from a parameter document. Expressions aren't evaluated by this version:
/// a text that holds one is refused by name.
std::string expand_script(const std::string& text);

}  // namespace meridane
