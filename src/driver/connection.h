#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "base/descriptor.h"
#include "platform/control_frames.h"

namespace sonivo::driver {

/// How much may wait for a client that doesn't read.
struct QueueLimits {
  std::size_t replies = 64;
  std::size_t bytes = std::size_t{1} << 19;
};

/// Whose room in the queue a reply takes: `reserved` is for those that there is no way to refuse, and that can't be
/// many.
enum class Room { limited, reserved };

/// One client's socket. Nothing here waits for the client.
class Connection {
 public:
  explicit Connection(Descriptor socket, const QueueLimits& limits) : socket_(std::move(socket)), limits_(limits) {}

  int number() const { return socket_.number(); }

  /// Sends the reply, or queues it behind those that wait. False when the queue is full or the client gone.
  bool send(const control::Reply& reply, Room room = Room::limited);
  /// Sends what waits, as far as the socket takes it. False when the client is gone.
  bool flush();
  bool has_queued() const { return !queue_.empty(); }

  /// Whether a packet waits to be taken, or the end.
  bool has_received() const;
  enum class Received { frame, nothing, end };
  /// The next packet, in `buffer`; one that doesn't fit is larger than any frame, and comes out as an empty one.
  Received receive(std::span<std::byte> buffer, std::span<const std::byte>& frame);

 private:
  Descriptor socket_;
  QueueLimits limits_;
  std::deque<std::vector<std::byte>> queue_;
  std::size_t queued_bytes_ = 0;
};

}  // namespace sonivo::driver
