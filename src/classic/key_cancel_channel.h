#pragma once

#include <cstdint>
#include <memory>

#include "classic/block_framing.h"
#include "classic/key_reduction.h"
#include "classic/param_blobs.h"

namespace sonivo::classic {

/// One microphone: input filter, key reduction, noise reduction.
class KeyCancelChannel {
 public:
  using Param = KeyCancelParam;
  static constexpr std::uint16_t kVersionMajor = 0;
  static constexpr bool kHearSame = false;  ///< each hears its own microphone
  static constexpr std::uint16_t kVersionMinor = 4;

  /// Bound to a usable blob. Throws std::bad_alloc, here and at reset.
  explicit KeyCancelChannel(std::shared_ptr<const Param> param);
  ~KeyCancelChannel();

  /// All states as after construction, bound to another blob or to the one given there. The bypasses stay.
  void reset(std::shared_ptr<const Param> param);
  void reset() { reset(own_); }

  /// Frame number channel of in and out.
  void process(const Frames& in, std::size_t channel, Frames& out);

  const Param& param() const { return *param_; }
  const DetectionStatistics& statistics() const;
  /// Samples by which what comes out is late, as the bypasses stand.
  std::size_t latency() const;

  bool keyBypass = false;
  bool noiseBypass = false;

 private:
  struct Stages;
  const std::shared_ptr<const Param> own_;
  std::shared_ptr<const Param> param_;
  std::unique_ptr<Stages> stages_;
};

}  // namespace sonivo::classic
