// Opening and closing of the chains with a physical stream, and the parameters behind them.

#include <cstring>

#include "base/trace.h"
#include "relay/capture_interface.h"
#include "relay/effect_properties.h"
#include "relay/existing_file.h"

namespace sonivo {
namespace {

constexpr std::size_t kKeyCancelFlags = 2;
constexpr std::size_t kBeamFormingFlags = 3;
constexpr float kAIRate = 48000.0f;
constexpr std::uint16_t kAIChannels = 2;
constexpr std::uint16_t kAIFrames = 480;
constexpr float kAIAddBuffMs = 20.0f;

std::uint16_t active(bool on) { return on ? 1 : 0; }

}  // namespace

Status CCaptureInterface::NoteChainFault(ChainFault fault) {
  m_chainFault = fault;
  return kFail;
}

Status CCaptureInterface::ReadParameters(Chain& chain, const PropertyKey& key, std::size_t flag_bytes, bool& readable) {
  std::uint32_t size = 0;
  if (chain.GetParamSize(&size) != 0) return kFail;
  std::vector<std::byte> value(size + flag_bytes);
  const Status status = GetFxCaptureBytes(m_machine, key, value);
  readable = status == kOk;
  if (!readable) {
    trace(TraceLevel::error, "[cap] GetFxCapturePropertiesValue failed. (%d)\n", status);
    return kOk;
  }
  m_paramFlags.assign(value.begin(), value.begin() + static_cast<std::ptrdiff_t>(flag_bytes));
  m_params.assign((size + 1) / 2, 0);
  std::memcpy(m_params.data(), value.data() + flag_bytes, size);
  return kOk;
}

Status CCaptureInterface::SetBlockShape(Chain& chain) {
  const auto frames = static_cast<std::uint16_t>(FramesOfMs(kBlockMs));
  const bool done = chain.SetDataLength(frames) == 0 &&
                    chain.SetSamplingRate(static_cast<float>(m_format.nSamplesPerSec)) == 0 &&
                    chain.SetChannel(m_format.nChannels) == 0;
  return done ? kOk : kFail;
}

Status CCaptureInterface::OpenKeyCancel() {
  KeyCancelChain& chain = *m_chains.key_cancel;
  bool readable = false;
  if (failed(ReadParameters(chain, PKEY_NVC_MTGMIC_KC_Param, kKeyCancelFlags, readable))) {
    return NoteChainFault(ChainFault::not_opened);
  }
  if (!readable) {
    m_chainFault = ChainFault::no_parameters;
    return kOk;  // the blocks pass unprocessed
  }
  m_bKeyCancelOpen = chain.Open(m_params.data(), static_cast<float>(m_format.nSamplesPerSec), m_format.nChannels,
                                static_cast<std::uint16_t>(FramesOfMs(kBlockMs))) == 0 &&
                     !failed(SetBlockShape(chain)) &&
                     chain.SetKeyReductionActive(active(m_paramFlags[0] != std::byte{0})) == 0 &&
                     chain.SetNoiseReductionActive(active(m_paramFlags[1] != std::byte{0})) == 0;
  if (!m_bKeyCancelOpen) return NoteChainFault(ChainFault::not_opened);
  m_chainFault = ChainFault::none;
  NoteLatency(chain);
  return kOk;
}

Status CCaptureInterface::OpenBeamForming() {
  BeamFormingChain& chain = *m_chains.beam_forming;
  bool readable = false;
  if (failed(ReadParameters(chain, PKEY_NVC_MTGMIC_BF_KC_Param, kBeamFormingFlags, readable))) {
    return NoteChainFault(ChainFault::not_opened);
  }
  if (!readable) {
    m_chainFault = ChainFault::no_parameters;
    return kOk;  // the blocks pass unprocessed
  }
  const std::uint16_t reduction = active(m_BeamFormingkeyCancelState.State());
  m_bBeamFormingKeyCancelOpen = chain.Open(m_params.data(), static_cast<float>(m_format.nSamplesPerSec),
                                           m_format.nChannels, static_cast<std::uint16_t>(FramesOfMs(kBlockMs))) == 0 &&
                                !failed(SetBlockShape(chain)) && chain.SetKeyReductionActive(reduction) == 0 &&
                                chain.SetNoiseReductionActive(reduction) == 0 &&
                                chain.SetBeamFormingActive(active(m_BeamFormingState.State())) == 0;
  if (!m_bBeamFormingKeyCancelOpen) return NoteChainFault(ChainFault::not_opened);
  m_chainFault = ChainFault::none;
  NoteLatency(chain);
  return kOk;
}

Status CCaptureInterface::StartAISpeech() {
  AISpeechChain& chain = *m_chains.ai_speech;
  const std::lock_guard lock(m_csAIOpen);
  if (!m_AISpeechEnhanceIsOpen) {
    trace(TraceLevel::error, "[cap] PhysicalEndpointOpen::m_AISpeechEnhanceIsOpen = false.\n");
    return kFail;  // whoever tried to open it has noted why
  }
  const std::uint16_t reduction = active(m_AISpeechEnhanceKeyCancelState.State());
  const bool started = !failed(SetBlockShape(chain)) && chain.SetKeyReductionActive(reduction) == 0 &&
                       chain.SetNoiseReductionActive(reduction) == 0 &&
                       chain.SetBeamFormingActive(active(m_AISpeechEnhanceBeamFormingState.State())) == 0 &&
                       chain.SetAISpeechEnhanceActive(active(m_AISpeechEnhanceState.State())) == 0 && chain.Run() == 0;
  if (!started) return NoteChainFault(ChainFault::not_opened);
  m_chainFault = ChainFault::none;
  NoteLatency(chain);
  m_bAISpeechEnhanceRunning = true;
  m_bAISpeechEnhanceReady = true;
  return kOk;
}

void CCaptureInterface::PhysicalEndpointClose() {
  if (m_pAudioClient) m_pAudioClient->stop();
  m_counter.chain_latency.store(0, std::memory_order_relaxed);
  if (GateKC() && m_bKeyCancelOpen && m_chains.key_cancel->Close() != 0) {
    trace(TraceLevel::error, "[cap] CKeyCancel::Close failed.\n");
  }
  if (GateBF() && m_bBeamFormingKeyCancelOpen && m_chains.beam_forming->Close() != 0) {
    trace(TraceLevel::error, "[cap] CBeamFormingKeyCancel::Close failed.\n");
  }
  if (GateAI()) ReopenAISpeech();
  m_pCaptureClient.reset();
}

// The third chain stays open between streams, since enrolment and model changes use it then. One that could not be
// opened is tried anew here, for as long as the host wants it open; before a first model was chosen that is the row's.
void CCaptureInterface::ReopenAISpeech() {
  AISpeechChain& chain = *m_chains.ai_speech;
  const std::lock_guard lock(m_csAIOpen);
  if (m_AISpeechEnhanceIsOpen) {
    if (m_bAISpeechEnhanceRunning && chain.Stop() != 0) return;
    m_bAISpeechEnhanceRunning = false;
    if (chain.Close() != 0) return;
    m_AISpeechEnhanceIsOpen = false;
  }
  if (!m_bAISpeechEnhanceWanted) return;
  const std::string in_use = m_AISpeechEnhanceSetAiModelName;
  // An enrolled model goes when its enrolment is repeated and fails.
  if (failed(OpenAISpeech(IsExistingFile(in_use) ? in_use : CurrentModelRow().speech_enhancement))) return;
  // The host may have closed meanwhile.
  if (chain.SetAISpeechEnhanceStrength(ReadStrength()) != 0 || !m_bAISpeechEnhanceWanted) {
    chain.Close();
    return;
  }
  m_AISpeechEnhanceIsOpen = true;
}

Status CCaptureInterface::OpenAISpeech(const std::string& model) {
  AISpeechChain& chain = *m_chains.ai_speech;
  bool readable = false;
  if (failed(ReadParameters(chain, PKEY_NVC_MTGMIC_BF_KC_Param, kBeamFormingFlags, readable))) {
    return NoteChainFault(ChainFault::not_opened);
  }
  if (!readable) return NoteChainFault(ChainFault::no_parameters);
  m_AISpeechEnhanceSetAiModelName = model;
  const int status = chain.Open(m_params.data(), m_AISpeechEnhanceSetAiModelName.c_str(), kAIRate, kAIChannels,
                                kAIFrames, kAIAddBuffMs, kAIAddBuffMs);
  if (status != 0) return NoteChainFault(IsExistingFile(model) ? ChainFault::not_opened : ChainFault::no_model);
  m_chainFault = ChainFault::none;
  return kOk;
}

float CCaptureInterface::ReadStrength() {
  float strength = 1.0f;
  const Status status =
      GetFxCaptureBytes(m_machine, PKEY_NVC_AI_Strength, std::as_writable_bytes(std::span(&strength, 1)));
  return status == kOk ? strength : 1.0f;
}

}  // namespace sonivo
