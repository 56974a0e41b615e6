#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>

namespace sonivo {

/// Tells the log of the program what keeps the service from its driver: one line when it begins and one when it is
/// over, however often it is tried meanwhile. Any thread but those of the audio.
class DriverNotes {
 public:
  using Write = std::function<void(const std::string& line)>;

  /// Before there is anybody to call Note(); without it nothing is written.
  void SetWriter(Write write) { m_write = std::move(write); }

  /// What is in the way at present, in words for people; empty: nothing.
  void Note(const std::string& obstacle) {
    const std::lock_guard lock(m_csTold);
    if (obstacle == m_told) return;
    m_told = obstacle;
    if (m_write) m_write(obstacle.empty() ? "the driver is connected" : obstacle);
  }

 private:
  Write m_write;
  std::mutex m_csTold;
  std::string m_told;
};

}  // namespace sonivo
