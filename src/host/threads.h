#pragma once

#include <cstdint>

#include "host/host_state.h"

namespace sonivo {

// Routines of the host's threads; each answers its status.

/// Keeps the connection to the driver and serves its events, until m_bThreadExit.
std::uint32_t MainThread(HostState& host);
/// Turns a chosen meeting mode into driver settings and polls the headphone jack, until m_bThreadExit; then stops the
/// mode threads.
std::uint32_t SubThread(HostState& host);
/// Applies the rules of headphones and devices when a default device changes.
std::uint32_t ChangeThread(HostState& host);
/// Builds a voice model on request and re-applies settings when an effect property changes.
std::uint32_t ChangeRegistryThread(HostState& host);
/// Aborts the build of a voice model on request.
std::uint32_t ChangeRegistryThread_Quit(HostState& host);

}  // namespace sonivo
