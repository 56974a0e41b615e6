#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "base/status.h"

namespace sonivo {

enum class Reset { automatic, manual };

/// A flag to wait for. An automatic one is cleared by the wait that it ends. Any thread may set or reset it. Whether a
/// set() that a reset() follows ends the waits of that moment is open; to be sure of them, leave it set.
class Event {
 public:
  /// No thread waits for it and no request carries it any more.
  virtual ~Event() = default;
  virtual void set() = 0;
  virtual void reset() = 0;
};

/// How a wait ended: index of the event, or none with error 0 (time ran out) or an error number (it failed).
struct WaitResult {
  std::optional<std::size_t> index;
  Error error = error::kNone;
};

class Events {
 public:
  virtual ~Events() = default;
  /// A new unsignalled event, or null when the machine has none left.
  virtual std::unique_ptr<Event> create(Reset reset) = 0;
  /// Waits until one of the events is signalled and answers the lowest signalled index; without a limit for ever.
  /// An absent (null) event among them fails the wait at once with error::kInvalidHandle, whatever else is signalled.
  virtual WaitResult wait_any(std::span<Event* const> events, std::optional<std::uint32_t> limit_ms = std::nullopt) = 0;
};

}  // namespace sonivo
