#include "platform/linux/control_socket.h"

#include <sched.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

#include "platform/control_requests.h"
#include "platform/fx_requests.h"

namespace sonivo::linux {

using control::kStaysAwake;

namespace {

Error connect_error(int number) {
  switch (number) {
    case EACCES:
    case EPERM:
      return error::kAccessDenied;
    case EAGAIN:
    case EMFILE:
    case ENFILE:
      return error::kBusy;
    default:
      return error::kFileNotFound;
  }
}

/// None when the path is too long for a socket.
std::optional<sockaddr_un> control_address(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return std::nullopt;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

bool connect_to(const Descriptor& socket, const sockaddr_un& address) {
  return ::connect(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// `option`: SO_SNDTIMEO, which goes for connect() too, or SO_RCVTIMEO; zero for no limit.
void limit_waiting(int socket, int option, std::chrono::milliseconds limit) {
  const timeval value{limit.count() / 1000, limit.count() % 1000 * 1000};
  ::setsockopt(socket, SOL_SOCKET, option, &value, sizeof value);
}

/// As recvmsg().
ssize_t receive_packet(int socket, msghdr& message) {
  const auto receive = [&](int flags) { return ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC | flags); };
  for (const auto end = std::chrono::steady_clock::now() + kStaysAwake; std::chrono::steady_clock::now() < end;) {
    const ssize_t count = receive(MSG_DONTWAIT);
    if (count >= 0 || (errno != EAGAIN && errno != EINTR)) return count;
    ::sched_yield();
  }
  ssize_t count = 0;
  do {
    count = receive(0);
  } while (count < 0 && errno == EINTR);
  return count;
}

/// Whoever owns the name is asked for nothing unless it is this user or root.
bool is_trusted(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && (peer.uid == 0 || peer.uid == ::geteuid());
}

/// A connection is there before the driver takes or refuses it, so only a reply tells that it is served.
Error await_service(int socket, std::chrono::milliseconds limit) {
  std::array<std::byte, sizeof(std::uint32_t)> output{};
  const control::RequestHead question{0, control::RequestKind::control, control::GetSonivoDrvGeneration, 0,
                                      output.size()};
  if (send_control(socket, question, {}) != error::kNone) return error::kBusy;
  limit_receiving(socket, limit);
  control::ReplyHead head;
  const Received received = receive_control(socket, head, output);
  limit_receiving(socket, std::chrono::milliseconds{0});
  if (received == Received::nothing) return error::kDeviceNotConnected;
  return received == Received::reply && head.id == question.id ? error::kNone : error::kBusy;
}

}  // namespace

std::string path_fault(const std::string& path) {
  if (control_address(path)) return {};
  return "the path '" + path + "' is too long for a socket: it has " + std::to_string(path.size()) +
         " bytes, and there is room for " + std::to_string(sizeof(sockaddr_un::sun_path) - 1);
}

bool may_pend(std::uint32_t code) {
  return code == control::NSV_SERVICE_EVENT_NOTIFY || code == control::NSV_OBSERVE_EVENTS ||
         code == control::NSV_WATCH_FX_PROPERTIES;
}

Descriptor connect_control(const std::string& path, Error& why, std::chrono::milliseconds limit) {
  const auto address = control_address(path);
  if (!address) {
    why = error::kFileNotFound;
    return {};
  }
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (socket.is_open()) limit_waiting(socket.number(), SO_SNDTIMEO, limit);
  if (!socket.is_open() || !connect_to(socket, *address)) {
    why = connect_error(errno);
    return {};
  }
  why = is_trusted(socket.number()) ? await_service(socket.number(), limit) : error::kAccessDenied;
  if (why != error::kNone) return {};
  return socket;
}

bool is_listened_at(const std::string& path) {
  const auto address = control_address(path);
  const Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return address && socket.is_open() && (connect_to(socket, *address) || errno == EAGAIN);
}

Error send_control(int socket, const control::RequestHead& head, std::span<const std::byte> input) {
  // The kernel only reads them.
  std::array parts{iovec{const_cast<control::RequestHead*>(&head), sizeof head},
                   iovec{const_cast<std::byte*>(input.data()), input.size()}};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  for (;;) {
    if (::sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) return error::kNone;
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS ? error::kBusy : error::kDeviceNotConnected;
  }
}

void limit_receiving(int socket, std::chrono::milliseconds limit) { limit_waiting(socket, SO_RCVTIMEO, limit); }

Received receive_control(int socket, control::ReplyHead& head, std::span<std::byte> output) {
  std::array parts{iovec{&head, sizeof head}, iovec{output.data(), output.size()}};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  const ssize_t count = receive_packet(socket, message);
  if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return Received::nothing;
  const bool whole = count >= static_cast<ssize_t>(sizeof head) && (message.msg_flags & MSG_TRUNC) == 0 &&
                     static_cast<std::size_t>(count) == sizeof head + head.transferred;
  return whole ? Received::reply : Received::end;
}

}  // namespace sonivo::linux
