#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/machine.h"
#include "relay/capture_interface.h"
#include "relay/chains.h"
#include "relay/render_interface.h"

namespace sonivo {

/// How RegNotifyThread ended.
enum class RegNotifyStatus : std::int32_t {
  running = -1,
  stopped = 0,
  no_param_size = 1,
  no_parameters = 2,
  no_endpoint_id = 3,
  no_store = 4,
  no_event = 5,
  watch_failed = 6,
  parameters_lost = 7,
  wait_failed = 8,
};

/// The one object that the host talks to: owns both streams, follows the machine's default endpoints and the parameters
/// in the effect-property store, and forwards the host's settings.
class CAudioControl final : public IMMNotificationClient {
 public:
  explicit CAudioControl(const Machine& machine, ChainFactory make_chains = MakeChains);
  /// Stops a relay that was started.
  ~CAudioControl();
  CAudioControl(const CAudioControl&) = delete;
  CAudioControl& operator=(const CAudioControl&) = delete;

  // IMMNotificationClient
  Status QueryInterface(const Guid& iid, void** object) override;
  std::uint32_t AddRef() override { return ++m_refCount; }
  /// Deletes the object when the count comes to 0.
  std::uint32_t Release() override;
  Status OnDeviceStateChanged(const std::string&, std::uint32_t) override { return kOk; }
  Status OnDeviceAdded(const std::string&) override { return kOk; }
  Status OnDeviceRemoved(const std::string&) override { return kOk; }
  Status OnDefaultDeviceChanged(DataFlow flow, Role role, const std::string& id) override;
  Status OnPropertyValueChanged(const std::string&, const PropertyKey&) override { return kOk; }

  /// Any thread, any time: which notebook this is.
  void SetGenAndFunction(std::uint32_t generation, std::uint32_t function, std::uint32_t generation_mic,
                         std::uint32_t function_mic);
  void SetMuteWindow(WindowHandle window);
  /// Events of the host: the first is set when a default device changes. They stay until another call replaces them or
  /// takes them back with null.
  void SetHostEvents(Event* default_changed, Event* stop_change_thread);

  void Start();
  void Stop();

  /// Endpoint of a direction; an empty id means: follow the machine's default. A running stream moves only when the id
  /// differs, or always with force.
  Status SetEndpoint(DataFlow flow, const std::string& id) { return SetEndpoint(flow, id, false); }
  Status SetEndpointForce(DataFlow flow, const std::string& id) { return SetEndpoint(flow, id, true); }

  /// The window got a device-change message.
  void OnDeviceChange(std::uint32_t wParam, const DeviceBroadcast* header);

  Status SetMuteAction(bool mute) { return static_cast<IVolumeControl&>(m_Capture).SetMuteAction(mute); }
  Status CheckDeviceName(std::string_view text) {
    return static_cast<IVolumeControl&>(m_Capture).CheckDeviceName(text);
  }

  // Settings of the capture stream.
  void UpdateKeyCancelState(bool on) { m_Capture.UpdateKeyCancelState(on); }
  void UpdateBeamFormingKeyCancelState(bool on) { m_Capture.UpdateBeamFormingKeyCancelState(on); }
  void UpdateBeamFormingState(bool on) { m_Capture.UpdateBeamFormingState(on); }
  void UpdateAISpeechEnhanceBeamFormingKeyCancelState(bool on) {
    m_Capture.UpdateAISpeechEnhanceBeamFormingKeyCancelState(on);
  }
  void UpdateAISpeechEnhanceBeamFormingState(bool on) { m_Capture.UpdateAISpeechEnhanceBeamFormingState(on); }
  void UpdateAISpeechEnhanceState(bool on) { m_Capture.UpdateAISpeechEnhanceState(on); }
  int UpdateAISpeechEnhanceSetAiModelState(bool on) { return m_Capture.UpdateAISpeechEnhanceSetAiModelState(on); }
  void ChangeKeyCancelState(bool on) { m_Capture.ChangeKeyCancelState(on); }
  void ChangeBeamFormingKeyCancelState(bool on) { m_Capture.ChangeBeamFormingKeyCancelState(on); }
  void ChangeBeamFormingState(bool on) { m_Capture.ChangeBeamFormingState(on); }
  void ChangeAISpeechEnhanceBeamFormingKeyCancelState(bool on) {
    m_Capture.ChangeAISpeechEnhanceBeamFormingKeyCancelState(on);
  }
  void ChangeAISpeechEnhanceBeamFormingState(bool on) { m_Capture.ChangeAISpeechEnhanceBeamFormingState(on); }
  void ChangeAISpeechEnhanceState(bool on) { m_Capture.ChangeAISpeechEnhanceState(on); }
  void ChangeAISpeechEnhanceSetAiModelState(bool on) { m_Capture.ChangeAISpeechEnhanceSetAiModelState(on); }
  void SetAISpeechEnhanceModelNo(std::int32_t no) { m_Capture.SetAISpeechEnhanceModelNo(no); }
  void SetAISpeechEnhancePmodel(const char* path) { m_Capture.SetAISpeechEnhancePmodel(path); }
  void SetAISpeechEnhanceWavFile(const char* path) { m_Capture.SetAISpeechEnhanceWavFile(path); }
  Status SetAISpeechEnhanceOpen() { return m_Capture.SetAISpeechEnhanceOpen(); }
  Status SetAISpeechEnhanceClose() { return m_Capture.SetAISpeechEnhanceClose(); }
  int MakeAISpeechEnhanceModel(bool arg) { return m_Capture.MakeAISpeechEnhanceModel(arg); }
  int QuitAISpeechEnhanceModel() { return m_Capture.QuitAISpeechEnhanceModel(); }

  CStreamInterface& Stream(DataFlow flow);
  StreamStatistics CaptureStatistics() const { return m_Capture.Statistics(); }
  StreamStatistics RenderStatistics() const { return m_Render.Statistics(); }
  ChainKind RunningChain() const { return m_Capture.RunningChain(); }
  ChainFault LatestChainFault() const { return m_Capture.LatestChainFault(); }
  RegNotifyStatus RegNotifyResult() const { return m_regNotifyStatus; }

 private:
  Status SetEndpoint(DataFlow flow, const std::string& id, bool force);
  /// Id of the machine's default endpoint; fails, leaving `id` empty, when that is the virtual one.
  Status DefaultEndpointId(DataFlow flow, std::string& id);
  Status MoveStream(DataFlow flow, const std::string& id, bool force);
  std::atomic<bool>& FollowsDefault(DataFlow flow);

  RegNotifyStatus RegNotifyThread();
  /// Parameters of the gated chain as they are stored now; false when they can't be read.
  bool ReadParameters(std::vector<std::byte>& blob) const;

  Machine m_machine;
  ChainFactory m_makeChains;
  std::mutex m_csHostEvents;
  std::array<Event*, 2> m_hEvent{};
  WindowHandle m_hWnd = WindowHandle::none;
  CCaptureInterface m_Capture;
  CRenderInterface m_Render;
  std::atomic<std::uint32_t> m_refCount{1};
  bool m_started = false;
  std::unique_ptr<Event> m_hRegNotifyStopEvent;
  std::unique_ptr<Thread> m_hRegNotifyThread;
  std::atomic<RegNotifyStatus> m_regNotifyStatus{RegNotifyStatus::running};
  std::atomic<bool> m_bCaptureFollowsDefault{false};
  std::atomic<bool> m_bRenderFollowsDefault{false};
  std::atomic<std::uint32_t> m_Function{0};
  std::atomic<std::uint32_t> m_dwGeneration{0};
  std::atomic<std::uint32_t> m_FunctionMic{0};
  std::atomic<std::uint32_t> m_dwGenerationMic{0};
};

}  // namespace sonivo
