#include "platform/sim/painting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "desktop_bench.h"

namespace sonivo::sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PaintingTest : public DesktopBench {
 protected:
  ~PaintingTest() override { std::filesystem::remove_all(folder); }

  /// A BMP file without pixels.
  std::filesystem::path bitmap_file(std::int32_t width, std::int32_t height, const char* tag = "BM") {
    std::array<char, 54> head{};
    std::memcpy(&head[0], tag, 2);
    std::memcpy(&head[18], &width, sizeof width);
    std::memcpy(&head[22], &height, sizeof height);
    std::filesystem::create_directories(folder);
    const auto file = folder / (std::to_string(++files) + ".bmp");
    std::ofstream(file, std::ios::binary).write(head.data(), head.size());
    return file;
  }

  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) /
      (std::string("painting_") + testing::UnitTest::GetInstance()->current_test_info()->name());
  int files = 0;
  SimPainting& painting = desktop.painting();
};

TEST_F(PaintingTest, ABitmapTellsTheSizeInItsFile) {
  const auto bitmap = painting.load_bitmap(bitmap_file(288, 300));
  ASSERT_NE(bitmap, nullptr);
  EXPECT_EQ(bitmap->size(), (Size{288, 300}));
  const auto top_down = painting.load_bitmap(bitmap_file(96, -192));
  ASSERT_NE(top_down, nullptr);
  EXPECT_EQ(top_down->size(), (Size{96, 192}));
  EXPECT_EQ(machine.leaks().bitmaps, 2u);
}

TEST_F(PaintingTest, WhatIsNoBitmapFileIsRefused) {
  EXPECT_EQ(painting.load_bitmap(folder / "missing.bmp"), nullptr);
  EXPECT_EQ(painting.load_bitmap(bitmap_file(96, 96, "PN")), nullptr);
  EXPECT_EQ(painting.load_bitmap(bitmap_file(0, 96)), nullptr);
  EXPECT_EQ(painting.load_bitmap(bitmap_file(96, 0)), nullptr);
  EXPECT_EQ(painting.load_bitmap(bitmap_file(96, INT32_MIN)), nullptr);
  const auto cut = bitmap_file(96, 96);
  std::filesystem::resize_file(cut, 25);
  EXPECT_EQ(painting.load_bitmap(cut), nullptr);
  EXPECT_EQ(machine.leaks().bitmaps, 0u);
}

TEST_F(PaintingTest, APictureIsItsStrokesInOrderOnceThePainterIsDone) {
  const WindowHandle handle = shown_window();
  const auto file = bitmap_file(96, 192);
  const auto bitmap = painting.load_bitmap(file);
  auto painter = painting.begin(handle);
  ASSERT_NE(painter, nullptr);
  EXPECT_TRUE(painter->stretch(*bitmap, {0, 96, 96, 192}, {0, 0, 48, 48}));
  EXPECT_TRUE(painter->frame({0, 0, 96, 96}, 2));
  EXPECT_THAT(painting.pictures(), IsEmpty());
  EXPECT_EQ(machine.leaks().painters, 1u);
  machine.run_for(4);
  painter.reset();
  const auto pictures = painting.pictures();
  ASSERT_EQ(pictures.size(), 1u);
  EXPECT_EQ(pictures[0].time, 1'000'004 * kMillisecond);
  EXPECT_EQ(pictures[0].window, handle);
  EXPECT_THAT(pictures[0].strokes,
              ElementsAre(Stroke{file, {0, 96, 96, 192}, {0, 0, 48, 48}, 0}, Stroke{{}, {}, {0, 0, 96, 96}, 2}));
  EXPECT_EQ(machine.leaks().painters, 0u);
}

TEST_F(PaintingTest, EveryOperationFailsAsScripted) {
  const WindowHandle handle = shown_window();
  const auto file = bitmap_file(96, 192);
  script.fail(Step::bitmap_load, 1);
  EXPECT_EQ(painting.load_bitmap(file), nullptr);
  script.fail(Step::paint_begin, 1);
  EXPECT_EQ(painting.begin(handle), nullptr);
  EXPECT_EQ(painting.begin(WindowHandle{4}), nullptr);
  {
    const auto bitmap = painting.load_bitmap(file);
    const auto painter = painting.begin(handle);
    script.fail(Step::paint_stretch, 1);
    EXPECT_FALSE(painter->stretch(*bitmap, {}, {}));
    script.fail(Step::paint_frame, 1);
    EXPECT_FALSE(painter->frame({}, 2));
  }
  EXPECT_EQ(script.count(Step::paint_end), 1u);
  EXPECT_EQ(script.count(Step::bitmap_delete), 1u);
  EXPECT_THAT(painting.pictures().at(0).strokes, IsEmpty());
}

}  // namespace
}  // namespace sonivo::sim
