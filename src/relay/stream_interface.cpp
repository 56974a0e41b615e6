#include "relay/stream_interface.h"

#include <utility>

#include "base/trace.h"
#include "relay/console_session.h"
#include "relay/endpoint_names.h"
#include "relay/feedback.h"
#include "relay/virtual_device.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kAbsentPauseMs = 1000;  // no virtual device, or not our session
constexpr std::uint32_t kRetryPauseMs = 100;    // physical endpoint would not open
constexpr float kNoSavedVolume = -1.0f;

}  // namespace

const char* StateName(StreamState state) {
  switch (state) {
    case StreamState::eWaitVirtualDriver:
      return "eWaitVirtualDriver";
    case StreamState::eWaitVirtualStream:
      return "eWaitVirtualStream";
    case StreamState::eVirtualStreaming:
      return "eVirtualStreaming";
    case StreamState::ePhysicalStreaming:
      return "ePhysicalStreaming";
  }
  return "";
}

CStreamInterface::CStreamInterface(const Machine& machine, DataFlow flow)
    : m_machine(machine),
      m_bCapture(flow == DataFlow::capture),
      m_hPhysicalEvent(machine.events.create(Reset::automatic)),
      m_ring(machine.clock),
      m_physical(machine.endpoints, flow, this),
      m_hStopEvent(machine.events.create(Reset::automatic)),
      m_volumeCallback(true, this) {}

void CStreamInterface::Detach() {
  Stop();
  m_physical.SetEndpoint({});
  UnhookVirtualVolume();
}

Status CStreamInterface::Start() {
  if (!m_hStopEvent || !m_hPhysicalEvent) return kFail;
  m_bStop = false;
  m_hStopEvent->reset();
  m_hThread = m_machine.threads.start(m_bCapture ? "capture" : "render", [this] { Run(); });
  return m_hThread ? kOk : kFail;
}

void CStreamInterface::Stop() {
  m_bStop = true;
  RequestRestart();
  CloseVirtualDevice();
  if (m_hThread) m_hThread->join();
  m_hThread.reset();
  CloseVirtualDevice();  // the thread may have opened it once more before it saw the flag
}

// Both copies change under one lock: of two callers, one has its way in both.
Status CStreamInterface::SetEndpointId(const std::string& id) {
  const std::lock_guard lock(m_csEndpointId);
  if (id != m_endpointId) m_bOpeningFailed = false;
  m_endpointId = id;
  return m_physical.SetEndpoint(id);
}

std::string CStreamInterface::EndpointId() const {
  const std::lock_guard lock(m_csEndpointId);
  return m_endpointId;
}

StreamStatistics CStreamInterface::Statistics() const {
  StreamStatistics statistics = m_counter.Snapshot();
  const std::uint32_t minimum = m_ring.MinValidSize();
  const std::uint16_t block_align = Format().nBlockAlign;
  if (minimum != RingBuffer::kNoMinimum && block_align != 0) statistics.ring_minimum = minimum / block_align;
  return statistics;
}

void CStreamInterface::OnDeviceChange(std::uint32_t wParam, const DeviceBroadcast* header) {
  if (wParam != kDeviceQueryRemove || header == nullptr || header->devicetype != kDeviceTypeHandle) return;
  {
    const std::lock_guard lock(m_csDevice);
    if (!m_hDevice || header->handle != m_hDevice.get()) return;
    m_bRemovalQueried = true;
    m_hDevNotify.reset();
  }
  RequestRestart();
}

void CStreamInterface::Run() {
  std::optional<StreamState> state = StreamState::eWaitVirtualDriver;
  while (state && !m_bStop) {
    Enter(*state);
    switch (*state) {
      case StreamState::eWaitVirtualDriver:
        state = WaitVirtualDriver();
        break;
      case StreamState::eWaitVirtualStream:
        state = WaitVirtualStream();
        break;
      case StreamState::eVirtualStreaming:
        state = VirtualStreaming();
        break;
      case StreamState::ePhysicalStreaming:
        state = PhysicalStreaming();
        break;
    }
  }
  if (state == StreamState::ePhysicalStreaming) LeavePhysicalEndpoint();  // stopped between the opening and the audio
}

void CStreamInterface::Enter(StreamState state) {
  m_streamState = state;
  trace(TraceLevel::debug, "%s %s\n", Prefix(), StateName(state));
}

std::optional<StreamState> CStreamInterface::WaitVirtualDriver() {
  if (!IsConsoleSession() || !OpenVirtualDevice()) {
    m_machine.clock.sleep_ms(kAbsentPauseMs);
    return StreamState::eWaitVirtualDriver;
  }
  if (failed(HookVirtualVolume())) return std::nullopt;
  return StreamState::eWaitVirtualStream;
}

bool CStreamInterface::IsConsoleSession() {
  const SessionState session = ConsoleSession(m_machine);
  if (session == SessionState::unknown) trace(TraceLevel::error, "%s ProcessIdToSessionId err.\n", Prefix());
  if (session == SessionState::inactive) trace(TraceLevel::info, "%s Not active session\n", Prefix());
  return session == SessionState::active;
}

bool CStreamInterface::OpenVirtualDevice() {
  const auto path = FindVirtualDevicePath(m_machine.bus, Flow());
  Error why = error::kNone;
  if (path)
    m_machine.bus.open(*path, Sharing::shared, Completion::overlapped, why)
        .reset();  // a first touch; its outcome means nothing
  CloseVirtualDevice();
  if (!path) return false;

  auto device = m_machine.bus.open(*path, Sharing::exclusive, Completion::overlapped, why);
  if (!device) return false;

  const DeviceBroadcast broadcast{.devicetype = kDeviceTypeHandle, .handle = device.get()};
  {
    const std::lock_guard lock(m_csDevice);
    m_hDevice = std::move(device);
    m_bRemovalQueried = false;
  }
  auto notice = m_machine.bus.notify_removal(broadcast, m_hWnd);
  if (!notice) {
    trace(TraceLevel::error, "[%s] RegisterDeviceNotification failed.\n", Prefix());
    return false;
  }
  const std::lock_guard lock(m_csDevice);
  const bool still_there = m_hDevice && !m_bRemovalQueried;  // else there was no notice to drop yet
  if (still_there) m_hDevNotify = std::move(notice);
  return true;
}

void CStreamInterface::CloseVirtualDevice() {
  std::shared_ptr<Device> device;
  std::unique_ptr<RemovalNotice> notice;
  {
    const std::lock_guard lock(m_csDevice);
    device = std::move(m_hDevice);
    notice = std::move(m_hDevNotify);
  }
  notice.reset();
  if (device) device->close();
}

std::shared_ptr<Device> CStreamInterface::VirtualDevice() const {
  const std::lock_guard lock(m_csDevice);
  return m_hDevice;
}

StreamState CStreamInterface::WaitVirtualStream() {
  WAVEFORMATEXTENSIBLE format;
  IOBuffer request;
  request.BindDevice(m_machine.events, VirtualDevice());
  if (!request.WaitStream(format)) {
    trace(TraceLevel::info, "%s IOBuffer::WaitStream failed. %lu\n", Prefix(),
          static_cast<unsigned long>(request.LastError()));
    return StreamState::eWaitVirtualDriver;
  }
  const std::lock_guard lock(m_csFormat);
  m_format = format;
  return StreamState::eVirtualStreaming;
}

StreamState CStreamInterface::VirtualStreaming() {
  const auto give_up = [this] {
    m_bOpeningFailed = true;
    m_physical.ClearState();
    m_machine.clock.sleep_ms(kRetryPauseMs);
    return StreamState::eWaitVirtualDriver;
  };

  m_savedVolume = kNoSavedVolume;
  if (EndpointId().empty()) {
    trace(TraceLevel::info, "%s eWaitVirtualDriver. no endpoint id\n", Prefix());
    m_bOpeningFailed = true;
    m_machine.clock.sleep_ms(kRetryPauseMs);
    return StreamState::eWaitVirtualDriver;
  }
  m_physical.MarkOpen();
  if (!IsConsistent(m_format)) return give_up();
  if (failed(ActivateAudioClient())) {
    m_pAudioClient.reset();
    return give_up();
  }
  if (failed(PhysicalEndpointOpen())) {
    PhysicalEndpointClose();
    CloseAudioClient();
    return give_up();
  }
  PostRecordingState(true);
  if (m_hWnd.load() == WindowHandle::none) {
    trace(TraceLevel::error, "%s eWaitVirtualDriver FindWindow error!!\n", Prefix());
  }
  InitMuteState();
  m_bOpeningFailed = false;
  return StreamState::ePhysicalStreaming;
}

StreamState CStreamInterface::PhysicalStreaming() {
  const std::uint64_t audio_class = m_machine.threads.enter_audio_class();
  if (!failed(SetupIOBuffers())) {
    StatisticsCounter::add(m_counter.streams);
    while (Step() != 0 && !m_physical.IsChangePending()) {
    }
  }
  trace(TraceLevel::info, "%s stream stopped\n", Prefix());
  LeavePhysicalEndpoint();
  if (audio_class != 0) m_machine.threads.leave_audio_class(audio_class);
  return StreamState::eWaitVirtualDriver;
}

void CStreamInterface::LeavePhysicalEndpoint() {
  RestoreMuteState();
  PhysicalEndpointClose();
  CloseAudioClient();
  m_physical.ClearState();
  PostRecordingState(false);
}

Status CStreamInterface::ActivateAudioClient() {
  const auto device = m_physical.GetDevice();
  if (!device) return status_from_error(error::kNotFound);
  if (const Status status = device->activate_audio_client(m_pAudioClient); failed(status)) {
    trace(TraceLevel::error, "%s IMMDevice::Activate failed.\n", Prefix());
    return status;
  }
  if (!m_bCapture) return kOk;
  if (const Status status = m_physical.GetVolumeLevel(m_savedVolume); failed(status)) {
    trace(TraceLevel::error, "%s CPhysicalDevice::GetVolumeLevel failed.\n", Prefix());
    return status;
  }
  if (const Status status = m_physical.SetVolumeLevel(PhysicalLevel(), nullptr); failed(status)) {
    trace(TraceLevel::error, "%s CPhysicalDevice::SetVolumeLevel failed.\n", Prefix());
    return status;
  }
  return kOk;
}

void CStreamInterface::CloseAudioClient() {
  if (m_savedVolume >= 0.0f) m_physical.SetVolumeLevel(m_savedVolume, nullptr);
  m_pAudioClient.reset();
}

Status CStreamInterface::SetupIOBuffers() {
  std::uint32_t period = 0;
  if (const Status status = GetVirtualEndpointPeriod(m_machine.endpoints, Flow(), period); failed(status)) {
    return status;
  }
  trace(TraceLevel::info, "%s virtual endpoint current period in frames:%u\n", Prefix(), period);

  constexpr std::size_t kRingPeriods = 10;
  m_ring.Allocate(std::size_t{m_format.nBlockAlign} * period * kRingPeriods);
  m_ioIndex = 0;
  m_ioBufferCount = GetIOBufferCount();
  m_ioBuffers = std::make_unique<IOBuffer[]>(m_ioBufferCount);
  const auto device = VirtualDevice();
  for (std::size_t i = 0; i < m_ioBufferCount; ++i) {
    IOBuffer& buffer = m_ioBuffers[i];
    buffer.BindDevice(m_machine.events, device);
    buffer.Allocate(std::size_t{m_format.nBlockAlign} * GetIOBufferFrames(period));
    if (m_bCapture) buffer.Fill(std::byte{0});
    if (!SubmitIOBuffer(buffer)) {
      trace(TraceLevel::error, "%s I/O request error. (%#lx)\n", Prefix(),
            static_cast<unsigned long>(buffer.LastError()));
      return kFail;
    }
  }
  m_feedbackRequest.BindDevice(m_machine.events, device);
  return kOk;
}

WaitResult CStreamInterface::WaitForStep() {
  const std::array<Event*, 3> events{DueIOBuffer().DoneEvent(), m_hPhysicalEvent.get(), m_hStopEvent.get()};
  return m_machine.events.wait_any(events);
}

bool CStreamInterface::ReleaseCurrentIOBuffer() {
  const bool submitted = SubmitIOBuffer(DueIOBuffer());
  m_ioIndex = (m_ioIndex + 1) % m_ioBufferCount;
  return submitted;
}

void CStreamInterface::UpdateFeedback() {
  const std::uint32_t low = BytesOfMs(GetMinRingMs());
  const std::uint32_t high = BytesOfMs(GetMaxRingMs());
  const std::int32_t value = feedback_value(Flow(), m_ring.MinValidSize(), low, high);
  if (value == m_feedback) return;
  m_feedback = value;
  m_counter.note_feedback(value);
  trace(TraceLevel::debug, "%s feedback %ld\n", Prefix(), static_cast<long>(value));
  m_feedbackRequest.SetFeedback(value);
}

void CStreamInterface::PostRecordingState(bool on) {
  const WindowHandle window = m_hWnd;
  if (window == WindowHandle::none) return;
  m_machine.desktop.post_message(window, on ? WM_MIC_REC_ON : WM_MIC_REC_OFF, on ? 1 : 0);
}

}  // namespace sonivo
