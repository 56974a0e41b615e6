#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace sonivo::pipewire {

/// FIFO of frames between one writing and one reading thread, neither of which ever waits. Positions count frames since
/// the beginning.
class FrameFifo {
 public:
  FrameFifo(std::size_t frame_bytes, std::size_t capacity)
      : frame_bytes_(frame_bytes), capacity_(capacity), memory_(frame_bytes * capacity) {}

  /// Writer: appends what there is room for and returns how many frames that was.
  std::size_t write(const std::byte* frames, std::size_t count) {
    const std::uint64_t at = written_.load(std::memory_order_relaxed);
    count = std::min(count, capacity_ - static_cast<std::size_t>(at - taken_.load(std::memory_order_acquire)));
    const std::size_t first = std::min(count, capacity_ - place(at));
    std::memcpy(memory_.data() + place(at) * frame_bytes_, frames, first * frame_bytes_);
    std::memcpy(memory_.data(), frames + first * frame_bytes_, (count - first) * frame_bytes_);
    written_.store(at + count, std::memory_order_release);
    return count;
  }

  /// Reader: takes what is there, at most `count`, and returns how many frames that was.
  std::size_t read(std::byte* frames, std::size_t count) {
    const std::uint64_t at = taken_.load(std::memory_order_relaxed);
    count = std::min(count, available());
    const std::size_t first = std::min(count, capacity_ - place(at));
    std::memcpy(frames, memory_.data() + place(at) * frame_bytes_, first * frame_bytes_);
    std::memcpy(frames + first * frame_bytes_, memory_.data(), (count - first) * frame_bytes_);
    taken_.store(at + count, std::memory_order_release);
    return count;
  }

  /// Reader: the oldest frames, as far as they lie together in memory.
  std::span<const std::byte> front() const {
    const std::size_t at = place(taken());
    return {memory_.data() + at * frame_bytes_, std::min(available(), capacity_ - at) * frame_bytes_};
  }

  /// Reader: drops what is there, at most `count` frames, and returns how many that was.
  std::size_t drop(std::size_t count) {
    count = std::min(count, available());
    taken_.fetch_add(count, std::memory_order_release);
    return count;
  }

  /// Reader: frames that can be read. For the writer it is what it was at most.
  std::size_t available() const { return static_cast<std::size_t>(written() - taken()); }
  std::uint64_t written() const { return written_.load(std::memory_order_acquire); }
  std::uint64_t taken() const { return taken_.load(std::memory_order_acquire); }
  std::size_t capacity() const { return capacity_; }
  std::size_t frame_bytes() const { return frame_bytes_; }

 private:
  std::size_t place(std::uint64_t position) const { return static_cast<std::size_t>(position % capacity_); }

  const std::size_t frame_bytes_;
  const std::size_t capacity_;
  std::vector<std::byte> memory_;
  std::atomic<std::uint64_t> written_ = 0;
  std::atomic<std::uint64_t> taken_ = 0;
};

}  // namespace sonivo::pipewire
