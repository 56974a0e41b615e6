#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "base/event.h"
#include "base/thread.h"
#include "platform/sim/script.h"
#include "platform/sim/timeline.h"

namespace sonivo::sim {

/// serial: exactly one thread runs at a time and passes on in a fixed order, so every run is the same run.
/// free: all that can run do; only the virtual time is shared. For the thread sanitizer.
enum class Schedule { serial, free };

class Scheduler;
struct Participant;

/// Whose thread it is: the one that constructed the scheduler, its system thread, or one that the program started.
enum class ParticipantKind { entry, system, program };

/// A participant's place in the queue of one event that it waits for.
struct WaitNode {
  Participant* waiter = nullptr;
  WaitNode* previous = nullptr;
  WaitNode* next = nullptr;
};

class SimEvent : public Event {
 public:
  SimEvent(Scheduler& scheduler, Reset reset);
  /// Nobody may wait for it any more.
  ~SimEvent() override;

  void set() override;
  void reset() override;
  Reset kind() const { return reset_; }

  /// set() and reset() for those who hold the scheduler's mutex.
  void signal();
  void clear() { signalled_ = false; }

 private:
  friend class Scheduler;
  void link(WaitNode& node);
  void unlink(WaitNode& node);

  Scheduler& scheduler_;
  const Reset reset_;
  bool signalled_ = false;
  WaitNode* first_ = nullptr;
  WaitNode* last_ = nullptr;
};

struct ThreadInfo {
  std::string name;
  Priority priority = Priority::normal;
  bool in_audio_class = false;
};

/// Virtual time over real threads. Its threads, and the one that constructed it, are the participants; time stands
/// still while any of them runs. Once all are blocked, time jumps to the next entry of the timeline, all entries of
/// that instant run on the stack of whoever blocked last, and those who were woken go on. A simulation in which all are
/// blocked and the timeline is empty is reported on standard error and ends the process.
class Scheduler final : public Clock, public Events, public Threads {
 public:
  explicit Scheduler(Script& script, Schedule schedule = Schedule::serial);
  /// On the constructing thread. Calls shut_down().
  ~Scheduler() override;

  // Clock
  std::uint64_t tick_ms() override;
  void sleep_ms(std::uint32_t duration_ms) override;
  // Events; at most 64 at a time
  std::unique_ptr<Event> create(Reset reset) override;
  WaitResult wait_any(std::span<Event* const> events, std::optional<std::uint32_t> limit_ms = std::nullopt) override;
  // Threads
  std::unique_ptr<Thread> start(const char* name, std::function<void()> body) override;
  void set_current_priority(Priority priority) override;
  std::uint64_t enter_audio_class() override;
  void leave_audio_class(std::uint64_t token) override;

  /// Virtual time; the first instant is 1000 s.
  Time now() const { return now_.load(std::memory_order_relaxed); }
  /// Guards the scheduler and the state of all device models.
  std::mutex& mutex() { return mutex_; }

  // For the models, with the mutex held.
  /// Enters a piece of hardware behaviour, run with the mutex held: it may touch models and signal events, and never
  /// calls into the program. A past time means now.
  TimerId at(Time time, std::function<void()> action);
  void cancel(TimerId id) { timeline_.cancel(id); }
  /// Queues a call into the program, made by the system thread with the mutex not held.
  void post_to_system(std::function<void()> call);
  /// Blocks until done(), which is asked again each time `changed` is signalled.
  template <class Done>
  void block_until(std::unique_lock<std::mutex>& lock, SimEvent& changed, const char* reason, Done done) {
    while (!done()) {
      changed.clear();
      wait_signalled(lock, changed, reason);
    }
  }
  /// Waits like wait_any, up to an instant of virtual time, and is no step of any script.
  std::optional<std::size_t> wait(std::unique_lock<std::mutex>& lock, std::span<Event* const> events,
                                  std::optional<Time> deadline, const char* reason);
  bool on_system_thread();
  /// Makes a call that waits for something outside of the simulation, in real time, while the others go on. Events may
  /// be set from outside then, by threads that take no part. Only with real time on.
  template <class Call>
  auto outside(Call call) {
    leave();
    const Outing outing{*this};
    return call();
  }
  /// Number of the calling participant: the entry is 1, the system 2, those of the program follow as they are started.
  std::uint64_t current_thread();

  // For tests.
  /// Lets this much virtual time pass for the calling thread; not a step of any script.
  void pass(Time duration);
  /// Keeps virtual time from running ahead of real time.
  void set_realtime(bool on);
  /// Real micro-sleeps at scheduling points, which must not change any result.
  void set_jitter(std::uint64_t seed);
  /// The program's threads that haven't ended.
  std::vector<ThreadInfo> threads();
  std::size_t live_threads() { return threads().size(); }
  /// Events that the program created and still holds.
  std::size_t live_events() const { return static_cast<std::size_t>(live_events_.load()); }
  /// Lets time run until all the program's threads have ended and all posted calls are made; from then on nothing runs
  /// but the calling thread. Ends the process if that takes over 60 s.
  void shut_down();

 private:
  friend class SimEvent;
  friend class SimThread;
  using Lock = std::unique_lock<std::mutex>;

  Participant& self();
  std::shared_ptr<Participant> launch(const char* name, ParticipantKind kind, std::function<void()> body);
  void thread_main(Participant& me, std::function<void()> body);
  void system_main();
  void finish_threads();
  bool join(Participant& participant, std::optional<std::uint32_t> limit_ms);
  void reap(Lock& lock, Participant& participant);
  void reap_abandoned();

  void leave();
  void come_back();
  void pacer_main();
  struct Outing {
    Scheduler& scheduler;
    ~Outing() { scheduler.come_back(); }
  };

  void wait_signalled(Lock& lock, SimEvent& event, const char* reason);
  void block(Lock& lock, Participant& me);
  void make_ready(Participant& participant);
  void keep_going(Lock& lock);
  void advance(Lock& lock);
  void sleep_until_real(Lock& lock, Time time);
  /// The clock goes to where real time is, the next timer at most.
  void follow_real_time();
  void jitter();
  [[noreturn]] void report_stuck(const char* what);

  Script& script_;
  const Schedule schedule_;
  const std::uint64_t serial_number_;  ///< tells this scheduler from an earlier one at the same address
  std::atomic<Time> now_;
  std::atomic<std::uint64_t> jitter_seed_ = 0;  ///< 0: none
  std::atomic<std::uint64_t> jitter_count_ = 0;
  std::atomic<int> live_events_ = 0;

  std::mutex mutex_;  // guards all below
  Timeline timeline_;
  std::vector<std::shared_ptr<Participant>> participants_;  ///< entry, system, then the program's
  std::vector<Participant*> ready_;                         ///< serial: waiting for their turn, first come first
  std::size_t running_ = 1;
  bool advancing_ = false;         ///< someone sleeps in real time before moving the clock
  std::condition_variable woken_;  ///< that sleep is over before its time
  std::size_t outside_ = 0;        ///< participants that wait for something outside
  std::thread pacer_;              ///< keeps time going while nobody else can
  std::condition_variable pacer_wake_;
  bool pacer_stop_ = false;
  bool realtime_ = false;
  std::int64_t realtime_origin_ = 0;  ///< real time minus virtual time, ns
  std::uint64_t launched_ = 0;        ///< participants so far
  std::uint64_t audio_tokens_ = 0;
  std::deque<std::function<void()>> posted_;
  bool system_stop_ = false;
  std::unique_ptr<SimEvent> system_wake_;
};

}  // namespace sonivo::sim
