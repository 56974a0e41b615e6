#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "platform/control_frames.h"
#include "platform/control_requests.h"

namespace sonivo::test {

using Bytes = std::vector<std::byte>;

template <typename Value>
Bytes bytes_of(const Value& value) {
  Bytes bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

inline std::uint32_t number_in(std::span<const std::byte> bytes) {
  std::uint32_t number = 0;
  if (bytes.size() < sizeof number) throw std::runtime_error("no number");
  std::memcpy(&number, bytes.data(), sizeof number);
  return number;
}

inline Bytes wire_text(std::u16string_view text) {
  control::WireText wire{};
  text.copy(wire.data(), wire.size() - 1);
  return bytes_of(wire);
}

inline Bytes frame_of(const control::RequestHead& head, const Bytes& input = {}) {
  Bytes frame = bytes_of(head);
  frame.insert(frame.end(), input.begin(), input.end());
  return frame;
}

inline control::RequestHead head_of(std::uint32_t id, std::uint32_t code, std::size_t input_bytes,
                                    std::size_t output_bytes) {
  return {id, control::RequestKind::control, code, static_cast<std::uint32_t>(input_bytes),
          static_cast<std::uint32_t>(output_bytes)};
}

struct ReceivedReply {
  control::ReplyHead head;
  Bytes output;
};

/// A client that says what it likes.
class RawClient {
 public:
  explicit RawClient(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::connect(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) socket_.close();
  }

  bool is_connected() const { return socket_.is_open(); }
  int number() const { return socket_.number(); }
  void close() { socket_.close(); }

  bool send(const Bytes& frame) {
    return ::send(number(), frame.data(), frame.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(frame.size());
  }
  bool send(std::uint32_t id, std::uint32_t code, const Bytes& input = {}, std::size_t output_bytes = 0) {
    return send(frame_of(head_of(id, code, input.size(), output_bytes), input));
  }
  bool ask_for_event(std::uint32_t id, std::uint32_t code = control::NSV_SERVICE_EVENT_NOTIFY) {
    return send(id, code, {}, sizeof(control::EventRecord));
  }

  /// None when the connection ended or nothing came within the limit.
  std::optional<ReceivedReply> receive(int limit_ms = 10'000) {
    Bytes buffer(control::kMaxReplyBytes);
    if (!comes(limit_ms)) return std::nullopt;
    const ssize_t count = ::recv(number(), buffer.data(), buffer.size(), 0);
    const auto reply =
        control::read_reply(std::span<const std::byte>(buffer).first(count > 0 ? static_cast<std::size_t>(count) : 0));
    if (!reply) return std::nullopt;
    return ReceivedReply{reply->head, {reply->output.begin(), reply->output.end()}};
  }

  std::optional<ReceivedReply> ask(std::uint32_t code, const Bytes& input = {}, std::size_t output_bytes = 0) {
    if (!send(++latest_id_, code, input, output_bytes)) return std::nullopt;
    return receive();
  }
  std::uint32_t get(std::uint32_t code) { return number_in(ask(code, {}, 4).value().output); }
  Error set(std::uint32_t code, std::uint32_t value) { return ask(code, bytes_of(value)).value().head.error; }

  /// Whether the other end closes the connection; what came before is read away.
  bool ends(int limit_ms = 10'000) {
    Bytes buffer(control::kMaxReplyBytes);
    while (comes(limit_ms)) {
      if (::recv(number(), buffer.data(), buffer.size(), 0) <= 0) return true;
    }
    return false;
  }

 private:
  bool comes(int limit_ms) const {
    pollfd polled{number(), POLLIN, 0};
    return ::poll(&polled, 1, limit_ms) == 1;
  }

  Descriptor socket_;
  std::uint32_t latest_id_ = 1000;
};

}  // namespace sonivo::test
