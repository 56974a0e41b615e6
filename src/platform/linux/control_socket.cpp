#include "platform/linux/control_socket.h"

#include <poll.h>
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

namespace sonivo::linux {
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

/// Of connect() and send(), zero for none.
void limit_sending(int socket, std::chrono::milliseconds limit) {
  const timeval value{limit.count() / 1000, limit.count() % 1000 * 1000};
  ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &value, sizeof value);
}

/// Whoever owns the name is asked for nothing unless it is this user or root.
bool is_trusted(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && (peer.uid == 0 || peer.uid == ::geteuid());
}

bool is_readable_by(int socket, std::chrono::steady_clock::time_point end) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    pollfd polled{socket, POLLIN, 0};
    const int count = ::poll(&polled, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (count >= 0 || errno != EINTR) return count == 1;
  }
}

/// A connection is there before the driver takes or refuses it, so only a reply tells that it is served.
Error await_service(int socket, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  std::array<std::byte, sizeof(std::uint32_t)> output{};
  const control::RequestHead question{0, control::RequestKind::control, control::GetSonivoDrvGeneration, 0,
                                      output.size()};
  if (send_control(socket, question, {}, false) != error::kNone) return error::kBusy;
  if (!is_readable_by(socket, end)) return error::kDeviceNotConnected;
  control::ReplyHead head;
  return receive_control(socket, head, output) && head.id == question.id ? error::kNone : error::kBusy;
}

}  // namespace

Descriptor connect_control(const std::string& path, Error& why, std::chrono::milliseconds limit) {
  const auto address = control_address(path);
  if (!address) {
    why = error::kFileNotFound;
    return {};
  }
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (socket.is_open()) limit_sending(socket.number(), limit);
  if (!socket.is_open() || !connect_to(socket, *address)) {
    why = connect_error(errno);
    return {};
  }
  limit_sending(socket.number(), std::chrono::milliseconds{0});
  why = is_trusted(socket.number()) ? await_service(socket.number(), limit) : error::kAccessDenied;
  if (why != error::kNone) return {};
  return socket;
}

bool is_listened_at(const std::string& path) {
  const auto address = control_address(path);
  const Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return address && socket.is_open() && (connect_to(socket, *address) || errno == EAGAIN);
}

Error send_control(int socket, const control::RequestHead& head, std::span<const std::byte> input, bool wait) {
  // The kernel only reads them.
  std::array parts{iovec{const_cast<control::RequestHead*>(&head), sizeof head},
                   iovec{const_cast<std::byte*>(input.data()), input.size()}};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  for (;;) {
    if (::sendmsg(socket, &message, MSG_NOSIGNAL | (wait ? 0 : MSG_DONTWAIT)) >= 0) return error::kNone;
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS ? error::kBusy : error::kDeviceNotConnected;
  }
}

bool receive_control(int socket, control::ReplyHead& head, std::span<std::byte> output) {
  std::array parts{iovec{&head, sizeof head}, iovec{output.data(), output.size()}};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  ssize_t count = 0;
  do {
    count = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
  } while (count < 0 && errno == EINTR);
  return count >= static_cast<ssize_t>(sizeof head) && (message.msg_flags & MSG_TRUNC) == 0 &&
         static_cast<std::size_t>(count) == sizeof head + head.transferred;
}

}  // namespace sonivo::linux
