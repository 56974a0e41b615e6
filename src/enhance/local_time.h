#pragma once

#include <array>

namespace sonivo {

/// What a calendar and a clock on the wall show; without allocation.
struct LocalTime {
  int year, month, day, hour, minute, second, millisecond;

  static LocalTime now();
  /// "20260131_235959", as names of files hold it.
  std::array<char, 16> for_file_name() const;
};

}  // namespace sonivo
