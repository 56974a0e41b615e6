#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "platform/control_requests.h"
#include "platform/machine.h"

namespace sonivo {

/// The process's only path to the driver's control device: numbered requests, and the driver's events.
///
/// Each request has one method of its name, which answers a non-zero number for success. It fails at once where the
/// handle that carries it is closed. Getters through the synchronous handle write 0 on failure, the others nothing;
/// setters trace theirs, so that callers may go on without looking. Any thread, but what can race is guarded by the
/// caller.
class CSonivoDriverAccess {
 public:
  explicit CSonivoDriverAccess(const Machine& machine);
  /// Waits for the end of a notice of the device that is under way.
  virtual ~CSonivoDriverAccess();
  CSonivoDriverAccess(const CSonivoDriverAccess&) = delete;
  CSonivoDriverAccess& operator=(const CSonivoDriverAccess&) = delete;

  /// Opens both handles to the first interface of this class.
  int InitDriverInfo(const Guid& interface_class);
  /// Why the latest InitDriverInfo could not open the interface that it found; error::kNone where it could, or found
  /// none.
  Error OpenError() const { return m_openError; }
  void CloseDriverHandles();
  /// Lets go of both handles without closing them for those who hold them still; the last of these closes them.
  void ClearDriverHandle();
  /// Null when closed.
  std::shared_ptr<Device> GetDriverHandle() const;
  std::shared_ptr<Device> GetDriverSyncHandle() const;

  /// Waits for the driver's next event. Only one thread at a time.
  int SetEventIoControl(control::EventRecord* record);
  int SetEventIoControl_Cancel();
  /// Takes the event from the request in flight, which is given up unless it is done.
  void CloseOverlappedHandle();

  int GetHeadphone(std::uint32_t* plugged);
  int GetSonivoDrvGeneration(std::uint32_t* value) { return GetSync(control::GetSonivoDrvGeneration, value); }
  int GetFunction(std::uint32_t* value) { return GetSync(control::GetFunction, value); }
  int GetGenerationMic(std::uint32_t* value) { return GetSync(control::GetGenerationMic, value); }
  int GetFunctionMic(std::uint32_t* value) { return GetSync(control::GetFunctionMic, value); }
  int GetAutoExit(std::uint32_t* value) { return GetSync(control::GetAutoExit, value); }

  int SetRenderEndpointId(const std::u16string& id) { return SetText(control::SetRenderEndpointId, id); }
  int GetRenderEndpointId(control::WireText& id, std::uint32_t* bytes) {
    return GetText(control::GetRenderEndpointId, id, bytes);
  }
  int SetCaptureEndpointId(const std::u16string& id) { return SetText(control::SetCaptureEndpointId, id); }
  int GetCaptureEndpointId(control::WireText& id, std::uint32_t* bytes) {
    return GetText(control::GetCaptureEndpointId, id, bytes);
  }

  int SetAutoMuteMTG(std::uint32_t value) { return SetSync(control::SetAutoMuteMTG, value); }
  int GetAutoMuteMTG(std::uint32_t* value) { return GetSync(control::NSV_GET_AUTO_MUTE_MTG, value); }

  int SetKeyboardCancelMTG(std::uint32_t value) { return SetSync(control::SetKeyboardCancelMTG, value); }
  int GetKeyboardCancelMTG(std::uint32_t* value) { return GetOverlapped(control::GetKeyboardCancelMTG, value); }
  int GetKeyboardCancel_UI_MTG(std::uint32_t* value) { return GetSync(control::NSV_GET_KEYCANSEL_UI_MTG, value); }

  int SetBeamformingMTG(std::uint32_t value) { return SetSync(control::SetBeamformingMTG, value); }
  int GetBeamformingMTG(std::uint32_t* value) { return GetOverlapped(control::GetBeamformingMTG, value); }
  int SetBeamforming_UI_MTG(std::uint32_t value) { return SetSync(control::NSV_SET_BEAMFORMING_UI_MTG, value); }
  int GetBeamforming_UI_MTG(std::uint32_t* value) { return GetSync(control::NSV_GET_BEAMFORMING_UI_MTG, value); }

  int SetAispeechenhanceMTG(std::uint32_t value) { return SetSync(control::SetAispeechenhanceMTG, value); }
  int GetAispeechenhanceMTG(std::uint32_t* value) { return GetOverlapped(control::GetAispeechenhanceMTG, value); }
  int GetAispeechenhance_UI_MTG(std::uint32_t* value) {
    return GetOverlapped(control::GetAispeechenhance_UI_MTG, value);
  }
  int SetAispeechenhanceModelNoMTG(std::uint32_t value) {
    return SetSync(control::SetAispeechenhanceModelNoMTG, value);
  }
  int GetAispeechenhanceModelNoMTG(std::uint32_t* value) {
    return GetOverlapped(control::GetAispeechenhanceModelNoMTG, value);
  }
  int SetAispeechenhanceRegistrationMTG(std::uint32_t value) {
    return SetSync(control::SetAispeechenhanceRegistrationMTG, value);
  }
  int GetAispeechenhanceRegistrationMTG(std::uint32_t* value) {
    return GetOverlapped(control::GetAispeechenhanceRegistrationMTG, value);
  }
  int SetAispeechenhanceSetAiModelMTG(std::uint32_t value) {
    return SetSync(control::SetAispeechenhanceSetAiModelMTG, value);
  }
  int GetAispeechenhanceSetAiModelMTG(std::uint32_t* value) {
    return GetOverlapped(control::GetAispeechenhanceSetAiModelMTG, value);
  }
  int SetAispeechenhanceSetAiModel_UI_MTG(std::uint32_t value) {
    return SetSync(control::SetAispeechenhanceSetAiModel_UI_MTG, value);
  }
  int GetAispeechenhanceSetAiModel_UI_MTG(std::uint32_t* value) {
    return GetOverlapped(control::GetAispeechenhanceSetAiModel_UI_MTG, value);
  }
  int GetAispeechenhanceRegDialog_Open_MTG(std::uint32_t* value) {
    return GetOverlapped(control::GetAispeechenhanceRegDialog_Open_MTG, value);
  }

  int SetAispeechenhanceWavFileMTG(const std::u16string& name) {
    return SetTextSync(control::SetAispeechenhanceWavFileMTG, name);
  }
  int GetAispeechenhanceWavFileMTG(control::WireText& name, std::uint32_t* bytes) {
    return GetTextSync(control::GetAispeechenhanceWavFileMTG, name, bytes);
  }
  int SetAispeechenhanceWavFolderMTG(const std::u16string& name) {
    return SetTextSync(control::SetAispeechenhanceWavFolderMTG, name);
  }
  int GetAispeechenhanceWavFolderMTG(control::WireText& name, std::uint32_t* bytes) {
    return GetTextSync(control::GetAispeechenhanceWavFolderMTG, name, bytes);
  }
  int SetAispeechenhanceText1MTG(const std::u16string& text) {
    return SetTextSync(control::SetAispeechenhanceText1MTG, text);
  }
  int GetAispeechenhanceText1MTG(control::WireText& text, std::uint32_t* bytes) {
    return GetTextSync(control::GetAispeechenhanceText1MTG, text, bytes);
  }
  int SetAispeechenhanceText2MTG(const std::u16string& text) {
    return SetTextSync(control::SetAispeechenhanceText2MTG, text);
  }
  int GetAispeechenhanceText2MTG(control::WireText& text, std::uint32_t* bytes) {
    return GetTextSync(control::GetAispeechenhanceText2MTG, text, bytes);
  }

  /// Meeting mode of the driver plus 1; 0 when it is off. Remembers both for the setters.
  int GetLaunchedMTG(std::uint32_t* mode);
  /// Mode of the driver plus 1, launched or not.
  int GetLaunchedMTGMode(std::uint32_t* mode);
  int SetLaunchedMTG(std::uint32_t mode);
  int SetLaunchedMTGOff(bool room_correction);
  /// Off without a change of the mode.
  int SetLaunchedMTGOff2() { return SetSync(control::NSV_SET_LAUNCHED_MTG, 0); }

  /// What the service tells of itself, to whoever asks the driver; it is forgotten with the handle. The driver's
  /// answer: error::kAccessDenied while another process is its service.
  Error PublishReport(const std::string& text);

 private:
  using Bytes = std::span<const std::byte>;
  using Room = std::span<std::byte>;
  /// One request with an event of its own; waits for the end of it.
  Error Overlap(const std::shared_ptr<Device>& handle, std::uint32_t code, Bytes input, Room output,
                Reset reset = Reset::automatic);
  /// Outcome of a request that was pending; on demand waits for it. One without an outcome is given up: nothing touches
  /// it, its buffers or its event any more.
  static Error Conclude(Device& device, Overlapped& request, bool wait);
  /// A request for an event, with what CloseOverlappedHandle ends it by.
  struct EventRequest {
    std::unique_ptr<Event> event;
    Overlapped overlapped;
  };
  /// Whether CloseOverlappedHandle has left it alone.
  bool InFlight(const EventRequest& request) const;
  /// One request through the synchronous handle.
  Error Synchronous(std::uint32_t code, Bytes input, Room output) const;
  int GetSync(std::uint32_t code, std::uint32_t* value);
  int GetOverlapped(std::uint32_t code, std::uint32_t* value);
  int SetSync(std::uint32_t code, std::uint32_t value);
  int SetText(std::uint32_t code, const std::u16string& text) { return PutText(GetDriverHandle(), code, text); }
  int SetTextSync(std::uint32_t code, const std::u16string& text) { return PutText(GetDriverSyncHandle(), code, text); }
  int GetText(std::uint32_t code, control::WireText& text, std::uint32_t* bytes) {
    return TakeText(GetDriverHandle(), code, text, bytes);
  }
  int GetTextSync(std::uint32_t code, control::WireText& text, std::uint32_t* bytes) {
    return TakeText(GetDriverSyncHandle(), code, text, bytes);
  }
  int PutText(const std::shared_ptr<Device>& handle, std::uint32_t code, const std::u16string& text);
  int TakeText(const std::shared_ptr<Device>& handle, std::uint32_t code, control::WireText& text,
               std::uint32_t* bytes);

  void Set_CM_Register_Notification();
  /// Has another thread end the notice; answers it when there is none to be had. With m_csHandles held.
  std::unique_ptr<Registration> SubmitThreadpoolWork_job(std::unique_ptr<Registration> notify);
  std::uint32_t DeviceCallback(DeviceAction action);

  Machine m_machine;
  mutable std::mutex m_csHandles;  // closed by others while requests are under way, which hold references of their own
  std::string m_szDevicePath;
  std::shared_ptr<Device> m_hDriver;
  std::shared_ptr<Device> m_hDriverSync;
  std::shared_ptr<EventRequest> m_overlapped;  // in flight
  std::unique_ptr<Registration> m_hNotify;
  std::uint64_t m_notifyNumber = 0;  // of the latest m_hNotify, as another may have come while handles were closed
  std::vector<std::unique_ptr<Thread>> m_works;  // that end registrations
  std::atomic<Error> m_openError{error::kNone};
  std::atomic<std::uint32_t> m_mode{0};
  std::atomic<std::uint32_t> m_blaunched{0};
};

}  // namespace sonivo
