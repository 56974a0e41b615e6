#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "base/clock.h"

namespace sonivo {

/// Byte FIFO with a lock and a statistic of how low it ran, which the clock feedback steers by.
///
/// Any thread may ask for sizes; one thread moves data. Allocate before the first transfer, which like all later ones
/// takes no memory.
class RingBuffer {
 public:
  explicit RingBuffer(Clock& clock) : m_clock(clock) {}
  RingBuffer(const RingBuffer&) = delete;
  RingBuffer& operator=(const RingBuffer&) = delete;

  /// Empties the ring and gives it new storage of `bytes`. The statistic goes on.
  void Allocate(std::size_t bytes);

  /// Stores what fits and answers how many bytes that was; the rest is dropped.
  std::size_t Write(const std::byte* src, std::size_t len);

  /// Stores zeros like Write, except that a write across the end of the storage leaves the write position at the length
  /// of the part before the end. Where the next byte goes then disagrees with the stored amount.
  std::size_t WriteSilence(std::size_t len);

  /// Takes out what is there, at most `len` bytes, and answers how many that was.
  std::size_t Read(std::byte* dst, std::size_t len);

  std::size_t ValidSize() const;
  std::size_t FreeSize() const;

  /// Lowest number of bytes that a read left behind within the last full second of reading; kNoMinimum before that.
  std::uint32_t MinValidSize() const;

  static constexpr std::uint32_t kNoMinimum = 0xFFFFFFFF;

 private:
  void PublishMinimum();

  Clock& m_clock;
  std::unique_ptr<std::byte[]> m_data;
  std::uint64_t m_capacity = 0;
  std::uint32_t m_readPos = 0;
  std::uint32_t m_writePos = 0;
  std::uint32_t m_valid = 0;
  mutable std::mutex m_lock;
  std::uint64_t m_startTick = 0;
  std::uint64_t m_lastTick = 0;  // of the last publication; before the first one, of the first allocation
  std::uint32_t m_minRunning = kNoMinimum;
  std::uint32_t m_minPublished = kNoMinimum;
};

}  // namespace sonivo
