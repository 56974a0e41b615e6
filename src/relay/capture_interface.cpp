#include "relay/capture_interface.h"

#include "base/text.h"
#include "base/trace.h"
#include "relay/endpoint_names.h"
#include "relay/gates.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kPreBufferMs = 30;
constexpr std::uint32_t kPreHeadStartMs = 3;
constexpr std::uint32_t kRingReadyMs = 30;

}  // namespace

CCaptureInterface::CCaptureInterface(const Machine& machine, const ChainFactory& make_chains)
    : CStreamInterface(machine, DataFlow::capture),
      m_EchoFilter(machine.bus),
      m_chains(make_chains()),
      m_PreBuffer(machine.clock) {
  std::uint16_t major = 0;
  std::uint16_t minor = 0;
  if (m_chains.key_cancel->GetVersion(&major, &minor) == 0) {
    output_debug_string("KeyCancel version: %u.%u\n", major, minor);
  }
  if (m_chains.beam_forming->GetVersion(&major, &minor) == 0) {
    output_debug_string("BeamformingKeyCancel version: %u.%u\n", major, minor);
  }
  if (m_chains.ai_speech->GetVersion(&major, &minor) == 0) {
    output_debug_string("AispeechEnhance version: %u.%u\n", major, minor);
  } else {
    trace(TraceLevel::error, "AispeechEnhance version: error\n");
  }
}

CCaptureInterface::~CCaptureInterface() { Detach(); }

void CCaptureInterface::SetGenAndFunction(std::uint32_t generation, std::uint32_t function,
                                          std::uint32_t generation_mic, std::uint32_t function_mic) {
  m_dwGeneration = generation;
  m_Function = function;
  m_dwGenerationMic = generation_mic;
  m_FunctionMic = function_mic;
}

bool CCaptureInterface::GateKC() const { return GateKeyCancel(m_FunctionMic, m_dwGenerationMic); }
bool CCaptureInterface::GateBF() const { return GateBeamForming(m_FunctionMic, m_dwGenerationMic); }
bool CCaptureInterface::GateAI() const { return GateAISpeech(m_FunctionMic, m_dwGenerationMic); }

ChainKind CCaptureInterface::RunningChain() const {
  if (State() != StreamState::ePhysicalStreaming) return ChainKind::none;
  if (GateKC() && m_bKeyCancelOpen) return ChainKind::key_cancel;
  if (GateBF() && m_bBeamFormingKeyCancelOpen) return ChainKind::beam_forming;
  return GateAI() && m_bAISpeechEnhanceReady ? ChainKind::ai_speech : ChainKind::none;
}

ChainFault CCaptureInterface::LatestChainFault() const {
  return GateKC() || GateBF() || GateAI() ? m_chainFault.load() : ChainFault::none;
}

// The enhancer is trained on the full level; the classic chains keep some head room.
float CCaptureInterface::PhysicalLevel() const { return GateAI() ? 1.0f : 0.9f; }

Status CCaptureInterface::SetMuteAction(bool mute) {
  const Status status = m_physical.SetMute(mute, nullptr);
  if (failed(status)) {
    trace(TraceLevel::error, "[cap] mute failed.\n");
  } else {
    m_EchoFilter.NotifyEchoFilter(mute ? 1 : 0);
  }
  return status;
}

Status CCaptureInterface::GetMute(std::uint32_t* muted) {
  bool value = true;
  const Status status = m_physical.GetMute(value);
  if (failed(status)) {
    value = true;
    trace(TraceLevel::error, "[cap] GetMute failed.\n");
  }
  *muted = value ? 1 : 0;
  return status;
}

Status CCaptureInterface::CheckDeviceName(std::string_view text) {
  const auto device = m_physical.GetDevice();
  Status status = kFail;
  if (device) {
    std::string name;
    NameStep step = NameStep::none;
    status = ReadFriendlyName(*device, name, &step);
    if (step == NameStep::open_property_store) {
      trace(TraceLevel::error, "%s CheckDeviceName::OpenPropertyStore fail.\n", Prefix());
    } else if (step == NameStep::get_value) {
      trace(TraceLevel::error, "[cap] CheckDeviceName::GetValue fail.\n");
    } else {
      status = contains(name, text) ? kOk : kFail;
    }
  }
  if (failed(status)) trace(TraceLevel::error, "[cap] CheckDeviceName failed.\n");
  return status;
}

Status CCaptureInterface::PhysicalEndpointOpen() {
  m_bRingReady = false;
  Status status =
      m_pAudioClient->initialize(kStreamEventCallback | kStreamAutoConvertPcm, kPeriod100ns, kPeriod100ns, m_format);
  if (failed(status)) return status;
  status = m_pAudioClient->capture_service(m_pCaptureClient);
  if (failed(status)) {
    trace(TraceLevel::error, "[cap] PhysicalEndpointOpen::GetService failed. (%d)\n", status);
    return status;
  }
  status = m_pAudioClient->set_event(m_hPhysicalEvent.get());
  if (failed(status)) {
    trace(TraceLevel::error, "[cap] PhysicalEndpointOpen::SetEventHandle failed. (%d)\n", status);
    return status;
  }

  m_PreBuffer.Allocate(BytesOfMs(kPreBufferMs));
  m_PreBuffer.WriteSilence(BytesOfMs(kPreHeadStartMs));
  m_silence.assign(BytesOfMs(kPreBufferMs), std::byte{0});
  m_block.assign(BytesOfMs(kBlockMs), std::byte{0});
  m_wet.assign(std::size_t{FramesOfMs(kBlockMs)} * m_format.nChannels, 0.0f);
  m_dry = m_wet;

  // The gates may change in mid-stream: a chain that wasn't opened for this stream gets none of its blocks.
  m_bKeyCancelOpen = false;
  m_bBeamFormingKeyCancelOpen = false;
  m_bAISpeechEnhanceReady = false;
  if (GateKC()) status = OpenKeyCancel();
  if (GateBF()) status = OpenBeamForming();
  if (GateAI()) status = StartAISpeech();
  if (failed(status)) return status;
  return m_pAudioClient->start();
}

std::int32_t CCaptureInterface::Step() {
  const WaitResult woken = WaitForStep();
  if (woken.index == kVirtualTransfer) return VirtualTransferDone();
  if (woken.index == kPhysicalEvent) return PhysicalDataReady();
  if (woken.index == kStopRequest) {
    trace(TraceLevel::info, "[cap] thread stop event\n");
  } else {
    trace(TraceLevel::error, "[cap] thread stop with error %lu\n", static_cast<unsigned long>(woken.error));
  }
  return 0;
}

std::int32_t CCaptureInterface::VirtualTransferDone() {
  std::int32_t result = 1;
  StatisticsCounter::add(m_counter.virtual_transfers);
  IOBuffer& buffer = DueIOBuffer();
  if (!buffer.GetResult(nullptr, true)) {
    trace(TraceLevel::error, "[cap] virtual mic xfer error\n");
    result = 0;
  }
  if (!m_bRingReady) {
    buffer.Fill(std::byte{0});
  } else {
    const auto data = buffer.Data();
    if (m_ring.Read(data.data(), data.size()) < data.size()) {
      trace(TraceLevel::warning, "[cap] virtual mic: too small available data in ring buffer\n");
      StatisticsCounter::add(m_counter.underruns);
      RestartPhysicalClient();
    } else {
      m_counter.note_fill(static_cast<std::uint32_t>(m_ring.ValidSize() / m_format.nBlockAlign));
    }
  }
  if (!ReleaseCurrentIOBuffer()) {
    trace(TraceLevel::error, "[cap] ReleaseCurrentIOBuffer failed.\n");
    result = 0;
  }
  UpdateFeedback();
  return result;
}

void CCaptureInterface::RestartPhysicalClient() {
  m_pAudioClient->stop();
  m_pAudioClient->reset();
  m_bRingReady = false;
  m_pAudioClient->start();
}

std::int32_t CCaptureInterface::PhysicalDataReady() {
  const std::byte* data = nullptr;
  std::uint32_t frames = 0;
  std::uint32_t flags = 0;
  if (const Status status = m_pCaptureClient->get_buffer(data, frames, flags); failed(status)) {
    trace(TraceLevel::error, "[cap] IAudioCaptureClient::GetBuffer error %x\n", static_cast<unsigned>(status));
    return 0;
  }
  if (frames == 0) {
    m_pCaptureClient->release_buffer(0);
    trace(TraceLevel::info, "[cap] IAudioCaptureClient::GetBuffer 0 frame\n");
    return 1;
  }
  StatisticsCounter::add(m_counter.physical_packets);
  const std::size_t bytes = std::size_t{frames} * m_format.nBlockAlign;
  if ((flags & kBufferSilent) != 0) {
    if (m_silence.size() < bytes) m_silence.resize(bytes);
    data = m_silence.data();
  }
  const bool fits = m_PreBuffer.Write(data, bytes) == bytes;
  if (!fits) {
    output_debug_string("[cap] PRE buffer no space\n");
    StatisticsCounter::add(m_counter.overruns);
  }
  std::int32_t result = ProcessBlocks();
  m_pCaptureClient->release_buffer(frames);
  const std::uint32_t ready_bytes = m_format.nSamplesPerSec * kRingReadyMs * m_format.nBlockAlign / 1000;
  if (!m_bRingReady && m_ring.ValidSize() >= ready_bytes) m_bRingReady = true;
  if (!fits) {
    trace(TraceLevel::error, "[cap] physical mic: too small valid space in ring buffer\n");
    result = 0;
  }
  return result;
}

}  // namespace sonivo
