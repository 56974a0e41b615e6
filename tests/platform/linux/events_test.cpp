#include "platform/linux/events.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace sonivo::linux {
namespace {

class DescriptorEventsTest : public testing::Test {
 protected:
  std::unique_ptr<Event> automatic() { return events_.create(Reset::automatic); }
  std::unique_ptr<Event> manual() { return events_.create(Reset::manual); }

  template <typename... Each>
  WaitResult wait(std::optional<std::uint32_t> limit_ms, const Each&... each) {
    const std::array<Event*, sizeof...(each)> all{each.get()...};
    return events_.wait_any(all, limit_ms);
  }

  DescriptorEvents events_;
};

TEST_F(DescriptorEventsTest, ANewEventIsNotSignalled) {
  const auto result = wait(0, manual(), automatic());
  EXPECT_FALSE(result.index);
  EXPECT_EQ(result.error, error::kNone);
}

TEST_F(DescriptorEventsTest, AManualEventStaysSetUntilItIsReset) {
  const auto event = manual();
  event->set();
  event->set();
  EXPECT_EQ(wait(0, event).index, 0u);
  EXPECT_EQ(wait(std::nullopt, event).index, 0u);
  event->reset();
  EXPECT_FALSE(wait(0, event).index);
  event->reset();
  EXPECT_FALSE(wait(0, event).index);
}

TEST_F(DescriptorEventsTest, AnAutomaticEventIsClearedByTheWaitThatItEnds) {
  const auto event = automatic();
  event->set();
  event->set();
  EXPECT_EQ(wait(0, event).index, 0u);
  EXPECT_FALSE(wait(0, event).index);
}

TEST_F(DescriptorEventsTest, MoreThan64EventsAreRefused) {
  const auto event = manual();
  event->set();
  std::vector<Event*> all(64, event.get());
  EXPECT_EQ(events_.wait_any(all, 0).index, 0u);
  all.push_back(event.get());
  const auto result = events_.wait_any(all, 0);
  EXPECT_FALSE(result.index);
  EXPECT_EQ(result.error, error::kInvalidParameter);
}

TEST_F(DescriptorEventsTest, TheLowestIndexIsAnsweredAndTheOthersStay) {
  const auto first = automatic();
  const auto second = automatic();
  const auto third = automatic();
  third->set();
  second->set();
  EXPECT_EQ(wait(0, first, second, third).index, 1u);
  EXPECT_EQ(wait(0, first, second, third).index, 2u);
  EXPECT_FALSE(wait(0, first, second, third).index);
}

TEST_F(DescriptorEventsTest, AnAbsentEventFailsTheWaitAtOnce) {
  const auto event = manual();
  event->set();
  const auto result = wait(std::nullopt, event, std::unique_ptr<Event>());
  EXPECT_FALSE(result.index);
  EXPECT_EQ(result.error, error::kInvalidHandle);
}

TEST_F(DescriptorEventsTest, AWaitEndsWhenItsTimeIsOver) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(wait(20, manual()).index);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
  EXPECT_FALSE(wait(5).index);  // of no event at all
}

TEST_F(DescriptorEventsTest, AWaitIsEndedByAnotherThread) {
  const auto event = automatic();
  std::thread other([&] { event->set(); });
  EXPECT_EQ(wait(std::nullopt, manual(), event).index, 1u);
  other.join();
}

TEST_F(DescriptorEventsTest, EachSignalOfAnAutomaticEventEndsOneWaitOfMany) {
  const auto work = automatic();
  const auto end = manual();
  const auto taken = automatic();
  std::atomic<int> count = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      while (wait(std::nullopt, work, end).index == 0u) {
        ++count;
        taken->set();
      }
    });
  }
  for (int i = 0; i < 500; ++i) {
    work->set();
    ASSERT_EQ(wait(10'000, taken).index, 0u);
  }
  end->set();
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(count, 500);
}

}  // namespace
}  // namespace sonivo::linux
