#include "enhance/local_time.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace sonivo {

LocalTime LocalTime::now() {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  const auto since_epoch = duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  const std::time_t seconds = since_epoch / 1000;
  std::tm calendar{};
  localtime_r(&seconds, &calendar);
  return {calendar.tm_year + 1900,
          calendar.tm_mon + 1,
          calendar.tm_mday,
          calendar.tm_hour,
          calendar.tm_min,
          calendar.tm_sec,
          static_cast<int>(since_epoch % 1000)};
}

std::array<char, 16> LocalTime::for_file_name() const {
  std::array<char, 16> text{};
  // Each field is within its width, which the compiler can't know.
  std::snprintf(text.data(), text.size(), "%04u%02u%02u_%02u%02u%02u", static_cast<unsigned>(year) % 10000,
                static_cast<unsigned>(month) % 100, static_cast<unsigned>(day) % 100, static_cast<unsigned>(hour) % 100,
                static_cast<unsigned>(minute) % 100, static_cast<unsigned>(second) % 100);
  return text;
}

}  // namespace sonivo
