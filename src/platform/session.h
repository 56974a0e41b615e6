#pragma once

#include <cstdint>

namespace sonivo {

class Session {
 public:
  virtual ~Session() = default;
  /// Session that this process belongs to; false when the machine can't tell.
  virtual bool process_session(std::uint32_t& session) = 0;
  /// Session on the physical console.
  virtual std::uint32_t console_session() = 0;
};

}  // namespace sonivo
