#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/status.h"
#include "platform/endpoints.h"
#include "platform/fx_requests.h"
#include "platform/machine.h"
#include "platform/properties.h"

namespace sonivo {

inline constexpr Guid kKeyCancelFormat{0x654091D5, 0x0AC4, 0x4FC2, {0xB6, 0xD4, 0xC9, 0xE8, 0x1F, 0x24, 0x81, 0x6E}};
inline constexpr Guid kBeamFormingFormat{0x7CE50538, 0x9CFE, 0x4EC9, {0xAA, 0x86, 0x11, 0x36, 0x09, 0xB2, 0x50, 0x94}};
inline constexpr Guid kStrengthFormat{0x92925271, 0x0380, 0x4E57, {0x86, 0x6B, 0x80, 0xF4, 0x23, 0x36, 0x19, 0x19}};

/// Parameters of the first chain: two flag bytes, then the blob.
inline constexpr PropertyKey PKEY_NVC_MTGMIC_KC_Param{kKeyCancelFormat, 551};
/// Parameters of the second and third chain: three bytes, then the blob.
inline constexpr PropertyKey PKEY_NVC_MTGMIC_BF_KC_Param{kBeamFormingFormat, 571};
/// Strength of the speech enhancement, one f32.
inline constexpr PropertyKey PKEY_NVC_AI_Strength{kStrengthFormat, 660};
/// GUID text of an endpoint.
inline constexpr PropertyKey PKEY_AudioEndpoint_GUID = control::kEndpointGuidKey;

/// The effect whose own store is asked first.
inline constexpr Guid kEffectClass = control::kCaptureEffect;

/// Whether a friendly name is that of a notebook's own microphone, whose effect properties are the ones that count.
bool IsBuiltInMicrophone(std::string_view name);

/// Reads an effect property of the built-in microphone, which is told by its friendly name, disabled and absent
/// endpoints included. cb is the capacity of `buffer`: bytes for a blob, UTF-16 characters for a text, of which a
/// terminator is one if it still fits. A number gives its low byte.
///
/// 0: copied; error::kBadArguments: cb is null; error::kMoreData: the blob is larger, the buffer is filled;
/// error::kNotFound: no such endpoint or empty value; error::kInvalidData: a type that isn't read; negative: the failed
/// status of the machine. Unless stated the buffer is left as it was.
Status GetFxCapturePropertiesValue(const Machine& machine, const PropertyKey& key, void* buffer, std::uint32_t* cb);

/// The same for readers of a blob of this size, with room in between for whatever else the store may hold. Bytes that
/// the value doesn't have stay as they were; `bytes` changes only when the answer is 0 or error::kMoreData.
Status GetFxCaptureBytes(const Machine& machine, const PropertyKey& key, std::span<std::byte> bytes);

/// The same from one endpoint.
Status GetFxPropertiesValueEx2(const Machine& machine, Endpoint& device, const std::string& id, const PropertyKey& key,
                               void* buffer, std::uint32_t* cb);

}  // namespace sonivo
