#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "base/text.h"
#include "host/entry.h"
#include "host/host_windows.h"
#include "host_bench.h"
#include "platform/window_messages.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::StartsWith;
namespace c = control;

/// The steps up to the first one of this name, that included.
std::vector<std::string> up_to(std::vector<std::string> steps, const std::string& last) {
  const auto found = std::find(steps.begin(), steps.end(), last);
  if (found != steps.end()) steps.erase(found + 1, steps.end());
  return steps;
}

std::vector<std::uint32_t> first(std::vector<std::uint32_t> codes, std::size_t count) {
  codes.resize(std::min(codes.size(), count));
  return codes;
}

TEST(StartUp, TakesItsStepsInOrder) {
  HostBench bench(kBeamForming);
  bench.machine.script().start_trace();
  bench.start();
  EXPECT_THAT(up_to(bench.steps(), "endpoints_default"),
              ElementsAre("thread_start",  // the service
                          "bus_interfaces", "control_open", "control_open", "control_notify_actions",
                          "control_request",                                        // generation
                          "control_request",                                        // launched
                          "control_request", "control_request", "control_request",  // functions
                          "work_area", "window_create",                             // panel
                          "bitmap_load", "window_create",                           // mute window
                          "window_hide", "bitmap_load",                             // strip
                          "power_register_suspend_resume", "power_register_setting", "power_capabilities",
                          "session_register",  //
                          "event_create", "event_create", "event_create", "event_create", "event_create",
                          "event_create",                                            // of the mode threads
                          "event_create", "control_request", "endpoints_default"));  // capture endpoint
}

TEST(StartUp, AsksTheDriverInOrder) {
  HostBench bench(kBeamForming);
  bench.start();
  EXPECT_THAT(first(bench.driver().codes(), 7),
              ElementsAre(c::GetSonivoDrvGeneration, c::NSV_GET_LAUNCHED_MTG, c::GetFunction, c::GetGenerationMic,
                          c::GetFunctionMic, c::GetCaptureEndpointId, c::GetRenderEndpointId));
}

TEST(StartUp, TheDevicesAreFollowedBeforeTheThreadsStart) {
  HostBench bench(kBeamForming);
  bool followed = false;
  bench.machine.script().before(sim::Step::thread_start, 5, [&] {  // service, reg-notify, render, capture, MainThread
    const auto codes = bench.driver().codes();
    followed = std::find(codes.begin(), codes.end(), c::GetHeadphone) != codes.end();
  });
  bench.start();
  EXPECT_TRUE(followed);
}

TEST(StartUp, ThreadsOfAMachineWithoutModes) {
  HostBench bench(kKeyCancel);
  bench.start();
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
  EXPECT_EQ(bench.host->m_hEvent.Get(0), nullptr);
  EXPECT_EQ(bench.host->m_hRegistryEvent.Get(0), nullptr);
  EXPECT_EQ(bench.host->m_hRegistryEvent_Quit.Get(0), nullptr);
}

TEST(StartUp, ThreadsOfAMachineWithModes) {
  for (const Model& model : {kBeamForming, kAISpeech}) {
    HostBench bench(model);
    bench.start();
    EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread", "ChangeThread", "ChangeRegistryThread",
                                             "ChangeRegistryThread_Quit"));
  }
}

TEST(StartUp, GenerationNineHasNoFunctions) {
  HostBench bench({9, 2, 5, 8});
  bench.start();
  const auto codes = bench.driver().codes();
  EXPECT_EQ(std::count(codes.begin(), codes.end(), c::GetFunction), 0);
  EXPECT_EQ(std::count(codes.begin(), codes.end(), c::GetGenerationMic), 0);
  EXPECT_EQ(std::count(codes.begin(), codes.end(), c::GetFunctionMic), 0);
  EXPECT_EQ(PanelBitmapId(*bench.host), 101u);
}

TEST(StartUp, GenerationsBelowEightHaveNoFunctions) {
  HostBench bench({7, 2, 5, 8});
  bench.start();
  const auto codes = bench.driver().codes();
  EXPECT_EQ(std::count(codes.begin(), codes.end(), c::GetFunction), 0);
  EXPECT_EQ(bench.host->m_dwGenerationMic, 0u);
}

TEST(StartUp, NoMicGenerationMeansNoMicFunctions) {
  HostBench bench({8, 2, 0, 8});
  bench.start();
  const auto codes = bench.driver().codes();
  EXPECT_EQ(std::count(codes.begin(), codes.end(), c::GetFunctionMic), 0);
  EXPECT_EQ(bench.host->m_FunctionMic, 0u);
}

// What a failing query leaves is seen before MainThread asks again, without defaults.
TEST(StartUp, FailingQueriesHaveTheirDefaults) {
  HostBench bench(kBeamForming);
  bench.driver().fail(c::GetSonivoDrvGeneration, error::kAccessDenied);
  bench.driver().fail(c::GetGenerationMic, error::kAccessDenied);
  bench.driver().fail(c::GetFunction, error::kAccessDenied);
  std::uint32_t generation = 0;
  std::uint32_t generation_mic = 0;
  std::uint32_t function = 9;
  std::uint32_t function_mic = 0;
  bench.machine.script().before(sim::Step::window_create, 1, [&] {
    generation = bench.host->m_dwGeneration;
    generation_mic = bench.host->m_dwGenerationMic;
    function = bench.host->m_Function;
    function_mic = bench.host->m_FunctionMic;
  });
  bench.start();
  EXPECT_EQ(generation, 8u);
  EXPECT_EQ(generation_mic, 2u);
  EXPECT_EQ(function, 0u);
  EXPECT_EQ(function_mic, kBeamForming.function_mic);
}

TEST(StartUp, TheLaunchedValueGivesThePosition) {
  struct Case {
    std::uint32_t launched, mode;
    std::int32_t position;
    std::uint32_t room_correction;
  };
  for (const Case& expected :
       {Case{0, 3, 0, 0}, Case{1, 0, 1, 0}, Case{1, 1, 2, 0}, Case{1, 2, 1, 1}, Case{1, 3, 2, 1}, Case{1, 4, 3, 1}}) {
    HostBench bench;
    bench.driver().set_number(c::NSV_GET_LAUNCHED_MTG, expected.launched);
    bench.driver().set_number(c::NSV_GET_ALL_SP_MTG, expected.mode);
    bench.start();
    EXPECT_EQ(bench.host->m_iMeetingMode, expected.position);
    EXPECT_EQ(bench.host->m_iMeetingModeTmp, expected.position);
    EXPECT_EQ(bench.host->m_iMeetingModeCur, expected.position);
    EXPECT_EQ(bench.host->m_RoomCorrection, expected.room_correction);
  }
}

TEST(StartUp, WithoutAWindowTheProcessEndsWithOne) {
  for (const std::uint64_t nth : {1u, 2u}) {
    HostBench bench(kBeamForming);
    bench.machine.script().fail(sim::Step::window_create, 0, nth);
    bench.start();
    EXPECT_EQ(bench.exit_code, 1);
    EXPECT_THAT(bench.threads(), IsEmpty());
    EXPECT_EQ(bench.machine.script().count(sim::Step::power_register_suspend_resume), 0u);
    EXPECT_EQ(bench.machine.script().count(sim::Step::window_create), nth);
    EXPECT_EQ(bench.driver().open_handles(), 2u);  // what was done stays as it is
  }
}

TEST(StartUp, WindowsStandAtTheWorkAreasEdge) {
  HostBench bench({8, 2, 3, 2});
  bench.store_bitmap(123, 120, 40);
  bench.machine.desktop().windows().set_screen({0, 0, 1600, 860}, {0, 0, 1600, 900});
  bench.start();
  Rect place;
  ASSERT_TRUE(bench.machine.desktop().windows().rect(bench.host->m_hWnd, place));
  EXPECT_EQ(place, (Rect{(1600 - 384) / 2, 860 - 164, (1600 - 384) / 2 + 384, 860 - 164 + 96}));
  ASSERT_TRUE(bench.machine.desktop().windows().rect(bench.host->m_hMuteWnd, place));
  EXPECT_EQ(place, (Rect{1600 - 400 - 120, 860 - 40, 1600 - 400, 860}));
  EXPECT_FALSE(bench.machine.desktop().windows().visible(bench.host->m_hWnd));
}

TEST(StartUp, PanelBitmapByGenerationAndFunction) {
  const sim::Config config;
  sim::SimMachine machine(config);
  const auto host = std::make_shared<HostState>(machine.seams(), ScriptedChains().factory());
  struct Case {
    std::uint32_t generation, function, id;
  };
  for (const Case& expected : {Case{8, 0, 200}, Case{8, 1, 200}, Case{8, 2, 303}, Case{9, 0, 101}, Case{9, 1, 101},
                               Case{9, 2, 304}, Case{10, 1, 200}, Case{10, 3, 303}}) {
    host->m_dwGeneration = expected.generation;
    host->m_Function = expected.function;
    EXPECT_EQ(PanelBitmapId(*host), expected.id);
  }
}

TEST(StartUp, ConnectedStandbyRegistersForTheDisplayTwiceAndKeepsOne) {
  HostBench bench;
  bench.machine.power().set_connected_standby(true);
  bench.start();
  EXPECT_EQ(bench.host->m_bModernStandby, 1u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::power_register_setting), 2u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::power_unregister_setting), 1u);
  EXPECT_EQ(bench.machine.power().registrations(), 2u);  // and that for suspend and resume
}

TEST(StartUp, WithoutConnectedStandbyItRegistersOnce) {
  HostBench bench;
  bench.host->m_bModernStandby = 1;
  bench.start();
  EXPECT_EQ(bench.host->m_bModernStandby, 0u);
  EXPECT_EQ(bench.machine.script().count(sim::Step::power_register_setting), 1u);
}

TEST(StartUp, MissingEndpointIdsAreSaidAndTheDefaultsAreFollowed) {
  HostBench bench;
  bench.start();
  EXPECT_TRUE(bench.log.has("[cap] capture endpoint id was not found.\n"));
  EXPECT_TRUE(bench.log.has("[ren] render endpoint id was not found.\n"));
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::capture).EndpointId(), sim::kMicArray);
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::render).EndpointId(), sim::kSpeakers);
}

TEST(StartUp, EndpointIdsThatCanNotBeReadAreMissing) {
  HostBench bench;
  bench.driver().set_text(c::GetCaptureEndpointId, to_utf16(sim::kHeadsetMic));
  bench.driver().fail(c::GetCaptureEndpointId, error::kAccessDenied);
  bench.start();
  EXPECT_TRUE(bench.log.has("[cap] capture endpoint id was not found.\n"));
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::capture).EndpointId(), sim::kMicArray);
}

TEST(StartUp, EndpointIdsOfTheDriverAreUsed) {
  HostBench bench;
  bench.driver().set_text(c::GetCaptureEndpointId, to_utf16(sim::kHeadsetMic));
  bench.driver().set_text(c::GetRenderEndpointId, to_utf16(sim::kHeadphones));
  bench.start();
  EXPECT_FALSE(bench.log.has("[cap] capture endpoint id was not found.\n"));
  EXPECT_FALSE(bench.log.has("[ren] render endpoint id was not found.\n"));
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::capture).EndpointId(), sim::kHeadsetMic);
  EXPECT_EQ(bench.host->m_AudioControl.Stream(DataFlow::render).EndpointId(), sim::kHeadphones);
}

TEST(StartUp, TheThirdChainGetsItsFolderAndModelPath) {
  HostBench bench(kAISpeech);
  bench.start();
  const std::filesystem::path folder = bench.folder.path() / "user" / "NorvellSonivo";
  EXPECT_TRUE(std::filesystem::is_directory(folder));
  EXPECT_EQ(bench.host->m_szEnhanceModelFolder, folder);
  EXPECT_EQ(bench.host->m_szEnhanceModelPath, (folder / "EnhanceModel.bin").string());
}

TEST(StartUp, AFolderThatIsThereAlreadyIsUsed) {
  HostBench bench(kAISpeech);
  std::filesystem::create_directory(bench.folder.path() / "user" / "NorvellSonivo");
  bench.start();
  EXPECT_EQ(bench.host->m_szEnhanceModelFolder, bench.folder.path() / "user" / "NorvellSonivo");
}

TEST(StartUp, WithoutItsFolderTheModelPathIsTheFileNameAlone) {
  HostBench bench(kAISpeech);
  std::filesystem::remove(bench.folder.path() / "user");
  bench.start();
  EXPECT_TRUE(bench.host->m_szEnhanceModelFolder.empty());
  EXPECT_EQ(bench.host->m_szEnhanceModelPath, "EnhanceModel.bin");
}

TEST(StartUp, AnAbsentDriverLeavesDefaultsAndIsAskedAgain) {
  HostBench bench(kBeamForming);
  bench.driver().set_present(false);
  bench.start(5000);
  EXPECT_EQ(bench.host->m_dwGeneration, 8u);
  EXPECT_EQ(bench.host->m_dwGenerationMic, 0u);
  EXPECT_EQ(bench.host->m_Function, 0u);
  EXPECT_EQ(bench.host->m_FunctionMic, 0u);
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
  EXPECT_EQ(bench.driver().opened_handles(), 0u);

  bench.driver().set_present(true);
  bench.run_for(3000);
  EXPECT_EQ(bench.driver().open_handles(), 2u);
  EXPECT_EQ(bench.host->m_dwGenerationMic, 3u);
  EXPECT_EQ(bench.host->m_FunctionMic, 2u);
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));  // the mode threads come with the next start
}

TEST(StartUp, ARebootWithALateDriverBringsTheModeThreads) {
  HostBench bench(kBeamForming);
  bench.driver().set_present(false);
  bench.start(1000);
  bench.driver().set_present(true);
  bench.run_for(5000);
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.machine.session().unlock();
  bench.run_for(3000);
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread", "ChangeThread", "ChangeRegistryThread",
                                           "ChangeRegistryThread_Quit"));
}

TEST(ShutDown, LeavesNothingBehind) {
  for (const Model& model : {kPlain, kKeyCancel, kBeamForming, kAISpeech}) {
    HostBench bench(model);
    bench.start(1000);
    bench.end_session();
    EXPECT_EQ(bench.exit_code, 0);
    EXPECT_EQ(bench.machine.session().end_agreed(), true);
    EXPECT_THAT(bench.threads(), IsEmpty());
    bench.host.reset();
    bench.run_for(1000);
    const sim::Leaks left = bench.machine.leaks();
    const sim::Leaks windows_alone{.windows = 2};  // they go with the process
    EXPECT_EQ(left, windows_alone);
  }
}

TEST(ShutDown, HooksAndPowerAreUnregistered) {
  HostBench bench;
  bench.start();
  InputDevices& input = bench.machine.desktop().input();
  bench.host->m_hHookWnd = input.hook_mouse([](const MouseInput&) { return false; });
  bench.host->m_hKeyHookWnd = input.hook_keyboard([](const KeyInput&) { return false; });
  bench.post(kWmClose);  // the way out that doesn't hide the panel
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_EQ(bench.machine.power().registrations(), 0u);
  EXPECT_EQ(bench.machine.desktop().input().live_hooks(), 0u);
}

}  // namespace
}  // namespace sonivo::test
