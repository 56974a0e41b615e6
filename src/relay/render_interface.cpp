#include "relay/render_interface.h"

#include <algorithm>
#include <cmath>

#include "base/trace.h"
#include "relay/fade.h"
#include "relay/sample_convert.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kLeadMs = 30;
constexpr double kGainTolerance = 0.001f;

}  // namespace

Status CRenderInterface::PhysicalEndpointOpen() {
  m_bPlaying = false;
  m_targetGain = m_currentGain = 0.0f;

  Status status = m_pAudioClient->initialize(kStreamEventCallback | kStreamAutoConvertPcm | kStreamSrcDefaultQuality,
                                             kPeriod100ns, kPeriod100ns, m_format);
  if (failed(status)) return status;
  if (status = m_pAudioClient->render_service(m_pRenderClient); failed(status)) return status;

  // The whole endpoint buffer starts as silence.
  std::uint32_t frames = 0;
  std::byte* data = nullptr;
  if (status = m_pAudioClient->buffer_size(frames); failed(status)) return status;
  if (status = m_pRenderClient->get_buffer(frames, data); failed(status)) return status;
  if (status = m_pRenderClient->release_buffer(frames, kBufferSilent); failed(status)) return status;
  m_ramped.assign(std::size_t{frames} * m_format.nChannels, 0.0f);

  if (status = m_pAudioClient->set_event(m_hPhysicalEvent.get()); failed(status)) return status;
  return m_pAudioClient->start();
}

void CRenderInterface::PhysicalEndpointClose() {
  if (m_pAudioClient) m_pAudioClient->stop();
  m_pRenderClient.reset();
}

std::int32_t CRenderInterface::Step() {
  const WaitResult woken = WaitForStep();
  if (woken.index == kVirtualTransfer) return VirtualTransferDone();
  if (woken.index == kPhysicalEvent) return PhysicalRoomReady();
  return 0;
}

std::int32_t CRenderInterface::VirtualTransferDone() {
  trace(TraceLevel::debug, "[ren] received data from virtual speaker\n");
  std::int32_t result = 1;
  StatisticsCounter::add(m_counter.virtual_transfers);
  IOBuffer& buffer = DueIOBuffer();
  if (!buffer.GetResult(nullptr, true)) {
    trace(TraceLevel::error, "[ren] virtual stream error. %lu\n", static_cast<unsigned long>(buffer.LastError()));
    return 0;
  }
  const auto data = buffer.Data();
  const std::size_t room = m_ring.FreeSize();
  if (room < data.size()) {
    StatisticsCounter::add(m_counter.overruns);
    result = 0;
  }
  m_ring.Write(data.data(), std::min(room, data.size()));
  if (!ReleaseCurrentIOBuffer()) {
    trace(TraceLevel::error, "[ren] ReleaseCurrentIOBuffer failed.\n");
    result = 0;
  }
  if (!m_bPlaying && m_ring.ValidSize() >= m_format.nSamplesPerSec * kLeadMs * m_format.nBlockAlign / 1000) {
    m_bPlaying = true;
    m_targetGain = 1.0f;
    m_currentGain = 0.0f;
  }
  return result;
}

std::int32_t CRenderInterface::PhysicalRoomReady() {
  trace(TraceLevel::debug, "[ren] send data to physical speaker\n");
  std::uint32_t size = 0;
  std::uint32_t padding = 0;
  std::byte* data = nullptr;
  if (failed(m_pAudioClient->buffer_size(size)) || failed(m_pAudioClient->current_padding(padding)) ||
      failed(m_pRenderClient->get_buffer(size - padding, data))) {
    return 0;
  }
  StatisticsCounter::add(m_counter.physical_packets);
  const std::uint32_t frames = size - padding;
  std::uint32_t flags = 0;
  std::int32_t result = FillPacket(data, frames, flags);
  if (failed(m_pRenderClient->release_buffer(frames, flags))) result = 0;
  if (result == 1) UpdateFeedback();
  return result;
}

std::int32_t CRenderInterface::FillPacket(std::byte* data, std::uint32_t frames, std::uint32_t& flags) {
  const std::size_t bytes = std::size_t{frames} * m_format.nBlockAlign;
  if (!m_bPlaying) {
    flags |= kBufferSilent;
    return 1;
  }
  if (m_ring.ValidSize() < bytes) {
    trace(TraceLevel::warning, "[ren] ring buffer valid size is too small\n");
    trace(TraceLevel::info, "[ren] StreamState::idle\n");
    StatisticsCounter::add(m_counter.underruns);
    m_bPlaying = false;
    m_ring.WriteSilence(m_ring.ValidSize());
    flags |= kBufferSilent;
    return 0;
  }
  const double gap = std::fabs(double{m_targetGain} - double{m_currentGain});
  if (m_targetGain == 1.0f && gap < kGainTolerance) {
    m_ring.Read(data, bytes);
  } else if (m_targetGain == 0.0f && gap < kGainTolerance) {
    m_ring.WriteSilence(m_ring.ValidSize());
    flags |= kBufferSilent;
    return 1;
  } else {
    ReadRamped(data, frames);
  }
  m_counter.note_fill(static_cast<std::uint32_t>(m_ring.ValidSize() / m_format.nBlockAlign));
  return 1;
}

void CRenderInterface::ReadRamped(std::byte* data, std::uint32_t frames) {
  const std::size_t samples = std::size_t{frames} * m_format.nChannels;
  m_ring.Read(data, std::size_t{frames} * m_format.nBlockAlign);
  if (m_ramped.size() < samples) m_ramped.resize(samples);  // the endpoint's buffer has grown
  pcm_to_float(m_format.wBitsPerSample, data, m_ramped.data(), samples);
  gain_ramp(m_ramped.data(), frames, m_format.nChannels, m_targetGain, m_currentGain);
  float_to_pcm(m_format.wBitsPerSample, m_ramped.data(), data, samples);
  trace(TraceLevel::debug, "[ren] (%lu) m_currentGain: %lf (%lf)\n", static_cast<unsigned long>(frames),
        double{m_currentGain}, double{m_targetGain});
}

}  // namespace sonivo
