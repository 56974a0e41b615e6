#include "driver/connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>

namespace sonivo::driver {
namespace {

enum class Sent { all, not_now, never };

/// A packet goes whole or not at all.
Sent send_packet(int socket, std::span<iovec> parts) {
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  for (;;) {
    if (::sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return Sent::all;
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS ? Sent::not_now : Sent::never;
  }
}

}  // namespace

bool Connection::send(const control::Reply& reply, Room room) {
  if (queue_.empty()) {
    control::ReplyHead head = reply.head;
    // The kernel only reads them.
    std::array parts{iovec{&head, sizeof head},
                     iovec{const_cast<std::byte*>(reply.output.data()), reply.output.size()}};
    const Sent sent = send_packet(number(), parts);
    if (sent != Sent::not_now) return sent == Sent::all;
  }
  const auto head = std::as_bytes(std::span(&reply.head, 1));
  const std::size_t bytes = head.size() + reply.output.size();
  const bool full = queue_.size() >= limits_.replies || queued_bytes_ + bytes > limits_.bytes;
  if (full && room == Room::limited) return false;
  std::vector<std::byte> packet(head.begin(), head.end());
  packet.insert(packet.end(), reply.output.begin(), reply.output.end());
  queue_.push_back(std::move(packet));
  queued_bytes_ += bytes;
  return true;
}

bool Connection::flush() {
  while (!queue_.empty()) {
    std::array parts{iovec{queue_.front().data(), queue_.front().size()}};
    const Sent sent = send_packet(number(), parts);
    if (sent != Sent::all) return sent == Sent::not_now;
    queued_bytes_ -= queue_.front().size();
    queue_.pop_front();
  }
  return true;
}

bool Connection::has_received() const {
  pollfd polled{number(), POLLIN, 0};
  return ::poll(&polled, 1, 0) != 0;
}

Connection::Received Connection::receive(std::span<std::byte> buffer, std::span<const std::byte>& frame) {
  for (;;) {
    const ssize_t count = ::recv(number(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? Received::nothing : Received::end;
    if (count == 0) return Received::end;
    const auto bytes = static_cast<std::size_t>(count);
    frame = std::span<const std::byte>(buffer).first(bytes <= buffer.size() ? bytes : 0);
    return Received::frame;
  }
}

}  // namespace sonivo::driver
