#pragma once

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "counting_audio.h"
#include "own_machine_bench.h"

namespace sonivo::test {

inline constexpr std::size_t kRate = 48000;

/// How long audio may be away, and how long it may fall silent where it doesn't go: a busy machine misses turns of the
/// server now and then. Under a sanitizer, with which it misses many, audio is to come back, whenever that is.
#if defined(SONIVO_ASAN)
inline constexpr int kBackMs = 10000;
inline constexpr int kMissedMs = 2000;
inline constexpr std::size_t kHeardFrames = kRate / 50;
#else
inline constexpr int kBackMs = 2000;
inline constexpr int kMissedMs = 100;
inline constexpr std::size_t kHeardFrames = kRate / 10;
#endif

/// Whose tone it is: the right channel is the left one, or the left one turned round.
enum class Voice { first = 1, second = -1 };

inline std::vector<StereoFrame> tone_of(Voice voice, std::size_t count) {
  auto frames = tone_frames(count);
  for (StereoFrame& each : frames) each[1] = static_cast<std::int16_t>(each[1] * static_cast<int>(voice));
  return frames;
}

/// Frames of the longest piece of that voice's tone without a break.
inline std::size_t longest_piece(std::vector<StereoFrame> frames, Voice voice) {
  for (StereoFrame& each : frames) {
    if (std::abs(each[1] - each[0] * static_cast<int>(voice)) > 2) each = {};  // another's
  }
  return longest_tone(frames);
}

/// Frames of the longest stretch in which next to nothing is heard.
inline std::size_t longest_silence(const std::vector<StereoFrame>& frames) {
  std::size_t longest = 0, stretch = 0;
  for (const StereoFrame& each : frames) {
    stretch = std::abs(each[0]) < 50 ? stretch + 1 : 0;
    longest = std::max(longest, stretch);
  }
  return longest;
}

/// The programs carry a tone: one application records from the virtual microphone, and another's tone, played to the
/// virtual speaker, is recorded from the real one.
class AudibleMachineTest : public DrivenMachineTest {
 protected:
  using Clock = std::chrono::steady_clock;

  /// A moment, and how far a recording had come by then.
  struct Moment {
    Clock::time_point when;
    std::size_t frame = 0;
  };

  /// How often audio has begun to flow: from the microphone, to the speakers.
  using Streams = std::array<int, 2>;

  void SetUp() override {
    DrivenMachineTest::SetUp();
    if (!server_) return;
    for (const Voice voice : {Voice::first, Voice::second}) {
      server_->folder().write(tone_file(voice), wav_of(tone_of(voice, 60 * kRate)));
    }
  }

  static std::string tone_file(Voice voice) { return voice == Voice::first ? "first.tone" : "second.tone"; }
  ChildProcess speak_into(const std::string& microphone, Voice voice = Voice::first) {
    return server_->speak_into(microphone, folder(tone_file(voice)));
  }
  ChildProcess play() { return server_->play(kVirtualSpeaker, folder(tone_file(Voice::first))); }
  ChildProcess record(const std::string& file) { return server_->record(kVirtualMic, folder(file)); }
  ChildProcess record_speakers(const std::string& file) {
    return server_->record("notebook.speakers", folder(file), true);
  }

  Moment now(const std::string& file) { return {Clock::now(), frames_of_wav(folder(file)).size()}; }
  std::vector<StereoFrame> heard_since(const Moment& moment, const std::string& file) {
    return frames_of_wav(folder(file), moment.frame);
  }
  bool is_heard(const Moment& since, const std::string& file, Voice voice = Voice::first) {
    return comes_true([&] { return longest_piece(heard_since(since, file), voice) >= kHeardFrames; });
  }
  /// The voice is recorded again, in time after that moment, at which it began to come back.
  void expect_back(const char* what, const Moment& since, const std::string& file, Voice voice = Voice::first) {
    EXPECT_TRUE(is_heard(since, file, voice)) << what;
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since.when).count();
    std::printf("%s: back after %d ms\n", what, static_cast<int>(ms));
    EXPECT_LT(ms, kBackMs) << what;
  }
  /// What was recorded since that moment is in one piece, but for what the machine may have missed.
  void expect_unbroken(const char* what, const Moment& since, const std::string& file) {
    const auto frames = heard_since(since, file);
    const std::size_t silence_ms = longest_silence(frames) * 1000 / kRate;
    std::printf("%s: %zu ms, of which at most %zu ms silent in a row\n", what, frames.size() * 1000 / kRate,
                silence_ms);
    EXPECT_GE(frames.size(), kHeardFrames) << what;
    EXPECT_LT(silence_ms, kMissedMs) << what;
  }
  /// As the service counts them, by a report that it makes from now on.
  Streams streams_so_far() {
    const Clock::time_point start = Clock::now();
    nlohmann::json whole;
    const bool is_new = comes_true([&] {
      whole = nlohmann::json::parse(status().text, nullptr, false);
      if (!whole.is_object() || !whole["service"].is_object() || !whole["report_age_ms"].is_number()) return false;
      return Clock::now() - start > std::chrono::milliseconds(whole["report_age_ms"]);
    });
    if (!is_new) {
      ADD_FAILURE() << "no new report: " << whole;
      return {};
    }
    return {whole["service"]["capture"]["streams"], whole["service"]["render"]["streams"]};
  }
};

}  // namespace sonivo::test
