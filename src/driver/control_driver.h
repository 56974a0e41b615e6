#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "driver/effect_properties.h"
#include "driver/event_channel.h"
#include "driver/monotonic_time.h"
#include "driver/peer_processes.h"
#include "driver/property_watches.h"
#include "driver/settings.h"
#include "platform/control_frames.h"

namespace sonivo::driver {

/// What the driver answers to requests, whatever brings them. One thread.
///
/// One process at a time is the service: the first that asks for its events (NSV_SERVICE_EVENT_NOTIFY) or cancels such
/// requests (NSV_SERVICE_EVENT_CANCEL), until its last connection ends. Requests of others for its events pend until
/// then; the one with the oldest of them is the service next, and is told of auto mute and endpoints, whose changes it
/// has missed. Each process cancels its own requests. Only the service may publish
/// a report (NSV_PUBLISH_REPORT); another one's is error::kAccessDenied.
class ControlDriver {
 public:
  /// Requests of one client that may be pending; more are refused with error::kBusy.
  static constexpr std::size_t kMaxPending = 32;

  /// The output is valid during the call, which must not call back. False when the client is gone.
  using Reply = std::function<bool(ClientId client, const control::Reply& reply)>;

  ControlDriver(Settings& settings, EffectProperties& properties, Reply reply, Now now = monotonic_ms);

  /// `process`: who is at the other end; connections of one process belong together.
  void client_came(ClientId client, ProcessId process);
  /// Its pending requests are dropped; with the last client of a process, the report that this published.
  void client_gone(ClientId client);
  /// False when the client breaks the rules of ids: its connection is to be closed.
  bool request(ClientId client, const control::Request& request);
  /// Whether requests of the client are pending.
  bool waits(ClientId client) const { return !clients_.at(client).pending.empty(); }
  /// Answers pending requests for events with NSVPLAY_CMD_EXIT.
  void announce_exit();

 private:
  struct Client {
    ProcessId process = 0;
    std::set<std::uint32_t> pending;
  };
  /// None when the request stays pending.
  using Outcome = std::optional<control::Answer>;
  Outcome start(ClientId client, const control::Request& request, std::span<std::byte> output);
  Outcome start_event(const PendingId& request, bool service, const control::Request& frame);
  Outcome watch(const PendingId& request, const control::Request& frame);
  control::Answer publish(ClientId client, std::span<const std::byte> text);
  control::Answer read_report(std::span<std::byte> output) const;
  control::Answer read_ages(std::span<const std::byte> input, std::span<std::byte> output) const;
  control::Answer send_event(std::span<const std::byte> input);
  control::Answer cancel_events(ClientId client, const control::Request& request);
  void cancel(ClientId client, std::uint32_t id);
  bool become_service(ClientId client);
  void choose_next_service();
  std::vector<PendingId> drop_waiting_of(ProcessId process);
  bool is_of_service(ClientId client) const;
  bool is_connected(ProcessId process) const;
  bool deliver(const PendingId& request, std::uint32_t command);
  bool finish(const PendingId& request, Error error, std::span<const std::byte> output);

  Settings& settings_;
  EffectProperties& properties_;
  Reply reply_;
  Now now_;
  const std::uint64_t started_ms_ = now_();
  EventChannel events_;
  PropertyWatches watches_;
  std::map<ClientId, Client> clients_;
  std::optional<ProcessId> service_;
  std::vector<PendingId> waiting_;  // requests for events of those who aren't the service, the oldest first
  std::string report_;
  ProcessId reporter_ = 0;
  std::uint64_t reported_ms_ = 0;
  std::vector<std::byte> output_;
};

}  // namespace sonivo::driver
