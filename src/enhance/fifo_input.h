#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "enhance/brief_mutex.h"
#include "enhance/device_rate.h"
#include "enhance/rate_converter.h"
#include "enhance/sample_ring.h"
#include "enhance/section_pair.h"
#include "feature_extractor/input.h"

namespace sonivo {

/// From the device to the model: the audio thread pushes floats of full scale 1.0 at 48000 or 44100 Hz, the model
/// thread pulls 16-bit samples at 16000 Hz, in frames of 10 ms. What is pulled is converted down and high-pass
/// filtered.
///
/// One thread pulls at a time; all else may be called by any thread. Converters and filter belong to the thread that
/// pulls, and the lock is held for copies only: nobody ever waits for a conversion. Nothing but BuffInit allocates,
/// beside what `out` of data() needs to grow.
class FifoInput : public Input<short> {
 public:
  FifoInput() = default;
  ~FifoInput() override;
  FifoInput(const FifoInput&) = delete;
  FifoInput& operator=(const FifoInput&) = delete;

  /// New storage for `size` device samples; rate: 48000 or 44100; chunk: model frames that are processed together, 0
  /// for no padding at the end. False, and no storage, for another rate or without memory.
  bool BuffInit(std::uint32_t size, int rate, std::uint32_t chunk);
  /// Empties the ring and lets converters and filter start anew. A request that is being served starts anew too, as if
  /// it had come after this.
  void BuffClear();
  void Start();
  /// No more will be pushed.
  void End();
  /// All or nothing: `size`, or 0 when there is no room for all. Wakes the reader once its request is complete.
  std::uint32_t PushData(const float* data, std::uint32_t size);
  /// Device samples waiting.
  std::uint32_t GetDataLength() const;
  /// Somebody sleeps in data() because there is too little for the request: all that came before is dealt with.
  bool IsReaderWaiting() const;
  void ChangeRate(int rate);

  /// Waits until what makes `require` model samples is there, appends all whole frames of it and answers `require`.
  /// After End a request of a frame or more that the ring can still fill is served. Then: 0, or, where nothing was read
  /// since Start or fewer than three frames of a chunk, `require` samples of silence. Other threads' pushes are
  /// accepted meanwhile. Where `out` can't grow, nothing was read.
  int data(std::vector<short>& out, int require, bool trancate) override;
  bool end() override;

 private:
  /// A request that the ring could fill when it was looked at.
  struct Request {
    std::uint32_t in_fsl;  ///< device samples of a frame
    std::size_t frames;    ///< that it gets
    std::uint64_t clears;  ///< clears_ at that time
  };

  std::optional<Request> wait_for(int require);
  bool serve(const Request& request, std::vector<short>& out);
  bool count_served(const Request& request, int require);
  int end_of_data(std::vector<short>& out, int require);
  void wake_reader();

  mutable BriefMutex mutex_;  // guards what follows up to the blank line
  SampleRing ring_;
  bool data_end_ = false;
  bool run_ = false;  // something was read since Start
  std::uint32_t buff_size_ = 0;
  std::uint32_t data_leng_ = 0;
  std::uint32_t data_per_chunk_ = 0;  // place inside of the current chunk, in model samples
  std::uint32_t chunk_samples_ = 0;
  std::uint32_t dns_in_fsl_ = 480;
  std::uint64_t clears_ = 0;  // how often the ring was emptied
  std::uint64_t wanted_ = 0;  // what the sleeping reader waits for; 0: nobody sleeps

  std::atomic<std::uint32_t> wakes_{0};

  // The reader's own.
  RateConverter from_48000_{kernel_48000_to_16000()};
  RateConverter from_44100_{kernel_44100_to_16000()};
  HighPass high_pass_;
  std::uint64_t clears_heard_ = 0;  // clears_ that converters and filter know of
  std::array<float, RateKernel::kMaxFrame> dns_in_{};
  std::array<float, kModelFrame> dns_out_{};
};

}  // namespace sonivo
