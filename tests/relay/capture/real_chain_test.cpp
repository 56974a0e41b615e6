// The third chain itself in a running stream, while the host's threads change all that they can change of it.

#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numbers>
#include <span>

#include "../../classic/chain/chain_params.h"
#include "../../enhance/chain/chain_models.h"
#include "../../support/temporary_folder.h"
#include "base/trace.h"
#include "capture_bench.h"
#include "relay/effect_properties.h"
#include "relay/model_table.h"

namespace sonivo::test {
namespace {

/// A tone that the microphone hears without end, in the middle of what the model hears, at a tenth of full scale.
class EndlessTone {
 public:
  void operator()(std::span<std::byte> frames) {
    for (std::size_t at = 0; at + 4 <= frames.size(); at += 4, ++n_) {
      const double x = 3276.8 * std::sin(2 * std::numbers::pi * 1200.0 * static_cast<double>(n_ % 48000) / 48000);
      const auto sample = static_cast<std::int16_t>(std::lround(x));
      std::memcpy(&frames[at], &sample, sizeof sample);
      std::memcpy(&frames[at + 2], &sample, sizeof sample);
    }
  }

 private:
  std::uint64_t n_ = 0;
};

/// A relay with the third chain in it, whose models make the tone louder by a factor each: rows 1 to 3, the enrolled
/// one. Time waits for the network.
class RealChain : public ::testing::Test {
 protected:
  static constexpr std::array<float, 3> kRowGains = {1.5f, 2.0f, 0.5f};
  static constexpr float kEnrolledGain = 3.0f;

  RealChain() {
    for (int no = kFirstModelNo; no <= kLastModelNo; ++no) {
      const std::string path = GetModelRow(folder_.path() / "models", no).speech_enhancement;
      std::ofstream(path, std::ios::binary) << gain_model(kRowGains[static_cast<std::size_t>(no - kFirstModelNo)]);
    }
    std::ofstream(enrolled_, std::ios::binary) << gain_model(kEnrolledGain);
    const auto param = classic::test::beam_forming_params();
    std::vector<std::byte> blob(3);
    const auto bytes = std::as_bytes(std::span(&param, 1));
    blob.insert(blob.end(), bytes.begin(), bytes.end());
    machine_.fx().set_effect(sim::kMicArray, PKEY_NVC_MTGMIC_BF_KC_Param, blob);
    set_strength(1.0f);

    relay_.SetGenAndFunction(10, 0, 5, 8);
    relay_.ChangeAISpeechEnhanceState(true);
    relay_.SetAISpeechEnhancePmodel(enrolled_.c_str());
    relay_.SetMuteWindow(kMuteWindow);
    relay_.SetEndpointForce(DataFlow::capture, {});
    relay_.SetEndpointForce(DataFlow::render, {});
  }
  ~RealChain() override {
    relay_.Stop();
    relay_.SetAISpeechEnhanceClose();
  }

  void SetUp() override {
    ASSERT_EQ(relay_.SetAISpeechEnhanceOpen(), kOk);
    relay_.Start();
    machine_.run_for(1);
    machine_.endpoint(sim::kMicArray).set_source(EndlessTone());
    machine_.driver().open_recorder(pcm_format(48000, 16, 2));
    machine_.run_for(100);
  }

  void set_strength(float strength) {
    const auto bytes = std::as_bytes(std::span(&strength, 1));
    machine_.fx().set_effect(sim::kMicArray, PKEY_NVC_AI_Strength, std::vector<std::byte>(bytes.begin(), bytes.end()));
  }

  /// Highest sample of the latest 50 ms, half a second from now: the rings and the fade are through by then.
  double level() {
    machine_.run_for(500);
    const std::vector<std::byte> heard = machine_.driver().recording();
    int highest = 0;
    for (std::size_t at = heard.size() - std::size_t{4 * 2400}; at < heard.size(); at += 2) {
      std::int16_t sample = 0;
      std::memcpy(&sample, &heard[at], sizeof sample);
      highest = std::max(highest, std::abs(int{sample}));
    }
    return highest;
  }

  /// Each packet of the microphone made a block, and each block went through the network.
  void expect_nothing_lost() {
    machine_.run_for(3);  // between two packets, where nobody is at work
    const StreamStatistics statistics = relay_.CaptureStatistics();
    EXPECT_EQ(statistics.streams, 1u);
    EXPECT_EQ(statistics.blocks, statistics.physical_packets);
    EXPECT_EQ(statistics.executions, statistics.blocks);
    EXPECT_EQ(statistics.overruns, 0u);
    EXPECT_EQ(statistics.underruns, 0u);
    EXPECT_EQ(statistics.silenced, 0u);
    EXPECT_EQ(statistics.unenhanced, 0u);
    EXPECT_GE(statistics.blocks, blocks_ + 40);
    blocks_ = statistics.blocks;
  }

  /// Rounds of 5 ms on a thread of the host.
  std::function<void()> rounds(int count, std::function<void(int)> each) {
    return [this, count, each = std::move(each)] {
      for (int round = 0; round < count; ++round) {
        each(round);
        machine_.scheduler().sleep_ms(5);
      }
    };
  }

  std::atomic<int> failures_{0};  ///< that traces told of
  ScopedTraceSink sink_{[this](TraceLevel, std::string_view text) {
    if (text.find("failed") != std::string_view::npos) ++failures_;
  }};
  TemporaryFolder folder_;
  std::string enrolled_ = (prepared(folder_.path()) / "user" / "EnhanceModel.bin").string();
  sim::SimMachine machine_{config(folder_.path())};
  CAudioControl relay_{machine_.seams(), MakePatientChains};

 private:
  static const std::filesystem::path& prepared(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder / "models");
    std::filesystem::create_directories(folder / "user");
    return folder;
  }
  static sim::Config config(const std::filesystem::path& folder) {
    sim::Config config;
    config.schedule = sim::Schedule::free;
    config.folder = folder;
    return config;
  }

  std::uint64_t blocks_ = 0;  // at the latest look
};

TEST_F(RealChain, PlaysTheModelAndTheStrengthThatTheHostChooses) {
  const double of_third = level() / double{kRowGains[2]};
  ASSERT_GT(of_third, 1000.0);
  const auto gain = [&] { return level() / of_third; };
  run_at_once(machine_, {[&] { relay_.UpdateAISpeechEnhanceSetAiModelState(true); }});
  EXPECT_NEAR(gain(), double{kEnrolledGain}, 0.05);
  run_at_once(machine_, {[&] {
                relay_.SetAISpeechEnhanceModelNo(2);
                relay_.UpdateAISpeechEnhanceSetAiModelState(false);
              }});
  EXPECT_NEAR(gain(), double{kRowGains[1]}, 0.05);
  run_at_once(machine_, {[&] {
                set_strength(0.5f);
                relay_.UpdateAISpeechEnhanceSetAiModelState(true);
              }});
  EXPECT_NEAR(gain(), 2.0, 0.05) << "half of the way to three times";
  expect_nothing_lost();
}

TEST_F(RealChain, PlaysAnotherStrengthFromTheNextStreamOnAndAnotherRowWithTheNextChoiceOfTheModel) {
  const double as_it_is = level() / double{kRowGains[2]};
  run_at_once(machine_, {[&] {
                set_strength(0.0f);
                relay_.SetAISpeechEnhanceModelNo(2);
              }});
  EXPECT_NEAR(level() / as_it_is, double{kRowGains[2]}, 0.05);
  relay_.Stream(DataFlow::capture).RequestRestart();
  EXPECT_NEAR(level() / as_it_is, 1.0, 0.05);
  run_at_once(machine_, {[&] {
                set_strength(1.0f);
                relay_.UpdateAISpeechEnhanceSetAiModelState(true);
                relay_.UpdateAISpeechEnhanceSetAiModelState(false);
              }});
  EXPECT_NEAR(level() / as_it_is, double{kRowGains[1]}, 0.05);
}

TEST_F(RealChain, LosesNoBlockWhileTheHostChangesEverything) {
  constexpr int kRounds = 80;
  run_at_once(machine_, {rounds(kRounds,
                                [&](int n) {
                                  relay_.UpdateAISpeechEnhanceBeamFormingKeyCancelState(n % 2 == 0);
                                  relay_.UpdateAISpeechEnhanceBeamFormingState(n % 3 == 0);
                                  relay_.UpdateAISpeechEnhanceState(n % 4 != 0);
                                }),
                         rounds(kRounds,
                                [&](int n) {
                                  relay_.SetAISpeechEnhanceModelNo(1 + n % 3);
                                  set_strength(static_cast<float>(n % 5) / 4.0f);
                                  if (n % 8 == 0) relay_.UpdateAISpeechEnhanceSetAiModelState(n % 16 == 0);
                                }),
                         rounds(kRounds, [&](int n) {
                           relay_.SetAISpeechEnhancePmodel(enrolled_.c_str());
                           if (n % 20 == 10) relay_.UpdateAISpeechEnhanceSetAiModelState(n % 40 == 10);
                         })});
  expect_nothing_lost();
  EXPECT_EQ(failures_, 0);

  // And does what it is told then.
  run_at_once(machine_, {[&] {
                relay_.UpdateAISpeechEnhanceBeamFormingKeyCancelState(false);
                relay_.UpdateAISpeechEnhanceBeamFormingState(false);
                relay_.UpdateAISpeechEnhanceState(true);
                set_strength(1.0f);
                relay_.SetAISpeechEnhanceModelNo(3);
                relay_.UpdateAISpeechEnhanceSetAiModelState(true);
                relay_.UpdateAISpeechEnhanceSetAiModelState(false);
              }});
  const double of_third = level() / double{kRowGains[2]};
  run_at_once(machine_, {[&] { relay_.UpdateAISpeechEnhanceSetAiModelState(true); }});
  EXPECT_NEAR(level() / of_third, double{kEnrolledGain}, 0.05);
  expect_nothing_lost();
}

}  // namespace
}  // namespace sonivo::test
