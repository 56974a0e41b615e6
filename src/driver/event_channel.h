#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <vector>

namespace sonivo::driver {

/// A connection; numbers aren't used twice.
using ClientId = std::uint64_t;

/// A request of a client that stays pending.
struct PendingId {
  ClientId client = 0;
  std::uint32_t id = 0;
  friend auto operator<=>(const PendingId&, const PendingId&) = default;
};

/// Events between those who cause them and those who wait for them. An event goes to the oldest pending request of the
/// service, and once to each onlooker. While none is pending it waits, for the service as well as for each onlooker, in
/// a queue of 64, of which the oldest gives way. Nothing is kept for a service that isn't there: a client counts as the
/// service from its first request for an event, or the cancelling of such requests, to the end of its connection.
class EventChannel {
 public:
  static constexpr std::size_t kQueue = 64;
  using Deliver = std::function<void(const PendingId& request, std::uint32_t command)>;

  explicit EventChannel(Deliver deliver) : deliver_(std::move(deliver)) {}

  void greet_service(ClientId client) { service_.insert(client); }
  bool is_service(ClientId client) const { return service_.contains(client); }
  void wait_as_service(const PendingId& request);
  void wait_as_onlooker(const PendingId& request);
  void send(std::uint32_t command);
  /// To every pending request, and to nobody else.
  void send_to_pending(std::uint32_t command);

  /// The service's pending requests, which are forgotten.
  std::vector<PendingId> drop_service_requests();
  /// Forgets one request.
  void drop(const PendingId& request);
  /// Forgets a client with all its requests.
  void drop(ClientId client);

 private:
  struct Onlooker {
    std::deque<PendingId> requests;
    std::deque<std::uint32_t> events;
  };
  void match(std::deque<PendingId>& requests, std::deque<std::uint32_t>& events);

  Deliver deliver_;
  std::set<ClientId> service_;
  std::deque<PendingId> requests_;
  std::deque<std::uint32_t> events_;
  std::map<ClientId, Onlooker> onlookers_;
};

}  // namespace sonivo::driver
