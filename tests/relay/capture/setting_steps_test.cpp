// Settings that change while audio runs, with the chains themselves: where the change is heard, and what of it is a
// step.

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <span>
#include <string>
#include <vector>

#include "../../enhance/chain/chain_models.h"
#include "../../support/temporary_folder.h"
#include "capture_bench.h"
#include "classic/par_reader.h"
#include "relay/effect_properties.h"
#include "relay/model_table.h"

namespace sonivo::test {
namespace {

/// A low voice, each syllable of which comes and goes within a fifth of a second, so that no stage takes it for noise.
class LowVoice {
 public:
  explicit LowVoice(bool in_front) : in_front_(in_front) {}

  void operator()(std::span<std::byte> frames) {
    for (std::size_t at = 0; at + 4 <= frames.size(); at += 4, ++n_) {
      const double t = static_cast<double>(n_) / 48000;
      const double loudness = std::pow(std::sin(std::numbers::pi * 5 * t), 2);
      const auto first = static_cast<std::int16_t>(std::lround(8000 * loudness * std::sin(kTurns * t)));
      const auto second = static_cast<std::int16_t>(in_front_ ? first : first / 2);
      std::memcpy(&frames[at], &first, sizeof first);
      std::memcpy(&frames[at + 2], &second, sizeof second);
    }
  }

 private:
  static constexpr double kTurns = 2 * std::numbers::pi * 150;
  const bool in_front_;
  std::uint64_t n_ = 0;
};

template <class Param>
std::vector<std::byte> stored(const char* name, std::size_t flags) {
  const auto param = classic::MakeParams<Param>(std::string(SONIVO_SHARE_FOLDER) + "/par/" + name);
  std::vector<std::byte> blob(flags, std::byte{1});
  const auto bytes = std::as_bytes(std::span(param.get(), 1));
  blob.insert(blob.end(), bytes.begin(), bytes.end());
  return blob;
}

using Samples = std::vector<int>;

/// The host's call for a setting.
using Setter = void (CAudioControl::*)(bool);

struct Setting {
  const char* name;
  Notebook notebook;
  Setter change;
  bool in_front;              ///< speaks who is heard; else the beams take off what they hear
  std::array<bool, 2> steps;  ///< where it is turned off, and on
};

/// A relay with one of the chains, through which a voice is recorded.
class SettingSteps : public ::testing::TestWithParam<Setting> {
 protected:
  /// From the beginning of the recording, of which `turn_` frames were there when the setting changed, or didn't.
  Samples heard(bool before, bool after, std::uint32_t turn_ms) {
    sim::Config config;
    config.folder = folder_.path();
    sim::SimMachine machine(config);
    machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_KC_Param, key_cancel_);
    machine.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_BF_KC_Param, beam_forming_);
    CAudioControl relay(machine.seams(), MakePatientChains);
    set_notebook(relay);
    for (const Setter each : {&CAudioControl::ChangeBeamFormingState, &CAudioControl::ChangeAISpeechEnhanceState,
                              &CAudioControl::ChangeAISpeechEnhanceBeamFormingKeyCancelState,
                              &CAudioControl::ChangeAISpeechEnhanceBeamFormingState}) {
      (relay.*each)(true);
    }
    (relay.*GetParam().change)(before);
    relay.Start();
    machine.run_for(1);
    machine.endpoint(sim::kMicArray).set_source(LowVoice(GetParam().in_front));
    machine.driver().open_recorder(pcm_format(48000, 16, 2));
    machine.run_for(turn_ms);
    turn_ = machine.driver().recording().size() / 4;
    (relay.*GetParam().change)(after);
    machine.run_for(kAfterMs);
    const Samples samples = first_channel(machine.driver().recording());
    relay.Stop();
    relay.SetAISpeechEnhanceClose();
    return samples;
  }

  std::size_t turn_ = 0;

 private:
  static constexpr std::uint32_t kAfterMs = 500;

  static void set_notebook(CAudioControl& relay) {
    relay.SetMuteWindow(kMuteWindow);
    relay.SetEndpointForce(DataFlow::capture, {});
    relay.SetEndpointForce(DataFlow::render, {});
    if (GetParam().notebook == Notebook::key_cancel) return relay.SetGenAndFunction(8, 0, 2, 1);
    if (GetParam().notebook == Notebook::beam_forming) return relay.SetGenAndFunction(8, 0, 3, 2);
    relay.SetGenAndFunction(10, 0, 5, 8);
    EXPECT_EQ(relay.SetAISpeechEnhanceOpen(), kOk);
  }
  static Samples first_channel(const std::vector<std::byte>& recording) {
    Samples samples;
    for (std::size_t at = 0; at + 4 <= recording.size(); at += 4) {
      std::int16_t sample = 0;
      std::memcpy(&sample, &recording[at], sizeof sample);
      samples.push_back(sample);
    }
    return samples;
  }

  void SetUp() override {
    std::filesystem::create_directories(folder_.path() / "models");
    for (int no = kFirstModelNo; no <= kLastModelNo; ++no) {
      std::ofstream(GetModelRow(folder_.path() / "models", no).speech_enhancement, std::ios::binary)
          << gain_model(1.0f);
    }
  }

  const TemporaryFolder folder_;
  const std::vector<std::byte> key_cancel_ = stored<classic::KeyCancelParam>("keycancel.par", 2);
  const std::vector<std::byte> beam_forming_ = stored<classic::BeamFormingKeyCancelParam>("beamforming.par", 3);
};

int step_at(const Samples& samples, std::size_t n) { return std::abs(samples[n] - samples[n - 1]); }

/// From the first of these frames up to the one behind the last.
int largest_step(const Samples& samples, std::size_t begin, std::size_t end) {
  int largest = 0;
  for (std::size_t n = std::max<std::size_t>(begin, 1); n < end; ++n) largest = std::max(largest, step_at(samples, n));
  return largest;
}

int peak_at_the_end(const Samples& samples) { return *std::max_element(samples.end() - 9600, samples.end()); }

constexpr double kMargin = 1.15;             // of the largest step that is heard without a change
constexpr std::size_t kPrompt = 14400;       // 300 ms
constexpr std::size_t kAround = 48000 / 50;  // of a step, which a network with its rate conversions makes longer

TEST_P(SettingSteps, AreAtTheChangeAloneAndNowhereWhereItIsFaded) {
  for (const bool on : {false, true}) {
    SCOPED_TRACE(on ? "turned on" : "turned off");
    double largest = 0;
    for (const std::uint32_t turn_ms : {600u, 620u, 650u}) {
      const Samples before = heard(!on, !on, turn_ms);
      const Samples after = heard(on, on, turn_ms);
      const Samples changed = heard(!on, on, turn_ms);
      const auto at = static_cast<std::size_t>(
          std::mismatch(changed.begin(), changed.end(), before.begin(), before.end()).first - changed.begin());
      ASSERT_GE(at, turn_);
      EXPECT_LT(at, turn_ + kPrompt);
      const double allowed =
          kMargin * std::max(largest_step(before, 0, before.size()), largest_step(after, 0, after.size()));
      const std::size_t over = std::min(at + kAround, changed.size());
      EXPECT_LE(largest_step(changed, 0, at), allowed);
      EXPECT_LE(largest_step(changed, over, changed.size()), allowed);
      largest = std::max(largest, largest_step(changed, at, over) / allowed);
      EXPECT_NEAR(peak_at_the_end(changed), peak_at_the_end(after), 0.1 * peak_at_the_end(after));
    }
    EXPECT_EQ(largest > 1, GetParam().steps[on ? 1 : 0]) << largest << " of what there is without a change";
  }
}

constexpr std::array kFaded{false, false}, kFadedWhereItIsTurnedOn{true, false}, kNotFaded{true, true};

INSTANTIATE_TEST_SUITE_P(
    Settings, SettingSteps,
    ::testing::Values(
        Setting{"keycancel_keys", Notebook::key_cancel, &CAudioControl::UpdateKeyCancelState, true, kFaded},
        Setting{"beamforming_keys", Notebook::beam_forming, &CAudioControl::UpdateBeamFormingKeyCancelState, true,
                kFadedWhereItIsTurnedOn},
        Setting{"beamforming_beams", Notebook::beam_forming, &CAudioControl::UpdateBeamFormingState, false, kFaded},
        Setting{"ai_keys", Notebook::ai_speech, &CAudioControl::UpdateAISpeechEnhanceBeamFormingKeyCancelState, true,
                kNotFaded},
        Setting{"ai_beams", Notebook::ai_speech, &CAudioControl::UpdateAISpeechEnhanceBeamFormingState, false, kFaded},
        Setting{"ai_enhance", Notebook::ai_speech, &CAudioControl::UpdateAISpeechEnhanceState, true,
                kFadedWhereItIsTurnedOn}),
    [](const auto& its) { return its.param.name; });

}  // namespace
}  // namespace sonivo::test
