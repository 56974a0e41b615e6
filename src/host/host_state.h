#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "host/critical_section.h"
#include "host/driver_access.h"
#include "host/driver_notes.h"
#include "host/event_pair.h"
#include "host/last_trouble.h"
#include "platform/machine.h"
#include "relay/audio_control.h"
#include "relay/console_session.h"
#include "relay/gates.h"

namespace sonivo {

/// A number or flag that threads share by plain loads and stores: each has few writers and is polled, so that a late
/// view costs one round of a loop.
using SharedValue = std::atomic<std::uint32_t>;

/// Why the service leaves its driver alone.
enum class Pause { none, locked, asleep };

/// The one set of variables of the process, shared by all threads and window procedures. Threads hold on to it: one
/// that was abandoned runs on beside its successor, and may outlive the entry.
struct HostState : std::enable_shared_from_this<HostState> {
  explicit HostState(const Machine& its_machine, ChainFactory make_chains = MakeChains)
      : machine(its_machine),
        m_csDriver(its_machine.events),
        m_DriverAccess(its_machine),
        m_AudioControl(its_machine, std::move(make_chains)),
        m_csReport(its_machine.events) {}

  Machine machine;

  SharedValue m_bThreadExit = 0;         ///< MainThread and SubThread leave their loops; the threads want a reboot
  SharedValue m_bSonivoServiceLock = 0;  ///< suspend, lock or shut-down: MainThread keeps off the driver
  SharedValue m_bDriverReady = 0;        ///< first-connection work is done
  SharedValue m_bModernStandby = 0;      ///< connected standby
  SharedValue m_dwMonitorStatus = 0;     ///< kDisplayOff, kDisplayOn or kDisplayDimmed
  SharedValue m_dwGeneration = 0;        ///< of the notebook
  SharedValue m_Function = 0;            ///< of the meeting panel
  SharedValue m_dwGenerationMic = 0;
  SharedValue m_FunctionMic = 0;
  SharedValue m_RoomCorrection = 0;
  SharedValue m_bModeChangeRequest = 0;  ///< of the panel to SubThread
  SharedValue m_dwHeadPhone = 0;
  SharedValue m_bMicDeviceDirty = 0;    ///< deviceNameChange has something to conclude
  SharedValue m_dwSubThreadRounds = 0;  ///< of SubThread's loop, for who watches that it goes on

  std::atomic<std::int32_t> m_iMeetingMode = 0;     ///< shown
  std::atomic<std::int32_t> m_iMeetingModeTmp = 0;  ///< being chosen
  std::atomic<std::int32_t> m_iMeetingModeCur = 0;  ///< committed

  // The panel, of the entry thread.
  std::int32_t m_iHoverPos = 0;
  std::uint32_t m_bPressed = 0;
  std::uint32_t m_bHover = 0;
  SharedValue m_bFocusFrame = 0;
  std::unique_ptr<Bitmap> m_hPanelBitmap;
  Size m_panelBitmapSize;
  std::mutex m_csHooks;
  std::unique_ptr<Registration> m_hHookWnd;
  std::unique_ptr<Registration> m_hKeyHookWnd;

  // What the entry asked the machine for.
  std::unique_ptr<Registration> m_hSuspendResume;
  std::unique_ptr<Registration> m_hPowerSetting;
  std::unique_ptr<Registration> m_hSessionNotify;

  // The mute window.
  SharedValue m_dwAutoMute = 0;
  SharedValue m_bRecording = 0;
  SharedValue m_bAutoMuteOff = 0;

  std::atomic<WindowHandle> m_hWnd = WindowHandle::none;
  std::atomic<WindowHandle> m_hMuteWnd = WindowHandle::none;

  CriticalSection m_csDriver;  ///< queries and re-opening of the driver that can race
  CSonivoDriverAccess m_DriverAccess;

  EventPair m_hEvent;               ///< of ChangeThread: a default device changed, stop
  EventPair m_hRegistryEvent;       ///< of ChangeRegistryThread: a value changed, stop
  EventPair m_hRegistryEvent_Quit;  ///< of ChangeRegistryThread_Quit
  CAudioControl m_AudioControl;     // uses the events; goes first

  CriticalSection m_csReport;  ///< held while a report is made and handed over, so that the later one is the newer
  std::string m_szTrouble;     ///< at the latest look; under m_csReport
  std::atomic<Pause> m_Pause = Pause::none;
  LastTrouble m_LastTrouble;
  DriverNotes m_DriverNotes;

  std::filesystem::path m_szEnhanceModelFolder;  ///< of the enrolled voice model
  std::string m_szEnhanceModelPath;

  bool KeyCancel() const { return GateKeyCancel(m_FunctionMic, m_dwGenerationMic); }
  bool BeamForming() const { return GateBeamForming(m_FunctionMic, m_dwGenerationMic); }
  bool AISpeech() const { return GateAISpeech(m_FunctionMic, m_dwGenerationMic); }
  /// Whether the mode threads exist.
  bool GateModeThreads() const { return BeamForming() || AISpeech(); }
  bool FourPositions() const { return (m_Function & 2) != 0; }

  /// The mouse's first.
  void RemoveHooks() {
    std::unique_ptr<Registration> mouse;
    std::unique_ptr<Registration> keyboard;
    {
      const std::lock_guard lock(m_csHooks);
      mouse = std::move(m_hHookWnd);
      keyboard = std::move(m_hKeyHookWnd);
    }
    mouse.reset();
    keyboard.reset();
  }
  /// Any thread.
  void SetMeetingModes(std::int32_t position) {
    m_iMeetingModeCur = position;
    m_iMeetingMode = position;
    m_iMeetingModeTmp = position;
  }
};

/// Meeting-mode position of a value of GetLaunchedMTG. Notes whether room correction is part of it; 0 leaves that.
inline std::int32_t NormaliseLaunched(HostState& host, std::uint32_t launched) {
  if (launched == 0) return 0;
  host.m_RoomCorrection = launched > 2 ? 1 : 0;
  return static_cast<std::int32_t>(launched > 2 ? launched - 2 : launched);
}

}  // namespace sonivo
