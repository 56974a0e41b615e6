#include "platform/control_frames.h"

#include <bit>
#include <cstring>

namespace sonivo::control {
namespace {

static_assert(std::endian::native == std::endian::little);

/// Whether a whole request may have this head.
bool is_sound(const RequestHead& head) {
  switch (head.kind) {
    case RequestKind::control:
      return head.input_bytes <= kMaxPayload && head.output_bytes <= kMaxPayload;
    case RequestKind::cancel:
      return head.code == 0 && head.input_bytes == 0 && head.output_bytes == 0;
  }
  return false;
}

}  // namespace

std::optional<Request> read_request(std::span<const std::byte> frame) {
  RequestHead head;
  if (frame.size() < sizeof head) return std::nullopt;
  std::memcpy(&head, frame.data(), sizeof head);
  const auto input = frame.subspan(sizeof head);
  if (!is_sound(head) || input.size() != head.input_bytes) return std::nullopt;
  return Request{head, input};
}

std::optional<Reply> read_reply(std::span<const std::byte> frame) {
  ReplyHead head;
  if (frame.size() < sizeof head) return std::nullopt;
  std::memcpy(&head, frame.data(), sizeof head);
  const auto output = frame.subspan(sizeof head);
  if (output.size() != head.transferred || output.size() > kMaxPayload) return std::nullopt;
  return Reply{head, output};
}

}  // namespace sonivo::control
