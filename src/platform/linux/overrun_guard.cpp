#include "platform/linux/overrun_guard.h"

#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>

namespace sonivo::linux {
namespace {

/// Thread ids, 0 for a free place; a thread that finds none free stays without guard.
std::array<std::atomic<pid_t>, 16> guarded{};

void replace(pid_t from, pid_t to) {
  for (auto& each : guarded) {
    pid_t expected = from;
    if (each.compare_exchange_strong(expected, to)) return;
  }
}

/// In a signal handler: which of them went too far isn't told.
void demote_all(int) {
  const int kept = errno;
  const sched_param ordinary{};
  for (const auto& each : guarded) {
    if (const pid_t thread = each.load()) ::sched_setscheduler(thread, SCHED_OTHER | SCHED_RESET_ON_FORK, &ordinary);
  }
  errno = kept;
}

struct Guard {
  Guard() : thread(::gettid()) { replace(0, thread); }
  ~Guard() { replace(thread, 0); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

  const pid_t thread;
};

}  // namespace

bool limit_real_time(std::uint64_t longest_us) {
  struct sigaction action {};
  action.sa_handler = demote_all;
  action.sa_flags = SA_RESTART;
  if (::sigaction(SIGXCPU, &action, nullptr) != 0) return false;
  rlimit limit{};
  if (::getrlimit(RLIMIT_RTTIME, &limit) != 0) return false;
  limit.rlim_max = std::min<rlim_t>(limit.rlim_max, longest_us);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, limit.rlim_max / 2);
  return ::setrlimit(RLIMIT_RTTIME, &limit) == 0;
}

void guard_this_thread() { static thread_local const Guard guard; }

}  // namespace sonivo::linux
