#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>

#include "platform/sim/scheduler.h"

namespace sonivo::sim {

/// Most events that one wait takes.
inline constexpr std::size_t kMaxWaits = 64;

/// A thread that takes part in the simulation. All but the identity is guarded by the scheduler's mutex.
struct Participant {
  enum class State { ready, running, blocked, outside, finished };

  Participant(Scheduler& scheduler, std::uint64_t its_number, std::string its_name, ParticipantKind its_kind)
      : number(its_number), name(std::move(its_name)), kind(its_kind), finished(scheduler, Reset::manual) {}

  const std::uint64_t number;
  const std::string name;
  const ParticipantKind kind;
  std::thread::id thread_id;
  std::thread thread;  ///< none for the entry
  State state = State::ready;
  Priority priority = Priority::normal;
  std::uint64_t audio_class = 0;  ///< token; 0: not in the class
  bool abandoned = false;
  const char* waits_for = "";
  std::condition_variable wake;
  std::array<WaitNode, kMaxWaits> nodes{};
  bool timed_out = false;
  SimEvent finished;
};

}  // namespace sonivo::sim
