#include "driver/server.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/trace.h"

namespace sonivo::driver {

using control::kStaysAwake;

namespace {

constexpr ClientId kListener = 0;
constexpr ClientId kStop = 1;
constexpr ClientId kFirstClient = 2;
/// Of one client before the others have their turn.
constexpr int kFramesPerTurn = 16;
/// What waits at the listener and can't be taken isn't to be spun on.
constexpr int kPauseMs = 10;

Descriptor made(int number, const char* what) {
  if (number < 0) throw std::system_error(errno, std::generic_category(), what);
  return Descriptor(number);
}

bool watch(int poll, int operation, int file, std::uint32_t events, ClientId whose) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = whose;
  return ::epoll_ctl(poll, operation, file, &event) == 0;
}

int spare_descriptor() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

}  // namespace

Server::Server(Descriptor listener, Settings& settings, EffectProperties& properties, uid_t owner,
               const ServerLimits& limits)
    : listener_(std::move(listener)),
      owner_(owner),
      limits_(limits),
      poll_(made(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      stop_(made(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      spare_(made(spare_descriptor(), "/dev/null")),
      next_client_(kFirstClient),
      driver_(settings, properties,
              [this](ClientId client, const control::Reply& each) { return reply(client, each); }),
      buffer_(control::kMaxRequestBytes) {
  ::fcntl(listener_.number(), F_SETFL, ::fcntl(listener_.number(), F_GETFL) | O_NONBLOCK);
  if (!watch(poll_.number(), EPOLL_CTL_ADD, listener_.number(), EPOLLIN, kListener) ||
      !watch(poll_.number(), EPOLL_CTL_ADD, stop_.number(), EPOLLIN, kStop)) {
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
  }
}

Server::~Server() = default;

void Server::stop() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(stop_.number(), &one, sizeof one);
}

void Server::run(const std::optional<Heartbeat>& heartbeat) {
  const int longest_wait = heartbeat ? static_cast<int>(heartbeat->period.count()) : -1;
  auto next_beat = std::chrono::steady_clock::now();
  for (bool stopped = false; !stopped;) {
    if (heartbeat && std::chrono::steady_clock::now() >= next_beat) {
      heartbeat->beat();
      next_beat = std::chrono::steady_clock::now() + heartbeat->period;
    }
    std::array<epoll_event, 32> events;
    const int count = await_events(events, longest_wait);
    if (count < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "epoll_wait");
    for (int i = 0; i < count; ++i) {
      const epoll_event& event = events[static_cast<std::size_t>(i)];
      switch (event.data.u64) {
        case kListener:
          accept_clients();
          break;
        case kStop:
          stopped = true;
          break;
        default:
          serve(event.data.u64, event.events);
      }
    }
    close_doomed();
  }
  announce_exit();
}

/// As epoll_wait().
int Server::await_events(std::span<epoll_event> events, int longest_wait) {
  const auto wait = [&](int limit_ms) {
    return ::epoll_wait(poll_.number(), events.data(), static_cast<int>(events.size()), limit_ms);
  };
  for (const auto end = std::chrono::steady_clock::now() + kStaysAwake; std::chrono::steady_clock::now() < end;) {
    if (const int count = wait(0); count != 0) return count;
    ::sched_yield();
  }
  return wait(longest_wait);
}

void Server::announce_exit() {
  leaves_ = true;
  driver_.announce_exit();
  const auto end = std::chrono::steady_clock::now() + limits_.leave;
  for (;;) {
    std::vector<pollfd> waiting;
    for (auto& [number, client] : clients_) {
      Connection& connection = client.connection;
      if (!doomed_.contains(number) && connection.flush() && connection.has_queued()) {
        waiting.push_back({connection.number(), POLLOUT, 0});
      }
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    if (waiting.empty() || left <= 0) return;
    ::poll(waiting.data(), waiting.size(), static_cast<int>(left));
  }
}

void Server::accept_clients() {
  for (int i = 0; i < kFramesPerTurn && accept_one(); ++i) {
  }
}

/// False when there is none to accept.
bool Server::accept_one() {
  Descriptor socket(::accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket.is_open()) {
    return wait_after_failure(errno);
  }
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket.number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    trace(TraceLevel::warning, "a client is refused: its user can't be told: %s\n", std::strerror(errno));
    return true;
  }
  if (peer.uid != owner_ && peer.uid != 0) {
    trace(TraceLevel::warning, "a client of user %u is refused\n", peer.uid);
    return true;
  }
  auto process = processes_.of(socket.number(), peer.pid);
  if (!has_place_for(*process)) return true;
  const bool brief = places_taken() >= limits_.clients && !drop_silent_client();
  if (brief && !make_brief_place()) {
    trace(TraceLevel::warning, "process %d is refused: there are %zu clients\n", process->number, clients_.size());
    return true;
  }
  const ClientId client = next_client_++;
  if (!watch(poll_.number(), EPOLL_CTL_ADD, socket.number(), EPOLLIN, client)) return true;
  driver_.client_came(client, process->id);
  clients_.emplace(client, Client{Connection(std::move(socket), limits_.queue), std::move(process), brief});
  return true;
}

/// Whether there may be more to accept.
bool Server::wait_after_failure(int number) {
  switch (number) {
    case EINTR:
    case ECONNABORTED:
      return true;
    case EMFILE:
    case ENFILE:
      refuse_for_want_of_descriptors();
      return false;
    case EAGAIN:
      return false;
    default:
      trace(TraceLevel::warning, "no client can be accepted: %s\n", std::strerror(number));
      ::poll(nullptr, 0, kPauseMs);
      return false;
  }
}

bool Server::has_place_for(const PeerProcess& process) const {
  const auto its = static_cast<std::size_t>(std::count_if(
      clients_.begin(), clients_.end(), [&](const auto& each) { return each.second.process.get() == &process; }));
  if (its < limits_.of_process) return true;
  trace(TraceLevel::warning, "process %d is refused: it has %zu connections\n", process.number, its);
  return false;
}

std::size_t Server::places_taken() const {
  return static_cast<std::size_t>(std::count_if(clients_.begin(), clients_.end(), [this](const auto& each) {
    return !each.second.brief && !doomed_.contains(each.first);
  }));
}

/// False when there are no such places at all.
bool Server::make_brief_place() {
  const auto brief =
      std::count_if(clients_.begin(), clients_.end(), [](const auto& each) { return each.second.brief; });
  if (static_cast<std::size_t>(brief) < limits_.brief) return true;
  const auto oldest =
      std::find_if(clients_.begin(), clients_.end(), [](const auto& each) { return each.second.brief; });
  if (oldest == clients_.end()) return false;
  close(oldest->first);
  return true;
}

/// Whether the client may have a request that stays pending.
bool Server::may_wait(ClientId client) {
  bool& brief = clients_.at(client).brief;
  brief = brief && places_taken() >= limits_.clients;
  return !brief;
}

/// Of those who hold a place and never made use of it, the one that has it longest.
bool Server::drop_silent_client() {
  const auto found = std::find_if(clients_.begin(), clients_.end(), [](const auto& each) {
    return !each.second.brief && !each.second.asked && !each.second.connection.has_received();
  });
  if (found == clients_.end()) return false;
  trace(TraceLevel::warning, "client %llu is closed: it has asked for nothing, and others wait\n",
        static_cast<unsigned long long>(found->first));
  close(found->first);
  return true;
}

void Server::refuse_for_want_of_descriptors() {
  trace(TraceLevel::warning, "a client is refused: there are no descriptors left\n");
  spare_.close();
  Descriptor(::accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC)).close();
  spare_ = Descriptor(spare_descriptor());
  if (!spare_.is_open()) ::poll(nullptr, 0, kPauseMs);  // others took it
}

void Server::serve(ClientId client, std::uint32_t ready) {
  const auto found = clients_.find(client);
  if (found == clients_.end()) return;
  if ((ready & EPOLLOUT) != 0) {
    if (!found->second.connection.flush()) return doom(client, nullptr);
    if (!found->second.connection.has_queued()) watch_output(client, false);
  }
  if ((ready & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) read(client);
}

void Server::read(ClientId client) {
  auto& [connection, process, brief, asked] = clients_.at(client);
  for (int i = 0; i < kFramesPerTurn && !doomed_.contains(client); ++i) {
    std::span<const std::byte> frame;
    switch (connection.receive(buffer_, frame)) {
      case Connection::Received::nothing:
        return;
      case Connection::Received::end:
        return doom(client, nullptr);
      case Connection::Received::frame:
        break;
    }
    asked = true;
    const auto request = control::read_request(frame);
    if (!request || !driver_.request(client, *request)) return doom(client, "it sent what is no request");
    if (driver_.waits(client) && !may_wait(client)) return doom(client, "it waits, and all places to wait are taken");
  }
}

bool Server::reply(ClientId client, const control::Reply& reply) {
  if (doomed_.contains(client)) return false;
  Connection& connection = clients_.at(client).connection;
  const bool had_queued = connection.has_queued();
  if (!connection.send(reply, leaves_ ? Room::reserved : Room::limited)) {
    doom(client, "it is gone or doesn't read");
    return false;
  }
  if (!had_queued && connection.has_queued()) watch_output(client, true);
  return true;
}

void Server::watch_output(ClientId client, bool wanted) {
  const std::uint32_t events = wanted ? EPOLLIN | EPOLLOUT : EPOLLIN;
  if (!watch(poll_.number(), EPOLL_CTL_MOD, clients_.at(client).connection.number(), events, client))
    doom(client, nullptr);
}

void Server::doom(ClientId client, const char* why) {
  if (doomed_.insert(client).second && why != nullptr) {
    trace(TraceLevel::warning, "client %llu is closed: %s\n", static_cast<unsigned long long>(client), why);
  }
}

void Server::close(ClientId client) {
  driver_.client_gone(client);
  clients_.erase(client);
  doomed_.erase(client);
}

void Server::close_doomed() {
  while (!doomed_.empty()) {  // the end of one may bring an event to another who doesn't read
    close(*doomed_.begin());
  }
}

}  // namespace sonivo::driver
