#include "platform/linux/threads.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <latch>
#include <string>

namespace sonivo::linux {
namespace {

TEST(ProcessThreads, AThreadRunsUnderItsNameCutToWhatTheSystemTakes) {
  ProcessThreads threads;
  std::string name;
  const auto thread = threads.start("a name of more than fifteen", [&] {
    char text[32]{};
    ::pthread_getname_np(::pthread_self(), text, sizeof text);
    name = text;
  });
  ASSERT_NE(thread, nullptr);
  thread->join();
  EXPECT_EQ(name, "a name of more ");
  thread->join();
}

TEST(ProcessThreads, AJoinWithALimitTellsWhetherTheThreadEnded) {
  ProcessThreads threads;
  std::latch go(1);
  const auto thread = threads.start("waits", [&] { go.wait(); });
  EXPECT_FALSE(thread->join_for(5));
  EXPECT_FALSE(thread->join_for(0));
  go.count_down();
  EXPECT_TRUE(thread->join_for(10'000));
  EXPECT_TRUE(thread->join_for(0));
  thread->join();
}

TEST(ProcessThreads, AnAbandonedThreadRunsOn) {
  ProcessThreads threads;
  std::latch go(1);
  std::latch done(1);
  threads.start("abandoned", [&] {
    go.wait();
    done.count_down();
  });
  go.count_down();
  done.wait();
}

TEST(ProcessThreads, PrioritiesAreOfTheCallingThreadAlone) {
  ProcessThreads threads;
  int nice_value = 0;
  threads
      .start("nice",
             [&] {
               threads.set_current_priority(Priority::below_normal);
               nice_value = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
             })
      ->join();
  const int own = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
  EXPECT_GE(nice_value, 5);
  EXPECT_LT(own, 5);
}

TEST(ProcessThreads, TheAudioClassIsLeftAsItWasEntered) {
  ProcessThreads threads;
  std::uint64_t token = 0;
  int inside = SCHED_OTHER;
  int after = SCHED_RR;
  threads
      .start("audio",
             [&] {
               token = threads.enter_audio_class();
               inside = ::sched_getscheduler(0);
               threads.leave_audio_class(token);
               after = ::sched_getscheduler(0);
             })
      ->join();
  EXPECT_EQ(inside == SCHED_RR, token != 0);
  EXPECT_EQ(after, SCHED_OTHER);
}

}  // namespace
}  // namespace sonivo::linux
