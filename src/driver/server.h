#pragma once

#include <sys/epoll.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "driver/connection.h"
#include "driver/control_driver.h"
#include "driver/peer_processes.h"

namespace sonivo::driver {

struct ServerLimits {
  std::size_t clients = 64;  ///< a further one takes the place of the oldest that never asked, or one of `brief`
  /// Places beyond these for short requests, so that tools find one beside clients that all wait for something: who
  /// asks for something to wait for is closed, unless another place is free by then, and the oldest gives way to a
  /// further one.
  std::size_t brief = 2;
  std::size_t of_process = 16;  ///< likewise; processes of other pid namespaces count as one
  QueueLimits queue = {};
  std::chrono::milliseconds leave{500};  ///< how long the end waits for clients to read that it comes
};

/// Something to be called again and again, by which others see that the server goes on.
struct Heartbeat {
  std::chrono::milliseconds period;
  std::function<void()> beat;
};

/// Carries requests and replies between sockets and the driver, on one thread that waits for no client. It does wait
/// for the disk: whatever changes a kept value is written before anything else is answered. Clients of other users than
/// `owner` and root are closed at once, as is each that sends what is no request or doesn't read.
class Server {
 public:
  /// `listener`: a listening socket of type SOCK_SEQPACKET. std::system_error when the system refuses what it takes.
  Server(Descriptor listener, Settings& settings, EffectProperties& properties, uid_t owner = ::geteuid(),
         const ServerLimits& limits = {});
  ~Server();

  /// Serves until stop(), then announces the exit and returns once all clients who wait for events have room for that,
  /// or the time for it is over; connections end with the object.
  void run(const std::optional<Heartbeat>& heartbeat = std::nullopt);
  /// From any thread or signal handler.
  void stop();

 private:
  int await_events(std::span<epoll_event> events, int longest_wait);
  void accept_clients();
  bool accept_one();
  bool wait_after_failure(int number);
  bool has_place_for(const PeerProcess& process) const;
  std::size_t places_taken() const;
  bool drop_silent_client();
  bool make_brief_place();
  bool may_wait(ClientId client);
  void close(ClientId client);
  void refuse_for_want_of_descriptors();
  void serve(ClientId client, std::uint32_t ready);
  void read(ClientId client);
  bool reply(ClientId client, const control::Reply& reply);
  void watch_output(ClientId client, bool wanted);
  void doom(ClientId client, const char* why);
  void close_doomed();
  void announce_exit();

  Descriptor listener_;
  uid_t owner_;
  ServerLimits limits_;
  Descriptor poll_;
  Descriptor stop_;
  Descriptor spare_;  // let go to accept, and close, a client when there are no descriptors left
  struct Client {
    Connection connection;
    std::shared_ptr<const PeerProcess> process;
    bool brief = false;  // has a place for short requests
    bool asked = false;
  };
  std::map<ClientId, Client> clients_;
  std::set<ClientId> doomed_;
  ClientId next_client_;
  PeerProcesses processes_;
  bool leaves_ = false;
  ControlDriver driver_;
  std::vector<std::byte> buffer_;
};

}  // namespace sonivo::driver
