#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "driver/monotonic_time.h"

namespace sonivo::driver {

/// Lines of a log, written to a descriptor without waiting for who reads it, and at most a few at once: clients can
/// cause lines, and must fill no disk with them. Of lines that differ by numbers alone, and of which each comes within
/// a minute of the former, the 1st, 10th, 100th and so on are written, with their count. A line that the limit or a
/// full pipe keeps out is dropped; the next one that is written comes after a line that says how many. One thread.
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
  /// Lines that differ by numbers alone.
  struct Kind {
    std::uint64_t count = 0;
    std::uint64_t latest_ms = 0;
  };
  /// How many of its kind there have been, with this one.
  std::uint64_t count(std::string_view line);
  void limit(std::string_view line);
  bool has_room() const;
  bool may_write();
  bool write_now(std::string_view line);

  int file_;
  std::string name_;
  Now now_;
  std::uint64_t filled_at_;
  int left_ = kBurst;
  std::uint64_t dropped_ = 0;
  std::map<std::string, Kind> kinds_;
};

}  // namespace sonivo::driver
