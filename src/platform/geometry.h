#pragma once

#include <cstdint>

namespace sonivo {

/// A place on the screen, or relative to a window's upper left corner. Pixels; y grows downward.
struct Point {
  std::int32_t x = 0;
  std::int32_t y = 0;

  friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
  std::int32_t width = 0;
  std::int32_t height = 0;

  friend bool operator==(const Size&, const Size&) = default;
};

/// Pixels from left to right - 1 and from top to bottom - 1.
struct Rect {
  std::int32_t left = 0;
  std::int32_t top = 0;
  std::int32_t right = 0;
  std::int32_t bottom = 0;

  std::int32_t width() const { return right - left; }
  std::int32_t height() const { return bottom - top; }
  bool contains(Point point) const { return point.x >= left && point.x < right && point.y >= top && point.y < bottom; }

  friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace sonivo
