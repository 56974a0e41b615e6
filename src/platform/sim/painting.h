#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "platform/painting.h"
#include "platform/sim/desktop_model.h"

namespace sonivo::sim {

struct Stroke {
  std::filesystem::path bitmap;  ///< file it was loaded from; empty: a frame
  Rect source;                   ///< empty for a frame
  Rect target;
  std::int32_t width = 0;  ///< of a frame

  friend bool operator==(const Stroke&, const Stroke&) = default;
};

/// What one painter painted.
struct Picture {
  Time time = 0;  ///< of its end
  WindowHandle window = WindowHandle::none;
  std::vector<Stroke> strokes;
};

/// Keeps what is painted, as strokes; of a bitmap file it reads the size and leaves the pixels.
class SimPainting final : public Painting {
 public:
  explicit SimPainting(DesktopModel& model) : model_(model) {}

  // Painting
  std::unique_ptr<Bitmap> load_bitmap(const std::filesystem::path& file) override;
  std::unique_ptr<Painter> begin(WindowHandle window) override;

  /// All that was painted, in order.
  std::vector<Picture> pictures() const;
  std::size_t live_bitmaps() const { return static_cast<std::size_t>(live_bitmaps_.load()); }
  std::size_t live_painters() const { return static_cast<std::size_t>(live_painters_.load()); }

 private:
  class LoadedBitmap;
  class WindowPainter;

  DesktopModel& model_;
  std::vector<Picture> pictures_;
  std::atomic<int> live_bitmaps_ = 0;
  std::atomic<int> live_painters_ = 0;
};

}  // namespace sonivo::sim
