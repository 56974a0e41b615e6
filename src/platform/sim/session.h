#pragma once

#include <atomic>
#include <cstdint>

#include "platform/session.h"
#include "platform/sim/script.h"

namespace sonivo::sim {

/// One signed-in session, on the console unless set otherwise.
class SimSession final : public Session {
 public:
  explicit SimSession(Script& script) : script_(script) {}

  bool process_session(std::uint32_t& session) override;
  std::uint32_t console_session() override { return console_; }

  void set_process_session(std::uint32_t session) { process_ = session; }
  void set_console_session(std::uint32_t session) { console_ = session; }

 private:
  Script& script_;
  std::atomic<std::uint32_t> process_ = 1;
  std::atomic<std::uint32_t> console_ = 1;
};

}  // namespace sonivo::sim
