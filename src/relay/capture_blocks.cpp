// The 10 ms blocks of the microphone: from the PRE buffer through at most one chain into the stream ring.

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "base/trace.h"
#include "enhance/result.h"
#include "relay/capture_interface.h"
#include "relay/fade.h"
#include "relay/sample_convert.h"

namespace sonivo {

struct CCaptureInterface::ChainTexts {
  const char* data_length;
  const char* execute;
};

namespace {

/// Warnings of the enhancer leave a valid block behind.
bool IsEnhancerWarning(int status) {
  return status >= WARNING_AI_SPEECH_ENHANCE_BUFF_OVERFLOW && status <= WARNING_AI_SPEECH_ENHANCE_BUSY;
}

float FadeTarget(bool on) { return on ? 1.0f : 0.0f; }

/// Of a setting that is in effect from this block on.
void TraceTaken(const char* setting, bool on) {
  trace(TraceLevel::debug, "[cap] %s is %s\n", setting, on ? "on" : "off");
}

}  // namespace

/// Key and noise reduction of a chain are switched together.
Status CCaptureInterface::SetReduction(Chain& chain, bool on) {
  const std::uint16_t active = on ? 1 : 0;
  if (chain.SetKeyReductionActive(active) == 0 && chain.SetNoiseReductionActive(active) == 0) {
    NoteLatency(chain);
    TraceTaken("keyboard-cancel", on);
    return kOk;
  }
  trace(TraceLevel::error, "[cap] ProcessBlocks::SetReductionActive failed.\n");
  return kFail;
}

void CCaptureInterface::NoteLatency(Chain& chain) {
  std::uint32_t frames = 0;
  if (chain.GetLatency(&frames) == 0) m_counter.chain_latency.store(frames, std::memory_order_relaxed);
}

std::int32_t CCaptureInterface::ProcessBlocks() {
  std::int32_t result = 1;
  while (m_PreBuffer.ValidSize() >= m_block.size()) {
    if (m_PreBuffer.Read(m_block.data(), m_block.size()) < m_block.size()) {
      trace(TraceLevel::error, "[cap] There is not enough data in the PRE buffer.\n");
      result = 0;
    }
    Status status = kOk;
    if (GateKC() && m_bKeyCancelOpen) RunKeyCancel();
    if (GateBF() && m_bBeamFormingKeyCancelOpen) status = RunBeamForming();
    if (GateAI() && m_bAISpeechEnhanceReady) status = RunAISpeech();
    if (failed(status)) return status;

    if (m_ring.Write(m_block.data(), m_block.size()) < m_block.size()) StatisticsCounter::add(m_counter.overruns);
    StatisticsCounter::add(m_counter.blocks);
  }
  return result;
}

// Switching the first chain is the crossfade alone.
void CCaptureInterface::RunKeyCancel() {
  const auto key_cancel = m_KeyCancelState.Take();
  if (key_cancel.changed) {
    m_fKCSelTarget = FadeTarget(key_cancel.state);
    TraceTaken("keyboard-cancel", key_cancel.state);
  }
  RunChain(*m_chains.key_cancel, {"kcErr", "CKeyCancel::Execute"}, m_fKCSelTarget, m_fKCSel);
}

Status CCaptureInterface::RunBeamForming() {
  BeamFormingChain& chain = *m_chains.beam_forming;
  const auto key_cancel = m_BeamFormingkeyCancelState.Take();
  if (key_cancel.changed && failed(SetReduction(chain, key_cancel.state))) return kFail;
  const auto beam = m_BeamFormingState.Take();
  if (beam.changed) {
    chain.SetBeamFormingActive(beam.state ? 1 : 0);
    TraceTaken("beamforming", beam.state);
  }
  RunChain(chain, {"BeamFormingkcErr", "CBeamFormingKeyCancel::Execute"}, FadeTarget(key_cancel.state),
           m_fBeamFormingKCSel2);
  return kOk;
}

// The fade of the third chain follows the enhancement, not the key cancellation.
Status CCaptureInterface::RunAISpeech() {
  AISpeechChain& chain = *m_chains.ai_speech;
  const auto key_cancel = m_AISpeechEnhanceKeyCancelState.Take();
  if (key_cancel.changed && failed(SetReduction(chain, key_cancel.state))) return kFail;
  const auto beam = m_AISpeechEnhanceBeamFormingState.Take();
  if (beam.changed) {
    chain.SetBeamFormingActive(beam.state ? 1 : 0);
    TraceTaken("beamforming", beam.state);
  }
  const auto enhance = m_AISpeechEnhanceState.Take();
  if (enhance.changed) {
    chain.SetAISpeechEnhanceActive(enhance.state ? 1 : 0);
    NoteLatency(chain);
    TraceTaken("speech-enhance", enhance.state);
  }
  const float target = FadeTarget(enhance.state && m_AISpeechEnhanceIsOpen);
  RunChain(chain, {"AISpeechEnhanceBeamFormingkcErr", "CAISpeechEnhance::Execute"}, target,
           m_AISpeechEnhanceBeamFormingKCSel);
  return kOk;
}

// What this throws ends the process: a chain that doesn't fit its stream must not go unnoticed.
void CCaptureInterface::RunChain(Chain& chain, const ChainTexts& texts, float target, float& sel) {
  std::uint16_t frames = 0;
  if (chain.GetDataLength(&frames) != 0) {
    if (IsClosing(chain)) return;
    throw std::runtime_error(texts.data_length);
  }
  if (std::size_t{frames} * m_format.nBlockAlign != m_block.size()) {
    throw std::runtime_error(
        "[cap] Keyboard sound cancellation processing unit does not match the size of the buffer to be extracted.");
  }
  const std::uint16_t bits = m_format.wBitsPerSample;
  pcm_to_float(bits, m_block.data(), m_wet.data(), m_wet.size());
  m_dry = m_wet;
  if (Execute(chain) != 0) {
    if (IsClosing(chain)) return;
    throw std::runtime_error(texts.execute);
  }
  if (!all_finite(m_wet.data(), m_wet.size())) {
    std::fill(m_wet.begin(), m_wet.end(), 0.0f);
    StatisticsCounter::add(m_counter.silenced);
  }
  crossfade(m_wet.data(), m_dry.data(), frames, m_format.nChannels, target, sel);
  float_to_pcm(bits, m_wet.data(), m_block.data(), m_wet.size());
}

/// The host closes the third chain without a lock, after it has withdrawn it: the block passes as it is.
bool CCaptureInterface::IsClosing(const Chain& chain) const {
  return &chain == m_chains.ai_speech.get() && !m_bAISpeechEnhanceReady;
}

int CCaptureInterface::Execute(Chain& chain) {
  const auto timed = [&] {
    const auto start = std::chrono::steady_clock::now();
    const int status = chain.Execute(m_wet.data());
    const std::chrono::nanoseconds taken = std::chrono::steady_clock::now() - start;
    m_counter.note_execution(static_cast<std::uint64_t>(taken.count()));
    return status;
  };
  if (&chain != m_chains.ai_speech.get()) return timed();
  const std::lock_guard lock(m_csAIOpen);
  const int status = timed();
  if (!IsEnhancerWarning(status)) return status;
  StatisticsCounter::add(m_counter.unenhanced);
  return 0;
}

}  // namespace sonivo
