#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/threads.h"
#include "host_bench.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace c = control;

/// ChangeThread alone.
struct ChangeThreadBench : HostBench {
  explicit ChangeThreadBench(const Model& model = kBeamForming) : HostBench(model) {
    host->m_dwGenerationMic = model.generation_mic;
    host->m_FunctionMic = model.function_mic;
    host->m_DriverAccess.InitDriverInfo(c::kControlInterface);
    driver().forget_requests();
  }
  ~ChangeThreadBench() {
    machine.session().set_console_session(1);
    host->m_hEvent.Set(EventPair::kStop);
    if (thread) thread->join();
  }
  void create_events() {
    host->m_hEvent.Create(machine.seams().events, EventPair::kWork);
    host->m_hEvent.Create(machine.seams().events, EventPair::kStop);
  }
  void start_thread() {
    thread = machine.scheduler().start("ChangeThread", [this] { status = ChangeThread(*host); });
    run_for(10);
  }
  bool followed() { return !driver().codes().empty(); }

  std::unique_ptr<Thread> thread;
  std::uint32_t status = 77;
};

TEST(ChangeThreadTest, AChangedDeviceHasTheRulesAppliedOnce) {
  ChangeThreadBench bench;
  bench.create_events();
  bench.start_thread();
  EXPECT_FALSE(bench.followed());
  bench.host->m_hEvent.Set(EventPair::kWork);
  bench.run_for(10);
  // headphoneUpdate, then deviceNameChange
  EXPECT_THAT(bench.driver().codes(),
              ElementsAre(c::NSV_GET_LAUNCHED_MTG, c::GetHeadphone, c::GetKeyboardCancelMTG, c::GetBeamformingMTG));
  bench.driver().forget_requests();
  bench.run_for(1000);
  EXPECT_FALSE(bench.followed());  // the event was reset
}

TEST(ChangeThreadTest, WithoutGatesTheEventIsOnlyReset) {
  ChangeThreadBench bench(kKeyCancel);
  bench.create_events();
  bench.start_thread();
  bench.host->m_hEvent.Set(EventPair::kWork);
  bench.run_for(10);
  EXPECT_FALSE(bench.followed());
  EXPECT_EQ(bench.machine.script().count(sim::Step::wait_any), 2u);
}

TEST(ChangeThreadTest, TheStopEventEndsItAndIsReset) {
  ChangeThreadBench bench;
  bench.create_events();
  bench.start_thread();
  bench.host->m_hEvent.Set(EventPair::kStop);
  bench.run_for(10);
  EXPECT_EQ(bench.status, 0u);
  EXPECT_FALSE(bench.log.has("ChangeThread ERROR.\n"));
  Event* const stop[] = {bench.host->m_hEvent.Get(EventPair::kStop).get()};
  EXPECT_EQ(bench.machine.scheduler().wait_any(stop, 0).index, std::nullopt);
}

TEST(ChangeThreadTest, AFailingWaitEndsItWithItsError) {
  ChangeThreadBench bench;
  bench.start_thread();  // no events
  EXPECT_EQ(bench.status, 0u);
  EXPECT_EQ(bench.log.count("ChangeThread ERROR.\n"), 1u);
}

TEST(ChangeThreadTest, AnInactiveSessionPollsAndIsServedWhenItReturns) {
  ChangeThreadBench bench;
  bench.create_events();
  bench.machine.session().set_console_session(2);
  bench.start_thread();
  bench.host->m_hEvent.Set(EventPair::kWork);
  bench.run_for(990);
  EXPECT_FALSE(bench.followed());
  EXPECT_EQ(bench.log.count("[ChangeThread] Not active session\n"), 5u);  // at 0, 200, ... 800 ms
  bench.machine.session().set_console_session(1);
  bench.run_for(200);
  EXPECT_TRUE(bench.followed());
}

TEST(ChangeThreadTest, AnUnknownSessionWaitsAgainWithoutAReset) {
  ChangeThreadBench bench;
  bench.create_events();
  bench.start_thread();
  bench.machine.script().fail(sim::Step::process_session, 0);
  bench.host->m_hEvent.Set(EventPair::kWork);
  bench.run_for(190);
  EXPECT_EQ(bench.log.count("[ChangeThread] ProcessIdToSessionId err.\n"), 1u);
  EXPECT_FALSE(bench.followed());
  bench.run_for(20);
  EXPECT_TRUE(bench.followed());
}

TEST(ChangeThreadTest, ASessionThatStaysUnknownDoesNotKeepItTurning) {
  ChangeThreadBench bench;
  bench.create_events();
  bench.start_thread();
  bench.machine.script().fail_always(sim::Step::process_session, 0);
  bench.host->m_hEvent.Set(EventPair::kWork);
  bench.run_for(990);
  EXPECT_EQ(bench.log.count("[ChangeThread] ProcessIdToSessionId err.\n"), 5u);  // at 0, 200, ... 800 ms
  bench.machine.script().pardon(sim::Step::process_session);                     // or it would never leave
}

TEST(ChangeThreadTest, DefaultDevicesOfEveryRoleWakeIt) {
  constexpr std::pair<DataFlow, const char*> kOthers[] = {{DataFlow::render, sim::kHeadphones},
                                                          {DataFlow::capture, sim::kHeadsetMic}};
  for (const Model& model : {kBeamForming, kAISpeech}) {
    for (const Role role : {Role::console, Role::multimedia, Role::communications}) {
      for (const auto& [flow, endpoint] : kOthers) {
        HostBench bench(model);
        bench.start(1000);
        bench.driver().forget_requests();
        bench.machine.endpoints().set_default(flow, role, endpoint);
        bench.run_for(10);
        EXPECT_THAT(bench.driver().codes(), testing::Contains(c::GetHeadphone)) << endpoint;
      }
    }
  }
}

}  // namespace
}  // namespace sonivo::test
