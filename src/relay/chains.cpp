#include "relay/chains.h"

#include <chrono>
#include <thread>
#include <utility>

#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"
#include "enhance/ai_speech_enhance.h"

namespace sonivo {
namespace {

/// Forwards what all chains have in common.
template <class Interface, class Object>
class Forward : public Interface {
 public:
  template <class... Arguments>
  explicit Forward(Arguments... arguments) : m_object(std::move(arguments)...) {}

  int GetVersion(std::uint16_t* major, std::uint16_t* minor) override { return m_object.GetVersion(major, minor); }
  int GetParamSize(std::uint32_t* size) override { return m_object.GetParamSize(size); }
  int SetDataLength(std::uint16_t frames) override { return m_object.SetDataLength(frames); }
  int GetDataLength(std::uint16_t* frames) override { return m_object.GetDataLength(frames); }
  int SetSamplingRate(float rate_hz) override { return m_object.SetSamplingRate(rate_hz); }
  int SetChannel(std::uint16_t channels) override { return m_object.SetChannel(channels); }
  int SetKeyReductionActive(std::uint16_t active) override { return m_object.SetKeyReductionActive(active); }
  int SetNoiseReductionActive(std::uint16_t active) override { return m_object.SetNoiseReductionActive(active); }
  int GetLatency(std::uint32_t* frames) override { return m_object.GetLatency(frames); }
  int Execute(float* interleaved) override { return m_object.Execute(interleaved); }
  int Close() override { return m_object.Close(); }

 protected:
  Object m_object;
};

template <class Interface, class Object>
class ForwardClassic : public Forward<Interface, Object> {
 public:
  int Open(const void* params, float rate_hz, std::uint16_t channels, std::uint16_t frames) override {
    return this->m_object.Open(params, rate_hz, channels, frames);
  }
};

class BeamForming final : public ForwardClassic<BeamFormingChain, CBeamFormingKeyCancel> {
 public:
  int SetBeamFormingActive(std::uint16_t active) override { return m_object.SetBeamFormingActive(active); }
};

class AISpeech : public Forward<AISpeechChain, CAISpeechEnhance> {
 public:
  explicit AISpeech(RealTimeGrant real_time = {}) : Forward(std::move(real_time)) {}

  int Open(const std::uint16_t* params, const char* model, float rate_hz, std::uint16_t channels, std::uint16_t frames,
           float add_buff_in_ms, float add_buff_out_ms) override {
    return m_object.Open(params, model, rate_hz, channels, frames, add_buff_in_ms, add_buff_out_ms);
  }
  int Run() override { return m_object.Run(); }
  int Stop() override { return m_object.Stop(); }
  int SetBeamFormingActive(std::uint16_t active) override { return m_object.SetBeamFormingActive(active); }
  int SetAISpeechEnhanceActive(std::uint16_t active) override { return m_object.SetAISpeechEnhanceActive(active); }
  int SetAISpeechEnhanceStrength(float strength) override { return m_object.SetAISpeechEnhanceStrength(strength); }
  int SetAIModel(const char* model) override { return m_object.SetAIModel(model); }
  int MakeAIModel(const char* base_model, const char* encoder_model, const char* wav, const char* out_file,
                  std::uint16_t preprocess_on) override {
    return m_object.MakeAIModel(base_model, encoder_model, wav, out_file, preprocess_on);
  }
  int QuitMakeAIModel() override { return m_object.QuitMakeAIModel(); }
};

class PatientAISpeech final : public AISpeech {
 public:
  int Execute(float* interleaved) override {
    const int status = AISpeech::Execute(interleaved);
    while (!m_object.IsEnhancementIdle()) std::this_thread::sleep_for(std::chrono::microseconds(20));
    return status;
  }
};

Chains MakeChainsWith(std::unique_ptr<AISpeechChain> ai_speech) {
  return {.key_cancel = std::make_unique<ForwardClassic<KeyCancelChain, CKeyCancel>>(),
          .beam_forming = std::make_unique<BeamForming>(),
          .ai_speech = std::move(ai_speech)};
}

}  // namespace

Chains MakeChains() { return MakeChainsWith(std::make_unique<AISpeech>()); }
Chains MakePatientChains() { return MakeChainsWith(std::make_unique<PatientAISpeech>()); }

ChainFactory ChainsInRealTime(RealTimeGrant real_time) {
  return [real_time = std::move(real_time)] { return MakeChainsWith(std::make_unique<AISpeech>(real_time)); };
}

}  // namespace sonivo
