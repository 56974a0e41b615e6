// For how long the entry waits for its threads, and what becomes of those that it leaves behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "host_bench.h"

namespace sonivo::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
namespace c = control;

constexpr const char* kSubLeft = "[Main] hThreadSub != WAIT_OBJECT_0.\n";
constexpr const char* kMainLeft = "[Main] hThread != WAIT_OBJECT_0.\n";

template <class Item, class One>
std::size_t times(const std::vector<Item>& all, const One& one) {
  return static_cast<std::size_t>(std::count(all.begin(), all.end(), one));
}

struct WaitingBench : HostBench {
  explicit WaitingBench(const Model& model) : HostBench(model) {}
  ~WaitingBench() {
    end_players();
    machine.session().set_console_session(1);
    run_for(1000);
  }
  /// MainThread waits for the end of a player's shell.
  void hang_main_thread() {
    machine.processes().set_run_time(std::nullopt);
    driver().send_event(c::kPlayerIsOn);
    run_for(50);
  }
  void end_players() {
    for (const auto& process : machine.processes().started()) machine.processes().end(process.id);
  }
  /// SubThread waits for the driver, from now or its next round on.
  void hang_sub_thread(std::uint32_t ms) {
    driver().set_delay(c::GetKeyboardCancelMTG, ms);
    run_for(250);
  }
  /// Tells the threads to leave, without closing the handles, which would end their requests.
  void reboot() {
    host->m_bThreadExit = 1;
    host->m_bSonivoServiceLock = 1;
    post_any();
  }
  /// Whether the rules of the devices are applied when another one becomes the default.
  bool follows_the_default_device() {
    driver().forget_requests();
    plays_at_headphones_ = !plays_at_headphones_;
    machine.endpoints().set_default(DataFlow::render, Role::console,
                                    plays_at_headphones_ ? sim::kHeadphones : sim::kSpeakers);
    run_for(10);
    return times(driver().codes(), c::GetHeadphone) != 0;
  }
  /// The session is locked; each of the mode threads' events, whether it is open when the next message has started the
  /// first thread anew.
  std::vector<bool> open_events_after_lock(std::uint32_t ms) {
    std::vector<bool> open;
    machine.session().lock();
    run_for(1000);
    machine.script().before(sim::Step::thread_start, 1, [&] {
      for (const EventPair* pair : {&host->m_hEvent, &host->m_hRegistryEvent, &host->m_hRegistryEvent_Quit}) {
        for (const auto each : {EventPair::kWork, EventPair::kStop}) open.push_back(pair->Get(each) != nullptr);
      }
    });
    post_any();
    run_for(ms);
    return open;
  }

 private:
  bool plays_at_headphones_ = false;
};

// ---- At a reboot

TEST(WaitingAtAReboot, GivesEachThreadSixSecondsOneAfterAnother) {
  WaitingBench bench(kKeyCancel);
  bench.start(1000);
  bench.hang_main_thread();
  bench.hang_sub_thread(60'000);
  bench.reboot();
  bench.run_for(5999);
  EXPECT_FALSE(bench.log.has(kSubLeft));
  bench.run_for(2);
  EXPECT_TRUE(bench.log.has(kSubLeft));
  EXPECT_FALSE(bench.log.has(kMainLeft));
  bench.run_for(5997);
  EXPECT_FALSE(bench.log.has(kMainLeft));
  bench.run_for(3);
  EXPECT_TRUE(bench.log.has(kMainLeft));
  EXPECT_EQ(bench.host->m_bThreadExit, 0u);
  EXPECT_EQ(times(bench.threads(), "MainThread"), 2u);
  EXPECT_EQ(times(bench.threads(), "SubThread"), 2u);
}

TEST(WaitingAtAReboot, EndsWithTheThread) {
  WaitingBench bench(kKeyCancel);
  bench.start(1000);
  bench.hang_main_thread();
  bench.reboot();
  bench.run_for(5900);
  EXPECT_EQ(bench.host->m_bThreadExit, 1u);
  bench.end_players();
  bench.run_for(1);
  EXPECT_EQ(bench.host->m_bThreadExit, 0u);
  EXPECT_FALSE(bench.log.has(kMainLeft));
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
}

// In another session the mode threads stay.
TEST(WaitingAtAReboot, GivesBothModeThreadsTheirTimeAndSaysNothingOfThem) {
  WaitingBench bench(kBeamForming);
  bench.start();
  bench.machine.session().set_console_session(2);
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.post_any();
  bench.run_for(11'990);
  EXPECT_EQ(bench.host->m_bThreadExit, 1u);
  bench.run_for(20);
  EXPECT_EQ(bench.host->m_bThreadExit, 0u);
  EXPECT_FALSE(bench.log.has(kSubLeft));
  EXPECT_FALSE(bench.log.has(kMainLeft));
}

TEST(WaitingAtAReboot, ClosesTheEventsOfThreadsThatEnded) {
  WaitingBench bench(kBeamForming);
  bench.start();
  EXPECT_THAT(bench.open_events_after_lock(100), AllOf(SizeIs(6), Each(false)));
}

TEST(WaitingAtAReboot, LeavesTheEventsOfAbandonedThreadsOpen) {
  WaitingBench bench(kBeamForming);
  bench.start();
  bench.machine.session().set_console_session(2);
  EXPECT_THAT(bench.open_events_after_lock(13'000), AllOf(SizeIs(6), Each(true)));
}

/// The limit for one thread, and until the driver is open again.
constexpr std::uint32_t kRebooted = 9000;

/// A service whose registry thread builds a voice model for half a minute, on a machine where nobody else wants the
/// third chain meanwhile.
struct BuildingBench : WaitingBench {
  BuildingBench() : WaitingBench(kBeamForming) {
    store_parameters();
    driver().set_text(c::GetAispeechenhanceWavFolderMTG, to_utf16(folder.path().string()));
    chains.ai_speech->during("MakeAIModel", [this] { machine.seams().clock.sleep_ms(30'000); });
    start(1000);
    host->m_AudioControl.SetAISpeechEnhanceOpen();
    driver().set_number(c::GetAispeechenhanceRegistrationMTG, 20);
    store_parameters();  // any property of the endpoint
    run_for(100);
    EXPECT_EQ(driver().number(c::GetAispeechenhanceRegistrationMTG), 30u);
  }
};

TEST(AbandonedRegistryThread, KeepsItsEventsAndThoseOfTheThreadThatQuitsItsBuild) {
  BuildingBench bench;
  const auto former = bench.host->m_hRegistryEvent.Get(EventPair::kStop);
  const auto former_quit = bench.host->m_hRegistryEvent_Quit.Get(EventPair::kStop);
  EXPECT_THAT(bench.open_events_after_lock(kRebooted), ElementsAre(false, false, true, true, true, true));
  EXPECT_NE(bench.host->m_hRegistryEvent.Get(EventPair::kStop), former);
  EXPECT_NE(bench.host->m_hRegistryEvent_Quit.Get(EventPair::kStop), former_quit);
  EXPECT_THAT(bench.threads(), ElementsAre("ChangeRegistryThread", "MainThread", "SubThread", "ChangeThread",
                                           "ChangeRegistryThread", "ChangeRegistryThread_Quit"));
  EXPECT_TRUE(bench.follows_the_default_device());
}

TEST(AbandonedRegistryThread, FinishesItsBuildAndEndsBesideItsSuccessor) {
  BuildingBench bench;
  bench.machine.session().lock();
  bench.run_for(1000);
  EXPECT_THAT(bench.threads(), ElementsAre("ChangeRegistryThread"));
  bench.post_any();
  bench.run_for(7000);
  EXPECT_EQ(times(bench.threads(), "ChangeRegistryThread"), 2u);
  bench.run_for(25'000);
  EXPECT_EQ(bench.driver().number(c::GetAispeechenhanceRegistrationMTG), 0u);  // its status
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread", "ChangeThread", "ChangeRegistryThread",
                                           "ChangeRegistryThread_Quit"));

  bench.driver().forget_requests();
  bench.store_parameters();
  bench.run_for(100);
  EXPECT_THAT(bench.driver().codes(), Contains(c::GetAispeechenhanceModelNoMTG));  // of the successor
  bench.machine.session().lock();
  bench.run_for(1000);
  EXPECT_THAT(bench.threads(), IsEmpty());
}

/// A service whose ChangeThread has followed a device for half a minute before it asks the driver again.
struct FollowingBench : WaitingBench {
  FollowingBench() : WaitingBench(kBeamForming) {
    start(1000);
    driver().before(c::GetKeyboardCancelMTG, [this] { machine.seams().clock.sleep_ms(30'000); });
    EXPECT_TRUE(follows_the_default_device());
  }
  ~FollowingBench() { run_for(30'000); }
};

TEST(AbandonedChangeThread, KeepsItsEventsWhileThoseOfTheRegistryThreadsClose) {
  FollowingBench bench;
  const auto former = bench.host->m_hEvent.Get(EventPair::kStop);
  EXPECT_THAT(bench.open_events_after_lock(kRebooted), ElementsAre(true, true, false, false, false, false));
  EXPECT_NE(bench.host->m_hEvent.Get(EventPair::kStop), former);
  EXPECT_THAT(bench.threads(), ElementsAre("ChangeThread", "MainThread", "SubThread", "ChangeThread",
                                           "ChangeRegistryThread", "ChangeRegistryThread_Quit"));
}

TEST(AbandonedChangeThread, EndsBesideItsSuccessorWhichFollowsTheDevices) {
  FollowingBench bench;
  bench.open_events_after_lock(kRebooted);
  EXPECT_TRUE(bench.follows_the_default_device());
  bench.run_for(30'000);
  EXPECT_EQ(times(bench.threads(), "ChangeThread"), 1u);
  EXPECT_TRUE(bench.follows_the_default_device());
}

// The entry is held up between the new thread and its first event.
TEST(AbandonedChangeThread, HasItsStopTakenByASuccessorThatIsThereBeforeItsEvents) {
  FollowingBench bench;
  const auto former = bench.host->m_hEvent.Get(EventPair::kStop);
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.machine.script().before(sim::Step::event_create, 1, [&] { bench.machine.scheduler().pass(sim::kMillisecond); });
  bench.post_any();
  bench.run_for(kRebooted);
  EXPECT_FALSE(bench.log.has("ChangeThread ERROR.\n"));
  EXPECT_THAT(bench.threads(), ElementsAre("ChangeThread", "MainThread", "SubThread", "ChangeRegistryThread",
                                           "ChangeRegistryThread_Quit"));
  ASSERT_EQ(bench.host->m_bDriverReady, 1u);
  EXPECT_FALSE(bench.follows_the_default_device());
  bench.run_for(30'000);
  EXPECT_THAT(bench.threads(), Contains("ChangeThread")) << "the one left behind";
  former->set();
  bench.run_for(10);
  EXPECT_THAT(bench.threads(), Not(Contains("ChangeThread")));
}

// ---- Without gates

/// A service whose driver takes the microphone's functions back once the mode threads run.
struct LostGatesBench : WaitingBench {
  LostGatesBench() : WaitingBench(kBeamForming) {
    start(1000);
    connect_with(0);
  }
  ~LostGatesBench() {
    for (EventPair* events : {&host->m_hEvent, &host->m_hRegistryEvent, &host->m_hRegistryEvent_Quit}) {
      events->Set(EventPair::kStop);
    }
  }
  /// MainThread connects anew with a driver that says so.
  void connect_with(std::uint32_t function_mic) {
    driver().set_number(c::GetFunctionMic, function_mic);
    host->m_bDriverReady = 0;
    driver().send_event(c::kNothing);
    run_for(100);
    EXPECT_EQ(host->m_FunctionMic, function_mic);
  }
};

TEST(ModeThreadsWithoutGates, StayThroughARebootThatDoesNotWaitForThem) {
  LostGatesBench bench;
  bench.machine.session().lock();
  bench.run_for(1000);
  EXPECT_THAT(bench.threads(), ElementsAre("ChangeThread", "ChangeRegistryThread", "ChangeRegistryThread_Quit"));
  bench.post_any();
  bench.run_for(10);
  EXPECT_THAT(bench.threads(), ElementsAre("ChangeThread", "ChangeRegistryThread", "ChangeRegistryThread_Quit",
                                           "MainThread", "SubThread"));
}

TEST(ModeThreadsWithoutGates, LeaveWithTheNextStopOnceTheGatesAreBack) {
  LostGatesBench bench;
  bench.connect_with(kBeamForming.function_mic);
  bench.machine.session().lock();
  bench.run_for(1000);
  EXPECT_THAT(bench.threads(), IsEmpty());
}

TEST(ModeThreadsWithoutGates, AreWaitedForAtTheEndAllTheSame) {
  LostGatesBench bench;
  bench.machine.session().query_end();
  bench.run_for(60'000);
  EXPECT_TRUE(bench.running());
  bench.host->m_hEvent.Set(EventPair::kStop);
  bench.host->m_hRegistryEvent_Quit.Set(EventPair::kStop);
  bench.run_for(1000);
  EXPECT_TRUE(bench.running());
  bench.host->m_hRegistryEvent.Set(EventPair::kStop);
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
}

// ---- At the end

TEST(WaitingAtTheEnd, HasNoLimitForMainThread) {
  WaitingBench bench(kPlain);
  bench.start(1000);
  bench.hang_main_thread();
  bench.machine.session().query_end();
  bench.run_for(60'000);
  EXPECT_TRUE(bench.running());
  bench.end_players();
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
}

TEST(WaitingAtTheEnd, HasNoLimitForTheModeThreads) {
  WaitingBench bench(kBeamForming);
  bench.start();
  bench.machine.session().set_console_session(2);
  bench.machine.session().query_end();
  bench.run_for(60'000);
  EXPECT_TRUE(bench.running());
  EXPECT_THAT(bench.threads(), ElementsAre("ChangeThread", "ChangeRegistryThread", "ChangeRegistryThread_Quit"));
  bench.machine.session().set_console_session(1);
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
}

TEST(WaitingAtTheEnd, HasNoLimitForABuild) {
  BuildingBench bench;
  bench.machine.session().query_end();
  bench.run_for(25'000);
  EXPECT_TRUE(bench.running());
  bench.run_for(10'000);
  EXPECT_EQ(bench.exit_code, 0);
}

TEST(WaitingAtTheEnd, IsNotForTheThreadThatQuitsABuild) {
  WaitingBench bench(kAISpeech);
  bench.store_parameters();
  bench.chains.ai_speech->during("QuitMakeAIModel", [&] { bench.machine.seams().clock.sleep_ms(60'000); });
  bench.start(1000);
  bench.driver().set_number(c::GetAispeechenhanceRegistrationMTG, 40);
  bench.store_parameters();
  bench.run_for(100);
  bench.machine.session().query_end();
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_THAT(bench.threads(), ElementsAre("ChangeRegistryThread_Quit"));
  bench.run_for(60'000);
  EXPECT_THAT(bench.threads(), IsEmpty());
}

// ---- The loop itself

TEST(MessageLoopFailure, OfOneMessageKeepsTheServiceRunning) {
  WaitingBench bench(kPlain);
  bench.machine.script().fail(sim::Step::get_message, 0, 1);
  bench.start(1000);
  EXPECT_TRUE(bench.running());
  const std::uint64_t dispatched = bench.machine.script().count(sim::Step::dispatch_message);
  bench.post_any();
  bench.run_for(10);
  EXPECT_EQ(bench.machine.script().count(sim::Step::dispatch_message), dispatched + 1);
  bench.end_session();
  EXPECT_EQ(bench.exit_code, 0);
}

}  // namespace
}  // namespace sonivo::test
