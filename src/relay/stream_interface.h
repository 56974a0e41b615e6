#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/machine.h"
#include "relay/io_buffer.h"
#include "relay/physical_device.h"
#include "relay/ring_buffer.h"
#include "relay/statistics_counter.h"
#include "relay/volume_callback.h"

namespace sonivo {

constexpr std::int64_t kPeriod100ns = 100000;  ///< 10 ms: of the physical streams

/// Messages to the mute window.
inline constexpr std::uint32_t WM_MIC_MUTE_STATE = 0x8000;  ///< wParam 1 muted, 0 not
inline constexpr std::uint32_t WM_MIC_REC_ON = 0x8001;      ///< wParam 1: physical streaming began
inline constexpr std::uint32_t WM_MIC_REC_OFF = 0x8001;     ///< wParam 0: it ended; the number is the same

enum class StreamState {
  eWaitVirtualDriver,  ///< find and open the virtual device
  eWaitVirtualStream,  ///< block until a client streams on the virtual endpoint
  eVirtualStreaming,   ///< open the physical endpoint
  ePhysicalStreaming,  ///< transfer audio
};

/// The state's name, "eWaitVirtualDriver" and so on.
const char* StateName(StreamState state);

/// One direction of the relay: a thread that walks the four states for ever. Whatever fails on the way leads back to
/// the first one. Derived classes open the physical endpoint and move the audio.
class CStreamInterface : public IMultiAudioEndpointVolumeCallback {
 public:
  CStreamInterface(const Machine& machine, DataFlow flow);
  /// The derived class has called Detach.
  virtual ~CStreamInterface() = default;
  CStreamInterface(const CStreamInterface&) = delete;
  CStreamInterface& operator=(const CStreamInterface&) = delete;

  /// Starts the thread; failed when the machine has none, or has no events.
  Status Start();
  /// Ends the thread and waits for that without limit; does nothing when it isn't started.
  void Stop();

  /// Physical endpoint to use, none when the id is empty. A running stream moves over to it.
  Status SetEndpointId(const std::string& id);
  std::string EndpointId() const;
  /// Leaves the streaming state, so that all is opened anew; the thread goes on.
  void RequestRestart() {
    if (m_hStopEvent) m_hStopEvent->set();
  }
  /// The window got a device-change message: lets go of the device when it is asked to go away.
  void OnDeviceChange(std::uint32_t wParam, const DeviceBroadcast* header);

  void SetMuteWindow(WindowHandle window) { m_hWnd = window; }
  StreamState State() const { return m_streamState; }
  /// Whether the latest opening of the present physical endpoint failed.
  bool OpeningFailed() const { return m_bOpeningFailed; }
  StreamStatistics Statistics() const;
  /// Of the present stream, or of the last one; 0 before there was any.
  std::uint32_t SampleRate() const { return Format().nSamplesPerSec; }

  void OnNotify(CAudioEndpointVolumeCallback* callback, const AUDIO_VOLUME_NOTIFICATION_DATA* data) override;

 protected:
  /// For the destructor of a derived class: stops the stream and takes back all callbacks while the object is whole.
  void Detach();

  /// What a stream thread waits for, in this order.
  enum WaitIndex : std::size_t { kVirtualTransfer = 0, kPhysicalEvent = 1, kStopRequest = 2 };

  virtual std::size_t GetIOBufferCount() const { return 4; }
  virtual std::uint32_t GetIOBufferFrames(std::uint32_t period) const { return period; }
  virtual std::uint32_t GetMinRingMs() const { return 10; }
  virtual std::uint32_t GetMaxRingMs() const { return 20; }
  /// Level that the physical microphone is set to while it streams.
  virtual float PhysicalLevel() const = 0;
  virtual Status PhysicalEndpointOpen() = 0;
  virtual void PhysicalEndpointClose() = 0;
  /// One wake-up of the streaming state; 0 ends it, any other value goes on.
  virtual std::int32_t Step() = 0;

  WaitResult WaitForStep();
  IOBuffer& DueIOBuffer() { return m_ioBuffers[m_ioIndex]; }
  /// Resubmits the due buffer and turns to the next one.
  bool ReleaseCurrentIOBuffer();
  /// Turns the ring's minimum into the clock feedback and sends it when it changed.
  void UpdateFeedback();
  /// Frames and bytes of `ms` milliseconds of the stream, in whole frames.
  std::uint32_t FramesOfMs(std::uint32_t ms) const { return m_format.nSamplesPerSec * ms / 1000; }
  std::uint32_t BytesOfMs(std::uint32_t ms) const { return m_format.nBlockAlign * FramesOfMs(ms); }
  /// The stream's format for other threads than its own.
  WAVEFORMATEXTENSIBLE Format() const {
    const std::lock_guard lock(m_csFormat);
    return m_format;
  }
  const char* Prefix() const { return m_bCapture ? "[cap]" : "[ren]"; }

  Machine m_machine;
  const bool m_bCapture;
  std::atomic<WindowHandle> m_hWnd{WindowHandle::none};
  std::unique_ptr<Event> m_hPhysicalEvent;  // outlives the client that sets it
  std::unique_ptr<AudioClient> m_pAudioClient;
  WAVEFORMATEXTENSIBLE m_format;  // written by the thread, under m_csFormat
  mutable std::mutex m_csFormat;
  RingBuffer m_ring;
  CPhysicalDevice m_physical;
  StatisticsCounter m_counter;

 private:
  DataFlow Flow() const { return m_bCapture ? DataFlow::capture : DataFlow::render; }
  void Run();
  void Enter(StreamState state);

  // The states; each answers the one that follows, or none when the thread is to end.
  std::optional<StreamState> WaitVirtualDriver();
  StreamState WaitVirtualStream();
  StreamState VirtualStreaming();
  StreamState PhysicalStreaming();

  bool IsConsoleSession();
  bool OpenVirtualDevice();
  void CloseVirtualDevice();
  std::shared_ptr<Device> VirtualDevice() const;
  Status HookVirtualVolume();
  std::shared_ptr<EndpointVolume> VirtualVolume() const;
  Status ActivateAudioClient();
  void CloseAudioClient();
  Status SetupIOBuffers();
  bool SubmitIOBuffer(IOBuffer& buffer) { return m_bCapture ? buffer.SubmitWrite() : buffer.SubmitRead(); }
  void LeavePhysicalEndpoint();
  void UnhookVirtualVolume();
  void PostRecordingState(bool on);
  void InitMuteState();
  void RestoreMuteState();

  std::atomic<bool> m_bStop{true};
  std::unique_ptr<Thread> m_hThread;
  std::atomic<StreamState> m_streamState{StreamState::eWaitVirtualDriver};
  std::atomic<bool> m_bOpeningFailed{false};
  std::unique_ptr<Event> m_hStopEvent;

  mutable std::mutex m_csDevice;  // the thread opens and closes, others close
  std::shared_ptr<Device> m_hDevice;
  bool m_bRemovalQueried = false;  // m_hDevice was asked to go away
  std::unique_ptr<RemovalNotice> m_hDevNotify;

  mutable std::mutex m_csEndpointId;
  std::string m_endpointId;

  std::size_t m_ioIndex = 0;
  std::size_t m_ioBufferCount = 0;
  std::unique_ptr<IOBuffer[]> m_ioBuffers;
  std::int32_t m_feedback = 0;
  IOBuffer m_feedbackRequest;  // stays, as nobody waits for it
  float m_savedVolume = -1.0f;

  // Handshake between the stream, which re-hooks the virtual endpoint, and notifications of the physical one.
  enum VolumeSync : std::uint32_t { kSyncIdle = 0, kSyncHooking = 1, kSyncApplying = 2, kSyncApplied = 3 };
  std::atomic<std::uint32_t> m_volumeSyncState{kSyncIdle};
  std::atomic<bool> m_lastMute{false};
  bool m_savedMute = false;
  CAudioEndpointVolumeCallback m_volumeCallback;
  mutable std::mutex m_csVirtualVolume;
  std::shared_ptr<EndpointVolume> m_pVirtualVolume;
};

}  // namespace sonivo
