// What the chains and streams get of a driver that is connected.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <string>

#include "base/text.h"
#include "main_thread_bench.h"

namespace sonivo::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
namespace c = control;

/// What the driver answers; nothing: it refuses.
using Setting = std::optional<std::uint32_t>;

struct SynchroniseBench : MainThreadBench {
  explicit SynchroniseBench(const Model& model) : MainThreadBench(model) {
    store_parameters();
    open();
  }
  void let_driver_have(std::uint32_t code, Setting value) {
    driver().set_number(code, value.value_or(0));
    if (!value) driver().fail(code, error::kAccessDenied);
  }
  /// What the stream that opens now tells the chain.
  std::vector<std::string> opening(ChainScript& chain) {
    chain.clear();
    record();
    return chain.calls();
  }
};

std::string text_of(Setting setting) { return setting ? std::to_string(*setting) : "refused"; }

std::string call(const char* name, bool on) { return std::string(name) + (on ? "(1)" : "(0)"); }

// ---- The first chain

struct FirstChainCase {
  Setting key_cancel;
  std::int16_t heard;
};
void PrintTo(const FirstChainCase& row, std::ostream* out) { *out << text_of(row.key_cancel); }
class FirstChainConnected : public testing::TestWithParam<FirstChainCase> {};

TEST_P(FirstChainConnected, IsOnUnlessTheDriverSaysOff) {
  SynchroniseBench bench(kKeyCancel);
  bench.chains.key_cancel->process = [](float* block, std::size_t frames, std::size_t channels) {
    std::fill_n(block, frames * channels, 0.25f);
  };
  bench.host->m_AudioControl.UpdateKeyCancelState(GetParam().heard == 0);
  bench.let_driver_have(c::GetKeyboardCancelMTG, GetParam().key_cancel);
  bench.start_thread();
  bench.record();
  const auto recording = bench.machine.driver().recording();
  std::int16_t last = -1;
  ASSERT_GE(recording.size(), sizeof last);
  std::memcpy(&last, recording.data() + recording.size() - sizeof last, sizeof last);
  EXPECT_EQ(last, GetParam().heard);
}

INSTANTIATE_TEST_SUITE_P(Settings, FirstChainConnected,
                         testing::Values(FirstChainCase{0, 0}, FirstChainCase{1, 8192}, FirstChainCase{2, 8192},
                                         FirstChainCase{std::nullopt, 8192}));  // 0.25 of 32768

// ---- The second chain

struct SecondChainCase {
  Setting key_cancel, beamforming;
  bool key_cancel_on, beamforming_on;
};
void PrintTo(const SecondChainCase& row, std::ostream* out) {
  *out << text_of(row.key_cancel) << " " << text_of(row.beamforming);
}
class SecondChainConnected : public testing::TestWithParam<SecondChainCase> {};

TEST_P(SecondChainConnected, GetsBothSettingsOfTheDriver) {
  const SecondChainCase& expected = GetParam();
  SynchroniseBench bench(kBeamForming);
  bench.host->m_AudioControl.ChangeBeamFormingKeyCancelState(!expected.key_cancel_on);
  bench.host->m_AudioControl.ChangeBeamFormingState(!expected.beamforming_on);
  bench.let_driver_have(c::GetKeyboardCancelMTG, expected.key_cancel);
  bench.let_driver_have(c::GetBeamformingMTG, expected.beamforming);
  bench.start_thread();
  EXPECT_THAT(bench.opening(*bench.chains.beam_forming),
              AllOf(Contains(call("SetKeyReductionActive", expected.key_cancel_on)),
                    Contains(call("SetNoiseReductionActive", expected.key_cancel_on)),
                    Contains(call("SetBeamFormingActive", expected.beamforming_on))));
}

INSTANTIATE_TEST_SUITE_P(Settings, SecondChainConnected,
                         testing::Values(SecondChainCase{0, 1, false, true}, SecondChainCase{1, 0, true, false},
                                         SecondChainCase{2, 0, true, false}, SecondChainCase{0, 2, false, true},
                                         SecondChainCase{std::nullopt, 0, true, false},
                                         SecondChainCase{0, std::nullopt, false, true}));

// ---- The third chain

struct ThirdChainConnection : SynchroniseBench {
  ThirdChainConnection() : SynchroniseBench(kAISpeech) {
    std::filesystem::create_directory(folder.path() / "models");
    host->m_AudioControl.SetAISpeechEnhancePmodel(enrolled().c_str());
    host->m_AudioControl.SetAISpeechEnhanceOpen();
    chains.ai_speech->clear();
  }
  std::string enrolled() const { return (folder.path() / "user" / "EnhanceModel.bin").string(); }
  std::string plain() const { return (folder.path() / "models" / "model_se_streaming_RTF0.10_v2.bin").string(); }
};

struct ThirdChainCase {
  Setting setting;
  bool on;
};
void PrintTo(const ThirdChainCase& row, std::ostream* out) { *out << text_of(row.setting); }
class ThirdChainConnected : public testing::TestWithParam<ThirdChainCase> {};

TEST_P(ThirdChainConnected, GetsTheEnhancementAndNothingOfTheOthers) {
  ThirdChainConnection bench;
  bench.host->m_AudioControl.ChangeAISpeechEnhanceState(!GetParam().on);
  bench.host->m_AudioControl.ChangeAISpeechEnhanceBeamFormingKeyCancelState(true);
  bench.host->m_AudioControl.ChangeAISpeechEnhanceBeamFormingState(true);
  bench.let_driver_have(c::GetKeyboardCancelMTG, 0);
  bench.let_driver_have(c::GetBeamformingMTG, 0);
  bench.let_driver_have(c::GetAispeechenhanceMTG, GetParam().setting);
  bench.start_thread();
  EXPECT_THAT(bench.opening(*bench.chains.ai_speech),
              AllOf(Contains(call("SetAISpeechEnhanceActive", GetParam().on)), Contains("SetKeyReductionActive(1)"),
                    Contains("SetBeamFormingActive(1)")));
}

TEST_P(ThirdChainConnected, GoesOverToTheVoiceModelOrBack) {
  ThirdChainConnection bench;
  std::ofstream(bench.enrolled()) << "model";
  std::ofstream(bench.plain()) << "model";
  bench.host->m_AudioControl.ChangeAISpeechEnhanceSetAiModelState(!GetParam().on);
  bench.let_driver_have(c::GetAispeechenhanceSetAiModelMTG, GetParam().setting);
  bench.start_thread();
  auto calls = bench.chains.ai_speech->calls();
  std::erase_if(calls, [](const std::string& each) { return !each.starts_with("SetAIModel"); });
  EXPECT_THAT(calls, ElementsAre("SetAIModel(" + (GetParam().on ? bench.enrolled() : bench.plain()) + ")"));
}

INSTANTIATE_TEST_SUITE_P(Settings, ThirdChainConnected,
                         testing::Values(ThirdChainCase{0, false}, ThirdChainCase{1, true}, ThirdChainCase{2, true},
                                         ThirdChainCase{std::nullopt, true}));

// ---- The rest

TEST(Connected, TheRelayFollowsADriverThatNamesAnotherChain) {
  SynchroniseBench bench(kBeamForming);
  bench.host->m_AudioControl.SetGenAndFunction(8, 0, 2, 1);
  bench.start_thread();
  bench.record();
  EXPECT_GT(bench.chains.beam_forming->count("Execute"), 0u);
  EXPECT_EQ(bench.chains.key_cancel->count("Execute"), 0u);
}

TEST(Connected, EndpointIdsThatAreEmptyOrUnreadableFollowTheDefaults) {
  MainThreadBench bench;
  bench.open();
  bench.host->m_AudioControl.SetEndpointForce(DataFlow::capture, sim::kHeadsetMic);
  bench.host->m_AudioControl.SetEndpointForce(DataFlow::render, sim::kHeadphones);
  bench.driver().set_text(c::GetRenderEndpointId, to_utf16(sim::kHeadphones));
  bench.driver().fail(c::GetRenderEndpointId, error::kAccessDenied);
  bench.start_thread();
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::capture).EndpointId(), sim::kMicArray);
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::render).EndpointId(), sim::kSpeakers);
}

TEST(Connected, EndpointIdsAreReadUnderTheDriversLock) {
  MainThreadBench bench;
  bench.open();
  bench.host->m_csDriver.lock();
  bench.start_thread();
  EXPECT_THAT(bench.driver().codes(), Not(Contains(c::GetCaptureEndpointId)));
  EXPECT_THAT(bench.driver().codes(), Contains(c::GetSonivoDrvGeneration));
  bench.host->m_csDriver.unlock();
  bench.run_for(100);
  EXPECT_THAT(bench.driver().codes(), AllOf(Contains(c::GetCaptureEndpointId), Contains(c::GetRenderEndpointId)));

  for (const auto& [command, code] : {std::pair{c::NSVDRV_CMD_DEV_MIC, c::GetCaptureEndpointId},
                                      std::pair{c::NSVDRV_CMD_DEV_SPK, c::GetRenderEndpointId}}) {
    bench.driver().forget_requests();
    bench.host->m_csDriver.lock();
    bench.send(command);
    EXPECT_THAT(bench.driver().codes(), IsEmpty());
    bench.host->m_csDriver.unlock();
    bench.run_for(100);
    EXPECT_THAT(bench.driver().codes(), ElementsAre(code));
  }
}

TEST(Connected, AutoMuteDuringARecordingShowsNoWindow) {
  MainThreadBench bench;
  bench.open();
  bench.driver().set_number(c::NSV_GET_AUTO_MUTE_MTG, 1);
  bench.host->m_bRecording = 1;
  bench.start_thread();
  EXPECT_EQ(bench.host->m_dwAutoMute, 1u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::window_show_at), 0u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::window_hide), 0u);
  EXPECT_EQ(bench.log.count("[MainThread] auto mute waits for the next recording\n"), 1u);
}

// ---- Endpoints that streams use

struct UsedEndpoint {
  DataFlow flow;
  std::uint32_t get_code;
  std::uint32_t command;
  const char* named;
  const char* another;
};
void PrintTo(const UsedEndpoint& row, std::ostream* out) { *out << row.named; }
class UsedEndpointNamed : public testing::TestWithParam<UsedEndpoint> {};

// Only force makes a stream leave an endpoint for the same one.
TEST_P(UsedEndpointNamed, AgainLeavesItsStreamRunning) {
  const UsedEndpoint& used = GetParam();
  MainThreadBench bench;
  bench.driver().set_text(used.get_code, to_utf16(used.named));
  bench.open();
  bench.start_thread();
  used.flow == DataFlow::capture ? bench.record() : bench.play();
  const auto opened = [&] { return bench.machine.script().count(sim::Step::client_initialize); };
  const std::uint64_t before = opened();
  ASSERT_GT(before, 0u);
  bench.host->m_bDriverReady = 0;
  bench.send(c::kNothing);  // the next round synchronises
  bench.run_for(1000);
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
  bench.send(used.command);
  bench.run_for(1000);
  EXPECT_EQ(opened(), before);

  bench.driver().set_text(used.get_code, to_utf16(used.another));
  bench.send(used.command);
  bench.run_for(1000);
  EXPECT_GT(opened(), before);
}

INSTANTIATE_TEST_SUITE_P(Directions, UsedEndpointNamed,
                         testing::Values(UsedEndpoint{DataFlow::capture, c::GetCaptureEndpointId, c::NSVDRV_CMD_DEV_MIC,
                                                      sim::kMicArray, sim::kHeadsetMic},
                                         UsedEndpoint{DataFlow::render, c::GetRenderEndpointId, c::NSVDRV_CMD_DEV_SPK,
                                                      sim::kSpeakers, sim::kHeadphones}));

}  // namespace
}  // namespace sonivo::test
