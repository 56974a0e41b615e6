#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "base/thread.h"

namespace sonivo {

/// What the capture path asks of a processing chain. Calls answer 0 on success.
class Chain {
 public:
  virtual ~Chain() = default;
  virtual int GetVersion(std::uint16_t* major, std::uint16_t* minor) = 0;
  virtual int GetParamSize(std::uint32_t* size) = 0;
  virtual int SetDataLength(std::uint16_t frames) = 0;
  virtual int GetDataLength(std::uint16_t* frames) = 0;
  virtual int SetSamplingRate(float rate_hz) = 0;
  virtual int SetChannel(std::uint16_t channels) = 0;
  virtual int SetKeyReductionActive(std::uint16_t active) = 0;
  virtual int SetNoiseReductionActive(std::uint16_t active) = 0;
  /// Frames by which the output is late, as the chain is switched.
  virtual int GetLatency(std::uint32_t* frames) {
    *frames = 0;
    return 0;
  }
  /// Interleaved frames, full scale 1.0, in place.
  virtual int Execute(float* interleaved) = 0;
  virtual int Close() = 0;
};

class KeyCancelChain : public Chain {
 public:
  virtual int Open(const void* params, float rate_hz, std::uint16_t channels, std::uint16_t frames) = 0;
};

class BeamFormingChain : public KeyCancelChain {
 public:
  virtual int SetBeamFormingActive(std::uint16_t active) = 0;
};

class AISpeechChain : public Chain {
 public:
  virtual int Open(const std::uint16_t* params, const char* model, float rate_hz, std::uint16_t channels,
                   std::uint16_t frames, float add_buff_in_ms, float add_buff_out_ms) = 0;
  virtual int Run() = 0;
  virtual int Stop() = 0;
  virtual int SetBeamFormingActive(std::uint16_t active) = 0;
  virtual int SetAISpeechEnhanceActive(std::uint16_t active) = 0;
  virtual int SetAISpeechEnhanceStrength(float strength) = 0;
  virtual int SetAIModel(const char* model) = 0;
  virtual int MakeAIModel(const char* base_model, const char* encoder_model, const char* wav, const char* out_file,
                          std::uint16_t preprocess_on) = 0;
  virtual int QuitMakeAIModel() = 0;
};

/// The three chains of a capture stream, of which a process uses at most one.
struct Chains {
  std::unique_ptr<KeyCancelChain> key_cancel;
  std::unique_ptr<BeamFormingChain> beam_forming;
  std::unique_ptr<AISpeechChain> ai_speech;
};
using ChainFactory = std::function<Chains()>;

/// CKeyCancel, CBeamFormingKeyCancel and CAISpeechEnhance.
Chains MakeChains();
/// The same, whose enhancement thread asks for its priority there first.
ChainFactory ChainsInRealTime(RealTimeGrant real_time);
/// The same for a machine whose time runs faster than the network: each Execute of the third chain comes back when the
/// network has dealt with all it was given, so that no chunk is late.
Chains MakePatientChains();

}  // namespace sonivo
