#pragma once

#include <stdexcept>
#include <string>

#include "meridane/error.h"

namespace sonivo::e2e {

/// Any failure of the model runtime: throws the printf-style text, whose last two fields, %s and %d, are filled with
/// the source's name and line. `arguments` are those of the fields before them.
template <class Error = std::runtime_error, class... Arguments>
[[noreturn]] void raise(meridane::Format format, Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  throw Error(meridane::formatted(format.text, arguments..., meridane::base_name(format.where.file_name()).c_str(),
                                  static_cast<int>(format.where.line())));
#pragma GCC diagnostic pop
}

}  // namespace sonivo::e2e
