#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace sonivo {

enum class Priority { below_normal, normal, highest, time_critical };

/// Has the calling thread scheduled in real time, at a priority from 1 (lowest) on; whether that is granted.
using RealTimeGrant = std::function<bool(int priority)>;

/// A running thread. Destroying the object without a join abandons the thread: it runs on beside its successor.
class Thread {
 public:
  virtual ~Thread() = default;
  virtual void join() = 0;
  /// False when the thread still runs after limit_ms.
  virtual bool join_for(std::uint32_t limit_ms) = 0;
};

class Threads {
 public:
  virtual ~Threads() = default;
  /// Null when the machine can't start one. An exception that leaves `body` ends the process.
  virtual std::unique_ptr<Thread> start(const char* name, std::function<void()> body) = 0;
  virtual void set_current_priority(Priority priority) = 0;
  /// Puts the calling thread under the machine's multimedia scheduling; 0 when that is refused.
  virtual std::uint64_t enter_audio_class() = 0;
  virtual void leave_audio_class(std::uint64_t token) = 0;
};

}  // namespace sonivo
