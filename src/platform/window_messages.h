#pragma once

#include <cstdint>

namespace sonivo {

// Messages that the machine sends to windows, and their parameters.

inline constexpr std::uint32_t kWmDestroy = 0x0002;
inline constexpr std::uint32_t kWmPaint = 0x000F;
inline constexpr std::uint32_t kWmClose = 0x0010;
/// wParam 0. Answer 1: the session may end; 0: it shall go on.
inline constexpr std::uint32_t kWmQueryEndSession = 0x0011;
inline constexpr std::uint32_t kWmQuit = 0x0012;
/// wParam 1: the session ends; 0: it goes on after all.
inline constexpr std::uint32_t kWmEndSession = 0x0016;
/// Left button on the part of the window that wParam names.
inline constexpr std::uint32_t kWmNcLButtonDown = 0x00A1;
inline constexpr std::uint64_t kHitCaption = 2;

// Keyboard; wParam is the virtual key. The second pair: while Alt is down.
inline constexpr std::uint32_t kWmKeyDown = 0x0100;
inline constexpr std::uint32_t kWmKeyUp = 0x0101;
inline constexpr std::uint32_t kWmSysKeyDown = 0x0104;
inline constexpr std::uint32_t kWmSysKeyUp = 0x0105;
inline constexpr std::uint32_t kKeyTab = 0x09;
inline constexpr std::uint32_t kKeyEnter = 0x0D;
inline constexpr std::uint32_t kKeyEscape = 0x1B;
inline constexpr std::uint32_t kKeyLeft = 0x25;
inline constexpr std::uint32_t kKeyRight = 0x27;
inline constexpr std::uint32_t kKeyLeftWindows = 0x5B;
inline constexpr std::uint32_t kKeyRightWindows = 0x5C;

inline constexpr std::uint32_t kWmSysCommand = 0x0112;
inline constexpr std::uint64_t kSysCommandClose = 0xF060;

/// wParam is the timer's number.
inline constexpr std::uint32_t kWmTimer = 0x0113;

// Mouse; lParam is the packed point.
inline constexpr std::uint32_t kWmMouseMove = 0x0200;
inline constexpr std::uint32_t kWmLButtonDown = 0x0201;
inline constexpr std::uint32_t kWmLButtonUp = 0x0202;
inline constexpr std::uint32_t kWmRButtonDown = 0x0204;
inline constexpr std::uint32_t kWmMouseLeave = 0x02A3;

/// wParam is a power transition; with a changed setting, lParam is the address of a PowerSetting.
inline constexpr std::uint32_t kWmPowerBroadcast = 0x0218;
/// lParam is the address of a DeviceBroadcast.
inline constexpr std::uint32_t kWmDeviceChange = 0x0219;
/// wParam is a session change, lParam the session.
inline constexpr std::uint32_t kWmSessionChange = 0x02B1;

}  // namespace sonivo
