#include "enhance/fifo_output.h"

#include <algorithm>
#include <mutex>

#include "enhance/log.h"

namespace sonivo {
namespace {

constexpr float kFromSixteenBits = 3.0517578e-5f;  // 1 / 32768

}  // namespace

FifoOutput::~FifoOutput() {
  log_text(LogLevel::info3, "FifoOutput::~FifoOutput(): [%p]\n", static_cast<void*>(this));
  log_text(LogLevel::info3, "FifoOutput:: free(%p)\n", static_cast<const void*>(ring_.storage()));
}

bool FifoOutput::BuffInit(std::uint32_t size, std::uint32_t exec_leng, int rate) {
  log_text(LogLevel::info3, "FifoOutput::BuffInit: [%p], size=%u, exec_leng=%u, rate=%d\n", static_cast<void*>(this),
           size, exec_leng, rate);
  bool allocated = false;
  {
    const std::lock_guard lock(mutex_);
    const std::uint32_t total = size + exec_leng;
    const bool is_countable = total >= size;
    buff_size_ = total;
    ++clears_;
    allocated = is_countable && ring_.allocate(total);
    if (allocated && is_device_rate(rate)) {
      data_leng_ = total;
      dns_out_fsl_ = device_frame(rate);
    } else {
      ring_.release();
      data_leng_ = 0;
    }
  }
  if (!allocated) {
    log_text(LogLevel::error, "FifoOutput::BuffInit: ring_buff=NULL, return (false)\n");
    return false;
  }
  if (!is_device_rate(rate)) {
    log_text(LogLevel::error, "FifoOutput::BuffInit: rate=%d, return (false)\n", rate);
    return false;
  }
  log_text(LogLevel::info3, "FifoOutput::BuffInit: [%p], return (true)\n", static_cast<void*>(this));
  return true;
}

void FifoOutput::BuffClear() {
  log_text(LogLevel::info3, "FifoOutput::BuffClear: [%p]\n", static_cast<void*>(this));
  {
    const std::lock_guard lock(mutex_);
    ring_.clear();
    data_leng_ = ring_.storage() != nullptr ? buff_size_ : 0;
    ++clears_;
  }
  log_text(LogLevel::info3, "FifoOutput::BuffClear: [%p], return\n", static_cast<void*>(this));
}

std::uint32_t FifoOutput::PushData(const short* data, std::uint32_t size) {
  log_text(LogLevel::info3, "FifoOutput::PushData: [%p], size=%u\n", static_cast<void*>(this), size);
  const std::uint32_t pushed = push(data, size) ? size : 0;
  log_text(LogLevel::info3, "FifoOutput::PushData: [%p], return (size=%u)\n", static_cast<void*>(this), pushed);
  return pushed;
}

bool FifoOutput::push(const short* data, std::uint32_t size) {
  std::uint32_t out_fsl = 0;
  std::uint64_t clears = 0;
  {
    const std::lock_guard lock(mutex_);
    const std::uint64_t room_needed = std::uint64_t{size} * dns_out_fsl_ / kModelFrame;
    if (ring_.storage() == nullptr || room_needed + data_leng_ > buff_size_) return false;
    out_fsl = dns_out_fsl_;
    clears = clears_;
  }
  if (clears_heard_ != clears) {
    to_48000_.reset();
    to_44100_.reset();
    clears_heard_ = clears;
  }
  RateConverter& converter = out_fsl == to_48000_.out_frame() ? to_48000_ : to_44100_;
  const std::uint32_t frames = size / kModelFrame;
  for (std::uint32_t frame = 1; frame <= frames; ++frame, data += kModelFrame) {
    std::copy_n(data, kModelFrame, dns_in_.begin());
    converter.process(dns_in_.data(), dns_out_.data());
    for (float& sample : dns_out_) sample *= kFromSixteenBits;

    // No pop takes the room that was there, and what stands behind data_leng_ is nobody else's: the samples count once
    // all are written.
    const std::lock_guard lock(mutex_);
    if (clears_ != clears) return true;
    ring_.write(dns_out_.data(), out_fsl);
    if (frame == frames) data_leng_ += frames * out_fsl;
  }
  return true;
}

std::uint32_t FifoOutput::PopData(float* data, std::uint32_t size) {
  log_text(LogLevel::info3, "FifoOutput::PopData: [%p], size=%u\n", static_cast<void*>(this), size);
  std::uint32_t popped = 0;
  {
    const std::lock_guard lock(mutex_);
    if (data_leng_ >= size) {
      ring_.read(data, size);
      data_leng_ -= size;
      popped = size;
    }
  }
  log_text(LogLevel::info3, "FifoOutput::PopData: [%p], return (size=%u)\n", static_cast<void*>(this), popped);
  return popped;
}

void FifoOutput::ChangeRate(int rate) {
  log_text(LogLevel::info3, "FifoOutput::ChangeRate: [%p], rate=%d\n", static_cast<void*>(this), rate);
  {
    const std::lock_guard lock(mutex_);
    dns_out_fsl_ = device_frame(rate);
  }
  log_text(LogLevel::info3, "FifoOutput::ChangeRate: [%p], return\n", static_cast<void*>(this));
}

}  // namespace sonivo
