#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>

namespace sonivo::tool {

/// A bar on a terminal, drawn once the work has taken a second and at most ten times a second, wiped at the end.
class Progress {
 public:
  using Now = std::function<std::chrono::steady_clock::time_point()>;

  /// Without a terminal it draws nothing.
  Progress(std::ostream* terminal, std::uint64_t total, Now now = std::chrono::steady_clock::now);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void update(std::uint64_t done);

 private:
  std::ostream* terminal_;
  std::uint64_t total_;
  Now now_;
  std::chrono::steady_clock::time_point next_draw_;
  bool drawn_ = false;
};

/// The stream for a bar: `errors` when it is the terminal, else none.
std::ostream* progress_terminal(std::ostream& errors);

}  // namespace sonivo::tool
