// A pause beside a driver that answers late or not at all: when the threads are told, and which report stays.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>

#include "host/host_windows.h"
#include "host_bench.h"
#include "platform/window_messages.h"

namespace sonivo::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
namespace c = control;

constexpr std::uint32_t kAnswerLimitMs = 2000;  // a driver that takes longer counts as gone

struct PauseWay {
  const char* name;
  const char* report;  ///< says this
  void (*take)(HostBench&);
};
void PrintTo(const PauseWay& row, std::ostream* out) { *out << row.name; }

class PauseBesideDriver : public testing::TestWithParam<PauseWay> {
 protected:
  PauseBesideDriver() { bench.start(2500); }
  ~PauseBesideDriver() override {
    if (gone_) gone_->join();
  }

  /// From the report on the driver answers nothing, until it counts as gone.
  void hang() {
    for (const std::uint32_t code : {c::NSV_PUBLISH_REPORT, c::NSV_SERVICE_EVENT_CANCEL}) {
      bench.driver().set_delay(code, 60'000);
    }
    bench.driver().before(c::NSV_PUBLISH_REPORT, [this] {
      gone_ = bench.machine.scheduler().start("gone", [this] {
        bench.machine.seams().clock.sleep_ms(kAnswerLimitMs);
        bench.host->m_DriverAccess.CloseDriverHandles();  // as whoever is told of the loss does
      });
    });
  }
  void pause() { GetParam().take(bench); }
  bool threads_are_told() const { return bench.host->m_bThreadExit == 1 && bench.host->m_bSonivoServiceLock == 1; }

  HostBench bench;

 private:
  std::unique_ptr<Thread> gone_;
};

TEST_P(PauseBesideDriver, TellsTheThreadsBeforeADriverThatHangs) {
  hang();
  pause();
  bench.run_for(2);
  EXPECT_TRUE(threads_are_told());
  EXPECT_EQ(bench.driver().open_handles(), 2u);
}

TEST_P(PauseBesideDriver, TakesNoLongerThanADriverMay) {
  hang();
  pause();
  bench.run_for(kAnswerLimitMs + 2);
  EXPECT_EQ(bench.driver().open_handles(), 0u);
  EXPECT_EQ(bench.host->m_bDriverReady, 0u);
  EXPECT_THAT(bench.threads(), IsEmpty());
}

// SubThread has its report ready, and is held up before the driver gets it. The handles stay open meanwhile.
TEST_P(PauseBesideDriver, LeavesItsOwnReportBehindNotAnEarlierOneThatComesLate) {
  bool held = false;
  bench.driver().set_delay(c::NSV_SERVICE_EVENT_CANCEL, 1000);
  bench.driver().before(c::NSV_PUBLISH_REPORT, [&] {
    held = true;
    bench.machine.seams().clock.sleep_ms(500);
  });
  bench.host->m_dwHeadPhone = 1;  // something new to tell
  for (int ms = 0; ms < 1500 && !held; ms += 10) bench.run_for(10);
  ASSERT_TRUE(held);
  pause();
  bench.run_for(10);
  EXPECT_TRUE(threads_are_told());
  bench.run_for(2000);
  EXPECT_THAT(bench.driver().report(), HasSubstr(GetParam().report));
  EXPECT_EQ(bench.driver().open_handles(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, PauseBesideDriver,
    testing::Values(PauseWay{"Lock", R"("pause":"locked")", [](HostBench& bench) { bench.machine.session().lock(); }},
                    PauseWay{"SuspendMessage", R"("pause":"asleep")",
                             [](HostBench& bench) { bench.post(kWmPowerBroadcast, kPowerSuspend); }},
                    PauseWay{"SuspendCallback", R"("pause":"asleep")",
                             [](HostBench& bench) {
                               bench.machine.after(
                                   0, [&bench] { DeviceNotifyCallbackRoutine(*bench.host, kPowerSuspend); });
                             }}),
    [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace sonivo::test
