#include "platform/sim/scheduler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <latch>
#include <string>
#include <vector>

namespace sonivo::sim {
namespace {

using testing::ElementsAre;

class SchedulerTest : public testing::Test {
 protected:
  std::unique_ptr<Event> automatic() { return scheduler.create(Reset::automatic); }
  std::unique_ptr<Event> manual() { return scheduler.create(Reset::manual); }
  std::uint64_t elapsed_ms() { return scheduler.tick_ms() - kFirstTick; }

  static constexpr std::uint64_t kFirstTick = 1'000'000;
  Script script;
  Scheduler scheduler{script};
};

TEST_F(SchedulerTest, TimeStartsAtAThousandSecondsAndMovesOnlyWhenAllSleep) {
  EXPECT_EQ(scheduler.tick_ms(), 1'000'000u);
  scheduler.sleep_ms(250);
  EXPECT_EQ(scheduler.tick_ms(), 1'000'250u);
}

TEST_F(SchedulerTest, AWaitAnswersTheLowestSignalledIndexAndConsumesOnlyThat) {
  const auto a = automatic(), b = automatic(), c = automatic();
  const std::array<Event*, 3> events{a.get(), b.get(), c.get()};
  c->set();
  b->set();
  EXPECT_EQ(scheduler.wait_any(events).index, 1u);
  EXPECT_EQ(scheduler.wait_any(events).index, 2u);
  EXPECT_EQ(scheduler.wait_any(events, 0).index, std::nullopt);
}

TEST_F(SchedulerTest, AManualEventStaysSetUntilReset) {
  const auto event = manual();
  const std::array<Event*, 1> events{event.get()};
  event->set();
  EXPECT_EQ(scheduler.wait_any(events).index, 0u);
  EXPECT_EQ(scheduler.wait_any(events).index, 0u);
  event->reset();
  EXPECT_EQ(scheduler.wait_any(events, 0).index, std::nullopt);
}

TEST_F(SchedulerTest, ALimitEndsAWaitWithoutErrorExactlyThen) {
  const auto event = automatic();
  const std::array<Event*, 1> events{event.get()};
  const WaitResult result = scheduler.wait_any(events, 30);
  EXPECT_EQ(result.index, std::nullopt);
  EXPECT_EQ(result.error, error::kNone);
  EXPECT_EQ(elapsed_ms(), 30u);
}

TEST_F(SchedulerTest, AZeroLimitPollsWithoutPassingTheTurn) {
  const auto event = automatic();
  const std::array<Event*, 1> events{event.get()};
  bool other_ran = false;
  const auto other = scheduler.start("other", [&] { other_ran = true; });
  EXPECT_EQ(scheduler.wait_any(events, 0).index, std::nullopt);
  EXPECT_FALSE(other_ran);
  other->join();
}

TEST_F(SchedulerTest, AnEventSetWithinTheLimitEndsTheWaitThen) {
  const auto event = automatic();
  const std::array<Event*, 1> events{event.get()};
  const auto setter = scheduler.start("setter", [&] {
    scheduler.sleep_ms(20);
    event->set();
  });
  EXPECT_EQ(scheduler.wait_any(events, 30).index, 0u);
  EXPECT_EQ(elapsed_ms(), 20u);
  scheduler.sleep_ms(100);
  EXPECT_EQ(scheduler.wait_any(events, 0).index, std::nullopt) << "the old limit must not fire any more";
  setter->join();
}

TEST_F(SchedulerTest, ALowerIndexSetBeforeTheWaiterRunsWins) {
  const auto a = automatic(), b = automatic();
  const std::array<Event*, 2> events{a.get(), b.get()};
  const auto setter = scheduler.start("setter", [&] {
    scheduler.sleep_ms(1);
    b->set();
    a->set();
  });
  EXPECT_EQ(scheduler.wait_any(events).index, 0u);
  EXPECT_EQ(scheduler.wait_any(events).index, 1u);
  setter->join();
}

TEST_F(SchedulerTest, AnAutomaticEventEndsOneWaitPerSetInOrderOfWaiting) {
  const auto event = automatic();
  std::vector<int> woken;
  const auto wait_as = [&](int number) {
    return [&, number] {
      const std::array<Event*, 1> events{event.get()};
      scheduler.wait_any(events);
      woken.push_back(number);
    };
  };
  const auto first = scheduler.start("first", wait_as(1));
  const auto second = scheduler.start("second", wait_as(2));
  scheduler.sleep_ms(1);
  event->set();
  scheduler.sleep_ms(1);
  EXPECT_THAT(woken, ElementsAre(1));
  event->set();
  scheduler.sleep_ms(1);
  EXPECT_THAT(woken, ElementsAre(1, 2));
  first->join();
  second->join();
}

TEST_F(SchedulerTest, ANullEventFailsTheWaitAndSoDoNoneAndMoreThan64) {
  const auto event = manual();
  const std::array<Event*, 2> with_null{event.get(), nullptr};
  EXPECT_EQ(scheduler.wait_any(with_null).error, error::kInvalidHandle);
  EXPECT_EQ(scheduler.wait_any({}).error, error::kInvalidParameter);
  event->set();
  const std::vector<Event*> many(65, event.get());
  EXPECT_EQ(scheduler.wait_any(many).error, error::kInvalidParameter);
  EXPECT_EQ(scheduler.wait_any(std::span(many).first(64)).index, 0u);
}

TEST_F(SchedulerTest, OneThreadRunsAtATimeAndAllTakeTurnsInOrder) {
  std::string turns;
  const auto body = [&](char name) {
    return [&, name] {
      for (int i = 0; i < 3; ++i) {
        turns += name;
        scheduler.sleep_ms(0);
      }
    };
  };
  const auto a = scheduler.start("a", body('a'));
  const auto b = scheduler.start("b", body('b'));
  const auto c = scheduler.start("c", body('c'));
  EXPECT_EQ(turns, "") << "a new thread waits for its turn";
  a->join();
  b->join();
  c->join();
  EXPECT_EQ(turns, "abcabcabc");
}

TEST_F(SchedulerTest, HardwareEntriesRunAtTheirTimesAndWakeWhoWaits) {
  const auto event = automatic();
  const std::array<Event*, 1> events{event.get()};
  Time fired = 0;
  {
    std::scoped_lock lock(scheduler.mutex());
    scheduler.at(scheduler.now() + 1234567, [&] {
      fired = scheduler.now();
      static_cast<SimEvent&>(*event).signal();
    });
  }
  const Time start = scheduler.now();
  EXPECT_EQ(scheduler.wait_any(events).index, 0u);
  EXPECT_EQ(fired - start, 1234567);
  EXPECT_EQ(scheduler.now() - start, 1234567);
}

TEST_F(SchedulerTest, JoinForGivesUpAtItsLimitAndJoinWaitsOn) {
  const auto thread = scheduler.start("slow", [&] { scheduler.sleep_ms(100); });
  EXPECT_FALSE(thread->join_for(99));
  EXPECT_EQ(scheduler.live_threads(), 1u);
  thread->join();
  EXPECT_EQ(elapsed_ms(), 100u);
  EXPECT_EQ(scheduler.live_threads(), 0u);
  EXPECT_TRUE(thread->join_for(0)) << "an ended thread stays joined";
}

TEST_F(SchedulerTest, AnAbandonedThreadRunsOnBesideItsSuccessor) {
  bool first_ended = false;
  scheduler.start("first", [&] {
    scheduler.sleep_ms(50);
    first_ended = true;
  });
  const auto second = scheduler.start("second", [&] { scheduler.sleep_ms(20); });
  EXPECT_EQ(scheduler.live_threads(), 2u);
  second->join();
  EXPECT_FALSE(first_ended);
  scheduler.shut_down();
  EXPECT_TRUE(first_ended);
  EXPECT_EQ(elapsed_ms(), 50u);
}

TEST_F(SchedulerTest, ThreadsTellTheirNamePriorityAndClass) {
  const auto stop = manual();
  const auto thread = scheduler.start("stream", [&] {
    scheduler.set_current_priority(Priority::time_critical);
    const std::uint64_t token = scheduler.enter_audio_class();
    EXPECT_NE(token, 0u);
    const std::array<Event*, 1> events{stop.get()};
    scheduler.wait_any(events);
    scheduler.leave_audio_class(token + 1);
    scheduler.sleep_ms(5);
    scheduler.leave_audio_class(token);
    scheduler.sleep_ms(5);
  });
  scheduler.sleep_ms(1);
  ASSERT_EQ(scheduler.threads().size(), 1u);
  EXPECT_EQ(scheduler.threads()[0].name, "stream");
  EXPECT_EQ(scheduler.threads()[0].priority, Priority::time_critical);
  EXPECT_TRUE(scheduler.threads()[0].in_audio_class);
  stop->set();
  scheduler.sleep_ms(1);
  EXPECT_TRUE(scheduler.threads()[0].in_audio_class) << "that was no token of its";
  scheduler.sleep_ms(5);
  EXPECT_FALSE(scheduler.threads()[0].in_audio_class);
  EXPECT_EQ(script.count(Step::audio_class_leave), 2u);
  thread->join();
}

TEST_F(SchedulerTest, ScriptedFailuresOfEventsWaitsThreadsAndClass) {
  const auto event = manual();
  const std::array<Event*, 1> events{event.get()};
  event->set();
  script.fail(Step::event_create, 1);
  EXPECT_EQ(automatic(), nullptr);
  script.fail(Step::wait_any, error::kInvalidHandle);
  EXPECT_EQ(scheduler.wait_any(events).error, error::kInvalidHandle);
  EXPECT_EQ(scheduler.wait_any(events).index, 0u);
  script.fail(Step::thread_start, 1);
  EXPECT_EQ(scheduler.start("none", [] {}), nullptr);
  script.fail(Step::audio_class_enter, 1);
  EXPECT_EQ(scheduler.enter_audio_class(), 0u);
}

TEST_F(SchedulerTest, PostedCallsRunInOrderOnTheSystemThreadWithTheMutexFree) {
  std::vector<int> called;
  bool mutex_free = false;
  {
    std::scoped_lock lock(scheduler.mutex());
    scheduler.post_to_system([&] {
      mutex_free = scheduler.mutex().try_lock();
      if (mutex_free) scheduler.mutex().unlock();
      scheduler.sleep_ms(3);
      called.push_back(1);
    });
    scheduler.post_to_system([&] { called.push_back(2); });
  }
  EXPECT_TRUE(called.empty()) << "posting returns at once";
  scheduler.sleep_ms(10);
  EXPECT_THAT(called, ElementsAre(1, 2));
  EXPECT_TRUE(mutex_free);
}

TEST_F(SchedulerTest, RealTimeKeepsVirtualTimeFromRunningAhead) {
  scheduler.set_realtime(true);
  const auto start = std::chrono::steady_clock::now();
  scheduler.sleep_ms(5);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5));
}

TEST_F(SchedulerTest, EventsThatTheProgramHoldsAreCounted) {
  const auto kept = manual();
  automatic();
  EXPECT_EQ(scheduler.live_events(), 1u);
}

TEST(SchedulerDeathTest, ASimulationThatCanNeverGoOnIsReportedWithEachThreadsWait) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        Script script;
        Scheduler scheduler(script);
        const auto never = scheduler.create(Reset::manual);
        const auto worker = scheduler.start("worker", [&] {
          const std::array<Event*, 1> events{never.get()};
          scheduler.wait_any(events);
        });
        worker->join();
      },
      "entry: waits for the end of a thread\n.*system: waits for something to call\n.*worker: waits for one of its "
      "events");
}

// Three threads play ping-pong through events, limits and sleeps; the log has who did what when.
std::vector<std::string> ping_pong(std::uint64_t jitter_seed) {
  Script script;
  Scheduler scheduler(script);
  scheduler.set_jitter(jitter_seed);
  script.start_trace();
  std::vector<std::string> log;
  const auto ball = scheduler.create(Reset::automatic);
  const auto player = [&](const char* name, std::uint32_t pause) {
    return [&, name, pause] {
      const std::array<Event*, 1> events{ball.get()};
      for (int i = 0; i < 40; ++i) {
        const bool hit = scheduler.wait_any(events, 3).index.has_value();
        log.push_back(std::string(name) + (hit ? " hit " : " miss ") + std::to_string(scheduler.now()));
        scheduler.sleep_ms(pause);
        ball->set();
      }
    };
  };
  const auto a = scheduler.start("a", player("a", 1));
  const auto b = scheduler.start("b", player("b", 2));
  const auto c = scheduler.start("c", player("c", 5));
  a->join();
  b->join();
  c->join();
  for (const std::string& line : script.trace()) log.push_back(line);
  return log;
}

TEST(SchedulerDeterminism, TheSameRunComesOutHoweverTheThreadsAreDelayed) {
  const std::vector<std::string> calm = ping_pong(0);
  ASSERT_EQ(calm.size(), 3u * 40u + 3u * 40u * 2u + 4u);
  EXPECT_EQ(ping_pong(1), calm);
  EXPECT_EQ(ping_pong(2), calm);
}

TEST(SchedulerFree, ThreadsTrulyRunAtOnce) {
  Script script;
  Scheduler scheduler(script, Schedule::free);
  std::latch meeting(2);
  const auto a = scheduler.start("a", [&] { meeting.arrive_and_wait(); });
  const auto b = scheduler.start("b", [&] { meeting.arrive_and_wait(); });
  a->join();
  b->join();
  EXPECT_TRUE(meeting.try_wait());
}

TEST(SchedulerFree, TimeWaitsForAllAndEveryAutomaticSetEndsOneWait) {
  Script script;
  Scheduler scheduler(script, Schedule::free);
  scheduler.set_jitter(7);
  const auto event = scheduler.create(Reset::automatic);
  std::atomic<int> taken = 0;
  std::vector<std::unique_ptr<Thread>> takers;
  for (int i = 0; i < 3; ++i) {
    takers.push_back(scheduler.start("taker", [&] {
      const std::array<Event*, 1> events{event.get()};
      while (scheduler.wait_any(events, 50).index) ++taken;
    }));
  }
  const Time start = scheduler.now();
  for (int i = 0; i < 100; ++i) {
    event->set();
    scheduler.sleep_ms(1);
  }
  for (const auto& taker : takers) taker->join();
  EXPECT_EQ(taken, 100);
  EXPECT_LE(scheduler.now() - start, 150 * kMillisecond);
}

}  // namespace
}  // namespace sonivo::sim
