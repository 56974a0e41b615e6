#include "enhance/fifo_input.h"

#include <algorithm>
#include <cassert>
#include <mutex>

#include "enhance/device_rate.h"
#include "enhance/log.h"
#include "enhance/pcm16.h"
#include "enhance/timer_period.h"

namespace sonivo {

FifoInput::~FifoInput() {
  log_text(LogLevel::info3, "FifoInput::~FifoInput(): [%p]\n", static_cast<void*>(this));
  log_text(LogLevel::info3, "FifoInput:: free(%p)\n", static_cast<const void*>(ring_.storage()));
}

bool FifoInput::BuffInit(std::uint32_t size, int rate, std::uint32_t chunk) {
  log_text(LogLevel::info3, "FifoInput::BuffInit: [%p], size=%u, rate=%d, chunk=%u\n", static_cast<void*>(this), size,
           rate, chunk);
  bool allocated = false;
  {
    const std::lock_guard lock(mutex_);
    run_ = false;
    buff_size_ = size;
    data_leng_ = 0;
    wanted_ = 0;
    ++clears_;
    allocated = ring_.allocate(size);
    if (allocated && is_device_rate(rate)) {
      dns_in_fsl_ = device_frame(rate);
      chunk_samples_ = chunk * kModelFrame;
      data_per_chunk_ = 0;
    } else {
      ring_.release();
    }
  }
  wake_reader();  // it may wait for another number of samples now
  if (!allocated) {
    log_text(LogLevel::error, "FifoInput::BuffInit: ring_buff=NULL, return (false)\n");
    return false;
  }
  if (!is_device_rate(rate)) {
    log_text(LogLevel::error, "FifoInput::BuffInit: rate=%d, return (false)\n", rate);
    return false;
  }
  log_text(LogLevel::info3, "FifoInput::BuffInit: [%p], return (true)\n", static_cast<void*>(this));
  return true;
}

void FifoInput::BuffClear() {
  log_text(LogLevel::info3, "FifoInput::BuffClear: [%p]\n", static_cast<void*>(this));
  {
    const std::lock_guard lock(mutex_);
    ring_.clear();
    data_leng_ = 0;
    ++clears_;
  }
  log_text(LogLevel::info3, "FifoInput::BuffClear: [%p], return\n", static_cast<void*>(this));
}

void FifoInput::Start() {
  log_text(LogLevel::info3, "FifoInput::Start: [%p]\n", static_cast<void*>(this));
  {
    const std::lock_guard lock(mutex_);
    data_end_ = false;
    run_ = false;
  }
  log_text(LogLevel::info3, "FifoInput::Start: [%p], return\n", static_cast<void*>(this));
}

void FifoInput::End() {
  log_text(LogLevel::info3, "FifoInput::End: [%p]\n", static_cast<void*>(this));
  {
    const std::lock_guard lock(mutex_);
    data_end_ = true;
    wanted_ = 0;
  }
  wake_reader();
  log_text(LogLevel::info3, "FifoInput::End: [%p], return\n", static_cast<void*>(this));
}

std::uint32_t FifoInput::PushData(const float* data, std::uint32_t size) {
  log_text(LogLevel::info3, "FifoInput::PushData: [%p], size=%u\n", static_cast<void*>(this), size);
  std::uint32_t pushed = 0;
  bool complete = false;  // what the sleeping reader waits for
  {
    const std::lock_guard lock(mutex_);
    if (ring_.storage() != nullptr && std::uint64_t{data_leng_} + size <= buff_size_) {
      ring_.write(data, size);
      data_leng_ += size;
      pushed = size;
      complete = wanted_ != 0 && data_leng_ >= wanted_;
      if (complete) wanted_ = 0;
    }
  }
  if (complete) wake_reader();
  log_text(LogLevel::info3, "FifoInput::PushData: [%p], return (size=%u)\n", static_cast<void*>(this), pushed);
  return pushed;
}

std::uint32_t FifoInput::GetDataLength() const {
  log_text(LogLevel::info3, "FifoInput::GetDataLength: [%p]\n", static_cast<const void*>(this));
  std::uint32_t data_leng = 0;
  {
    const std::lock_guard lock(mutex_);
    data_leng = data_leng_;
  }
  log_text(LogLevel::info3, "FifoInput::GetDataLength: [%p], return (data_leng=%u)\n", static_cast<const void*>(this),
           data_leng);
  return data_leng;
}

bool FifoInput::IsReaderWaiting() const {
  const std::lock_guard lock(mutex_);
  return wanted_ != 0;
}

void FifoInput::ChangeRate(int rate) {
  log_text(LogLevel::info3, "FifoInput::ChangeRate: [%p], rate=%d\n", static_cast<void*>(this), rate);
  {
    const std::lock_guard lock(mutex_);
    dns_in_fsl_ = device_frame(rate);
    wanted_ = 0;
  }
  wake_reader();  // as above
  log_text(LogLevel::info3, "FifoInput::ChangeRate: [%p], return\n", static_cast<void*>(this));
}

bool FifoInput::end() {
  log_text(LogLevel::info3, "FifoInput::end: [%p]\n", static_cast<void*>(this));
  bool data_end = false;
  {
    const std::lock_guard lock(mutex_);
    data_end = data_end_;
  }
  log_text(LogLevel::info3, "FifoInput::end: [%p], return (%d)\n", static_cast<void*>(this), data_end);
  return data_end;
}

int FifoInput::data(std::vector<short>& out, int require, bool trancate) {
  log_text(LogLevel::info3, "FifoInput::data: [%p], require=%d, trancate=%d\n", static_cast<void*>(this), require,
           trancate);
  request_1ms_timer();
  const std::size_t before = out.size();
  while (const auto request = wait_for(require)) {
    // Given back only where data end: while they flow, requests of the timer go on piling up.
    if (serve(*request, out) && count_served(*request, require)) return require;
    out.resize(before);
  }
  const int appended = end_of_data(out, require);
  give_back_1ms_timer();
  return appended;
}

/// Nothing: the input has ended, and the ring can't fill the request or the request is less than a frame, of which
/// there would be no end.
std::optional<FifoInput::Request> FifoInput::wait_for(int require) {
  assert(require >= 0);
  std::unique_lock lock(mutex_);
  for (;;) {
    const std::uint64_t in_require = static_cast<std::uint64_t>(require) * dns_in_fsl_ / kModelFrame;
    const auto frames = static_cast<std::size_t>(in_require / dns_in_fsl_);
    if (data_leng_ >= in_require && !(data_end_ && frames == 0)) {
      return Request{.in_fsl = dns_in_fsl_, .frames = frames, .clears = clears_};
    }
    if (data_end_) return std::nullopt;
    wanted_ = in_require;
    const std::uint32_t seen = wakes_.load();
    const std::uint32_t waiting = data_leng_;
    lock.unlock();
    log_text(LogLevel::debug, "FifoInput::data: [%p], data_leng=%u, wait\n", static_cast<void*>(this), waiting);
    wakes_.wait(seen);
    lock.lock();
  }
}

/// False when the ring was emptied meanwhile.
bool FifoInput::serve(const Request& request, std::vector<short>& out) {
  if (clears_heard_ != request.clears) {
    from_48000_.reset();
    from_44100_.reset();
    high_pass_.reset();
    clears_heard_ = request.clears;
  }
  RateConverter& converter = request.in_fsl == from_48000_.in_frame() ? from_48000_ : from_44100_;
  out.resize(out.size() + request.frames * kModelFrame);  // before any sample leaves the ring: it may fail
  for (auto frame = out.end() - static_cast<std::ptrdiff_t>(request.frames * kModelFrame); frame != out.end();
       frame += kModelFrame) {
    {
      const std::lock_guard lock(mutex_);
      if (clears_ != request.clears) return false;
      ring_.read(dns_in_.data(), request.in_fsl);
      data_leng_ -= request.in_fsl;
    }
    converter.process(dns_in_.data(), dns_out_.data());
    high_pass_.process(dns_out_);
    std::transform(dns_out_.begin(), dns_out_.end(), frame, to_pcm16);
  }
  return true;
}

/// False as above.
bool FifoInput::count_served(const Request& request, int require) {
  {
    const std::lock_guard lock(mutex_);
    if (clears_ != request.clears) return false;
    run_ = true;
    if (chunk_samples_ != 0) {
      data_per_chunk_ += static_cast<std::uint32_t>(require);
      if (data_per_chunk_ > chunk_samples_) data_per_chunk_ -= chunk_samples_;
    }
  }
  log_text(LogLevel::info3, "FifoInput::data: [%p], return (%d)\n", static_cast<void*>(this), require);
  return true;
}

/// Silence fills up a chunk of which fewer than three frames were delivered, and stands for an input that never ran.
int FifoInput::end_of_data(std::vector<short>& out, int require) {
  const std::size_t before = out.size();
  out.resize(before + static_cast<std::size_t>(require));  // before the place in the chunk moves on: it may fail
  bool was_running = false;
  std::uint32_t data_leng = 0;
  {
    const std::lock_guard lock(mutex_);
    if (chunk_samples_ != 0 && data_per_chunk_ != 0) {
      if (data_per_chunk_ < 3 * kModelFrame) run_ = false;
      data_per_chunk_ += static_cast<std::uint32_t>(require);
      if (data_per_chunk_ >= chunk_samples_) data_per_chunk_ -= chunk_samples_;
    }
    was_running = run_;
    run_ = true;
    data_leng = data_leng_;
  }
  if (was_running) {
    out.resize(before);
    log_text(LogLevel::info3, "FifoInput::data: (9): [%p], data_end=%d, run=%d, data_leng=%d, return (0)\n",
             static_cast<void*>(this), 1, 1, static_cast<int>(data_leng));
    return 0;
  }
  log_text(LogLevel::info3, "FifoInput::data: [%p], return (%d)\n", static_cast<void*>(this), require);
  return require;
}

/// Costs a system call only while the reader sleeps, and never waits.
void FifoInput::wake_reader() {
  ++wakes_;
  wakes_.notify_one();
}

}  // namespace sonivo
