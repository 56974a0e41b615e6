#pragma once

#include <optional>
#include <string>

#include "platform/device.h"
#include "platform/endpoints.h"

namespace sonivo {

/// Path of the driver's audio device for a direction: the first interface of the relay's service that bears the
/// direction's filter name, up to that name, then "\VADrv" and the filter name.
std::optional<std::string> FindVirtualDevicePath(DeviceBus& bus, DataFlow flow);

}  // namespace sonivo
