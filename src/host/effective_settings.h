#pragma once

#include "host/driver_access.h"

namespace sonivo {

/// Where the effective setting of a function comes from: it is off, or what the user has set.
enum class Effective { off, user };

void SetEnhance(CSonivoDriverAccess& driver, Effective effective);
void SetVoiceModel(CSonivoDriverAccess& driver, Effective effective);

}  // namespace sonivo
