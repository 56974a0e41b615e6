#pragma once

#include <filesystem>
#include <memory>

#include "platform/geometry.h"
#include "platform/message.h"

namespace sonivo {

/// A picture in memory.
class Bitmap {
 public:
  virtual ~Bitmap() = default;
  virtual Size size() const = 0;
};

/// Paints into one window, in its own coordinates. Destroying it brings the picture to the screen.
class Painter {
 public:
  virtual ~Painter() = default;
  /// Copies a part of the bitmap, stretched to the target.
  virtual bool stretch(const Bitmap& bitmap, const Rect& source, const Rect& target) = 0;
  /// A white frame of this width inside the rectangle.
  virtual bool frame(const Rect& rect, std::int32_t width) = 0;
};

class Painting {
 public:
  virtual ~Painting() = default;
  /// Reads a BMP file; null when it can't be read.
  virtual std::unique_ptr<Bitmap> load_bitmap(const std::filesystem::path& file) = 0;
  /// On the window's thread. Null when it can't be painted.
  virtual std::unique_ptr<Painter> begin(WindowHandle window) = 0;
};

}  // namespace sonivo
