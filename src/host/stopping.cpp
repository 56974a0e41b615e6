#include "host/stopping.h"

#include "host/status_report.h"

namespace sonivo {
namespace {

void TellThreadsToLeave(HostState& host) {
  host.m_bSonivoServiceLock = 1;
  host.m_bThreadExit = 1;
}

void CloseDriver(HostState& host) {
  const std::lock_guard lock(host.m_csDriver);
  host.m_DriverAccess.CloseOverlappedHandle();
  host.m_DriverAccess.SetEventIoControl_Cancel();
  host.m_bDriverReady = 0;
  host.m_DriverAccess.CloseDriverHandles();
}

}  // namespace

void StopDriverThreads(HostState& host) {
  TellThreadsToLeave(host);
  CloseDriver(host);
}

void PauseDriverThreads(HostState& host, Pause pause) {
  host.m_Pause = pause;  // before the reboot that takes it back is possible
  TellThreadsToLeave(host);
  ReportAtOnce(host);
  CloseDriver(host);
}

int AutoExitUpdate(HostState& host) {
  std::uint32_t auto_exit = 0;
  if (host.m_DriverAccess.GetAutoExit(&auto_exit) == 0) return 0;
  if (auto_exit != 0) {
    host.m_DriverAccess.SetLaunchedMTGOff2();
    host.m_DriverAccess.SetKeyboardCancelMTG(0);
  }
  return 1;
}

}  // namespace sonivo
