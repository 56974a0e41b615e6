#include "platform/linux/pipewire/pi_mutex.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

#include "audio_server.h"
#include "platform/linux/threads.h"

namespace sonivo::test {
namespace {

using pipewire::PiMutex;

/// As the machine schedules the thread now: below 0 in real time.
int priority_of(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(file, text, ')');
  for (int field = 3; field <= 18; ++field) file >> text;
  return std::stoi(text);
}

TEST(PiMutex, AThreadThatHoldsItRunsAsUrgentlyAsTheOneThatWaits) {
  PiMutex mutex;
  std::atomic<pid_t> holder = 0;
  std::atomic<bool> waits = false, done = false;
  bool granted = false;
  std::thread ordinary([&] {
    linux::ProcessThreads().set_current_priority(Priority::normal);
    const std::scoped_lock lock(mutex);
    holder = ::gettid();
    while (!done) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  ASSERT_TRUE(comes_true([&] { return holder != 0; }));
  EXPECT_GE(priority_of(holder), 0);
  std::thread audio([&] {
    granted = linux::ProcessThreads().enter_audio_class() != 0;
    waits = true;
    const std::scoped_lock lock(mutex);
  });
  ASSERT_TRUE(comes_true([&] { return waits.load(); }));
  const bool is_raised = granted && comes_true([&] { return priority_of(holder) < 0; });
  done = true;
  audio.join();
  ordinary.join();
  if (!granted) GTEST_SKIP() << "this machine grants no real-time scheduling";
  EXPECT_TRUE(is_raised);
}

TEST(PiMutex, IsFreeWhileAConditionIsWaitedFor) {
  PiMutex mutex;
  std::condition_variable changed;
  bool there = false;
  std::thread other([&] {
    const std::scoped_lock lock(mutex);
    there = true;
    changed.notify_all();
  });
  {
    const std::scoped_lock lock(mutex);
    mutex.wait(changed, [&] { return there; });
    bool taken = true;
    std::thread([&] { taken = mutex.try_lock(); }).join();
    EXPECT_FALSE(taken) << "held again";
  }
  other.join();
  EXPECT_TRUE(there);
}

}  // namespace
}  // namespace sonivo::test
