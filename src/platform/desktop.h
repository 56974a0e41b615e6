#pragma once

#include <cstdint>

namespace sonivo {

enum class WindowHandle : std::uint64_t { none = 0 };

class Desktop {
 public:
  virtual ~Desktop() = default;
  /// Queues a message to a window and returns at once; any thread.
  virtual void post_message(WindowHandle window, std::uint32_t message, std::uint64_t wParam) = 0;
};

}  // namespace sonivo
