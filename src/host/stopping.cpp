#include "host/stopping.h"

namespace sonivo {

void StopDriverThreads(HostState& host) {
  host.m_bSonivoServiceLock = 1;
  host.m_bThreadExit = 1;
  const std::lock_guard lock(host.m_csDriver);
  host.m_DriverAccess.CloseOverlappedHandle();
  host.m_DriverAccess.SetEventIoControl_Cancel();
  host.m_bDriverReady = 0;
  host.m_DriverAccess.CloseDriverHandles();
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
