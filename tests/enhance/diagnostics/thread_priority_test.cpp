// The ways in which a thread comes to run before others, by what the system grants.

#include "enhance/thread_priority.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "support/trace_log.h"

namespace sonivo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kOrdinary = "the enhancement thread keeps its ordinary priority\n";

/// A system that grants what it is told to, and the thread that asks it.
class PrioritySystem : public testing::Test {
 protected:
  PrioritySystem() { self_ = this; }

  /// The thread asks.
  void ask() {
    make_thread_time_critical(grant_, {
                                          .set_scheduler =
                                              [](int policy, int priority) {
                                                self_->policy_ = policy;
                                                self_->priority_ = priority;
                                                return self_->grants_real_time_;
                                              },
                                          .set_nice =
                                              [](int level) {
                                                self_->levels_.push_back(level);
                                                if (level < self_->lowest_granted_) return false;
                                                self_->level_ = level;
                                                return true;
                                              },
                                          .nice = [] { return self_->level_; },
                                          .nice_limit = [] { return self_->limit_; },
                                      });
  }

  RealTimeGrant grant_;
  bool grants_real_time_ = false;
  int lowest_granted_ = 0;
  std::uint64_t limit_ = 0;
  int level_ = 0;  ///< of the thread

  int policy_ = -1, priority_ = -1;  ///< asked for
  std::vector<int> levels_;          ///< asked for, in order
  TraceLog log_;

 private:
  inline static PrioritySystem* self_ = nullptr;
};

TEST_F(PrioritySystem, ThatGrantsRealTimeIsAskedForNothingElse) {
  grants_real_time_ = true;
  lowest_granted_ = -20;
  ask();
  EXPECT_EQ(policy_, SCHED_RR | SCHED_RESET_ON_FORK);
  EXPECT_EQ(priority_, 10);
  EXPECT_THAT(levels_, IsEmpty());
  EXPECT_THAT(log_.traces(), IsEmpty());
}

TEST_F(PrioritySystem, IsNotAskedWhereAnotherGrants) {
  std::vector<int> asked;
  bool granted = true;
  grant_ = [&](int priority) {
    asked.push_back(priority);
    return granted;
  };
  ask();
  EXPECT_THAT(asked, ElementsAre(10));
  EXPECT_EQ(policy_, -1);
  granted = false;
  grants_real_time_ = true;
  ask();
  EXPECT_EQ(policy_, SCHED_RR | SCHED_RESET_ON_FORK) << "refused there";
}

TEST_F(PrioritySystem, WithoutRealTimeGrantsTheHighestNiceLevel) {
  lowest_granted_ = -20;
  ask();
  EXPECT_EQ(policy_, SCHED_RR | SCHED_RESET_ON_FORK) << "asked for first";
  EXPECT_THAT(levels_, ElementsAre(-20));
  EXPECT_EQ(level_, -20);
  EXPECT_THAT(log_.traces(), IsEmpty());
}

TEST_F(PrioritySystem, WithALimitGrantsTheNiceLevelOfThatLimit) {
  limit_ = 31;
  lowest_granted_ = -11;  // 20 - 31
  ask();
  EXPECT_THAT(levels_, ElementsAre(-20, -11));
  EXPECT_EQ(level_, -11);
  EXPECT_THAT(log_.traces(), IsEmpty());
}

TEST_F(PrioritySystem, WithoutALimitIsNotAskedForMoreThanThereIs) {
  limit_ = RLIM_INFINITY;
  ask();
  EXPECT_THAT(levels_, ElementsAre(-20, -20));
  EXPECT_THAT(log_.traces(), ElementsAre(kOrdinary));
}

TEST_F(PrioritySystem, ThatGrantsNothingIsTold) {
  for (const std::uint64_t limit : {std::uint64_t{0}, std::uint64_t{20}}) {  // the level stays, or would become worse
    limit_ = limit;
    levels_.clear();
    log_.clear();
    ask();
    EXPECT_THAT(levels_, ElementsAre(-20)) << limit;
    EXPECT_EQ(level_, 0) << limit;
    EXPECT_THAT(log_.traces(), ElementsAre(kOrdinary)) << limit;
  }
}

TEST_F(PrioritySystem, DoesNotTakeALevelThatTheThreadHas) {
  level_ = -15;  // as whoever started the process left it
  limit_ = 30;
  lowest_granted_ = -10;
  ask();
  EXPECT_EQ(level_, -15);
  EXPECT_THAT(log_.traces(), ElementsAre(kOrdinary));
}

TEST_F(PrioritySystem, ThatBreaksItsWordIsTold) {
  limit_ = 31;
  ask();
  EXPECT_THAT(levels_, ElementsAre(-20, -11));
  EXPECT_EQ(level_, 0);
  EXPECT_THAT(log_.traces(), ElementsAre(kOrdinary));
}

/// Whatever this machine grants, it is one of the three.
TEST(OwnPriority, RisesOrATraceTells) {
  const TraceLog log;
  bool is_real_time = false, is_nicer = false;
  std::thread([&] {
    const auto thread = static_cast<id_t>(::syscall(SYS_gettid));
    const int before = ::getpriority(PRIO_PROCESS, thread);
    make_thread_time_critical({});
    int policy = 0;
    sched_param param{};
    ASSERT_EQ(::pthread_getschedparam(::pthread_self(), &policy, &param), 0);
    is_real_time = (policy & ~SCHED_RESET_ON_FORK) == SCHED_RR;
    if (is_real_time) {
      EXPECT_EQ(param.sched_priority, 10);
    }
    is_nicer = ::getpriority(PRIO_PROCESS, thread) < before;
  }).join();
  EXPECT_EQ((is_real_time ? 1u : 0u) + (is_nicer ? 1u : 0u) + log.count(kOrdinary), 1u);
}

}  // namespace
}  // namespace sonivo::test
