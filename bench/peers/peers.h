#pragma once

#include <memory>

#include "peers/enhancer.h"

namespace sonivo::bench {

/// Attenuation limits of speexdsp's noise suppression: its own default, and a stronger one.
inline constexpr int kSpeexDefaultDb = -15;
inline constexpr int kSpeexStrongDb = -30;

/// Noise suppression of libspeexdsp, one state per channel, down to this gain. Everything else it can do is off.
std::unique_ptr<Enhancer> speex_noise_suppression(std::size_t channels, int suppression_db);

struct WebRtcParts {
  bool noise_suppression = false;  ///< level high
  bool transient_suppressor = false;
  bool beamformer = false;  ///< of two channels, towards the front; both channels of the result hold it
};

/// Parts of libwebrtc-audio-processing; the spacing in metres is that of the two microphones.
std::unique_ptr<Enhancer> webrtc(std::size_t channels, WebRtcParts parts, double spacing = 0.06);

}  // namespace sonivo::bench
