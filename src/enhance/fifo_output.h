#pragma once

#include <array>
#include <cstdint>

#include "enhance/brief_mutex.h"
#include "enhance/device_rate.h"
#include "enhance/rate_converter.h"
#include "enhance/sample_ring.h"

namespace sonivo {

/// From the model to the device: the model thread pushes 16-bit samples at 16000 Hz, the audio thread pops floats of
/// full scale 1.0 at 48000 or 44100 Hz. The ring starts full of silence, which delays what comes behind it.
///
/// One thread pushes at a time; all else may be called by any thread. The converters belong to the thread that pushes,
/// and the lock is held for copies only: nobody ever waits for a conversion. Nothing but BuffInit allocates.
class FifoOutput {
 public:
  FifoOutput() = default;
  ~FifoOutput();
  FifoOutput(const FifoOutput&) = delete;
  FifoOutput& operator=(const FifoOutput&) = delete;

  /// New storage for size + exec_leng device samples, all of them silence; rate: 48000 or 44100. False, and no storage,
  /// for another rate, without memory, or where 32 bits can't count the samples.
  bool BuffInit(std::uint32_t size, std::uint32_t exec_leng, int rate);
  /// Back to a ring full of silence, the converters as new. Of a push that is under way nothing stays.
  void BuffClear();
  /// All or nothing: converts and takes all whole frames of 160 samples and answers `size`, or 0 when there is no room.
  /// What was pushed can be popped from the end of the call on.
  std::uint32_t PushData(const short* data, std::uint32_t size);
  /// All or nothing: `size`, or 0 when there is less.
  std::uint32_t PopData(float* data, std::uint32_t size);
  void ChangeRate(int rate);

 private:
  bool push(const short* data, std::uint32_t size);

  BriefMutex mutex_;  // guards what follows up to the blank line
  SampleRing ring_;
  std::uint32_t buff_size_ = 0;
  std::uint32_t data_leng_ = 0;
  std::uint32_t dns_out_fsl_ = 480;
  std::uint64_t clears_ = 0;  // how often the ring was filled with silence

  // The pusher's own.
  RateConverter to_48000_{kernel_16000_to_48000()};
  RateConverter to_44100_{kernel_16000_to_44100()};
  std::uint64_t clears_heard_ = 0;  // clears_ that the converters know of
  std::array<float, kModelFrame> dns_in_{};
  std::array<float, RateKernel::kMaxFrame> dns_out_{};
};

}  // namespace sonivo
