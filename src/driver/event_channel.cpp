#include "driver/event_channel.h"

#include <utility>

namespace sonivo::driver {
namespace {

void keep(std::deque<std::uint32_t>& events, std::uint32_t command) {
  if (events.size() == EventChannel::kQueue) events.pop_front();
  events.push_back(command);
}

}  // namespace

void EventChannel::wait_as_service(const PendingId& request) {
  greet_service(request.client);
  requests_.push_back(request);
  match(requests_, events_);
}

void EventChannel::wait_as_onlooker(const PendingId& request) {
  Onlooker& onlooker = onlookers_[request.client];
  onlooker.requests.push_back(request);
  match(onlooker.requests, onlooker.events);
}

void EventChannel::send(std::uint32_t command) {
  if (!service_.empty()) keep(events_, command);
  match(requests_, events_);
  for (auto& [client, onlooker] : onlookers_) {
    keep(onlooker.events, command);
    match(onlooker.requests, onlooker.events);
  }
}

void EventChannel::send_to_pending(std::uint32_t command) {
  for (const PendingId& each : std::exchange(requests_, {})) deliver_(each, command);
  for (auto& [client, onlooker] : onlookers_) {
    for (const PendingId& each : std::exchange(onlooker.requests, {})) deliver_(each, command);
  }
}

void EventChannel::match(std::deque<PendingId>& requests, std::deque<std::uint32_t>& events) {
  while (!requests.empty() && !events.empty()) {
    deliver_(requests.front(), events.front());
    requests.pop_front();
    events.pop_front();
  }
}

std::vector<PendingId> EventChannel::drop_service_requests() {
  const auto dropped = std::exchange(requests_, {});
  return {dropped.begin(), dropped.end()};
}

void EventChannel::drop(const PendingId& request) {
  std::erase(requests_, request);
  if (const auto found = onlookers_.find(request.client); found != onlookers_.end()) {
    std::erase(found->second.requests, request);
  }
}

void EventChannel::drop(ClientId client) {
  std::erase_if(requests_, [&](const PendingId& each) { return each.client == client; });
  onlookers_.erase(client);
  service_.erase(client);
  if (service_.empty()) events_.clear();
}

}  // namespace sonivo::driver
