#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/control_requests.h"
#include "platform/properties.h"

/// Effect properties of endpoints, over the driver's control channel.
namespace sonivo::control {

inline constexpr std::uint32_t NSV_GET_FX_PROPERTY = 0x8000E200;     ///< FxAddress in; u32 type and the value out
inline constexpr std::uint32_t NSV_SET_FX_PROPERTY = 0x8000E204;     ///< FxAddress, u32 type and the value in
inline constexpr std::uint32_t NSV_REMOVE_FX_PROPERTY = 0x8000E208;  ///< FxAddress in
/// FxWatchQuestion in; u64 out, the number of the latest change, as soon as it isn't the one in the question. 0 is the
/// number of none. A change of an effect property of the endpoint counts, each of a setting that another process than
/// the service made, and that of the headphones, which the service's process tells of, too.
inline constexpr std::uint32_t NSV_WATCH_FX_PROPERTIES = 0x8000E20C;

// Types of values: as on disk and in PropertyValue. Any other number is a foreign type, whose value is just kept.
inline constexpr std::uint32_t kTypeNumber = 19;  ///< u32
inline constexpr std::uint32_t kTypeText = 31;    ///< UTF-8, without an end
inline constexpr std::uint32_t kTypeBlob = 65;
inline constexpr std::uint32_t kMaxType = 0xFFFF;

inline constexpr std::size_t kMaxFxValueBytes = std::size_t{1} << 16;
/// Of all values together; a value that would be one too much is refused with error::kDiskFull.
inline constexpr std::size_t kMaxFxValues = 1024;
inline constexpr std::size_t kMaxFxTotalBytes = std::size_t{1} << 20;

/// Where a value lies.
enum class FxHome : std::uint32_t { user_store = 0, effect_store = 1, device_properties = 2 };

struct FxAddress {
  FxHome home = FxHome::user_store;
  std::uint32_t pid = 0;
  Guid fmtid{};
  WireText endpoint{};  ///< its id
};
static_assert(sizeof(FxAddress) == 544);

struct FxWatchQuestion {
  WireText
      endpoint{};  ///< its id, or the text of its GUID in any case; error::kNotFound when there are no values of it
  std::uint64_t seen = 0;
};
static_assert(sizeof(FxWatchQuestion) == 528);

/// The effect that the user stores belong to.
inline constexpr Guid kCaptureEffect{0x06B604E5, 0xC78E, 0x4283, {0xBC, 0x39, 0x7C, 0xB4, 0x4E, 0x72, 0x7F, 0xC3}};

/// Whose value, a text in the effect store or the device properties, is the GUID of the endpoint.
inline constexpr PropertyKey kEndpointGuidKey{
    {0x1DA5D803, 0xD492, 0x4EDD, {0x8C, 0x23, 0xE0, 0xC0, 0xFF, 0xEE, 0x7F, 0x0E}}, 4};

}  // namespace sonivo::control
