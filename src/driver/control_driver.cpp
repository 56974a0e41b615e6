#include "driver/control_driver.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/text.h"

namespace sonivo::driver {

using control::Answer;
using control::EventRecord;

ControlDriver::ControlDriver(Settings& settings, EffectProperties& properties, Reply reply, Now now)
    : settings_(settings),
      properties_(properties),
      reply_(std::move(reply)),
      now_(std::move(now)),
      events_([this](const PendingId& request, std::uint32_t command) { return deliver(request, command); }),
      watches_(properties, [this](const PendingId& request, std::uint64_t change) {
        finish(request, error::kNone, std::as_bytes(std::span(&change, 1)));
      }) {}

void ControlDriver::client_came(ClientId client, ProcessId process) { clients_[client].process = process; }

void ControlDriver::client_gone(ClientId client) {
  events_.drop(client);
  watches_.drop(client);
  std::erase_if(waiting_, [&](const PendingId& each) { return each.client == client; });
  clients_.erase(client);
  if (!is_connected(reporter_)) report_.clear();
  if (!service_ || !is_connected(*service_)) choose_next_service();
}

bool ControlDriver::is_connected(ProcessId process) const {
  return std::any_of(clients_.begin(), clients_.end(),
                     [&](const auto& each) { return each.second.process == process; });
}

void ControlDriver::choose_next_service() {
  service_.reset();
  if (waiting_.empty()) return;
  service_ = clients_.at(waiting_.front().client).process;
  for (const PendingId& each : drop_waiting_of(*service_)) events_.wait_as_service(each);
  const bool auto_mute = settings_.number(control::NSV_GET_AUTO_MUTE_MTG) == 1;
  for (const std::uint32_t command : {auto_mute ? control::NSVDRV_CMD_AUTOMUTE_ON : control::NSVDRV_CMD_AUTOMUTE_OFF,
                                      control::NSVDRV_CMD_DEV_MIC, control::NSVDRV_CMD_DEV_SPK}) {
    events_.send_to_service(command);
  }
}

std::vector<PendingId> ControlDriver::drop_waiting_of(ProcessId process) {
  const auto others = std::stable_partition(waiting_.begin(), waiting_.end(), [&](const PendingId& each) {
    return clients_.at(each.client).process != process;
  });
  std::vector<PendingId> its(others, waiting_.end());
  waiting_.erase(others, waiting_.end());
  return its;
}

bool ControlDriver::request(ClientId client, const control::Request& request) {
  auto& pending = clients_.at(client).pending;
  const std::uint32_t id = request.head.id;
  if (request.head.kind == control::RequestKind::cancel) {
    cancel(client, id);
    return true;
  }
  if (!pending.insert(id).second) return false;
  events_.forget_answer({client, id});
  if (pending.size() > kMaxPending) {
    finish({client, id}, error::kBusy, {});
    return true;
  }
  output_.resize(request.head.output_bytes);
  if (const Outcome outcome = start(client, request, output_)) {
    finish({client, id}, outcome->error, std::span(output_).first(outcome->transferred));
    if (outcome->event) events_.send(*outcome->event);
    if (outcome->changed) watches_.tell();
  }
  return true;
}

ControlDriver::Outcome ControlDriver::start(ClientId client, const control::Request& request,
                                            std::span<std::byte> output) {
  switch (request.head.code) {
    case control::NSV_SERVICE_EVENT_NOTIFY:
      return start_event({client, request.head.id}, true, request);
    case control::NSV_OBSERVE_EVENTS:
      return start_event({client, request.head.id}, false, request);
    case control::NSV_SERVICE_EVENT_CANCEL:
      return cancel_events(client, request);
    case control::NSV_PUBLISH_REPORT:
      return publish(client, request.input);
    case control::NSV_READ_REPORT:
      return read_report(output);
    case control::NSV_READ_AGES:
      return read_ages(request.input, output);
    case control::NSV_SEND_EVENT:
      return send_event(request.input);
    case control::NSV_GET_FX_PROPERTY:
      return properties_.get(request.input, output);
    case control::NSV_SET_FX_PROPERTY:
      return properties_.set(request.input);
    case control::NSV_REMOVE_FX_PROPERTY:
      return properties_.remove(request.input);
    case control::NSV_WATCH_FX_PROPERTIES:
      return watch({client, request.head.id}, request);
    default: {
      const Answer answer = settings_.answer(request.head.code, request.input, output);
      const bool is_news_to_service = !is_of_service(client) || request.head.code == control::SetHeadphone;
      if (answer.changed && is_news_to_service) properties_.touch_all();
      return answer;
    }
  }
}

ControlDriver::Outcome ControlDriver::watch(const PendingId& request, const control::Request& frame) {
  const Error refused = watches_.wait(request, frame.input, frame.head.output_bytes);
  if (refused == error::kNone) return std::nullopt;
  return Answer{.error = refused};
}

/// False when another process is the service.
bool ControlDriver::become_service(ClientId client) {
  if (!service_) service_ = clients_.at(client).process;
  return is_of_service(client);
}

bool ControlDriver::is_of_service(ClientId client) const { return clients_.at(client).process == service_; }

ControlDriver::Outcome ControlDriver::start_event(const PendingId& request, bool service,
                                                  const control::Request& frame) {
  if (!frame.input.empty() || frame.head.output_bytes != sizeof(EventRecord)) {
    return Answer{.error = error::kInvalidParameter};
  }
  if (service) {
    if (become_service(request.client)) {
      events_.wait_as_service(request);
    } else {
      waiting_.push_back(request);
    }
  } else {
    events_.wait_as_onlooker(request);
  }
  return std::nullopt;
}

Answer ControlDriver::cancel_events(ClientId client, const control::Request& request) {
  if (!request.input.empty()) return {.error = error::kInvalidParameter};
  std::vector<PendingId> dropped;
  if (become_service(client)) {
    events_.greet_service(client);
    dropped = events_.drop_service_requests();
  } else {
    dropped = drop_waiting_of(clients_.at(client).process);
  }
  for (const PendingId& each : dropped) finish(each, error::kOperationAborted, {});
  return {};
}

Answer ControlDriver::publish(ClientId client, std::span<const std::byte> text) {
  if (!is_of_service(client)) return {.error = error::kAccessDenied};
  if (text.size() > control::kMaxReportBytes) return {.error = error::kInvalidParameter};
  std::string report(reinterpret_cast<const char*>(text.data()), text.size());
  if (to_utf8(to_utf16(report)) != report) return {.error = error::kInvalidParameter};
  report_ = std::move(report);
  reporter_ = clients_.at(client).process;
  reported_ms_ = now_();
  return {};
}

Answer ControlDriver::read_report(std::span<std::byte> output) const {
  if (report_.empty()) return {.error = error::kNotFound};
  if (output.size() < report_.size()) return {.error = error::kInsufficientBuffer};
  std::memcpy(output.data(), report_.data(), report_.size());
  return {.transferred = static_cast<std::uint32_t>(report_.size())};
}

Answer ControlDriver::read_ages(std::span<const std::byte> input, std::span<std::byte> output) const {
  if (!input.empty()) return {.error = error::kInvalidParameter};
  const std::uint64_t now = now_();
  const control::Ages ages{now - started_ms_, report_.empty() ? control::Ages::kNone : now - reported_ms_};
  if (output.size() < sizeof ages) return {.error = error::kInsufficientBuffer};
  std::memcpy(output.data(), &ages, sizeof ages);
  return {.transferred = sizeof ages};
}

Answer ControlDriver::send_event(std::span<const std::byte> input) {
  std::uint32_t command = 0;
  if (input.size() != sizeof command) return {.error = error::kInvalidParameter};
  std::memcpy(&command, input.data(), sizeof command);
  if (command == 0 || command >= control::NSVPLAY_CMD_EXIT) return {.error = error::kInvalidParameter};
  return {.event = command};
}

void ControlDriver::cancel(ClientId client, std::uint32_t id) {
  if (!clients_.at(client).pending.contains(id)) return events_.give_back({client, id});
  events_.drop(PendingId{client, id});
  watches_.drop(PendingId{client, id});
  std::erase(waiting_, PendingId{client, id});
  finish({client, id}, error::kOperationAborted, {});
}

void ControlDriver::announce_exit() {
  events_.send_to_pending(control::NSVPLAY_CMD_EXIT);
  for (const PendingId& each : std::exchange(waiting_, {})) deliver(each, control::NSVPLAY_CMD_EXIT);
}

bool ControlDriver::deliver(const PendingId& request, std::uint32_t command) {
  EventRecord record;
  record.command = command;
  return finish(request, error::kNone, std::as_bytes(std::span(&record, 1)));
}

bool ControlDriver::finish(const PendingId& request, Error error, std::span<const std::byte> output) {
  clients_.at(request.client).pending.erase(request.id);
  return reply_(request.client, {{request.id, error, static_cast<std::uint32_t>(output.size())}, output});
}

}  // namespace sonivo::driver
