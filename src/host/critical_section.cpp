#include "host/critical_section.h"

#include <array>

namespace sonivo {

CriticalSection::CriticalSection(Events& events) : events_(events), released_(events.create(Reset::automatic)) {}

bool CriticalSection::try_lock() {
  const std::lock_guard lock(state_);
  const std::thread::id me = std::this_thread::get_id();
  if (depth_ > 0 && owner_ != me) return false;
  owner_ = me;
  ++depth_;
  return true;
}

void CriticalSection::lock() {
  const std::array<Event*, 1> released{released_.get()};
  while (!try_lock()) events_.wait_any(released);
}

// The event stays set when nobody waits: the next one to wait then asks once too often, and waits again.
void CriticalSection::unlock() {
  const std::lock_guard lock(state_);
  if (--depth_ > 0) return;
  owner_ = {};
  if (released_) released_->set();
}

}  // namespace sonivo
