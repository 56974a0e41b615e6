// The states that the chains start with, before the driver's settings reach them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "host_bench.h"

namespace sonivo::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::IsSupersetOf;
using testing::Not;
namespace c = control;

/// An application records from before the service starts. The effective settings of the driver are all off, and the
/// first of them takes a second to come.
struct SeedsBench : HostBench {
  explicit SeedsBench(const Model& model) : HostBench(model) {
    store_parameters();
    for (const std::uint32_t setting : {c::GetKeyboardCancelMTG, c::GetBeamformingMTG, c::GetAispeechenhanceMTG}) {
      driver().set_number(setting, 0);
    }
    driver().set_delay(c::GetKeyboardCancelMTG, 1000);
    machine.driver().open_recorder(pcm_format(48000, 16, 2));
  }
  /// The latest sample that the application got.
  std::int16_t heard() {
    const auto recording = machine.driver().recording();
    std::int16_t last = -1;
    if (recording.size() >= sizeof last) {
      std::memcpy(&last, recording.data() + recording.size() - sizeof last, sizeof last);
    }
    return last;
  }
};

// Only what differs from the state before is faded to.
TEST(StartUpSeeds, TheFirstChainStartsOn) {
  SeedsBench bench(kKeyCancel);
  bench.chains.key_cancel->process = [](float* block, std::size_t frames, std::size_t channels) {
    std::fill_n(block, frames * channels, 0.25f);
  };
  bench.host->m_AudioControl.ChangeKeyCancelState(false);
  bench.start(900);
  EXPECT_EQ(bench.heard(), 8192);  // 0.25 of 32768
  bench.run_for(2000);
  EXPECT_EQ(bench.heard(), 0);  // the driver's setting
}

TEST(StartUpSeeds, TheSecondChainStartsWithKeyCancelAndBeamforming) {
  SeedsBench bench(kBeamForming);
  bench.host->m_AudioControl.ChangeBeamFormingKeyCancelState(false);
  bench.host->m_AudioControl.ChangeBeamFormingState(false);
  bench.start(900);
  const auto calls = bench.chains.beam_forming->calls();
  EXPECT_THAT(calls,
              IsSupersetOf({"SetKeyReductionActive(1)", "SetNoiseReductionActive(1)", "SetBeamFormingActive(1)"}));
  EXPECT_THAT(calls, AllOf(Not(Contains("SetKeyReductionActive(0)")), Not(Contains("SetBeamFormingActive(0)"))));
}

TEST(StartUpSeeds, TheThirdChainStartsWithTheEnhancementAlone) {
  SeedsBench bench(kAISpeech);
  bench.host->m_AudioControl.ChangeAISpeechEnhanceBeamFormingKeyCancelState(true);
  bench.host->m_AudioControl.ChangeAISpeechEnhanceBeamFormingState(true);
  bench.host->m_AudioControl.ChangeAISpeechEnhanceState(false);
  bench.start(900);
  const auto calls = bench.chains.ai_speech->calls();
  EXPECT_THAT(calls, IsSupersetOf({"SetKeyReductionActive(0)", "SetNoiseReductionActive(0)", "SetBeamFormingActive(0)",
                                   "SetAISpeechEnhanceActive(1)"}));
  EXPECT_THAT(calls, AllOf(Not(Contains("SetKeyReductionActive(1)")), Not(Contains("SetBeamFormingActive(1)")),
                           Not(Contains("SetAISpeechEnhanceActive(0)"))));
}

// Only a state that differs from the one before has the model swapped.
TEST(StartUpSeeds, TheThirdChainStartsWithoutTheEnrolledModel) {
  SeedsBench bench(kAISpeech);
  const std::filesystem::path enrolled = bench.folder.path() / "user" / "NorvellSonivo" / "EnhanceModel.bin";
  std::filesystem::create_directories(enrolled.parent_path());
  std::ofstream(enrolled) << "model";
  bench.host->m_AudioControl.ChangeAISpeechEnhanceSetAiModelState(true);
  bench.driver().set_number(c::GetAispeechenhanceSetAiModelMTG, 1);
  bench.start(900);
  EXPECT_THAT(bench.chains.ai_speech->calls(), Not(Contains("SetAIModel(" + enrolled.string() + ")")));
  bench.run_for(2000);
  EXPECT_THAT(bench.chains.ai_speech->calls(), Contains("SetAIModel(" + enrolled.string() + ")"));
}

}  // namespace
}  // namespace sonivo::test
