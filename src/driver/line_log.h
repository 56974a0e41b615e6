#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "driver/monotonic_time.h"

namespace sonivo::driver {

/// Lines of a log, written to a descriptor without waiting for who reads it, and at most a few at once: clients can
/// cause lines, and must fill no disk with them. A line that the limit or a full pipe keeps out is dropped; the next
/// one that is written comes after a line that says how many. One thread.
class LineLog {
 public:
  static constexpr int kBurst = 60;       ///< lines at once
  static constexpr int kPerSecond = 5;    ///< lines on the average
  static constexpr int kMaxBytes = 4096;  ///< of a line; the rest is cut off

  /// `name` stands before each line. The descriptor stays the caller's.
  LineLog(int file, std::string name, Now now);

  /// The line ends with a newline.
  void write(std::string_view line);

 private:
  bool has_room() const;
  bool may_write();
  bool write_now(std::string_view line);

  int file_;
  std::string name_;
  Now now_;
  std::uint64_t filled_at_;
  int left_ = kBurst;
  std::uint64_t dropped_ = 0;
};

}  // namespace sonivo::driver
