#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <thread>

#include "platform/sim/machine.h"

namespace sonivo::sim {
namespace {

using namespace std::chrono_literals;

class Outside : public testing::TestWithParam<Schedule> {
 protected:
  Outside() : machine(config()) { machine.scheduler().set_realtime(true); }
  static Config config() {
    Config config;
    config.schedule = GetParam();
    return config;
  }
  SimMachine machine;
};

TEST_P(Outside, TheOthersGoOnMeanwhile) {
  Scheduler& scheduler = machine.scheduler();
  std::atomic<int> rounds = 0;
  std::atomic<bool> stop = false;
  const auto other = scheduler.start("other", [&] {
    while (!stop) {
      scheduler.sleep_ms(5);
      ++rounds;
    }
  });
  const Time before = scheduler.now();
  const int answer = scheduler.outside([&] {
    while (rounds < 5) std::this_thread::sleep_for(1ms);
    return 7;
  });
  EXPECT_EQ(answer, 7);
  EXPECT_GE(scheduler.now() - before, 25 * kMillisecond);
  stop = true;
  other->join();
}

TEST_P(Outside, AnEventSetFromOutsideEndsAWaitBeforeTheNextInstant) {
  Scheduler& scheduler = machine.scheduler();
  const auto event = scheduler.create(Reset::manual);
  TimerId far = 0;
  {
    const std::scoped_lock lock(scheduler.mutex());
    far = scheduler.at(scheduler.now() + 3600 * kSecond, [] {});
  }
  std::atomic<bool> waits = false;
  std::thread outsider([&] {
    while (!waits) std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(50ms);  // on a loaded machine too the wait comes first
    event->set();
  });
  const Time before = scheduler.now();
  const std::array<Event*, 1> events{event.get()};
  waits = true;
  EXPECT_EQ(scheduler.wait_any(events).index, 0u);
  EXPECT_GE(scheduler.now() - before, 15 * kMillisecond);  // the clock follows what has passed
  EXPECT_LT(scheduler.now() - before, 3600 * kSecond);
  outsider.join();
  const std::scoped_lock lock(scheduler.mutex());
  scheduler.cancel(far);
}

TEST_P(Outside, NobodyElseIsNeededToComeBack) {
  EXPECT_EQ(machine.scheduler().outside([] {
    std::this_thread::sleep_for(5ms);
    return 1;
  }),
            1);
}

INSTANTIATE_TEST_SUITE_P(Schedules, Outside, testing::Values(Schedule::serial, Schedule::free));

}  // namespace
}  // namespace sonivo::sim
