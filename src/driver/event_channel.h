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
/// An event whose receiver turns out to be gone, or to have given its request up, goes back to the head of the queue.
class EventChannel {
 public:
  static constexpr std::size_t kQueue = 64;
  /// Requests that were answered latest, of which the channel knows what they got.
  static constexpr std::size_t kRemembered = 64;
  /// False when the receiver is gone.
  using Deliver = std::function<bool(const PendingId& request, std::uint32_t command)>;

  explicit EventChannel(Deliver deliver) : deliver_(std::move(deliver)) {}

  void greet_service(ClientId client) { service_.insert(client); }
  void wait_as_service(const PendingId& request);
  void wait_as_onlooker(const PendingId& request);
  void send(std::uint32_t command);
  void send_to_service(std::uint32_t command);
  /// To every pending request, and to nobody else.
  void send_to_pending(std::uint32_t command);

  /// The service's pending requests, which are forgotten.
  std::vector<PendingId> drop_service_requests();
  /// Forgets one request.
  void drop(const PendingId& request);
  /// The event that such a request got wasn't taken: it goes to the next one. Nothing when it got none.
  void give_back(const PendingId& request);
  /// The id now means another request.
  void forget_answer(const PendingId& request);
  /// Forgets a client with all its requests.
  void drop(ClientId client);

 private:
  struct Onlooker {
    std::deque<PendingId> requests;
    std::deque<std::uint32_t> events;
  };
  struct Answered {
    PendingId request;
    std::uint32_t command = 0;
    bool service = false;
  };
  void match_service();
  void match(Onlooker& onlooker);
  void match(std::deque<PendingId>& requests, std::deque<std::uint32_t>& events, bool service);

  Deliver deliver_;
  std::set<ClientId> service_;
  std::deque<PendingId> requests_;
  std::deque<std::uint32_t> events_;
  std::map<ClientId, Onlooker> onlookers_;
  std::deque<Answered> answered_;
};

}  // namespace sonivo::driver
