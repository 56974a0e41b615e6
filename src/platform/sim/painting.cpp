#include "platform/sim/painting.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <utility>

#include "platform/sim/live_mark.h"

namespace sonivo::sim {
namespace {

/// Size from the headers of a BMP file; a negative height there means rows from the top down.
std::optional<Size> size_of_bmp(const std::filesystem::path& file) {
  constexpr std::size_t kSizeOffset = 18;
  std::array<char, 26> head{};
  std::ifstream in(file, std::ios::binary);
  if (!in.read(head.data(), head.size()) || head[0] != 'B' || head[1] != 'M') return std::nullopt;
  std::array<std::int32_t, 2> size{};
  std::memcpy(size.data(), head.data() + kSizeOffset, sizeof size);
  if (size[0] <= 0 || size[1] == 0 || size[1] == INT32_MIN) return std::nullopt;
  return Size{size[0], std::abs(size[1])};
}

}  // namespace

class SimPainting::LoadedBitmap final : public Bitmap {
 public:
  LoadedBitmap(SimPainting& painting, std::filesystem::path its_file, Size size)
      : file(std::move(its_file)), painting_(painting), size_(size), mark_(painting.live_bitmaps_) {}
  ~LoadedBitmap() override { painting_.model_.script.enter(Step::bitmap_delete); }

  Size size() const override { return size_; }

  const std::filesystem::path file;

 private:
  SimPainting& painting_;
  const Size size_;
  LiveMark mark_;
};

class SimPainting::WindowPainter final : public Painter {
 public:
  WindowPainter(SimPainting& painting, WindowHandle window)
      : painting_(painting), picture_{0, window, {}}, mark_(painting.live_painters_) {}
  ~WindowPainter() override {
    painting_.model_.script.enter(Step::paint_end);
    std::scoped_lock lock(painting_.model_.scheduler.mutex());
    picture_.time = painting_.model_.scheduler.now();
    painting_.pictures_.push_back(std::move(picture_));
  }

  bool stretch(const Bitmap& bitmap, const Rect& source, const Rect& target) override {
    if (painting_.model_.script.enter(Step::paint_stretch)) return false;
    picture_.strokes.push_back({static_cast<const LoadedBitmap&>(bitmap).file, source, target});
    return true;
  }

  bool frame(const Rect& rect, std::int32_t width) override {
    if (painting_.model_.script.enter(Step::paint_frame)) return false;
    picture_.strokes.push_back({{}, {}, rect, width});
    return true;
  }

 private:
  SimPainting& painting_;
  Picture picture_;
  LiveMark mark_;
};

std::unique_ptr<Bitmap> SimPainting::load_bitmap(const std::filesystem::path& file) {
  if (model_.script.enter(Step::bitmap_load)) return nullptr;
  const auto size = size_of_bmp(file);
  if (!size) return nullptr;
  return std::make_unique<LoadedBitmap>(*this, file, *size);
}

std::unique_ptr<Painter> SimPainting::begin(WindowHandle window) {
  if (model_.script.enter(Step::paint_begin)) return nullptr;
  std::scoped_lock lock(model_.scheduler.mutex());
  const Window* const known = model_.windows.find(window);
  if (known == nullptr || known->owner != model_.current_thread()) return nullptr;
  return std::make_unique<WindowPainter>(*this, window);
}

std::vector<Picture> SimPainting::pictures() const {
  std::scoped_lock lock(model_.scheduler.mutex());
  return pictures_;
}

}  // namespace sonivo::sim
