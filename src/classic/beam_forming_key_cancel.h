#pragma once

#include <cstdint>

namespace sonivo {

/// Two fixed beams of two microphones, keyboard-noise cancellation on both, noise reduction of the first.
///
/// Operations answer 0 on success and a code of classic/result.h otherwise. Everything but GetVersion and GetParamSize
/// answers ERROR_BEAMFORMING_KEY_CANCEL_INVARID_ARG while closed, as the object is for now in all of its life: it has
/// no engine yet.
class CBeamFormingKeyCancel {
 public:
  CBeamFormingKeyCancel() = default;
  CBeamFormingKeyCancel(const CBeamFormingKeyCancel&) = delete;
  CBeamFormingKeyCancel& operator=(const CBeamFormingKeyCancel&) = delete;

  /// param: blob of GetParamSize bytes; samplingRate 44100 or 48000; channels 1 to 4; dataLength in frames, not 0.
  int Open(const void* param, float samplingRate, std::uint16_t channels, std::uint16_t dataLength);
  int Close();
  /// Processes dataLength interleaved frames in place, full scale 1.0.
  int Execute(float* inout);

  int GetVersion(std::uint16_t* major, std::uint16_t* minor) const;
  int GetParamSize(std::uint32_t* size) const;
  int SetParam(const void* param);
  int GetParamID(std::uint16_t* id) const;
  int SetKeyReductionActive(std::uint16_t active);
  int GetKeyReductionActive(std::uint16_t* active) const;
  int SetNoiseReductionActive(std::uint16_t active);
  int GetNoiseReductionActive(std::uint16_t* active) const;
  int SetBeamFormingActive(std::uint16_t active);
  int GetBeamFormingActive(std::uint16_t* active) const;
  int SetSamplingRate(float rate);
  int GetSamplingRate(float* rate) const;
  int SetChannel(std::uint16_t channels);
  int GetChannel(std::uint16_t* channels) const;
  int SetDataLength(std::uint16_t frames);
  int GetDataLength(std::uint16_t* frames) const;
};

}  // namespace sonivo
