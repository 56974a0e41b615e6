#include "platform/linux/threads.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace sonivo::linux {
namespace {

constexpr int kAudioPriority = 10;
constexpr int kTimeCriticalPriority = 5;
constexpr std::size_t kMaxThreadName = 15;

struct ThreadEnd {
  std::mutex mutex;
  std::condition_variable changed;
  bool reached = false;
};

class ProcessThread final : public Thread {
 public:
  ProcessThread(std::thread thread, std::shared_ptr<ThreadEnd> end)
      : thread_(std::move(thread)), end_(std::move(end)) {}
  ~ProcessThread() override {
    if (thread_.joinable()) thread_.detach();
  }

  void join() override {
    if (thread_.joinable()) thread_.join();
  }

  bool join_for(std::uint32_t limit_ms) override {
    {
      std::unique_lock lock(end_->mutex);
      if (!end_->changed.wait_for(lock, std::chrono::milliseconds(limit_ms), [&] { return end_->reached; }))
        return false;
    }
    join();
    return true;
  }

 private:
  std::thread thread_;
  std::shared_ptr<ThreadEnd> end_;
};

int nice_value(Priority priority) {
  switch (priority) {
    case Priority::below_normal:
      return 5;
    case Priority::normal:
      return 0;
    case Priority::highest:
      return -10;
    case Priority::time_critical:
      return -15;
  }
  return 0;
}

/// Who grants real-time scheduling may have the thread's children do without it; only root takes that back.
void set_scheduling(int policy, int priority) {
  sched_param parameters{};
  parameters.sched_priority = priority;
  if (::sched_setscheduler(0, policy, &parameters) == 0) return;
  ::sched_setscheduler(0, policy | SCHED_RESET_ON_FORK, &parameters);
}

}  // namespace

std::unique_ptr<Thread> ProcessThreads::start(const char* name, std::function<void()> body) {
  auto end = std::make_shared<ThreadEnd>();
  const auto run = [end, body = std::move(body), short_name = std::string(name).substr(0, kMaxThreadName)]() noexcept {
    ::pthread_setname_np(::pthread_self(), short_name.c_str());
    body();
    std::scoped_lock lock(end->mutex);
    end->reached = true;
    end->changed.notify_all();
  };
  try {
    return std::make_unique<ProcessThread>(std::thread(run), end);
  } catch (const std::system_error&) {
    return nullptr;
  }
}

void ProcessThreads::set_current_priority(Priority priority) {
  if (priority == Priority::time_critical && real_time_(kTimeCriticalPriority)) return;
  set_scheduling(SCHED_OTHER, 0);
  ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), nice_value(priority));
}

std::uint64_t ProcessThreads::enter_audio_class() {
  const int policy = ::sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
  sched_param parameters{};
  if (::sched_getparam(0, &parameters) != 0 || !real_time_(kAudioPriority)) return 0;
  // What to go back to, made unlike 0.
  return std::uint64_t{1} << 32 | static_cast<std::uint64_t>(policy) << 16 |
         static_cast<std::uint64_t>(parameters.sched_priority);
}

void ProcessThreads::leave_audio_class(std::uint64_t token) {
  if (token == 0) return;
  set_scheduling(static_cast<int>(token >> 16 & 0xFFFF), static_cast<int>(token & 0xFFFF));
}

}  // namespace sonivo::linux
