#pragma once

#include "host/driver_access.h"

namespace sonivo {

/// Where the effective setting of a function comes from: it is off, or what the user has set.
enum class Effective { off, user };

/// A user's setting; on, 1, where it can't be read.
using SettingGetter = int (CSonivoDriverAccess::*)(std::uint32_t*);
std::uint32_t UserSetting(CSonivoDriverAccess& driver, SettingGetter getter);

void SetEnhance(CSonivoDriverAccess& driver, Effective effective);
void SetVoiceModel(CSonivoDriverAccess& driver, Effective effective);

}  // namespace sonivo
