#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "base/guid.h"

/// The driver's control channel: numbered requests, their payloads, and the record of its events. The same on every
/// machine; all numbers are little endian.
namespace sonivo::control {

inline constexpr Guid kControlInterface{0x6D0939E3, 0x4CE7, 0x43B7, {0x93, 0x4E, 0x58, 0x1F, 0x2B, 0x94, 0x2F, 0xF4}};

/// A text on the wire: UTF-16, ended by a zero.
inline constexpr std::size_t kTextCharacters = 260;
inline constexpr std::size_t kTextBytes = kTextCharacters * sizeof(char16_t);
using WireText = std::array<char16_t, kTextCharacters>;

inline constexpr std::uint32_t GetHeadphone =
    0x8000E03C;  ///< 4 bytes in, which count for nothing, 8 out; the first u32 counts
inline constexpr std::uint32_t GetSonivoDrvGeneration = 0x8000E048;
/// EventRecord out, once there is an event. For one process at a time, the first that sends this or the next one, until
/// its last connection ends: another's waits for that, too.
inline constexpr std::uint32_t NSV_SERVICE_EVENT_NOTIFY = 0x8000E0E4;
/// Ends all pending NSV_SERVICE_EVENT_NOTIFY of the process that sends it.
inline constexpr std::uint32_t NSV_SERVICE_EVENT_CANCEL = 0x8000E0E8;
inline constexpr std::uint32_t NSV_SET_LAUNCHED_MTG = 0x8000E124;
inline constexpr std::uint32_t NSV_GET_LAUNCHED_MTG = 0x8000E128;
inline constexpr std::uint32_t NSV_SET_ALL_SP_MTG = 0x8000E12C;
inline constexpr std::uint32_t NSV_GET_ALL_SP_MTG = 0x8000E130;
inline constexpr std::uint32_t GetAutoExit = 0x8000E138;
inline constexpr std::uint32_t GetFunction = 0x8000E13C;
inline constexpr std::uint32_t SetRenderEndpointId = 0x8000E148;
inline constexpr std::uint32_t GetRenderEndpointId = 0x8000E14C;
inline constexpr std::uint32_t SetCaptureEndpointId = 0x8000E150;
inline constexpr std::uint32_t GetCaptureEndpointId = 0x8000E154;
inline constexpr std::uint32_t SetAutoMuteMTG = 0x8000E158;
inline constexpr std::uint32_t NSV_GET_AUTO_MUTE_MTG = 0x8000E15C;
inline constexpr std::uint32_t NSV_SET_ALL_HP_MTG = 0x8000E160;
inline constexpr std::uint32_t GetFunctionMic = 0x8000E164;
inline constexpr std::uint32_t GetGenerationMic = 0x8000E168;
inline constexpr std::uint32_t NSV_SET_MODE_MTG = 0x8000E16C;  ///< the mode of speaker and headphones at once
inline constexpr std::uint32_t SetKeyboardCancelMTG = 0x8000E17C;
inline constexpr std::uint32_t GetKeyboardCancelMTG = 0x8000E180;
inline constexpr std::uint32_t NSV_GET_KEYCANSEL_UI_MTG = 0x8000E188;
inline constexpr std::uint32_t SetBeamformingMTG = 0x8000E18C;
inline constexpr std::uint32_t GetBeamformingMTG = 0x8000E190;
inline constexpr std::uint32_t NSV_SET_BEAMFORMING_UI_MTG = 0x8000E194;
inline constexpr std::uint32_t NSV_GET_BEAMFORMING_UI_MTG = 0x8000E198;
inline constexpr std::uint32_t SetAispeechenhanceMTG = 0x8000E1A4;
inline constexpr std::uint32_t GetAispeechenhanceMTG = 0x8000E1A8;
inline constexpr std::uint32_t SetAispeechenhanceWavFileMTG = 0x8000E1AC;
inline constexpr std::uint32_t GetAispeechenhanceWavFileMTG = 0x8000E1B0;
inline constexpr std::uint32_t SetAispeechenhanceWavFolderMTG = 0x8000E1B4;
inline constexpr std::uint32_t GetAispeechenhanceWavFolderMTG = 0x8000E1B8;
inline constexpr std::uint32_t SetAispeechenhanceText1MTG = 0x8000E1BC;
inline constexpr std::uint32_t GetAispeechenhanceText1MTG = 0x8000E1C0;
inline constexpr std::uint32_t SetAispeechenhanceText2MTG = 0x8000E1C4;
inline constexpr std::uint32_t GetAispeechenhanceText2MTG = 0x8000E1C8;
inline constexpr std::uint32_t SetAispeechenhanceModelNoMTG = 0x8000E1CC;
inline constexpr std::uint32_t GetAispeechenhanceModelNoMTG = 0x8000E1D0;
inline constexpr std::uint32_t SetAispeechenhanceRegistrationMTG = 0x8000E1D4;
inline constexpr std::uint32_t GetAispeechenhanceRegistrationMTG = 0x8000E1D8;
inline constexpr std::uint32_t SetAispeechenhanceSetAiModelMTG = 0x8000E1DC;
inline constexpr std::uint32_t GetAispeechenhanceSetAiModelMTG = 0x8000E1E0;
inline constexpr std::uint32_t GetAispeechenhance_UI_MTG = 0x8000E1E8;
inline constexpr std::uint32_t SetAispeechenhanceSetAiModel_UI_MTG = 0x8000E1EC;
inline constexpr std::uint32_t GetAispeechenhanceSetAiModel_UI_MTG = 0x8000E1F0;
inline constexpr std::uint32_t GetAispeechenhanceRegDialog_Open_MTG = 0x8000E1F8;

// Of settings applications and of the machine itself; the service sends none of these.
inline constexpr std::uint32_t SetHeadphone = 0x8000E040;
inline constexpr std::uint32_t SetSonivoDrvGeneration = 0x8000E04C;
inline constexpr std::uint32_t SetAutoExit = 0x8000E134;
inline constexpr std::uint32_t SetFunction = 0x8000E140;
inline constexpr std::uint32_t SetFunctionMic = 0x8000E170;
inline constexpr std::uint32_t SetGenerationMic = 0x8000E174;
inline constexpr std::uint32_t NSV_GET_ALL_HP_MTG = 0x8000E178;
inline constexpr std::uint32_t SetKeyboardCancel_UI_MTG = 0x8000E184;
inline constexpr std::uint32_t SetAispeechenhance_UI_MTG = 0x8000E1E4;
inline constexpr std::uint32_t SetAispeechenhanceRegDialog_Open_MTG = 0x8000E1F4;

// Of this driver's own.
/// As NSV_SERVICE_EVENT_NOTIFY, for onlookers: takes the event from nobody, and NSV_SERVICE_EVENT_CANCEL leaves it.
inline constexpr std::uint32_t NSV_OBSERVE_EVENTS = 0x8000E0EC;
/// UTF-8 text (JSON) in, at most kMaxReportBytes: what the service tells of itself, until the last connection of its
/// process ends. Empty text withdraws it. From any process but the one of NSV_SERVICE_EVENT_NOTIFY it is
/// error::kAccessDenied.
inline constexpr std::uint32_t NSV_PUBLISH_REPORT = 0x8000E0F0;
inline constexpr std::uint32_t NSV_READ_REPORT = 0x8000E0F4;  ///< that text out; error::kNotFound without one
inline constexpr std::uint32_t NSV_SEND_EVENT = 0x8000E0F8;   ///< u32 in: command of an event, below NSVPLAY_CMD_EXIT
inline constexpr std::uint32_t NSV_READ_AGES = 0x8000E0FC;    ///< Ages out
inline constexpr std::size_t kMaxReportBytes = 8192;

/// What NSV_READ_AGES answers. The time that the machine sleeps doesn't count.
struct Ages {
  static constexpr std::uint64_t kNone = ~std::uint64_t{0};
  std::uint64_t driver_ms = 0;      ///< since the driver's start
  std::uint64_t report_ms = kNone;  ///< since the service published its report; kNone without one
};
static_assert(sizeof(Ages) == 16);

/// What NSV_SERVICE_EVENT_NOTIFY answers. The caller zeroes it.
struct EventRecord {
  std::uint32_t command = 0;
  std::array<std::byte, 1040> unused{};
};
static_assert(sizeof(EventRecord) == 1044);

// Commands.
inline constexpr std::uint32_t kPlayerIsOn = 1;
inline constexpr std::uint32_t kPlayerIsOff = 2;
inline constexpr std::uint32_t kMonitorWake = 3;
inline constexpr std::uint32_t NSVDRV_CMD_AUTOMUTE_ON = 12;
inline constexpr std::uint32_t NSVDRV_CMD_AUTOMUTE_OFF = 13;
inline constexpr std::uint32_t NSVDRV_CMD_DEV_MIC = 14;
inline constexpr std::uint32_t NSVDRV_CMD_DEV_SPK = 15;
inline constexpr std::uint32_t kNothing = 16;
inline constexpr std::uint32_t NSVPLAY_CMD_EXIT = 99;

}  // namespace sonivo::control
