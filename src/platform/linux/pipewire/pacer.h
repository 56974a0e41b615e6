#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/descriptor.h"
#include "base/thread.h"
#include "platform/endpoints.h"
#include "platform/linux/pipewire/cycle.h"
#include "platform/linux/pipewire/pi_mutex.h"
#include "platform/linux/pipewire/steady_delay.h"

namespace sonivo::pipewire {

/// The thread that does what the data thread leaves: whatever the length of the graph's turns, clients are served
/// evenly, at least every 10 ms. What it comes much too late for is skipped, by all streams alike, so that they keep
/// their distance from each other.
class Pacer {
 public:
  /// The stream that gives a client frames comes before the one that takes them from it in the same turn, so that the
  /// client's ring is always as empty as it seems.
  enum class Order { gives, takes };

  /// A stream whose frames are handed on in pieces, apart from the data thread.
  class Stream {
   public:
    Stream(Pacer& pacer, std::uint32_t rate_hz, Order order)
        : pacer_(pacer), rate_hz_(rate_hz), order_(order), cutter_(rate_hz / 100) {}

   protected:
    ~Stream() = default;
    /// Data thread: the graph has turned by this many frames, and will again when they have passed.
    void note_turn(std::uint32_t frames);
    /// On the pacer's thread: this many further frames have passed, at most 10 ms unless the thread is late.
    virtual void release(std::uint32_t frames) = 0;
    /// On the pacer's thread: this many further frames have passed, but too long ago.
    virtual void skip(std::uint32_t frames) = 0;

   private:
    friend class Pacer;
    /// When the oldest frames that aren't handed on yet were due.
    std::optional<std::int64_t> oldest_due_ns() const;
    void hand_on(std::uint32_t frames, bool too_late);

    Pacer& pacer_;
    const std::uint32_t rate_hz_;
    const Order order_;
    CycleQueue cycles_;
    CycleCutter cutter_;
  };

  /// Throws std::runtime_error when the machine has no thread or event left.
  explicit Pacer(Threads& threads);
  ~Pacer();
  Pacer(const Pacer&) = delete;
  Pacer& operator=(const Pacer&) = delete;

  void add(Stream& stream);
  /// Afterwards nothing of it is called.
  void remove(Stream& stream);
  /// The way of that direction's frames, which its two streams keep together.
  SteadyDelay& way(DataFlow flow) { return ways_[flow == DataFlow::capture ? 0 : 1]; }

 private:
  void wake();
  void run();
  bool is_too_late(std::int64_t now_ns) const;
  /// When to look again.
  std::optional<std::int64_t> serve_all(std::int64_t now_ns);

  Threads& threads_;
  Descriptor woken_;
  std::atomic<bool> stop_ = false;
  std::array<SteadyDelay, 2> ways_;
  PiMutex mutex_;
  std::vector<Stream*> streams_;
  std::unique_ptr<Thread> thread_;
};

}  // namespace sonivo::pipewire
