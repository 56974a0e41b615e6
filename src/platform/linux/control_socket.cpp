#include "platform/linux/control_socket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace sonivo::linux {
namespace {

constexpr timeval kConnectLimit{2, 0};

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

}  // namespace

Descriptor connect_control(const std::string& path, Error& why) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    why = error::kFileNotFound;
    return {};
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  // Of a driver that has stopped, the queue of those who want to connect may be full.
  if (!socket.is_open() ||
      ::setsockopt(socket.number(), SOL_SOCKET, SO_SNDTIMEO, &kConnectLimit, sizeof kConnectLimit) != 0 ||
      ::connect(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    why = connect_error(errno);
    return {};
  }
  constexpr timeval kNoLimit{};
  ::setsockopt(socket.number(), SOL_SOCKET, SO_SNDTIMEO, &kNoLimit, sizeof kNoLimit);
  why = error::kNone;
  return socket;
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
