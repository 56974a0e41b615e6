#pragma once

#include <stdexcept>

namespace sonivo::tool {

/// A command that can't be carried out. The text is one line that says what is wrong and what to do about it.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A command line that makes no sense. The text is one line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace sonivo::tool
