#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <mutex>

#include "base/event.h"

namespace sonivo {

/// Work and stop event of one thread. Any thread.
class EventPair {
 public:
  static constexpr std::size_t kWork = 0;
  static constexpr std::size_t kStop = 1;

  /// A manual-reset event, unsignalled, in place of what was there.
  void Create(Events& events, std::size_t index);
  void Close(std::size_t index);
  /// Nothing where there is none.
  void Set(std::size_t index);
  void Reset(std::size_t index);
  /// Null where there is none.
  std::shared_ptr<Event> Get(std::size_t index) const;
  /// Takes what it lacks from the other pair. A thread that keeps to the events it found isn't confused by those of its
  /// successor, once it was abandoned.
  void TakeMissing(const EventPair& other);
  /// Fails when one is missing.
  WaitResult Wait(Events& events) const;

 private:
  mutable std::mutex m_csEvents;
  std::array<std::shared_ptr<Event>, 2> m_events;
};

}  // namespace sonivo
