#pragma once

#include "host/host_state.h"

namespace sonivo {

/// Has GetMessage return, so that the loop reboots the threads; the window procedure does nothing with it.
inline constexpr std::uint32_t WM_EVENT_MDN = 0x8064;

/// Creates the panel and the mute window, hidden; false when either can't be had.
bool CreateHostWindows(HostState& host);

/// Bitmap strip of the panel by generation and function.
std::uint32_t PanelBitmapId(const HostState& host);
/// Loads the strip and notes its size.
void LoadPanelBitmap(HostState& host);

/// Hides the panel and takes its hooks away. Any thread.
void ShowWindowHide(HostState& host);

/// Called with power transitions on a thread of the machine's own.
std::uint32_t DeviceNotifyCallbackRoutine(HostState& host, std::uint64_t transition);

}  // namespace sonivo
