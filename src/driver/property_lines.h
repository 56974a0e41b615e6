#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "driver/effect_properties.h"

namespace sonivo::driver {

/// A property as a line of text:
/// "1 {06b604e5-c78e-4283-bc39-7cb44e727fc3} 551 65 00a0ff {0.0.1.00000000}.{...}".
std::string property_line(const EffectProperties::Address& address, const EffectProperties::Value& value);

/// None when the line is not of that form.
std::optional<std::pair<EffectProperties::Address, EffectProperties::Value>> property_of_line(std::string_view line);

/// Whether a value of this type may have these bytes.
bool is_sound(const EffectProperties::Value& value);

}  // namespace sonivo::driver
