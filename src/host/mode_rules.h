#pragma once

#include <cstdint>

#include "host/host_state.h"

namespace sonivo {

/// Tells the driver the meeting-mode position, under m_csDriver; what the driver answered.
int SetMeetingModeDriver(HostState& host, std::int32_t position);

// What follows a change of headphones, devices or settings; always in this order.
/// Derives the effective settings from the user's when the headphone state has changed; answers the present one.
std::uint32_t headphoneUpdate(HostState& host);
void SetHeadphoneState(HostState& host, std::uint32_t value);
/// Brings the chains in line with what the physical microphone is.
void deviceNameChange(HostState& host);

/// The three in their order.
inline void FollowDevices(HostState& host) {
  SetHeadphoneState(host, headphoneUpdate(host));
  deviceNameChange(host);
}

/// Goes over to the enrolled voice model or back; gives it up where the model is missing.
void ApplyVoiceModel(HostState& host, bool on);
/// Clears the driver's settings for a voice model that is missing.
void GiveUpVoiceModel(HostState& host);

/// Has the visible panel painted anew.
void RepaintPanel(HostState& host);

}  // namespace sonivo
