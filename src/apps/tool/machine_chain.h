#pragma once

#include <cstdint>
#include <string>

#include "apps/tool/driver_connection.h"

namespace sonivo::tool {

/// The chain that a machine's numbers call for.
enum class MachineChain { none, keycancel, beamforming, ai };

/// As commands take it and print it.
const char* chain_name(MachineChain chain);
/// Throws UsageError for what is no chain.
MachineChain chain_called(const std::string& text);

MachineChain chain_of(std::uint32_t function_mic, std::uint32_t generation_mic);
/// Of the numbers that the driver holds. Throws Failure.
MachineChain driver_chain(DriverConnection& driver);
/// Sets numbers that call for it. Throws Failure.
void set_driver_chain(DriverConnection& driver, MachineChain chain);

}  // namespace sonivo::tool
