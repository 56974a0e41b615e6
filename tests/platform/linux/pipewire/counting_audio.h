#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numbers>
#include <string>
#include <vector>

namespace sonivo::test {

/// A signal in which no frame is like its neighbours: frame n of two 16-bit channels is (m, -m), m = 1 + n mod 30000.
/// What passes unchanged goes on counting.
using StereoFrame = std::array<std::int16_t, 2>;

/// Frames in one piece that show that audio passes unchanged: a quarter of a second, less under a sanitizer, which
/// makes the server's clients miss turns.
#if defined(SONIVO_ASAN) || defined(SONIVO_TSAN)
inline constexpr std::size_t kOnePiece = 3000;
#else
inline constexpr std::size_t kOnePiece = 12000;
#endif

inline StereoFrame counting_frame(std::uint64_t n) {
  const auto m = static_cast<std::int16_t>(1 + n % 30000);
  return {m, static_cast<std::int16_t>(-m)};
}

inline std::vector<StereoFrame> counting_frames(std::size_t count) {
  std::vector<StereoFrame> frames(count);
  for (std::size_t n = 0; n < count; ++n) frames[n] = counting_frame(n);
  return frames;
}

inline bool counts_on(const StereoFrame& frame, const StereoFrame& next) {
  return frame[0] >= 1 && frame[0] <= 30000 && frame[1] == -frame[0] && next[0] == 1 + frame[0] % 30000 &&
         next[1] == -next[0];
}

/// Lengths of the stretches in which frames count on, of two frames and more.
inline std::vector<std::size_t> counting_runs(const std::vector<StereoFrame>& frames) {
  std::vector<std::size_t> runs;
  std::size_t run = 1;
  for (std::size_t i = 1; i <= frames.size(); ++i) {
    if (i < frames.size() && counts_on(frames[i - 1], frames[i])) {
      ++run;
      continue;
    }
    if (run > 1) runs.push_back(run);
    run = 1;
  }
  return runs;
}

inline std::size_t longest_run(const std::vector<StereoFrame>& frames) {
  const auto runs = counting_runs(frames);
  return runs.empty() ? 0 : *std::max_element(runs.begin(), runs.end());
}

/// 440 Hz at this rate, with an amplitude of 10000.
inline std::vector<StereoFrame> tone_frames(std::size_t count, std::uint32_t rate_hz = 48000) {
  std::vector<StereoFrame> frames(count);
  for (std::size_t n = 0; n < count; ++n) {
    const double angle = 2 * std::numbers::pi * 440 / rate_hz * static_cast<double>(n);
    const auto value = static_cast<std::int16_t>(std::lround(10000 * std::sin(angle)));
    frames[n] = {value, value};
  }
  return frames;
}

/// Whether that tone goes on from this frame to the next, in this channel. A sine of w a frame has x[n+1] = 2 cos(w)
/// x[n]
/// - x[n-1]. Each of the three is rounded in the file and in the recording, which makes 4 at most; a thousandth of w
/// makes less than a tenth, and what conversions of the rate leave beside the tone, 90 dB below it, about 1.
inline bool tone_goes_on(const std::vector<StereoFrame>& frames, std::size_t n, std::size_t channel,
                         std::uint32_t rate_hz) {
  const auto at = [&](std::size_t frame) { return static_cast<double>(frames[frame][channel]); };
  const double turn = 2 * std::cos(2 * std::numbers::pi * 440 / rate_hz);
  return std::fabs(turn * at(n) - at(n - 1) - at(n + 1)) <= 5;
}

/// Its peak, which silence hasn't: it has no break either.
inline constexpr int kTonePeak = 9900;

/// Frames of the longest piece of that tone without a break.
inline std::size_t longest_tone(const std::vector<StereoFrame>& frames, std::uint32_t rate_hz = 48000) {
  std::size_t longest = 0, piece = 0;
  int largest = 0;  // of the piece
  for (std::size_t n = 1; n + 1 < frames.size(); ++n) {
    if (!tone_goes_on(frames, n, 0, rate_hz)) {
      piece = 0;
      largest = 0;
      continue;
    }
    ++piece;
    largest = std::max<int>(largest, frames[n][0]);
    if (largest > kTonePeak) longest = std::max(longest, piece);
  }
  return longest;
}

/// Frames from the first up to the one behind the last.
struct Stretch {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::size_t length() const { return end - begin; }
};

/// What lies between pieces of that tone of a hundredth of a second and more, in this channel.
inline std::vector<Stretch> tone_breaks(const std::vector<StereoFrame>& frames, std::size_t channel,
                                        std::uint32_t rate_hz = 48000) {
  std::vector<Stretch> breaks;
  std::size_t heard = 1, piece = 1;  // end of the tone up to now, and begin of what may be more of it
  int largest = 0;                   // of that
  for (std::size_t n = 1; n < frames.size(); ++n) {
    if (n + 1 < frames.size() && tone_goes_on(frames, n, channel, rate_hz)) {
      largest = std::max<int>(largest, frames[n][channel]);
      continue;
    }
    if (n - piece >= rate_hz / 100 && largest > kTonePeak) {
      if (piece > heard) breaks.push_back({heard, piece});
      heard = n;
    }
    piece = n + 1;
    largest = 0;
  }
  if (frames.size() > heard + rate_hz / 100) breaks.push_back({heard, frames.size()});
  return breaks;
}

/// Whether the latest half second is that tone without a break.
inline bool is_clean_tone(const std::vector<StereoFrame>& frames, std::uint32_t rate_hz = 48000) {
  const std::size_t half_second = rate_hz / 2;
  return frames.size() >= half_second &&
         longest_tone({frames.end() - rate_hz / 2, frames.end()}, rate_hz) == half_second - 2;
}

/// A WAV file of 16 bits at this rate.
inline std::string wav_of(const std::vector<StereoFrame>& frames, std::uint32_t rate_hz = 48000) {
  const auto bytes = static_cast<std::uint32_t>(frames.size() * sizeof(StereoFrame));
  struct Header {
    char riff[4] = {'R', 'I', 'F', 'F'};
    std::uint32_t size = 0;
    char wave[8] = {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
    std::uint32_t format_size = 16;
    std::uint16_t tag = 1;
    std::uint16_t channels = 2;
    std::uint32_t rate = 0;
    std::uint32_t bytes_per_second = 0;
    std::uint16_t block = 4;
    std::uint16_t bits = 16;
    char data[4] = {'d', 'a', 't', 'a'};
    std::uint32_t data_size = 0;
  } header;
  static_assert(sizeof header == 44);
  header.size = bytes + 36;
  header.rate = rate_hz;
  header.bytes_per_second = rate_hz * 4;
  header.data_size = bytes;
  std::string file(sizeof header + bytes, '\0');
  std::memcpy(file.data(), &header, sizeof header);
  std::memcpy(file.data() + sizeof header, frames.data(), bytes);
  return file;
}

inline std::string counting_wav(std::size_t count) { return wav_of(counting_frames(count)); }

/// The frames of such a file from the first wanted on, whatever chunks stand before them.
inline std::vector<StereoFrame> frames_of_wav(const std::string& path, std::size_t first = 0) {
  constexpr std::size_t kLongestHead = 4096;
  std::ifstream stream(path, std::ios::binary);
  std::string head(kLongestHead, '\0');
  stream.read(head.data(), kLongestHead);
  head.resize(static_cast<std::size_t>(stream.gcount()));
  const std::size_t data = head.find("data");
  if (data == head.npos || head.size() < data + 8) return {};
  stream.clear();
  stream.seekg(static_cast<std::streamoff>(data + 8 + first * sizeof(StereoFrame)));
  const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
  std::vector<StereoFrame> frames(bytes.size() / sizeof(StereoFrame));
  std::memcpy(frames.data(), bytes.data(), frames.size() * sizeof(StereoFrame));
  return frames;
}

/// Packed samples of 24 bits, of which these are the upper 16, and the lowest 8 are zero.
inline std::vector<std::byte> widened(const std::vector<StereoFrame>& frames) {
  std::vector<std::byte> bytes;
  for (const StereoFrame& frame : frames) {
    for (const std::int16_t sample : frame) {
      bytes.insert(bytes.end(),
                   {std::byte{0}, static_cast<std::byte>(sample & 0xFF), static_cast<std::byte>(sample >> 8)});
    }
  }
  return bytes;
}
/// The upper 16 bits of each; a sample whose lowest bits aren't zero becomes 0.
inline std::vector<StereoFrame> narrowed(const std::vector<std::byte>& bytes) {
  std::vector<StereoFrame> frames(bytes.size() / 6);
  for (std::size_t i = 0; i < frames.size() * 2; ++i) {
    const std::byte* const sample = bytes.data() + 3 * i;
    const int value = std::to_integer<int>(sample[1]) | std::to_integer<int>(sample[2]) << 8;
    frames[i / 2][i % 2] = sample[0] == std::byte{0} ? static_cast<std::int16_t>(value) : std::int16_t{0};
  }
  return frames;
}

}  // namespace sonivo::test
