#include "platform/linux/pipewire/frame_slip.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "counting_audio.h"

namespace sonivo::pipewire {
namespace {

using test::StereoFrame;

constexpr std::size_t kDelay = 8;

/// Slip after slip, until there is no more input or room.
FrameSlip::Moved process(FrameSlip& slip, const std::vector<StereoFrame>& in, std::vector<StereoFrame>& out) {
  FrameSlip::Moved all;
  for (FrameSlip::Moved moved{1, 1, 0}; moved.taken + moved.given != 0;) {
    moved = slip.process(reinterpret_cast<const std::byte*>(in.data() + all.taken), in.size() - all.taken,
                         reinterpret_cast<std::byte*>(out.data() + all.given), out.size() - all.given);
    all.taken += moved.taken;
    all.given += moved.given;
    all.slipped += moved.slipped;
  }
  return all;
}

std::vector<StereoFrame> slipped(FrameSlip& slip, const std::vector<StereoFrame>& in, std::size_t room) {
  std::vector<StereoFrame> out(room);
  out.resize(process(slip, in, out).given);
  return out;
}

std::vector<StereoFrame> sine(std::size_t count, double cycles_per_frame) {
  std::vector<StereoFrame> frames(count);
  for (std::size_t n = 0; n < count; ++n) {
    const auto value = static_cast<std::int16_t>(
        std::lround(10000 * std::sin(2 * std::numbers::pi * cycles_per_frame * static_cast<double>(n))));
    frames[n] = {value, value};
  }
  return frames;
}

TEST(FrameSlip, AtRestFramesPassBitForBitEightLater) {
  FrameSlip slip(pcm_format(48000, 16, 2));
  const auto in = test::counting_frames(5000);
  const auto out = slipped(slip, in, 6000);
  ASSERT_EQ(out.size(), in.size());
  for (std::size_t n = kDelay; n < out.size(); ++n) ASSERT_EQ(out[n], in[n - kDelay]) << n;
}

TEST(FrameSlip, SamplesOf24BitsPassBitForBit) {
  FrameSlip slip(pcm_format(48000, 24, 1));
  std::vector<std::byte> in(3 * 300);
  for (std::size_t i = 0; i < in.size(); ++i) in[i] = static_cast<std::byte>(i * 37);
  std::vector<std::byte> out(in.size());
  EXPECT_EQ(slip.process(in.data(), 300, out.data(), 300).given, 300u);
  EXPECT_TRUE(std::equal(in.begin(), in.end() - 3 * kDelay, out.begin() + 3 * kDelay));
}

TEST(FrameSlip, AfterAResetNothingIsLeftOfTheFramesBefore) {
  FrameSlip slip(pcm_format(48000, 16, 2));
  FrameSlip fresh(pcm_format(48000, 16, 2));
  slip.want(1);
  slipped(slip, sine(1500, 0.01), 1400);  // in the midst of its second slip
  slip.reset();
  fresh.want(1);
  const auto in = sine(3000, 0.02);
  EXPECT_EQ(slipped(slip, in, 2500), slipped(fresh, in, 2500));
}

TEST(FrameSlip, EachThousandFramesTakeOneMoreOrOneFewerIn) {
  for (const std::int32_t direction : {1, -1}) {
    FrameSlip slip(pcm_format(48000, 16, 2));
    slip.want(direction);
    const auto in = test::counting_frames(20000);
    std::vector<StereoFrame> out(10000);
    const auto moved = process(slip, in, out);
    EXPECT_EQ(moved.given, 10000u);
    EXPECT_NEAR(moved.slipped, 10 * direction, 1) << direction;
    EXPECT_NEAR(static_cast<double>(moved.taken), 10000.0 + 10 * direction, 1) << direction;
  }
}

TEST(FrameSlip, ItStopsAtTheEndOfASlipSoThatAnotherCanBeWanted) {
  for (const std::int32_t direction : {1, -1}) {
    FrameSlip slip(pcm_format(48000, 16, 2));
    slip.want(direction);
    const auto in = test::counting_frames(4000);
    std::vector<StereoFrame> out(3000);
    std::vector<std::size_t> ends;
    std::size_t taken = 0;
    std::size_t given = 0;
    for (int i = 0; i < 3; ++i) {
      const auto moved = slip.process(reinterpret_cast<const std::byte*>(in.data() + taken), in.size() - taken,
                                      reinterpret_cast<std::byte*>(out.data() + given), out.size() - given);
      taken += moved.taken;
      given += moved.given;
      EXPECT_EQ(moved.slipped, i < 2 ? direction : 0) << i;
      slip.want(i == 0 ? direction : 0);
    }
    EXPECT_EQ(given, 3000u);
    EXPECT_EQ(static_cast<std::int64_t>(taken), 3000 + 2 * direction);
  }
}

TEST(FrameSlip, ASlipThatBeganIsCarriedThroughAndThenFramesPassBitForBitAgain) {
  for (const std::int32_t direction : {1, -1}) {
    FrameSlip slip(pcm_format(48000, 16, 2));
    slip.want(direction);
    const auto in = test::counting_frames(20000);
    std::vector<StereoFrame> begun(100);
    const auto moved = process(slip, in, begun);
    slip.want(0);
    const auto out = slipped(slip, {in.begin() + static_cast<std::ptrdiff_t>(moved.taken), in.end()}, 18000);
    const std::size_t first = begun.size() - kDelay + static_cast<std::size_t>(direction);
    for (std::size_t n = 1000; n < 17000; ++n) ASSERT_EQ(out[n], in[n + first]) << direction << " " << n;
  }
}

TEST(FrameSlip, ATonePassesTheSlipWithoutAClick) {
  FrameSlip slip(pcm_format(48000, 16, 2));
  slip.want(1);
  const double cycles = 1000.0 / 48000;
  const auto out = slipped(slip, sine(9000, cycles), 8000);
  // A tone's step is at most its amplitude times its angular step; a thousandth more, and two of rounding.
  const double largest = 10000 * 2 * std::numbers::pi * cycles * 1.002 + 2;
  for (std::size_t n = 20; n < out.size(); ++n) ASSERT_LE(std::abs(out[n][0] - out[n - 1][0]), largest) << n;
  // sin(w t) at t = n - 8 + n / 1000 while every slip follows the one before.
  for (std::size_t n = 20; n < out.size(); ++n) {
    const double t = static_cast<double>(n) * 1.001 - static_cast<double>(kDelay);
    ASSERT_NEAR(out[n][0], 10000 * std::sin(2 * std::numbers::pi * cycles * t), 12) << n;
  }
}

TEST(FrameSlip, AConstantPassesTheSlipAsItIs) {
  FrameSlip slip(pcm_format(48000, 16, 2));
  slip.want(1);
  const std::vector<StereoFrame> in(3000, StereoFrame{32000, -32000});
  const auto out = slipped(slip, in, 2900);
  for (std::size_t n = 2 * kDelay; n < out.size(); ++n) ASSERT_EQ(out[n], in[n]) << n;
}

TEST(FrameSlip, PiecesOfAnySizeGiveTheSame) {
  FrameSlip whole(pcm_format(48000, 16, 2));
  FrameSlip pieces(pcm_format(48000, 16, 2));
  whole.want(-1);
  pieces.want(-1);
  const auto in = test::counting_frames(4000);
  const auto expected = slipped(whole, in, 5000);
  std::vector<StereoFrame> out;
  for (std::size_t at = 0, size = 1; at < in.size(); size = size % 7 + 1) {
    const std::size_t n = std::min(size, in.size() - at);
    const auto part = slipped(
        pieces, {in.begin() + static_cast<std::ptrdiff_t>(at), in.begin() + static_cast<std::ptrdiff_t>(at + n)}, 100);
    out.insert(out.end(), part.begin(), part.end());
    at += n;
  }
  EXPECT_EQ(out, expected);
}

}  // namespace
}  // namespace sonivo::pipewire
