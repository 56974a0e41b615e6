#include "driver/event_channel.h"

#include <algorithm>
#include <utility>

namespace sonivo::driver {
namespace {

void keep(std::deque<std::uint32_t>& events, std::uint32_t command) {
  if (events.size() == EventChannel::kQueue) events.pop_front();
  events.push_back(command);
}

/// It is the oldest, which gives way when there are enough later ones.
void put_back(std::deque<std::uint32_t>& events, std::uint32_t command) {
  if (events.size() < EventChannel::kQueue) events.push_front(command);
}

}  // namespace

void EventChannel::wait_as_service(const PendingId& request) {
  greet_service(request.client);
  requests_.push_back(request);
  match_service();
}

void EventChannel::wait_as_onlooker(const PendingId& request) {
  Onlooker& onlooker = onlookers_[request.client];
  onlooker.requests.push_back(request);
  match(onlooker);
}

void EventChannel::send_to_service(std::uint32_t command) {
  if (!service_.empty()) keep(events_, command);
  match_service();
}

void EventChannel::send(std::uint32_t command) {
  send_to_service(command);
  for (auto& [client, onlooker] : onlookers_) {
    keep(onlooker.events, command);
    match(onlooker);
  }
}

void EventChannel::send_to_pending(std::uint32_t command) {
  for (const PendingId& each : std::exchange(requests_, {})) deliver_(each, command);
  for (auto& [client, onlooker] : onlookers_) {
    for (const PendingId& each : std::exchange(onlooker.requests, {})) deliver_(each, command);
  }
}

void EventChannel::match_service() { match(requests_, events_, true); }

void EventChannel::match(Onlooker& onlooker) { match(onlooker.requests, onlooker.events, false); }

void EventChannel::match(std::deque<PendingId>& requests, std::deque<std::uint32_t>& events, bool service) {
  while (!requests.empty() && !events.empty()) {
    const PendingId request = requests.front();
    requests.pop_front();
    if (!deliver_(request, events.front())) continue;
    answered_.push_back({request, events.front(), service});
    if (answered_.size() > kRemembered) answered_.pop_front();
    events.pop_front();
  }
}

void EventChannel::give_back(const PendingId& request) {
  const auto found =
      std::find_if(answered_.begin(), answered_.end(), [&](const Answered& each) { return each.request == request; });
  if (found == answered_.end()) return;
  const Answered answer = *found;
  answered_.erase(found);
  if (answer.service) {
    put_back(events_, answer.command);
    return match_service();
  }
  Onlooker& onlooker = onlookers_[request.client];
  put_back(onlooker.events, answer.command);
  match(onlooker);
}

void EventChannel::forget_answer(const PendingId& request) {
  std::erase_if(answered_, [&](const Answered& each) { return each.request == request; });
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
  std::erase_if(answered_, [&](const Answered& each) { return each.request.client == client; });
  onlookers_.erase(client);
  service_.erase(client);
  if (service_.empty()) events_.clear();
}

}  // namespace sonivo::driver
