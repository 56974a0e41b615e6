// Messages that meet threads which were told to leave, and stops that come before there are any.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/host_windows.h"
#include "host_bench.h"
#include "platform/window_messages.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace c = control;

std::uint64_t threads_started(HostBench& bench) { return bench.machine.script().count(sim::Step::thread_start); }

TEST(PendingReboot, ASecondLockStopsTheThreadsThatItStarted) {
  HostBench bench;
  bench.start();
  bench.machine.session().lock();
  bench.run_for(1000);
  const std::uint64_t before = threads_started(bench);
  bench.machine.session().lock();
  bench.run_for(1000);
  EXPECT_GE(threads_started(bench), before + 2);
  EXPECT_EQ(bench.host->m_bThreadExit, 1u);
  EXPECT_EQ(bench.driver().open_handles(), 0u);
  EXPECT_THAT(bench.threads(), IsEmpty());
}

TEST(PendingReboot, TakesTheStopBackBeforeItsFirstThread) {
  HostBench bench;
  bench.start();
  bench.machine.session().lock();
  bench.run_for(1000);
  EXPECT_EQ(bench.host->m_bThreadExit, 1u);
  EXPECT_EQ(bench.host->m_bSonivoServiceLock, 1u);
  std::uint32_t exit_at_their_start = 77, lock_at_their_start = 77;
  bench.machine.script().before(sim::Step::thread_start, 1, [&] {
    exit_at_their_start = bench.host->m_bThreadExit;
    lock_at_their_start = bench.host->m_bSonivoServiceLock;
  });
  bench.post_any();
  bench.run_for(1000);
  EXPECT_EQ(exit_at_their_start, 0u);
  EXPECT_EQ(bench.host->m_Pause, Pause::none);
  EXPECT_EQ(lock_at_their_start, 0u);
}

TEST(PendingReboot, ACloseEndsTheProcess) {
  HostBench bench(kBeamForming);
  bench.start();
  bench.machine.session().lock();
  bench.run_for(1000);
  bench.post(kWmClose);
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_THAT(bench.threads(), IsEmpty());
}

// The panel gets a message right before the loop is told to end.
TEST(PendingReboot, DoesNotHappenOnceTheLoopIsToEnd) {
  HostBench bench;
  bench.start(1000);
  bench.machine.script().before(sim::Step::post_quit_message, 1, [&] { bench.post_any(); });
  const std::uint64_t dispatched = bench.machine.script().count(sim::Step::dispatch_message);
  std::vector<std::string> left{"no end"};
  bench.machine.script().before(sim::Step::endpoints_unregister, 1, [&] { left = bench.threads(); });
  const std::uint64_t started = threads_started(bench);
  bench.machine.session().query_end();
  bench.run_for(1000);
  EXPECT_EQ(bench.exit_code, 0);
  EXPECT_THAT(left, IsEmpty());
  EXPECT_EQ(threads_started(bench), started + 1);  // the one that ends the driver's notice
  EXPECT_EQ(bench.machine.script().count(sim::Step::dispatch_message), dispatched);
}

TEST(SuspendDuringStartUp, DoesNotKeepTheThreadsFromRunning) {
  HostBench bench;
  bench.machine.script().before(sim::Step::session_register, 1,
                                [&] { DeviceNotifyCallbackRoutine(*bench.host, kPowerSuspend); });
  std::uint32_t exit_at_their_start = 77;
  bench.machine.script().before(sim::Step::thread_start, 6,  // service, driver's notice, reg-notify, render, capture
                                [&] { exit_at_their_start = bench.host->m_bThreadExit; });
  bench.start(3000);
  EXPECT_EQ(exit_at_their_start, 0u);
  EXPECT_EQ(bench.host->m_bDriverReady, 1u);
  EXPECT_EQ(bench.driver().open_handles(), 2u);
  EXPECT_THAT(bench.threads(), ElementsAre("MainThread", "SubThread"));
}

}  // namespace
}  // namespace sonivo::test
