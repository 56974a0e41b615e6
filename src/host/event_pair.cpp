#include "host/event_pair.h"

#include <utility>

namespace sonivo {

void EventPair::Create(Events& events, std::size_t index) {
  std::shared_ptr<Event> event = events.create(sonivo::Reset::manual);
  const std::lock_guard lock(m_csEvents);
  m_events.at(index) = std::move(event);
}

void EventPair::Close(std::size_t index) {
  const std::lock_guard lock(m_csEvents);
  m_events.at(index) = nullptr;
}

std::shared_ptr<Event> EventPair::Get(std::size_t index) const {
  const std::lock_guard lock(m_csEvents);
  return m_events.at(index);
}

void EventPair::Set(std::size_t index) {
  if (const auto event = Get(index)) event->set();
}

void EventPair::Reset(std::size_t index) {
  if (const auto event = Get(index)) event->reset();
}

void EventPair::TakeMissing(const EventPair& other) {
  for (const std::size_t index : {kWork, kStop}) {
    std::shared_ptr<Event> event = other.Get(index);
    const std::lock_guard lock(m_csEvents);
    if (!m_events.at(index)) m_events.at(index) = std::move(event);
  }
}

WaitResult EventPair::Wait(Events& events) const {
  const std::shared_ptr<Event> work = Get(kWork);
  const std::shared_ptr<Event> stop = Get(kStop);
  const std::array<Event*, 2> both{work.get(), stop.get()};
  return events.wait_any(both);
}

}  // namespace sonivo
