#include "enhance/thread_priority.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "base/trace.h"

namespace sonivo {
namespace {

/// Above ordinary threads and below those of the audio server, which feed and drain what this one fills.
constexpr int kRealTimePriority = 10;
constexpr int kHighestNice = -20;

id_t thread_id() { return static_cast<id_t>(::syscall(SYS_gettid)); }

bool set_scheduler(int policy, int priority) {
  sched_param param{};
  param.sched_priority = priority;
  return ::pthread_setschedparam(::pthread_self(), policy, &param) == 0;
}

bool set_nice(int level) { return ::setpriority(PRIO_PROCESS, thread_id(), level) == 0; }

int nice_level() { return ::getpriority(PRIO_PROCESS, thread_id()); }

std::uint64_t nice_limit() {
  rlimit limit{};
  return ::getrlimit(RLIMIT_NICE, &limit) == 0 ? limit.rlim_cur : 0;
}

bool lower_nice(const PriorityCalls& system) {
  if (system.set_nice(kHighestNice)) return true;
  constexpr std::uint64_t kMost = 20 - kHighestNice;
  const int lowest = 20 - static_cast<int>(std::min(system.nice_limit(), kMost));
  return lowest < system.nice() && system.set_nice(lowest);
}

}  // namespace

const PriorityCalls kSystemPriorityCalls = {
    .set_scheduler = set_scheduler, .set_nice = set_nice, .nice = nice_level, .nice_limit = nice_limit};

void make_thread_time_critical(const RealTimeGrant& grant, const PriorityCalls& system) {
  if (grant && grant(kRealTimePriority)) return;
  if (system.set_scheduler(SCHED_RR | SCHED_RESET_ON_FORK, kRealTimePriority) || lower_nice(system)) return;
  trace(TraceLevel::warning, "the enhancement thread keeps its ordinary priority\n");
}

}  // namespace sonivo
