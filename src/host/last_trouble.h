#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

namespace sonivo {

/// The latest thing that went wrong, in words for people; it stays after it is over. Any thread but those of the audio.
class LastTrouble {
 public:
  struct Entry {
    std::string text;  ///< empty: there was none
    std::uint64_t tick_ms = 0;
  };

  void Note(std::string text, std::uint64_t now_ms) {
    const std::lock_guard lock(m_csLatest);
    m_latest = {std::move(text), now_ms};
  }
  Entry Latest() const {
    const std::lock_guard lock(m_csLatest);
    return m_latest;
  }

 private:
  mutable std::mutex m_csLatest;
  Entry m_latest;
};

}  // namespace sonivo
