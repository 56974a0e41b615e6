#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace sonivo::pipewire {

/// Keeps the way of one direction's frames, from the node that takes them in over the client to the node that gives
/// them out, as long as it was before something got lost on it.
///
/// Frames that are lost in front of the client make the way shorter, silence put in behind it makes it longer. Both are
/// counted, and while the client wants nothing else the virtual stream slips by single frames until they are made up
/// for. A slip that the client wants moves what is kept; where it wants the opposite, its ring is at its limit, and
/// the way stays as it is. But the client goes by its ring's minimum of the latest second or two, in which the loss
/// itself may have emptied it: what it wants in the three seconds after one is done, and made up for later. A stream
/// that begins, and turns of another length, bring a way of their own: it is let find its length for two seconds.
class SteadyDelay {
 public:
  /// Client: a stream of this rate begins.
  void begin(std::uint32_t rate_hz) {
    rate_hz_ = rate_hz;
    settle();
    is_kept_ = true;
  }
  /// Client: nothing is kept any more.
  void end() { is_kept_ = false; }

  /// Any thread: the way has become longer by so many frames, or shorter where they are negative.
  void add(std::int64_t frames) {
    if (frames == 0) return;
    move(frames);
    aftermath_ = kAftermathSeconds * rate_hz_;
  }

  /// Data thread: a turn of so many frames.
  void turn(std::uint32_t frames) {
    const std::uint32_t before = std::exchange(latest_, frames);
    const std::uint32_t change = frames > before ? frames - before : before - frames;
    if (change > before / kConverted) settle();
  }
  /// Pacer: so many frames have passed.
  void pass(std::uint32_t frames) {
    count_down(aftermath_, frames);
    if (count_down(settling_, frames)) longer_.store(0, std::memory_order_relaxed);
  }
  /// Which way the virtual stream is to slip: 1 takes in more than it gives out, which makes the way shorter, -1 less.
  std::int32_t slip(std::int32_t wanted) {
    const std::int64_t longer = longer_.load(std::memory_order_relaxed);
    const std::int32_t back = longer > 0 ? 1 : longer < 0 ? -1 : 0;
    if (wanted == 0) return is_kept_ && settling_.load(std::memory_order_relaxed) == 0 ? back : 0;
    if (back == -wanted && aftermath_ == 0) move(-longer);
    return wanted;
  }
  /// It has slipped by a frame.
  void slipped(std::int32_t direction) {
    const std::int64_t longer = longer_.load(std::memory_order_relaxed);
    if (direction * longer > 0 || (is_kept_ && aftermath_ != 0)) move(-direction);
  }

 private:
  static constexpr std::uint32_t kConverted = 8;  ///< turns differ by rate conversion alone, by less than this part

  static constexpr std::uint32_t kSettlingSeconds = 2;
  static constexpr std::uint32_t kAftermathSeconds = 3;

  void settle() { settling_ = kSettlingSeconds * rate_hz_; }
  void move(std::int64_t frames) { longer_.fetch_add(frames, std::memory_order_relaxed); }
  /// Whether there was something left.
  static bool count_down(std::atomic<std::uint32_t>& left, std::uint32_t frames) {
    const std::uint32_t before = left.load(std::memory_order_relaxed);
    if (before != 0) left.store(before > frames ? before - frames : 0, std::memory_order_relaxed);
    return before != 0;
  }

  std::atomic<bool> is_kept_ = false;
  std::atomic<std::uint32_t> rate_hz_ = 0;
  std::atomic<std::uint32_t> settling_ = 0;   ///< frames
  std::atomic<std::uint32_t> aftermath_ = 0;  ///< frames
  std::atomic<std::int64_t> longer_ = 0;
  std::uint32_t latest_ = 0;  ///< length of a turn, of the data thread
};

}  // namespace sonivo::pipewire
