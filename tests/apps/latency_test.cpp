#include "apps/tool/latency.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <random>

namespace sonivo::tool {
namespace {

using Signal = std::function<float(std::size_t frame, std::size_t channel)>;

PcmAudio audio_of(std::size_t frames, std::uint16_t channels, const Signal& signal, std::uint16_t bits = 16) {
  PcmAudio audio;
  audio.bits = bits;
  audio.channels = channels;
  for (std::size_t n = 0; n < frames; ++n) {
    for (std::size_t c = 0; c < channels; ++c) append_float(audio, signal(n, c));
  }
  return audio;
}

PcmAudio delayed(const PcmAudio& audio, std::size_t frames, std::size_t tail) {
  PcmAudio later = audio;
  later.bytes.insert(later.bytes.begin(), frames * audio.bytes_per_frame(), std::byte{0});
  later.bytes.insert(later.bytes.end(), tail * audio.bytes_per_frame(), std::byte{0});
  return later;
}

Signal noise() {
  return [random = std::minstd_rand(1)](std::size_t, std::size_t) mutable {
    return static_cast<float>(random()) / static_cast<float>(std::minstd_rand::max()) - 0.5f;
  };
}

void expect_latency(const PcmAudio& input, const PcmAudio& output, std::size_t frames) {
  const Latency latency = measure_latency(input, output, 5000);
  EXPECT_EQ(latency.outcome, Latency::Outcome::measured);
  EXPECT_EQ(latency.frames, frames);
}

TEST(Latency, FindsTheShiftOfNoise) {
  for (const std::size_t shift : {0u, 1u, 479u, 3360u, 5000u}) {
    const PcmAudio input = audio_of(20000, 1, noise());
    expect_latency(input, delayed(input, shift, 2000), shift);
  }
}

TEST(Latency, FindsTheShiftOfManyChannelsAnd24Bits) {
  const PcmAudio input = audio_of(9000, 4, noise(), 24);
  expect_latency(input, delayed(input, 1234, 0), 1234);
}

TEST(Latency, FindsTheShiftOfChannelsThatCancelEachOther) {
  const PcmAudio input = audio_of(9000, 2, [source = noise(), last = 0.f](std::size_t n, std::size_t c) mutable {
    last = c == 0 ? source(n, c) : -last;
    return last;
  });
  expect_latency(input, delayed(input, 777, 100), 777);
}

TEST(Latency, FindsTheShiftOfAToneThatRepeatsItself) {
  const PcmAudio input = audio_of(48000, 1, [](std::size_t n, std::size_t) {
    return 0.5f * static_cast<float>(std::sin(2 * std::numbers::pi * static_cast<double>(n % 48) / 48));
  });
  expect_latency(input, delayed(input, 1000, 0), 1000);
}

TEST(Latency, FindsTheShiftOfAFileShorterThanItsWindow) {
  const PcmAudio input = audio_of(10, 1, noise());
  expect_latency(input, delayed(input, 3000, 2000), 3000);
}

TEST(Latency, FindsTheShiftWhenTheVolumeDiffers) {
  const PcmAudio input = audio_of(9000, 1, noise());
  PcmAudio quiet = input;
  quiet.bytes.clear();
  for (std::size_t i = 0; i < input.samples(); ++i) append_float(quiet, 0.1f * sample_at(input, i));
  expect_latency(input, delayed(quiet, 600, 0), 600);
}

/// A shift by one period of the pitch resembles a voice in which a part is lost more than the right one, if only few
/// periods are looked at.
TEST(Latency, FindsTheShiftOfAVoiceThatIsDampedForAShortWhile) {
  const PcmAudio input = audio_of(24000, 1, [](std::size_t n, std::size_t) {
    const double t = static_cast<double>(n) / 48000;
    double sum = 0;
    for (int h = 1; h <= 20; ++h) sum += std::sin(h * 2 * std::numbers::pi * (120 + 12.5 * t) * t) / h;
    return static_cast<float>(0.2 * std::sin(std::numbers::pi * t / 0.5) * sum);
  });
  PcmAudio damped = input;
  damped.bytes.clear();
  for (std::size_t i = 0; i < input.samples(); ++i) {
    append_float(damped, sample_at(input, i) * (i >= 10000 && i < 12000 ? 0.2f : 1.0f));
  }
  expect_latency(input, delayed(damped, 3500, 2000), 3500);
}

TEST(Latency, SaysThatSilenceHasNone) {
  const PcmAudio input = audio_of(9000, 1, [](std::size_t, std::size_t) { return 0.f; });
  EXPECT_EQ(measure_latency(input, delayed(input, 10, 10), 5000).outcome, Latency::Outcome::input_silent);
  EXPECT_EQ(measure_latency(PcmAudio(), PcmAudio(), 5000).outcome, Latency::Outcome::input_silent);
}

TEST(Latency, SaysThatStrangersHaveNone) {
  const PcmAudio input = audio_of(20000, 1, noise());
  Signal other = noise();
  for (int i = 0; i < 999; ++i) other(0, 0);
  const PcmAudio output = audio_of(24000, 1, [&other](std::size_t n, std::size_t c) { return std::abs(other(n, c)); });
  EXPECT_EQ(measure_latency(input, output, 500).outcome, Latency::Outcome::no_resemblance);
}

}  // namespace
}  // namespace sonivo::tool
