#pragma once

#include <cstdarg>
#include <stdexcept>
#include <string>

#include "meridane/source_location.h"

namespace meridane {

/// Any failure of the engine. what() is the message alone; where it was raised can be asked for.
class BaseRuntimeError : public std::runtime_error {
 public:
  BaseRuntimeError(const std::string& message, std::string file, unsigned line, std::string function)
      : std::runtime_error(message), file_(std::move(file)), line_(line), function_(std::move(function)) {}

  const std::string& file() const { return file_; }          ///< base name of the source
  unsigned line() const { return line_; }                    ///< line in it
  const std::string& function() const { return function_; }  ///< qualified name

 private:
  std::string file_;
  unsigned line_;
  std::string function_;
};

struct DimensionMismatchError : BaseRuntimeError {
  using BaseRuntimeError::BaseRuntimeError;
};
struct TypeMismatchError : BaseRuntimeError {
  using BaseRuntimeError::BaseRuntimeError;
};
struct MissingTagError : BaseRuntimeError {
  using BaseRuntimeError::BaseRuntimeError;
};
struct InvalidFormat : BaseRuntimeError {
  using BaseRuntimeError::BaseRuntimeError;
};
struct BuilderNotFound : BaseRuntimeError {
  using BaseRuntimeError::BaseRuntimeError;
};
struct InvalidOutportError : BaseRuntimeError {
  using BaseRuntimeError::BaseRuntimeError;
};

/// A printf format together with the place that uses it.
struct Format {
  const char* text;
  SourceLocation where;
  // NOLINTNEXTLINE(google-explicit-constructor): a literal stands for itself
  consteval Format(const char* format, SourceLocation place = SourceLocation::current()) : text(format), where(place) {}
};

inline constexpr std::size_t kLongestMessage = 8192;

/// The printf-style text, cut after kLongestMessage characters.
std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string base_name(const char* path);
/// "meridane::NNGraph::add_link" of a whole signature.
std::string qualified_name(const char* signature);

/// Reports a failure: throws Error with the text. Every failure of the engine goes through here.
template <class Error = BaseRuntimeError, class... Arguments>
[[noreturn]] void raise(Format format, Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  throw Error(formatted(format.text, arguments...), base_name(format.where.file_name()), format.where.line(),
              qualified_name(format.where.function_name()));
#pragma GCC diagnostic pop
}

}  // namespace meridane
