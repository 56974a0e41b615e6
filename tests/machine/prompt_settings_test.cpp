#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <span>

#include "audible_bench.h"
#include "platform/control_requests.h"
#include "platform/linux/control_bus.h"

namespace sonivo::test {
namespace {

constexpr double kPromptMs = 300;
/// Of the largest step that the input makes from sample to sample.
constexpr double kStepMargin = 1.2;
/// A machine that is busy with something else lets audio fall out now and then: so many more rounds have to be good
/// than bad, within this many.
constexpr int kAhead = 3;
constexpr int kRounds = 12;
constexpr auto kBetweenTurns = std::chrono::milliseconds(550);
constexpr std::size_t kSettled = kRate * 35 / 100;  // after a turn
constexpr std::size_t kWindow = kRate / 50;
constexpr std::size_t kHop = kRate / 200;
constexpr char kHeard[] = "heard.wav";

using Mono = std::vector<double>;

/// Noise below some 300 Hz, whose steps are small beside its level.
std::vector<StereoFrame> rumble(std::size_t count) {
  std::mt19937 random(11);
  std::normal_distribution<double> normal;
  std::array<double, 4> stages{};
  const double kept = std::exp(-2 * std::numbers::pi * 300 / kRate);
  std::vector<StereoFrame> frames(count);
  for (StereoFrame& each : frames) {
    double value = normal(random);
    for (double& stage : stages) value = stage = kept * stage + (1 - kept) * value;
    const auto sample = static_cast<std::int16_t>(std::lround(std::clamp(32000 * value, -32767.0, 32767.0)));
    each = {sample, sample};
  }
  return frames;
}

Mono left_of(const std::vector<StereoFrame>& frames) {
  Mono samples;
  for (const StereoFrame& each : frames) samples.push_back(each[0]);
  return samples;
}

double largest_step(std::span<const double> samples) {
  double largest = 0;
  for (std::size_t n = 1; n < samples.size(); ++n) largest = std::max(largest, std::fabs(samples[n] - samples[n - 1]));
  return largest;
}

double product(std::span<const double> a, std::span<const double> b) {
  double sum = 0;
  for (std::size_t n = 0; n < a.size() && n < b.size(); n += 8) sum += a[n] * b[n];
  return sum;
}

/// Where in what was played this piece of a recording is, to 8 frames.
std::size_t place_of(std::span<const double> piece, std::span<const double> played) {
  double best = 0;
  std::size_t place = 0;
  for (std::size_t at = 0; at + piece.size() <= played.size(); at += 8) {
    const double likeness = product(piece, played.subspan(at, piece.size()));
    if (likeness > best) {
      best = likeness;
      place = at;
    }
  }
  return place;
}

/// How much of a piece is what was played then: 1 where it passes as it is.
double share_of(std::span<const double> piece, std::span<const double> played) {
  return product(piece, played) / (product(played, played) + 1);
}

/// A setting of a chain: what the user wants, and what is in effect.
struct Switch {
  const char* chain;
  std::uint32_t user;
  std::uint32_t effective;
  bool is_faded;  ///< by nothing but the crossfade; else a stage of the chain is passed over from one frame to the next
};

/// What an application recorded while a setting was turned off and on again.
struct Round {
  std::array<std::size_t, 2> turns;  ///< frames that were recorded when the driver had taken it
  Mono heard;                        ///< from the beginning of the recording
};

/// Milliseconds from a turn until the recording has changed, the larger of both; a second where it doesn't.
double change_ms(const Round& round, std::span<const double> played) {
  const std::span<const double> heard(round.heard);
  const std::size_t dry = round.turns[0] + kSettled;
  const std::size_t place = place_of(heard.subspan(dry, kRate / 8), played);
  const auto is_dry = [&](std::size_t at) {
    const std::size_t then = place + at - dry;
    return then < played.size() - kWindow && share_of(heard.subspan(at, kWindow), played.subspan(then, kWindow)) > 0.5;
  };
  std::size_t largest = 0;
  for (const bool to_dry : {true, false}) {
    const std::size_t turn = round.turns[to_dry ? 0 : 1];
    std::size_t at = turn;
    while (at + kWindow < heard.size() && is_dry(at) != to_dry) at += kHop;
    if (at + kWindow >= heard.size()) return 1000;
    largest = std::max(largest, at + kWindow / 2 - turn);
  }
  return static_cast<double>(largest) * 1000 / kRate;
}

class PromptSettingsTest : public WithChains<AudibleMachineTest>, public testing::WithParamInterface<Switch> {
 protected:
  void SetUp() override {
    WithChains::SetUp();
    if (!server_) return;
    ASSERT_EQ(sonivo({"setup", "--microphone", "notebook.microphone", "--chain", GetParam().chain}).code, 0);
    bus_ = std::make_unique<linux::ControlBus>(folder("sonivo/driver.sock"));
    Error why = error::kNone;
    settings_ = bus_->open(folder("sonivo/driver.sock"), Sharing::shared, Completion::synchronous, why);
    ASSERT_TRUE(settings_);
  }

  void set(std::uint32_t code, std::uint32_t value) {
    std::uint32_t bytes = 0;
    EXPECT_EQ(settings_->control_now(code, std::as_bytes(std::span(&value, 1)), {}, bytes), error::kNone);
  }
  Round turn_off_and_on() {
    Round round;
    for (const std::uint32_t on : {0u, 1u}) {
      set(GetParam().user, on);
      set(GetParam().effective, on);
      round.turns[on] = now(kHeard).frame;
      std::this_thread::sleep_for(kBetweenTurns);
    }
    round.heard = left_of(frames_of_wav(folder(kHeard)));
    return round;
  }

  std::unique_ptr<linux::ControlBus> bus_;
  std::shared_ptr<Device> settings_;
};

// While a setting is off the noise passes as it is. Turns of the server are short, since what is recorded comes later
// by its way through the relay.
TEST_P(PromptSettingsTest, AreHeardInTimeAndWithoutAClickWhereTheyAreFaded) {
  const double allowed_steps = GetParam().is_faded ? kStepMargin : HUGE_VAL;
  const auto noise = rumble(40 * kRate);
  const Mono played = left_of(noise);
  server_->force("clock.force-quantum", 256);
  start_service();
  const auto recorder = record(kHeard);
  const auto voice = server_->speak_into("notebook.microphone", server_->folder().write("rumble.wav", wav_of(noise)));
  const std::size_t begin = now(kHeard).frame;
  ASSERT_TRUE(comes_true([&] { return now(kHeard).frame > begin + 3 * kRate; }));  // the chain knows the noise
  int ahead = 0;
  for (int i = 0; i < kRounds && ahead < kAhead; ++i) {
    const Round round = turn_off_and_on();
    const double ms = change_ms(round, played);
    const double steps = largest_step(std::span(round.heard).subspan(round.turns[0])) / largest_step(played);
    std::printf("%s: heard after %.0f ms at most, with steps of %.2f of the largest of the input\n", GetParam().chain,
                ms, steps);
    ahead += ms < kPromptMs && steps < allowed_steps ? 1 : -1;
  }
  EXPECT_EQ(ahead, kAhead);
}

INSTANTIATE_TEST_SUITE_P(
    Chains, PromptSettingsTest,
    testing::Values(Switch{"keycancel", control::SetKeyboardCancel_UI_MTG, control::SetKeyboardCancelMTG, true},
                    Switch{"beamforming", control::SetKeyboardCancel_UI_MTG, control::SetKeyboardCancelMTG, false},
                    Switch{"ai", control::SetAispeechenhance_UI_MTG, control::SetAispeechenhanceMTG, false}),
    [](const auto& its) { return its.param.chain; });

}  // namespace
}  // namespace sonivo::test
