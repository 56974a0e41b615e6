#pragma once

#include "host/host_state.h"

namespace sonivo {

/// What the registration value of the driver says.
namespace registration {
inline constexpr std::uint32_t kBuild = 20;  ///< asks for a voice model
inline constexpr std::uint32_t kRunning = 30;
inline constexpr std::uint32_t kAbort = 40;   ///< asks for the end of the build
inline constexpr std::uint32_t kLeft15 = 15;  ///< these two stay as they are found after a build
inline constexpr std::uint32_t kLeft103 = 103;
}  // namespace registration

/// Builds the enrolled voice model from the recording that the driver names, when the registration value asks for it,
/// and publishes it beside the recording; both layers of the voice-model setting follow the outcome.
void BuildVoiceModel(HostState& host);

/// Aborts a running build when the registration value asks for it.
void QuitVoiceModel(HostState& host);

}  // namespace sonivo
