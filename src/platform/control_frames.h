#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "base/status.h"

/// How control requests travel to the driver: over a Unix socket of type SOCK_SEQPACKET, one frame in one packet, all
/// numbers little endian.
///
///   request: u32 id, kind, code, input bytes, output bytes; then the input
///   reply:   u32 id, error, transferred; then so many bytes of output
///
/// A client chooses the ids; the reply to a request bears its id. Requests may stay pending and be answered in any
/// order, so an id may be used again only after its reply. A request of kind `cancel` names the id of a pending one,
/// with everything else zero: that one is then answered with error::kOperationAborted. It has no reply of its own, and
/// none at all when the request was answered before; a client that cancels discards a reply that comes nevertheless,
/// and an event that was in it goes to the next request for one.
///
/// The driver closes a connection over which anything else comes, or at whose end more than 64 replies (or 512 KiB of
/// them) wait beyond what the socket holds. Of one connection 32 requests may be pending, the next is answered with
/// error::kBusy. It serves 64 connections, 16 of one process; a further one is closed at once, so that a client learns
/// from its first reply that it is served.
///
///   Example: connect(driver.sock); send {7, 1, GetFunction, 0, 4}; receive {7, 0, 4} and the four bytes of the value.
namespace sonivo::control {

/// Most bytes of input and of output of one request: a property's value of 64 KiB with its address.
inline constexpr std::size_t kMaxPayload = 0x11000;

enum class RequestKind : std::uint32_t { control = 1, cancel = 2 };

struct RequestHead {
  std::uint32_t id = 0;
  RequestKind kind = RequestKind::control;
  std::uint32_t code = 0;
  std::uint32_t input_bytes = 0;
  std::uint32_t output_bytes = 0;  ///< room for output at the client
};
static_assert(sizeof(RequestHead) == 20);

struct ReplyHead {
  std::uint32_t id = 0;
  Error error = error::kNone;
  std::uint32_t transferred = 0;
};
static_assert(sizeof(ReplyHead) == 12);

inline constexpr std::size_t kMaxRequestBytes = sizeof(RequestHead) + kMaxPayload;
inline constexpr std::size_t kMaxReplyBytes = sizeof(ReplyHead) + kMaxPayload;

/// For how long both sides look for the next frame before they sleep: who has asked often asks again at once, answers
/// come sooner still, and to wake a core that went to sleep takes longer than to answer.
inline constexpr std::chrono::microseconds kStaysAwake{50};

/// A received request; its input lies in the frame.
struct Request {
  RequestHead head;
  std::span<const std::byte> input;
};

/// A received reply; its output lies in the frame.
struct Reply {
  ReplyHead head;
  std::span<const std::byte> output;
};

/// The request that a frame holds; none when it isn't one, whole and nothing else.
std::optional<Request> read_request(std::span<const std::byte> frame);

/// The reply that a frame holds; none when it isn't one, whole and nothing else.
std::optional<Reply> read_reply(std::span<const std::byte> frame);

inline RequestHead cancel_of(std::uint32_t id) { return {id, RequestKind::cancel, 0, 0, 0}; }

}  // namespace sonivo::control
