// In which order start-up does what, and what it does without.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <utility>

#include "base/text.h"
#include "host_bench.h"

namespace sonivo::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
namespace c = control;

/// What start-up comes to, each with what the driver was asked since the one before.
class Milestones {
 public:
  explicit Milestones(HostBench& bench) : bench_(bench) {}

  /// The nth time from now that this is asked of the machine.
  void at(sim::Step step, std::uint64_t nth, const std::string& name) {
    bench_.machine.script().before(step, nth, [this, name] { reach(name); });
  }
  void reach(const std::string& name) {
    const auto codes = bench_.driver().codes();
    reached_.emplace_back(name, std::vector(codes.begin() + static_cast<std::ptrdiff_t>(asked_), codes.end()));
    asked_ = codes.size();
  }
  const std::vector<std::pair<std::string, std::vector<std::uint32_t>>>& reached() const { return reached_; }

 private:
  HostBench& bench_;
  std::size_t asked_ = 0;
  std::vector<std::pair<std::string, std::vector<std::uint32_t>>> reached_;
};

TEST(StartUpOrder, OfAMachineWithTheThirdChain) {
  HostBench bench(kAISpeech);
  bench.store_parameters();
  Milestones order(bench);
  order.at(sim::Step::session_register, 1, "session");
  order.at(sim::Step::endpoints_register, 1, "relay");
  bench.chains.ai_speech->during("Open", [&] { order.reach("third chain"); });
  order.at(sim::Step::thread_start, 5, "MainThread");  // after the service's own, reg-notify, render and capture
  order.at(sim::Step::thread_start, 6, "SubThread");
  bench.start();
  EXPECT_THAT(order.reached(),
              ElementsAre(Pair("session", ElementsAre(c::GetSonivoDrvGeneration, c::NSV_GET_LAUNCHED_MTG,
                                                      c::GetFunction, c::GetGenerationMic, c::GetFunctionMic)),
                          Pair("relay", ElementsAre(c::GetCaptureEndpointId, c::GetRenderEndpointId)),
                          Pair("third chain", IsEmpty()),
                          Pair("MainThread", ElementsAre(c::NSV_GET_LAUNCHED_MTG, c::GetHeadphone,
                                                         c::GetKeyboardCancelMTG, c::GetBeamformingMTG,
                                                         c::GetAispeechenhanceMTG, c::GetAispeechenhanceSetAiModelMTG)),
                          Pair("SubThread", IsEmpty())));
}

TEST(StartUpOrder, WithoutModesNoDeviceIsFollowed) {
  for (const Model& model : {kPlain, kKeyCancel}) {
    HostBench bench(model);
    Milestones order(bench);
    order.at(sim::Step::endpoints_register, 1, "relay");
    order.at(sim::Step::thread_start, 5, "MainThread");
    bench.start();
    ASSERT_EQ(order.reached().size(), 2u);
    EXPECT_THAT(order.reached()[1], Pair("MainThread", IsEmpty()));
  }
}

TEST(StartUpOrder, HeadphonesThatAreFoundAreNotedBeforeTheThreadsStart) {
  HostBench bench(kBeamForming);
  bench.driver().set_number(c::GetHeadphone, 1);
  std::uint32_t noted = 77;
  bench.machine.script().before(sim::Step::thread_start, 5, [&] { noted = bench.host->m_dwHeadPhone; });
  bench.start();
  EXPECT_EQ(noted, 1u);
}

TEST(StartUpOrder, TheRoomCorrectionIsNoneWhenTheLaunchedValueIsAskedFor) {
  HostBench bench;
  bench.host->m_RoomCorrection = 1;
  std::uint32_t found = 77;
  bench.driver().before(c::NSV_GET_LAUNCHED_MTG, [&] { found = bench.host->m_RoomCorrection; });
  bench.start();
  EXPECT_EQ(found, 0u);
}

TEST(StartUpOrder, TheRelayIsToldOfTheMuteWindowBeforeItStarts) {
  HostBench bench;
  bench.machine.driver().open_recorder(pcm_format(48000, 16, 2));
  bench.start();
  const auto messages = bench.machine.desktop().messages();
  const auto began = std::find_if(messages.begin(), messages.end(),
                                  [](const auto& message) { return message.message == WM_MIC_REC_ON; });
  ASSERT_NE(began, messages.end());
  EXPECT_EQ(began->window, bench.host->m_hMuteWnd.load());
}

TEST(StartUpOrder, EndpointsThatAreSetAlreadyAreTakenUpAnew) {
  HostBench bench;
  bench.driver().set_text(c::GetCaptureEndpointId, to_utf16(sim::kMicArray));
  bench.driver().set_text(c::GetRenderEndpointId, to_utf16(sim::kSpeakers));
  bench.host->m_AudioControl.SetEndpointForce(DataFlow::capture, sim::kMicArray);
  bench.host->m_AudioControl.SetEndpointForce(DataFlow::render, sim::kSpeakers);
  const std::uint64_t before = bench.machine.script().count(sim::Step::endpoint_activate_volume);
  std::uint64_t taken_up = 0;
  bench.machine.script().before(sim::Step::endpoints_register, 1, [&] {
    taken_up = bench.machine.script().count(sim::Step::endpoint_activate_volume) - before;
  });
  bench.start();
  EXPECT_EQ(taken_up, 2u);
}

TEST(StartUpOrder, TheSizeOfThePanelsBitmapIsNoted) {
  HostBench bench;
  bench.store_bitmap(200, 96, 120);
  bench.start();
  EXPECT_EQ(bench.host->m_panelBitmapSize.width, 96);
  EXPECT_EQ(bench.host->m_panelBitmapSize.height, 120);
}

TEST(StartUpOrder, AMuteOfTheMicrophoneIsToldToTheMuteWindow) {
  HostBench bench;
  bench.start();
  for (const bool mute : {true, false}) {
    bench.machine.endpoint(sim::kMicArray).volume().set_mute(mute);
    bench.run_for(10);
    const auto messages = bench.machine.desktop().messages();
    const auto told = std::find_if(messages.rbegin(), messages.rend(),
                                   [](const auto& message) { return message.message == WM_MIC_MUTE_STATE; });
    ASSERT_NE(told, messages.rend());
    EXPECT_EQ(told->window, bench.host->m_hMuteWnd.load());
    EXPECT_EQ(told->wParam, mute ? 1u : 0u);
  }
}

// ---- What is refused

class RefusedAtStartUp : public testing::TestWithParam<sim::Step> {};

TEST_P(RefusedAtStartUp, IsDoneWithout) {
  HostBench bench(kBeamForming);
  bench.machine.script().fail(GetParam(), error::kAccessDenied);
  bench.start(1000);
  EXPECT_TRUE(bench.running());
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread", "ChangeThread", "ChangeRegistryThread",
                                           "ChangeRegistryThread_Quit"));
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
  bench.end_session();
  EXPECT_EQ(bench.exit_code, 0);
}

INSTANTIATE_TEST_SUITE_P(Steps, RefusedAtStartUp,
                         testing::Values(sim::Step::control_notify_actions, sim::Step::bitmap_load,
                                         sim::Step::power_register_suspend_resume, sim::Step::power_register_setting,
                                         sim::Step::power_capabilities, sim::Step::session_register,
                                         sim::Step::endpoints_register),
                         [](const auto& each) { return sim::to_string(each.param); });

TEST(StartUpRefusals, CapabilitiesThatCanNotBeReadMeanNoConnectedStandby) {
  HostBench bench;
  bench.machine.power().set_connected_standby(true);
  bench.machine.script().fail(sim::Step::power_capabilities, error::kAccessDenied);
  bench.start();
  EXPECT_EQ(bench.host->m_bModernStandby, 0u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::power_register_setting), 1u);
}

TEST(StartUpRefusals, TheSecondRegistrationForTheDisplayReplacesTheFirstEvenWhenItIsRefused) {
  HostBench bench;
  bench.machine.power().set_connected_standby(true);
  bench.machine.script().fail(sim::Step::power_register_setting, error::kAccessDenied, 2);
  bench.start(1000);
  EXPECT_EQ(bench.host->m_bModernStandby, 1u);
  EXPECT_EQ(bench.host->m_hPowerSetting, nullptr);
  EXPECT_EQ(bench.machine.power().registrations(), 1u);  // that for suspend and resume
}

TEST(StartUpRefusals, AFunctionOfTheMicrophoneThatCanNotBeReadIsNone) {
  HostBench bench(kBeamForming);
  bench.driver().fail(c::GetFunctionMic, error::kAccessDenied);
  bench.start();
  EXPECT_EQ(bench.host->m_FunctionMic, 0u);
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
  EXPECT_EQ(bench.host->m_hEvent.Get(EventPair::kWork), nullptr);
}

TEST(StartUpRefusals, ALaunchedValueThatCanNotBeReadIsOff) {
  HostBench bench;
  bench.driver().set_number(c::NSV_GET_LAUNCHED_MTG, 1);
  bench.driver().set_number(c::NSV_GET_ALL_SP_MTG, 3);
  bench.driver().fail(c::NSV_GET_LAUNCHED_MTG, error::kAccessDenied);
  bench.start();
  EXPECT_EQ(bench.host->m_iMeetingMode, 0);
  EXPECT_EQ(bench.host->m_RoomCorrection, 0u);
}

/// Which of the six events is refused, and the thread that ends for it.
struct RefusedEvent {
  std::uint64_t nth;
  const char* thread;
};
void PrintTo(const RefusedEvent& row, std::ostream* out) { *out << "event " << row.nth; }
class EventRefusedAtStartUp : public testing::TestWithParam<RefusedEvent> {};

TEST_P(EventRefusedAtStartUp, CostsItsThreadAlone) {
  HostBench bench(kBeamForming);
  bench.machine.script().fail(sim::Step::event_create, 0, GetParam().nth);
  bench.start();
  EXPECT_THAT(bench.threads(), AllOf(testing::SizeIs(4), Not(Contains(GetParam().thread))));
}

INSTANTIATE_TEST_SUITE_P(Events, EventRefusedAtStartUp,
                         testing::Values(RefusedEvent{1, "ChangeThread"}, RefusedEvent{2, "ChangeThread"},
                                         RefusedEvent{3, "ChangeRegistryThread"},
                                         RefusedEvent{4, "ChangeRegistryThread"},
                                         RefusedEvent{5, "ChangeRegistryThread_Quit"},
                                         RefusedEvent{6, "ChangeRegistryThread_Quit"}));

}  // namespace
}  // namespace sonivo::test
