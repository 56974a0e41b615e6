#pragma once

#include <mutex>
#include <utility>

namespace sonivo {

/// An on/off setting that control threads write while audio runs and the stream takes up at the head of a block.
class WantedState {
 public:
  explicit WantedState(bool state) : m_state(state) {}

  /// Stores a new state and raises the changed flag, if it differs.
  void Update(bool state) {
    const std::lock_guard lock(m_cs);
    if (state == m_state) return;
    m_state = state;
    m_changed = true;
  }
  /// Stores without the flag: for start-up, before a stream could take it up.
  void Change(bool state) {
    const std::lock_guard lock(m_cs);
    m_state = state;
  }
  bool State() const {
    const std::lock_guard lock(m_cs);
    return m_state;
  }
  struct Taken {
    bool state;
    bool changed;  ///< since the last call
  };
  /// The state of now, clearing the flag.
  Taken Take() {
    const std::lock_guard lock(m_cs);
    return {m_state, std::exchange(m_changed, false)};
  }

 private:
  mutable std::mutex m_cs;
  bool m_state;
  bool m_changed = false;
};

}  // namespace sonivo
