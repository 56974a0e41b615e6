#include "enhance/brief_mutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace sonivo::test {
namespace {

TEST(BriefMutex, LetsOneInAtATime) {
  BriefMutex mutex;
  int count = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) {
        const std::lock_guard lock(mutex);
        ++count;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 30000);
}

TEST(BriefMutex, IsWaitedForHoweverLongItIsHeld) {
  BriefMutex mutex;
  bool released = false;
  mutex.lock();
  EXPECT_FALSE(mutex.try_lock());
  std::thread other([&] {
    const std::lock_guard lock(mutex);
    EXPECT_TRUE(released);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(3));  // longer than anybody tries
  released = true;
  mutex.unlock();
  other.join();
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
}

}  // namespace
}  // namespace sonivo::test
