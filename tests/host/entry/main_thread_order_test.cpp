// In which order MainThread does its work, on which window and microphone, and what a stop in its middle leaves.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "base/text.h"
#include "host/stopping.h"
#include "main_thread_bench.h"

namespace sonivo::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
namespace c = control;

// ---- Stops

TEST(StopDuringReconnect, OpensNoDriver) {
  MainThreadBench bench;
  bench.start_thread(300);
  StopDriverThreads(*bench.host);
  bench.run_for(300);
  EXPECT_EQ(bench.status, 0u);
  EXPECT_EQ(bench.driver().opened_handles(), 0u);
}

TEST(StopDuringSynchronise, LeavesTheFirstConnectionToBeDone) {
  MainThreadBench bench;
  bench.open();
  bench.machine.script().before(sim::Step::control_request, 2, [&] {
    EXPECT_EQ(bench.host->m_bDriverReady, 1u);
    StopDriverThreads(*bench.host);
  });
  bench.start_thread();
  EXPECT_EQ(bench.status, 0u);
  EXPECT_EQ(bench.host->m_bDriverReady, 0u);
}

TEST(HeldDriver, IsNotSynchronisedWith) {
  MainThreadBench bench(kPlain, sim::Schedule::free);
  bench.open();
  bench.start_thread();
  const std::size_t asked = bench.all_codes().size();
  bench.host->m_bSonivoServiceLock = 1;
  bench.host->m_bDriverReady = 0;
  bench.driver().send_event(c::kNothing);
  while (bench.machine.script().count(sim::Step::sleep) < 1000) bench.machine.scheduler().pass(0);
  EXPECT_EQ(bench.all_codes().size(), asked);
  EXPECT_EQ(bench.host->m_bDriverReady, 0u);
  bench.host->m_bThreadExit = 1;
  bench.thread->join();
}

TEST(DriverThatLeaves, IsNotReadyAnyMoreWhenItsHandlesClose) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  ASSERT_EQ(bench.host->m_bDriverReady, 1u);
  std::uint32_t found = 77;
  bench.machine.script().before(sim::Step::control_close, 1, [&] { found = bench.host->m_bDriverReady; });
  bench.send(c::NSVPLAY_CMD_EXIT);
  EXPECT_EQ(found, 0u);
}

// ---- Endpoints

TEST(ConnectedEndpoints, AreBothReadBeforeTheMicrophonesIsSetAndThenTheSpeakers) {
  MainThreadBench bench;
  bench.open();
  bench.driver().set_text(c::GetCaptureEndpointId, to_utf16(sim::kHeadsetMic));
  std::vector<std::uint32_t> asked;
  bench.machine.script().before(sim::Step::endpoint_activate_volume, 1, [&] { asked = bench.driver().codes(); });
  std::string microphone{"?"};  // when the default is asked for, which is for the speakers alone
  bench.machine.script().before(sim::Step::endpoints_default, 1, [&] {
    microphone = bench.host->m_AudioControl.Stream(DataFlow::capture).EndpointId();
  });
  bench.start_thread();
  EXPECT_THAT(asked, AllOf(Contains(c::GetCaptureEndpointId), Contains(c::GetRenderEndpointId)));
  EXPECT_EQ(microphone, sim::kHeadsetMic);
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::render).EndpointId(), sim::kSpeakers);
}

TEST(ConnectedEndpoints, ThatAreMissingAreSaid) {
  MainThreadBench bench;
  bench.open();
  bench.driver().set_text(c::GetRenderEndpointId, to_utf16(sim::kHeadphones));
  bench.start_thread();
  EXPECT_EQ(bench.log.count("[cap] capture endpoint id was not found.\n"), 1u);
  EXPECT_FALSE(bench.log.has("[ren] render endpoint id was not found.\n"));
}

// The default endpoint is asked for while a stream is told what to follow.
TEST(ConnectedEndpoints, AreSetWithoutTheDriversLock) {
  MainThreadBench bench;
  bench.open();
  std::vector<bool> free;
  const auto note_next = [&](std::uint64_t nth) {
    bench.machine.script().before(sim::Step::endpoints_default, nth,
                                  [&] { free.push_back(bench.driver_lock_is_free()); });
  };
  note_next(1);
  note_next(2);
  bench.start_thread();
  EXPECT_THAT(free, ElementsAre(true, true));
  for (const std::uint32_t command : {c::NSVDRV_CMD_DEV_MIC, c::NSVDRV_CMD_DEV_SPK}) {
    free.clear();
    note_next(1);
    bench.send(command);
    EXPECT_THAT(free, ElementsAre(true));
  }
}

// ---- Chains that run already

/// A machine whose chain runs before the driver is connected.
struct RunningChainBench : MainThreadBench {
  explicit RunningChainBench(const Model& model) : MainThreadBench(model) {
    store_parameters();
    host->m_AudioControl.SetEndpointForce(DataFlow::capture, sim::kMicArray);
  }
  /// What the chain is told when the driver is connected.
  std::vector<std::string> told_on_connection(ChainScript& chain) {
    record();
    chain.clear();
    open();
    start_thread(1000);
    return chain.calls();
  }
};

TEST(RunningChain, TheSecondTakesTheDriversSettingsWhenItConnects) {
  for (const bool on : {false, true}) {
    RunningChainBench bench(kBeamForming);
    bench.host->m_AudioControl.SetGenAndFunction(8, 2, 3, 2);
    bench.host->m_AudioControl.ChangeBeamFormingKeyCancelState(!on);
    bench.host->m_AudioControl.ChangeBeamFormingState(on);
    bench.driver().set_number(c::GetKeyboardCancelMTG, on ? 1 : 0);
    bench.driver().set_number(c::GetBeamformingMTG, on ? 0 : 1);
    EXPECT_THAT(bench.told_on_connection(*bench.chains.beam_forming),
                AllOf(Contains(on ? "SetKeyReductionActive(1)" : "SetKeyReductionActive(0)"),
                      Contains(on ? "SetBeamFormingActive(0)" : "SetBeamFormingActive(1)")));
  }
}

TEST(RunningChain, TheThirdTakesTheDriversSettingWhenItConnects) {
  for (const bool on : {false, true}) {
    RunningChainBench bench(kAISpeech);
    bench.host->m_AudioControl.SetGenAndFunction(10, 2, 5, 8);
    bench.host->m_AudioControl.ChangeAISpeechEnhanceState(!on);
    bench.host->m_AudioControl.SetAISpeechEnhanceOpen();
    bench.driver().set_number(c::GetAispeechenhanceMTG, on ? 1 : 0);
    EXPECT_THAT(bench.told_on_connection(*bench.chains.ai_speech),
                Contains(on ? "SetAISpeechEnhanceActive(1)" : "SetAISpeechEnhanceActive(0)"));
  }
}

// ---- Auto mute

/// A muted microphone that MainThread knows, and two windows that show.
struct AutoMuteBench : MainThreadBench {
  AutoMuteBench() {
    open();
    host->m_AudioControl.SetEndpointForce(DataFlow::capture, sim::kMicArray);
    machine.endpoint(sim::kMicArray).volume().set_mute(true);
    Windows& windows = machine.desktop().windows();
    for (std::atomic<WindowHandle>* window : {&host->m_hWnd, &host->m_hMuteWnd}) {
      *window = windows.create("window", {0, 0, 10, 10}, [](const Message&) { return 0; });
      windows.show_at(*window, {0, 0, 10, 10}, Stacking::unchanged);
    }
  }
  bool muted() { return machine.endpoint(sim::kMicArray).volume().muted(); }
  bool only_the_mute_window_is_hidden() {
    Windows& windows = machine.desktop().windows();
    return windows.visible(host->m_hWnd) && !windows.visible(host->m_hMuteWnd);
  }
  /// Whether the window was hidden when the microphone's mute is set next.
  void note_hidden_at_unmute() {
    machine.script().before(sim::Step::volume_set_mute, 1,
                            [this] { hidden_at_unmute = machine.script().count(sim::Step::window_hide) == 1; });
  }
  std::optional<bool> hidden_at_unmute;
};

TEST(AutoMuteGoesOff, WithTheConnectionHidesTheMuteWindowAndThenUnmutes) {
  AutoMuteBench bench;
  bench.host->m_dwAutoMute = 1;
  bench.note_hidden_at_unmute();
  bench.start_thread();
  EXPECT_TRUE(bench.only_the_mute_window_is_hidden());
  EXPECT_EQ(bench.hidden_at_unmute, true);
  EXPECT_FALSE(bench.muted());
}

TEST(AutoMuteGoesOff, WithItsCommandHidesTheMuteWindowAndThenUnmutes) {
  AutoMuteBench bench;
  bench.start_thread();
  bench.send(c::NSVDRV_CMD_AUTOMUTE_ON);
  bench.note_hidden_at_unmute();
  bench.send(c::NSVDRV_CMD_AUTOMUTE_OFF);
  EXPECT_TRUE(bench.only_the_mute_window_is_hidden());
  EXPECT_EQ(bench.hidden_at_unmute, true);
  EXPECT_FALSE(bench.muted());
}

TEST(AutoMuteStays, OffAndTheCommandLeavesTheMute) {
  AutoMuteBench bench;
  bench.start_thread();
  bench.send(c::NSVDRV_CMD_AUTOMUTE_OFF);
  EXPECT_TRUE(bench.muted());
}

TEST(AutoMuteGoesOn, WithTheConnectionAndLeavesTheMute) {
  AutoMuteBench bench;
  bench.driver().set_number(c::NSV_GET_AUTO_MUTE_MTG, 1);
  bench.start_thread();
  EXPECT_EQ(bench.host->m_dwAutoMute, 1u);
  EXPECT_TRUE(bench.muted());
}

TEST(AutoMuteGoesOn, WithItsCommandAndLeavesTheMute) {
  AutoMuteBench bench;
  bench.start_thread();
  bench.send(c::NSVDRV_CMD_AUTOMUTE_ON);
  EXPECT_EQ(bench.host->m_dwAutoMute, 1u);
  EXPECT_TRUE(bench.muted());
}

// ---- The nudge

TEST(PointerNudge, KeepsTheDisplayAndThenMovesThePointerByNothing) {
  MainThreadBench bench;
  bench.open();
  bench.start_thread();
  constexpr Point kPlace{300, 200};
  bench.machine.desktop().input().mouse(kWmMouseMove, kPlace);
  std::vector<MouseInput> moves;
  const auto hook = bench.machine.desktop().input().hook_mouse([&](const MouseInput& input) {
    moves.push_back(input);
    return false;
  });
  std::uint64_t kept = 77;
  bench.machine.script().before(sim::Step::pointer_move, 1,
                                [&] { kept = bench.machine.script().count(sim::Step::power_require_display); });
  bench.send(c::kMonitorWake);
  Message message;
  bench.machine.desktop().peek_message(message);  // hooks are called while their thread looks for messages
  EXPECT_EQ(kept, 1u);
  ASSERT_EQ(moves.size(), 1u);
  EXPECT_EQ(moves[0].message, kWmMouseMove);
  EXPECT_EQ(moves[0].at, kPlace);
}

}  // namespace
}  // namespace sonivo::test
