#include "platform/sim/participant.h"
#include "platform/sim/scheduler.h"

namespace sonivo::sim {

SimEvent::SimEvent(Scheduler& scheduler, Reset reset) : scheduler_(scheduler), reset_(reset) {}

SimEvent::~SimEvent() {
  std::scoped_lock lock(scheduler_.mutex_);
  if (first_ != nullptr) scheduler_.report_stuck("an event that is waited for was destroyed");
}

void SimEvent::set() {
  scheduler_.jitter();
  std::scoped_lock lock(scheduler_.mutex_);
  signal();
}

void SimEvent::reset() {
  std::scoped_lock lock(scheduler_.mutex_);
  clear();
}

// All are woken, the first in the queue finds it set; of several events a waiter may take an earlier one of its list.
void SimEvent::signal() {
  signalled_ = true;
  for (WaitNode* node = first_; node != nullptr; node = node->next) scheduler_.make_ready(*node->waiter);
}

void SimEvent::link(WaitNode& node) {
  node.previous = last_;
  node.next = nullptr;
  (last_ != nullptr ? last_->next : first_) = &node;
  last_ = &node;
}

void SimEvent::unlink(WaitNode& node) {
  (node.previous != nullptr ? node.previous->next : first_) = node.next;
  (node.next != nullptr ? node.next->previous : last_) = node.previous;
}

}  // namespace sonivo::sim
