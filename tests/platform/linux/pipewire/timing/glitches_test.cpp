#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "machine_watch.h"
#include "pipewire_relay_bench.h"

namespace sonivo::test {
namespace {

constexpr std::chrono::milliseconds kSettle{1500};
constexpr std::chrono::milliseconds kPause{200};  // in which a recorder writes what it has heard
constexpr std::size_t kWayCount = 2;
constexpr std::array<const char*, kWayCount> kWays{"microphone", "speaker"};

constexpr std::size_t kOurs = 0, kLoopback = 1;  // channels of each recording

using Clock = MachineWatch::Clock;

double seconds(Clock::duration time) { return std::chrono::duration<double>(time).count(); }
Clock::duration length_of(std::size_t frames) { return std::chrono::microseconds(frames * 1'000'000 / kRate); }
std::string ms_text(Clock::duration time) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f ms", 1e3 * seconds(time));
  return text.data();
}

/// A piece of one way's recording.
struct Heard {
  std::vector<StereoFrame> frames;
  Clock::time_point end;  ///< when it had come that far

  std::vector<Stretch> breaks(std::size_t channel) const { return tone_breaks(frames, channel); }
  /// To a turn or two.
  Clock::time_point moment_of(std::size_t frame) const { return end - length_of(frames.size() - frame); }
  Clock::time_point begin() const { return moment_of(0); }
  /// From the first break to the end of the last one.
  std::size_t disturbed(std::size_t channel) const {
    const auto all = breaks(channel);
    return all.empty() ? 0 : all.back().end - all.front().begin;
  }
  /// pw-play falls silent for good now and then, chiefly with the rate, and there is nothing to be heard.
  bool is_silent_at_the_end() const {
    const auto all = breaks(kLoopback);
    return !all.empty() && all.back().end == frames.size() && all.back().length() > kRate / 2;
  }
};

TEST(ToneBreaks, AreOneForEachPlaceWhereFramesAreMissingOrSilent) {
  auto frames = tone_frames(kRate);
  EXPECT_TRUE(tone_breaks(frames, 1).empty());
  std::fill_n(frames.begin() + 30000, 1000, StereoFrame{});
  frames.erase(frames.begin() + 20200);  // one with the next, a few ms before it
  frames.erase(frames.begin() + 20000);
  const auto breaks = tone_breaks(frames, 1);
  ASSERT_EQ(breaks.size(), 2u);
  EXPECT_EQ(breaks[0].begin, 19999u);
  EXPECT_NEAR(static_cast<double>(breaks[0].length()), 202, 2);
  EXPECT_NEAR(static_cast<double>(breaks[1].length()), 1000, 2);
  EXPECT_EQ(tone_breaks(std::vector<StereoFrame>(kRate), 1).size(), 1u);
}

/// One tone goes both ways through the relay and, beside it, through the server's own loopback. For each way an
/// application records both, so that what it misses itself is in both.
class GlitchesTest : public PipeWireRelayTest {
 protected:
  void SetUp() override {
    PipeWireRelayTest::SetUp();
    if (!half_) return;
    const sched_param plain{};  // what is read and reckoned here isn't to be in the relay's way
    ASSERT_EQ(::sched_setscheduler(0, SCHED_OTHER, &plain), 0);
    tone_ = server_->folder().write("tone.wav", wav_of(tone_frames(180 * kRate)));
    loop("{ node.name = loop.in target.object = notebook.microphone node.passive = true }",
         "{ node.name = loop.microphone media.class = Audio/Source }");
    loop("{ node.name = loop.speaker media.class = Audio/Sink }",
         "{ node.name = loop.out target.object = notebook.speakers node.passive = true }");
    for (const char* const way : kWays) {
      processes_.push_back(
          server_->start({"pw-record", "--target", "0", "-P", std::string("{ node.name = ears.") + way + " }",
                          "--format", "s16", path(way)}));
    }
    link(std::string(kVirtualMic) + ":capture_FL", "ears.microphone:input_FL");
    link("loop.microphone:capture_FR", "ears.microphone:input_FR");
    link("notebook.speakers:monitor_FL", "ears.speaker:input_FL");
    link("notebook.speakers:monitor_FR", "ears.speaker:input_FR");
  }

  /// From its beginning: three minutes.
  void play_tone() {
    players_.clear();
    ASSERT_TRUE(comes_true(
        [&] { return server_->state_of("voice.notebook.microphone").empty() && server_->state_of("player").empty(); }));
    players_.push_back(server_->speak_into("notebook.microphone", tone_));
    players_.push_back(server_->start({"pw-play", "--target", "0", "-P", "{ node.name = player }", tone_}));
    link("player:output_FL", std::string(kVirtualSpeaker) + ":playback_FL");
    link("player:output_FR", "loop.speaker:playback_FR");
    std::this_thread::sleep_for(kSettle);
  }

  /// What is recorded in so many seconds, of each way, from `event` on.
  template <class Event>
  std::array<Heard, kWayCount> listen(std::chrono::seconds length, Event event) {
    std::this_thread::sleep_for(kPause);
    std::array<std::size_t, kWayCount> before{};
    for (std::size_t way = 0; way < kWayCount; ++way) {
      before[way] = std::filesystem::file_size(path(kWays[way])) / sizeof(StereoFrame);
    }
    event();
    std::this_thread::sleep_for(length);
    std::array<Heard, kWayCount> heard;
    for (std::size_t way = 0; way < kWayCount; ++way) {
      heard[way].end = Clock::now();
      heard[way].frames = frames_of_wav(path(kWays[way]), before[way]);
      EXPECT_GT(heard[way].frames.size(), (static_cast<std::size_t>(length.count()) - 1) * kRate) << kWays[way];
    }
    return heard;
  }

  const MachineWatch watch_;

 private:
  void loop(const std::string& capture, const std::string& playback) {
    processes_.push_back(server_->start({"pw-loopback", "--capture-props", capture, "--playback-props", playback}));
  }
  void link(const std::string& output, const std::string& input) {
    EXPECT_TRUE(comes_true([&] { return server_->run({"pw-link", output, input}).empty(); })) << output;
  }

  std::string tone_;
  std::vector<ChildProcess> processes_;
  std::vector<ChildProcess> players_;
};

constexpr std::chrono::seconds kListen{3};
constexpr std::chrono::seconds kStill{5};
constexpr int kPieces = 10;
constexpr std::chrono::milliseconds kUncertain{100};  // of a moment in a recording
/// Until threads that wait for each other have come to rest again.
constexpr std::chrono::milliseconds kAftermath{300};

/// Something beside the relay that was in the way of audio.
struct Disturbance {
  Clock::time_point begin;
  Clock::time_point end;
  std::string what;

  bool explains(Clock::time_point moment) const { return begin - kUncertain <= moment && moment <= end + kAftermath; }
};

/// How much of the time nothing was.
Clock::duration still(const std::vector<Disturbance>& by_begin, Clock::time_point from, Clock::time_point to) {
  Clock::duration sum{};
  for (const Disturbance& each : by_begin) {
    sum += std::max(each.begin - kUncertain, from) - from;
    from = std::clamp(each.end + kAftermath, from, to);
  }
  return sum + (to - from);
}

struct Turns {
  unsigned rate_hz;
  unsigned frames;
  Clock::duration length() const { return std::chrono::microseconds(std::uint64_t{1'000'000} * frames / rate_hz); }
};

/// Listens until nothing but the relay could have broken its tone for a while: where that doesn't come to be, since the
/// machine is too busy with something else, all breaks have to have had another reason.
class EachGraph : public GlitchesTest, public testing::WithParamInterface<std::tuple<unsigned, unsigned>> {
 protected:
  const Turns turns_{std::get<0>(GetParam()), std::get<1>(GetParam())};

  std::vector<Disturbance> disturbances(const std::array<Heard, kWayCount>& heard) const {
    std::vector<Disturbance> all;
    for (const auto& each :
         watch_.later_than(MachineWatch::harm(turns_.length()), heard[0].begin() - kAftermath, heard[0].end)) {
      all.push_back({each.due, each.due + each.late,
                     "processor " + std::to_string(each.processor) + " was late by " + ms_text(each.late)});
    }
    for (const Heard& way : heard) {
      for (const Stretch& each : way.breaks(kLoopback)) {
        all.push_back({way.moment_of(each.begin), way.moment_of(each.end), "the loopback broke"});
      }
    }
    std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.begin < b.begin; });
    return all;
  }

  std::string latest_before(Clock::time_point moment) const {
    Clock::duration most{};
    for (const auto& each : watch_.later_than({}, moment - kAftermath, moment + kUncertain))
      most = std::max(most, each.late);
    return ms_text(most) + " at most";
  }
  /// Whatever was in the way of what comes then has been recorded too.
  static Clock::time_point beginning(const std::array<Heard, kWayCount>& heard) {
    return heard[0].begin() + kUncertain + kAftermath;
  }
  /// Turns of a millisecond are missed by whoever has to wait a little: on a machine that is busy, at any time.
  bool explains(const Disturbance& one, Clock::time_point moment) const {
    return turns_.length() < std::chrono::milliseconds(2) || one.explains(moment);
  }
  /// Prints each break of ours with what was in the way, which there has to be: one of them breaks each way twice at
  /// most, as the relay's threads go on.
  void expect_explained(const std::array<Heard, kWayCount>& heard, const std::vector<Disturbance>& reasons) const {
    for (std::size_t way = 0; way < kWayCount; ++way) {
      std::size_t count = 0;
      for (const Stretch& each : heard[way].breaks(kOurs)) {
        const auto moment = heard[way].moment_of(each.begin);
        if (moment < beginning(heard)) continue;
        ++count;
        const auto reason =
            std::find_if(reasons.rbegin(), reasons.rend(), [&](const auto& one) { return explains(one, moment); });
        const std::string text = std::string(kWays[way]) + " broken at " + ms_text(moment - heard[way].begin()) +
                                 " for " + ms_text(length_of(each.length()));
        EXPECT_NE(reason, reasons.rend()) << text << ", and nothing was in the way: late by " << latest_before(moment);
        if (reason == reasons.rend()) continue;
        std::printf("  %s: %s %s before\n", text.c_str(), reason->what.c_str(),
                    ms_text(moment - reason->begin).c_str());
      }
      EXPECT_LE(count, 2 * reasons.size()) << kWays[way];
    }
  }
};

TEST_P(EachGraph, OnceItHasSettledNothingOfOursBreaksWithoutAnotherReason) {
  server_->force("clock.force-rate", turns_.rate_hz);
  ASSERT_NO_FATAL_FAILURE(play_tone());
  server_->force("clock.force-quantum", turns_.frames);
  std::this_thread::sleep_for(kSettle);
  Clock::duration so_far{};
  for (int i = 0; i < kPieces && so_far < kStill && !HasFailure(); ++i) {
    const auto heard = listen(kListen, [] {});
    if (heard[0].is_silent_at_the_end() || heard[1].is_silent_at_the_end()) {
      ASSERT_NO_FATAL_FAILURE(play_tone());
      continue;
    }
    const auto reasons = disturbances(heard);
    expect_explained(heard, reasons);
    so_far += still(reasons, beginning(heard), heard[0].end);
  }
  std::printf("%5u Hz, %4u frames: nothing else in the way for %.1f s\n", turns_.rate_hz, turns_.frames,
              seconds(so_far));
}

INSTANTIATE_TEST_SUITE_P(RatesAndTurns, EachGraph,
                         testing::Combine(testing::Values(48000u, 44100u),
                                          testing::Values(64u, 256u, 480u, 1024u, 2048u)));

/// Until the speaker's ramp has come to its end, where it leaves out the last thousandth.
constexpr std::size_t kLongestChange = 3 * kRate / 10;
constexpr int kChanges = 6;

/// How long both were disturbed, attempt by attempt.
class ChangeLength {
 public:
  void add(std::size_t ours, std::size_t loopback, bool machine_was_late) {
    is_short_ = ours <= kLongestChange;
    is_ours_ = !is_short_ && loopback <= kLongestChange && !machine_was_late;
    is_as_long_ = is_as_long_ && loopback > kLongestChange && ours <= loopback + kLongestChange;
    is_heard_ = true;
  }
  /// An attempt in which something else was in the way decides nothing.
  bool is_decided() const { return is_short_ || is_ours_; }
  /// On a machine that is busy all the while the loopback is disturbed for longer each time too.
  bool is_fine() const { return is_short_ || (is_heard_ && !is_ours_ && is_as_long_); }

 private:
  bool is_heard_ = false;
  bool is_short_ = false;
  bool is_ours_ = false;
  bool is_as_long_ = true;
};

class EachChange : public GlitchesTest {
 protected:
  void expect_short(const char* setting, unsigned from, unsigned to) {
    std::array<ChangeLength, kWayCount> lengths;
    for (int i = 0; i < kChanges && !(lengths[0].is_decided() && lengths[1].is_decided()); ++i) {
      server_->force(setting, from);
      ASSERT_NO_FATAL_FAILURE(play_tone());
      const auto start = Clock::now();
      const auto heard = listen(std::chrono::seconds(2), [&] { server_->force(setting, to); });
      const bool was_late = !watch_.later_than(MachineWatch::harm(kSettle), start, Clock::now()).empty();
      for (std::size_t way = 0; way < kWayCount; ++way) {
        if (lengths[way].is_decided() || heard[way].is_silent_at_the_end()) continue;
        const std::size_t ours = heard[way].disturbed(kOurs), loopback = heard[way].disturbed(kLoopback);
        std::printf("%s from %u to %u, %-10s: %s, of the loopback %s%s\n", setting, from, to, kWays[way],
                    ms_text(length_of(ours)).c_str(), ms_text(length_of(loopback)).c_str(),
                    was_late ? "; the machine was late" : "");
        lengths[way].add(ours, loopback, was_late);
      }
    }
    for (std::size_t way = 0; way < kWayCount; ++way) {
      EXPECT_TRUE(lengths[way].is_fine()) << setting << " from " << from << " to " << to << ", " << kWays[way];
    }
  }
};

TEST_F(EachChange, OfTheRateIsHeardOnceAndNotForLong) {
  expect_short("clock.force-rate", 48000, 44100);
  expect_short("clock.force-rate", 44100, 48000);
}

TEST_F(EachChange, OfTheTurnsIsHeardOnceAndNotForLong) {
  expect_short("clock.force-quantum", 256, 1024);
  expect_short("clock.force-quantum", 1024, 256);
}

}  // namespace
}  // namespace sonivo::test
