#pragma once

#include <bit>
#include <cstdint>
#include <functional>

#include "platform/geometry.h"

namespace sonivo {

enum class WindowHandle : std::uint64_t { none = 0 };

/// A thread of this program or of another one.
enum class ThreadId : std::uint64_t { none = 0 };

struct Message {
  WindowHandle window = WindowHandle::none;  ///< none: for the thread itself
  std::uint32_t message = 0;
  std::uint64_t wParam = 0;
  std::int64_t lParam = 0;  ///< a number, a packed point, or the address of a record

  friend bool operator==(const Message&, const Message&) = default;
};

/// Answers the messages of one window, on the thread that created it.
using WindowProcedure = std::function<std::int64_t(const Message& message)>;

/// lParam of a message that carries a record. The record lives until the procedure returns.
template <class Record>
std::int64_t record_parameter(const Record& record) {
  return static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(&record));
}

/// The record that a message carries, null when it carries none. The type goes with the message number.
template <class Record>
const Record* record_of(const Message& message) {
  return std::bit_cast<const Record*>(static_cast<std::intptr_t>(message.lParam));
}

/// lParam of a mouse message: x in the low 16 bits, y in the next 16, both signed and relative to the window.
constexpr std::int64_t point_parameter(Point point) {
  const auto half = [](std::int32_t value) { return static_cast<std::uint32_t>(value) & 0xFFFFu; };
  return half(point.y) << 16 | half(point.x);
}

constexpr Point point_of(const Message& message) {
  const auto bits = static_cast<std::uint32_t>(message.lParam);
  return {static_cast<std::int16_t>(bits & 0xFFFFu), static_cast<std::int16_t>(bits >> 16)};
}

}  // namespace sonivo
