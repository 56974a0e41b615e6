#pragma once

#include <cstdint>
#include <memory>

#include "classic/block_framing.h"
#include "classic/key_reduction.h"
#include "classic/param_blobs.h"

namespace sonivo::classic {

/// Two microphones: input filter, two fixed beams, key reduction of both, noise reduction of the first with the second
/// as reference.
class BeamFormingChannel {
 public:
  using Param = BeamFormingKeyCancelParam;
  static constexpr std::uint16_t kVersionMajor = 1;
  static constexpr bool kHearSame = true;  ///< all hear the first two microphones
  static constexpr std::uint16_t kVersionMinor = 0;

  /// Bound to a usable blob. Throws std::bad_alloc, here and at reset.
  explicit BeamFormingChannel(std::shared_ptr<const Param> param);
  ~BeamFormingChannel();

  /// All states as after construction, bound to another blob or to the one given there. The bypasses stay.
  void reset(std::shared_ptr<const Param> param);
  void reset() { reset(own_); }

  /// Takes over all states of another channel, and the blob that they are bound to. Throws std::bad_alloc and has
  /// changed nothing then.
  void copy_states(const BeamFormingChannel& other);

  /// The first two frames of in; frame number channel of out.
  void process(const Frames& in, std::size_t channel, Frames& out);

  const Param& param() const { return *param_; }
  const DetectionStatistics& statistics() const;
  /// Samples by which what comes out is late, as the bypasses stand.
  std::size_t latency() const;

  bool beamBypass = false;
  bool keyBypass = false;
  bool noiseBypass = false;

 private:
  struct Stages;
  const std::shared_ptr<const Param> own_;
  std::shared_ptr<const Param> param_;
  std::unique_ptr<Stages> stages_;
};

}  // namespace sonivo::classic
