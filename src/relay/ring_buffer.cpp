#include "relay/ring_buffer.h"

#include <algorithm>
#include <cassert>

namespace sonivo {
namespace {

constexpr std::uint64_t kPublishIntervalMs = 1000;

}  // namespace

void RingBuffer::Allocate(std::size_t bytes) {
  const std::lock_guard lock(m_lock);
  m_startTick = m_clock.tick_ms();
  if (m_capacity == 0) m_lastTick = m_startTick;
  m_valid = 0;
  m_readPos = 0;
  m_writePos = 0;
  m_data = std::make_unique<std::byte[]>(bytes);
  m_capacity = bytes;
}

std::size_t RingBuffer::Write(const std::byte* src, std::size_t len) {
  const std::lock_guard lock(m_lock);
  assert(m_capacity != 0);
  len = std::min<std::size_t>(len, m_capacity - m_valid);
  const std::size_t first = std::min<std::size_t>(len, m_capacity - m_writePos);
  std::copy_n(src, first, m_data.get() + m_writePos);
  if (first < len) {
    std::copy_n(src + first, len - first, m_data.get());
    m_writePos = static_cast<std::uint32_t>(len - first);
  } else {
    m_writePos = static_cast<std::uint32_t>((m_writePos + first) % m_capacity);
  }
  m_valid += static_cast<std::uint32_t>(len);
  return len;
}

std::size_t RingBuffer::WriteSilence(std::size_t len) {
  const std::lock_guard lock(m_lock);
  assert(m_capacity != 0);
  len = std::min<std::size_t>(len, m_capacity - m_valid);
  const std::size_t first = std::min<std::size_t>(len, m_capacity - m_writePos);
  std::fill_n(m_data.get() + m_writePos, first, std::byte{0});
  if (first < len) {
    std::fill_n(m_data.get(), len - first, std::byte{0});
    m_writePos = static_cast<std::uint32_t>(first);
  } else {
    m_writePos = static_cast<std::uint32_t>((m_writePos + first) % m_capacity);
  }
  m_valid += static_cast<std::uint32_t>(len);
  return len;
}

std::size_t RingBuffer::Read(std::byte* dst, std::size_t len) {
  const std::lock_guard lock(m_lock);
  assert(m_capacity != 0);
  len = std::min<std::size_t>(len, m_valid);
  const std::size_t first = std::min<std::size_t>(len, m_capacity - m_readPos);
  std::copy_n(m_data.get() + m_readPos, first, dst);
  if (first < len) {
    std::copy_n(m_data.get(), len - first, dst + first);
    m_readPos = static_cast<std::uint32_t>(len - first);
  } else {
    m_readPos = static_cast<std::uint32_t>((m_readPos + first) % m_capacity);
  }
  m_valid -= static_cast<std::uint32_t>(len);
  PublishMinimum();
  return len;
}

// The minimum and not the mean: only the danger of an underrun matters to the feedback.
void RingBuffer::PublishMinimum() {
  const std::uint64_t now = m_clock.tick_ms();
  if (m_minRunning >= m_valid) m_minRunning = m_valid;
  if (now - m_lastTick >= kPublishIntervalMs) {
    m_minPublished = m_minRunning;
    m_minRunning = kNoMinimum;
    m_lastTick = now;
  }
}

std::size_t RingBuffer::ValidSize() const {
  const std::lock_guard lock(m_lock);
  return m_valid;
}

std::size_t RingBuffer::FreeSize() const {
  const std::lock_guard lock(m_lock);
  return m_capacity - m_valid;
}

std::uint32_t RingBuffer::MinValidSize() const {
  const std::lock_guard lock(m_lock);
  return m_minPublished;
}

}  // namespace sonivo
