#pragma once

#include <cstdint>

#include "apps/tool/chain.h"
#include "apps/tool/driver_connection.h"

namespace sonivo::tool {

/// The chain that a machine's numbers call for.
Chain chain_of(std::uint32_t function_mic, std::uint32_t generation_mic);
/// Of the numbers that the driver holds. Throws Failure.
Chain driver_chain(DriverConnection& driver);
/// Sets numbers that call for it. Throws Failure; the numbers then call for it or for the former one.
void set_driver_chain(DriverConnection& driver, Chain chain);

}  // namespace sonivo::tool
