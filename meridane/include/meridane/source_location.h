#pragma once

#include <source_location>

namespace meridane {

#ifdef __cpp_lib_source_location
using SourceLocation = std::source_location;
#else
/// The standard's, for compilers that don't have it yet: functions have their bare names.
class SourceLocation {
 public:
  static constexpr SourceLocation current(const char* file = __builtin_FILE(), unsigned line = __builtin_LINE(),
                                          const char* function = __builtin_FUNCTION()) {
    SourceLocation place;
    place.file_ = file;
    place.line_ = line;
    place.function_ = function;
    return place;
  }

  constexpr const char* file_name() const { return file_; }
  constexpr unsigned line() const { return line_; }
  constexpr const char* function_name() const { return function_; }

 private:
  const char* file_ = "";
  unsigned line_ = 0;
  const char* function_ = "";
};
#endif

}  // namespace meridane
