#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace sonivo::test {

/// Sets a variable of the environment for a while.
class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) {
    if (const char* const was = std::getenv(name)) was_ = was;
    if (value != nullptr) {
      ::setenv(name, value, 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~Variable() {
    if (was_) {
      ::setenv(name_, was_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* name_;
  std::optional<std::string> was_;
};

}  // namespace sonivo::test
