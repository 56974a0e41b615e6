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

bool enter_real_time() {
  sched_param param{};
  param.sched_priority = kRealTimePriority;
  return ::pthread_setschedparam(::pthread_self(), SCHED_RR | SCHED_RESET_ON_FORK, &param) == 0;
}

/// A limit of n lets the nice level go down to 20 - n.
int lowest_nice() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NICE, &limit) != 0) return 0;
  constexpr rlim_t kMost = 20 - kHighestNice;
  return 20 - static_cast<int>(std::min(limit.rlim_cur, kMost));
}

bool lower_nice() {
  const auto thread = static_cast<id_t>(::syscall(SYS_gettid));
  if (::setpriority(PRIO_PROCESS, thread, kHighestNice) == 0) return true;
  const int lowest = lowest_nice();
  return lowest < ::getpriority(PRIO_PROCESS, thread) && ::setpriority(PRIO_PROCESS, thread, lowest) == 0;
}

}  // namespace

void make_thread_time_critical() {
  if (enter_real_time() || lower_nice()) return;
  trace(TraceLevel::warning, "the enhancement thread keeps its ordinary priority\n");
}

}  // namespace sonivo
