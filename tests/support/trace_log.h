#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/trace.h"

namespace sonivo::test {

/// Keeps every trace and debugger text of its lifetime, in order.
class TraceLog {
 public:
  TraceLog()
      : sink_([this](TraceLevel, std::string_view text) { add(traces_, text); },
              [this](std::string_view text) { add(debug_strings_, text); }) {}

  /// Texts in order, each with its line end.
  std::vector<std::string> traces() const { return copy(traces_); }
  std::vector<std::string> debug_strings() const { return copy(debug_strings_); }

  /// How many traces equal the text exactly.
  std::size_t count(std::string_view text) const { return count_in(traces_, text); }
  bool has(std::string_view text) const { return count(text) != 0; }
  bool has_debug_string(std::string_view text) const { return count_in(debug_strings_, text) != 0; }

  /// Names of the states that a direction went through, in order; prefix "[cap]" or "[ren]".
  std::vector<std::string> states(std::string_view prefix) const;

  void clear() {
    const std::lock_guard lock(mutex_);
    traces_.clear();
    debug_strings_.clear();
  }

 private:
  using Texts = std::vector<std::string>;
  void add(Texts& texts, std::string_view text) {
    const std::lock_guard lock(mutex_);
    texts.emplace_back(text);
  }
  Texts copy(const Texts& texts) const {
    const std::lock_guard lock(mutex_);
    return texts;
  }
  std::size_t count_in(const Texts& texts, std::string_view text) const;

  mutable std::mutex mutex_;
  Texts traces_;
  Texts debug_strings_;
  ScopedTraceSink sink_;
};

}  // namespace sonivo::test
