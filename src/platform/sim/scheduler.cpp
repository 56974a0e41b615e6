#include "platform/sim/scheduler.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/sim/live_mark.h"
#include "platform/sim/participant.h"

namespace sonivo::sim {
namespace {

constexpr Time kFirstInstant = 1000 * kSecond;
constexpr std::uint32_t kFinishLimitMs = 60'000;

std::atomic<std::uint64_t> next_serial_number = 1;

/// The scheduler that this thread asked last, and what it is there.
struct Identity {
  std::uint64_t scheduler = 0;
  Participant* participant = nullptr;
};
thread_local Identity identity;

std::int64_t real_now() {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// SplitMix64, Steele et al. 2014.
std::uint64_t mix(std::uint64_t x) {
  x += 0x9E3779B97F4A7C15u;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
  return x ^ (x >> 31);
}

std::optional<std::size_t> first_signalled(std::span<Event* const> events, auto is_signalled) {
  for (std::size_t i = 0; i < events.size(); ++i) {
    if (is_signalled(static_cast<SimEvent&>(*events[i]))) return i;
  }
  return std::nullopt;
}

}  // namespace

/// An event of the program.
class CreatedEvent final : public SimEvent {
 public:
  CreatedEvent(Scheduler& scheduler, Reset reset, std::atomic<int>& live) : SimEvent(scheduler, reset), mark_(live) {}

 private:
  LiveMark mark_;
};

class SimThread final : public Thread {
 public:
  SimThread(Scheduler& scheduler, std::shared_ptr<Participant> participant)
      : scheduler_(scheduler), participant_(std::move(participant)) {}
  ~SimThread() override {
    std::scoped_lock lock(scheduler_.mutex());
    participant_->abandoned = true;
  }
  void join() override { scheduler_.join(*participant_, std::nullopt); }
  bool join_for(std::uint32_t limit_ms) override { return scheduler_.join(*participant_, limit_ms); }

 private:
  Scheduler& scheduler_;
  std::shared_ptr<Participant> participant_;
};

Scheduler::Scheduler(Script& script, Schedule schedule)
    : script_(script), schedule_(schedule), serial_number_(next_serial_number++), now_(kFirstInstant) {
  auto entry = std::make_shared<Participant>(*this, ++launched_, "entry", ParticipantKind::entry);
  entry->thread_id = std::this_thread::get_id();
  entry->state = Participant::State::running;
  participants_.push_back(std::move(entry));
  system_wake_ = std::make_unique<SimEvent>(*this, Reset::automatic);
  script_.follow(now_);
  launch("system", ParticipantKind::system, [this] { system_main(); });
}

Scheduler::~Scheduler() {
  shut_down();
  if (!pacer_.joinable()) return;
  {
    std::scoped_lock lock(mutex_);
    pacer_stop_ = true;
    pacer_wake_.notify_one();
    woken_.notify_all();
  }
  pacer_.join();
}

void Scheduler::shut_down() {
  finish_threads();
  std::shared_ptr<Participant> system;
  {
    std::scoped_lock lock(mutex_);
    if (system_stop_) return;
    system_stop_ = true;
    system_wake_->signal();
    system = participants_.at(1);
  }
  join(*system, std::nullopt);
}

void Scheduler::finish_threads() {
  for (;;) {
    std::shared_ptr<Participant> left;
    {
      std::scoped_lock lock(mutex_);
      const auto found = std::find_if(participants_.begin(), participants_.end(), [](const auto& participant) {
        return participant->kind == ParticipantKind::program;
      });
      if (found == participants_.end()) return;
      left = *found;
    }
    if (!join(*left, kFinishLimitMs)) {
      std::scoped_lock lock(mutex_);
      report_stuck("a thread outlives its machine");
    }
  }
}

// ---- Clock and events

std::uint64_t Scheduler::tick_ms() { return static_cast<std::uint64_t>(now() / kMillisecond); }

void Scheduler::sleep_ms(std::uint32_t duration_ms) {
  script_.enter(Step::sleep);
  pass(duration_ms * kMillisecond);
}

void Scheduler::pass(Time duration) {
  jitter();
  Lock lock(mutex_);
  wait(lock, {}, now() + duration, "the end of its sleep");
}

std::unique_ptr<Event> Scheduler::create(Reset reset) {
  if (script_.enter(Step::event_create)) return nullptr;
  return std::make_unique<CreatedEvent>(*this, reset, live_events_);
}

WaitResult Scheduler::wait_any(std::span<Event* const> events, std::optional<std::uint32_t> limit_ms) {
  jitter();
  if (const auto failure = script_.enter(Step::wait_any)) return {std::nullopt, *failure};
  if (events.empty() || events.size() > kMaxWaits) return {std::nullopt, error::kInvalidParameter};
  if (std::find(events.begin(), events.end(), nullptr) != events.end()) return {std::nullopt, error::kInvalidHandle};
  Lock lock(mutex_);
  std::optional<Time> deadline;
  if (limit_ms) deadline = now() + *limit_ms * kMillisecond;
  return {wait(lock, events, deadline, "one of its events"), error::kNone};
}

std::optional<std::size_t> Scheduler::wait(Lock& lock, std::span<Event* const> events, std::optional<Time> deadline,
                                           const char* reason) {
  const auto take = [](SimEvent& event) {
    if (!event.signalled_) return false;
    if (event.reset_ == Reset::automatic) event.signalled_ = false;
    return true;
  };
  if (const auto index = first_signalled(events, take)) return index;
  const bool poll = !events.empty() && deadline && *deadline <= now();
  if (poll) return std::nullopt;

  Participant& me = self();
  me.timed_out = false;
  me.waits_for = reason;
  for (std::size_t i = 0; i < events.size(); ++i) {
    me.nodes[i].waiter = &me;
    static_cast<SimEvent&>(*events[i]).link(me.nodes[i]);
  }
  TimerId timer = 0;
  if (deadline) {
    timer = at(*deadline, [this, &me] {
      me.timed_out = true;
      make_ready(me);
    });
  }
  std::optional<std::size_t> index;
  do {
    block(lock, me);
    index = first_signalled(events, take);
  } while (!index && !me.timed_out);
  cancel(timer);
  for (std::size_t i = 0; i < events.size(); ++i) static_cast<SimEvent&>(*events[i]).unlink(me.nodes[i]);
  return index;
}

void Scheduler::wait_signalled(Lock& lock, SimEvent& event, const char* reason) {
  Event* const events[] = {&event};
  wait(lock, events, std::nullopt, reason);
}

// ---- Turns and time

Participant& Scheduler::self() {
  if (identity.scheduler != serial_number_) {
    const auto found = std::find_if(participants_.begin(), participants_.end(), [](const auto& participant) {
      return participant->thread_id == std::this_thread::get_id();
    });
    if (found == participants_.end()) report_stuck("a thread that takes no part in the simulation wants to wait in it");
    identity = {serial_number_, found->get()};
  }
  return *identity.participant;
}

void Scheduler::make_ready(Participant& participant) {
  if (participant.state != Participant::State::blocked) return;
  if (advancing_) follow_real_time();  // whoever wakes it comes from outside
  if (schedule_ == Schedule::serial) {
    participant.state = Participant::State::ready;
    ready_.push_back(&participant);
    woken_.notify_all();
  } else {
    participant.state = Participant::State::running;
    ++running_;
    participant.wake.notify_one();
    woken_.notify_all();
  }
}

void Scheduler::block(Lock& lock, Participant& me) {
  me.state = Participant::State::blocked;
  --running_;
  keep_going(lock);
  while (me.state != Participant::State::running) {
    me.wake.wait(lock);
    keep_going(lock);
  }
  if (jitter_seed_ != 0) {
    lock.unlock();
    jitter();
    lock.lock();
  }
}

// Returns once somebody runs, or will as soon as real time has caught up.
void Scheduler::keep_going(Lock& lock) {
  while (running_ == 0 && !advancing_) {
    if (ready_.empty()) {
      advance(lock);
      continue;
    }
    Participant& next = *ready_.front();
    ready_.erase(ready_.begin());
    next.state = Participant::State::running;
    ++running_;
    next.wake.notify_one();
  }
}

void Scheduler::advance(Lock& lock) {
  if (timeline_.empty() && outside_ == 0) report_stuck("all threads wait and nothing is going to happen");
  const Time time = timeline_.empty() ? now() + kSecond : timeline_.next_time();
  if (realtime_) {
    sleep_until_real(lock, time);
    const bool woken_from_outside = running_ != 0 || !ready_.empty();
    if (woken_from_outside) return;
  }
  now_.store(time, std::memory_order_relaxed);
  while (!timeline_.empty() && timeline_.next_time() <= time) timeline_.run_next();
}

void Scheduler::follow_real_time() {
  const Time real = real_now() - realtime_origin_;
  const Time reached = timeline_.empty() ? real : std::min(real, timeline_.next_time());
  now_.store(std::max(now(), reached), std::memory_order_relaxed);
}

void Scheduler::sleep_until_real(Lock& lock, Time time) {
  const std::chrono::nanoseconds ahead(time + realtime_origin_ - real_now());
  if (ahead.count() <= 0) return;
  advancing_ = true;
  woken_.wait_for(lock, ahead, [this] { return running_ != 0 || !ready_.empty() || pacer_stop_; });
  advancing_ = false;
}

// ---- Calls to the outside

// Whoever leaves doesn't move the clock himself, as the one who blocks last does otherwise: his call can't wait for it.
void Scheduler::leave() {
  const std::scoped_lock lock(mutex_);
  self().state = Participant::State::outside;
  ++outside_;
  --running_;
  woken_.notify_all();
  pacer_wake_.notify_one();
}

void Scheduler::come_back() {
  Lock lock(mutex_);
  Participant& me = self();
  --outside_;
  me.state = Participant::State::blocked;
  make_ready(me);
  keep_going(lock);
  while (me.state != Participant::State::running) {
    me.wake.wait(lock);
    keep_going(lock);
  }
}

void Scheduler::pacer_main() {
  Lock lock(mutex_);
  while (!pacer_stop_) {
    keep_going(lock);
    pacer_wake_.wait(lock, [this] { return pacer_stop_ || (running_ == 0 && !advancing_); });
  }
}

TimerId Scheduler::at(Time time, std::function<void()> action) {
  return timeline_.at(std::max(time, now()), std::move(action));
}

void Scheduler::jitter() {
  const std::uint64_t seed = jitter_seed_.load(std::memory_order_relaxed);
  if (seed == 0) return;
  const std::uint64_t dice = mix(seed + jitter_count_++);
  if (dice % 8 == 0) {
    std::this_thread::sleep_for(std::chrono::microseconds(dice / 8 % 50));
  } else if (dice % 8 < 4) {
    std::this_thread::yield();
  }
}

void Scheduler::report_stuck(const char* what) {
  std::fprintf(stderr, "simulation stopped at %lld ns: %s\n", static_cast<long long>(now()), what);
  for (const auto& participant : participants_) {
    const bool waits = participant->state == Participant::State::blocked;
    std::fprintf(stderr, "  %s: %s%s\n", participant->name.c_str(), waits ? "waits for " : "runs",
                 waits ? participant->waits_for : "");
  }
  std::abort();
}

// ---- Threads

std::shared_ptr<Participant> Scheduler::launch(const char* name, ParticipantKind kind, std::function<void()> body) {
  std::scoped_lock lock(mutex_);
  auto participant = std::make_shared<Participant>(*this, ++launched_, name, kind);
  participants_.push_back(participant);
  participant->state = Participant::State::blocked;
  participant->waits_for = "its first turn";
  make_ready(*participant);
  participant->thread =
      std::thread([this, &me = *participant, body = std::move(body)]() mutable { thread_main(me, std::move(body)); });
  participant->thread_id = participant->thread.get_id();
  return participant;
}

void Scheduler::thread_main(Participant& me, std::function<void()> body) {
  {
    Lock lock(mutex_);
    identity = {serial_number_, &me};
    me.wake.wait(lock, [&] { return me.state == Participant::State::running; });
  }
  jitter();
  body();
  body = nullptr;
  Lock lock(mutex_);
  me.state = Participant::State::finished;
  me.finished.signal();
  --running_;
  keep_going(lock);
}

std::unique_ptr<Thread> Scheduler::start(const char* name, std::function<void()> body) {
  jitter();
  if (script_.enter(Step::thread_start)) return nullptr;
  reap_abandoned();
  return std::make_unique<SimThread>(*this, launch(name, ParticipantKind::program, std::move(body)));
}

bool Scheduler::join(Participant& participant, std::optional<std::uint32_t> limit_ms) {
  jitter();
  Lock lock(mutex_);
  Event* const events[] = {&participant.finished};
  std::optional<Time> deadline;
  if (limit_ms) deadline = now() + *limit_ms * kMillisecond;
  if (!wait(lock, events, deadline, "the end of a thread")) return false;
  reap(lock, participant);
  return true;
}

// Takes a finished participant out. Its thread still needs the mutex, for a moment, to pass its turn on.
void Scheduler::reap(Lock& lock, Participant& participant) {
  if (!participant.thread.joinable()) return;
  std::thread thread = std::move(participant.thread);
  const auto found = std::find_if(participants_.begin(), participants_.end(),
                                  [&](const auto& candidate) { return candidate.get() == &participant; });
  const std::shared_ptr<Participant> keep = *found;
  participants_.erase(found);
  lock.unlock();
  thread.join();
}

void Scheduler::reap_abandoned() {
  for (;;) {
    Lock lock(mutex_);
    const auto found = std::find_if(participants_.begin(), participants_.end(), [](const auto& participant) {
      return participant->abandoned && participant->state == Participant::State::finished;
    });
    if (found == participants_.end()) return;
    reap(lock, **found);
  }
}

std::vector<ThreadInfo> Scheduler::threads() {
  std::vector<ThreadInfo> threads;
  std::scoped_lock lock(mutex_);
  for (const auto& participant : participants_) {
    if (participant->kind != ParticipantKind::program) continue;
    if (participant->state == Participant::State::finished) continue;
    threads.push_back({participant->name, participant->priority, participant->audio_class != 0});
  }
  return threads;
}

void Scheduler::set_current_priority(Priority priority) {
  std::scoped_lock lock(mutex_);
  self().priority = priority;
}

std::uint64_t Scheduler::enter_audio_class() {
  if (script_.enter(Step::audio_class_enter)) return 0;
  std::scoped_lock lock(mutex_);
  return self().audio_class = ++audio_tokens_;
}

void Scheduler::leave_audio_class(std::uint64_t token) {
  if (script_.enter(Step::audio_class_leave)) return;
  std::scoped_lock lock(mutex_);
  if (self().audio_class == token) self().audio_class = 0;
}

// ---- System thread

void Scheduler::post_to_system(std::function<void()> call) {
  posted_.push_back(std::move(call));
  system_wake_->signal();
}

void Scheduler::system_main() {
  Lock lock(mutex_);
  for (;;) {
    if (posted_.empty()) {
      if (system_stop_) return;
      wait_signalled(lock, *system_wake_, "something to call");
      continue;
    }
    const std::function<void()> call = std::move(posted_.front());
    posted_.pop_front();
    lock.unlock();
    call();
    lock.lock();
  }
}

bool Scheduler::on_system_thread() { return self().kind == ParticipantKind::system; }

std::uint64_t Scheduler::current_thread() { return self().number; }

// ---- Settings

void Scheduler::set_realtime(bool on) {
  std::scoped_lock lock(mutex_);
  if (on && !pacer_.joinable()) pacer_ = std::thread([this] { pacer_main(); });
  realtime_ = on;
  realtime_origin_ = real_now() - now();
}

void Scheduler::set_jitter(std::uint64_t seed) { jitter_seed_ = seed; }

}  // namespace sonivo::sim
