#pragma once

#include <memory>
#include <mutex>
#include <thread>

#include "base/event.h"

namespace sonivo {

/// Lock that one thread at a time holds, as often as it likes. Waits on an event of the machine, so that a holder may
/// wait for the machine too. Unlike a mutex it may stay with a thread that has ended.
class CriticalSection {
 public:
  explicit CriticalSection(Events& events);

  void lock();
  /// False when another thread holds it.
  bool try_lock();
  void unlock();

 private:
  Events& events_;
  std::unique_ptr<Event> released_;
  std::mutex state_;  // guards what follows
  std::thread::id owner_;
  unsigned depth_ = 0;
};

}  // namespace sonivo
